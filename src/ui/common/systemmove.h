#pragma once

#include <QRect>
#include <QSize>

class QWidget;

namespace ui {
namespace common {

/// Lets the window system move or resize a shown window with the pressed mouse. False where it
/// can't, also with a toolkit that doesn't know how to ask; the caller then does it by hand.
[[nodiscard]] bool startSystemMove(QWidget *window);
[[nodiscard]] bool startSystemResize(QWidget *window, Qt::Edges edges);

/// `start` with its `edges` dragged by `delta`, kept between the two sizes. The other edges stay.
QRect resizedGeometry(const QRect &start, Qt::Edges edges, const QPoint &delta,
                      const QSize &minimum, const QSize &maximum);

} // namespace common
} // namespace ui
