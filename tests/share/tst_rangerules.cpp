#include "share/byterange.h"

#include <QtTest>

class TestRangeRules : public QObject
{
    Q_OBJECT

private slots:
    void decides_data();
    void decides();
};

void TestRangeRules::decides_data()
{
    QTest::addColumn<QString>("header");
    QTest::addColumn<qint64>("total");
    QTest::addColumn<bool>("isPartial");
    QTest::addColumn<qint64>("start");
    QTest::addColumn<qint64>("length");

    const auto row = [](const char *header, qint64 total, bool isPartial, qint64 start,
                        qint64 length) {
        QTest::addRow("%s of %lld", header, static_cast<long long>(total))
            << QString::fromLatin1(header) << total << isPartial << start << length;
    };
    row("", 10, false, 0, 10);
    row("bytes=0-0", 10, true, 0, 1);
    row("bytes=2-5", 10, true, 2, 4);
    row("bytes=0-9", 10, true, 0, 10);
    row("bytes=5-", 10, true, 5, 5);
    row("bytes=-3", 10, true, 7, 3);
    row("bytes=-10", 10, true, 0, 10);
    // Numbers, but not for this file: the whole length, read from the start that was asked for.
    row("bytes=-30", 10, false, -20, 10);
    row("bytes=500-9999", 1000, false, 500, 1000);
    row("bytes=5-2", 10, false, 5, 10);
    row("bytes=10-", 10, false, 10, 10);
    row("bytes=-0", 10, false, 10, 10);
    row("bytes=5-", 0, false, 5, 0);
    row("bytes=0-0", 0, false, 0, 0);
    row("bytes=0-9223372036854775807", 10, false, 0, 10);
    row("bytes=-9223372036854775807", 10, false, 10 - std::numeric_limits<qint64>::max(), 10);
    // No range at all.
    row("bytes=-", 10, false, 0, 10);
    row("bytes=", 10, false, 0, 10);
    row("bytes=5", 10, false, 0, 10);
    row("bytes=a-5", 10, false, 0, 10);
    row("bytes=5-b", 10, false, 0, 10);
    row("bytes=0-1,3-4", 10, false, 0, 10);
    row("bytes=--3", 10, false, 0, 10);
    row("bytes=9223372036854775808-", 10, false, 0, 10);
    row("items=0-1", 10, false, 0, 10);
    row("Bytes=0-1", 10, false, 0, 10);
}

void TestRangeRules::decides()
{
    QFETCH(QString, header);
    QFETCH(qint64, total);
    const share::ByteRange range = share::rangeFor(header, total);
    QTEST(range.isPartial, "isPartial");
    QTEST(range.start, "start");
    QTEST(range.length, "length");
    if (range.isPartial)
        QCOMPARE(range.end - range.start + 1, range.length);
}

QTEST_GUILESS_MAIN(TestRangeRules)
#include "tst_rangerules.moc"
