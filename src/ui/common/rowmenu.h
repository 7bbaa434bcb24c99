#pragma once

#include <QString>
#include <QVector>

#include <functional>

class QAbstractItemView;
class QModelIndex;
class QPoint;

namespace ui::common {

/// One thing that can be done with a row of a view.
struct RowAction
{
    QString text;
    bool isDangerous = false;
    std::function<void()> run;
};

/// A view that offers actions of its own on its rows, beside painted buttons and ticks.
class RowActionSource
{
public:
    virtual ~RowActionSource() = default;
    /// What can be done with the row, the first of it being what Enter does.
    virtual QVector<RowAction> ownActions(const QModelIndex &index) = 0;
};

/// Names what Enter does with a row of the view; its menu then offers it, too.
void setRowActivation(QAbstractItemView *view, const QString &text);

/// What the menu of a row offers: opening it, what its view adds, its painted buttons, its tick,
/// its text, all rows.
QVector<RowAction> rowActions(QAbstractItemView *view, const QModelIndex &index);
/// Opens the menu of the row at a place of the screen, and blocks until it is closed.
void showRowMenu(QAbstractItemView *view, const QModelIndex &index, const QPoint &globalPosition);
/// Does what the row's dangerous button does. False if the row has none.
bool runDangerousAction(QAbstractItemView *view, const QModelIndex &index);

/// Paths of the selected rows, or of the current one, a line each; of a row without a path its
/// texts.
QString copiedRows(const QAbstractItemView *view);

} // namespace ui::common
