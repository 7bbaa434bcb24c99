#include "ui/pages/diskanalyzerpage/bardelegate.h"

#include "ui/common/textfont.h"
#include "ui/common/theme.h"
#include "ui/pages/diskanalyzerpage/directorymodel.h"

#include <QPainter>

using ui::common::ThemeColors;

namespace {

constexpr int kBarHeight = 8;
constexpr int kBarWidth = 48;
constexpr int kGap = 8;
constexpr int kPadding = 8;
constexpr int kBodyPx = 13;

int textWidth()
{
    return QFontMetrics(ui::common::textFont(kBodyPx)).horizontalAdvance(QStringLiteral("100.0%")) +
           2;
}

} // namespace

int BarDelegate::columnWidth()
{
    return textWidth() + kBarWidth + kGap + 2 * kPadding;
}

void BarDelegate::initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const
{
    QStyledItemDelegate::initStyleOption(option, index);
    option->text.clear();
}

void BarDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                        const QModelIndex &index) const
{
    QStyledItemDelegate::paint(painter, option, index);
    const ThemeColors &colors = ThemeColors::current();
    const double share =
        qBound(0.0, index.data(diskanalyzer::DirectoryModel::ShareRole).toDouble(), 100.0);
    const QRect area = option.rect.adjusted(kPadding, 0, -kPadding, -1);
    const int barWidth = area.width() - textWidth() - kGap;
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setPen(Qt::NoPen);
    if (barWidth > kBarHeight) {
        QRectF bar(area.left(), area.top() + (area.height() - kBarHeight) / 2.0, barWidth,
                   kBarHeight);
        painter->setBrush(colors.border);
        painter->drawRoundedRect(bar, kBarHeight / 2, kBarHeight / 2);
        if (share > 0) {
            bar.setWidth(qMax<qreal>(kBarHeight / 2, bar.width() * share / 100));
            painter->setBrush(colors.accent);
            painter->drawRoundedRect(bar, kBarHeight / 2, kBarHeight / 2);
        }
    }
    painter->setPen(colors.textPrimary);
    painter->setFont(option.font);
    painter->drawText(area, Qt::AlignRight | Qt::AlignVCenter, index.data().toString());
    painter->restore();
}
