#pragma once

#include "recoveryd/scan/claimmap.h"
#include "recoveryd/scan/hashindex.h"
#include "recoveryd/scan/scanrequest.h"
#include "recoveryd/session/resultlog.h"

#include <QVector>

#include <functional>

namespace services::recoveryd {

class MediaReader;

/// Turns what the scanners of one scan find into one list: a file that two of them found is one row
/// under the better name, conflicting claims to a block are settled, and all is kept in a log. On
/// the scan's thread.
class ResultList
{
public:
    /// More than this a session does not hold.
    static constexpr int kMaxFiles = 4000000;

    /// What is known about the place where the next scanner searches. Bytes of the scanned device.
    struct Place
    {
        qint64 shift = 0;    ///< Where the scanner's volume begins.
        Ranges ownInUse;     ///< In use by the volume itself: no deleted file has these blocks.
        Ranges foreignInUse; ///< In use by other live volumes: no file has these blocks.
    };

    /// `log` is open for appending and outlives the list; what it holds already counts as found.
    ResultList(ResultLog &log, const ScanRequest &request, qint64 deviceSize);
    /// Reads back what an interrupted scan has found.
    void reload();

    void beginScanner(const Place &place);
    /// False once no more can be taken.
    bool add(Finding &&finding);
    /// Settles the claims of the scanner's files.
    void endScanner();

    /// Milliseconds for each kind of check.
    struct CheckBudget
    {
        qint64 suffixMs = 0;   ///< First and last bytes against the suffix.
        qint64 decodingMs = 0; ///< All of the contents, where they can be decoded.
    };
    /// Checks the contents of files that were deleted and claim to be whole, in the order of their
    /// places on `device`, while the budget lasts and `mayGoOn` says so. To be called after
    /// endScanner().
    void checkContents(const MediaReader &device, const CheckBudget &budget,
                       const std::function<bool()> &mayGoOn);

    /// The bytes of the files that need no second search; the claims are forgotten, since carving
    /// makes none. To be called once, when the last scanner of metadata has ended.
    Ranges closeClaims();
    /// Counts the unreadable bytes of each file. `bad` is relative to the scanned device.
    void markUnreadable(const Ranges &bad);

    int count() const { return m_log.count(); }
    int newCount() const { return m_new.size(); }
    /// New rows since the last call.
    QVector<FoundFile> takeNew();

private:
    enum class Merge { New, Taken };

    void place(Finding *finding) const;
    Damage damageOf(const Finding &finding) const;
    Merge mergeByContent(quint64 key, const Finding &finding);
    Merge mergeByStart(const Finding &finding);
    void setWhole(int number, bool whole);
    using CheckFunction = std::function<Finding::Check(const Finding &)>;
    void planCheck(int number, const Finding &finding);
    void checkRow(int number, const CheckFunction &check);
    void announce(int number, const Finding &finding, const Damage &damage);

    ResultLog &m_log;
    ScanRequest m_request;
    qint64 m_deviceSize;
    Place m_place;
    int m_firstOfScanner = 1;
    bool m_isReloaded = false; ///< The next scanner goes on where an interrupted one stopped.
    ClaimMap m_claims;
    HashIndex m_byContent;
    std::vector<bool> m_isWhole;                     ///< By number - 1.
    std::vector<std::pair<qint64, int>> m_unchecked; ///< First byte and number.
    std::vector<std::pair<qint64, int>> m_starts;    ///< Files to be completed by their contents.
    QVector<FoundFile> m_new;
};

/// A hash of what the file's bytes are made of: equal for findings of the same bytes. Of empty
/// files and those without any place of their own it includes the name.
quint64 contentKey(const Finding &finding);

} // namespace services::recoveryd
