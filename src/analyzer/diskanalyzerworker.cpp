#include "analyzer/diskanalyzerworker.h"

#include "analyzer/directorywalk.h"
#include "analyzer/duplicate_scanner.h"
#include "analyzer/largestfiles.h"
#include "analyzer/saturating.h"
#include "analyzer/sizebuckets.h"

#include <QDebug>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QStorageInfo>
#include <QThread>

#include <algorithm>

namespace {

constexpr int kProgressIntervalMs = 500;
/// Files between two looks at the clock.
constexpr int kFilesPerLook = 16;

/// Percent reached when the walk, the lists and the tree are done.
constexpr int kWalkPercent = 70;
constexpr int kTreePercent = 75;
constexpr int kDuplicatesPercent = 78;

constexpr int kMaximumThreads = 8;
constexpr int kFilesPerBucket = 100;
constexpr int kBuckets = 2000;
constexpr int kGroups = 500;

DuplicateScanner::ScanOptions duplicateOptions(bool byHash, qint64 minimumSize)
{
    DuplicateScanner::ScanOptions options;
    options.minimumSize = minimumSize;
    options.byHash = byHash;
    options.maximumFilesPerBucket = kFilesPerBucket;
    options.maximumBuckets = kBuckets;
    options.maximumGroups = kGroups;
    options.threads = qBound(1, QThread::idealThreadCount(), kMaximumThreads);
    return options;
}

/// At least 1.
qint64 usedBytes(const QString &rootPath)
{
    const QStorageInfo storage(rootPath);
    return std::max(qint64(1), storage.bytesTotal() - storage.bytesAvailable());
}

} // namespace

/// What one scan was asked for and has collected.
struct DiskAnalyzerWorker::Scan
{
    Scan(const QString &root, int maxLargeFiles, const DuplicateScanner::ScanOptions &options)
        : rootPath(root)
        , duplicates(options)
        , tree(root)
        , largest(maxLargeFiles)
        , buckets(options)
    {}

    void collect(const DirNode *dir, const DirectoryEntry &file)
    {
        const qint64 size = file.size;
        const bool isLarge = size >= largeFileThreshold && largest.wouldKeep(size);
        const bool mayBeDuplicate = findDuplicates && size >= duplicates.minimumSize;
        if ((!isLarge && !mayBeDuplicate) || !DirectoryTree::isListable(dir, file.name))
            return;
        const char *name = names.store(file.name);
        if (isLarge)
            largest.add(file, dir, name);
        if (mayBeDuplicate)
            buckets.add(size, dir, name);
    }

    const QString rootPath;
    const DuplicateScanner::ScanOptions duplicates;
    qint64 largeFileThreshold = 0;
    bool findDuplicates = false;

    DirectoryTree tree;
    ByteArena names;
    LargestFiles largest;
    SizeBuckets buckets;
    QVariantList largeFiles; // Here, since to free many takes longer than a stop should.
    int groupCount = 0;
};

DiskAnalyzerWorker::DiskAnalyzerWorker(QObject *parent)
    : DiskAnalyzerWorker(mountedPoints, parent)
{}

DiskAnalyzerWorker::DiskAnalyzerWorker(MountLister mounts, QObject *parent)
    : QObject(parent)
    , m_mounts(std::move(mounts))
{}

DiskAnalyzerWorker::~DiskAnalyzerWorker() = default;

void DiskAnalyzerWorker::requestStop()
{
    m_stop = true;
}

int DiskAnalyzerWorker::walkPercent(qint64 bytes, qint64 estimate)
{
    const double share = double(bytes) / double(estimate);
    return share >= 1.0 ? kWalkPercent : int(share * kWalkPercent);
}

std::function<bool()> DiskAnalyzerWorker::stopFunction() const
{
    return [this] {
        return m_stop.load();
    };
}

void DiskAnalyzerWorker::startScan(const QString &rootPath, qint64 largeFileThreshold,
                                   int maxLargeFiles, bool findDuplicates, bool duplicateByHash,
                                   qint64 dupMinSize)
{
    m_stop = false;
    Scan scan(QDir::cleanPath(rootPath), maxLargeFiles,
              duplicateOptions(duplicateByHash, dupMinSize));
    scan.largeFileThreshold = largeFileThreshold;
    scan.findDuplicates = findDuplicates;
    if (!walk(&scan) || !sendLargeFiles(&scan) || !sendTree(&scan) || !sendDuplicates(&scan)) {
        emit scanFinished(false, tr("用户取消"), 0, 0);
        return;
    }
    emit progressChanged(100, tr("扫描完成"));
    emit scanFinished(true,
                      tr("扫描完成，共扫描到 %1 个大文件、%2 组重复文件")
                          .arg(scan.largeFiles.size())
                          .arg(scan.groupCount),
                      scan.largeFiles.size(), scan.groupCount);
}

bool DiskAnalyzerWorker::walk(Scan *scan)
{
    const qint64 estimate = usedBytes(scan->rootPath);
    QSet<QByteArray> subMounts;
    const QVector<MountPoint> below = mountPointsBelow(scan->rootPath, m_mounts());
    for (const MountPoint &mount : below) {
        subMounts.insert(QFile::encodeName(mount.rootPath));
        qInfo().noquote() << "[DiskAnalyzer] Will skip sub-mount:" << mount.rootPath
                          << "device:" << mount.device << "fs:" << mount.fileSystem;
    }

    qint64 bytes = 0;
    qint64 files = 0;
    QElapsedTimer sinceReport;
    sinceReport.start();
    const auto onFile = [&](DirNode *dir, const DirectoryEntry &file) {
        ++files;
        bytes = saturatingSum(bytes, file.size);
        if (files % kFilesPerLook == 0 && sinceReport.elapsed() >= kProgressIntervalMs) {
            sinceReport.restart();
            const int percent = walkPercent(bytes, estimate);
            emit progressChanged(percent,
                                 tr("正在扫描：%1%（已扫描 %2 个文件）").arg(percent).arg(files));
        }
        DirectoryTree::accumulateToDir(dir, file.size);
        scan->collect(dir, file);
    };
    return DirectoryWalk(subMounts, stopFunction(), onFile).run(&scan->tree) && !m_stop;
}

bool DiskAnalyzerWorker::sendLargeFiles(Scan *scan)
{
    emit progressChanged(kWalkPercent, tr("正在分析数据..."));
    scan->largeFiles = scan->largest.takeSorted(scan->tree, stopFunction());
    if (m_stop)
        return false;
    emit largeFilesReady(scan->largeFiles);
    return true;
}

bool DiskAnalyzerWorker::sendTree(Scan *scan)
{
    emit progressChanged(kTreePercent, tr("正在构建目录树..."));
    scan->tree.sumUp();
    const QVariantMap root = scan->tree.toVariant(stopFunction());
    if (m_stop)
        return false;
    emit directoryTreeReady(root);
    return true;
}

bool DiskAnalyzerWorker::sendDuplicates(Scan *scan)
{
    emit progressChanged(kDuplicatesPercent, tr("正在检测重复文件..."));
    if (m_stop)
        return false;
    if (!scan->findDuplicates) {
        emit duplicateGroupsReady(QVariantList());
        return true;
    }
    const auto progress = [this](int done, int total) {
        const int percent =
            kDuplicatesPercent + done * (100 - kDuplicatesPercent) / std::max(total, 1);
        emit progressChanged(percent, tr("正在检测重复文件：%1/%2").arg(done).arg(total));
    };
    const QHash<qint64, QStringList> sizeGroups = scan->buckets.take(scan->tree, stopFunction());
    const DuplicateScanner::PartialResult found =
        DuplicateScanner::scan(sizeGroups, scan->duplicates, stopFunction(), progress);
    if (m_stop)
        return false;
    QVariantMap totals;
    totals.insert(QStringLiteral("totalGroups"), found.totalGroups);
    totals.insert(QStringLiteral("totalReclaimable"), found.totalReclaimable);
    totals.insert(QStringLiteral("shownGroups"), found.groups.size());
    scan->groupCount = found.totalGroups;
    emit duplicateGroupsReady(QVariantList() << totals << found.groups);
    return true;
}
