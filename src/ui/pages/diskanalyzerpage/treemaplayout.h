#pragma once

#include <QRectF>
#include <QVector>

namespace diskanalyzer {

/// Squarified treemap: rectangles whose areas are proportional to `sizes` and which fill `area`
/// without a gap, near to square. `sizes` should come largest first; what is not above 0 gets an
/// empty rectangle. One rectangle a size, in the same order.
QVector<QRectF> squarify(const QVector<double> &sizes, const QRectF &area);

enum class Direction { Left, Right, Up, Down };
/// Where an arrow key leads from rectangle `from`; `from` itself where there is nothing that way.
int neighbour(const QVector<QRectF> &rects, int from, Direction direction);

} // namespace diskanalyzer
