#pragma once

#include "search/names/filestamp.h"
#include "search/names/namearena.h"

#include <QElapsedTimer>
#include <QSqlDatabase>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace search::names {

/// The arena of an index file, read in the background at the first use and again when the file has
/// changed. The database stays the truth: while the arena is older than the file, what was added
/// or touched since comes in a second, small arena that is read at once. Used by one thread.
class NameIndex
{
public:
    /// `ready` is called from another thread when an arena has been read for the first time.
    NameIndex(const QString &dbPath, std::function<void()> ready);
    /// Ends a running load and waits for it, a few milliseconds at most.
    ~NameIndex();

    NameIndex(const NameIndex &) = delete;
    NameIndex &operator=(const NameIndex &) = delete;

    struct View
    {
        std::shared_ptr<const NameArena> rows; ///< Null as long as there is none of use.
        std::shared_ptr<const NameArena>
            newer; ///< Rows that stand before those of `rows`; or null.
    };

    /// What there is; starts a load where it is missing or too old. `database` is an open
    /// connection of the calling thread to the same file.
    View view(const QSqlDatabase &database);
    /// Reads the arena now, where there is none; for those who ask only once.
    void waitForRows(const QSqlDatabase &database);

private:
    struct Loaded
    {
        std::shared_ptr<const NameArena> rows;
        FileStamp stamp; ///< Of the file before it was read.
        qint64 tookMs = 0;
        QElapsedTimer since;
    };

    void startLoad();
    void load();
    bool readNewer(const QSqlDatabase &database, const NameArena &rows);

    QString m_dbPath;
    std::function<void()> m_ready;
    std::thread m_loader;
    std::atomic<bool> m_isLoading{false};
    std::atomic<bool> m_stop{false};
    std::mutex m_mutex; ///< Of m_loaded.
    Loaded m_loaded;

    std::shared_ptr<const NameArena> m_newer;
    FileStamp m_newerStamp;
    const NameArena *m_newerThan = nullptr;
};

} // namespace search::names
