#pragma once

#include "ui/common/itemviews.h"

class QMouseEvent;

namespace ui {
namespace common {

/// What a cell may tell its CellDelegate beyond Qt's own roles.
enum CellRole {
    PillRole = Qt::UserRole + 100, ///< int of StatusPill::Type: the text stands in a pill.
    InkRole,                       ///< QColor of the text.
    ActionsRole,                   ///< QStringList: the cell is a row of quiet text buttons.
    DangerActionRole,              ///< int: which of the actions is the dangerous one.
};

/// RowDelegate that also paints pills, coloured texts and rows of quiet text buttons, so that a
/// long table needs no cell widgets.
class CellDelegate : public RowDelegate
{
    Q_OBJECT

public:
    /// Becomes a child of `view`; the caller sets it on the view.
    explicit CellDelegate(QAbstractItemView *view);

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    bool eventFilter(QObject *watched, QEvent *event) override;

    /// Where button number `action` of the cell stands, in the viewport's coordinates.
    QRect actionRect(const QModelIndex &index, int action) const;
    /// Width that a column of this text, or of these buttons, needs, in logical pixels.
    static int textColumnWidth(const QString &text);
    static int actionColumnWidth(const QStringList &actions);

signals:
    /// A button was clicked. Comes from the event loop, so the receiver may open dialogs.
    void actionTriggered(const QModelIndex &index, int action);

protected:
    void initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const override;

private:
    /// A button of the table; none if the index is invalid.
    struct Place
    {
        QPersistentModelIndex index;
        int action = -1;
        bool operator==(const Place &other) const
        {
            return index == other.index && action == other.action;
        }
    };

    Place placeAt(const QPoint &position) const;
    void watchMouse(QMouseEvent *event);
    void setPlace(Place *which, const Place &place);
    void updateCell(const QModelIndex &index);
    void paintText(QPainter *painter, const QStyleOptionViewItem &option,
                   const QModelIndex &index) const;
    void paintActions(QPainter *painter, const QStyleOptionViewItem &option,
                      const QModelIndex &index) const;

    QAbstractItemView *m_table;
    const QObject *m_watched;
    Place m_hoveredAction;
    Place m_pressedAction;
};

/// setUpTable() with a CellDelegate.
CellDelegate *setUpCellTable(QTableView *table);

} // namespace common
} // namespace ui
