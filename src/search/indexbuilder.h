#pragma once

#include "search/sqlinterrupter.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <atomic>

/// Builds or refreshes the index: walks the roots and writes file rows in batches, extracts text in
/// parallel, compacts. Lives on a thread of its own; every slot but requestStop() is called queued.
class IndexBuilder : public QObject
{
    Q_OBJECT

public:
    explicit IndexBuilder(const QString &dbPath, QObject *parent = nullptr);

    /// Prefix that is cut from runtime paths before they are stored ("/live_target").
    void setStoredPathPrefix(const QString &prefix);
    QString storedPathForRuntimePath(const QString &path) const;
    /// The message of finished() for a build that was told to stop.
    static QString cancelledMessage();
    /// Threads that extract text; 0 chooses by the machine, 2 to 6. Set before a build.
    void setExtractionThreads(int count) { m_extractionThreads = count; }

public slots:
    /// Removes the database with its log files, so that the next build starts afresh. Queued
    /// before startBuild(), so that the GUI thread never waits for the disk.
    void removeDatabase();
    /// One build. Ends in finished(). `fileNameExtensions` has no effect: every file is named.
    void startBuild(const QStringList &roots, const QStringList &excludeDirs,
                    const QStringList &fileNameExtensions, const QStringList &ftsExtensions,
                    int maxContentBytes);
    /// Only sets a flag, which the next startBuild() clears; called directly from the GUI thread. A
    /// build that is still queued is given up if the thread's interruption was requested before.
    void requestStop();

signals:
    void progressChanged(int indexedFiles, const QString &currentPath);
    void toolsMissing(const QStringList &details);
    void finished(bool success, const QString &message);
    /// The build fails because the index file is damaged; finished() follows. A refresh cannot
    /// repair that.
    void indexDamaged();

private:
    QString m_dbPath;
    QString m_storedPathPrefix;
    int m_extractionThreads = 0;
    std::atomic_bool m_stop{false};
    search::SqlInterrupter m_interrupter; ///< Holds the build's connection while it compacts.
};
