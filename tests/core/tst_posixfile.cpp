#include "core/descriptor.h"
#include "core/mounttable.h"
#include "core/posixfile.h"
#include "core/runinpool.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

using namespace core;

/// Files by descriptor, the mount table and work on the pool: what the engines share.
class TestPosixFile : public QObject
{
    Q_OBJECT

private slots:
    void copiesEveryByte_data();
    void copiesEveryByte();
    void readsOnlyWhatItMay();
    void replacesAsAWhole();
    void parsesMounts_data();
    void parsesMounts();
    void findsTheMountOfAPath();
    void handsResultsToTheContext();

private:
    QByteArray path(const char *name) const
    {
        return QFile::encodeName(m_dir.filePath(QLatin1String(name)));
    }
    QTemporaryDir m_dir;
};

void TestPosixFile::copiesEveryByte_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("toPipe"); // which copy_file_range(2) refuses
    QTest::newRow("empty") << 0 << false;
    QTest::newRow("one") << 1 << false;
    QTest::newRow("more than a chunk") << 700001 << false;
    QTest::newRow("by hand") << 30000 << true;
}

void TestPosixFile::copiesEveryByte()
{
    QFETCH(int, size);
    QFETCH(bool, toPipe);
    QByteArray bytes(size, 'x');
    for (int i = 0; i < size; ++i)
        bytes[i] = char(i * 31 >> 3);
    QCOMPARE(replaceFile(path("from"), bytes, 0600), 0);
    const Descriptor from(::open(path("from").constData(), O_RDONLY | O_CLOEXEC));
    QByteArray copy;
    if (toPipe) {
        int ends[2];
        QCOMPARE(::pipe2(ends, O_CLOEXEC), 0);
        const Descriptor reader(ends[0]);
        {
            const Descriptor writer(ends[1]);
            QCOMPARE(copyBytes(from.get(), writer.get()), 0);
        }
        QCOMPARE(readAll(reader.get(), size, &copy), 0);
    } else {
        const Descriptor to(::open(path("to").constData(), O_RDWR | O_CREAT | O_TRUNC, 0600));
        QCOMPARE(copyBytes(from.get(), to.get()), 0);
        QCOMPARE(readFile(path("to"), size, &copy), 0);
    }
    QCOMPARE(copy, bytes);
    std::atomic<bool> stop{true};
    QCOMPARE(copyBytes(from.get(), from.get(), &stop), ECANCELED);
}

void TestPosixFile::readsOnlyWhatItMay()
{
    QByteArray bytes;
    QCOMPARE(replaceFile(path("five"), "12345", 0600), 0);
    QCOMPARE(readFile(path("five"), 5, &bytes), 0);
    QCOMPARE(bytes, QByteArray("12345"));
    QCOMPARE(readFile(path("five"), 4, &bytes), EFBIG);
    QVERIFY(bytes.isEmpty());
    QCOMPARE(::symlink("five", path("link").constData()), 0);
    QCOMPARE(readFile(path("link"), 5, &bytes), ELOOP);
    QCOMPARE(::mkfifo(path("fifo").constData(), 0600), 0);
    QCOMPARE(readFile(path("fifo"), 5, &bytes), EINVAL);
    QCOMPARE(readFile(path("absent"), 5, &bytes), ENOENT);
    const Descriptor file(::open(path("five").constData(), O_RDONLY | O_CLOEXEC));
    char two[2];
    QCOMPARE(readAt(file.get(), 3, two, 2), 0);
    QCOMPARE(QByteArray(two, 2), QByteArray("45"));
    QCOMPARE(readAt(file.get(), 4, two, 2), ENODATA);
}

void TestPosixFile::replacesAsAWhole()
{
    QCOMPARE(replaceFile(path("state"), "old", 0600), 0);
    QCOMPARE(replaceFile(path("state"), "new", 0640), 0);
    struct stat info = {};
    QCOMPARE(::stat(path("state").constData(), &info), 0);
    QCOMPARE(info.st_mode & 07777, mode_t(0640));
    QCOMPARE(replaceFile(path("absent/state"), "x", 0600), ENOENT);
    // A directory in the place of the file: refused, and no temporary file stays behind.
    QCOMPARE(::mkdir(path("dir").constData(), 0700), 0);
    QCOMPARE(replaceFile(path("dir"), "x", 0600), EISDIR);
    QVERIFY(QDir(m_dir.path()).entryList({QStringLiteral("*.??????")}, QDir::Files).isEmpty());
}

void TestPosixFile::parsesMounts_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QByteArray>("mountPoint"); // empty: not a mount
    QTest::addColumn<QByteArray>("source");
    QTest::addColumn<bool>("isReadOnly");
    QTest::newRow("plain") << QByteArray("36 35 8:1 / /mnt rw,noatime shared:1 - ext4 /dev/sda1 rw")
                           << QByteArray("/mnt") << QByteArray("/dev/sda1") << false;
    QTest::newRow("no optional fields, escapes")
        << QByteArray("36 35 8:1 / /mnt/a\\040b\\134c ro - ext4 /dev/disk\\011x ro")
        << QByteArray("/mnt/a b\\c") << QByteArray("/dev/disk\tx") << true;
    QTest::newRow("a lone backslash stays") << QByteArray("1 2 0:3 / /a\\04 rw - tmpfs t rw")
                                            << QByteArray("/a\\04") << QByteArray("t") << false;
    QTest::newRow("cut") << QByteArray("36 35 8:1 / /mnt rw") << QByteArray() << QByteArray()
                         << false;
}

void TestPosixFile::parsesMounts()
{
    QFETCH(QByteArray, line);
    QFETCH(QByteArray, mountPoint);
    const QVector<Mount> mounts = parseMountTable(line + '\n');
    QCOMPARE(mounts.isEmpty(), mountPoint.isEmpty());
    if (mounts.isEmpty())
        return;
    QCOMPARE(mounts.first().mountPoint, mountPoint);
    QTEST(mounts.first().source, "source");
    QTEST(mounts.first().isReadOnly(), "isReadOnly");
}

void TestPosixFile::findsTheMountOfAPath()
{
    const QVector<Mount> mounts = parseMountTable("1 0 8:1 / / rw - ext4 root rw\n"
                                                  "2 1 8:2 / /home rw - ext4 below rw\n"
                                                  "3 2 8:3 / /home rw - xfs above rw\n");
    QCOMPARE(mountOf(mounts, "/home/li")->source, QByteArray("above"));
    QCOMPARE(mountOf(mounts, "/homes")->source, QByteArray("root"));
    QVERIFY(!mountOf({}, "/"));
    QVERIFY(!readMountTable().isEmpty());
}

void TestPosixFile::handsResultsToTheContext()
{
    int result = 0;
    auto *context = new QObject;
    runInPool(
        context, [] { return 42; }, [&result](int value) { result = value; });
    QTRY_COMPARE(result, 42);
    std::atomic<bool> isWorking{true};
    runInPool(
        context, [&isWorking] { isWorking = false; }, [&result] { result = 1; });
    delete context;
    QTRY_VERIFY(!isWorking);
    QCoreApplication::sendPostedEvents();
    QCOMPARE(result, 42);
}

QTEST_GUILESS_MAIN(TestPosixFile)
#include "tst_posixfile.moc"
