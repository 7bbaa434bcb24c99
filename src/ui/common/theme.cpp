#include "ui/common/theme.h"

#include "ui/common/statuscolors.h"

#include <algorithm>
#include <cmath>

namespace ui {
namespace common {

namespace {

struct PaletteRow
{
    const char *name;
    QColor ThemeColors::*field;
    const char *dark;
    const char *light;
};

// The only place in the user interface with colour literals.
const PaletteRow kPalette[] = {
    {"windowBackground", &ThemeColors::windowBackground, "#0a1322", "#f0f2f5"},
    {"surface", &ThemeColors::surface, "#101f34", "#ffffff"},
    {"surfaceRaised", &ThemeColors::surfaceRaised, "#122238", "#ffffff"},
    {"inputBackground", &ThemeColors::inputBackground, "#0e1c2f", "#ffffff"},
    {"headerBackground", &ThemeColors::headerBackground, "#14263d", "#f8f9fb"},
    {"textPrimary", &ThemeColors::textPrimary, "#e6edf7", "#1f2937"},
    {"textMuted", &ThemeColors::textMuted, "#89a2c5", "#6b7280"},
    {"textOnAccent", &ThemeColors::textOnAccent, "#eef7ff", "#ffffff"},
    {"accent", &ThemeColors::accent, "#1f7ee8", "#2563eb"},
    {"accentHover", &ThemeColors::accentHover, "#2b92ff", "#3b82f6"},
    {"accentPressed", &ThemeColors::accentPressed, "#1970cf", "#1d4ed8"},
    {"border", &ThemeColors::border, "#203750", "#e5e7eb"},
    {"borderSubtle", &ThemeColors::borderSubtle, "#1e3551", "#f3f4f6"},
    {"gridLine", &ThemeColors::gridLine, "#1a3050", "#e5e7eb"},
    {"hoverBackground", &ThemeColors::hoverBackground, "#1a324f", "#f0f4ff"},
    {"selectionBackground", &ThemeColors::selectionBackground, "#153155", "#dbeafe"},
    {"activeNavBackground", &ThemeColors::activeNavBackground, "#173458", "#eff6ff"},
    {"titleBarBackground", &ThemeColors::titleBarBackground, "#101f34", "#ffffff"},
    {"titleBarText", &ThemeColors::titleBarText, "#9fb4cb", "#374151"},
    {"titleBarButtonHover", &ThemeColors::titleBarButtonHover, "#213a56", "#f3f4f6"},
    {"titleBarCloseHover", &ThemeColors::titleBarCloseHover, "#4a2d34", "#fee2e2"},
    {"successBackground", &ThemeColors::successBackground, "#0e392d", "#ecfdf5"},
    {"successText", &ThemeColors::successText, "#51e7b1", "#059669"},
    {"successBorder", &ThemeColors::successBorder, "#1d684f", "#a7f3d0"},
    {"warningBackground", &ThemeColors::warningBackground, "#3a2b10", "#fffbeb"},
    {"warningText", &ThemeColors::warningText, "#f3c768", "#d97706"},
    {"warningBorder", &ThemeColors::warningBorder, "#795824", "#fde68a"},
    {"dangerBackground", &ThemeColors::dangerBackground, "#3f1820", "#fef2f2"},
    {"dangerText", &ThemeColors::dangerText, "#ff7f8f", "#dc2626"},
    {"dangerBorder", &ThemeColors::dangerBorder, "#7f2937", "#fecaca"},
    {"infoBackground", &ThemeColors::infoBackground, "#11315a", "#eff6ff"},
    {"infoText", &ThemeColors::infoText, "#69b9ff", "#2563eb"},
    {"infoBorder", &ThemeColors::infoBorder, "#2a629e", "#bfdbfe"},
    {"highlightBackground", &ThemeColors::highlightBackground, "#2a4a0a", "#fef9c3"},
    {"highlightText", &ThemeColors::highlightText, "#a8ff60", "#92400e"},
};

constexpr double kMinFontScale = 0.85;
constexpr double kMaxFontScale = 1.6;

ThemeColors fromTable(ThemeType type)
{
    ThemeColors colors;
    for (const PaletteRow &row : kPalette)
        colors.*row.field = QColor(QLatin1String(type == ThemeType::dark ? row.dark : row.light));
    colors.type = type;
    return colors;
}

ThemeColors &currentPalette()
{
    static ThemeColors palette = ThemeColors::dark();
    return palette;
}

double linear(double channel)
{
    return channel <= 0.03928 ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
}

double luminance(const QColor &color)
{
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) +
           0.0722 * linear(color.blueF());
}

} // namespace

ThemeColors ThemeColors::dark()
{
    return fromTable(ThemeType::dark);
}

ThemeColors ThemeColors::light()
{
    return fromTable(ThemeType::light);
}

void ThemeColors::init(ThemeType type, double fontScale)
{
    ThemeColors &palette = currentPalette();
    palette = fromTable(type);
    palette.fontScale = fontScale;
}

const ThemeColors &ThemeColors::current()
{
    return currentPalette();
}

double ThemeColors::sanitizeFontScale(double scale)
{
    // Settings files can hold "nan", which no comparison would catch.
    if (std::isnan(scale))
        return 1.0;
    return std::min(std::max(scale, kMinFontScale), kMaxFontScale);
}

int ThemeColors::fontPx(int basePx) const
{
    return std::max(1, qRound(basePx * sanitizeFontScale(fontScale)));
}

QColor ThemeColors::byName(const QString &field) const
{
    for (const PaletteRow &row : kPalette) {
        if (field == QLatin1String(row.name))
            return this->*row.field;
    }
    return QColor();
}

double ThemeColors::contrast(const QColor &first, const QColor &second)
{
    const double a = luminance(first);
    const double b = luminance(second);
    return (std::max(a, b) + 0.05) / (std::min(a, b) + 0.05);
}

QColor ThemeColors::readable(const QColor &ink, const QColor &ground) const
{
    return contrast(ink, ground) >= kMinTextContrast ? ink : textPrimary;
}

QColor ThemeColors::accentFill() const
{
    return contrast(textOnAccent, accent) >= kMinTextContrast ? accent : accentPressed;
}

QString ThemeColors::checkboxIndicatorStyle(const QString &selector) const
{
    // The border of an empty box is what one looks for, so it takes a colour that stands out.
    static const QString kTemplate = QStringLiteral(R"(
%1::indicator { width: 16px; height: 16px; border: 1px solid %2; border-radius: 4px;
    background: %3; }
%1::indicator:hover { border-color: %4; }
%1::indicator:checked { background: %4; border-color: %4; image: url(:/img/checkmark.svg); }
%1::indicator:indeterminate { background: %4; border-color: %4; image: url(:/img/minus.svg); }
%1::indicator:disabled { background: %5; border-color: %6; }
%1::indicator:checked:disabled, %1::indicator:indeterminate:disabled { background: %2;
    border-color: %2; }
)");
    return kTemplate.arg(selector, textMuted.name(), inputBackground.name(), accent.name(),
                         headerBackground.name(), border.name());
}

QColor LegacyColors::partitionIconSelected()
{
    return QColor(0x66, 0xb6, 0xff);
}

QColor LegacyColors::partitionIcon()
{
    return QColor(0x8c, 0xa5, 0xc6);
}

QColor LegacyColors::usageLow()
{
    return QColor(0x16, 0xc7, 0x81);
}

QColor LegacyColors::usageMedium()
{
    return QColor(0x2e, 0x96, 0xff);
}

QColor LegacyColors::usageHigh()
{
    return QColor(0xe8, 0x5b, 0x62);
}

QColor LegacyColors::pauseIcon()
{
    return QColor(0xff, 0xcb, 0x7d);
}

QColor LegacyColors::resumeIcon()
{
    return QColor(0x7d, 0xff, 0xb0);
}

QColor LegacyColors::blockUnchanged()
{
    return QColor(0x6c, 0xe8, 0xba);
}

QColor LegacyColors::blockZeroed()
{
    return QColor(0xff, 0xcb, 0x7d);
}

QColor LegacyColors::blockChanged()
{
    return QColor(0xff, 0x8a, 0x95);
}

QColor LegacyColors::blockSelected()
{
    return QColor(Qt::white);
}

QColor LegacyColors::blockHovered()
{
    return QColor(255, 255, 255, 80);
}

QColor StatusColors::off()
{
    return QColor(0x66, 0x66, 0x66);
}

QColor StatusColors::good()
{
    return QColor(0x22, 0xc5, 0x5e);
}

QColor StatusColors::waiting()
{
    return QColor(0xf5, 0x9e, 0x0b);
}

QColor StatusColors::broken()
{
    return QColor(0xef, 0x44, 0x44);
}

} // namespace common
} // namespace ui
