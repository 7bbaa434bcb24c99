#include "ui/common/systemmove.h"

#include <QWidget>
#include <QWindow>

namespace ui {
namespace common {

bool startSystemMove(QWidget *window)
{
#if QT_VERSION >= QT_VERSION_CHECK(5, 15, 0)
    return window->windowHandle() && window->windowHandle()->startSystemMove();
#else
    Q_UNUSED(window)
    return false;
#endif
}

bool startSystemResize(QWidget *window, Qt::Edges edges)
{
#if QT_VERSION >= QT_VERSION_CHECK(5, 15, 0)
    return window->windowHandle() && window->windowHandle()->startSystemResize(edges);
#else
    Q_UNUSED(window)
    Q_UNUSED(edges)
    return false;
#endif
}

QRect resizedGeometry(const QRect &start, Qt::Edges edges, const QPoint &delta,
                      const QSize &minimum, const QSize &maximum)
{
    QRect result = start;
    const auto bounded = [](int wanted, int least, int most) {
        return qMax(least, qMin(wanted, most));
    };
    if (edges & Qt::LeftEdge) {
        const int width = bounded(start.width() - delta.x(), minimum.width(), maximum.width());
        result.setLeft(start.right() - width + 1);
    } else if (edges & Qt::RightEdge) {
        result.setWidth(bounded(start.width() + delta.x(), minimum.width(), maximum.width()));
    }
    if (edges & Qt::TopEdge) {
        const int height = bounded(start.height() - delta.y(), minimum.height(), maximum.height());
        result.setTop(start.bottom() - height + 1);
    } else if (edges & Qt::BottomEdge) {
        result.setHeight(bounded(start.height() + delta.y(), minimum.height(), maximum.height()));
    }
    return result;
}

} // namespace common
} // namespace ui
