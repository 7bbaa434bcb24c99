#pragma once

#include "analyzer/mountpoints.h"

#include <QObject>
#include <QString>
#include <QVariantList>
#include <QVariantMap>

#include <atomic>
#include <functional>

/// Walks one partition: the largest files, the sizes of all directories, duplicates. Lives on a
/// thread of its own and is reached by queued calls, apart from requestStop(). One call of
/// startScan() is one scan; results come by signals as soon as each is known. Sizes are bytes.
///
/// A file whose name cannot be written as text counts with its size and is in no list.
class DiskAnalyzerWorker : public QObject
{
    Q_OBJECT

public:
    using MountLister = std::function<QVector<MountPoint>()>;

    explicit DiskAnalyzerWorker(QObject *parent = nullptr);
    /// Learns from `mounts` which directories are other partitions.
    explicit DiskAnalyzerWorker(MountLister mounts, QObject *parent = nullptr);
    ~DiskAnalyzerWorker() override;

    /// Progress of a walk that met `bytes` where `estimate`, at least 1, are expected: 0 to 70.
    static int walkPercent(qint64 bytes, qint64 estimate);

public slots:
    /// Blocks the worker's thread until the scan ends in scanFinished(). `maxLargeFiles` of 0 or
    /// less means no limit.
    void startScan(const QString &rootPath, qint64 largeFileThreshold, int maxLargeFiles,
                   bool findDuplicates, bool duplicateByHash, qint64 dupMinSize);
    /// Any thread.
    void requestStop();

signals:
    void progressChanged(int percent, const QString &statusText);
    void scanFinished(bool success, const QString &message, int largeFileCount, int dupGroupCount);
    /// Maps of "path", "size", "modified" and the identity of scanidentity.h; largest first.
    void largeFilesReady(const QVariantList &files);
    /// The first entry is a map of "totalGroups", "totalReclaimable" and "shownGroups", then the
    /// groups as DuplicateScanner gives them. Empty if no duplicates were wanted.
    void duplicateGroupsReady(const QVariantList &groups);
    /// "name", "totalSize", "fileSize" and "children", a list of such maps, largest first. The
    /// root's name is the scan's root path; a directory with no file anywhere below is left out.
    void directoryTreeReady(const QVariantMap &rootNode);

private:
    struct Scan;

    bool walk(Scan *scan);
    bool sendLargeFiles(Scan *scan);
    bool sendTree(Scan *scan);
    bool sendDuplicates(Scan *scan);
    std::function<bool()> stopFunction() const;

    MountLister m_mounts;
    std::atomic<bool> m_stop{false};
};
