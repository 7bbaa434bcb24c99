#include "ui/pages/blockforensicspage/blockmaprules.h"
#include "ui/pages/blockforensicspage/forensicsrules.h"

#include <QJsonObject>
#include <QTest>

#include <limits>

using namespace blockforensics;

class TestForensicsRules : public QObject
{
    Q_OBJECT

private slots:
    void sizes_data();
    void sizes();
    void integrity_data();
    void integrity();
    void texts();
    void columns_data();
    void columns();
    void hits_data();
    void hits();
    void exposedBlocks_data();
    void exposedBlocks();
};

void TestForensicsRules::sizes_data()
{
    QTest::addColumn<qint64>("bytes");
    QTest::addColumn<QString>("text");
    QTest::newRow("none") << qint64(0) << QStringLiteral("0 B");
    QTest::newRow("last of bytes") << qint64(1023) << QStringLiteral("1023 B");
    QTest::newRow("KB") << qint64(1024) << QStringLiteral("1.0 KB");
    QTest::newRow("just below MB") << qint64(1048575) << QStringLiteral("1024.0 KB");
    QTest::newRow("GB") << qint64(1610612736) << QStringLiteral("1.5 GB");
    QTest::newRow("no unit above TB") << (qint64(1) << 51) << QStringLiteral("2048.0 TB");
}

void TestForensicsRules::sizes()
{
    QFETCH(qint64, bytes);
    QTEST(formatSize(bytes), "text");
}

void TestForensicsRules::integrity_data()
{
    QTest::addColumn<double>("percent");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("color");
    QTest::newRow("whole") << 100.0 << QStringLiteral("100%") << QStringLiteral("#6ce8ba");
    QTest::newRow("99.9") << 99.9 << QStringLiteral("99.9%") << QStringLiteral("#6ce8ba");
    QTest::newRow("below") << 99.89 << QStringLiteral("99.89%") << QStringLiteral("#ffcb7d");
    QTest::newRow("80") << 80.0 << QStringLiteral("80%") << QStringLiteral("#ffcb7d");
    QTest::newRow("79.9") << 79.9 << QStringLiteral("79.9%") << QStringLiteral("#ff8a95");
}

void TestForensicsRules::integrity()
{
    QFETCH(double, percent);
    const auto row = verificationRow({{QStringLiteral("integrityPercent"), percent},
                                      {QStringLiteral("unchangedBlocks"), 4},
                                      {QStringLiteral("zeroedBlocks"), 2}});
    QTEST(row.cells.at(1).text, "text");
    QTEST(row.cells.at(1).ink.name(), "color");
    QCOMPARE(row.cells.at(2).text, QStringLiteral("4 / 0 / 2"));
    QCOMPARE(row.cells.at(3).text, QStringLiteral("未变化"));
}

void TestForensicsRules::texts()
{
    const QJsonObject summary{{QStringLiteral("filePath"), QStringLiteral("/home/a.txt")},
                              {QStringLiteral("totalBlocks"), 5},
                              {QStringLiteral("inodeNumber"), 77}};
    QCOMPARE(snapshotEntry(summary), QStringLiteral("/home/a.txt\ninode:77  5块"));
    QCOMPARE(hexOffset(0), QStringLiteral("0x0"));
    QCOMPARE(hexOffset(qint64(1) << 40), QStringLiteral("0x10000000000"));
    QCOMPARE(shortHash(QString()), QStringLiteral("--"));
    QCOMPARE(shortHash(QStringLiteral("abc")), QStringLiteral("abc"));
    QCOMPARE(shortHash(QString(64, QLatin1Char('f'))), QStringLiteral("ffffffffffffffff..."));
    QCOMPARE(registeredText(summary), QStringLiteral("Inode: 77, 块数: 5"));
    QJsonObject result{{QStringLiteral("outputPath"), QStringLiteral("/mnt/50%2.txt")},
                       {QStringLiteral("bytesWritten"), 2048},
                       {QStringLiteral("failedBlocks"), 0}};
    const QString saved = QStringLiteral("文件已保存至：/mnt/50%2.txt\n写入: 2.0 KB");
    QCOMPARE(recoveredText(result), saved);
    result.insert(QStringLiteral("failedBlocks"), 3);
    QCOMPARE(recoveredText(result), saved + QStringLiteral("\n警告: 3 个块读取失败，已填零"));
}

void TestForensicsRules::columns_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("columns");
    QTest::addColumn<int>("height"); // of 10 blocks
    QTest::newRow("nothing") << 0 << 1 << 160;
    QTest::newRow("30") << 30 << 1 << 160;
    QTest::newRow("31") << 31 << 1 << 160;
    QTest::newRow("32") << 32 << 2 << 80;
    QTest::newRow("47") << 47 << 2 << 80;
    QTest::newRow("48") << 48 << 3 << 64;
    QTest::newRow("one row") << 160 << 10 << 16;
    QTest::newRow("wide") << 1000 << 62 << 16;
}

void TestForensicsRules::columns()
{
    QFETCH(int, width);
    QFETCH(int, columns);
    QCOMPARE(columnsFor(width), columns);
    QTEST(heightFor(10, columns), "height");
    QCOMPARE(heightFor(0, columns), 0);
}

void TestForensicsRules::hits_data()
{
    QTest::addColumn<QPoint>("position");
    QTest::addColumn<int>("block"); // of 7 in rows of 3
    QTest::newRow("corner") << QPoint(0, 0) << 0;
    QTest::newRow("last pixel") << QPoint(13, 13) << 0;
    QTest::newRow("gap to the right") << QPoint(14, 5) << -1;
    QTest::newRow("gap below") << QPoint(5, 15) << -1;
    QTest::newRow("next cell") << QPoint(16, 0) << 1;
    QTest::newRow("second row") << QPoint(40, 20) << 5;
    QTest::newRow("beside the columns") << QPoint(48, 0) << -1;
    QTest::newRow("last block") << QPoint(2, 34) << 6;
    QTest::newRow("past the end") << QPoint(18, 34) << -1;
    QTest::newRow("far below") << QPoint(0, 2000000000) << -1;
    QTest::newRow("left of it") << QPoint(-1, 0) << -1;
    QTest::newRow("above it") << QPoint(0, -16) << -1;
}

void TestForensicsRules::hits()
{
    QFETCH(QPoint, position);
    QFETCH(int, block);
    QCOMPARE(blockAt(position, 3, 7), block);
    if (block >= 0)
        QVERIFY(cellRect(block, 3).contains(position));
}

void TestForensicsRules::exposedBlocks_data()
{
    QTest::addColumn<QRect>("area");
    QTest::addColumn<int>("first"); // of 100,000 in rows of 10
    QTest::addColumn<int>("end");
    QTest::newRow("first row") << QRect(0, 0, 160, 16) << 0 << 10;
    QTest::newRow("into the second") << QRect(0, 15, 160, 2) << 0 << 20;
    QTest::newRow("in the middle") << QRect(0, 1600, 160, 160) << 1000 << 1100;
    QTest::newRow("the end") << QRect(0, 159984, 160, 100) << 99990 << 100000;
    QTest::newRow("beyond") << QRect(0, 500000, 160, 100) << 100000 << 100000;
    QTest::newRow("nothing") << QRect() << 0 << 0;
}

void TestForensicsRules::exposedBlocks()
{
    QFETCH(QRect, area);
    const BlockRange range = blocksIn(area, 10, 100000);
    QTEST(range.first, "first");
    QTEST(range.end, "end");
}

QTEST_GUILESS_MAIN(TestForensicsRules)
#include "tst_forensicsrules.moc"
