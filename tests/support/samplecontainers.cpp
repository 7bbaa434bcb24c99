#include "support/samplecontainers.h"

#include <array>

namespace samples {

namespace {

void put16(QByteArray *out, int value)
{
    out->append(static_cast<char>(value & 0xFF));
    out->append(static_cast<char>(value >> 8 & 0xFF));
}

void put32(QByteArray *out, quint32 value)
{
    put16(out, static_cast<int>(value & 0xFFFF));
    put16(out, static_cast<int>(value >> 16));
}

/// qCompress() puts four bytes of length and a zlib header of two in front, a checksum behind.
QByteArray deflated(const QByteArray &data)
{
    const QByteArray zlib = qCompress(data);
    return zlib.mid(6, zlib.size() - 10);
}

constexpr int sectorBytes = 512;
constexpr int idsPerSector = sectorBytes / 4;
constexpr quint32 freeSector = 0xFFFFFFFF;
constexpr quint32 endOfChain = 0xFFFFFFFE;
constexpr quint32 fatSector = 0xFFFFFFFD;

/// The header of an OLE file whose allocation table fills the first `fatSectors` sectors and whose
/// directory follows it.
QByteArray oleHeader(int fatSectors)
{
    QByteArray header = QByteArray::fromHex("D0CF11E0A1B11AE1") + QByteArray(16, '\0');
    put16(&header, 0x3E);   // minor version
    put16(&header, 3);      // version 3: sectors of 512 bytes
    put16(&header, 0xFFFE); // little-endian
    put16(&header, 9);      // sector size, as a power of two
    put16(&header, 6);      // mini sector size, likewise
    header.append(QByteArray(10, '\0'));
    put32(&header, static_cast<quint32>(fatSectors));
    put32(&header, static_cast<quint32>(fatSectors)); // the directory's first sector
    put32(&header, 0);
    put32(&header, 4096);       // smaller streams would be mini streams
    put32(&header, endOfChain); // no mini allocation table
    put32(&header, 0);
    put32(&header, endOfChain); // no further table of tables
    put32(&header, 0);
    for (int i = 0; i < 109; ++i)
        put32(&header, i < fatSectors ? static_cast<quint32>(i) : freeSector);
    return header;
}

QByteArray oleDirectoryEntry(const QString &name, int type, quint32 child, quint32 firstSector,
                             int size)
{
    QByteArray entry = utf16(name).left(62);
    const int nameBytes = name.isEmpty() ? 0 : entry.size() + 2;
    entry.append(QByteArray(64 - entry.size(), '\0'));
    put16(&entry, nameBytes);
    entry.append(static_cast<char>(type));
    entry.append('\1'); // black, the root of its tree
    put32(&entry, freeSector);
    put32(&entry, freeSector);
    put32(&entry, child);
    entry.append(QByteArray(36, '\0')); // class, flags and times
    put32(&entry, firstSector);
    put32(&entry, static_cast<quint32>(size));
    put32(&entry, 0);
    return entry;
}

QByteArray pptRecord(int type, bool container, const QByteArray &body)
{
    QByteArray record;
    put16(&record, container ? 0xF : 0);
    put16(&record, type);
    put32(&record, static_cast<quint32>(body.size()));
    return record + body;
}

QByteArray hex16(QChar c)
{
    return QByteArray::number(c.unicode(), 16).rightJustified(4, '0').toUpper();
}

QByteArray pdfStream(const QByteArray &body)
{
    return "<< /Length " + QByteArray::number(body.size()) + " >>\nstream\n" + body + "\nendstream";
}

/// Tells the reader which characters the glyph numbers stand for.
QByteArray pdfUnicodeMap(const QString &text)
{
    QByteArray map = "/CIDInit /ProcSet findresource begin\n12 dict begin\nbegincmap\n"
                     "/CMapName /Sample def\n/CMapType 2 def\n"
                     "1 begincodespacerange\n<0000> <FFFF>\nendcodespacerange\n";
    for (const QChar c : text)
        map += "1 beginbfchar\n<" + hex16(c) + "> <" + hex16(c) + ">\nendbfchar\n";
    return map + "endcmap\nend\nend";
}

} // namespace

quint32 crc32(const QByteArray &data)
{
    static const std::array<quint32, 256> table = [] {
        std::array<quint32, 256> t{};
        for (quint32 i = 0; i < 256; ++i) {
            t[i] = i;
            for (int bit = 0; bit < 8; ++bit)
                t[i] = t[i] & 1 ? t[i] >> 1 ^ 0xEDB88320U : t[i] >> 1;
        }
        return t;
    }();
    quint32 crc = 0xFFFFFFFFU;
    for (const char c : data)
        crc = crc >> 8 ^ table[(crc ^ static_cast<uchar>(c)) & 0xFF];
    return ~crc;
}

QByteArray utf16(const QString &text)
{
    QByteArray bytes;
    for (const QChar c : text)
        put16(&bytes, c.unicode());
    return bytes;
}

QByteArray zipArchive(const ZipEntries &entries, ZipMethod method)
{
    QByteArray archive;
    QByteArray directory;
    for (const auto &entry : entries) {
        const QByteArray name = entry.first.toUtf8();
        const QByteArray data = method == ZipMethod::Store ? entry.second : deflated(entry.second);
        QByteArray common;
        put16(&common, 20);     // version needed
        put16(&common, 0x0800); // names in UTF-8
        put16(&common, method == ZipMethod::Store ? 0 : 8);
        put32(&common, 0x58210000U); // noon of some day
        put32(&common, crc32(entry.second));
        put32(&common, static_cast<quint32>(data.size()));
        put32(&common, static_cast<quint32>(entry.second.size()));
        put16(&common, name.size());
        put16(&common, 0);

        put32(&directory, 0x02014B50);
        put16(&directory, 0x0314); // made on Unix
        directory += common;
        put16(&directory, 0);
        put16(&directory, 0);
        put16(&directory, 0);
        put32(&directory, 0100644U << 16); // a regular file
        put32(&directory, static_cast<quint32>(archive.size()));
        directory += name;

        put32(&archive, 0x04034B50);
        archive += common + name + data;
    }
    const auto directoryStart = static_cast<quint32>(archive.size());
    archive += directory;
    put32(&archive, 0x06054B50);
    put32(&archive, 0);
    put16(&archive, entries.size());
    put16(&archive, entries.size());
    put32(&archive, static_cast<quint32>(directory.size()));
    put32(&archive, directoryStart);
    put16(&archive, 0);
    return archive;
}

QByteArray oleFile(const QString &streamName, const QByteArray &stream)
{
    const int size = qMax(stream.size(), 4096);
    const int streamSectors = (size + sectorBytes - 1) / sectorBytes;
    int fatSectors = 1;
    while (fatSectors * idsPerSector < fatSectors + 1 + streamSectors)
        ++fatSectors;

    QByteArray fat;
    for (int i = 0; i < fatSectors; ++i)
        put32(&fat, fatSector);
    put32(&fat, endOfChain); // the directory
    const int firstSector = fatSectors + 1;
    for (int i = 1; i < streamSectors; ++i)
        put32(&fat, static_cast<quint32>(firstSector + i));
    put32(&fat, endOfChain);
    fat.append(QByteArray(fatSectors * sectorBytes - fat.size(), '\xFF'));

    QByteArray file = oleHeader(fatSectors) + fat;
    file += oleDirectoryEntry(QStringLiteral("Root Entry"), 5, 1, endOfChain, 0);
    file += oleDirectoryEntry(streamName, 2, freeSector, static_cast<quint32>(firstSector), size);
    for (int unused = 0; unused < 2; ++unused)
        file += oleDirectoryEntry(QString(), 0, freeSector, 0, 0);
    file += stream;
    file.append(QByteArray((firstSector + 1 + streamSectors) * sectorBytes - file.size(), '\0'));
    return file;
}

QByteArray oleDocument(const QString &text)
{
    return oleFile(QStringLiteral("Contents"), QByteArray(16, '\0') + utf16(text));
}

QByteArray olePresentation(const QString &text)
{
    const QByteArray chars = pptRecord(4000, false, utf16(text));
    const QByteArray outline = pptRecord(4080, true, chars);
    return oleFile(QStringLiteral("PowerPoint Document"), pptRecord(1000, true, outline));
}

QByteArray richText(const QString &text)
{
    QByteArray body;
    for (const QChar c : text) {
        if (c.unicode() < 0x80)
            body += c.toLatin1();
        else
            body += "\\u" + QByteArray::number(static_cast<qint16>(c.unicode())) + '?';
    }
    return "{\\rtf1\\ansi\\deff0{\\fonttbl{\\f0 SimSun;}}\\f0\\fs24 " + body + "\\par}";
}

QByteArray pdfDocument(const QString &text)
{
    QByteArray glyphs;
    for (const QChar c : text)
        glyphs += hex16(c);
    const QVector<QByteArray> objects{
        "<< /Type /Catalog /Pages 2 0 R >>",
        "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
        "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 595 842] /Contents 4 0 R "
        "/Resources << /Font << /F1 5 0 R >> >> >>",
        pdfStream("BT /F1 12 Tf 40 780 Td <" + glyphs + "> Tj ET"),
        "<< /Type /Font /Subtype /Type0 /BaseFont /SimSun /Encoding /Identity-H "
        "/DescendantFonts [6 0 R] /ToUnicode 8 0 R >>",
        "<< /Type /Font /Subtype /CIDFontType2 /BaseFont /SimSun /CIDSystemInfo "
        "<< /Registry (Adobe) /Ordering (Identity) /Supplement 0 >> /DW 600 "
        "/FontDescriptor 7 0 R >>",
        "<< /Type /FontDescriptor /FontName /SimSun /Flags 4 /FontBBox [0 -140 1000 860] "
        "/ItalicAngle 0 /Ascent 860 /Descent -140 /CapHeight 700 /StemV 80 >>",
        pdfStream(pdfUnicodeMap(text))};

    QByteArray file = "%PDF-1.4\n";
    QByteArray table = "0000000000 65535 f \n";
    for (int i = 0; i < objects.size(); ++i) {
        table += QByteArray::number(file.size()).rightJustified(10, '0') + " 00000 n \n";
        file += QByteArray::number(i + 1) + " 0 obj\n" + objects.at(i) + "\nendobj\n";
    }
    const QByteArray count = QByteArray::number(objects.size() + 1);
    const QByteArray tableStart = QByteArray::number(file.size());
    return file + "xref\n0 " + count + '\n' + table + "trailer\n<< /Size " + count +
           " /Root 1 0 R >>\nstartxref\n" + tableStart + "\n%%EOF\n";
}

} // namespace samples
