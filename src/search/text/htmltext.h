#pragma once

#include <QByteArray>

namespace search::text {

class TextSink;

/// Writes what a reader of a page sees: not scripts, styles and comments; blocks part, tags inside
/// a line do not. `encoding` is what the surroundings declare; a mark or a meta element in the page
/// itself comes first.
void readHtml(const QByteArray &bytes, const QByteArray &encoding, TextSink *sink);

} // namespace search::text
