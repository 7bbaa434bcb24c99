#pragma once

#include <QHash>
#include <QPersistentModelIndex>
#include <QStyledItemDelegate>

class QAbstractItemView;
class QTableView;
class QTreeView;

namespace ui {
namespace common {

/// Delegate of the product's tables: the whole row under the mouse is marked, not one cell, and a
/// text that doesn't fit shows in full as a tool tip. Base of the delegates that paint more.
class RowDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    /// Becomes a child of `view` and watches its mouse; the caller sets it on the view.
    explicit RowDelegate(QAbstractItemView *view);

    /// How the texts of a column are shortened: names at the end (the default), paths in the
    /// middle.
    void setElideMode(int column, Qt::TextElideMode mode);

    bool eventFilter(QObject *watched, QEvent *event) override;
    bool helpEvent(QHelpEvent *event, QAbstractItemView *view, const QStyleOptionViewItem &option,
                   const QModelIndex &index) override;

protected:
    void initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const override;

private:
    void setHovered(const QModelIndex &index);
    void updateRow(const QModelIndex &index);

    QAbstractItemView *m_view;
    const QObject *m_viewport;
    QPersistentModelIndex m_hovered;
    QHash<int, Qt::TextElideMode> m_elideModes;
};

/// Gives a table the product's look and habits: row and header heights, lines between rows only,
/// whole rows selected, smooth scrolling, a RowDelegate. Returns the delegate.
RowDelegate *setUpTable(QTableView *table);
/// The same for a tree; a tree marks whole rows by itself and keeps its delegate.
void setUpTree(QTreeView *tree);

} // namespace common
} // namespace ui
