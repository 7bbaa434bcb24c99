#pragma once

#include <QFont>

namespace ui {
namespace common {

/// The base font at `basePx` base pixels, scaled, for what is painted or measured by hand; labels
/// take theirs from the style sheet.
QFont textFont(int basePx, QFont::Weight weight = QFont::Normal);

} // namespace common
} // namespace ui
