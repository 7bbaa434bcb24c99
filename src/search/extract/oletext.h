#pragma once

#include <QByteArray>
#include <QString>

namespace search {

/// Most characters of text taken from one document.
constexpr int maxTextChars = 16384;

/// The first `maxTextChars` characters, one less rather than half a surrogate pair.
QString cutText(const QString &text);

/// True if the file starts as an OLE compound document (doc, xls, ppt and their WPS relatives).
bool isOleCompoundDocument(const QString &path);

/// True if a tool's output looks like text rather than leftovers of a failed conversion.
bool hasMeaningfulExtractedText(const QString &text);

/// The stricter test for slides, whose leftovers are longer.
bool hasMeaningfulSlideText(const QString &text);

/// True if a run of characters found in raw bytes looks like text.
bool isMeaningfulOleString(const QString &text);

/// Texts found in raw bytes as UTF-16, little-endian, at even and at odd offsets, one a line.
QString scanUtf16Text(const QByteArray &data);

/// `scanUtf16Text` of the first 2 MiB of a file.
QString extractOleUtf16Text(const QString &path);

} // namespace search
