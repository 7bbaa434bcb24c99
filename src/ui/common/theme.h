#pragma once

#include <QColor>
#include <QPalette>
#include <QString>

namespace ui {
namespace common {

enum class ThemeType { dark = 0, light = 1 };

/// The palette of the product and the font scale, one for the whole process. Set once at start;
/// it never changes while the program runs. GUI thread only.
class ThemeColors
{
public:
    QColor windowBackground;
    QColor surface;
    QColor surfaceRaised;
    QColor inputBackground;
    QColor headerBackground;
    QColor textPrimary;
    QColor textMuted;
    QColor textOnAccent;
    QColor accent;
    QColor accentHover;
    QColor accentPressed;
    QColor border;
    QColor borderSubtle;
    QColor gridLine;
    QColor hoverBackground;
    QColor selectionBackground;
    QColor activeNavBackground;
    QColor titleBarBackground;
    QColor titleBarText;
    QColor titleBarButtonHover;
    QColor titleBarCloseHover;
    QColor successBackground;
    QColor successText;
    QColor successBorder;
    QColor warningBackground;
    QColor warningText;
    QColor warningBorder;
    QColor dangerBackground;
    QColor dangerText;
    QColor dangerBorder;
    QColor infoBackground;
    QColor infoText;
    QColor infoBorder;
    QColor highlightBackground;
    QColor highlightText;
    ThemeType type = ThemeType::light;
    double fontScale = 1.0;

    static ThemeColors dark();
    static ThemeColors light();

    /// Sets the palette and the scale of this process. Call once, before the first widget.
    static void init(ThemeType type, double fontScale);
    /// The palette of this process; dark before init().
    static const ThemeColors &current();

    /// Clamps to 0.85 … 1.6.
    static double sanitizeFontScale(double scale);
    /// Base pixels times the scale, at least 1. All text sizes pass through this.
    int fontPx(int basePx) const;
    /// Style sheet rules for the check box indicators of `selector`.
    QString checkboxIndicatorStyle(const QString &selector) const;
};

/// Application style sheet with the roles that all pages rely on (object names and the button
/// property `role`). Font sizes follow the scale of ThemeColors::current().
QString buildAppStyleSheet(ThemeType type);
/// Style sheet of the title bar and its window control buttons.
QString buildWindowChromeStyleSheet(ThemeType type);
QPalette buildPalette(ThemeType type);

} // namespace common
} // namespace ui
