#include "ui/common/rowmenu.h"

#include "ui/common/celldelegate.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QClipboard>
#include <QKeyEvent>
#include <QMenu>
#include <QPointer>
#include <QSet>

#include <algorithm>

namespace ui::common {

namespace {

const char activationProperty[] = "rowActivation";

QString text(const char *source)
{
    return QCoreApplication::translate("RowMenu", source);
}

QModelIndexList cellsOf(const QModelIndex &index)
{
    QModelIndexList cells;
    const int columns = index.model()->columnCount(index.parent());
    for (int column = 0; column < columns; ++column)
        cells.append(index.sibling(index.row(), column));
    return cells;
}

QString rowText(const QModelIndex &index)
{
    QStringList texts;
    const QModelIndexList cells = cellsOf(index);
    for (const QModelIndex &cell : cells) {
        const QString shown = cell.data().toString();
        if (shown.startsWith(QLatin1Char('/')))
            return shown;
        if (!shown.isEmpty())
            texts.append(shown);
    }
    return texts.join(QLatin1Char('\t'));
}

void press(QAbstractItemView *view, int key)
{
    QKeyEvent down(QEvent::KeyPress, key, Qt::NoModifier);
    QCoreApplication::sendEvent(view, &down);
}

void addButtons(QAbstractItemView *view, const QModelIndex &cell, QVector<RowAction> *actions)
{
    auto *delegate = qobject_cast<CellDelegate *>(view->itemDelegate(cell));
    const QStringList buttons = cell.data(ActionsRole).toStringList();
    if (!delegate)
        return;
    bool hasDanger = false;
    const int danger = cell.data(DangerActionRole).toInt(&hasDanger);
    const QPersistentModelIndex kept(cell);
    for (int i = 0; i < buttons.size(); ++i) {
        actions->append({buttons.at(i), hasDanger && danger == i, [delegate, kept, i] {
                             if (kept.isValid())
                                 emit delegate->actionTriggered(kept, i);
                         }});
    }
}

void addTick(const QModelIndex &cell, QVector<RowAction> *actions)
{
    const QVariant state = cell.data(Qt::CheckStateRole);
    if (!state.isValid() || !cell.flags().testFlag(Qt::ItemIsUserCheckable))
        return;
    const bool isTicked = state.toInt() == Qt::Checked;
    const QPersistentModelIndex kept(cell);
    actions->append({isTicked ? text("取消勾选") : text("勾选"), false, [kept, isTicked] {
                         auto *model = const_cast<QAbstractItemModel *>(kept.model());
                         if (kept.isValid())
                             model->setData(kept, isTicked ? Qt::Unchecked : Qt::Checked,
                                            Qt::CheckStateRole);
                     }});
}

} // namespace

void setRowActivation(QAbstractItemView *view, const QString &text)
{
    view->setProperty(activationProperty, text);
}

QVector<RowAction> rowActions(QAbstractItemView *view, const QModelIndex &index)
{
    QVector<RowAction> actions;
    if (!index.isValid())
        return actions;
    const QString activation = view->property(activationProperty).toString();
    if (!activation.isEmpty())
        actions.append({activation, false, [view] {
                            press(view, Qt::Key_Return);
                        }});
    if (auto *source = dynamic_cast<RowActionSource *>(view))
        actions += source->ownActions(index);
    const QModelIndexList cells = cellsOf(index);
    for (const QModelIndex &cell : cells) {
        addButtons(view, cell, &actions);
        addTick(cell, &actions);
    }
    actions.append({text("复制"), false, [view] {
                        QApplication::clipboard()->setText(copiedRows(view));
                    }});
    const auto mode = view->selectionMode();
    if (mode == QAbstractItemView::ExtendedSelection || mode == QAbstractItemView::MultiSelection)
        actions.append({text("全选"), false, [view] {
                            view->selectAll();
                        }});
    return actions;
}

void showRowMenu(QAbstractItemView *view, const QModelIndex &index, const QPoint &globalPosition)
{
    if (!index.isValid())
        return;
    view->setCurrentIndex(index);
    const QPointer<QAbstractItemView> self(view);
    const QVector<RowAction> actions = rowActions(view, index);
    QMenu menu;
    menu.setObjectName(QStringLiteral("RowMenu"));
    for (const RowAction &action : actions)
        menu.addAction(action.text);
    const QAction *chosen = menu.exec(globalPosition);
    const int place = menu.actions().indexOf(const_cast<QAction *>(chosen));
    if (self && place >= 0)
        actions.at(place).run();
}

bool runDangerousAction(QAbstractItemView *view, const QModelIndex &index)
{
    const QVector<RowAction> actions = rowActions(view, index);
    const auto found = std::find_if(actions.begin(), actions.end(),
                                    [](const RowAction &action) { return action.isDangerous; });
    if (found == actions.end())
        return false;
    found->run();
    return true;
}

QString copiedRows(const QAbstractItemView *view)
{
    QModelIndexList rows;
    QSet<QModelIndex> seen;
    const QModelIndexList selected =
        view->selectionModel() ? view->selectionModel()->selectedIndexes() : QModelIndexList();
    for (const QModelIndex &index : selected) {
        const QModelIndex row = index.sibling(index.row(), 0);
        if (!seen.contains(row)) {
            seen.insert(row);
            rows.append(row);
        }
    }
    if (rows.isEmpty() && view->currentIndex().isValid())
        rows.append(view->currentIndex());
    QStringList lines;
    for (const QModelIndex &row : qAsConst(rows))
        lines.append(rowText(row));
    return lines.join(QLatin1Char('\n'));
}

} // namespace ui::common
