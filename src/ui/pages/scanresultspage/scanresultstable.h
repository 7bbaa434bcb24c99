#pragma once

#include "ui/common/rowmenu.h"

#include <QTableView>

namespace ui {
namespace common {
class EmptyState;
}
} // namespace ui

namespace scanresults {

class ColumnChooser;
class ScanResultsModel;
class SelectAllHeaderView;

/// The table of found files. What the user looks at stays where it is while batches arrive and
/// filters change: the place is remembered as a row, not as a distance from the top.
class ScanResultsTable : public QTableView, public ui::common::RowActionSource
{
    Q_OBJECT

public:
    ScanResultsTable(ScanResultsModel *model, QWidget *parent);

    SelectAllHeaderView *header() const { return m_header; }
    ColumnChooser *columns() const { return m_columns; }
    /// Covers the rows' area while the table shows none; visible by the caller's choice.
    ui::common::EmptyState *emptyState() const { return m_empty; }
    QVector<ui::common::RowAction> ownActions(const QModelIndex &index) override;
    /// Forgets place and current row, for a list that starts anew.
    void resetPlace();
signals:
    void detailsRequested(const QModelIndex &index);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    bool viewportEvent(QEvent *event) override;
    void currentChanged(const QModelIndex &current, const QModelIndex &previous) override;
    void scrollContentsBy(int dx, int dy) override;

private:
    void toggle(const QModelIndex &index);
    void setUpColumns();
    void layoutColumns();
    /// Nothing is painted during a change of the model; then current row and place are put back.
    void beginChange(int change);
    void endChange(int change);
    void rememberPlace();
    QString idOf(int arrival) const;
    int arrivalOfId(const QString &id) const;

    ScanResultsModel *m_model;
    SelectAllHeaderView *m_header;
    ColumnChooser *m_columns = nullptr;
    ui::common::EmptyState *m_empty;
    int m_current = -1;     ///< Row that the user made current, by arrival; a filter may hide it.
    int m_anchor = -1;      ///< Row at the top after the user's last scrolling; -1 at the very top.
    int m_anchorOffset = 0; ///< Its distance from the top edge, in pixels.
    int m_scroll = 0;       ///< Of the scroll bar, before the change.
    QString m_currentId;    ///< Of the same rows, for a change that gives them new numbers.
    QString m_anchorId;
    int m_changing = 0;
    bool m_layingOut = false;
    bool m_nameWidthChosen = false; ///< The user dragged the border of the name column.
};

} // namespace scanresults
