#include "ui/common/pillpainter.h"

#include "ui/common/layoutmetrics.h"
#include "ui/common/styletemplate.h"
#include "ui/common/textfont.h"
#include "ui/common/theme.h"

#include <QPainter>

namespace ui {
namespace common {

namespace {

constexpr int kTextPx = 12;
constexpr int kPaddingX = 10;
constexpr int kPaddingY = 3;
constexpr int kDotSize = 8;
constexpr int kDotGap = 6;

struct PillColors
{
    QColor background;
    QColor border;
    QColor text;
};

PillColors colorsOf(StatusPill::Type type)
{
    const ThemeColors &colors = ThemeColors::current();
    switch (type) {
    case StatusPill::Success:
        return {colors.successBackground, colors.successBorder, colors.successText};
    case StatusPill::Warning:
        return {colors.warningBackground, colors.warningBorder, colors.warningText};
    case StatusPill::Danger:
        return {colors.dangerBackground, colors.dangerBorder, colors.dangerText};
    case StatusPill::Info:
        break;
    }
    return {colors.infoBackground, colors.infoBorder, colors.infoText};
}

} // namespace

QSize pillSize(const QString &text)
{
    const int textWidth = QFontMetrics(textFont(kTextPx)).horizontalAdvance(text);
    return QSize(2 * kPaddingX + kDotSize + kDotGap + textWidth,
                 metrics::lineHeight(kTextPx) + 2 * kPaddingY);
}

void paintPill(QPainter *painter, const QRect &area, const QString &text, StatusPill::Type type)
{
    const PillColors colors = colorsOf(type);
    const QSize size = pillSize(text).boundedTo(area.size());
    const QRect pill(area.left(), area.top() + (area.height() - size.height()) / 2, size.width(),
                     size.height());
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setPen(colors.border);
    painter->setBrush(colors.background);
    const qreal radius = pill.height() / 2.0;
    painter->drawRoundedRect(QRectF(pill).adjusted(0.5, 0.5, -0.5, -0.5), radius, radius);
    painter->setPen(Qt::NoPen);
    painter->setBrush(colors.text);
    const QRect dot(pill.left() + kPaddingX, pill.top() + (pill.height() - kDotSize) / 2, kDotSize,
                    kDotSize);
    painter->drawEllipse(dot);
    const QRect words(dot.right() + 1 + kDotGap, pill.top(),
                      pill.right() - kPaddingX - dot.right() - kDotGap, pill.height());
    const QFont font = textFont(kTextPx);
    painter->setFont(font);
    painter->setPen(semanticInk(ThemeColors::current(), colors.text));
    painter->drawText(words, Qt::AlignVCenter | Qt::AlignLeft | Qt::TextSingleLine,
                      QFontMetrics(font).elidedText(text, Qt::ElideRight, words.width()));
    painter->restore();
}

} // namespace common
} // namespace ui
