#include "ui/pages/indexsettingsdialog/wrapcheckbox.h"

#include <QStyleOptionButton>
#include <QStylePainter>

namespace {

constexpr int kPreferredWidth = 320;
constexpr int kMinTextWidth = 120;
constexpr int kUnlimited = 1 << 20;

} // namespace

WrapCheckBox::WrapCheckBox(const QString &text, QWidget *parent)
    : QCheckBox(text, parent)
{
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Minimum);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
}

int WrapCheckBox::textLeft() const
{
    QStyleOptionButton option;
    initStyleOption(&option);
    option.rect = QRect(0, 0, kPreferredWidth, lineHeight());
    return style()->subElementRect(QStyle::SE_CheckBoxContents, &option, this).left();
}

int WrapCheckBox::lineHeight() const
{
    return qMax(fontMetrics().height(), style()->pixelMetric(QStyle::PM_IndicatorHeight));
}

int WrapCheckBox::heightForWidth(int width) const
{
    ensurePolished();
    const QRect room(0, 0, qMax(1, width - textLeft()), kUnlimited);
    return qMax(
        lineHeight(),
        fontMetrics().boundingRect(room, Qt::TextWordWrap | Qt::AlignLeft, text()).height());
}

QSize WrapCheckBox::sizeHint() const
{
    return QSize(kPreferredWidth, heightForWidth(kPreferredWidth));
}

QSize WrapCheckBox::minimumSizeHint() const
{
    return QSize(textLeft() + kMinTextWidth, lineHeight());
}

bool WrapCheckBox::hitButton(const QPoint &position) const
{
    return rect().contains(position);
}

void WrapCheckBox::paintEvent(QPaintEvent *event)
{
    Q_UNUSED(event)
    QStylePainter painter(this);
    QStyleOptionButton option;
    initStyleOption(&option);
    option.text.clear();
    option.rect.setHeight(lineHeight());
    painter.drawControl(QStyle::CE_CheckBox, option);
    painter.setPen(
        palette().color(isEnabled() ? QPalette::Active : QPalette::Disabled, QPalette::WindowText));
    painter.drawText(rect().adjusted(textLeft(), 0, 0, 0), Qt::TextWordWrap | Qt::AlignLeft,
                     text());
}
