#include "ui/pages/wechatcleanpage/cleanresults.h"

#include <QHash>
#include <QSet>

#include <algorithm>

namespace wechatclean {

namespace {

ResultFile fileOf(const QVariantMap &map)
{
    ResultFile file;
    file.path = map.value(QStringLiteral("path")).toString();
    file.modified = map.value(QStringLiteral("modified")).toDateTime();
    file.aliasPaths = map.value(QStringLiteral("aliasPaths")).toStringList();
    return file;
}

ResultGroup groupOf(const QVariantMap &map)
{
    ResultGroup group;
    group.size = map.value(QStringLiteral("size")).toLongLong();
    group.hash = map.value(QStringLiteral("hash")).toString();
    const QVariantList files = map.value(QStringLiteral("files")).toList();
    group.files.reserve(files.size());
    for (const QVariant &entry : files) {
        ResultFile file = fileOf(entry.toMap());
        if (!file.path.isEmpty())
            group.files.append(file);
    }
    return group;
}

int indexOfPath(const ResultGroup &group, const QString &path)
{
    for (int i = 0; i < group.files.size(); ++i) {
        if (group.files.at(i).path == path)
            return i;
    }
    return -1;
}

bool isMerged(const ResultFile &file, const QSet<QString> &merged)
{
    const QStringList paths = file.allPaths();
    return std::any_of(paths.begin(), paths.end(),
                       [&merged](const QString &path) { return merged.contains(path); });
}

void applyAction(const QString &keepPath, const QStringList &mergedPaths, ResultGroup *group)
{
    QSet<QString> merged;
    for (const QString &path : mergedPaths)
        merged.insert(path);
    // By path, since the user may have chosen another file while the clean ran.
    const QString chosen = group->files.at(group->kept).path;
    QVector<ResultFile> left;
    left.reserve(group->files.size());
    for (const ResultFile &file : qAsConst(group->files)) {
        if (file.path != keepPath && isMerged(file, merged))
            continue;
        left.append(file);
        if (file.path != keepPath)
            continue;
        for (const QString &path : mergedPaths) {
            if (path != keepPath && !left.last().aliasPaths.contains(path))
                left.last().aliasPaths.append(path);
        }
    }
    group->files = left;
    group->kept = indexOfPath(*group, chosen);
    if (group->kept < 0)
        group->kept = qMax(0, indexOfPath(*group, keepPath));
}

/// Where each path stands; built once, so that a clean of all groups stays quick.
QHash<QString, int> groupsByPath(const QVector<ResultGroup> &groups)
{
    QHash<QString, int> places;
    for (int i = 0; i < groups.size(); ++i) {
        for (const ResultFile &file : groups.at(i).files)
            places.insert(file.path, i);
    }
    return places;
}

ResultSummary summaryOf(const QVector<ResultGroup> &groups)
{
    ResultSummary summary;
    summary.totalGroups = groups.size();
    summary.shownGroups = groups.size();
    for (const ResultGroup &group : groups)
        summary.totalReclaimable += group.reclaimable();
    return summary;
}

} // namespace

QStringList ResultFile::allPaths() const
{
    QStringList paths = QStringList{path} + aliasPaths;
    paths.removeDuplicates();
    return paths;
}

void takeGroups(const QVariantList &groups, CleanResults *results)
{
    results->groups.clear();
    results->summary = ResultSummary();
    if (groups.isEmpty())
        return;
    const QVariantMap head = groups.first().toMap();
    results->summary.totalGroups = head.value(QStringLiteral("totalGroups")).toInt();
    results->summary.shownGroups = head.value(QStringLiteral("shownGroups")).toInt();
    results->summary.totalReclaimable = head.value(QStringLiteral("totalReclaimable")).toLongLong();
    results->groups.reserve(groups.size() - 1);
    for (int i = 1; i < groups.size(); ++i) {
        ResultGroup group = groupOf(groups.at(i).toMap());
        if (group.files.size() >= 2)
            results->groups.append(group);
    }
}

QVariantMap buildAction(const ResultGroup &group)
{
    QStringList replacePaths;
    QVariantList replaceGroups;
    for (int i = 0; i < group.files.size(); ++i) {
        if (i == group.kept)
            continue;
        const ResultFile &file = group.files.at(i);
        const QStringList paths = file.allPaths();
        replacePaths.append(paths);
        replaceGroups.append(QVariantMap{{QStringLiteral("path"), file.path},
                                         {QStringLiteral("aliasPaths"), paths}});
    }
    if (replaceGroups.isEmpty() || group.kept < 0 || group.kept >= group.files.size())
        return QVariantMap();
    return {{QStringLiteral("keepPath"), group.files.at(group.kept).path},
            {QStringLiteral("size"), group.size},
            {QStringLiteral("hash"), group.hash},
            {QStringLiteral("replacePaths"), replacePaths},
            {QStringLiteral("replaceGroups"), replaceGroups}};
}

QVariantList buildAllActions(const CleanResults &results)
{
    QVariantList actions;
    actions.reserve(results.groups.size());
    for (const ResultGroup &group : results.groups) {
        const QVariantMap action = buildAction(group);
        if (!action.isEmpty())
            actions.append(action);
    }
    return actions;
}

ActionTotals totalsOf(const QVariantList &actions)
{
    ActionTotals totals;
    totals.groups = actions.size();
    for (const QVariant &entry : actions) {
        const QVariantMap action = entry.toMap();
        const int copies = action.value(QStringLiteral("replaceGroups")).toList().size();
        totals.copies += copies;
        totals.paths += action.value(QStringLiteral("replacePaths")).toStringList().size();
        totals.bytes += copies * action.value(QStringLiteral("size")).toLongLong();
    }
    return totals;
}

void applyRecord(const QVariantMap &record, CleanResults *results)
{
    const QHash<QString, int> places = groupsByPath(results->groups);
    const QVariantList actions = record.value(QStringLiteral("actions")).toList();
    for (const QVariant &entry : actions) {
        const QVariantMap action = entry.toMap();
        const QString keepPath = action.value(QStringLiteral("keepPath")).toString();
        const int place = places.value(keepPath, -1);
        if (place >= 0)
            applyAction(keepPath, action.value(QStringLiteral("mergedPaths")).toStringList(),
                        &results->groups[place]);
    }
    QVector<ResultGroup> left;
    left.reserve(results->groups.size());
    for (const ResultGroup &group : qAsConst(results->groups)) {
        if (group.files.size() >= 2)
            left.append(group);
    }
    results->groups = left;
    results->summary = summaryOf(results->groups);
}

} // namespace wechatclean
