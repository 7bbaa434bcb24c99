#pragma once

#include <QPoint>
#include <QRect>

namespace blockforensics {

// Geometry of the block map, in logical pixels.
constexpr int kCellSize = 14;
constexpr int kCellPitch = 16; ///< A cell and the gap after it.

/// Cells of a row in a widget of this width, at least 1.
int columnsFor(int width);
int rowsFor(int blockCount, int columns);
/// Height of the widget; held within what a widget may have.
int heightFor(int blockCount, int columns);
/// Where block `index` is painted.
QRect cellRect(int index, int columns);
/// The block at a position of the widget, or -1 in a gap and beside the blocks.
int blockAt(const QPoint &position, int columns, int blockCount);

/// Blocks of the rows that a part of the widget touches: from `first` up to, not including, `end`.
struct BlockRange
{
    int first = 0;
    int end = 0;
};
BlockRange blocksIn(const QRect &area, int columns, int blockCount);

} // namespace blockforensics
