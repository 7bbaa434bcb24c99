#include "ui/common/sheetfamilies.h"

namespace ui {
namespace common {

namespace {

// A least width stands under ":vertical", which holds for every push button when it is asked for
// its size but not when the sheet is applied: there a least width would become the widget's own
// minimum, and a crowded layout could cut off the text down to it.
QString plainButtons()
{
    return QStringLiteral(R"qss(
QPushButton {
    background: @surface@;
    color: @textPrimary@;
    border: 1px solid @border@;
    border-radius: 8px;
    padding: 0px 16px;
    min-height: @controlInner@;
}
QPushButton:vertical { min-width: 54px; }
QPushButton:hover { background: @hoverBackground@; border-color: @accentHover@; }
QPushButton:focus { border-color: @accent@; }
QPushButton:pressed { background: @selectionBackground@; border-color: @accent@; }
QPushButton:disabled { background: @headerBackground@; color: @textMuted@;
    border-color: @borderSubtle@; }
QPushButton[compact="true"] { min-height: @rowControlInner@; padding: 0px 12px; }
)qss");
}

QString quietButtons()
{
    return QStringLiteral(R"qss(
QPushButton[role="quiet"], QPushButton[role="quiet-danger"] {
    background: transparent;
    border: 1px solid transparent;
    color: @linkText@;
    padding: 0px 8px;
    min-height: @rowControlInner@;
}
QPushButton[role="quiet"]:vertical, QPushButton[role="quiet-danger"]:vertical { min-width: 0px; }
QPushButton[role="quiet-danger"] { color: @dangerText@; }
QPushButton[role="quiet"]:hover { background: @activeNavBackground@; }
QPushButton[role="quiet-danger"]:hover { background: @dangerText@; color: @surface@; }
QPushButton[role="quiet"]:focus { border-color: @accent@; }
QPushButton[role="quiet-danger"]:focus { border-color: @dangerText@; }
QPushButton[role="quiet"]:pressed { background: @selectionBackground@; color: @textPrimary@; }
QPushButton[role="quiet"]:disabled, QPushButton[role="quiet-danger"]:disabled {
    background: transparent; color: @textMuted@; border-color: transparent; }

QPushButton[role="icon"], QToolButton {
    background: transparent;
    border: 1px solid transparent;
    border-radius: 8px;
    padding: 0px;
    min-width: 34px;
    max-width: 34px;
    min-height: 34px;
    max-height: 34px;
}
QPushButton[role="icon"]:vertical { min-width: 34px; }
QPushButton[role="icon"]:hover, QToolButton:hover { background: @hoverBackground@;
    border-color: @border@; }
QPushButton[role="icon"]:focus, QToolButton:focus { border-color: @accent@; }
QPushButton[role="icon"]:pressed, QToolButton:pressed { background: @selectionBackground@; }
QPushButton[role="icon"]:disabled, QToolButton:disabled { background: transparent; }
)qss");
}

QString filledButtons()
{
    return QStringLiteral(R"qss(
QPushButton[role="primary"], QPushButton#PrimaryActionButton {
    background: @accentFill@;
    color: @textOnAccent@;
    border: 1px solid @accentFill@;
    font-weight: 600;
}
QPushButton[role="primary"]:hover, QPushButton#PrimaryActionButton:hover {
    background: @accentFillHover@; border-color: @accentHover@; }
QPushButton[role="primary"]:focus, QPushButton#PrimaryActionButton:focus {
    border-color: @textPrimary@; }
QPushButton[role="primary"]:pressed, QPushButton#PrimaryActionButton:pressed {
    background: @accentPressed@; border-color: @accentPressed@; padding-top: 2px; }
QPushButton[role="primary"]:disabled, QPushButton#PrimaryActionButton:disabled {
    background: @headerBackground@; color: @textMuted@; border-color: @border@; }

QPushButton[role="danger"] { background: @surface@; color: @dangerText@;
    border-color: @dangerText@; }
QPushButton[role="danger"]:hover, QPushButton[role="danger"]:pressed {
    background: @dangerText@; color: @surface@; }
QPushButton[role="danger"]:pressed { padding-top: 2px; }
QPushButton[role="danger"]:focus { border-width: 2px; padding: 0px 15px;
    min-height: @controlInnerFocus@; }
QPushButton[role="danger"]:disabled { background: @headerBackground@; color: @textMuted@;
    border-color: @dangerBorder@; }

QPushButton[role="warning"] { background: @warningBackground@; color: @warningInk@;
    border-color: @warningText@; }
QPushButton[role="warning"]:hover { background: @warningBorder@; color: @textPrimary@; }
QPushButton[role="warning"]:pressed { background: @warningBorder@; color: @textPrimary@;
    padding-top: 2px; }
QPushButton[role="warning"]:disabled { background: @headerBackground@; color: @textMuted@;
    border-color: @warningBorder@; }

QPushButton[role="success"] { background: @successBackground@; color: @successInk@;
    border-color: @successText@; }
QPushButton[role="success"]:hover { background: @successBorder@; color: @textPrimary@; }
QPushButton[role="success"]:pressed { background: @successBorder@; color: @textPrimary@;
    padding-top: 2px; }
QPushButton[role="success"]:disabled { background: @headerBackground@; color: @textMuted@;
    border-color: @successBorder@; }

QPushButton[role="nav-active"] { background: @activeNavBackground@; color: @linkText@;
    border-color: @infoBorder@; font-weight: 600; }
QPushButton[role="nav-active"]:hover { background: @hoverBackground@; }
QPushButton[role="nav-active"]:disabled { background: @headerBackground@; color: @textMuted@;
    border-color: @borderSubtle@; }
)qss");
}

} // namespace

QString buttonSheet()
{
    return plainButtons() + quietButtons() + filledButtons();
}

namespace {

QString textInputs()
{
    return QStringLiteral(R"qss(
QLineEdit, QAbstractSpinBox, QComboBox {
    background: @inputBackground@;
    border: 1px solid @border@;
    border-radius: 8px;
    padding: 0px 11px;
    min-height: @controlInner@;
    selection-background-color: @accentFill@;
    selection-color: @textOnAccent@;
}
QLineEdit:hover, QAbstractSpinBox:hover, QComboBox:hover, QPlainTextEdit:hover, QTextEdit:hover {
    border-color: @textMuted@; }
QLineEdit:focus, QAbstractSpinBox:focus, QComboBox:focus, QComboBox:on {
    border: 2px solid @accent@; padding: 0px 10px; min-height: @controlInnerFocus@; }
QLineEdit:read-only { background: @headerBackground@; }
/* The input places its own small buttons and icons; a least size would push them out of line. */
QLineEdit QToolButton { min-width: 0px; min-height: 0px; border: none; background: transparent; }
QLineEdit:disabled, QAbstractSpinBox:disabled, QComboBox:disabled, QPlainTextEdit:disabled,
QTextEdit:disabled { background: @headerBackground@; color: @textMuted@;
    border-color: @borderSubtle@; }
QPlainTextEdit, QTextEdit, QTextBrowser {
    background: @inputBackground@;
    border: 1px solid @border@;
    border-radius: 8px;
    padding: 8px;
    selection-background-color: @accentFill@;
    selection-color: @textOnAccent@;
}
QPlainTextEdit:focus, QTextEdit:focus { border: 2px solid @accent@; padding: 7px; }
)qss");
}

QString comboBoxes()
{
    return QStringLiteral(R"qss(
QComboBox { padding-right: 4px; }
QComboBox:focus, QComboBox:on { padding-right: 3px; }
QComboBox::drop-down { subcontrol-origin: padding; subcontrol-position: center right;
    width: 28px; border: none; }
QComboBox::down-arrow { image: url(:/img/chevron-down.svg); width: 16px; height: 16px; }
QComboBox QAbstractItemView {
    background: @surfaceRaised@;
    border: 1px solid @border@;
    border-radius: 0px;
    padding: 4px;
    outline: 0;
    selection-background-color: @selectionBackground@;
    selection-color: @textPrimary@;
}
QComboBox QAbstractItemView::item { min-height: @rowControlInner@; padding: 0px 8px;
    border-radius: 6px; border: none; }
QComboBox QAbstractItemView::item:hover, QComboBox QAbstractItemView::item:selected {
    background: @selectionBackground@; color: @textPrimary@; }
)qss");
}

QString spinBoxes()
{
    return QStringLiteral(R"qss(
QAbstractSpinBox { padding-right: 0px; }
QAbstractSpinBox:focus { padding-right: 0px; }
QAbstractSpinBox::up-button, QAbstractSpinBox::down-button { subcontrol-origin: padding;
    width: 24px; border: none; background: transparent; }
QAbstractSpinBox::up-button { subcontrol-position: top right; border-top-right-radius: 6px; }
QAbstractSpinBox::down-button { subcontrol-position: bottom right;
    border-bottom-right-radius: 6px; }
QAbstractSpinBox::up-button:hover, QAbstractSpinBox::down-button:hover {
    background: @hoverBackground@; }
QAbstractSpinBox::up-arrow { image: url(:/img/chevron-up.svg); width: 10px; height: 10px; }
QAbstractSpinBox::down-arrow { image: url(:/img/chevron-down.svg); width: 10px; height: 10px; }
)qss");
}

} // namespace

QString inputSheet()
{
    return textInputs() + comboBoxes() + spinBoxes();
}

QString choiceSheet()
{
    return QStringLiteral(R"qss(
QCheckBox, QRadioButton { spacing: 8px; background: transparent; min-height: 20px; }
QRadioButton::indicator { width: 16px; height: 16px; border: 1px solid @textMuted@;
    border-radius: 9px; background: @inputBackground@; }
QRadioButton::indicator:hover { border-color: @accent@; }
QRadioButton::indicator:checked { background: @accent@; border-color: @accent@;
    image: url(:/img/dot.svg); }
QRadioButton::indicator:disabled { background: @headerBackground@; border-color: @border@; }
QRadioButton::indicator:checked:disabled { background: @textMuted@; border-color: @textMuted@; }
QCheckBox:focus, QRadioButton:focus { color: @linkText@; }
QSlider::groove:horizontal { height: 4px; border-radius: 2px; background: @border@; }
QSlider::sub-page:horizontal { background: @accent@; border-radius: 2px; }
QSlider::handle:horizontal { width: 16px; margin: -6px 0px; border-radius: 8px;
    background: @accent@; }
)qss");
}

} // namespace common
} // namespace ui
