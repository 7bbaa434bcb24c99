#pragma once

#include <QByteArray>
#include <QString>

namespace search::text {

/// The encoding of a text without a declaration, as a codec name; empty if the bytes are no text.
/// UTF-8 and UTF-16 are told by validity; GB18030, Big5, Shift-JIS and EUC-KR by the frequency of
/// the characters that they give, and GB18030 wins where two are equal. With `cut` the bytes end
/// at a limit, maybe inside a character.
QByteArray detectEncoding(const QByteArray &bytes, bool cut = false);

/// Decodes by `detectEncoding`, without a byte order mark. Bytes that are no text give nothing.
QString decodeText(const QByteArray &bytes, bool cut = false);

/// Decodes by a declared encoding, where supersets stand for what programs declare ("gb2312").
/// Without a known declaration, or where it garbles the text, as `decodeText`.
QString decodeDeclared(const QByteArray &bytes, const QByteArray &encoding);

/// The codec name of a Windows code page; empty if it is unknown.
QByteArray codePageName(int codePage);

} // namespace search::text
