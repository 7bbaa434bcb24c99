#include "recoveryd/devices/deviceuse.h"
#include "support/diskimages.h"
#include "support/privatemounts.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <cstring>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

using namespace services::recoveryd;
using namespace diskimages;

namespace {

/// A loop device over an image; none where this process may not make one.
class Loop
{
public:
    explicit Loop(const QString &image)
    {
        QProcess losetup;
        losetup.start(QStringLiteral("losetup"),
                      {QStringLiteral("-f"), QStringLiteral("--show"), image});
        if (losetup.waitForFinished(10000) && losetup.exitCode() == 0)
            path = QString::fromLocal8Bit(losetup.readAllStandardOutput()).trimmed();
    }
    ~Loop()
    {
        if (!path.isEmpty())
            QProcess::execute(QStringLiteral("losetup"), {QStringLiteral("-d"), path});
    }
    Loop(const Loop &) = delete;
    Loop &operator=(const Loop &) = delete;

    QString number() const
    {
        struct stat info = {};
        return ::stat(qPrintable(path), &info) == 0
                   ? QStringLiteral("%1:%2").arg(::major(info.st_rdev)).arg(::minor(info.st_rdev))
                   : QString();
    }

    QString path;
};

QByteArray luks()
{
    QByteArray volume(2 * 1024 * 1024, '\0');
    volume.replace(0, 8, QByteArray("LUKS\xBA\xBE\0\1", 8));
    volume.replace(168, 36, "11111111-2222-3333-4444-555555555555");
    return volume;
}

/// A FAT12 without files.
QByteArray fatStick()
{
    QByteArray volume(2 * 1024 * 1024, '\0');
    const uchar boot[] = {0xEB, 0x3C, 0x90, 'M', 'K', 'D', 'O', 'S', 'F', 'S',  ' ', 0,
                          2,    4,    1,    0,   2,   0,   2,   0,   16,  0xF8, 3,   0};
    std::memcpy(volume.data(), boot, sizeof(boot));
    std::memcpy(volume.data() + 38, "\x29\x12\x34\x56\x78", 5);
    std::memcpy(volume.data() + 510, "\x55\xAA", 2);
    return volume;
}

} // namespace

/// Block devices as a made-up sysfs shows them; where that is allowed, with loop devices and mounts
/// behind them that only this process sees.
class TestRecoverydDisks : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void listsDisks();
    void seesNewDisks();
    void knowsWhatStandsOnWhat();
    void preparesMounted_data();
    void preparesMounted();
    void refusesWhatIsInUse();
    void claims();
    void refusesItselfAsTarget();

private:
    void addDisk(const QString &name, const QString &number, qint64 size);
    void put(const QString &file, const QByteArray &text);
    QString dev(const QString &name) const { return m_paths.dev + QLatin1Char('/') + name; }
    QStringList lines(const DeviceCatalog &catalog) const;
    /// An ext4 disk "sda" on a loop device; null where that cannot be.
    std::unique_ptr<Loop> makeLoopDisk();
    Device sda() const;

    bool m_hasMounts = false;
    std::unique_ptr<QTemporaryDir> m_dir;
    BlockDevices::Paths m_paths;
    DeviceUse::Calls m_calls = DeviceUse::Calls::ofSystem();
};

void TestRecoverydDisks::initTestCase()
{
    m_hasMounts = testsupport::enterPrivateMounts();
}

void TestRecoverydDisks::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_paths.sys = m_dir->filePath(QStringLiteral("sys"));
    m_paths.dev = m_dir->filePath(QStringLiteral("dev"));
    m_paths.udev = m_dir->filePath(QStringLiteral("udev"));
    QVERIFY(QDir().mkpath(m_paths.dev) && QDir().mkpath(m_paths.udev));
}

void TestRecoverydDisks::put(const QString &file, const QByteArray &text)
{
    QVERIFY(QDir().mkpath(QFileInfo(file).path()));
    QVERIFY(write(file, text));
}

void TestRecoverydDisks::addDisk(const QString &name, const QString &number, qint64 size)
{
    const QString folder = m_paths.sys + QStringLiteral("/block/") + name + QLatin1Char('/');
    put(folder + QStringLiteral("size"), QByteArray::number(size / 512) + '\n');
    put(folder + QStringLiteral("dev"), number.toLatin1() + '\n');
    QVERIFY(QDir().mkpath(m_paths.sys + QStringLiteral("/dev/block")));
    QVERIFY(QFile::link(folder.chopped(1), m_paths.sys + QStringLiteral("/dev/block/") + number));
}

QStringList TestRecoverydDisks::lines(const DeviceCatalog &catalog) const
{
    QStringList lines;
    const QJsonArray groups = catalog.groups();
    for (const QJsonValue &group : groups) {
        const QString disk = group.toObject().value(QLatin1String("diskTitle")).toString();
        const QJsonArray entries = group.toObject().value(QLatin1String("partitions")).toArray();
        for (const QJsonValue &value : entries) {
            const QJsonObject entry = value.toObject();
            lines.append(QStringLiteral("%1|%2|%3|%4")
                             .arg(disk, entry.value(QLatin1String("title")).toString(),
                                  entry.value(QLatin1String("pathAndFs")).toString(),
                                  entry.value(QLatin1String("mountPoint")).toString()));
        }
    }
    return lines;
}

void TestRecoverydDisks::listsDisks()
{
    const qint64 mebi = 1024 * 1024;
    QString error;
    QVERIFY2(makeExt(dev(QStringLiteral("sda1")), QString(), 4096, {}, &error), qPrintable(error));
    QVERIFY(write(dev(QStringLiteral("sda2")), luks()));
    QVERIFY(write(dev(QStringLiteral("sda")), QByteArray(16 * int(mebi), '\0')));
    addDisk(QStringLiteral("sda"), QStringLiteral("900:0"), 16 * mebi);
    const QString folder = m_paths.sys + QStringLiteral("/block/sda/");
    put(folder + QStringLiteral("device/model"), "Model of 1998  \n");
    put(folder + QStringLiteral("device/vendor"), "ATA     \n");
    put(folder + QStringLiteral("queue/rotational"), "0\n");
    int number = 0;
    for (const qint64 start : {1, 5}) {
        const QString part = folder + QStringLiteral("sda%1/").arg(++number);
        put(part + QStringLiteral("partition"), QByteArray::number(number));
        put(part + QStringLiteral("start"), QByteArray::number(start * mebi / 512));
        put(part + QStringLiteral("size"), QByteArray::number(4 * mebi / 512));
        put(part + QStringLiteral("dev"), "900:" + QByteArray::number(number));
    }
    addDisk(QStringLiteral("sdb"), QStringLiteral("900:16"), mebi); // has no node
    put(m_paths.udev + QStringLiteral("/b900:16"), "I:1\nE:ID_MODEL=USB_Stick\nE:ID_WWN=0x5\n");
    addDisk(QStringLiteral("sdc"), QStringLiteral("900:32"), 0); // a reader without a card
    addDisk(QStringLiteral("loop0"), QStringLiteral("907:0"), mebi);
    addDisk(QStringLiteral("dm-0"), QStringLiteral("953:0"), 4 * mebi);
    put(m_paths.sys + QStringLiteral("/block/dm-0/dm/name"), "vg-home\n");
    QVERIFY(QFile::copy(dev(QStringLiteral("sda1")), dev(QStringLiteral("dm-0"))));

    DeviceCatalog catalog;
    catalog.offerBlockDevices(m_paths);
    QCOMPARE(lines(catalog).join(QLatin1Char('\n')),
             QStringLiteral("Model of 1998 SSD|文件系统|/dev/sda1  EXT2|未挂载\n"
                            "Model of 1998 SSD|加密卷|/dev/sda2  LUKS|未挂载\n"
                            "Model of 1998 SSD|空闲空间|/dev/sda.g1  RAW|未挂载\n"
                            "Model of 1998 SSD|整个磁盘|/dev/sda  RAW|未挂载\n"
                            "USB Stick|无法读取的磁盘|/dev/sdb  RAW|未挂载\n"
                            "逻辑卷 vg-home|文件系统|/dev/dm-0  EXT2|未挂载"));
    Device device;
    QVERIFY(catalog.find(QStringLiteral("/dev/sda.g1"), &device, &error));
    QCOMPARE(device.volume.start(), 9 * mebi);
    QVERIFY(catalog.find(QStringLiteral("/dev/sda1"), &device, &error));
    QCOMPARE(device.volume.image()->path(), dev(QStringLiteral("sda1")));
    QVERIFY(!catalog.find(QStringLiteral("/dev/sdb"), &device, &error));
    QVERIFY(!error.isEmpty());
    // An encrypted volume is never scanned as if it were a file system.
    DeviceUse use(BlockDevices(m_paths), QString(), m_calls);
    QString action;
    QVERIFY(catalog.find(QStringLiteral("/dev/sda2"), &device, &error));
    QVERIFY(!use.prepare(device, &action, &error) && !use.claim(&device, &error));
}

void TestRecoverydDisks::seesNewDisks()
{
    const QByteArray stick = fatStick();
    DeviceCatalog catalog;
    catalog.offerBlockDevices(m_paths);
    QCOMPARE(lines(catalog).size(), 0);
    addDisk(QStringLiteral("sdb"), QStringLiteral("900:16"), stick.size());
    QVERIFY(write(dev(QStringLiteral("sdb")), stick));
    QCOMPARE(lines(catalog).size(), 1);

    // The same stick under another name is known again; another one in its place is not.
    Device device;
    QString error;
    QVERIFY(catalog.find(QStringLiteral("/dev/sdb"), &device, &error));
    DeviceMark mark{device.path, device.volume.image()->path(), 0, identityOf(device)};
    addDisk(QStringLiteral("sdc"), QStringLiteral("900:32"), stick.size());
    QVERIFY(QFile::rename(dev(QStringLiteral("sdb")), dev(QStringLiteral("sdc"))));
    QVERIFY2(catalog.findAgain(mark, &device, &error), qPrintable(error));
    QCOMPARE(device.path, QStringLiteral("/dev/sdc"));
    QVERIFY(patch(dev(QStringLiteral("sdc")), 39, "\x77"));
    QVERIFY(!catalog.findAgain(mark, &device, &error));
    QVERIFY(!error.isEmpty());
}

void TestRecoverydDisks::knowsWhatStandsOnWhat()
{
    addDisk(QStringLiteral("sda"), QStringLiteral("900:0"), 1);
    addDisk(QStringLiteral("dm-0"), QStringLiteral("953:0"), 1);
    addDisk(QStringLiteral("dm-1"), QStringLiteral("953:1"), 1);
    const QString block = m_paths.sys + QStringLiteral("/block/");
    put(block + QStringLiteral("sda/sda2/partition"), "2");
    for (const char *name : {"dm-0", "dm-1"})
        QVERIFY(QDir().mkpath(block + QLatin1String(name) + QStringLiteral("/slaves")));
    QVERIFY(QFile::link(block + QStringLiteral("sda/sda2"),
                        block + QStringLiteral("dm-0/slaves/sda2")));
    QVERIFY(
        QFile::link(block + QStringLiteral("dm-0"), block + QStringLiteral("dm-1/slaves/dm-0")));
    // A circle, as only a damaged or hostile system has it.
    QVERIFY(
        QFile::link(block + QStringLiteral("dm-1"), block + QStringLiteral("dm-0/slaves/dm-1")));
    const BlockDevices devices(m_paths);
    QCOMPARE(devices.stackBelow(QStringLiteral("953:1")).join(QLatin1Char(' ')),
             QStringLiteral("dm-1 dm-0 sda2 sda"));
    QCOMPARE(devices.stackBelow(QStringLiteral("1:1")), QStringList());
}

std::unique_ptr<Loop> TestRecoverydDisks::makeLoopDisk()
{
    const QString image = m_dir->filePath(QStringLiteral("image"));
    QString error;
    if (!m_hasMounts ||
        !makeExt(image, QString(), 8192, {QStringLiteral("-t"), QStringLiteral("ext4")}, &error))
        return nullptr;
    auto loop = std::make_unique<Loop>(image);
    if (loop->path.isEmpty() || !QFile::link(loop->path, dev(QStringLiteral("sda"))))
        return nullptr;
    addDisk(QStringLiteral("sda"), loop->number(), 8192 * 1024);
    return loop;
}

Device TestRecoverydDisks::sda() const
{
    DeviceCatalog catalog;
    catalog.offerBlockDevices(m_paths);
    Device device;
    QString error;
    if (!catalog.find(QStringLiteral("/dev/sda"), &device, &error))
        qWarning() << error;
    return device;
}

void TestRecoverydDisks::preparesMounted_data()
{
    QTest::addColumn<QString>("place"); // below the test's folder, or in the system
    QTest::addColumn<int>("openFlags"); // how a file of it is held open; -1: not at all
    QTest::addColumn<ulong>("mountFlags");
    QTest::addColumn<QString>("action"); // empty: refused
    const auto row = [](const char *name, const char *place, int openFlags, ulong flags,
                        const char *action) {
        QTest::newRow(name) << QString::fromLatin1(place) << openFlags << flags
                            << QString::fromLatin1(action);
    };
    row("idle", "my disk", -1, 0, "unmounted");
    row("read from", "mnt", O_RDONLY, 0, "mounted_readonly");
    row("written to", "mnt", O_RDWR, 0, "");
    row("read-only already", "mnt", O_RDONLY, MS_RDONLY, "mounted_readonly");
    row("of the running system", "/opt", -1, 0, "");
    row("where the program looks for the installed system", "target", -1, 0, "mounted_readonly");
}

void TestRecoverydDisks::preparesMounted()
{
    QFETCH(QString, place);
    QFETCH(int, openFlags);
    QFETCH(ulong, mountFlags);
    QFETCH(QString, action);
    const auto loop = makeLoopDisk();
    if (!loop)
        QSKIP("needs loop devices and mounts of its own");
    const QString target = QDir::isAbsolutePath(place) ? place : m_dir->filePath(place);
    QVERIFY(QDir().mkpath(target));
    const auto mountNow = [&](ulong flags) {
        return ::mount(qPrintable(loop->path), qPrintable(target), "ext4", flags, nullptr) == 0;
    };
    const QString file = target + QStringLiteral("/file");
    QVERIFY(mountNow(0));
    QVERIFY(write(file, "content"));
    if (mountFlags != 0) {
        QCOMPARE(::umount(qPrintable(target)), 0);
        QVERIFY(mountNow(mountFlags));
    }
    const int fd = openFlags < 0 ? -1 : ::open(qPrintable(file), openFlags);

    DeviceUse use(BlockDevices(m_paths), m_dir->filePath(QStringLiteral("target")), m_calls);
    Device device = sda();
    QVERIFY(device.volume.isValid());
    QVERIFY(!mountPointsOf(device).isEmpty());
    QString done;
    QString error;
    QCOMPARE(use.prepare(device, &done, &error), !action.isEmpty());
    QCOMPARE(error.isEmpty(), !action.isEmpty());
    if (!action.isEmpty())
        QCOMPARE(done, action);
    QCOMPARE(mountPointsOf(device).isEmpty(), action == QLatin1String("unmounted"));
    // What was not refused cannot be written to, and can be scanned.
    QCOMPARE(write(file, "changed"), action.isEmpty() || action == QLatin1String("unmounted"));
    QCOMPARE(use.claim(&device, &error), !action.isEmpty());
    if (fd >= 0)
        ::close(fd);
    ::umount2(qPrintable(target), MNT_DETACH);
}

void TestRecoverydDisks::refusesWhatIsInUse()
{
    // As in the tables of a system that swaps to the disk, or has a mapping on its partition.
    QVERIFY(write(dev(QStringLiteral("sda1")), fatStick()));
    Device device;
    device.path = QStringLiteral("/dev/sda1");
    device.blockName = QStringLiteral("sda1");
    put(m_paths.sys + QStringLiteral("/class/block/sda1/holders/dm-3/size"), "1");
    DeviceUse use(BlockDevices(m_paths), QString(), m_calls);
    QString action;
    QString error;
    QVERIFY(!use.prepare(device, &action, &error));
    QVERIFY(error.contains(QStringLiteral("dm-3")));

    const auto loop = makeLoopDisk();
    if (!loop)
        QSKIP("needs a loop device");
    m_calls.swaps = m_dir->filePath(QStringLiteral("swaps"));
    put(m_calls.swaps, "Filename Type\n" + loop->path.toLocal8Bit() + " partition 1 0 -2\n");
    DeviceUse swapping(BlockDevices(m_paths), QString(), m_calls);
    m_calls = DeviceUse::Calls::ofSystem();
    QVERIFY(!swapping.prepare(sda(), &action, &error));
    QVERIFY(error.contains(QStringLiteral("交换")));
}

void TestRecoverydDisks::claims()
{
    const auto loop = makeLoopDisk();
    if (!loop)
        QSKIP("needs a loop device");
    DeviceUse use(BlockDevices(m_paths), QString(), m_calls);
    QString error;
    Device first = sda();
    QVERIFY2(use.claim(&first, &error), qPrintable(error));
    QVERIFY(!first.volume.read(0, 4096).isEmpty());
    // While it is held, nobody can mount it.
    const QString target = m_dir->filePath(QStringLiteral("mnt"));
    QVERIFY(QDir().mkpath(target));
    QVERIFY(::mount(qPrintable(loop->path), qPrintable(target), "ext4", 0, nullptr) != 0);
    Device second = sda();
    second.kind = Device::Kind::Partition;
    QVERIFY(!use.claim(&second, &error));
    QVERIFY(!error.isEmpty());
}

void TestRecoverydDisks::refusesItselfAsTarget()
{
    const auto loop = makeLoopDisk();
    if (!loop)
        QSKIP("needs a loop device");
    const QString target = m_dir->filePath(QStringLiteral("mnt"));
    QVERIFY(QDir().mkpath(target));
    QCOMPARE(::mount(qPrintable(loop->path), qPrintable(target), "ext4", 0, nullptr), 0);
    const DeviceUse use(BlockDevices(m_paths), QString(), m_calls);
    const Device device = sda();
    QVERIFY(use.isTargetOnDevice(target + QStringLiteral("/not/yet/there"), device));
    QVERIFY(!use.isTargetOnDevice(m_dir->path(), device));
    // The same by the image behind a loop device of the real system.
    Device image;
    const QString path = m_dir->filePath(QStringLiteral("image"));
    image.volume = Volume(Image::open(path, nullptr), 0, 8192 * 1024);
    const DeviceUse real(BlockDevices(BlockDevices::Paths()), QString(), m_calls);
    QVERIFY(real.isTargetOnDevice(target, image));
    QVERIFY(!real.isTargetOnDevice(m_dir->path(), image));
    ::umount2(qPrintable(target), MNT_DETACH);
}

QTEST_GUILESS_MAIN(TestRecoverydDisks)
#include "tst_recoveryd_disks.moc"
