#include "ui/pages/diskanalyzerpage/duplicategroups.h"

#include "analyzer/scanidentity.h"
#include "ui/pages/diskanalyzerpage/analyzertext.h"

#include <algorithm>

namespace diskanalyzer {

namespace {

DuplicateGroup groupFromMap(const QVariantMap &map)
{
    DuplicateGroup group;
    group.size = map.value(QStringLiteral("size")).toLongLong();
    group.hash = map.value(QStringLiteral("hash")).toString();
    const QVariantList files = map.value(QStringLiteral("files")).toList();
    for (const QVariant &value : files) {
        const QVariantMap fileMap = value.toMap();
        DuplicateFile file;
        file.path = fileMap.value(QStringLiteral("path")).toString();
        file.modified = fileMap.value(QStringLiteral("modified")).toDateTime();
        file.aliasCount = fileMap.value(QStringLiteral("aliasCount")).toInt();
        file.identity = identityFromMap(fileMap, group.size);
        file.keep = group.files.isEmpty() || group.hash.isEmpty();
        group.files.append(file);
    }
    return group;
}

/// Groups whose last copy would go, too.
QString lostGroupsText(int groups)
{
    if (groups == 0)
        return QString();
    return QStringLiteral("\n\n⚠ 其中 %1 组的所有副本都未勾选，删除后不会保留任何一份。")
        .arg(groups);
}

bool wouldBeLost(const DuplicateGroup &group)
{
    return group.unkeptCount() == group.files.size();
}

} // namespace

int DuplicateGroup::unkeptCount() const
{
    return int(std::count_if(files.begin(), files.end(),
                             [](const DuplicateFile &file) { return !file.keep; }));
}

qint64 DuplicateGroup::unkeptBytes() const
{
    const auto frees = [](const DuplicateFile &file) {
        return !file.keep && file.aliasCount == 0;
    };
    return std::count_if(files.begin(), files.end(), frees) * size;
}

int DuplicateResult::unkeptCount() const
{
    int count = 0;
    for (const DuplicateGroup &group : groups)
        count += group.unkeptCount();
    return count;
}

void DuplicateResult::removePaths(const QSet<QString> &paths)
{
    for (DuplicateGroup &group : groups) {
        const qint64 before = group.reclaimable();
        const auto isGone = [&paths](const DuplicateFile &file) {
            return paths.contains(file.path);
        };
        group.files.erase(std::remove_if(group.files.begin(), group.files.end(), isGone),
                          group.files.end());
        totalReclaimable -= before - group.reclaimable();
        if (group.files.size() < 2)
            --totalGroups;
    }
    const auto isOver = [](const DuplicateGroup &group) {
        return group.files.size() < 2;
    };
    groups.erase(std::remove_if(groups.begin(), groups.end(), isOver), groups.end());
    totalReclaimable = qMax<qint64>(0, totalReclaimable);
    totalGroups = qMax(totalGroups, groups.size());
}

DuplicateResult duplicateResultFromList(const QVariantList &list)
{
    DuplicateResult result;
    for (const QVariant &value : list) {
        const QVariantMap map = value.toMap();
        if (map.contains(QStringLiteral("totalGroups"))) {
            result.totalGroups = map.value(QStringLiteral("totalGroups")).toInt();
            result.totalReclaimable = map.value(QStringLiteral("totalReclaimable")).toLongLong();
            continue;
        }
        const DuplicateGroup group = groupFromMap(map);
        if (group.files.size() > 1)
            result.groups.append(group);
    }
    return result;
}

QString duplicateFooterText(const DuplicateResult &result)
{
    QString text = QStringLiteral("共 %1 组重复文件，可释放 %2")
                       .arg(result.totalGroups)
                       .arg(formatSize(result.totalReclaimable));
    if (result.groups.size() < result.totalGroups)
        text += QStringLiteral("；显示最大的 %1 组").arg(result.groups.size());
    return text;
}

QString duplicateGroupTitle(const DuplicateGroup &group)
{
    const QString pattern = group.hash.isEmpty() ? QStringLiteral("%1 个同名文件 · 每个 %2")
                                                 : QStringLiteral("%1 个相同文件 · 每个 %2");
    return pattern.arg(group.files.size()).arg(formatSize(group.size));
}

QString duplicateGroupHint(const DuplicateGroup &group)
{
    const int unkept = group.unkeptCount();
    if (unkept > 0)
        return QStringLiteral("将删除 %1 个，释放 %2")
            .arg(unkept)
            .arg(formatSize(group.unkeptBytes()));
    return group.hash.isEmpty() ? QStringLiteral("只比较了名称和大小，内容可能不同")
                                : QStringLiteral("全部保留");
}

QString cleanGroupText(const DuplicateGroup &group)
{
    return QStringLiteral("将删除 %1 个未勾选的文件，确定？").arg(group.unkeptCount()) +
           lostGroupsText(wouldBeLost(group) ? 1 : 0);
}

QString cleanAllText(const DuplicateResult &result)
{
    const int lost = int(std::count_if(result.groups.begin(), result.groups.end(), wouldBeLost));
    return QStringLiteral("将删除所有重复文件组中未勾选的 %1 个文件，确定继续？")
               .arg(result.unkeptCount()) +
           lostGroupsText(lost);
}

} // namespace diskanalyzer
