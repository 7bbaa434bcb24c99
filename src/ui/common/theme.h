#pragma once

#include <QColor>
#include <QFont>
#include <QPalette>
#include <QString>
#include <QStringList>

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
    /// The colour field of that name; invalid for a name that is none.
    QColor byName(const QString &field) const;
    /// Contrast ratio of two opaque colours, 1 to 21.
    static double contrast(const QColor &first, const QColor &second);
    /// `ink` where it can be read on `ground` in body size, else textPrimary. Small text in a
    /// semantic colour goes through this: some pairs of the light palette are too pale for it.
    QColor readable(const QColor &ink, const QColor &ground) const;
    /// Ground on which textOnAccent can be read in body size: accent, or accentPressed where accent
    /// is too bright for it. What is filled with the accent and carries text uses this.
    QColor accentFill() const;
    /// Style sheet rules for the check box indicators of `selector`.
    QString checkboxIndicatorStyle(const QString &selector) const;

    /// What text needs on its ground.
    static constexpr double kMinTextContrast = 4.5;
};

/// Fixed colours of the recovery pages, which exist in the dark theme only.
struct LegacyColors
{
    // Partition cards: the icon, and the bar by how full the partition is.
    static QColor partitionIconSelected();
    static QColor partitionIcon();
    static QColor usageLow();
    static QColor usageMedium();
    static QColor usageHigh();
    // Icons of the button that halts and resumes a scan.
    static QColor pauseIcon();
    static QColor resumeIcon();
    // Block map: the states of a block, also used for shares of them, and the outlines of a cell.
    static QColor blockUnchanged();
    static QColor blockZeroed();
    static QColor blockChanged();
    static QColor blockSelected();
    static QColor blockHovered();
};

/// Application style sheet with the roles that all pages rely on (object names and the button
/// property `role`). Font sizes follow the scale of ThemeColors::current().
QString buildAppStyleSheet(ThemeType type);
/// Style sheet of the title bar and its window control buttons.
QString buildWindowChromeStyleSheet(ThemeType type);
QPalette buildPalette(ThemeType type);
/// Base font: the first installed family of the product's list, body size at the current scale.
QFont applicationFont();
/// Families of the base font in order of preference, for style sheets and QFont.
QStringList baseFontFamilies();

} // namespace common
} // namespace ui
