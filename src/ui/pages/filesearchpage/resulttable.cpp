#include "ui/pages/filesearchpage/resulttable.h"

#include "ui/common/layoutmetrics.h"
#include "ui/common/textfont.h"
#include "ui/common/theme.h"
#include "ui/pages/filesearchpage/searchresultmodel.h"

#include <QHeaderView>
#include <QMouseEvent>
#include <QPainter>
#include <QScopedValueRollback>

using ui::common::RowDelegate;
using ui::common::ThemeColors;
namespace metrics = ui::common::metrics;

namespace filesearch {

namespace {

constexpr int kCellPadding = 12; ///< As in the style sheet of the table's items.
constexpr int kButtonPadding = 8;
constexpr int kButtonGap = 4;
constexpr int kButtonRadius = 8;
constexpr int kSelectionBar = 3; ///< Marks the current row by more than its colour.
constexpr int kNamePercent = 45;
constexpr int kMinTextColumn = 120;
constexpr int kBodyPx = 13;
constexpr int kTagPx = 11;
constexpr int kTagPadding = 6;

QString buttonText(ResultTable::RowButton button)
{
    return button == ResultTable::OpenButton ? ResultTable::tr("打开文件")
                                             : ResultTable::tr("打开所在目录");
}

QFontMetrics bodyMetrics()
{
    return QFontMetrics(ui::common::textFont(kBodyPx));
}

} // namespace

ResultTable::ResultTable(QWidget *parent)
    : QTableView(parent)
{
    const QScopedPointer<RowDelegate> plainRows(ui::common::setUpTable(this));
    setItemDelegate(new ResultCellDelegate(this));
    setSelectionMode(QAbstractItemView::SingleSelection);
    setTabKeyNavigation(false);
    setContextMenuPolicy(Qt::CustomContextMenu);
    setAccessibleName(tr("搜索结果"));
    setDragEnabled(true);
    setDragDropMode(QAbstractItemView::DragOnly);
    horizontalHeader()->setSectionsClickable(true);
    connect(horizontalHeader(), &QHeaderView::sectionClicked, this, &ResultTable::sortBy);
    horizontalHeader()->setMinimumSectionSize(60);
}

void ResultTable::setModel(QAbstractItemModel *model)
{
    QTableView::setModel(model);
    QHeaderView *header = horizontalHeader();
    for (int column = 0; column < SearchResultModel::ColumnCount; ++column)
        header->setSectionResizeMode(column, QHeaderView::Fixed);
    header->setSectionResizeMode(SearchResultModel::NameColumn, QHeaderView::Interactive);
    header->setSectionResizeMode(SearchResultModel::PathColumn, QHeaderView::Stretch);
    connect(header, &QHeaderView::sectionResized, this, [this](int column) {
        if (column == SearchResultModel::NameColumn && !m_layingOut)
            m_nameWidthChosen = true;
    });
    // Rows move under a mouse that rests.
    connect(model, &QAbstractItemModel::modelReset, this, [this] { setHover(-1, NoButton); });
    layoutColumns();
}

void ResultTable::sortBy(int column)
{
    if (column == SearchResultModel::ActionColumn)
        return;
    // The header turns its own mark at a click before it tells of the click.
    QHeaderView *header = horizontalHeader();
    const bool again = column == m_sortColumn;
    const bool ends = again && m_sortOrder == Qt::DescendingOrder;
    m_sortColumn = ends ? -1 : column;
    m_sortOrder = again && !ends ? Qt::DescendingOrder : Qt::AscendingOrder;
    header->setSortIndicatorShown(!ends);
    if (!ends)
        header->setSortIndicator(m_sortColumn, m_sortOrder);
    model()->sort(m_sortColumn, m_sortOrder);
}

void ResultTable::layoutColumns()
{
    if (!model())
        return;
    const QScopedValueRollback<bool> guard(m_layingOut, true);
    const QFontMetrics font = bodyMetrics();
    const int padding = 2 * kCellPadding + 2;
    const int size = font.horizontalAdvance(QStringLiteral("1000.0 MB")) + padding;
    const int time = font.horizontalAdvance(QStringLiteral("2000-00-00 00:00")) + padding;
    const auto *delegate = static_cast<ResultCellDelegate *>(itemDelegate());
    const int buttons = delegate->buttonColumnWidth();
    setColumnWidth(SearchResultModel::SizeColumn, size);
    setColumnWidth(SearchResultModel::TimeColumn, time);
    setColumnWidth(SearchResultModel::ActionColumn, buttons);
    const int rest = viewport()->width() - size - time - buttons;
    if (!m_nameWidthChosen)
        setColumnWidth(SearchResultModel::NameColumn,
                       qMax(kMinTextColumn, rest * kNamePercent / 100));
}

QRect ResultTable::buttonRect(int row, RowButton button) const
{
    const QModelIndex index = model()->index(row, SearchResultModel::ActionColumn);
    return static_cast<ResultCellDelegate *>(itemDelegate())->buttonRect(visualRect(index), button);
}

ResultTable::RowButton ResultTable::buttonAt(const QPoint &position) const
{
    const QModelIndex index = indexAt(position);
    if (!index.isValid() || index.data(SearchResultModel::BusyRole).toBool())
        return NoButton;
    for (const RowButton button : {OpenButton, FolderButton}) {
        if (buttonRect(index.row(), button).contains(position))
            return button;
    }
    return NoButton;
}

void ResultTable::updateRow(int row)
{
    if (row >= 0)
        viewport()->update(0, rowViewportPosition(row), viewport()->width(), rowHeight(row));
}

void ResultTable::setHover(int row, RowButton button)
{
    if (row == m_hoverRow && button == m_hoverButton)
        return;
    updateRow(m_hoverRow);
    m_hoverRow = row;
    m_hoverButton = button;
    updateRow(m_hoverRow);
    if (button == NoButton)
        viewport()->unsetCursor();
    else
        viewport()->setCursor(Qt::PointingHandCursor);
}

void ResultTable::mouseMoveEvent(QMouseEvent *event)
{
    setHover(indexAt(event->pos()).row(), buttonAt(event->pos()));
    QTableView::mouseMoveEvent(event);
}

void ResultTable::mousePressEvent(QMouseEvent *event)
{
    setHover(indexAt(event->pos()).row(), buttonAt(event->pos()));
    if (event->button() == Qt::LeftButton) {
        m_pressedButton = m_hoverButton;
        m_pressedRow = m_hoverRow;
        updateRow(m_hoverRow);
    }
    QTableView::mousePressEvent(event);
}

void ResultTable::mouseReleaseEvent(QMouseEvent *event)
{
    QTableView::mouseReleaseEvent(event);
    const RowButton button = m_pressedButton;
    m_pressedButton = NoButton;
    updateRow(m_pressedRow);
    const QModelIndex index = indexAt(event->pos());
    if (event->button() == Qt::LeftButton && button != NoButton && index.row() == m_pressedRow &&
        buttonAt(event->pos()) == button)
        emit buttonClicked(index, button);
}

void ResultTable::mouseDoubleClickEvent(QMouseEvent *event)
{
    // Two quick clicks on a button are clicks on that button, not a double click on the row.
    if (buttonAt(event->pos()) != NoButton)
        mousePressEvent(event);
    else
        QTableView::mouseDoubleClickEvent(event);
}

void ResultTable::leaveEvent(QEvent *event)
{
    setHover(-1, NoButton);
    QTableView::leaveEvent(event);
}

void ResultTable::resizeEvent(QResizeEvent *event)
{
    QTableView::resizeEvent(event);
    layoutColumns();
}

ResultCellDelegate::ResultCellDelegate(ResultTable *table)
    : RowDelegate(table)
    , m_table(table)
{
    setElideMode(SearchResultModel::PathColumn, Qt::ElideMiddle);
}

int ResultCellDelegate::buttonWidth(ResultTable::RowButton button) const
{
    return bodyMetrics().horizontalAdvance(buttonText(button)) + 2 * kButtonPadding;
}

int ResultCellDelegate::buttonColumnWidth() const
{
    // The buttons' own padding lines their text up with the header's.
    return buttonWidth(ResultTable::OpenButton) + buttonWidth(ResultTable::FolderButton) +
           kButtonGap + 2 * (kCellPadding - kButtonPadding);
}

QRect ResultCellDelegate::buttonRect(const QRect &cell, ResultTable::RowButton button) const
{
    const int height = qMin(metrics::rowControlHeight(), cell.height() - 4);
    const int open = buttonWidth(ResultTable::OpenButton);
    const int left = cell.left() + kCellPadding - kButtonPadding +
                     (button == ResultTable::OpenButton ? 0 : open + kButtonGap);
    return QRect(left, cell.top() + (cell.height() - height) / 2, buttonWidth(button), height);
}

void ResultCellDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                               const QModelIndex &index) const
{
    RowDelegate::paint(painter, option, index);
    const QString tag = index.column() == SearchResultModel::NameColumn
                            ? index.data(SearchResultModel::TagRole).toString()
                            : QString();
    if (!tag.isEmpty())
        paintTag(painter, option.rect.adjusted(0, 0, 0, -1), tag);
    if (index.column() == SearchResultModel::NameColumn &&
        option.state.testFlag(QStyle::State_Selected))
        painter->fillRect(
            QRect(option.rect.left(), option.rect.top(), kSelectionBar, option.rect.height() - 1),
            ThemeColors::current().accent);
    if (index.column() == SearchResultModel::ActionColumn)
        paintButtons(painter, option.rect.adjusted(0, 0, 0, -1), index.row(),
                     index.data(SearchResultModel::BusyRole).toBool());
}

// At the right end of the cell, over the end of a name that is too long for both.
void ResultCellDelegate::paintTag(QPainter *painter, const QRect &cell, const QString &tag) const
{
    const ThemeColors &colors = ThemeColors::current();
    const QFont font = ui::common::textFont(kTagPx);
    const QFontMetrics letters(font);
    const QSize size(letters.horizontalAdvance(tag) + 2 * kTagPadding, letters.height() + 2);
    const QRect rect(cell.right() - kTagPadding - size.width(),
                     cell.top() + (cell.height() - size.height()) / 2, size.width(), size.height());
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setPen(Qt::NoPen);
    painter->setBrush(colors.activeNavBackground);
    painter->drawRoundedRect(rect, size.height() / 2.0, size.height() / 2.0);
    painter->setFont(font);
    painter->setPen(colors.readable(colors.infoText, colors.activeNavBackground));
    painter->drawText(rect, Qt::AlignCenter, tag);
    painter->restore();
}

void ResultCellDelegate::paintButtons(QPainter *painter, const QRect &cell, int row,
                                      bool busy) const
{
    const ThemeColors &colors = ThemeColors::current();
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    QFont font = painter->font();
    font.setPixelSize(colors.fontPx(kBodyPx));
    painter->setFont(font);
    if (busy) {
        painter->setPen(colors.textMuted);
        painter->drawText(cell.adjusted(kCellPadding, 0, -kCellPadding, 0), Qt::AlignVCenter,
                          tr("正在处理..."));
        painter->restore();
        return;
    }
    for (const ResultTable::RowButton button :
         {ResultTable::OpenButton, ResultTable::FolderButton}) {
        const QRect rect = buttonRect(cell, button);
        const bool hover = row == m_table->hoverRow() && button == m_table->hoverButton();
        QColor ground = colors.surface;
        if (hover) {
            ground = m_table->isPressed() ? colors.selectionBackground : colors.activeNavBackground;
            painter->setPen(Qt::NoPen);
            painter->setBrush(ground);
            painter->drawRoundedRect(rect, kButtonRadius, kButtonRadius);
        }
        painter->setPen(colors.readable(colors.infoText, ground));
        painter->drawText(rect, Qt::AlignCenter, buttonText(button));
    }
    painter->restore();
}

} // namespace filesearch
