#include "ui/pages/diskanalyzerpage/treemapitems.h"

#include "ui/common/theme.h"
#include "ui/pages/diskanalyzerpage/analyzertext.h"
#include "ui/pages/diskanalyzerpage/directorytree.h"

#include <algorithm>

using ui::common::ThemeColors;

namespace diskanalyzer {

namespace {

/// More blocks than this could neither be told apart nor hit.
constexpr int kMaxDirectories = 120;

struct ShareStep
{
    double below;   ///< Percent.
    double accents; ///< How much of the accent is mixed into the palest ground.
};

// Grounds in the middle between the two could be read with neither ink, so there are none.
constexpr ShareStep kSteps[] = {{2, 0.0}, {8, 0.1}, {20, 0.22}, {45, 0.34}, {1000, 1.0}};

QColor mixed(const QColor &from, const QColor &to, double share)
{
    const auto channel = [share](int a, int b) {
        return qRound(a + (b - a) * share);
    };
    return QColor(channel(from.red(), to.red()), channel(from.green(), to.green()),
                  channel(from.blue(), to.blue()));
}

} // namespace

QVector<TreemapItem> treemapItems(const DirectoryNode &directory)
{
    QVector<TreemapItem> items;
    items.reserve(int(directory.children.size()) + 1);
    for (const auto &child : directory.children) {
        if (child->totalSize <= 0)
            continue;
        TreemapItem item;
        item.name = child->name;
        item.size = child->totalSize;
        item.childRow = child->row;
        items.append(item);
    }
    const auto larger = [](const TreemapItem &a, const TreemapItem &b) {
        return a.size > b.size;
    };
    std::stable_sort(items.begin(), items.end(), larger);
    TreemapItem rest;
    rest.kind = TreemapItem::Rest;
    if (items.size() > kMaxDirectories) {
        rest.name = QStringLiteral("其他 %1 个目录").arg(items.size() - kMaxDirectories);
        for (int i = kMaxDirectories; i < items.size(); ++i)
            rest.size += items.at(i).size;
        items.resize(kMaxDirectories);
    }
    if (directory.fileSize > 0) {
        TreemapItem files;
        files.kind = TreemapItem::Files;
        files.name = QStringLiteral("此目录中的文件");
        files.size = directory.fileSize;
        items.insert(std::upper_bound(items.begin(), items.end(), files, larger), files);
    }
    if (rest.size > 0)
        items.append(rest);
    for (TreemapItem &item : items)
        item.percent = sharePercent(item.size, directory.totalSize);
    return items;
}

QString treemapToolTip(const TreemapItem &item)
{
    return item.name + QLatin1Char('\n') + formatSize(item.size) + QStringLiteral(" · ") +
           percentText(item.percent);
}

QColor treemapColor(const TreemapItem &item, const ThemeColors &theme)
{
    if (item.kind != TreemapItem::Directory)
        return theme.headerBackground;
    for (const ShareStep &step : kSteps) {
        if (item.percent < step.below)
            return mixed(theme.selectionBackground, theme.accentFill(), step.accents);
    }
    return theme.accentFill();
}

QColor treemapInk(const QColor &ground, const ThemeColors &theme)
{
    return ThemeColors::contrast(theme.textPrimary, ground) >=
                   ThemeColors::contrast(theme.textOnAccent, ground)
               ? theme.textPrimary
               : theme.textOnAccent;
}

} // namespace diskanalyzer
