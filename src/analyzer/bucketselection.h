#pragma once

#include "analyzer/duplicate_scanner.h"
#include "analyzer/saturating.h"

#include <algorithm>
#include <vector>

/// True if files of one size are to be compared with each other at all.
inline bool isWorthComparing(qint64 size, int paths, const DuplicateScanner::ScanOptions &options)
{
    return paths > 1 && size >= options.minimumSize &&
           (options.maximumFilesPerBucket <= 0 || paths <= options.maximumFilesPerBucket);
}

/// Sorts buckets by the space at stake, largest first, and cuts to the limit of buckets.
/// `sizeOf` and `pathsOf` read one bucket. Sizes must differ from each other: they settle ties.
template <typename Buckets, typename SizeOf, typename PathsOf>
void keepMostAtStake(Buckets *buckets, int maximumBuckets, SizeOf sizeOf, PathsOf pathsOf)
{
    using Bucket = typename Buckets::value_type;
    const auto stake = [&](const Bucket &bucket) {
        return saturatingProduct(sizeOf(bucket), qint64(pathsOf(bucket)) - 1);
    };
    std::sort(buckets->begin(), buckets->end(), [&](const Bucket &a, const Bucket &b) {
        const qint64 stakeA = stake(a);
        const qint64 stakeB = stake(b);
        return stakeA != stakeB ? stakeA > stakeB : sizeOf(a) > sizeOf(b);
    });
    if (maximumBuckets > 0 && int(buckets->size()) > maximumBuckets)
        buckets->erase(buckets->begin() + maximumBuckets, buckets->end());
}
