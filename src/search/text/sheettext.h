#pragma once

namespace search::text {

class TextSink;
class ZipArchive;

/// Writes the sheets of an Office Open XML workbook, hidden ones too: their names, then row by row
/// shared and inline texts, numbers and results of formulas.
void readWorkbook(ZipArchive &archive, TextSink *sink);

} // namespace search::text
