#include "ui/common/elidedlabel.h"

#include "ui/common/apptooltip.h"

#include <QEvent>
#include <QPainter>

namespace ui {
namespace common {

ElidedLabel::ElidedLabel(QWidget *parent)
    : ElidedLabel(QString(), Qt::ElideRight, parent)
{}

ElidedLabel::ElidedLabel(const QString &text, Qt::TextElideMode mode, QWidget *parent)
    : QLabel(text, parent)
    , m_mode(mode)
{
    setTextFormat(Qt::PlainText);
    QSizePolicy policy = sizePolicy();
    policy.setHorizontalPolicy(QSizePolicy::Preferred);
    setSizePolicy(policy);
}

void ElidedLabel::setElideMode(Qt::TextElideMode mode)
{
    m_mode = mode;
    update();
}

QRect ElidedLabel::textArea() const
{
    return contentsRect().adjusted(margin(), margin(), -margin(), -margin());
}

QString ElidedLabel::shownText() const
{
    // A name may hold a line feed; the label has one line only.
    const QString line = text().replace(QLatin1Char('\n'), QLatin1Char(' '));
    return fontMetrics().elidedText(line, m_mode, textArea().width());
}

bool ElidedLabel::isElided() const
{
    return fontMetrics().horizontalAdvance(text()) > textArea().width();
}

QSize ElidedLabel::minimumSizeHint() const
{
    const QSize hint = QLabel::minimumSizeHint();
    return QSize(qMin(hint.width(), fontMetrics().averageCharWidth() * 6), hint.height());
}

bool ElidedLabel::event(QEvent *event)
{
    if (event->type() == QEvent::ToolTip && toolTip().isEmpty()) {
        if (isElided())
            AppToolTip::show(this, text(), 0);
        return true;
    }
    return QLabel::event(event);
}

void ElidedLabel::paintEvent(QPaintEvent *event)
{
    QFrame::paintEvent(event);
    QPainter painter(this);
    painter.setPen(
        palette().color(isEnabled() ? QPalette::Active : QPalette::Disabled, foregroundRole()));
    painter.drawText(textArea(), static_cast<int>(alignment()) | Qt::TextSingleLine, shownText());
}

} // namespace common
} // namespace ui
