#include "recoveryd/content/codec.h"
#include "recoveryd/content/lzo.h"
#include "support/diskimages.h"

#include <QTest>
#include <QtEndian>

#include <random>
#include <zstd.h>

using namespace services::recoveryd;

namespace {

QByteArray le32(int value)
{
    QByteArray bytes(4, '\0');
    qToLittleEndian(quint32(value), bytes.data());
    return bytes;
}

const QByteArray kEnd = QByteArray::fromHex("110000");

/// A stream of literals alone, at least 4 of them.
QByteArray literals(const QByteArray &bytes)
{
    QByteArray stream;
    if (bytes.size() <= 238) {
        stream += char(17 + bytes.size());
    } else {
        int left = bytes.size() - 18;
        stream += '\0';
        for (; left > 255; left -= 255)
            stream += '\0';
        stream += char(left);
    }
    return stream + bytes + kEnd;
}

/// As Btrfs stores an extent: no header of a segment crosses a sector.
QByteArray framed(const QVector<QByteArray> &segments)
{
    QByteArray bytes(4, '\0');
    for (const QByteArray &segment : segments) {
        const int left = 4096 - bytes.size() % 4096;
        if (left < 4)
            bytes.append(left, '\0');
        bytes += le32(segment.size()) + segment;
    }
    return bytes.replace(0, 4, le32(bytes.size()));
}

QByteArray zstd(const QByteArray &plain)
{
    QByteArray stored(int(ZSTD_compressBound(size_t(plain.size()))), '\0');
    const size_t size = ZSTD_compress(stored.data(), size_t(stored.size()), plain.constData(),
                                      size_t(plain.size()), 3);
    stored.truncate(ZSTD_isError(size) ? 0 : int(size));
    return stored;
}

} // namespace

class TestRecoverydCodecs : public QObject
{
    Q_OBJECT

private slots:
    void readsLzoInstructions_data();
    void readsLzoInstructions();
    void readsExtents_data();
    void readsExtents();
    void survivesDamage();
};

void TestRecoverydCodecs::readsLzoInstructions_data()
{
    QTest::addColumn<QByteArray>("stream");
    QTest::addColumn<QByteArray>("plain"); ///< Null: damaged.
    const auto row = [](const char *name, const QByteArray &stream, const QByteArray &plain) {
        QTest::newRow(name) << stream << plain;
    };
    const QByteArray abcd = "\x15"
                            "abcd"; // first byte: 17 + 4 literals
    const auto hex = QByteArray::fromHex;
    row("literals", literals("abcdefgh"), "abcdefgh");
    row("long literals", literals(QByteArray(700, 'x')), QByteArray(700, 'x'));
    // 0x40: 3 bytes; distance 1 + 3 by its bits 2 to 4; one literal behind it.
    row("near match", abcd + hex("4d00") + "z" + kEnd, "abcdabcz");
    row("longer near match", abcd + hex("ec00") + kEnd, "abcdabcdabcd");
    row("run", abcd + hex("220000") + kEnd, "abcddddd");
    row("long run", abcd + hex("2000010000") + kEnd, "abcd" + QByteArray(33 + 256, 'd'));
    row("match behind few literals", abcd + hex("4d00") + "z" + hex("0400") + kEnd, "abcdabczcz");
    row("no end", abcd, QByteArray());
    row("before the start", abcd + hex("5c00") + kEnd, QByteArray());
    row("cut match", abcd + hex("20"), QByteArray());
    row("more than there is room for", literals(QByteArray(5000, 'x')), QByteArray());
    row("nothing", QByteArray(), QByteArray());
}

void TestRecoverydCodecs::readsLzoInstructions()
{
    QFETCH(const QByteArray, stream);
    QFETCH(const QByteArray, plain);
    QByteArray got(4096, '\0');
    const qint64 length =
        decompressLzo1x(stream.constData(), stream.size(), got.data(), got.size());
    QCOMPARE(length, plain.isNull() ? qint64(-1) : qint64(plain.size()));
    QCOMPARE(got.left(int(qMax(qint64(0), length))), plain.isNull() ? QByteArray("") : plain);
}

void TestRecoverydCodecs::readsExtents_data()
{
    QTest::addColumn<int>("codec");
    QTest::addColumn<QByteArray>("stored");
    QTest::addColumn<QByteArray>("plain"); ///< Null: damaged.
    const QByteArray first = diskimages::noise(4096, 2);
    const QByteArray second = diskimages::noise(4096, 3);
    const QByteArray rest = diskimages::noise(1000, 4);
    const QByteArray padded = rest + QByteArray(3096, '\0');
    const int lzo = int(Codec::Lzo);
    QTest::newRow("lzo: segments")
        << lzo << framed({literals(first), literals(second), literals(rest)})
        << first + second + padded;
    // The first segment ends 2 bytes before the sector does, so that these are left out.
    const QByteArray most = diskimages::noise(4062, 5) + 'r';
    const QByteArray tight = literals(most).chopped(3) + QByteArray::fromHex("3f0000") + kEnd;
    QTest::newRow("lzo: padding") << lzo << framed({tight, literals(second)})
                                  << most + QByteArray(33, 'r') + second;
    QTest::newRow("lzo: stored longer")
        << lzo << framed({literals(first)}) + QByteArray(99, 'x') << first;
    QByteArray tooLong = framed({literals(first)});
    tooLong.replace(4, 4, le32(99999));
    QTest::newRow("lzo: segment too long") << lzo << tooLong << QByteArray();
    QTest::newRow("lzo: short in the middle")
        << lzo << framed({literals(rest), literals(first)}) << QByteArray();
    const QByteArray text = QByteArray("a line of text\n").repeated(7000).left(102400);
    QTest::newRow("zstd") << int(Codec::Zstd) << zstd(text) + QByteArray(500, '\0') << text;
    QTest::newRow("zstd: ends early")
        << int(Codec::Zstd) << zstd(text.left(99000)) << text.left(99000) + QByteArray(3400, '\0');
    QTest::newRow("zstd: cut") << int(Codec::Zstd) << zstd(text).chopped(8) << QByteArray();
    const QByteArray zlib = qCompress(text).mid(4);
    QTest::newRow("zlib") << int(Codec::Zlib) << zlib + QByteArray(300, '\0') << text;
    QTest::newRow("zlib: ends early") << int(Codec::Zlib) << qCompress(text.left(99000)).mid(4)
                                      << text.left(99000) + QByteArray(3400, '\0');
    QTest::newRow("zlib: cut") << int(Codec::Zlib) << zlib.chopped(8) << QByteArray();
}

void TestRecoverydCodecs::readsExtents()
{
    QFETCH(const int, codec);
    QFETCH(const QByteArray, stored);
    QFETCH(const QByteArray, plain);
    QByteArray got;
    const int length = plain.isNull() ? 102400 : plain.size();
    const bool isGood = decompress(Codec(codec), stored, length, &got);
    QCOMPARE(isGood, !plain.isNull());
    if (isGood)
        QCOMPARE(got, plain);
}

void TestRecoverydCodecs::survivesDamage()
{
    std::mt19937 random(5);
    const QByteArray text = QByteArray("a line of text\n").repeated(2000);
    const QVector<QPair<Codec, QByteArray>> good = {
        {Codec::Zstd, zstd(text)},
        {Codec::Lzo, framed({literals(text.left(4096)), literals(text.mid(4096, 4096))})},
        {Codec::Zlib, qCompress(text).mid(4)}};
    for (int round = 0; round < 3000; ++round)
        for (const auto &stream : good) {
            QByteArray bytes = stream.second;
            for (quint32 i = 0; i <= random() % 4; ++i)
                bytes[int(random() % quint32(bytes.size()))] = char(random());
            QByteArray got;
            if (decompress(stream.first, bytes, 8192, &got))
                QCOMPARE(got.size(), 8192);
        }
}

QTEST_GUILESS_MAIN(TestRecoverydCodecs)
#include "tst_recoveryd_codecs.moc"
