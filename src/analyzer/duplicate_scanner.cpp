#include "analyzer/duplicate_scanner.h"

#include "analyzer/bucketselection.h"
#include "analyzer/duplicatesearch.h"
#include "analyzer/readablefile.h"

#include <QCryptographicHash>
#include <QFuture>
#include <QThread>
#include <QVector>
#include <QtConcurrentRun>

#include <algorithm>
#include <fcntl.h>
#include <memory>

namespace {

constexpr int kMaximumThreads = 8;
/// The time the pool gets to begin before the calling thread takes part, and between two looks.
constexpr std::chrono::milliseconds kLook(50);

/// Reads no more than it hashes: the kernel is told not to read ahead.
QByteArray hashOfPart(const QString &path, qint64 offset, const core::FileIdentity *expected)
{
    const ReadableFile file(path, POSIX_FADV_RANDOM);
    char buffer[DuplicateScanner::kPartSize];
    const qint64 length =
        file.isReadable() ? file.read(buffer, DuplicateScanner::kPartSize, offset) : -1;
    if (length < 0 || !file.wasUnchanged(expected))
        return QByteArray();
    return QCryptographicHash::hash(QByteArray::fromRawData(buffer, int(length)),
                                    QCryptographicHash::Md5);
}

int threadsWanted(const DuplicateScanner::ScanOptions &options)
{
    return options.threads < 1 ? kMaximumThreads : std::min(options.threads, kMaximumThreads);
}

QList<DuplicateScanner::Bucket> bucketsToCompare(const QHash<qint64, QStringList> &sizeGroups,
                                                 const DuplicateScanner::ScanOptions &options)
{
    using Bucket = DuplicateScanner::Bucket;
    QVector<Bucket> buckets;
    for (auto it = sizeGroups.cbegin(); it != sizeGroups.cend(); ++it)
        if (isWorthComparing(it.key(), it.value().size(), options))
            buckets.append({it.key(), it.value()});
    keepMostAtStake(
        &buckets, options.maximumBuckets, [](const Bucket &bucket) { return bucket.first; },
        [](const Bucket &bucket) { return bucket.second.size(); });
    return buckets.toList();
}

/// Buckets in one chunk; each chunk keeps up to the limit of groups.
int chunkSizeFor(int buckets, int threads)
{
    int workers = threads;
    if (buckets < 4 * workers)
        workers = buckets >= 8 ? buckets / 4 : 1;
    return (buckets + workers - 1) / workers;
}

/// Returns when the search is done, and does the pool's part where that has no thread to spare.
void follow(DuplicateSearch *search, int threads, const std::function<void()> &report)
{
    const int useful = std::min(threads, std::max(1, QThread::idealThreadCount()));
    while (!search->waitFor(kLook)) {
        if (search->workers() < useful)
            search->work(report);
        report();
    }
}

} // namespace

QByteArray DuplicateScanner::partialHash(const QString &path, const core::FileIdentity *expected)
{
    return hashOfPart(path, 0, expected);
}

QByteArray DuplicateScanner::tailHash(const QString &path, qint64 size,
                                      const core::FileIdentity *expected)
{
    return hashOfPart(path, std::max(size - kPartSize, qint64(0)), expected);
}

QByteArray DuplicateScanner::fullHash(const QString &path, const StopFunction &shouldStop,
                                      const core::FileIdentity *expected)
{
    const ReadableFile file(path, POSIX_FADV_SEQUENTIAL);
    if (!file.isReadable())
        return QByteArray();
    const qint64 chunk = ReadableFile::blockSizeFor(file.size());
    const std::unique_ptr<char[]> buffer(new char[size_t(chunk)]);
    QCryptographicHash hash(QCryptographicHash::Md5);
    for (qint64 offset = 0;;) {
        if (shouldStop && shouldStop())
            return QByteArray();
        const qint64 length = file.read(buffer.get(), chunk, offset);
        if (length < 0)
            return QByteArray();
        hash.addData(buffer.get(), int(length));
        offset += length;
        if (length < chunk)
            return file.wasUnchanged(expected) ? hash.result() : QByteArray();
    }
}

DuplicateScanner::PartialResult DuplicateScanner::processBucketRange(const QList<Bucket> &buckets,
                                                                     int first, int last,
                                                                     const ScanOptions &options,
                                                                     const StopFunction &shouldStop)
{
    DuplicateSearch search(buckets, first, last, options, shouldStop);
    search.work();
    return search.result(first, last);
}

/// Each chunk is a task of the pool, but all tasks work on all buckets until none is left: they
/// only differ in what they return. So one large bucket, or too few buckets for more than one
/// chunk, keep no thread from helping.
DuplicateScanner::PartialResult DuplicateScanner::scan(const QHash<qint64, QStringList> &sizeGroups,
                                                       const ScanOptions &options,
                                                       const StopFunction &shouldStop,
                                                       const ProgressFunction &progress)
{
    const QList<Bucket> buckets = bucketsToCompare(sizeGroups, options);
    const int count = buckets.size();
    int reported = 0;
    const auto report = [&](int finished, bool always) {
        if (progress && (always || finished > reported))
            progress(finished, count);
        reported = finished;
    };
    report(0, true);
    PartialResult result;
    if (count > 0) {
        const int threads = threadsWanted(options);
        const int chunk = chunkSizeFor(count, threads);
        DuplicateSearch search(buckets, 0, count, options, shouldStop);
        QVector<QFuture<void>> chunks;
        for (int first = 0; first < count; first += chunk) {
            const int last = std::min(first + chunk, count);
            chunks.append(QtConcurrent::run([&search, first, last, index = chunks.size()] {
                search.work();
                search.keepResult(index, first, last);
            }));
        }
        QVector<QFuture<void>> helpers;
        while (chunks.size() + helpers.size() < threads)
            helpers.append(QtConcurrent::run([&search] { search.work(); }));
        follow(&search, threads, [&] { report(search.finishedBuckets(), false); });
        for (int index = 0; index < chunks.size(); ++index) {
            chunks[index].waitForFinished();
            const PartialResult part = search.keptResult(index);
            result.groups += part.groups;
            result.totalGroups += part.totalGroups;
            result.totalReclaimable = saturatingSum(result.totalReclaimable, part.totalReclaimable);
            report(search.finishedBuckets(), true);
        }
        for (QFuture<void> &helper : helpers)
            helper.waitForFinished();
    }
    const auto larger = [](const QVariant &a, const QVariant &b) {
        const QString key = QStringLiteral("size");
        return a.toMap().value(key).toLongLong() > b.toMap().value(key).toLongLong();
    };
    std::stable_sort(result.groups.begin(), result.groups.end(), larger);
    if (options.maximumGroups > 0)
        result.groups = result.groups.mid(0, options.maximumGroups);
    report(count, true);
    return result;
}
