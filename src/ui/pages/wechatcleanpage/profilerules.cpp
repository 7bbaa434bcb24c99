#include "ui/pages/wechatcleanpage/profilerules.h"

#include "core/pathutil.h"

#include <algorithm>

namespace wechatclean {

namespace {

/// "手动目录" as an early version wrote it, UTF-8 read as GBK: an old label kept for continuity.
/// The fifth character is of the private use area.
const QString kOldManualLabel = QStringLiteral("\u93b5\u5b2a\u59e9\u9429\ue1bc\u7d8d");

} // namespace

QVariantMap manualProfile(const QString &folder)
{
    return {{QStringLiteral("profilePath"), folder},
            {QStringLiteral("wxId"), QString()},
            {QStringLiteral("type"), QStringLiteral("custom")},
            {QStringLiteral("typeLabel"), kOldManualLabel},
            {QStringLiteral("scanDirs"), QStringList{folder}},
            {QStringLiteral("matchedMarkers"), QStringList()},
            {QStringLiteral("confidence"), 0},
            {QStringLiteral("estimatedBytes"), Q_INT64_C(-1)}};
}

QString profilePath(const QVariant &profile)
{
    return profile.toMap().value(QStringLiteral("profilePath")).toString();
}

int addProfiles(const QVariantList &added, QVariantList *profiles)
{
    QSet<QString> known;
    for (const QVariant &profile : qAsConst(*profiles))
        known.insert(profilePath(profile));
    const int before = profiles->size();
    for (const QVariant &profile : added) {
        const QString path = profilePath(profile);
        if (path.isEmpty() || known.contains(path))
            continue;
        known.insert(path);
        profiles->append(profile);
    }
    return profiles->size() - before;
}

QVariantList profilesExcept(const QVariantList &profiles, const QSet<QString> &paths)
{
    QVariantList left;
    for (const QVariant &profile : profiles) {
        if (!paths.contains(profilePath(profile)))
            left.append(profile);
    }
    return left;
}

QStringList scanDirsOf(const QVariantList &profiles)
{
    QStringList dirs;
    for (const QVariant &profile : profiles)
        dirs.append(profile.toMap().value(QStringLiteral("scanDirs")).toStringList());
    dirs.removeDuplicates();
    QStringList outermost;
    for (const QString &dir : qAsConst(dirs)) {
        const bool isCovered = std::any_of(dirs.begin(), dirs.end(), [&](const QString &other) {
            return other != dir && core::isInside(dir, other);
        });
        if (!isCovered)
            outermost.append(dir);
    }
    return outermost;
}

qint64 estimatedBytesOf(const QVariantList &profiles)
{
    qint64 bytes = 0;
    for (const QVariant &profile : profiles) {
        const qint64 estimate =
            profile.toMap().value(QStringLiteral("estimatedBytes"), -1).toLongLong();
        if (estimate < 0)
            return -1;
        bytes += estimate;
    }
    return bytes;
}

} // namespace wechatclean
