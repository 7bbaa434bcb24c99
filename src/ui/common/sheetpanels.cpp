#include "ui/common/sheetfamilies.h"

namespace ui {
namespace common {

// Plain text colours come from the palette: a colour for every widget here would also paint the
// place holders of inputs like entered text.
QString baseSheet()
{
    return QStringLiteral(R"qss(
QWidget {
    font-family: @fontFamilies@;
    font-size: @13px@;
}
QMainWindow, QDialog, QWidget#MainWindowRoot, QWidget#RecoveryWorkflowWindow {
    background: @windowBackground@;
}
QLabel { background: transparent; border: none; }
QLabel[link="true"] { color: @linkText@; }
)qss");
}

// The property is not called `text`: that is a label's own, and setting it would change the words.
QString labelSheet()
{
    return QStringLiteral(R"qss(
QLabel#PageTitle, QLabel[textRole="page-title"] { font-size: @22px@; font-weight: 600; }
QLabel#SectionTitle, QLabel[textRole="section"] { font-size: @15px@; font-weight: 600; }
QLabel#LargeValue, QLabel[textRole="value"] { font-size: @26px@; font-weight: 600; }
QLabel[textRole="dialog-title"] { font-size: @16px@; font-weight: 600; }
QLabel#SubtleText, QLabel[textRole="subtle"] { font-size: @12px@; color: @groundMuted@; }
QFrame#SurfacePanel QLabel#SubtleText, QFrame[card="true"] QLabel#SubtleText,
QFrame#BottomToolbar QLabel#SubtleText, QFrame#PartitionCard QLabel#SubtleText,
QFrame#SurfacePanel QLabel[textRole="subtle"], QFrame[card="true"] QLabel[textRole="subtle"],
QFrame#DialogFrame QLabel[textRole="subtle"] { color: @textMuted@; }
QLabel#TagLabel {
    font-size: @12px@;
    color: @textPrimary@;
    background: @selectionBackground@;
    border: 1px solid @infoBorder@;
    border-radius: 6px;
    padding: 1px 8px;
}
QLabel[tone="error"] { color: @dangerTone@; }
QLabel[tone="success"] { color: @successInk@; }
QLabel[tone="warning"] { color: @warningInk@; }
)qss");
}

QString surfaceSheet()
{
    return QStringLiteral(R"qss(
QFrame#SurfacePanel, QFrame[card="true"], QFrame#FirstUseCard, QFrame#BuildProgressCard {
    background: @surface@;
    border: 1px solid @border@;
    border-radius: 12px;
}
QFrame#FirstUseCard { background: @infoBackground@; border-color: @infoBorder@; }
QFrame#BottomToolbar {
    background: @surface@;
    border: 1px solid @border@;
    border-radius: 12px;
}
QFrame#RightCard, QStackedWidget#MainPagesStack { background: transparent; border: none; }
QFrame#SidebarPanel, QWidget#SidebarPanel {
    background: @surface@;
    border: none;
    border-right: 1px solid @border@;
}
QFrame#PartitionCard {
    background: @surface@;
    border: 1px solid @border@;
    border-radius: 12px;
    padding: 1px;
}
QFrame#PartitionCard:hover { background: @hoverBackground@; border-color: @accentHover@; }
QFrame#PartitionCard[dashed="true"] { background: transparent; border-style: dashed;
    border-color: @textMuted@; }
QFrame#PartitionCard[selected="true"] {
    background: @selectionBackground@;
    border: 2px solid @accent@;
    padding: 0px;
}
QFrame#PartitionCard[dashed="true"] QLabel#SubtleText { color: @groundMuted@; }
QFrame#PartitionCard[selected="true"] QLabel#SubtleText { color: @textPrimary@; }
QFrame[dashed="true"] { border-style: dashed; }
QFrame[line="true"] { background: @gridLine@; border: none; max-height: 1px; min-height: 1px; }
)qss");
}

namespace {

QString dialogSheet()
{
    return QStringLiteral(R"qss(
/* Square, like the main window: round corners need a translucent window, and without a compositor,
   as on many recovery media, what should shine through is black. */
QFrame#DialogFrame { background: @surface@; border: 1px solid @border@; }
QFrame#DialogFrame[systemFrame="true"] { border: none; }
QLabel#NoticeTitle { font-size: @16px@; font-weight: 600; }
QLabel#NoticeIconWrap { border-radius: 22px; border: 1px solid @infoBorder@;
    background: @infoBackground@; }
QLabel#NoticeIconWrap[notice="success"] { border-color: @successBorder@;
    background: @successBackground@; }
QLabel#NoticeIconWrap[notice="warning"] { border-color: @warningBorder@;
    background: @warningBackground@; }
QLabel#NoticeIconWrap[notice="danger"] { border-color: @dangerBorder@;
    background: @dangerBackground@; }
QWidget#AppToolTip { background: @surfaceRaised@; border: 1px solid @border@;
    border-radius: 8px; }
QLabel#AppToolTipTitle { font-size: @13px@; font-weight: 600; }
QLabel#AppToolTipBody { font-size: @12px@; }
QLabel#EmptyStateTitle { font-size: @15px@; font-weight: 600; }
QLabel#EmptyStateHint { font-size: @13px@; color: @groundMuted@; }
)qss");
}

QString pillSheet()
{
    return QStringLiteral(R"qss(
QLabel#StatTitle { font-size: @12px@; color: @textMuted@; }
QFrame[pill] { border: 1px solid @infoBorder@; border-radius: @pillRadius@;
    background: @infoBackground@; }
QFrame[pill="success"] { border-color: @successBorder@; background: @successBackground@; }
QFrame[pill="warning"] { border-color: @warningBorder@; background: @warningBackground@; }
QFrame[pill="danger"] { border-color: @dangerBorder@; background: @dangerBackground@; }
QFrame[pill] QLabel { font-size: @12px@; color: @infoInk@; }
QFrame[pill="success"] QLabel { color: @successInk@; }
QFrame[pill="warning"] QLabel { color: @warningInk@; }
QFrame[pill="danger"] QLabel { color: @dangerInk@; }
QFrame[pill] QLabel#StatusPillDot { border-radius: 4px; background: @infoText@; }
QFrame[pill="success"] QLabel#StatusPillDot { background: @successText@; }
QFrame[pill="warning"] QLabel#StatusPillDot { background: @warningText@; }
QFrame[pill="danger"] QLabel#StatusPillDot { background: @dangerText@; }

)qss");
}

QString compositeInputSheet()
{
    return QStringLiteral(R"qss(
QFrame#SegmentedToggle { background: @headerBackground@; border: 1px solid @border@;
    border-radius: 8px; }
QFrame#SegmentedToggle QPushButton {
    background: transparent;
    border: 1px solid transparent;
    border-radius: 6px;
    color: @textPrimary@;
    padding: 0px 10px;
    min-height: @segmentInner@;
}
QFrame#SegmentedToggle QPushButton:vertical { min-width: 0px; }
QFrame#SegmentedToggle QPushButton:hover { background: @hoverBackground@; }
QFrame#SegmentedToggle QPushButton:checked { background: @accentFill@; color: @textOnAccent@;
    font-weight: 600; }
QFrame#SegmentedToggle QPushButton:focus { border-color: @accentHover@; }
QFrame#SegmentedToggle QPushButton:disabled { color: @textMuted@; }
QFrame#SegmentedToggle QPushButton:checked:disabled { background: @border@; color: @textPrimary@; }

QFrame#KeywordTagInput { background: @inputBackground@; border: 1px solid @border@;
    border-radius: 8px; padding: 1px; }
QFrame#KeywordTagInput[focused="true"] { border: 2px solid @accent@; padding: 0px; }
QFrame#KeywordTagInput QLineEdit { border: none; background: transparent; padding: 0px 4px;
    min-height: @rowControlInner@; }
QFrame#KeywordTagChip { background: @selectionBackground@; border: 1px solid @infoBorder@;
    border-radius: 6px; }
QFrame#KeywordTagChip QPushButton { background: transparent; border: none; min-height: 0px;
    padding: 0px 4px; color: @textPrimary@; }
QFrame#KeywordTagChip QPushButton:vertical { min-width: 0px; }
QFrame#KeywordTagChip QPushButton:hover { color: @dangerText@; }
)qss");
}

} // namespace

QString sharedWidgetSheet()
{
    return dialogSheet() + pillSheet() + compositeInputSheet();
}

} // namespace common
} // namespace ui
