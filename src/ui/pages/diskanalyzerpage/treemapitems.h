#pragma once

#include <QColor>
#include <QString>
#include <QVector>

namespace ui {
namespace common {
class ThemeColors;
}
} // namespace ui

namespace diskanalyzer {

struct DirectoryNode;

/// One block of the picture of a directory.
struct TreemapItem
{
    enum Kind {
        Directory, ///< A subdirectory.
        Files,     ///< The files directly in the directory, together.
        Rest,      ///< Subdirectories too many and too small to be drawn one by one.
    };

    Kind kind = Directory;
    QString name;
    qint64 size = 0;    ///< Bytes.
    double percent = 0; ///< Of the directory shown.
    int childRow = -1;  ///< Of a subdirectory.
};

/// What a directory consists of, largest first, without what is empty; the rest stands last.
QVector<TreemapItem> treemapItems(const DirectoryNode &directory);

/// Name, size and share.
QString treemapToolTip(const TreemapItem &item);

/// Ground of a block: the more of the whole, the stronger. Text in treemapInk() can be read on it.
QColor treemapColor(const TreemapItem &item, const ui::common::ThemeColors &theme);
QColor treemapInk(const QColor &ground, const ui::common::ThemeColors &theme);

} // namespace diskanalyzer
