#include "ui/pages/diskanalyzerpage/duplicatecarddelegate.h"

#include "ui/common/layoutmetrics.h"
#include "ui/common/textfont.h"
#include "ui/common/theme.h"
#include "ui/common/utils/formatutils.h"
#include "ui/pages/diskanalyzerpage/duplicatemodel.h"

#include <QApplication>
#include <QPainter>
#include <QPainterPath>

using ui::common::textFont;
using ui::common::ThemeColors;
namespace metrics = ui::common::metrics;

namespace diskanalyzer {

namespace {

using Part = DuplicateListView::Part;

constexpr int kCardRadius = 12;
constexpr int kCardGap = 12;
constexpr int kPadding = 16;
constexpr int kGap = 12;
constexpr int kCheckSize = 16;
constexpr int kButtonPadding = 8;
constexpr int kButtonRadius = 8;
constexpr int kScrollBarGap = 4; ///< Between the cards and the scroll bar.
constexpr int kTitlePx = 13;
constexpr int kBodyPx = 13;
constexpr int kCaptionPx = 12;
constexpr int kWidePage = 620; ///< Base pixels; below, the times of the files have no room.

int textWidth(int basePx, const QString &text)
{
    return QFontMetrics(textFont(basePx)).horizontalAdvance(text);
}

QString keepText(bool keep)
{
    return keep ? DuplicateCardDelegate::tr("保留") : DuplicateCardDelegate::tr("删除");
}

QString buttonText(Part part)
{
    return part == DuplicateListView::DeletePart ? DuplicateCardDelegate::tr("删除未勾选")
                                                 : DuplicateCardDelegate::tr("打开目录");
}

int keepWidth()
{
    return kCheckSize + 8 +
           qMax(textWidth(kBodyPx, keepText(true)), textWidth(kBodyPx, keepText(false)));
}

QString detailText(const DuplicateFile &file, bool wide)
{
    QStringList parts;
    if (file.aliasCount > 0)
        parts += DuplicateCardDelegate::tr("另有 %1 个硬链接").arg(file.aliasCount);
    if (wide && file.modified.isValid())
        parts += ui::common::utils::formatTimestamp(file.modified.toMSecsSinceEpoch());
    return parts.join(QStringLiteral(" · "));
}

} // namespace

DuplicateCardDelegate::DuplicateCardDelegate(DuplicateModel *model, QObject *parent)
    : QStyledItemDelegate(parent)
    , m_model(model)
{}

void DuplicateCardDelegate::setHovered(const QModelIndex &index, Part part)
{
    m_hoveredIndex = index;
    m_hoveredPart = part;
}

QSize DuplicateCardDelegate::sizeHint(const QStyleOptionViewItem &option,
                                      const QModelIndex &index) const
{
    const int gap = m_model->isLastOfGroup(index) ? kCardGap : 0;
    return QSize(qMax(0, option.rect.width()), metrics::rowHeight() + gap);
}

QRect DuplicateCardDelegate::rowRect(const QRect &item, const QModelIndex &index) const
{
    return item.adjusted(0, 0, -kScrollBarGap, m_model->isLastOfGroup(index) ? -kCardGap : 0);
}

QRect DuplicateCardDelegate::partRect(const QRect &item, const QModelIndex &index, Part part) const
{
    const QRect row = rowRect(item, index);
    const bool isHead = !m_model->fileAt(index);
    const int height = qMin(metrics::rowControlHeight(), row.height() - 4);
    const int top = row.top() + (row.height() - height) / 2;
    switch (part) {
    case DuplicateListView::KeepPart:
        return isHead ? QRect() : QRect(row.left() + kPadding, top, keepWidth(), height);
    case DuplicateListView::OpenPart:
    case DuplicateListView::DeletePart: {
        if (isHead != (part == DuplicateListView::DeletePart))
            return QRect();
        const int width = textWidth(kBodyPx, buttonText(part)) + 2 * kButtonPadding;
        return QRect(row.right() + 1 - kPadding + kButtonPadding - width, top, width, height);
    }
    default:
        return QRect();
    }
}

void DuplicateCardDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                                  const QModelIndex &index) const
{
    const ThemeColors &colors = ThemeColors::current();
    const bool isHead = !m_model->fileAt(index);
    QColor ground = isHead ? colors.headerBackground : colors.surface;
    if (option.state.testFlag(QStyle::State_Selected))
        ground = colors.selectionBackground;
    else if (!isHead && index == m_hoveredIndex)
        ground = colors.hoverBackground;
    const QRect row = rowRect(option.rect, index);
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    paintGround(painter, row, index, ground);
    if (isHead)
        paintHead(painter, option.rect, index);
    else
        paintFile(painter, option, row, index, ground);
    painter->restore();
}

void DuplicateCardDelegate::paintGround(QPainter *painter, const QRect &row,
                                        const QModelIndex &index, const QColor &ground) const
{
    const ThemeColors &colors = ThemeColors::current();
    const bool isHead = !m_model->fileAt(index);
    const bool isLast = m_model->isLastOfGroup(index);
    // A slice of a rounded card that goes on above and below.
    const QRectF card = QRectF(row).adjusted(0.5, isHead ? 0.5 : -2 * kCardRadius, -0.5,
                                             isLast ? -0.5 : 2 * kCardRadius);
    painter->save();
    painter->setClipRect(row);
    painter->setPen(colors.border);
    painter->setBrush(ground);
    painter->drawRoundedRect(card, kCardRadius, kCardRadius);
    if (!isLast) {
        painter->setPen(colors.gridLine);
        painter->drawLine(QPointF(row.left() + 1, row.bottom() + 0.5),
                          QPointF(row.right(), row.bottom() + 0.5));
    }
    painter->restore();
}

void DuplicateCardDelegate::paintHead(QPainter *painter, const QRect &item,
                                      const QModelIndex &index) const
{
    const ThemeColors &colors = ThemeColors::current();
    const DuplicateGroup &group = m_model->groupAt(index);
    const QFont titleFont = textFont(kTitlePx, QFont::DemiBold);
    const QString title = duplicateGroupTitle(group);
    const QRect button = partRect(item, index, DuplicateListView::DeletePart);
    const int titleWidth = QFontMetrics(titleFont).horizontalAdvance(title);
    QRect area = rowRect(item, index).adjusted(kPadding, 0, 0, 0);
    area.setRight(button.left() - kGap);
    painter->setFont(titleFont);
    painter->setPen(colors.textPrimary);
    painter->drawText(area, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                      QFontMetrics(titleFont).elidedText(title, Qt::ElideRight, area.width()));
    area.setLeft(area.left() + titleWidth + kGap);
    if (area.width() > 0) {
        const QFont caption = textFont(kCaptionPx);
        painter->setFont(caption);
        painter->setPen(colors.readable(colors.textMuted, colors.headerBackground));
        painter->drawText(area, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                          QFontMetrics(caption).elidedText(duplicateGroupHint(group),
                                                           Qt::ElideRight, area.width()));
    }
    paintButton(painter, item, index, DuplicateListView::DeletePart);
}

void DuplicateCardDelegate::paintFile(QPainter *painter, const QStyleOptionViewItem &option,
                                      const QRect &row, const QModelIndex &index,
                                      const QColor &ground) const
{
    const ThemeColors &colors = ThemeColors::current();
    const DuplicateFile &file = *m_model->fileAt(index);
    const QRect keep = partRect(option.rect, index, DuplicateListView::KeepPart);
    QStyleOptionViewItem mark = option;
    mark.rect = QRect(keep.left(), row.top() + (row.height() - kCheckSize) / 2 - 1, kCheckSize + 2,
                      kCheckSize + 2);
    mark.features |= QStyleOptionViewItem::HasCheckIndicator;
    mark.state = QStyle::State_Enabled | (file.keep ? QStyle::State_On : QStyle::State_Off);
    QStyle *style = option.widget ? option.widget->style() : QApplication::style();
    style->drawPrimitive(QStyle::PE_IndicatorItemViewItemCheck, &mark, painter, option.widget);
    painter->setFont(textFont(kBodyPx));
    painter->setPen(file.keep ? colors.textPrimary : colors.readable(colors.dangerText, ground));
    painter->drawText(keep, Qt::AlignRight | Qt::AlignVCenter, keepText(file.keep));

    QRect area = row;
    area.setLeft(keep.right() + kGap);
    area.setRight(partRect(option.rect, index, DuplicateListView::OpenPart).left() - kGap);
    const bool wide = row.width() >= ThemeColors::current().fontPx(kWidePage);
    const QString detail = detailText(file, wide);
    if (!detail.isEmpty()) {
        painter->setFont(textFont(kCaptionPx));
        painter->setPen(colors.readable(colors.textMuted, ground));
        painter->drawText(area, Qt::AlignRight | Qt::AlignVCenter | Qt::TextSingleLine, detail);
        area.setRight(area.right() - textWidth(kCaptionPx, detail) - kGap);
    }
    const QFont body = textFont(kBodyPx);
    painter->setFont(body);
    painter->setPen(colors.textPrimary);
    painter->drawText(area, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                      QFontMetrics(body).elidedText(file.path, Qt::ElideMiddle, area.width()));
    paintButton(painter, option.rect, index, DuplicateListView::OpenPart);
}

void DuplicateCardDelegate::paintButton(QPainter *painter, const QRect &item,
                                        const QModelIndex &index, Part part) const
{
    const ThemeColors &colors = ThemeColors::current();
    const bool isDanger = part == DuplicateListView::DeletePart;
    const bool isHovered = index == m_hoveredIndex && part == m_hoveredPart;
    const QRect rect = partRect(item, index, part);
    QColor ink = isDanger ? colors.dangerText : colors.infoText;
    if (isHovered) {
        painter->setPen(Qt::NoPen);
        painter->setBrush(isDanger ? colors.dangerText : colors.activeNavBackground);
        painter->drawRoundedRect(rect, kButtonRadius, kButtonRadius);
        if (isDanger)
            ink = colors.surface;
    }
    painter->setFont(textFont(kBodyPx));
    painter->setPen(ink);
    painter->drawText(rect, Qt::AlignCenter, buttonText(part));
}

} // namespace diskanalyzer
