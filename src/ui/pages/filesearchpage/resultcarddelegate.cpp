#include "ui/pages/filesearchpage/resultcarddelegate.h"

#include "ui/common/layoutmetrics.h"
#include "ui/common/textfont.h"
#include "ui/common/theme.h"
#include "ui/common/utils/formatutils.h"
#include "ui/pages/filesearchpage/searchresultmodel.h"
#include "ui/pages/filesearchpage/snippettext.h"

#include <QAbstractTextDocumentLayout>
#include <QHelpEvent>
#include <QPainter>
#include <QTextDocument>
#include <QTextOption>
#include <QToolTip>
#include <QtMath>

using ui::common::textFont;
using ui::common::ThemeColors;
namespace metrics = ui::common::metrics;

namespace filesearch {

namespace {

constexpr int kPaddingX = 20;
constexpr int kPaddingY = 16;
constexpr int kLineGap = 4;
constexpr int kBlockGap = 12;
constexpr int kBoxPadding = 12;
constexpr int kColumnGap = 16;
constexpr int kCardRadius = 12;
constexpr int kBoxRadius = 8;
constexpr int kScrollBarGap = 4; ///< Between the cards and the scroll bar.

constexpr int kTitlePx = 15;
constexpr int kBodyPx = 13;
constexpr int kCaptionPx = 12;

void setUp(QTextDocument *document, const QString &snippet, int width)
{
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    document->setDefaultFont(textFont(kBodyPx));
    document->setDefaultTextOption(option);
    document->setDocumentMargin(0);
    document->setHtml(snippetToRichText(snippet, ThemeColors::current()));
    document->setTextWidth(width);
}

/// One card laid out for a width; paint and size hint share it.
class Card
{
public:
    Card(const QVariantMap &result, int width);

    int height() const { return m_height; }
    void paint(QPainter *painter, const QPoint &origin, bool selected, bool hover, bool busy) const;

private:
    void paintHead(QPainter *painter, const QColor &ground, bool busy) const;
    void paintRefinement(QPainter *painter) const;
    void drawDocument(QPainter *painter, const QTextDocument &document, int x, int y) const;
    QString value(const char *key) const { return m_result.value(QLatin1String(key)).toString(); }

    QVariantMap m_result;
    int m_width;
    int m_pathTop;
    int m_snippetTop;
    int m_boxTop = 0;
    int m_boxHeight = 0;
    int m_height;
    QTextDocument m_snippet;
    QTextDocument m_refinement;
};

Card::Card(const QVariantMap &result, int width)
    : m_result(result)
    , m_width(width)
{
    m_pathTop = kPaddingY + metrics::lineHeight(kTitlePx) + kLineGap;
    m_snippetTop = m_pathTop + metrics::lineHeight(kCaptionPx) + kBlockGap;
    int bottom = m_snippetTop - kBlockGap;
    const QString snippet = value("snippet");
    if (!snippet.isEmpty()) {
        setUp(&m_snippet, snippet, m_width - 2 * kPaddingX);
        bottom = m_snippetTop + qCeil(m_snippet.size().height());
    }
    const QString refinement = value("refineSnippet");
    if (!refinement.isEmpty()) {
        setUp(&m_refinement, refinement, m_width - 2 * kPaddingX - 2 * kBoxPadding);
        m_boxTop = bottom + kBlockGap;
        m_boxHeight = 2 * kBoxPadding - kLineGap + metrics::lineHeight(kCaptionPx) + kLineGap +
                      qCeil(m_refinement.size().height());
        bottom = m_boxTop + m_boxHeight;
    }
    m_height = bottom + kPaddingY;
}

void Card::drawDocument(QPainter *painter, const QTextDocument &document, int x, int y) const
{
    QAbstractTextDocumentLayout::PaintContext context;
    context.palette.setColor(QPalette::Text, ThemeColors::current().textPrimary);
    painter->save();
    painter->translate(x, y);
    document.documentLayout()->draw(painter, context);
    painter->restore();
}

void Card::paintHead(QPainter *painter, const QColor &ground, bool busy) const
{
    const ThemeColors &colors = ThemeColors::current();
    const QColor muted = colors.readable(colors.textMuted, ground);
    const int inner = m_width - 2 * kPaddingX;

    const QFont caption = textFont(kCaptionPx);
    const QFontMetrics captionMetrics(caption);
    const auto drawLine = [&](const QFont &font, const QColor &ink, int top, int height,
                              const QString &left, Qt::TextElideMode elide, const QString &right) {
        const int rightWidth = right.isEmpty() ? 0 : captionMetrics.horizontalAdvance(right);
        const int leftWidth = inner - rightWidth - (rightWidth > 0 ? kColumnGap : 0);
        painter->setFont(font);
        painter->setPen(ink);
        painter->drawText(QRect(kPaddingX, top, leftWidth, height),
                          Qt::AlignVCenter | Qt::AlignLeft | Qt::TextSingleLine,
                          QFontMetrics(font).elidedText(left, elide, leftWidth));
        painter->setFont(caption);
        painter->setPen(muted);
        painter->drawText(QRect(kPaddingX, top, inner, height),
                          Qt::AlignVCenter | Qt::AlignRight | Qt::TextSingleLine, right);
    };
    const QString size =
        ui::common::utils::formatByteSize(m_result.value(QStringLiteral("size")).toLongLong());
    const QString time = ui::common::utils::formatTimestamp(
        m_result.value(QStringLiteral("modifiedMs")).toLongLong());
    drawLine(textFont(kTitlePx, QFont::DemiBold), colors.textPrimary, kPaddingY,
             metrics::lineHeight(kTitlePx), value("name"), Qt::ElideRight,
             busy ? ResultCardDelegate::tr("正在处理...")
             : m_result.value(QStringLiteral("offline")).toBool()
                 ? ResultCardDelegate::tr("磁盘未连接")
                 : scoreText(m_result.value(QStringLiteral("score")).toDouble()));
    drawLine(caption, muted, m_pathTop, metrics::lineHeight(kCaptionPx), value("path"),
             Qt::ElideMiddle, size + QStringLiteral("   ") + time);
}

void Card::paintRefinement(QPainter *painter) const
{
    const ThemeColors &colors = ThemeColors::current();
    const QRect box(kPaddingX, m_boxTop, m_width - 2 * kPaddingX, m_boxHeight);
    painter->setPen(Qt::NoPen);
    painter->setBrush(colors.headerBackground);
    painter->drawRoundedRect(box, kBoxRadius, kBoxRadius);
    const int labelHeight = metrics::lineHeight(kCaptionPx);
    const int top = m_boxTop + kBoxPadding - kLineGap / 2;
    painter->setFont(textFont(kCaptionPx, QFont::DemiBold));
    painter->setPen(colors.readable(colors.infoText, colors.headerBackground));
    painter->drawText(QRect(box.left() + kBoxPadding, top, box.width(), labelHeight),
                      Qt::AlignVCenter | Qt::AlignLeft, ResultCardDelegate::tr("二次匹配"));
    drawDocument(painter, m_refinement, box.left() + kBoxPadding, top + labelHeight + kLineGap);
}

void Card::paint(QPainter *painter, const QPoint &origin, bool selected, bool hover,
                 bool busy) const
{
    const ThemeColors &colors = ThemeColors::current();
    QColor ground = colors.surface;
    if (selected)
        ground = colors.selectionBackground;
    else if (hover)
        ground = colors.hoverBackground;

    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->translate(origin);
    painter->setPen(selected ? colors.accent : colors.border);
    painter->setBrush(ground);
    painter->drawRoundedRect(QRectF(0.5, 0.5, m_width - 1, m_height - 1), kCardRadius, kCardRadius);
    paintHead(painter, ground, busy);
    if (!m_snippet.isEmpty())
        drawDocument(painter, m_snippet, kPaddingX, m_snippetTop);
    if (m_boxHeight > 0)
        paintRefinement(painter);
    painter->restore();
}

} // namespace

ResultCardDelegate::ResultCardDelegate(QListView *view)
    : QStyledItemDelegate(view)
    , m_view(view)
{}

void ResultCardDelegate::forgetHeights()
{
    m_heights.clear();
}

QSize ResultCardDelegate::sizeHint(const QStyleOptionViewItem &option,
                                   const QModelIndex &index) const
{
    Q_UNUSED(option)
    const int width = m_view->viewport()->width();
    if (width != m_width) {
        m_heights.clear();
        m_width = width;
    }
    auto height = m_heights.find(index.row());
    if (height == m_heights.end()) {
        const Card card(index.data(SearchResultModel::ResultRole).toMap(), width - kScrollBarGap);
        height = m_heights.insert(index.row(), card.height());
    }
    return QSize(width, *height + metrics::kCardGap);
}

void ResultCardDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                               const QModelIndex &index) const
{
    const Card card(index.data(SearchResultModel::ResultRole).toMap(),
                    option.rect.width() - kScrollBarGap);
    card.paint(painter, option.rect.topLeft(), option.state.testFlag(QStyle::State_Selected),
               option.state.testFlag(QStyle::State_MouseOver),
               index.data(SearchResultModel::BusyRole).toBool());
}

bool ResultCardDelegate::helpEvent(QHelpEvent *event, QAbstractItemView *view,
                                   const QStyleOptionViewItem &option, const QModelIndex &index)
{
    if (event->type() != QEvent::ToolTip)
        return QStyledItemDelegate::helpEvent(event, view, option, index);
    QToolTip::showText(event->globalPos(),
                       toolTipText(index.data(SearchResultModel::PathRole).toString()),
                       view->viewport());
    return true;
}

ResultCardList::ResultCardList(QWidget *parent)
    : QListView(parent)
{
    setProperty("frameless", true);
    setItemDelegate(new ResultCardDelegate(this));
    setMouseTracking(true);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setAccessibleName(ResultCardDelegate::tr("搜索结果"));
    setDragEnabled(true);
    setDragDropMode(QAbstractItemView::DragOnly);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setContextMenuPolicy(Qt::CustomContextMenu);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    // A bar that comes and goes would change the width on which the heights depend.
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    setResizeMode(QListView::Adjust);
}

void ResultCardList::setModel(QAbstractItemModel *model)
{
    connect(model, &QAbstractItemModel::modelReset,
            static_cast<ResultCardDelegate *>(itemDelegate()), &ResultCardDelegate::forgetHeights);
    QListView::setModel(model);
}

void ResultCardList::resizeEvent(QResizeEvent *event)
{
    QListView::resizeEvent(event);
    scheduleDelayedItemsLayout();
}

} // namespace filesearch
