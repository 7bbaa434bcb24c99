#include "recoveryd/devices/devicecatalog.h"
#include "recoveryd/devices/gpt.h"
#include "recoveryd/devices/partitiontable.h"
#include "support/diskimages.h"

#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include <sys/stat.h>

using namespace services::recoveryd;
using namespace diskimages;

namespace {

constexpr int kSectors = 4096; // of the test disks

// Both replace bytes of the array, which the optimiser, unlike writes through data(), does not take
// for an overflow of the shared empty array.
template <typename T>
void putBytes(QByteArray *bytes, int at, T stored)
{
    bytes->replace(at, int(sizeof(T)), reinterpret_cast<const char *>(&stored), int(sizeof(T)));
}

template <typename T>
void put(QByteArray *bytes, int at, T value)
{
    putBytes(bytes, at, qToLittleEndian(value));
}

template <typename T>
void putBig(QByteArray *bytes, int at, T value)
{
    putBytes(bytes, at, qToBigEndian(value));
}

void putText(QByteArray *bytes, int at, const QByteArray &text)
{
    bytes->replace(at, text.size(), text);
}

QStringList words(const char *text)
{
    return QString::fromUtf8(text).split(QLatin1Char(' '));
}

struct Entry
{
    int index;
    quint8 type;
    quint32 start;
    quint32 count;
};

void putTable(QByteArray *disk, quint32 sector, const QVector<Entry> &entries)
{
    const int at = int(sector) * 512;
    for (const Entry &entry : entries) {
        const int place = at + 446 + entry.index * 16;
        (*disk)[place + 4] = char(entry.type);
        put<quint32>(disk, place + 8, entry.start);
        put<quint32>(disk, place + 12, entry.count);
    }
    put<quint16>(disk, at + 510, 0xAA55);
}

/// One copy of a GPT with two partitions: a Linux file system without a name and a named one.
void putGpt(QByteArray *disk, int sectorSize, qint64 headerLba, qint64 entriesLba)
{
    QByteArray entries(128 * 4, '\0');
    putText(&entries, 0, QByteArray::fromHex("AF3DC60F838472478E793D69D8477DE4"));
    put<quint64>(&entries, 32, 64);
    put<quint64>(&entries, 40, 127);
    putText(&entries, 256, QByteArray(16, '\x22'));
    put<quint64>(&entries, 256 + 32, 128);
    put<quint64>(&entries, 256 + 40, 1000000); // cut at the end of the disk
    put<quint16>(&entries, 256 + 56, 0x6570);
    put<quint16>(&entries, 256 + 58, 0x636E);
    QByteArray header(92, '\0');
    putText(&header, 0, "EFI PART");
    put<quint32>(&header, 12, 92);
    put<quint64>(&header, 72, quint64(entriesLba));
    put<quint32>(&header, 80, 4);
    put<quint32>(&header, 84, 128);
    put<quint32>(&header, 88, crc32(entries.constData(), entries.size()));
    put<quint32>(&header, 16, crc32(header.constData(), header.size()));
    putText(disk, int(headerLba) * sectorSize, header);
    putText(disk, int(entriesLba) * sectorSize, entries);
}

QByteArray gptDisk(int sectorSize)
{
    QByteArray disk(kSectors * 512, '\0');
    putTable(&disk, 0, {{0, 0xEE, 1, 0xFFFFFFFF}});
    const int sectors = disk.size() / sectorSize;
    putGpt(&disk, sectorSize, 1, 2);
    putGpt(&disk, sectorSize, sectors - 1, sectors - 10);
    return disk;
}

/// A FAT of `clusters` clusters of one sector with `used` of them taken.
QByteArray fat(int bits, quint32 clusters, quint32 used)
{
    const quint32 tableSectors = (clusters + 2) * quint32(bits) / 8 / 512 + 1;
    const quint32 sectors = 32 + 2 * tableSectors + (bits == 32 ? 0 : 32) + clusters;
    QByteArray volume(int(sectors) * 512, '\0');
    put<quint16>(&volume, 11, 512);
    volume[13] = 1;
    put<quint16>(&volume, 14, 32);
    volume[16] = 2;
    volume[21] = char(0xF8);
    if (bits != 32) {
        put<quint16>(&volume, 17, 512);
        put<quint16>(&volume, 22, quint16(tableSectors));
    } else {
        put<quint32>(&volume, 36, tableSectors);
        put<quint16>(&volume, 48, 1);
        putText(&volume, 512, "RRaA");
        putText(&volume, 512 + 484, "rrAa");
        put<quint32>(&volume, 512 + 488, clusters - used);
    }
    put<quint32>(&volume, 32, sectors);
    putText(&volume, bits == 32 ? 71 : 43, "STICK      ");
    put<quint16>(&volume, 510, 0xAA55);
    for (quint32 cluster = 2; cluster < used + 2; ++cluster) {
        const int table = 32 * 512;
        const int at = table + int(cluster * quint32(bits) / 8);
        if (bits == 12 && (cluster & 1))
            put<quint16>(&volume, at, quint16(0xFFF0 | (quint8(volume.at(at)) & 0xF)));
        else
            put<quint16>(&volume, at, bits == 12 ? 0x0FFF : 0xFFFF);
    }
    return volume;
}

QString describe(const QVector<Partition> &partitions)
{
    QStringList words;
    for (const Partition &partition : partitions)
        words.append(
            QStringLiteral("%1:%2+%3%4")
                .arg(partition.number)
                .arg(partition.start / 512)
                .arg(partition.size / 512)
                .arg(partition.name.isEmpty() ? QString() : QLatin1Char(' ') + partition.name));
    return words.join(QStringLiteral(", "));
}

} // namespace

class TestRecoverydDevices : public QObject
{
    Q_OBJECT

private slots:
    void readsWithinBounds();
    void readsTables_data();
    void readsTables();
    void findsGaps();
    void probes_data();
    void probes();
    void probesExt_data();
    void probesExt();
    void listsDevices();

private:
    QString file(const QByteArray &bytes)
    {
        const QString path = m_dir.filePath(QString::number(++m_files));
        return write(path, bytes) ? path : QString();
    }
    Volume volumeOf(const QByteArray &bytes)
    {
        QString error;
        const auto image = Image::open(file(bytes), &error);
        return Volume(image, 0, image->size());
    }

    QTemporaryDir m_dir;
    int m_files = 0;
};

void TestRecoverydDevices::readsWithinBounds()
{
    QString error;
    QVERIFY(!Image::open(m_dir.filePath(QStringLiteral("missing")), &error));
    QVERIFY(!Image::open(m_dir.path(), &error));
    const QString fifo = m_dir.filePath(QStringLiteral("fifo"));
    QCOMPARE(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    QVERIFY(!Image::open(fifo, &error)); // and does not hang

    const QString path = file(QByteArrayLiteral("0123456789"));
    const auto image = Image::open(path, &error);
    const Volume volume(image, 2, 1000);
    QCOMPARE(volume.size(), qint64(8));
    QCOMPARE(volume.read(6, 2), QByteArrayLiteral("89"));
    QVERIFY(volume.read(6, 3, &error).isEmpty());
    QVERIFY(volume.read(-1, 2, &error).isEmpty());
    QVERIFY(volume.read(std::numeric_limits<qint64>::max(), 2, &error).isEmpty());
    QVERIFY(volume.read(0, std::numeric_limits<qint64>::max(), &error).isEmpty());
    // The file is cut while it is open.
    QVERIFY(QFile::resize(path, 5));
    error.clear();
    QVERIFY(volume.read(2, 4, &error).isEmpty());
    QVERIFY(!error.isEmpty());
}

void TestRecoverydDevices::readsTables_data()
{
    QTest::addColumn<QByteArray>("disk");
    QTest::addColumn<QString>("partitions");
    QTest::addColumn<bool>("isRead");
    const QByteArray empty(kSectors * 512, '\0');
    QTest::newRow("nothing") << empty << "" << true;
    QTest::newRow("shorter than a sector") << QByteArray(100, '\x55') << "" << true;

    QByteArray disk = empty;
    putTable(&disk, 0, {{0, 0x83, 64, 100}, {2, 0x82, 200, 9000}, {3, 0x00, 7, 7}});
    QTest::newRow("primary, one cut at the end")
        << disk << QString::fromUtf8("1:64+100 Linux 文件系统, 3:200+3896 Linux Swap") << true;

    disk = empty;
    putTable(&disk, 0, {{1, 0x07, 64, 100}, {3, 0x0F, 1000, 2000}});
    putTable(&disk, 1000, {{0, 0x07, 10, 50}, {1, 0x05, 500, 600}});
    putTable(&disk, 1500, {{0, 0x07, 10, 60}});
    QTest::newRow("logical") << disk << "2:64+100, 5:1010+50, 6:1510+60" << true;
    putTable(&disk, 1500, {{1, 0x05, 500, 600}});
    QTest::newRow("logical in a circle") << disk << "" << false;
    putTable(&disk, 1500, {{1, 0x05, 900000, 600}});
    QTest::newRow("logical outside") << disk << "" << false;

    disk = empty;
    putTable(&disk, 0, {{0, 0x07, 1000000, 5}});
    QTest::newRow("primary outside") << disk << "" << false;
    disk = empty;
    putTable(&disk, 0, {{0, 0x07, 64, 5}});
    disk[446] = 'x';
    QTest::newRow("boot code without a table") << disk << "" << true;

    const QString both = QString::fromUtf8("1:64+64 Linux 文件系统, 3:128+3968 数据");
    QTest::newRow("gpt") << gptDisk(512) << both << true;
    QTest::newRow("gpt, sectors of 4096")
        << gptDisk(4096) << QString::fromUtf8("1:512+512 Linux 文件系统, 3:1024+3072 数据") << true;
    disk = gptDisk(512);
    disk[2 * 512 + 33] = 'x';
    QTest::newRow("gpt, first entries damaged") << disk << both << true;
    disk[(kSectors - 1) * 512 + 20] = 'x';
    QTest::newRow("gpt, both damaged") << disk << "" << false;
}

void TestRecoverydDevices::readsTables()
{
    QFETCH(QByteArray, disk);
    QFETCH(QString, partitions);
    QFETCH(bool, isRead);
    QVector<Partition> found;
    QString error;
    QCOMPARE(readPartitionTable(volumeOf(disk), &found, &error), isRead);
    if (isRead)
        QCOMPARE(describe(found), partitions);
    QCOMPARE(error.isEmpty(), isRead);
}

void TestRecoverydDevices::findsGaps()
{
    const QVector<Partition> gaps = gapsBetween(
        {{2, 1000, 500, QString()}, {1, 100, 200, QString()}, {3, 1100, 100, QString()}}, 2000,
        300);
    QCOMPARE(gaps.size(), 2);
    QCOMPARE(gaps.at(0).start, qint64(300));
    QCOMPARE(gaps.at(0).size, qint64(700));
    QCOMPARE(gaps.at(1).start, qint64(1500));
}

void TestRecoverydDevices::probes_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("type");
    QTest::addColumn<qint64>("size");
    QTest::addColumn<qint64>("used");
    const QByteArray empty(128 * 1024, '\0');
    QTest::newRow("nothing") << empty << "" << qint64(-1) << qint64(-1);
    QTest::newRow("text") << noise(70000, 1) << "" << qint64(-1) << qint64(-1);
    for (const auto &kind : {qMakePair(12, 3000), qMakePair(16, 20000), qMakePair(32, 70000)}) {
        const QByteArray bytes = fat(kind.first, quint32(kind.second), 123);
        QTest::newRow(qPrintable(QStringLiteral("fat%1").arg(kind.first)))
            << bytes << QStringLiteral("fat%1").arg(kind.first) << qint64(bytes.size())
            << qint64(123 * 512);
    }
    QByteArray noted = fat(32, 70000, 77);
    put<quint32>(&noted, 512 + 488, 0xFFFFFFFF);
    QTest::newRow("fat32 without a note of free clusters")
        << noted << "fat32" << qint64(noted.size()) << qint64(77 * 512);

    QByteArray exfat = empty;
    putText(&exfat, 3, "EXFAT   ");
    put<quint64>(&exfat, 72, 200);
    exfat[108] = 9;
    exfat[109] = 3;
    exfat[112] = 50;
    QTest::newRow("exfat") << exfat << "exfat" << qint64(102400) << qint64(51200);
    exfat[108] = 63;
    QTest::newRow("exfat, absurd sectors") << exfat << "" << qint64(-1) << qint64(-1);

    QByteArray ntfs = empty;
    putText(&ntfs, 3, "NTFS    ");
    put<quint16>(&ntfs, 11, 512);
    ntfs[13] = 8;
    put<quint64>(&ntfs, 40, 200);
    QTest::newRow("ntfs") << ntfs << "ntfs" << qint64(102400) << qint64(-1);

    QByteArray xfs = empty;
    putText(&xfs, 0, "XFSB");
    putBig<quint32>(&xfs, 4, 4096);
    putBig<quint64>(&xfs, 8, 100);
    putBig<quint64>(&xfs, 144, 40);
    QTest::newRow("xfs") << xfs << "xfs" << qint64(409600) << qint64(60 * 4096);
    putBig<quint64>(&xfs, 144, 400);
    QTest::newRow("xfs, more free than there is") << xfs << "" << qint64(-1) << qint64(-1);

    QByteArray btrfs = empty;
    putText(&btrfs, 65536 + 0x40, "_BHRfS_M");
    put<quint64>(&btrfs, 65536 + 0x70, 131072);
    put<quint64>(&btrfs, 65536 + 0x78, 5000);
    QTest::newRow("btrfs") << btrfs << "btrfs" << qint64(131072) << qint64(5000);

    QByteArray swap = empty;
    putText(&swap, 4086, "SWAPSPACE2");
    put<quint32>(&swap, 1028, 31);
    QTest::newRow("swap") << swap << "swap" << qint64(131072) << qint64(0);
}

void TestRecoverydDevices::probes()
{
    QFETCH(QByteArray, bytes);
    const FileSystem found = probeFileSystem(volumeOf(bytes));
    QTEST(found.type, "type");
    QTEST(found.size, "size");
    QTEST(found.used, "used");
    if (found.type.startsWith(QLatin1String("fat")))
        QCOMPARE(found.label, QStringLiteral("STICK"));
}

void TestRecoverydDevices::probesExt_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("type");
    QTest::newRow("ext2") << words("-t ext2") << "ext2";
    QTest::newRow("ext3") << words("-t ext3") << "ext3";
    QTest::newRow("ext4") << words("-t ext4") << "ext4";
    QTest::newRow("64 bit") << words("-t ext4 -O 64bit -b 4096") << "ext4";
    QTest::newRow("revision 0") << words("-t ext2 -r 0") << "ext2";
}

void TestRecoverydDevices::probesExt()
{
    QFETCH(QStringList, options);
    QString error;
    const QString path = file(QByteArray());
    QVERIFY2(makeExt(path, QString(), 8192, options + words("-L 数据盘"), &error),
             qPrintable(error));
    const auto image = Image::open(path, &error);
    const FileSystem found = probeFileSystem(Volume(image, 0, image->size()));
    QTEST(found.type, "type");
    QCOMPARE(found.label, QStringLiteral("数据盘"));
    QCOMPARE(found.size, qint64(8192 * 1024));
    QVERIFY(found.used > 0 && found.used < found.size);
}

void TestRecoverydDevices::listsDevices()
{
    QString error;
    const QString ext = file(QByteArray());
    QVERIFY2(makeExt(ext, QString(), 2048, words("-t ext4 -L a"), &error), qPrintable(error));
    QByteArray disk(24 * 1024 * 1024, '\0');
    putTable(&disk, 0, {{0, 0x83, 2048, 4096}, {1, 0x82, 6144, 2048}});
    disk.replace(2048 * 512, 2048 * 1024, readAll(ext));
    QByteArray broken(kSectors * 512, '\0');
    putTable(&broken, 0, {{0, 0x07, 1000000, 5}});

    DeviceCatalog catalog;
    for (const QByteArray &bytes : {disk, readAll(ext), broken})
        QVERIFY(catalog.addImage(file(bytes), &error));
    QStringList lines;
    const QJsonArray groups = catalog.groups();
    QCOMPARE(groups.size(), 3);
    for (const QJsonValue &group : groups) {
        const QString size = group.toObject().value(QLatin1String("diskSize")).toString();
        QVERIFY2(size.endsWith(QLatin1String("B")), qPrintable(size));
        // Older pages read a capacity out of the name, and would find a wrong one in a number.
        QVERIFY(QFile::exists(
            m_dir.filePath(group.toObject().value(QLatin1String("diskTitle")).toString())));
        const QJsonArray entries = group.toObject().value(QLatin1String("partitions")).toArray();
        for (const QJsonValue &value : entries) {
            const QJsonObject entry = value.toObject();
            QCOMPARE(entry.size(), 8);
            lines.append(
                QStringLiteral("%1|%2|%3|%4%5")
                    .arg(entry.value(QLatin1String("title")).toString(),
                         entry.value(QLatin1String("pathAndFs")).toString(),
                         entry.value(QLatin1String("total")).toString(),
                         entry.value(QLatin1String("selected")).toBool() ? QStringLiteral("s")
                                                                         : QString(),
                         entry.value(QLatin1String("dashed")).toBool() ? QStringLiteral("d")
                                                                       : QString()));
        }
    }
    QCOMPARE(lines, (QStringList{
                        QStringLiteral("a|/dev/image0p1  EXT4|2.0 MB|s"),
                        QStringLiteral("Linux Swap|/dev/image0p2  RAW|1.0 MB|"),
                        QStringLiteral("空闲空间|/dev/image0g1  RAW||d"),
                        QStringLiteral("整个磁盘|/dev/image0  RAW|24.0 MB|"),
                        QStringLiteral("a|/dev/image1  EXT4|2.0 MB|"),
                        QStringLiteral("整个磁盘（分区表损坏）|/dev/image2  RAW|2.0 MB|"),
                    }));
    Device device;
    QVERIFY(catalog.find(QStringLiteral("/dev/image0p1"), &device, &error));
    QCOMPARE(device.volume.start(), qint64(2048 * 512));
    QVERIFY(catalog.find(QStringLiteral("/dev/image0g1"), &device, &error));
    QCOMPARE(device.volume.start(), qint64(8192 * 512));
    QVERIFY(catalog.find(QStringLiteral("/dev/image0"), &device, &error));
    QCOMPARE(device.volume.size(), qint64(disk.size()));
    // Only what can hold a file system of its own is among the devices.
    QCOMPARE(catalog.devices().size(), 4);
    for (const char *path : {"/dev/image0g2", "/dev/image7", "", "/dev/sda1"})
        QVERIFY(!catalog.find(QLatin1String(path), &device, &error));
}

QTEST_GUILESS_MAIN(TestRecoverydDevices)
#include "tst_recoveryd_devices.moc"
