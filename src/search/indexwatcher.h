#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include <atomic>
#include <thread>

/// Keeps the index current between builds by inotify, on a std::thread of its own. Signals are
/// emitted from that thread, so they arrive queued. Options may change only while it is stopped.
class IndexWatcher : public QObject
{
    Q_OBJECT

public:
    explicit IndexWatcher(const QString &dbPath, QObject *parent = nullptr);
    ~IndexWatcher() override;

    void setRoots(const QStringList &roots);
    /// `maxDepth` of 0 has no limit.
    void setIndexOptions(const QStringList &excludeDirs, const QStringList &fileNameExtensions,
                         const QStringList &ftsExtensions, int maxContentBytes, int maxDepth);
    /// How far following goes: at most so many watches, 0 for what the system gives, and the time
    /// between two looks at the directories that have none.
    void setWatchLimit(int mostWatches, int compareMs);
    /// Stops a running watch first; without roots nothing starts. Only from the owner's thread.
    void start();
    /// Ends and joins the thread; no signal is emitted after it. A running extraction is cancelled,
    /// so this takes milliseconds.
    void stop();
    bool isRunning() const { return m_running; }

signals:
    /// `action` is "remove-dir", "remove-file", "remove-filtered", "meta-only" or "upsert-file".
    void indexIncrementalUpdated(const QString &path, const QString &action, bool success);
    /// The outermost directories that could not be watched; empty again once all are. What is made
    /// or removed in them is seen at the next look, what is written at the next refresh.
    void foldersNotFollowed(const QStringList &folders);
    /// Events were lost or the database failed or went: only a rebuild can repair that.
    void indexInvalidated();

private:
    QString m_dbPath;
    QStringList m_roots;
    QStringList m_excludeDirs;
    QStringList m_fileNameExtensions;
    QStringList m_ftsExtensions;
    int m_maxContentBytes = 65536;
    int m_maxDepth = 0;
    int m_mostWatches = 0;
    int m_compareMs = 10 * 60 * 1000;
    std::atomic_bool m_running{false};
    std::atomic_bool m_stop{false};
    int m_wakeFd = -1; ///< Readable once the thread is to end.
    std::thread m_thread;
};
