#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

#include <functional>

namespace wechat {

/// What a walk has seen so far.
struct WalkProgress
{
    qint64 files = 0;
    qint64 bytes = 0;
};

/// Regular files below the directories by their size, without empty ones and those below `minSize`.
/// A directory inside another one of the list is walked once. `progress` is called every 200 files.
/// After a stop, what was found so far.
QHash<qint64, QStringList> filesBySize(const QStringList &directories, qint64 minSize,
                                       const std::function<bool()> &shouldStop,
                                       const std::function<void(const WalkProgress &)> &progress);

/// 0 to 60 by the bytes if `estimatedBytes` is above 0, else a guess by the number of files.
int walkPercent(const WalkProgress &progress, qint64 estimatedBytes);
/// 60 to 100 by the share of size buckets examined.
int comparePercent(int done, int total);

} // namespace wechat
