#include "core/ipc/framecodec.h"

#include <QElapsedTimer>
#include <QTest>

using core::ipc::encodeFrame;
using core::ipc::encodeJsonFrame;
using core::ipc::FrameDecoder;
using Result = core::ipc::FrameDecoder::Result;

Q_DECLARE_METATYPE(Result)

namespace {

/// A header that announces `length` bytes, and nothing behind it.
QByteArray header(quint32 length)
{
    QByteArray bytes = QByteArrayLiteral("KVSF");
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.append(static_cast<char>(length >> shift));
    return bytes;
}

/// Everything that can be taken out now; `last` is what ended it.
QList<QByteArray> takeAll(FrameDecoder *decoder, Result *last)
{
    QList<QByteArray> bodies;
    QByteArray body;
    while ((*last = decoder->next(&body)) == Result::Frame)
        bodies.append(body);
    return bodies;
}

} // namespace

class TestFrameCodec : public QObject
{
    Q_OBJECT

private slots:
    void encodes();
    void decodesStreamCutAtEveryByte();
    void judgesHeaders_data();
    void judgesHeaders();
    void staysLinearInAFlood();
    void endsInAnErrorWhenFedTooMuch();
};

void TestFrameCodec::encodes()
{
    QCOMPARE(encodeFrame(QByteArrayLiteral("{}")), QByteArray("KVSF\0\0\0\2{}", 10));
    QCOMPARE(encodeFrame(QByteArray()), QByteArray("KVSF\0\0\0\0", 8));
    QCOMPARE(encodeFrame(QByteArray(0x010203, 'x')).left(8), QByteArray("KVSF\0\1\2\3", 8));
    QCOMPARE(encodeJsonFrame({{QStringLiteral("k"), QStringLiteral("墨")}}),
             QByteArray("KVSF\0\0\0\x0b{\"k\":\"\xe5\xa2\xa8\"}", 19));
}

void TestFrameCodec::decodesStreamCutAtEveryByte()
{
    // Bodies that hold the magic, nothing, and more than one length byte.
    const QList<QByteArray> bodies{QByteArrayLiteral("KVSFKVSF"), QByteArray(),
                                   QByteArray(300, 'a'), QByteArrayLiteral("{}")};
    QByteArray stream;
    for (const QByteArray &body : bodies)
        stream += encodeFrame(body);

    Result last = Result::Frame;
    for (int cut = 0; cut <= stream.size(); ++cut) {
        FrameDecoder decoder;
        decoder.append(stream.left(cut));
        QList<QByteArray> taken = takeAll(&decoder, &last);
        QCOMPARE(last, Result::NeedMore);
        decoder.append(stream.mid(cut));
        taken += takeAll(&decoder, &last);
        QCOMPARE(taken, bodies);
        QCOMPARE(decoder.bufferedBytes(), 0);
    }

    FrameDecoder decoder;
    QList<QByteArray> taken;
    for (const char byte : qAsConst(stream)) {
        decoder.append(QByteArray(1, byte));
        taken += takeAll(&decoder, &last);
        QCOMPARE(last, Result::NeedMore);
    }
    QCOMPARE(taken, bodies);
}

void TestFrameCodec::judgesHeaders_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<Result>("expected");

    const quint32 limit = static_cast<quint32>(core::ipc::kMaxBodySize);
    QTest::newRow("nothing") << QByteArray() << Result::NeedMore;
    QTest::newRow("seven wrong bytes are not judged") << QByteArray(7, 'x') << Result::NeedMore;
    QTest::newRow("eight wrong bytes are") << QByteArray(8, 'x') << Result::BadMagic;
    QTest::newRow("lower case magic") << QByteArray("kvsf\0\0\0\0", 8) << Result::BadMagic;
    QTest::newRow("last magic byte wrong") << QByteArray("KVSG\0\0\0\0", 8) << Result::BadMagic;
    QTest::newRow("zero body") << header(0) << Result::Frame;
    QTest::newRow("waits for a body") << header(1) << Result::NeedMore;
    QTest::newRow("longest body that can be held") << header(limit) << Result::NeedMore;
    QTest::newRow("one more") << header(limit + 1) << Result::TooLarge;
    QTest::newRow("largest int") << header(0x7fffffff) << Result::TooLarge;
    QTest::newRow("negative as an int") << header(0x80000000) << Result::TooLarge;
    QTest::newRow("minus eight as an int") << header(0xfffffff8) << Result::TooLarge;
    QTest::newRow("4 GiB - 1") << header(0xffffffff) << Result::TooLarge;
}

void TestFrameCodec::judgesHeaders()
{
    QFETCH(QByteArray, bytes);
    QFETCH(Result, expected);

    FrameDecoder decoder;
    QByteArray body;
    decoder.append(encodeFrame(QByteArrayLiteral("{}"))); // A good frame before it is not lost.
    decoder.append(bytes);
    QCOMPARE(decoder.next(&body), Result::Frame);
    QCOMPARE(body, QByteArrayLiteral("{}"));
    QCOMPARE(decoder.next(&body), expected);

    if (expected == Result::Frame)
        return;
    QCOMPARE(decoder.next(&body), expected);
    QCOMPARE(decoder.bufferedBytes(), bytes.size());
    decoder.clear();
    decoder.append(encodeFrame(QByteArrayLiteral("[]")));
    QCOMPARE(decoder.next(&body), Result::Frame);
}

/// A removal from the front for each frame would move 700 GB here.
void TestFrameCodec::staysLinearInAFlood()
{
    constexpr int kCount = 200000;
    QByteArray stream;
    for (int i = 0; i < kCount; ++i)
        stream += encodeFrame(QByteArrayLiteral("{\"type\":\"event\",\"event\":\"e\"}"));
    FrameDecoder decoder;
    Result last = Result::Frame;
    QElapsedTimer timer;
    timer.start();
    decoder.append(stream);
    QCOMPARE(takeAll(&decoder, &last).size(), kCount);
    QVERIFY2(timer.elapsed() < 10000, qPrintable(QString::number(timer.elapsed())));
}

void TestFrameCodec::endsInAnErrorWhenFedTooMuch()
{
    FrameDecoder decoder(1000);
    QByteArray body;
    const QByteArray good = encodeFrame(QByteArray(1000, 'x'));
    decoder.append(good + good.left(500));
    decoder.append(QByteArray(core::ipc::kReadAheadSize + 1000, 'x'));
    QCOMPARE(decoder.next(&body), Result::Frame); // What was held before is whole.
    QCOMPARE(body, QByteArray(1000, 'x'));
    QCOMPARE(decoder.next(&body), Result::TooLarge);
    decoder.append(good.mid(500)); // A gap may not be closed by what comes later.
    QCOMPARE(decoder.next(&body), Result::TooLarge);
}

QTEST_GUILESS_MAIN(TestFrameCodec)
#include "tst_framecodec.moc"
