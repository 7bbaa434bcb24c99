#include "wechat/duplicatewalk.h"

#include "core/pathutil.h"

#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>

namespace wechat {

namespace {

constexpr int kWalkShare = 60; // Percent of a scan that the walk takes.
constexpr int kGuessBase = 8;
constexpr int kFilesAPercent = 180;
constexpr int kFilesAStep = 200;

/// A file met twice would look like two links of one file.
QStringList withoutNested(const QStringList &directories)
{
    QStringList result;
    QStringList canonical;
    for (const QString &directory : directories) {
        const QString path = QFileInfo(directory).canonicalFilePath();
        if (path.isEmpty())
            continue;
        bool covered = false;
        for (int i = canonical.size() - 1; i >= 0 && !covered; --i) {
            covered = core::isInside(path, canonical.at(i));
            if (!covered && core::isInside(canonical.at(i), path)) {
                canonical.removeAt(i);
                result.removeAt(i);
            }
        }
        if (!covered) {
            canonical.append(path);
            result.append(directory);
        }
    }
    return result;
}

} // namespace

QHash<qint64, QStringList> filesBySize(const QStringList &directories, qint64 minSize,
                                       const std::function<bool()> &shouldStop,
                                       const std::function<void(const WalkProgress &)> &progress)
{
    QHash<qint64, QStringList> buckets;
    WalkProgress seen;
    const QStringList roots = withoutNested(directories);
    for (const QString &root : roots) {
        if (shouldStop())
            break;
        QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot,
                        QDirIterator::Subdirectories);
        while (it.hasNext() && !shouldStop()) {
            const QString path = it.next();
            struct stat info;
            // A name that does not survive the way through a string is not found here.
            if (::lstat(QFile::encodeName(path).constData(), &info) != 0 || !S_ISREG(info.st_mode))
                continue;
            ++seen.files;
            seen.bytes += info.st_size;
            if (info.st_size > 0 && info.st_size >= minSize)
                buckets[info.st_size].append(path);
            if (seen.files % kFilesAStep == 0)
                progress(seen);
        }
    }
    // The first of equal files is the one that stays at first, so a directory's order must not
    // decide which one that is.
    for (QStringList &paths : buckets)
        paths.sort();
    return buckets;
}

int walkPercent(const WalkProgress &progress, qint64 estimatedBytes)
{
    if (estimatedBytes > 0) {
        const double share =
            static_cast<double>(progress.bytes) / static_cast<double>(estimatedBytes);
        return static_cast<int>(kWalkShare * qBound(0.0, share, 1.0));
    }
    return static_cast<int>(qMin<qint64>(kWalkShare, kGuessBase + progress.files / kFilesAPercent));
}

int comparePercent(int done, int total)
{
    if (total <= 0)
        return kWalkShare;
    const qint64 share = qint64(100 - kWalkShare) * done / total;
    return kWalkShare + static_cast<int>(qBound<qint64>(0, share, 100 - kWalkShare));
}

} // namespace wechat
