#pragma once

#include <QByteArray>

namespace search::text {

class OleFile;
class TextSink;

/// Writes a binary Word document (6 and later): body, then notes, headers and footers, comments and
/// text boxes, with the results of fields. An encrypted document gives nothing.
void readDoc(OleFile &file, TextSink *sink);

} // namespace search::text
