#include "ui/pages/blockforensicspage/blockmaprules.h"

#include <QWidget>

namespace blockforensics {

namespace {
constexpr int kNarrow = 30; ///< Up to this width there is one column.
} // namespace

int columnsFor(int width)
{
    return width > kNarrow ? width / kCellPitch : 1;
}

int rowsFor(int blockCount, int columns)
{
    return (blockCount + columns - 1) / columns;
}

int heightFor(int blockCount, int columns)
{
    const qint64 height = qint64(rowsFor(blockCount, columns)) * kCellPitch;
    return int(qMin(height, qint64(QWIDGETSIZE_MAX)));
}

QRect cellRect(int index, int columns)
{
    return QRect(index % columns * kCellPitch, index / columns * kCellPitch, kCellSize, kCellSize);
}

int blockAt(const QPoint &position, int columns, int blockCount)
{
    if (position.x() < 0 || position.y() < 0)
        return -1;
    if (position.x() % kCellPitch >= kCellSize || position.y() % kCellPitch >= kCellSize)
        return -1;
    const int column = position.x() / kCellPitch;
    if (column >= columns)
        return -1;
    const qint64 index = qint64(position.y() / kCellPitch) * columns + column;
    return index < blockCount ? int(index) : -1;
}

BlockRange blocksIn(const QRect &area, int columns, int blockCount)
{
    if (area.isEmpty() || area.bottom() < 0)
        return BlockRange();
    const qint64 first = qint64(qMax(0, area.top()) / kCellPitch) * columns;
    const qint64 end = qint64(area.bottom() / kCellPitch + 1) * columns;
    const qint64 count = blockCount;
    return BlockRange{int(qMin(first, count)), int(qMin(end, count))};
}

} // namespace blockforensics
