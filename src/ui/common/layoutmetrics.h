#pragma once

namespace ui {
namespace common {
namespace metrics {

// The rhythm of pages, in logical pixels.
constexpr int kPageMargin = 24;
constexpr int kCardGap = 16;
constexpr int kCardPadding = 20;
constexpr int kDialogPadding = 24;
constexpr int kGroupGap = 24; ///< Between things that do not belong together.
constexpr int kFieldGap = 8;  ///< Label to field, and things that belong together.
constexpr int kButtonGap = 8; ///< Between the buttons of a row.
constexpr int kIconButton = 36;

/// Height of one line of the base font at `basePx` base pixels, in logical pixels.
int lineHeight(int basePx);

// Outer heights in logical pixels: the design's number, or more where the font scale asks for it.
// Text of any script fits without being clipped.

/// Inputs and buttons: 36.
int controlHeight();
/// Buttons in rows: 32.
int rowControlHeight();
/// Headers of tables and trees: 36.
int headerHeight();
/// Rows of tables and trees: 40.
int rowHeight();

} // namespace metrics
} // namespace common
} // namespace ui
