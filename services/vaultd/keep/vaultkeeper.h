#pragma once

#include "vaultd/index/vaultindex.h"
#include "vaultd/keep/capture.h"
#include "vaultd/keep/keeper.h"
#include "vaultd/keep/keeplog.h"
#include "vaultd/keep/reserve.h"

#include <QHash>

#include <functional>
#include <mutex>

namespace services::vaultd {

/// What a keeper takes, besides what it is told to.
struct KeepRules
{
    QStringList leftOutDirs;   ///< Absolute.
    QStringList leftOutNames;  ///< Of folders, wherever they are.
    qint64 copyLimitBytes = 0; ///< Larger files are not copied.
};

/// A file in the vault that has no lasting record yet.
struct KeptFile
{
    enum class State { Waiting, Deleted, LetGo };

    VaultFile file;
    struct stat original = {};
    Means means = Means::Copy;
    qint64 sinceMs = 0; ///< On the clock of keptClockMs().
    State state = State::Waiting;
};

/// Milliseconds on a clock that nobody sets.
qint64 keptClockMs();

/// Takes files into one user's vault as they are deleted: the content at once, a line in the log
/// before it, and nothing more. Lasting records, seals and the index are made later, in groups, by
/// VaultStore::recordKept() on the vault's thread.
class VaultKeeper : public Keeper
{
public:
    VaultKeeper(const VaultLayout &layout, uid_t owner, const QString &stateDir);

    /// Opens the log and takes up what an earlier process has left in it. Once, before all else.
    [[nodiscard]] bool open(QString *error);
    void setRules(const KeepRules &rules);
    /// `wake` is called, from any thread, when there is something to record.
    void setWake(const std::function<void()> &wake);

    bool keep(const Deletion &deletion, QString *id, QString *error) override;
    void settle(const QString &id, bool isDeleted) override;
    bool holds(const struct stat &file, const QByteArray &path) override;

    // For the vault's thread:
    /// A file with a content that stands in the vault already, such as one of the second net.
    [[nodiscard]] bool note(const VaultFile &file, QString *error);
    /// Whether a file was kept under this path within the last seconds.
    bool tookLately(const QByteArray &path) const;
    /// All that is not recorded yet.
    QVector<KeptFile> kept() const;
    bool isKept(const QString &id) const;
    /// These have lasting records, or are gone.
    void recorded(const QStringList &ids);
    /// Makes what was noted durable, with one flush.
    void flush();
    /// Lets the log begin anew if it is long. `syncFolder`: in the file system of the records.
    void shorten(int syncFolder);
    Reserve &reserve() { return m_reserve; }
    qint64 copyLimit() const;

private:
    struct Key
    {
        quint64 inode;
        QByteArray path;
        bool operator==(const Key &other) const
        {
            return inode == other.inode && path == other.path;
        }
        friend uint qHash(const Key &key, uint seed = 0)
        {
            return ::qHash(key.inode, seed) ^ qHash(key.path, seed);
        }
    };

    bool isLeftOut(const QByteArray &path) const;
    bool begin(const KeptFile &kept, QString *id, bool *isKnown, int *code);
    int take(const Deletion &deletion, KeptFile *kept);
    int takeElsewhere(const Deletion &deletion, KeptFile *kept);
    int noteAnew(const VaultFile &file);
    void giveUp(const KeptFile &kept);

    VaultLayout m_layout;
    uid_t m_owner;
    Reserve m_reserve;
    mutable std::mutex m_mutex; ///< Of everything below.
    KeepLog m_log;
    KeepRules m_rules;
    std::function<void()> m_wake;
    QHash<QString, KeptFile> m_kept;
    QHash<Key, QString> m_ids;          ///< Of what is kept and not let go.
    QHash<QByteArray, qint64> m_tookMs; ///< When, by path, lately.
    qint64 m_prunedMs = 0;
    std::mutex m_indexMutex;
    VaultIndex m_index; ///< Only for reading.
};

} // namespace services::vaultd
