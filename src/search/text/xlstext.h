#pragma once

#include <QByteArray>

namespace search::text {

class TextSink;

/// Writes a binary workbook (BIFF5 or BIFF8) as its sheets show it, hidden ones too: names, cells
/// row by row, then text boxes, comments, chart titles, headers and footers. An encrypted workbook
/// gives nothing.
void readXls(const QByteArray &stream, TextSink *sink);

} // namespace search::text
