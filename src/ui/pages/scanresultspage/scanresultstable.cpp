#include "ui/pages/scanresultspage/scanresultstable.h"

#include "ui/common/emptystate.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/theme.h"
#include "ui/pages/scanresultspage/columnchooser.h"
#include "ui/pages/scanresultspage/scanresultsmodel.h"
#include "ui/pages/scanresultspage/scanrowdelegate.h"
#include "ui/pages/scanresultspage/selectallheaderview.h"

#include <QKeyEvent>
#include <QScopedValueRollback>
#include <QScrollBar>

using ui::common::EmptyState;
using ui::common::IconWidget;
using ui::common::ThemeColors;

namespace scanresults {

namespace {

constexpr int kMinSection = 34;
constexpr int kNameWidth = 240;
constexpr int kMinNameWidth = 140;
constexpr int kMinPathWidth = 88;

/// Widths in base pixels; those of texts grow with the font scale.
struct ColumnWidth
{
    ScanResultsModel::Column column;
    int width;
    bool holdsText;
};

constexpr ColumnWidth kFixedWidths[] = {
    {ScanResultsModel::CheckColumn, 34, false}, {ScanResultsModel::DetailColumn, 58, false},
    {ScanResultsModel::SizeColumn, 88, true},   {ScanResultsModel::TypeColumn, 100, true},
    {ScanResultsModel::TimeColumn, 150, true},  {ScanResultsModel::ChanceColumn, 110, true},
};

int scaled(int width)
{
    // Never below the design's number: a smaller font leaves more room.
    return qMax(width, ThemeColors::current().fontPx(width));
}

} // namespace

ScanResultsTable::ScanResultsTable(ScanResultsModel *model, QWidget *parent)
    : QTableView(parent)
    , m_model(model)
    , m_header(new SelectAllHeaderView(this))
    , m_empty(new EmptyState(IconWidget::File, viewport()))
{
    setObjectName(QStringLiteral("ScanResultsTable"));
    setHorizontalHeader(m_header);
    // The view has just taken the indicator away: it is not told to sort by itself.
    m_header->setSortIndicatorShown(true);
    ui::common::setUpTable(this);
    setItemDelegate(new StableTableItemDelegate(this));
    auto *icons = new CenterIconTableDelegate(this);
    setItemDelegateForColumn(ScanResultsModel::CheckColumn, icons);
    setItemDelegateForColumn(ScanResultsModel::DetailColumn, icons);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setModel(model);
    setUpColumns();
    connect(this, &QTableView::clicked, this, [this](const QModelIndex &index) {
        if (index.column() == ScanResultsModel::CheckColumn)
            toggle(index);
        else if (index.column() == ScanResultsModel::DetailColumn)
            emit detailsRequested(index);
    });
    connect(m_header, &QHeaderView::sortIndicatorChanged, model, &ScanResultsModel::sort);
    connect(model, &ScanResultsModel::changeBegins, this,
            [this](ScanResultsModel::Change change) { beginChange(int(change)); });
    connect(model, &ScanResultsModel::changeEnds, this,
            [this](ScanResultsModel::Change change) { endChange(int(change)); });
}

void ScanResultsTable::setUpColumns()
{
    m_header->setMinimumSectionSize(kMinSection);
    m_header->setSectionResizeMode(ScanResultsModel::NameColumn, QHeaderView::Interactive);
    for (const ColumnWidth &fixed : kFixedWidths) {
        m_header->setSectionResizeMode(fixed.column, QHeaderView::Fixed);
        setColumnWidth(fixed.column, fixed.holdsText ? scaled(fixed.width) : fixed.width);
    }
    m_header->setSectionResizeMode(ScanResultsModel::PathColumn, QHeaderView::Stretch);
    m_header->setSectionResizeMode(ScanResultsModel::SourceColumn, QHeaderView::ResizeToContents);
    m_header->setSectionResizeMode(ScanResultsModel::IntegrityColumn,
                                   QHeaderView::ResizeToContents);
    setColumnWidth(ScanResultsModel::NameColumn, scaled(kNameWidth));
    m_header->setSortIndicator(m_model->sortColumn(), m_model->sortOrder());
    m_columns = new ColumnChooser(m_header, m_model, this);
    m_header->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_header, &QWidget::customContextMenuRequested, m_columns,
            [this](const QPoint &position) { m_columns->popUp(m_header->mapToGlobal(position)); });
    connect(m_header, &QHeaderView::sectionResized, this, [this](int column) {
        if (column == ScanResultsModel::NameColumn && !m_layingOut)
            m_nameWidthChosen = true;
        layoutColumns();
    });
}

void ScanResultsTable::layoutColumns()
{
    if (m_layingOut)
        return;
    const QScopedValueRollback<bool> guard(m_layingOut, true);
    int taken = 0;
    for (int column = 0; column < ScanResultsModel::ColumnCount; ++column) {
        if (column != ScanResultsModel::NameColumn && column != ScanResultsModel::PathColumn)
            taken += m_header->sectionSize(column);
    }
    // In a narrow window the name gives way first; then the table scrolls sideways, since a path
    // of no width tells nothing.
    const int rest = viewport()->width() - taken;
    const int minPath = scaled(kMinPathWidth);
    if (!m_nameWidthChosen)
        setColumnWidth(ScanResultsModel::NameColumn,
                       qBound(scaled(kMinNameWidth), rest - minPath, scaled(kNameWidth)));
    const bool fits = rest - columnWidth(ScanResultsModel::NameColumn) >= minPath;
    m_header->setSectionResizeMode(ScanResultsModel::PathColumn,
                                   fits ? QHeaderView::Stretch : QHeaderView::Fixed);
    if (!fits)
        setColumnWidth(ScanResultsModel::PathColumn, minPath);
}

void ScanResultsTable::resizeEvent(QResizeEvent *event)
{
    QTableView::resizeEvent(event);
    layoutColumns();
}

bool ScanResultsTable::viewportEvent(QEvent *event)
{
    if (event->type() == QEvent::Resize)
        m_empty->setGeometry(viewport()->rect());
    return QTableView::viewportEvent(event);
}

void ScanResultsTable::toggle(const QModelIndex &index)
{
    const QModelIndex cell = index.sibling(index.row(), ScanResultsModel::CheckColumn);
    m_model->setChecked(cell, !cell.data(ScanResultsModel::CheckedRole).toBool());
}

QVector<ui::common::RowAction> ScanResultsTable::ownActions(const QModelIndex &index)
{
    const QModelIndex cell = index.sibling(index.row(), ScanResultsModel::CheckColumn);
    const QPersistentModelIndex kept(cell);
    QVector<ui::common::RowAction> actions{{tr("查看详情"), false, [this, kept] {
                                                if (kept.isValid())
                                                    emit detailsRequested(kept);
                                            }}};
    if (!cell.data(ScanResultsModel::CheckableRole).toBool())
        return actions;
    const bool isTicked = cell.data(ScanResultsModel::CheckedRole).toBool();
    actions.append({isTicked ? tr("取消勾选") : tr("勾选"), false, [this, kept] {
                        if (kept.isValid())
                            toggle(kept);
                    }});
    return actions;
}

void ScanResultsTable::keyPressEvent(QKeyEvent *event)
{
    const QModelIndex current = currentIndex();
    if (current.isValid() && event->key() == Qt::Key_Space) {
        toggle(current);
    } else if (current.isValid() &&
               (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter)) {
        emit detailsRequested(current);
    } else {
        QTableView::keyPressEvent(event);
    }
}

void ScanResultsTable::currentChanged(const QModelIndex &current, const QModelIndex &previous)
{
    QTableView::currentChanged(current, previous);
    if (m_changing == 0)
        m_current = m_model->arrivalOf(current);
}

void ScanResultsTable::scrollContentsBy(int dx, int dy)
{
    QTableView::scrollContentsBy(dx, dy);
    if (dy != 0 && m_changing == 0)
        rememberPlace();
}

void ScanResultsTable::rememberPlace()
{
    const QModelIndex top =
        verticalScrollBar()->value() > 0 ? indexAt(QPoint(0, 0)) : QModelIndex();
    m_anchor = m_model->arrivalOf(top);
    m_anchorOffset = top.isValid() ? rowViewportPosition(top.row()) : 0;
}

void ScanResultsTable::resetPlace()
{
    m_current = -1;
    m_anchor = -1;
    m_anchorOffset = 0;
    verticalScrollBar()->setValue(0);
}

void ScanResultsTable::beginChange(int change)
{
    if (m_changing++ == 0)
        setUpdatesEnabled(false);
    m_scroll = verticalScrollBar()->value();
    if (change == int(ScanResultsModel::Change::Replaced)) {
        m_currentId = idOf(m_current);
        m_anchorId = idOf(m_anchor);
    }
}

void ScanResultsTable::endChange(int change)
{
    if (change == int(ScanResultsModel::Change::Replaced)) {
        m_current = arrivalOfId(m_currentId);
        m_anchor = arrivalOfId(m_anchorId);
    }
    const int row = m_current < 0 ? -1 : m_model->visibleRowOf(m_current);
    if (row >= 0 && currentIndex().row() != row) {
        const int column = qMax(0, currentIndex().column());
        selectionModel()->setCurrentIndex(m_model->index(row, column),
                                          QItemSelectionModel::ClearAndSelect |
                                              QItemSelectionModel::Rows);
    }
    // Lays the rows out now, so that the scroll bar knows its new range.
    updateGeometries();
    const int anchor = m_anchor < 0 ? -1 : m_model->visibleRowOf(m_anchor);
    if (change == int(ScanResultsModel::Change::Sorted))
        // The user asked for another arrangement: the view stays where it is in the list.
        verticalScrollBar()->setValue(m_scroll);
    else if (anchor >= 0)
        verticalScrollBar()->setValue(verticalHeader()->sectionPosition(anchor) - m_anchorOffset);
    else if (m_anchor < 0)
        verticalScrollBar()->setValue(0);
    if (--m_changing == 0)
        setUpdatesEnabled(true);
    if (change == int(ScanResultsModel::Change::Sorted))
        rememberPlace();
}

QString ScanResultsTable::idOf(int arrival) const
{
    return arrival < 0 ? QString() : m_model->idOf(arrival);
}

int ScanResultsTable::arrivalOfId(const QString &id) const
{
    return id.isEmpty() ? -1 : m_model->arrivalOfId(id);
}

} // namespace scanresults
