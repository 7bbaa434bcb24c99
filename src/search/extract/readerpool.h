#pragma once

#include <QByteArray>
#include <QString>

#include <atomic>
#include <mutex>
#include <sys/types.h>
#include <vector>

namespace search {

/// What a helper gave for one document.
struct ReaderAnswer
{
    bool answered = false; ///< False if there is no helper, or the document was too much for it.
    QString text;
    bool isCut = false;
};

struct ReaderLimits
{
    int maxPlainBytes;
    int maxChars;
};

/// Helper processes that read documents: one document at a time each, and one after another, so
/// that most documents cost no start. A document that takes too long or kills its helper costs only
/// that helper. May be used from several threads at once; each call has a helper to itself.
class ReaderPool
{
public:
    /// `program` is the path of the helper; empty where it is not installed.
    explicit ReaderPool(const QString &program);
    ~ReaderPool();

    ReaderPool(const ReaderPool &) = delete;
    ReaderPool &operator=(const ReaderPool &) = delete;

    /// The pool of this process, with the helper that belongs to the installed program.
    static ReaderPool &shared();

    bool isAvailable() const { return !m_program.isEmpty(); }

    /// Waits for the text of a file. Once `cancel` is true the helper is ended within 50 ms.
    ReaderAnswer read(const QString &path, const ReaderLimits &limits,
                      const std::atomic_bool *cancel);

private:
    struct Helper
    {
        pid_t pid;
        int socket;
        int documents;
    };

    bool takeIdle(Helper *helper);
    bool start(Helper *helper) const;
    void giveBack(const Helper &helper);

    const QByteArray m_program;
    std::mutex m_mutex; ///< Guards the list, never held while waiting.
    std::vector<Helper> m_idle;
};

} // namespace search
