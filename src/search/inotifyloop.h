#pragma once

#include "search/foldertimes.h"
#include "search/inotifysource.h"
#include "search/pathexclusion.h"
#include "search/searchindexdb.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <atomic>
#include <functional>

struct inotify_event;

/// What the watcher's thread does: turns events of the watched trees into changes of the index.
/// Made, run and destroyed on that thread.
class InotifyLoop
{
public:
    struct Options
    {
        QString dbPath;
        QStringList roots;
        PathExclusion exclusion;
        SuffixSet nameSuffixes; ///< Files that have a row; empty for all.
        SuffixSet ftsSuffixes;  ///< Files whose text is taken; empty for all.
        int maxContentBytes;
        int maxDepth;    ///< Levels below a root; below 1 for no limit.
        int mostWatches; ///< 0 for what the system gives.
        int compareMs;   ///< Between two looks at what is not watched.
    };

    /// Called on the running thread.
    struct Reports
    {
        std::function<void(const QString &path, const QString &action, bool success)> updated;
        std::function<void(const QStringList &folders)> notFollowed;
        std::function<void()> invalidated;
    };

    /// Ends soon after `stop` is set and `wakeFd` has become readable.
    InotifyLoop(Options options, Reports reports, int wakeFd, const std::atomic_bool &stop);

    /// Returns when told to stop, or when the index is gone.
    void run();

private:
    bool takeEvents();
    void handleEvents(const QByteArray &events);
    void handleEvent(const inotify_event &event, const char *name);
    void handleDirectory(uint32_t mask, const QString &path);
    void handleFile(uint32_t mask, const QString &path);
    void processPending();
    enum class Files { Leave, Take };
    void addWatchTree(const QString &dir, Files files);
    void addFolder(const QString &dir, bool watched);
    void takeFiles(const QList<QFileInfo> &files);
    void storeText(const QFileInfo &info, const QString &text);
    void idle();
    void compareFolders();
    void compareFolder(const QString &dir);
    void followMounts();
    void reportUnfollowed();
    bool shouldSkipPath(const QString &path) const;
    bool shouldIndexFileName(const QString &fileName) const;
    bool shouldIndexFts(const QString &fileName) const;
    void reportChange(const QString &path, const QString &action, bool success);

    const Options m_options;
    const Reports m_reports;
    const std::atomic_bool &m_stop;
    SearchIndexDB m_db;
    InotifySource m_source;
    /// Files that wait for their text, by path: many events on one file give one extraction.
    QHash<QString, QFileInfo> m_pending;

    QStringList m_roots;     ///< Clean.
    QStringList m_mounts;    ///< Mount points at or below roots.
    FolderTimes m_deep;      ///< Deeper than the depth limit.
    FolderTimes m_unwatched; ///< Beyond the limit of watches.
    int m_reportedUnwatched = 0;
    QElapsedTimer m_sinceCompare;
    bool m_gramsAreMissing = true;
};
