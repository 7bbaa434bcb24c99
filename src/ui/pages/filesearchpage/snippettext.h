#pragma once

#include <QString>

namespace ui {
namespace common {
class ThemeColors;
}
} // namespace ui

namespace filesearch {

/// Snippet of a result as rich text: its `<b>` marks become highlighted spans, and everything else
/// is shown as it stands in the file, markup included. Marks that don't pair up are plain text.
QString snippetToRichText(const QString &snippet, const ui::common::ThemeColors &colors);

/// "BM25: -3.21", or empty for a score of 0.
QString scoreText(double score);

/// A name or path for a tool tip: as plain as it is, and able to wrap. Empty stays empty.
QString toolTipText(const QString &text);

} // namespace filesearch
