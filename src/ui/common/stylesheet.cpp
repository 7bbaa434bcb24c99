#include "ui/common/resources.h"
#include "ui/common/sheetfamilies.h"
#include "ui/common/styletemplate.h"
#include "ui/common/theme.h"

#include <QFontDatabase>

namespace ui {
namespace common {

namespace {

ThemeColors colorsOf(ThemeType type)
{
    ThemeColors colors = type == ThemeType::dark ? ThemeColors::dark() : ThemeColors::light();
    colors.fontScale = ThemeColors::current().fontScale;
    return colors;
}

QString chromeSheet()
{
    return QStringLiteral(R"qss(
QWidget#CustomTitleBar { background: @titleBarBackground@;
    border-bottom: 1px solid @border@; }
QDialog QWidget#CustomTitleBar { border-bottom: none; }
QLabel#CustomTitleLabel { color: @titleBarText@; font-size: @13px@; background: transparent; }
QToolButton#WinCtlMin, QToolButton#WinCtlZoom, QToolButton#WinCtlClose {
    background: transparent;
    border: none;
    border-radius: 6px;
    min-width: 32px; max-width: 32px;
    min-height: 28px; max-height: 28px;
}
QToolButton#WinCtlMin:hover, QToolButton#WinCtlZoom:hover {
    background: @titleBarButtonHover@; }
QToolButton#WinCtlMin:pressed, QToolButton#WinCtlZoom:pressed {
    background: @selectionBackground@; }
QToolButton#WinCtlClose:hover { background: @titleBarCloseHover@; }
QToolButton#WinCtlClose:pressed { background: @dangerBorder@; }
)qss");
}

void setForAllGroups(QPalette *palette, QPalette::ColorRole role, const QColor &color)
{
    palette->setColor(QPalette::Active, role, color);
    palette->setColor(QPalette::Inactive, role, color);
    palette->setColor(QPalette::Disabled, role, color);
}

} // namespace

QString buildAppStyleSheet(ThemeType type)
{
    initResources();
    const ThemeColors colors = colorsOf(type);
    const QString sheet = baseSheet() + labelSheet() + surfaceSheet() + buttonSheet() +
                          inputSheet() + choiceSheet() + viewSheet() + scrollBarSheet() +
                          progressSheet() + popupSheet() + containerSheet() + sharedWidgetSheet();
    return fillStyleTemplate(sheet, colors) +
           colors.checkboxIndicatorStyle(QStringLiteral("QCheckBox")) +
           colors.checkboxIndicatorStyle(QStringLiteral("QAbstractItemView"));
}

QString buildWindowChromeStyleSheet(ThemeType type)
{
    initResources();
    return fillStyleTemplate(chromeSheet(), colorsOf(type));
}

QPalette buildPalette(ThemeType type)
{
    const ThemeColors colors = colorsOf(type);
    QPalette palette;
    setForAllGroups(&palette, QPalette::Window, colors.windowBackground);
    setForAllGroups(&palette, QPalette::WindowText, colors.textPrimary);
    setForAllGroups(&palette, QPalette::Base, colors.surface);
    setForAllGroups(&palette, QPalette::AlternateBase, colors.headerBackground);
    setForAllGroups(&palette, QPalette::ToolTipBase, colors.surfaceRaised);
    setForAllGroups(&palette, QPalette::ToolTipText, colors.textPrimary);
    setForAllGroups(&palette, QPalette::Text, colors.textPrimary);
    setForAllGroups(&palette, QPalette::Button, colors.surface);
    setForAllGroups(&palette, QPalette::ButtonText, colors.textPrimary);
    setForAllGroups(&palette, QPalette::BrightText, colors.textOnAccent);
    setForAllGroups(&palette, QPalette::Light, colors.surfaceRaised);
    setForAllGroups(&palette, QPalette::Midlight, colors.borderSubtle);
    setForAllGroups(&palette, QPalette::Mid, colors.border);
    setForAllGroups(&palette, QPalette::Dark, colors.border);
    setForAllGroups(&palette, QPalette::Highlight, colors.accentFill());
    setForAllGroups(&palette, QPalette::HighlightedText, colors.textOnAccent);
    setForAllGroups(&palette, QPalette::Link, colors.infoText);
    setForAllGroups(&palette, QPalette::LinkVisited, colors.infoText);
#if QT_VERSION >= QT_VERSION_CHECK(5, 12, 0)
    setForAllGroups(&palette, QPalette::PlaceholderText, colors.textMuted);
#endif
    palette.setColor(QPalette::Disabled, QPalette::WindowText, colors.textMuted);
    palette.setColor(QPalette::Disabled, QPalette::Text, colors.textMuted);
    palette.setColor(QPalette::Disabled, QPalette::ButtonText, colors.textMuted);
    return palette;
}

QStringList baseFontFamilies()
{
    return {QStringLiteral("Microsoft YaHei"), QStringLiteral("Noto Sans CJK SC"),
            QStringLiteral("Source Han Sans SC"), QStringLiteral("WenQuanYi Micro Hei"),
            QStringLiteral("sans-serif")};
}

QFont applicationFont()
{
    // The installed families don't change under a running program; asking them is slow.
    static const QString kFamily = [] {
        const QStringList installed = QFontDatabase().families();
        for (const QString &family : baseFontFamilies()) {
            if (installed.contains(family, Qt::CaseInsensitive))
                return family;
        }
        return baseFontFamilies().last();
    }();
    QFont font(kFamily);
    font.setPixelSize(ThemeColors::current().fontPx(13));
    return font;
}

} // namespace common
} // namespace ui
