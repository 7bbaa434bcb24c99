#include "ui/common/wraplabel.h"

#include <QPainter>
#include <QTextLayout>
#include <QtMath>

namespace ui {
namespace common {

namespace {

constexpr int kPreferredWidth = 320;

/// Breaks `layout` into lines of `width` and returns the height.
qreal breakLines(QTextLayout *layout, qreal width, Qt::Alignment alignment)
{
    QTextOption option;
    option.setAlignment(alignment & Qt::AlignHorizontal_Mask);
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    layout->setTextOption(option);
    qreal height = 0;
    layout->beginLayout();
    for (QTextLine line = layout->createLine(); line.isValid(); line = layout->createLine()) {
        line.setLineWidth(width);
        line.setPosition(QPointF(0, height));
        height += line.height();
    }
    layout->endLayout();
    return height;
}

} // namespace

WrapLabel::WrapLabel(QWidget *parent)
    : WrapLabel(QString(), parent)
{}

WrapLabel::WrapLabel(const QString &text, QWidget *parent)
    : QLabel(text, parent)
{
    setTextFormat(Qt::PlainText);
    setWordWrap(true);
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
}

int WrapLabel::frameExtent() const
{
    return width() - contentsRect().width() + 2 * margin();
}

int WrapLabel::naturalWidth() const
{
    ensurePolished();
    qreal widest = 0;
    const QStringList lines = text().split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        QTextLayout layout(line, font());
        layout.beginLayout();
        QTextLine whole = layout.createLine();
        whole.setLineWidth(QWIDGETSIZE_MAX);
        widest = qMax(widest, whole.naturalTextWidth());
        layout.endLayout();
    }
    return qCeil(widest);
}

int WrapLabel::heightForWidth(int width) const
{
    ensurePolished();
    const int extent = frameExtent();
    // QTextLayout breaks at this separator only, unlike QLabel.
    QString shown = text();
    shown.replace(QLatin1Char('\n'), QChar::LineSeparator);
    QTextLayout layout(shown, font());
    return qCeil(breakLines(&layout, qMax(1, width - extent), alignment())) + extent;
}

QSize WrapLabel::sizeHint() const
{
    const int width = qMin(naturalWidth() + frameExtent(), kPreferredWidth);
    return QSize(width, heightForWidth(width));
}

QSize WrapLabel::minimumSizeHint() const
{
    const int least = qMin(naturalWidth(), fontMetrics().averageCharWidth() * 4);
    return QSize(least + frameExtent(), fontMetrics().height() + frameExtent());
}

void WrapLabel::paintEvent(QPaintEvent *event)
{
    QFrame::paintEvent(event);
    QPainter painter(this);
    painter.setPen(
        palette().color(isEnabled() ? QPalette::Active : QPalette::Disabled, foregroundRole()));
    const QRect area = contentsRect().adjusted(margin(), margin(), -margin(), -margin());
    QString shown = text();
    shown.replace(QLatin1Char('\n'), QChar::LineSeparator);
    QTextLayout layout(shown, font());
    const qreal spare = area.height() - breakLines(&layout, area.width(), alignment());
    qreal top = area.top();
    if (alignment() & Qt::AlignBottom)
        top += spare;
    else if (alignment() & Qt::AlignVCenter)
        top += qMax(0.0, spare / 2);
    layout.draw(&painter, QPointF(area.left(), top));
}

} // namespace common
} // namespace ui
