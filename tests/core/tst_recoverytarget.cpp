#include "core/controllers/recoverytarget.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

using namespace core::controllers;

namespace {

const qint64 kGiB = Q_INT64_C(1024) * 1024 * 1024;

// A recovery medium with a stick, a network folder, a mount with a blank, one hidden by another.
QByteArray mountInfo()
{
    return "22 1 0:20 / / rw,relatime shared:1 - overlay overlay rw,lowerdir=/a\n"
           "30 22 8:1 / /mnt/disk ro - ext4 /dev/sda1 ro\n"
           "31 22 8:17 / /media/usb\\040stick rw,nosuid shared:4 master:2 - vfat /dev/sdb1 rw\n"
           "32 22 0:44 / /mnt/net rw - nfs4 nas:/export rw\n"
           "33 22 8:2 / /mnt/twice rw - ext4 /dev/sda2 rw\n"
           "34 33 8:33 / /mnt/twice rw - xfs /dev/sdc1 rw\n"
           "a line of something else\n"
           "35 22 8:3 / /short rw -\n";
}

RecoveryTargetFacts facts(const char *device, const char *fileSystem, qint64 freeBytes)
{
    RecoveryTargetFacts made;
    made.devices = QStringList{QString::fromLatin1(device)};
    made.mountPoint = QStringLiteral("/target");
    made.fileSystem = QString::fromLatin1(fileSystem);
    made.freeBytes = freeBytes;
    return made;
}

} // namespace

Q_DECLARE_METATYPE(core::controllers::RecoveryTargetFacts)
Q_DECLARE_METATYPE(core::controllers::RecoveryDemand)

class TestRecoveryTarget : public QObject
{
    Q_OBJECT

private slots:
    void mounts_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("found"); // mount point|file system|source
        const auto row = [](const char *path, const char *found) {
            QTest::newRow(path) << QString::fromLatin1(path) << QString::fromLatin1(found);
        };
        row("/", "/|overlay|overlay");
        row("/home/user", "/|overlay|overlay");
        row("/mnt/disk", "/mnt/disk|ext4|/dev/sda1");
        row("/mnt/disk/a/b", "/mnt/disk|ext4|/dev/sda1");
        row("/mnt/disk2", "/|overlay|overlay");
        row("/media/usb stick/out", "/media/usb stick|vfat|/dev/sdb1");
        row("/mnt/net/x", "/mnt/net|nfs4|nas:/export");
        row("/mnt/twice/x", "/mnt/twice|xfs|/dev/sdc1"); // the later one hides the earlier
        row("/short", "/|overlay|overlay");
        row("relative", "||");
    }

    void mounts()
    {
        QFETCH(QString, path);
        const MountEntry mount = mountOf(path, parseMountInfo(mountInfo()));
        QTEST(QStringLiteral("%1|%2|%3").arg(mount.mountPoint, mount.fileSystem, mount.source),
              "found");
    }

    void overlapping_data()
    {
        QTest::addColumn<QString>("other");
        QTest::addColumn<bool>("overlaps");
        const auto row = [](const char *devices, bool overlaps) {
            QTest::newRow(devices) << QString::fromLatin1(devices) << overlaps;
        };
        row("/dev/sda1 /dev/sda1", true);
        row("/dev/sda1 /dev/sda", true);
        row("/dev/sda12 /dev/sda", true);
        row("/dev/sda1 /dev/sda2", false);
        row("/dev/sda1 /dev/sda12", false);
        row("/dev/sdaa /dev/sda", false);
        row("/dev/sdaa1 /dev/sda", false);
        row("/dev/nvme0n1p2 /dev/nvme0n1", true);
        row("/dev/nvme0n12 /dev/nvme0n1", false);
        row("/dev/nvme0n1p /dev/nvme0n1", false);
        row("/dev/image0p1 /dev/image0", true);
        row("/dev/image0p1 /dev/image0p12", false);
        row(" /dev/sda", false);
        row(" ", false);
    }

    void overlapping()
    {
        QFETCH(bool, overlaps);
        const QStringList devices =
            QString::fromLatin1(QTest::currentDataTag()).split(QLatin1Char(' '));
        QCOMPARE(devicesOverlap(devices[0], devices[1]), overlaps);
        QCOMPARE(devicesOverlap(devices[1], devices[0]), overlaps);
    }

    void warnings_data()
    {
        QTest::addColumn<RecoveryTargetFacts>("target");
        QTest::addColumn<RecoveryDemand>("demand");
        QTest::addColumn<QStringList>("words"); // one of each warning, in order
        const QString sda = QStringLiteral("/dev/sda1");
        const RecoveryDemand small{sda, 1000, 1000};
        const RecoveryDemand limit{sda, 4 * kGiB - 1, 4 * kGiB - 1};
        const RecoveryDemand large{sda, 6 * kGiB, 4 * kGiB};
        const QString onDevice = QStringLiteral("被扫描的设备");
        const QString space = QStringLiteral("剩余空间");
        const QString fat = QStringLiteral("FAT32");
        QTest::newRow("all is well") << facts("/dev/sdb1", "ext4", 1000) << small << QStringList();
        QTest::newRow("one byte short")
            << facts("/dev/sdb1", "ext4", 999) << small << QStringList{space};
        QTest::newRow("space unknown") << facts("/dev/sdb1", "ext4", -1) << large << QStringList();
        QTest::newRow("full") << facts("/dev/sdb1", "ext4", 0) << small << QStringList{space};
        QTest::newRow("the scanned one")
            << facts("/dev/sda1", "ext4", 1000) << small << QStringList{onDevice};
        QTest::newRow("its disk") << facts("/dev/sda", "ext4", 1000) << small
                                  << QStringList{onDevice};
        QTest::newRow("beside it") << facts("/dev/sda2", "ext4", 1000) << small << QStringList();
        RecoveryTargetFacts volume = facts("/dev/dm-0", "ext4", 1000);
        volume.devices << QStringLiteral("/dev/mapper/home") << sda;
        QTest::newRow("a volume on it") << volume << small << QStringList{onDevice};
        QTest::newRow("just fits FAT")
            << facts("/dev/sdb1", "vfat", 9 * kGiB) << limit << QStringList();
        QTest::newRow("too large for FAT")
            << facts("/dev/sdb1", "vfat", 9 * kGiB) << large << QStringList{fat};
        QTest::newRow("not FAT32")
            << facts("/dev/sdb1", "exfat", 9 * kGiB) << large << QStringList();
        QTest::newRow("everything at once")
            << facts("/dev/sda1", "msdos", 1) << large << QStringList{onDevice, space, fat};
    }

    void warnings()
    {
        QFETCH(RecoveryTargetFacts, target);
        QFETCH(RecoveryDemand, demand);
        QFETCH(QStringList, words);
        const QStringList found = recoveryTargetWarnings(demand, target);
        QCOMPARE(found.size(), words.size());
        for (int i = 0; i < found.size(); ++i)
            QVERIFY2(found.at(i).contains(words.at(i)), qPrintable(found.at(i)));
    }

    void outputDirectory()
    {
        const QDateTime now(QDate(2024, 5, 6), QTime(7, 8, 9));
        const QString first = QStringLiteral("/out/文件恢复_20240506_070809");
        QStringList taken;
        const auto make = [&] {
            return buildRecoveryOutputDir(
                QStringLiteral("  /out/ "), now,
                [&](const QString &path) { return taken.contains(path); });
        };
        QCOMPARE(make(), first);
        taken << first;
        QCOMPARE(make(), first + QStringLiteral("_1"));
        taken << first + QStringLiteral("_1");
        QCOMPARE(make(), first + QStringLiteral("_2"));

        const QTemporaryDir dir;
        const QString dangling = dir.filePath(QStringLiteral("link"));
        QVERIFY(!pathIsTaken(dangling));
        QVERIFY(QFile::link(QStringLiteral("/nowhere/at/all"), dangling));
        QVERIFY(pathIsTaken(dangling) && pathIsTaken(dir.path()));
    }

    void thisMachine()
    {
        // A base that does not exist, behind a link: its parent's real place is looked at.
        const QTemporaryDir dir;
        const QString link = dir.filePath(QStringLiteral("link"));
        QVERIFY(QFile::link(QStringLiteral("/proc"), link));
        const RecoveryTargetFacts found =
            probeRecoveryTarget(link + QStringLiteral("/none/at/all"));
        QVERIFY(found.outputDir.startsWith(link + QStringLiteral("/none/at/all/文件恢复_")));
        QCOMPARE(found.mountPoint, QStringLiteral("/proc"));
        QCOMPARE(found.fileSystem, QStringLiteral("proc"));
        QVERIFY(found.devices.isEmpty());
        QVERIFY(probeRecoveryTarget(dir.path()).freeBytes > 0);
    }
};

QTEST_GUILESS_MAIN(TestRecoveryTarget)
#include "tst_recoverytarget.moc"
