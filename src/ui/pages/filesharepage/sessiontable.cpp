#include "ui/pages/filesharepage/sessiontable.h"

#include "ui/common/celldelegate.h"
#include "ui/common/pillpainter.h"
#include "ui/common/theme.h"
#include "ui/pages/filesharepage/sessiontablemodel.h"

#include <QHeaderView>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QPainter>
#include <QScrollBar>

using ui::common::CellDelegate;
using ui::common::ThemeColors;

namespace fileshare {

namespace {

constexpr int kLeastPathPx = 40;    ///< Base pixels.
constexpr int kContentPercent = 40; ///< Of the room that content and path share.
constexpr int kPillPadding = 24;    ///< Left and right of a pill in its column.
constexpr int kRingRadius = 8;
constexpr double kDisabledOpacity = 0.5;

/// Marks the button that the keyboard is at.
class SessionDelegate : public CellDelegate
{
public:
    explicit SessionDelegate(SessionTable *table)
        : CellDelegate(table)
        , m_table(table)
    {}

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override
    {
        painter->save();
        if (index.column() == SessionTableModel::ActionColumn && !m_table->isEnabled())
            painter->setOpacity(kDisabledOpacity);
        CellDelegate::paint(painter, option, index);
        const bool isCurrent = index.row() == m_table->currentIndex().row();
        if (index.column() == SessionTableModel::ActionColumn && isCurrent && m_table->hasFocus()) {
            painter->setRenderHint(QPainter::Antialiasing);
            painter->setPen(ThemeColors::current().accent);
            painter->setBrush(Qt::NoBrush);
            const QRectF ring = actionRect(index, m_table->focusedAction());
            painter->drawRoundedRect(ring.adjusted(0.5, 0.5, -0.5, -0.5), kRingRadius, kRingRadius);
        }
        painter->restore();
    }

private:
    SessionTable *m_table;
};

} // namespace

SessionTable::SessionTable(QWidget *parent)
    : QTableView(parent)
    , m_sessions(new SessionTableModel(this))
{
    setObjectName(QStringLiteral("ShareSessionTable"));
    setAccessibleName(tr("共享记录"));
    delete ui::common::setUpTable(this);
    auto *delegate = new SessionDelegate(this);
    delegate->setElideMode(SessionTableModel::PathColumn, Qt::ElideMiddle);
    setItemDelegate(delegate);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setModel(m_sessions);
    layOutColumns();
    connect(delegate, &CellDelegate::actionTriggered, this,
            [this](const QModelIndex &index, int action) { request(index.row(), action); });
}

void SessionTable::layOutColumns()
{
    QHeaderView *header = horizontalHeader();
    header->setSectionsClickable(false);
    const auto fit = [this, header](int column, int contentWidth) {
        const QString title =
            m_sessions->headerData(column, Qt::Horizontal, Qt::DisplayRole).toString();
        header->resizeSection(column, qMax(contentWidth, CellDelegate::textColumnWidth(title)));
    };
    const int numberWidth = CellDelegate::textColumnWidth(QStringLiteral("00000"));
    fit(SessionTableModel::PortColumn, numberWidth);
    fit(SessionTableModel::PermissionColumn, CellDelegate::textColumnWidth(tr("允许上传")));
    fit(SessionTableModel::StatusColumn, ui::common::pillSize(tr("共享中")).width() + kPillPadding);
    fit(SessionTableModel::TimeColumn,
        CellDelegate::textColumnWidth(QStringLiteral("00-00 00:00")));
    fit(SessionTableModel::DownloadsColumn, numberWidth);
    fit(SessionTableModel::ActionColumn, CellDelegate::actionColumnWidth(sessionActions(true)));
    header->setSectionResizeMode(QHeaderView::Fixed);
}

void SessionTable::resizeEvent(QResizeEvent *event)
{
    QTableView::resizeEvent(event);
    QHeaderView *header = horizontalHeader();
    int room = viewport()->width();
    for (int column = SessionTableModel::PortColumn; column < SessionTableModel::ColumnCount;
         ++column)
        room -= header->sectionSize(column);
    const int title = CellDelegate::textColumnWidth(tr("共享内容"));
    const int content = qMax(title, room * kContentPercent / 100);
    const int leastPath = ThemeColors::current().fontPx(kLeastPathPx);
    header->resizeSection(SessionTableModel::ContentColumn, content);
    header->resizeSection(SessionTableModel::PathColumn, qMax(leastPath, room - content));
}

void SessionTable::showSessions(const QVector<SessionRow> &rows)
{
    const QString selected = selectionModel()->hasSelection()
                                 ? idAt(selectionModel()->selectedRows().first().row())
                                 : QString();
    const QString current = idAt(currentIndex().row());
    const int scroll = verticalScrollBar()->value();
    m_sessions->setRows(rows);
    const int currentRow = m_sessions->rowOf(current);
    if (currentRow >= 0)
        selectionModel()->setCurrentIndex(m_sessions->index(currentRow, 0),
                                          QItemSelectionModel::NoUpdate);
    const int selectedRow = m_sessions->rowOf(selected);
    if (selectedRow >= 0)
        selectionModel()->select(m_sessions->index(selectedRow, 0),
                                 QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    // The new range of the scroll bar is only known after the layout.
    executeDelayedItemsLayout();
    verticalScrollBar()->setValue(scroll);
}

void SessionTable::updateSession(const SessionRow &row)
{
    m_sessions->updateRow(row);
}

QString SessionTable::idAt(int row) const
{
    return m_sessions->idAt(row);
}

bool SessionTable::isActive(const QString &id) const
{
    return m_sessions->isActiveAt(m_sessions->rowOf(id));
}

void SessionTable::keyPressEvent(QKeyEvent *event)
{
    const int row = currentIndex().row();
    switch (event->key()) {
    case Qt::Key_Left:
        focusAction(m_focusedAction - 1);
        return;
    case Qt::Key_Right:
        focusAction(m_focusedAction + 1);
        return;
    case Qt::Key_Return:
    case Qt::Key_Enter:
    case Qt::Key_Space:
        request(row, m_focusedAction);
        return;
    case Qt::Key_Delete:
        request(row, DeleteAction);
        return;
    default:
        QTableView::keyPressEvent(event);
    }
}

void SessionTable::focusAction(int action)
{
    m_focusedAction = qBound(0, action, ActionCount - 1);
    if (currentIndex().isValid())
        scrollTo(m_sessions->index(currentIndex().row(), SessionTableModel::ActionColumn));
    viewport()->update();
}

void SessionTable::request(int row, int action)
{
    const QString id = idAt(row);
    if (!id.isEmpty())
        emit actionRequested(id, action);
}

} // namespace fileshare
