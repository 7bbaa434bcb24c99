#pragma once

#include <QByteArray>

namespace search::text {

class TextSink;

bool isRtf(const QByteArray &bytes);

/// Writes the text of a rich text document: characters by the code page of their font and as `\u`
/// escapes. Notes, headers and text boxes follow behind the body; what is no text is skipped.
void readRtf(const QByteArray &bytes, TextSink *sink);

} // namespace search::text
