#pragma once

#include <QByteArray>
#include <QPair>
#include <QString>
#include <QVector>

namespace samples {

using ZipEntries = QVector<QPair<QString, QByteArray>>;

enum class ZipMethod { Store, Deflate };

/// The checksum of zip, gzip and PNG.
quint32 crc32(const QByteArray &data);

/// A zip archive with UTF-8 names, entries in the given order.
QByteArray zipArchive(const ZipEntries &entries, ZipMethod method = ZipMethod::Store);

/// A text as UTF-16, little-endian, without a mark.
QByteArray utf16(const QString &text);

/// An OLE compound file with one stream. Streams are filled up with zeros to 4096 bytes, from where
/// on they live in ordinary sectors.
QByteArray oleFile(const QString &streamName, const QByteArray &stream);

/// An OLE compound file that holds the text as UTF-16, little-endian, and that no tool knows.
QByteArray oleDocument(const QString &text);

/// A PowerPoint 97 file with one slide, as far as its outline text goes.
QByteArray olePresentation(const QString &text);

/// A rich text document with the characters beyond ASCII as escapes.
QByteArray richText(const QString &text);

/// A one-page PDF with one line of text. Characters of the basic plane only.
QByteArray pdfDocument(const QString &text);

} // namespace samples
