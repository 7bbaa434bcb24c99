#include "search/indexwatcher.h"

#include "search/inotifyloop.h"

#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

IndexWatcher::IndexWatcher(const QString &dbPath, QObject *parent)
    : QObject(parent)
    , m_dbPath(dbPath)
{}

IndexWatcher::~IndexWatcher()
{
    stop();
}

void IndexWatcher::setRoots(const QStringList &roots)
{
    m_roots = roots;
}

void IndexWatcher::setIndexOptions(const QStringList &excludeDirs,
                                   const QStringList &fileNameExtensions,
                                   const QStringList &ftsExtensions, int maxContentBytes,
                                   int maxDepth)
{
    m_excludeDirs = excludeDirs;
    m_fileNameExtensions = fileNameExtensions;
    m_ftsExtensions = ftsExtensions;
    m_maxContentBytes = maxContentBytes;
    m_maxDepth = maxDepth;
}

void IndexWatcher::setWatchLimit(int mostWatches, int compareMs)
{
    m_mostWatches = mostWatches;
    m_compareMs = compareMs;
}

void IndexWatcher::start()
{
    stop();
    if (m_roots.isEmpty())
        return;
    m_stop = false;
    m_running = true;
    m_wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    InotifyLoop::Options options{m_dbPath,
                                 m_roots,
                                 PathExclusion(m_excludeDirs),
                                 SuffixSet(m_fileNameExtensions),
                                 SuffixSet(m_ftsExtensions),
                                 m_maxContentBytes,
                                 m_maxDepth,
                                 m_mostWatches,
                                 m_compareMs};
    m_thread = std::thread([this, wakeFd = m_wakeFd, taken = std::move(options)]() mutable {
        InotifyLoop::Reports reports{
            [this](const QString &path, const QString &action, bool success) {
                emit indexIncrementalUpdated(path, action, success);
            },
            [this](const QStringList &folders) { emit foldersNotFollowed(folders); },
            [this] {
                emit indexInvalidated();
            }};
        InotifyLoop(std::move(taken), std::move(reports), wakeFd, m_stop).run();
        m_running = false;
    });
}

void IndexWatcher::stop()
{
    m_running = false;
    m_stop = true;
    if (m_wakeFd >= 0)
        eventfd_write(m_wakeFd, 1);
    // Also a thread that has ended by itself waits to be joined.
    if (m_thread.joinable())
        m_thread.join();
    if (m_wakeFd >= 0)
        close(m_wakeFd);
    m_wakeFd = -1;
}
