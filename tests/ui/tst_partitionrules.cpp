#include "ui/pages/partitionselectpage/partitionrules.h"

#include <QTest>

namespace {

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

} // namespace

class TestPartitionRules : public QObject
{
    Q_OBJECT

private slots:
    void splitsPathAndFileSystem_data();
    void splitsPathAndFileSystem();
    void coloursUsage_data();
    void coloursUsage();
    void labelsDisks_data();
    void labelsDisks();
    void findsTheNextCard_data();
    void findsTheNextCard();
};

void TestPartitionRules::splitsPathAndFileSystem_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("fs");
    const auto row = [](const char *given, const char *path, const char *fs) {
        QTest::newRow(given) << text(path) << text(fs);
    };
    row("/dev/nvme0n1p2  EXT4", "/dev/nvme0n1p2", "EXT4");
    row("未分配  RAW", "未分配", "RAW");
    row("/dev/sda1", "/dev/sda1", "未知");
    row(" /dev/sda1 ", " /dev/sda1 ", "未知");
    row("/dev/a   b c  NTFS ", "/dev/a b c", "NTFS");
    row("", "", "未知");
}

void TestPartitionRules::splitsPathAndFileSystem()
{
    QString path;
    QString fs;
    partitionselect::splitPathAndFs(text(QTest::currentDataTag()), &path, &fs);
    QTEST(path, "path");
    QTEST(fs, "fs");
}

void TestPartitionRules::coloursUsage_data()
{
    QTest::addColumn<int>("usage");
    QTest::addColumn<QString>("color");
    const auto row = [](int usage, const char *color) {
        QTest::newRow(qPrintable(QString::number(usage))) << usage << text(color);
    };
    row(0, "#16c781");
    row(29, "#16c781");
    row(30, "#2e96ff");
    row(80, "#2e96ff");
    row(81, "#e85b62");
    row(100, "#e85b62");
}

void TestPartitionRules::coloursUsage()
{
    QFETCH(int, usage);
    QTEST(partitionselect::progressChunkColor(usage).name(), "color");
}

void TestPartitionRules::labelsDisks_data()
{
    QTest::addColumn<QString>("size");
    QTest::addColumn<QString>("type");
    const auto row = [](const char *title, const char *size, const char *type) {
        QTest::newRow(title) << text(size) << text(type);
    };
    row("Foo 4TB", "1 TB", "机械");
    row("WD Blue 2TB HDD", "2 TB", "机械");
    row("disk 2 tb", "2 TB", "机械");
    row("SanDisk Ultra 512GB SSD", "512 GB", "固态");
    row("some ssd 512 gb", "512 GB", "固态");
    row("512GB or 2TB", "2 TB", "机械");
    row("Vendor nvme", "1 TB", "固态");
    row("", "1 TB", "机械");
}

void TestPartitionRules::labelsDisks()
{
    const QString title = text(QTest::currentDataTag());
    QTEST(partitionselect::diskSizeLabel(title), "size");
    QTEST(partitionselect::diskTypeLabel(title), "type");
}

void TestPartitionRules::findsTheNextCard_data()
{
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("key");
    QTest::addColumn<int>("to");
    const auto row = [](const char *name, int from, Qt::Key key, int to) {
        QTest::newRow(name) << from << int(key) << to;
    };
    row("right", 0, Qt::Key_Right, 1);
    row("right into the next row", 2, Qt::Key_Right, 3);
    row("right at the end", 5, Qt::Key_Right, 5);
    row("left", 4, Qt::Key_Left, 3);
    row("left at the start", 0, Qt::Key_Left, 0);
    row("down", 1, Qt::Key_Down, 4);
    row("down where the row is shorter", 2, Qt::Key_Down, 4);
    row("down to the nearest row only", 3, Qt::Key_Down, 5);
    row("down at the end", 5, Qt::Key_Down, 5);
    row("up", 4, Qt::Key_Up, 1);
    row("up by one row", 5, Qt::Key_Up, 3);
    row("up at the start", 1, Qt::Key_Up, 1);
    row("another key", 1, Qt::Key_Home, 1);
    row("no card", -1, Qt::Key_Right, -1);
}

void TestPartitionRules::findsTheNextCard()
{
    // Rows of three, two and one card.
    const QVector<QRect> places = {{0, 0, 90, 50},   {100, 0, 90, 50},   {200, 0, 90, 50},
                                   {0, 100, 90, 50}, {100, 100, 90, 50}, {0, 200, 90, 50}};
    QFETCH(int, from);
    QFETCH(int, key);
    QTEST(partitionselect::nextCard(places, from, static_cast<Qt::Key>(key)), "to");
}

QTEST_GUILESS_MAIN(TestPartitionRules)
#include "tst_partitionrules.moc"
