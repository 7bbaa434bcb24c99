#include "sampleformats.h"

#include "support/diskimages.h"
#include "support/samplecontainers.h"

#include <QtEndian>

#include <bzlib.h>
#include <cstring>
#include <lzma.h>
#include <zlib.h>
#include <zstd.h>

namespace sampleformats {

namespace {

using diskimages::noise;

template <typename T>
QByteArray little(quint64 value)
{
    QByteArray bytes(int(sizeof(T)), '\0');
    qToLittleEndian(T(value), bytes.data());
    return bytes;
}

template <typename T>
QByteArray big(quint64 value)
{
    QByteArray bytes(int(sizeof(T)), '\0');
    qToBigEndian(T(value), bytes.data());
    return bytes;
}

QByteArray le32(quint64 value)
{
    return little<quint32>(value);
}
QByteArray le16(quint64 value)
{
    return little<quint16>(value);
}
QByteArray be32(quint64 value)
{
    return big<quint32>(value);
}
QByteArray be16(quint64 value)
{
    return big<quint16>(value);
}

/// Does not begin or end any file, and has no zero at its end.
QByteArray body(int length)
{
    return noise(length - 1, quint32(length)) + '\x55';
}

QByteArray box(const char *type, const QByteArray &content)
{
    return be32(quint64(content.size()) + 8) + type + content;
}

QByteArray boxes(const char *brand)
{
    return box("ftyp", QByteArray(brand) + be32(512) + brand) + box("mdat", body(3000)) +
           box("moov", body(600));
}

QByteArray riffChunk(const char *type, const QByteArray &content)
{
    return type + le32(quint64(content.size())) + content;
}

QByteArray riff(const char *form, const QByteArray &chunks)
{
    return "RIFF" + le32(quint64(chunks.size()) + 4) + form + chunks;
}

QByteArray bmp()
{
    return "BM" + le32(54 + 32 * 32 * 4) + le32(0) + le32(54) + le32(40) + le32(32) + le32(32) +
           le16(1) + le16(32) + QByteArray(24, '\0') + body(32 * 32 * 4);
}

/// One strip, behind the directory.
QByteArray tiff(const QByteArray &make, bool hasSubDirectory)
{
    const auto entry = [](int tag, int type, quint64 count, quint64 value) {
        return le16(quint64(tag)) + le16(quint64(type)) + le32(count) + le32(value);
    };
    QByteArray entries;
    entries += entry(256, 4, 1, 64) + entry(257, 4, 1, 64);
    entries +=
        entry(271, 2, quint64(make.size()), 200) + entry(273, 4, 1, 600) + entry(279, 4, 1, 4000);
    if (hasSubDirectory)
        entries += entry(330, 4, 1, 300);
    QByteArray bytes = "II*" + QByteArray(1, '\0') + le32(8) + le16(quint64(entries.size()) / 12) +
                       entries + le32(0);
    bytes += QByteArray(200 - bytes.size(), '\0') + make;
    bytes += QByteArray(300 - bytes.size(), '\0') + le16(1) + entry(256, 4, 1, 64) + le32(0);
    return bytes + QByteArray(600 - bytes.size(), '\0') + body(4000);
}

QByteArray psd()
{
    return QByteArray("8BPS\0\1\0\0\0\0\0\0", 12) + be16(3) + be32(30) + be32(40) + be16(8) +
           be16(3) + be32(0) + be32(20) + body(20) + be32(0) + be16(0) + body(3 * 30 * 40);
}

QByteArray icon()
{
    const QByteArray picture = diskimages::png(2000);
    return QByteArray("\0\0\1\0\1\0\x20\x20\0\0\1\0\x20\0", 14) + le32(quint64(picture.size())) +
           le32(22) + picture;
}

QByteArray element(const QByteArray &id, const QByteArray &content)
{
    QByteArray length = big<quint64>(quint64(content.size()));
    length[0] = '\1';
    return id + length + content;
}

QByteArray matroska(const char *type)
{
    const QByteArray header = element("\x1A\x45\xDF\xA3", element("\x42\x82", type));
    return header + element("\x18\x53\x80\x67", element("\x15\x49\xA9\x66", body(90)) +
                                                    element("\x16\x54\xAE\x6B", body(200)) +
                                                    element("\x1F\x43\xB6\x75", body(3000)));
}

QByteArray flv()
{
    QByteArray bytes = QByteArray("FLV\1\5", 5) + be32(9) + be32(0);
    for (int i = 0; i < 20; ++i)
        bytes += '\x09' + be32(200).mid(1) + be32(quint64(i) * 40).mid(1) + QByteArray(4, '\0') +
                 body(200) + be32(211);
    return bytes;
}

QByteArray asf()
{
    const QByteArray properties("\xA1\xDC\xAB\x8C\x47\xA9\xCF\x11\x8E\xE4\x00\xC0\x0C\x20\x53\x65",
                                16);
    const QByteArray head = QByteArray("\x30\x26\xB2\x75\x8E\x66\xCF\x11\xA6\xD9\x00\xAA\x00\x62"
                                       "\xCE\x6C",
                                       16);
    const QByteArray object = properties + little<quint64>(104) + QByteArray(16, '\1') +
                              little<quint64>(4134) + QByteArray(56, '\0');
    return head + little<quint64>(134) + le32(1) + "\1\2" + object + QByteArray(16, '\3') +
           little<quint64>(4000) + body(3976);
}

QByteArray mp3()
{
    QByteArray bytes = QByteArray("ID3\4\0\0\0\0\0\x0A", 10) + body(10);
    for (int i = 0; i < 12; ++i) // 128 kbit/s at 44.1 kHz
        bytes += QByteArray("\xFF\xFB\x90\x00", 4) + body(413);
    return bytes + "TAG" + body(125);
}

QByteArray aac()
{
    QByteArray bytes;
    for (int i = 0; i < 20; ++i) {
        QByteArray head("\xFF\xF1\x50\x80\x00\x1F\xFC", 7);
        head[4] = char(300 >> 3);
        head[5] = char((300 & 7) << 5 | 0x1F);
        bytes += head + body(293);
    }
    return bytes;
}

quint32 oggCrc(const QByteArray &page)
{
    quint32 crc = 0;
    for (const char c : page) {
        crc ^= quint32(uchar(c)) << 24;
        for (int bit = 0; bit < 8; ++bit)
            crc = crc << 1 ^ (crc & 0x80000000 ? 0x04C11DB7 : 0);
    }
    return crc;
}

QByteArray oggPage(int flags, int number, const QByteArray &packet)
{
    QByteArray lacing(packet.size() / 255, char(255));
    lacing += char(packet.size() % 255);
    QByteArray page = QByteArray("OggS\0", 5) + char(flags) + QByteArray(8, '\0') + le32(77) +
                      le32(quint64(number)) + le32(0) + char(lacing.size()) + lacing + packet;
    return page.replace(22, 4, le32(oggCrc(page)));
}

QByteArray ogg(const QByteArray &codec)
{
    return oggPage(2, 0, codec + body(20)) + oggPage(0, 1, body(3000)) + oggPage(4, 2, body(900));
}

QByteArray amr()
{
    QByteArray bytes = "#!AMR\n";
    for (int i = 0; i < 60; ++i)
        bytes += '\x3C' + body(31);
    return bytes;
}

QByteArray silk(const QByteArray &lead)
{
    QByteArray bytes = lead + "#!SILK_V3";
    for (int i = 0; i < 60; ++i)
        bytes += le16(40) + body(40);
    return bytes + "\xFF\xFF";
}

QByteArray midi()
{
    return QByteArray("MThd\0\0\0\6\0\0\0\1\0\x60", 14) + "MTrk" + be32(1500) + body(1500);
}

QByteArray rtf()
{
    return "{\\rtf1\\ansi{\\fonttbl{\\f0 Arial;}}" +
           QByteArray("\\par text \\{ in braces \\}\n").repeated(80) + "}\n";
}

QByteArray sqlite()
{
    QByteArray bytes(8 * 1024, '\x0D');
    QByteArray head = QByteArray("SQLite format 3\0", 16) + be16(1024) +
                      QByteArray("\1\1\0\x40\x20\x20", 6) + be32(5) + be32(8);
    return bytes.replace(0, head.size(), head).replace(92, 4, be32(5));
}

QByteArray elf()
{
    QByteArray head = QByteArray("\x7F"
                                 "ELF\2\1\1",
                                 7) +
                      QByteArray(9, '\0') + le16(2) + le16(62) + le32(1) +
                      little<quint64>(0x400000) + little<quint64>(64) + little<quint64>(0) +
                      le32(0) + le16(64) + le16(56) + le16(1) + le16(0) + le16(0) + le16(0);
    head += le32(1) + le32(5) + little<quint64>(0) + QByteArray(16, '\0') + little<quint64>(4000) +
            little<quint64>(4000) + little<quint64>(4096);
    return head + body(4000 - head.size());
}

QByteArray font()
{
    QByteArray bytes = QByteArray("\0\1\0\0", 4) + be16(4) + QByteArray(6, '\0');
    quint64 at = 12 + 4 * 16;
    for (const char *tag : {"cmap", "glyf", "head", "maxp"}) {
        bytes += tag + be32(1) + be32(at) + be32(500);
        at += 500;
    }
    return bytes + body(2000);
}

QByteArray sevenZip()
{
    const QByteArray packed = body(3000);
    const QByteArray directory = '\1' + body(200);
    const QByteArray start =
        little<quint64>(3000) + little<quint64>(201) + le32(samples::crc32(directory));
    return QByteArray("7z\xBC\xAF\x27\x1C\0\4", 8) + le32(samples::crc32(start)) + start + packed +
           directory;
}

QByteArray rar4()
{
    const QByteArray file = le16(1) + '\x74' + le16(0x8000) + le16(40) + le32(3000) + body(29);
    return QByteArray("Rar!\x1A\x07\0", 7) + le16(1) + '\x73' + le16(0) + le16(13) + body(6) +
           file + body(3000) + QByteArray("\xC4\x3D\x7B\x00\x40\x07\x00", 7);
}

QByteArray rar5Block(const QByteArray &header, const QByteArray &data)
{
    const QByteArray sized = char(header.size()) + header;
    return le32(samples::crc32(sized)) + sized + data;
}

QByteArray rar5()
{
    return QByteArray("Rar!\x1A\x07\1\0", 8) + rar5Block(QByteArray("\1\0\0", 3), QByteArray()) +
           rar5Block(QByteArray("\2\2\xB8\x17\1\2\3", 7), body(3000)) +
           rar5Block(QByteArray("\5\0\1", 3), QByteArray());
}

QByteArray tar()
{
    const QByteArray content = body(2000);
    QByteArray head(512, '\0');
    head.replace(0, 5, "a.txt").replace(100, 7, "0000644").replace(124, 11, "00000003720");
    head.replace(148, 8, "        ").replace(156, 1, "0").replace(257, 7, "ustar  ");
    int sum = 0;
    for (const char c : head)
        sum += uchar(c);
    head.replace(148, 6, QByteArray::number(sum, 8).rightJustified(6, '0')).data()[154] = 0;
    QByteArray bytes = head + content;
    return bytes + QByteArray(10240 - bytes.size(), '\0');
}

QByteArray gzip(const QByteArray &content)
{
    QByteArray packed = qCompress(content).mid(6);
    packed.chop(4);
    return QByteArray("\x1F\x8B\x08\0\0\0\0\0\0\3", 10) + packed + le32(samples::crc32(content)) +
           le32(quint64(content.size()));
}

QByteArray bzip2(QByteArray content)
{
    QByteArray packed(content.size() + 1000, '\0');
    unsigned length = unsigned(packed.size());
    BZ2_bzBuffToBuffCompress(packed.data(), &length, content.data(), unsigned(content.size()), 1, 0,
                             0);
    return packed.left(int(length));
}

QByteArray xz(const QByteArray &content)
{
    QByteArray packed(content.size() + 1000, '\0');
    size_t length = 0;
    const lzma_ret result = lzma_easy_buffer_encode(
        0, LZMA_CHECK_CRC32, nullptr, reinterpret_cast<const uint8_t *>(content.constData()),
        size_t(content.size()), reinterpret_cast<uint8_t *>(packed.data()), &length,
        size_t(packed.size()));
    return result == LZMA_OK ? packed.left(int(length)) : QByteArray();
}

QByteArray zstd(const QByteArray &content, bool hasChecksum)
{
    QByteArray packed(int(ZSTD_compressBound(size_t(content.size()))), '\0');
    ZSTD_CCtx *const context = ZSTD_createCCtx();
    ZSTD_CCtx_setParameter(context, ZSTD_c_checksumFlag, hasChecksum ? 1 : 0);
    const size_t length = ZSTD_compress2(context, packed.data(), size_t(packed.size()),
                                         content.constData(), size_t(content.size()));
    ZSTD_freeCCtx(context);
    return packed.left(int(length));
}

QByteArray deb()
{
    const auto member = [](const char *name, const QByteArray &content) {
        return QByteArray(name).leftJustified(16, ' ') + QByteArray("0").leftJustified(32, ' ') +
               QByteArray::number(content.size()).leftJustified(10, ' ') + "`\n" + content;
    };
    return "!<arch>\n" + member("debian-binary", "2.0\n") + member("data.tar.xz", body(3000));
}

QByteArray iso()
{
    QByteArray bytes(20 * 2048, '\0');
    bytes.replace(32768, 7, QByteArray("\1CD001\1", 7));
    bytes.replace(32768 + 80, 8, le32(20) + be32(20)).replace(32768 + 128, 2, le16(2048));
    return bytes.replace(bytes.size() - 100, 100, body(100));
}

QByteArray transportStream()
{
    QByteArray bytes;
    for (int i = 0; i < 30; ++i)
        bytes += QByteArray(i == 0 ? "\x47\x40\x00\x10" : "\x47\x01\x00\x10", 4) + body(184);
    return bytes;
}

QVector<Sample> pictures()
{
    return {
        {"jpeg", "jpg", diskimages::jpeg(9000), true},
        {"png", "png", diskimages::png(9000), true},
        {"gif", "gif", diskimages::gif(5000)},
        {"bmp", "bmp", bmp()},
        {"webp", "webp", riff("WEBP", riffChunk("VP8 ", body(3000)))},
        {"tiff", "tif", tiff("scanner", false)},
        {"nef", "nef", tiff("NIKON CORPORATION", true)},
        {"arw", "arw", tiff("SONY ILCE", true)},
        {"psd", "psd", psd()},
        {"ico", "ico", icon()},
        {"heic", "heic",
         box("ftyp", "heic" + be32(0) + "mif1") + box("meta", body(300)) + box("mdat", body(3000))},
        {"avif", "avif",
         box("ftyp", "avif" + be32(0) + "mif1") + box("meta", body(300)) +
             box("mdat", body(3000))}};
}

QVector<Sample> films()
{
    return {
        {"mp4", "mp4", boxes("isom")},
        {"mov", "mov", boxes("qt  ")},
        {"m4a", "m4a", boxes("M4A ")},
        {"3gp", "3gp", boxes("3gp4")},
        {"mov without a brand", "mov", box("mdat", body(3000)) + box("moov", body(600))},
        {"avi", "avi", riff("AVI ", riffChunk("JUNK", body(3000)))},
        {"mkv", "mkv", matroska("matroska")},
        {"webm", "webm", matroska("webm")},
        {"flv", "flv", flv()},
        {"wma", "wma", asf()},
        {"ts", "ts", transportStream()},
        {"mp3", "mp3", mp3()},
        {"wav", "wav", riff("WAVE", riffChunk("fmt ", body(16)) + riffChunk("data", body(3000)))},
        {"ogg", "ogg", ogg("\1vorbis"), true},
        {"opus", "opus", ogg("OpusHead"), true},
        {"aac", "aac", aac()},
        {"amr", "amr", amr()},
        {"silk", "silk", silk(QByteArray())},
        {"silk of WeChat", "silk", silk("\x02")},
        {"aiff", "aiff", "FORM" + be32(3012) + "AIFF" + "SSND" + be32(3000) + body(3000)},
        {"midi", "mid", midi()}};
}

QVector<Sample> documentsAndArchives()
{
    const QByteArray text = QByteArray("some text to be packed ").repeated(50) + noise(3000, 41);
    return {
        {"doc", "doc", samples::oleFile(QStringLiteral("WordDocument"), body(5000))},
        {"xls", "xls", samples::oleFile(QStringLiteral("Workbook"), body(5000))},
        {"rtf", "rtf", rtf()},
        {"sqlite", "db", sqlite()},
        {"elf", "elf", elf()},
        {"ttf", "ttf", font()},
        {"woff2", "woff2", "wOF2" + be32(0x00010000) + be32(2048) + be16(9) + be16(0) + body(2032)},
        {"7z", "7z", sevenZip()},
        {"rar 4", "rar", rar4()},
        {"rar 5", "rar", rar5()},
        {"tar", "tar", tar()},
        {"gz", "gz", gzip(text), true},
        {"gz of two members", "gz", gzip(text) + gzip(text.mid(7)), true},
        {"tgz", "tgz", gzip(tar()), true},
        {"bz2", "bz2", bzip2(text), true},
        {"xz", "xz", xz(text), true},
        {"zst", "zst", zstd(text, true), true},
        {"deb", "deb", deb()},
        {"iso", "iso", iso()},
        {"ofd", "ofd",
         samples::zipArchive(
             {{QStringLiteral("OFD.xml"), text}, {QStringLiteral("Doc_0/D.xml"), text}}),
         true},
        {"epub", "epub", samples::zipArchive({{QStringLiteral("META-INF/container.xml"), text}}),
         true},
        {"apk", "apk", samples::zipArchive({{QStringLiteral("AndroidManifest.xml"), text}}), true}};
}

} // namespace

QVector<Sample> binaryFiles()
{
    return pictures() + films() + documentsAndArchives();
}

QByteArray compressedExtent()
{
    return zstd(noise(3000, 42), false);
}

} // namespace sampleformats
