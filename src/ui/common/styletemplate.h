#pragma once

#include <QColor>
#include <QString>

namespace ui {
namespace common {

class ThemeColors;

/// Fills the markers of a style sheet, so that sheets read as plain text:
///   `@accent@`     a colour field of ThemeColors, by its name;
///   `@13px@`       a text size of 13 base pixels at the current font scale;
///   `@controlInner@`, `@rowControlInner@`, `@headerInner@`, `@rowInner@`
///                  heights of layoutmetrics.h less a border of 1 on both sides;
///   `@controlInnerFocus@` the same for a border of 2;
///   `@fontFamilies@` the base font list;
///   `@accentFill@`, `@accentFillHover@` grounds on which textOnAccent can be read;
///   `@linkText@`   accent-coloured text;
///   `@groundMuted@` muted text that stands on windowBackground;
///   `@successInk@`, `@warningInk@`, `@dangerInk@`, `@infoInk@`
///                  small text on the semantic background of that name.
/// and a few sizes of the application sheet's own. An unknown marker is reported in the log and
/// stays.
QString fillStyleTemplate(const QString &sheet, const ThemeColors &colors);
/// The same with the palette of this process.
QString fillStyleTemplate(const QString &sheet);

/// `semanticText` where small text in every semantic colour can be read on its own ground,
/// otherwise textPrimary for all of them: pills side by side look of one kind, and painted ones
/// like widgets.
QColor semanticInk(const ThemeColors &colors, const QColor &semanticText);

} // namespace common
} // namespace ui
