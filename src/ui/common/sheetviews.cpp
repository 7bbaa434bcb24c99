#include "ui/common/sheetfamilies.h"

namespace ui {
namespace common {

namespace {

QString itemViews()
{
    return QStringLiteral(R"qss(
QTableView, QTreeView, QListView {
    background: @surface@;
    alternate-background-color: @headerBackground@;
    border: 1px solid @border@;
    border-radius: 8px;
    outline: 0;
    gridline-color: @gridLine@;
    selection-background-color: @selectionBackground@;
    selection-color: @textPrimary@;
}
QTableView:focus, QTreeView:focus, QListView:focus { border-color: @accent@; }
QTableView[frameless="true"], QTreeView[frameless="true"], QListView[frameless="true"] {
    border: none; border-radius: 0px; background: transparent; }
QTableView::item, QTreeView::item {
    border: none;
    border-bottom: 1px solid @gridLine@;
    padding: 0px 9px;
    color: @textPrimary@;
}
QTreeView::item { min-height: @rowInner@; padding: 0px 8px 0px 4px; }
QListView { padding: 4px; }
QListView::item { min-height: @rowControlInner@; padding: 0px 8px; border: none;
    border-radius: 6px; color: @textPrimary@; }
QTableView::item:hover, QTreeView::item:hover, QListView::item:hover {
    background: @hoverBackground@; }
QTableView::item:selected, QTreeView::item:selected, QListView::item:selected {
    background: @selectionBackground@; color: @textPrimary@; }
QTreeView::branch { background: transparent; border-image: none;
    border-bottom: 1px solid @gridLine@; }
QTreeView::branch:selected { background: @selectionBackground@; }
QTreeView::branch:has-children:closed { image: url(:/img/chevron-right.svg); }
QTreeView::branch:has-children:open { image: url(:/img/chevron-down.svg); }
)qss");
}

QString headers()
{
    return QStringLiteral(R"qss(
QHeaderView { background: @headerBackground@; border: none; }
QTableView QHeaderView, QTreeView QHeaderView { border-top-left-radius: 7px;
    border-top-right-radius: 7px; }
QHeaderView::section {
    background: @headerBackground@;
    color: @textMuted@;
    font-size: @12px@;
    font-weight: 400;
    border: none;
    border-bottom: 1px solid @border@;
    padding: 0px 12px;
    min-height: @headerInner@;
}
QHeaderView::section:hover { color: @textPrimary@; }
QHeaderView::section:first { border-top-left-radius: 7px; }
QHeaderView::section:last { border-top-right-radius: 7px; }
QHeaderView::section:only-one { border-top-left-radius: 7px; border-top-right-radius: 7px; }
QHeaderView::up-arrow { image: url(:/img/chevron-up.svg); width: 12px; height: 12px;
    subcontrol-position: center right; right: 8px; }
QHeaderView::down-arrow { image: url(:/img/chevron-down.svg); width: 12px; height: 12px;
    subcontrol-position: center right; right: 8px; }
QTableCornerButton::section { background: @headerBackground@; border: none; }
)qss");
}

} // namespace

QString viewSheet()
{
    return itemViews() + headers();
}

QString scrollBarSheet()
{
    return QStringLiteral(R"qss(
QAbstractScrollArea::corner { background: transparent; border: none; }
QScrollArea { background: transparent; border: none; }
QScrollArea > QWidget > QWidget { background: transparent; }
QScrollBar { background: transparent; border: none; }
QScrollBar:vertical { width: 10px; margin: 0px; }
QScrollBar:horizontal { height: 10px; margin: 0px; }
QScrollBar::handle { background: @scrollHandle@; border-radius: 3px; margin: 2px; }
QScrollBar::handle:hover, QScrollBar::handle:pressed { background: @textMuted@; }
QScrollBar::handle:vertical { min-height: 32px; }
QScrollBar::handle:horizontal { min-width: 32px; }
QScrollBar::add-line, QScrollBar::sub-line { width: 0px; height: 0px; border: none;
    background: none; }
QScrollBar::add-page, QScrollBar::sub-page { background: none; }
)qss");
}

QString progressSheet()
{
    return QStringLiteral(R"qss(
QProgressBar {
    background: @border@;
    border: none;
    border-radius: 4px;
    min-height: 8px;
    max-height: 8px;
    color: transparent;
}
QProgressBar::chunk { background: @accent@; border-radius: 4px; }
QProgressBar:indeterminate::chunk { width: 40px; }
QProgressBar[tone="success"]::chunk { background: @successText@; }
QProgressBar[tone="warning"]::chunk { background: @warningText@; }
QProgressBar[tone="danger"]::chunk { background: @dangerText@; }
)qss");
}

QString popupSheet()
{
    return QStringLiteral(R"qss(
QMenu { background: @surfaceRaised@; border: 1px solid @border@; padding: 4px; }
QMenu::item { background: transparent; color: @textPrimary@; padding: 8px 24px 8px 12px;
    border-radius: 6px; }
QMenu::item:selected { background: @selectionBackground@; }
QMenu::item:disabled { color: @textMuted@; background: transparent; }
QMenu::separator { height: 1px; background: @gridLine@; margin: 4px 8px; }
QMenu::icon { padding-left: 8px; }
QToolTip { background: @surfaceRaised@; color: @textPrimary@; border: 1px solid @border@;
    padding: 4px 8px; font-size: @12px@; }
)qss");
}

QString containerSheet()
{
    return QStringLiteral(R"qss(
QTabWidget::pane { border: 1px solid @border@; border-radius: 8px; background: @surface@;
    top: -1px; }
QTabBar { background: transparent; }
QTabBar::tab { background: transparent; color: @groundMuted@; border: none;
    border-bottom: 2px solid transparent; padding: 8px 16px; }
QTabBar::tab:hover { color: @textPrimary@; }
QTabBar::tab:selected { color: @linkText@; border-bottom-color: @accent@; font-weight: 600; }
QTabBar::tab:selected:focus { background: @activeNavBackground@; }
QTabBar::tab:disabled { color: @textMuted@; }
QGroupBox { background: @surface@; border: 1px solid @border@; border-radius: 12px;
    margin-top: @groupTop@; padding: 12px; }
QGroupBox::title { subcontrol-origin: margin; subcontrol-position: top left; left: 4px;
    padding: 0px 4px; color: @textPrimary@; }
QSplitter::handle { background: @gridLine@; }
QSplitter::handle:horizontal { width: 1px; }
QSplitter::handle:vertical { height: 1px; }
QStatusBar { background: @surface@; color: @textMuted@; }
)qss");
}

} // namespace common
} // namespace ui
