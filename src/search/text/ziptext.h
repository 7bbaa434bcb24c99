#pragma once

#include <QString>

namespace search::text {

class TextSink;

/// Writes the text of a zip-based document of whatever kind it is by its members: Office Open XML,
/// OpenDocument, OFD or EPUB. Of any other archive the names of its members are written, unless it
/// `isDocument` by its suffix.
void readZip(const QString &path, bool isDocument, TextSink *sink);

} // namespace search::text
