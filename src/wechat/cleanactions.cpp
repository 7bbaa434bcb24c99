#include "wechat/cleanactions.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>
#include <QVariantMap>

#include <algorithm>

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

bool holdsAny(const QStringList &cleaned, const QSet<QString> &paths)
{
    return std::any_of(cleaned.begin(), cleaned.end(),
                       [&paths](const QString &path) { return paths.contains(path); });
}

QVariantMap actionWithout(QVariantMap action, const QSet<QString> &paths)
{
    // All names of a file go together.
    QSet<QString> dropped = paths;
    QVariantList groups;
    const QVariantList all = action.value(QStringLiteral("replaceGroups")).toList();
    for (const QVariant &group : all) {
        const QStringList names = groupPaths(group.toMap());
        if (!holdsAny(names, paths)) {
            groups.append(group);
            continue;
        }
        for (const QString &name : names)
            dropped.insert(name);
    }
    QStringList replaced;
    const QStringList names = action.value(QStringLiteral("replacePaths")).toStringList();
    for (const QString &name : names) {
        if (!holdsAny(cleanedPaths({name}), dropped))
            replaced.append(name);
    }
    action.insert(QStringLiteral("replacePaths"), replaced);
    action.insert(QStringLiteral("replaceGroups"), groups);
    return replaced.isEmpty() ? QVariantMap() : action;
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

QVariantList actionsWithout(const QVariantList &actions, const QStringList &paths)
{
    QSet<QString> dropped;
    const QStringList cleaned = cleanedPaths(paths);
    for (const QString &path : cleaned)
        dropped.insert(path);
    QVariantList result;
    for (const QVariant &entry : actions) {
        const QVariantMap action = actionWithout(entry.toMap(), dropped);
        if (!action.isEmpty())
            result.append(action);
    }
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
