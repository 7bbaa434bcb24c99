#pragma once

#include "core/fileidentity.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QVariantList>

#include <functional>

/// Finds groups of files with the same content among files already bucketed by size. Paths that are
/// one physical file count once, the others are carried along as aliases. Stateless; needs no event
/// loop. Files that cannot be read drop out of the comparison.
class DuplicateScanner
{
public:
    using StopFunction = std::function<bool()>;             ///< Asked on pool threads.
    using ProgressFunction = std::function<void(int, int)>; ///< Finished and total buckets.
    /// Size in bytes and the paths of that size.
    using Bucket = QPair<qint64, QStringList>;

    /// Bytes at the start and at the end that are compared before a whole file is read.
    static constexpr qint64 kPartSize = 4096;

    struct ScanOptions
    {
        qint64 minimumSize = 0;        ///< Bytes; smaller buckets are left out.
        bool byHash = true;            ///< False: same name and size are enough.
        int maximumFilesPerBucket = 0; ///< Larger buckets are left out; 0 or less: no limit.
        int maximumBuckets = 0;        ///< Those with most at stake; 0 or less: no limit.
        int maximumGroups = 0;         ///< Groups kept in the result; 0 or less: no limit.
        int threads = 0;               ///< Workers wanted, capped at 8; below 1: 8.
    };

    struct PartialResult
    {
        /// Maps of "size", "hash" (by hash only) and "files": maps of "path", "modified",
        /// "aliasPaths", "aliasCount" and the identity (scanidentity.h) of the file compared.
        QVariantList groups;
        qint64 totalReclaimable = 0; ///< Bytes; not cut by the limit of groups, nor is totalGroups.
        int totalGroups = 0;
    };

    struct PhysicalFileGroup
    {
        QString path; ///< The first path met.
        QStringList aliasPaths;
        core::FileIdentity identity; ///< Before its content was read.
    };

    /// Largest groups first; the same files give the same result, whatever the number of threads.
    /// Blocks, and may be called on a thread of the global pool, too: where that is busy, the
    /// calling thread does the work. `progress` is called on the calling thread. After a stop, the
    /// groups of the buckets that were finished.
    static PartialResult scan(const QHash<qint64, QStringList> &sizeGroups,
                              const ScanOptions &options, const StopFunction &shouldStop,
                              const ProgressFunction &progress);

    // Raw MD5 values; empty if the file cannot be read, or if an expected identity is given and
    // another file is met, or the file is written to meanwhile.

    /// Of the first 4096 bytes.
    static QByteArray partialHash(const QString &path,
                                  const core::FileIdentity *expected = nullptr);
    /// Of the last 4096 bytes of a file of `size` bytes.
    static QByteArray tailHash(const QString &path, qint64 size,
                               const core::FileIdentity *expected = nullptr);
    /// Of the whole file; empty on a stop, too.
    static QByteArray fullHash(const QString &path, const StopFunction &shouldStop,
                               const core::FileIdentity *expected = nullptr);

    /// Examines buckets[first, last). Thread-safe.
    static PartialResult processBucketRange(const QList<Bucket> &buckets, int first, int last,
                                            const ScanOptions &options,
                                            const StopFunction &shouldStop);
};
