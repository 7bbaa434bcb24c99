#pragma once

#include <QString>

namespace search::text {

class TextSink;

/// Writes the text of a zip-based document of whatever kind it is by its members: Office Open XML,
/// OpenDocument, OFD or EPUB. Of any other archive the names of its members are written.
void readZip(const QString &path, TextSink *sink);

} // namespace search::text
