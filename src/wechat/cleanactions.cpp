#include "wechat/cleanactions.h"

#include <QDir>
#include <QFileInfo>
#include <QVariantMap>

namespace wechat {

namespace {

/// A file's own path belongs to its links, whether the list of aliases names it or not: only all of
/// them together free the space.
QStringList groupPaths(const QVariantMap &group)
{
    QStringList paths = group.value(QStringLiteral("aliasPaths")).toStringList();
    paths.append(group.value(QStringLiteral("path")).toString());
    return cleanedPaths(paths);
}

CleanAction parseAction(const QVariantMap &map)
{
    CleanAction action;
    action.keepPath = map.value(QStringLiteral("keepPath")).toString();
    action.size = map.value(QStringLiteral("size")).toLongLong();
    action.hash = map.value(QStringLiteral("hash")).toString().toLower();
    action.replacePaths = map.value(QStringLiteral("replacePaths")).toStringList();
    const QVariantList groups = map.value(QStringLiteral("replaceGroups")).toList();
    for (const QVariant &group : groups)
        action.groups.append(groupPaths(group.toMap()));
    if (groups.isEmpty()) {
        for (const QString &path : qAsConst(action.replacePaths))
            action.groups.append(cleanedPaths({path}));
    }
    return action;
}

} // namespace

QStringList cleanedPaths(const QStringList &paths)
{
    QStringList result;
    for (const QString &path : paths) {
        if (!path.isEmpty())
            result.append(QDir::cleanPath(QFileInfo(path).absoluteFilePath()));
    }
    result.sort();
    result.removeDuplicates();
    return result;
}

QList<CleanAction> parseActions(const QVariantList &actions)
{
    QList<CleanAction> result;
    for (const QVariant &action : actions)
        result.append(parseAction(action.toMap()));
    return result;
}

} // namespace wechat
