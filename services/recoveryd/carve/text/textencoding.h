#pragma once

#include <QtGlobal>

namespace services::recoveryd {

/// How a stretch of text is encoded. Ascii fits every encoding but UTF-16.
enum class TextEncoding : quint8 { None, Ascii, Utf8, Utf16Le, Utf16Be, Gb18030 };

/// The encoding that all of the bytes fit, or None if they are no text. The stretch may begin and
/// end inside a character. Needs about 64 bytes to be sure of anything but ASCII. Pure, linear.
TextEncoding encodingOf(const uchar *bytes, qint64 length);

/// Whether a text in `encoding` may go on with these bytes.
bool fits(TextEncoding encoding, const uchar *bytes, qint64 length);

/// The share of bytes that no text in any 8-bit encoding has, 0 to 1.
double controlShare(const uchar *bytes, qint64 length);

} // namespace services::recoveryd
