#include "../extimage.h"
#include "recoveryd/xfs/xfssupport.h"
#include "support/diskimages.h"
#include "support/scanharness.h"

#include <QDateTime>
#include <QDir>
#include <QMap>
#include <QRandomGenerator>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include <fcntl.h>
#include <unistd.h>

using namespace services::recoveryd;
using namespace diskimages;
using namespace testsupport;

namespace {

using Files = QMap<QString, QByteArray>; ///< By path below the root of the volume.
using Mode = ScanRequest::Mode;

constexpr int kSizeMiB = 64;

QStringList words(const char *text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '));
}

bool runMkfs(const QString &path, const QStringList &options)
{
    QString error;
    // Small volumes are for tests only, so mkfs has to be told.
    const QStringList all = QStringList{QStringLiteral("--unsupported"), QStringLiteral("-f"),
                                        QStringLiteral("-q"), QStringLiteral("-K")} +
                            options + QStringList(path);
    const bool isDone = runTool(QStringLiteral("mkfs.xfs"), all, &error);
    if (!isDone)
        qWarning("%s", qPrintable(error));
    return isDone;
}

bool format(const ExtImage &image, const QStringList &options)
{
    QFile file(image.path());
    return file.open(QIODevice::ReadWrite | QIODevice::Truncate) &&
           file.resize(qint64(kSizeMiB) << 20) && runMkfs(image.path(), options);
}

QString pathOf(const Finding &finding)
{
    return QString::fromUtf8(finding.folder.isEmpty() ? finding.name
                                                      : finding.folder + '/' + finding.name);
}

Files lostFiles()
{
    Files files;
    files.insert(QStringLiteral("tiny.txt"), noise(9, 1));
    files.insert(QStringLiteral("文档/报告.bin"), noise(70000, 2));
    files.insert(QStringLiteral("文档/深/更深/a b.bin"), noise(3000, 3));
    files.insert(QStringLiteral("folder/new\nline"), noise(5000, 4));
    files.insert(QStringLiteral("folder/") + QString(120, QLatin1Char('n')), noise(4097, 5));
    files.insert(QStringLiteral("folder/inner/x"), noise(300, 6));
    files.insert(QStringLiteral("large.bin"), noise(3000000, 7));
    // More than one block of entries.
    for (int i = 0; i < 300; ++i)
        files.insert(QStringLiteral("many/a longer name of number %1").arg(i),
                     noise(100 + i, quint32(100 + i)));
    return files;
}

bool remove(const ExtImage &image)
{
    for (const char *name : {"tiny.txt", "文档", "folder", "large.bin", "many"})
        if (!image.remove(QString::fromUtf8(name)))
            return false;
    return true;
}

} // namespace

class TestRecoverydXfs : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void findsDeletedFiles_data();
    void findsDeletedFiles();
    void findsEarlierContents();
    void findsFilesWithoutLog();
    void readsWhatACrashLeaves();
    void knowsFreeSpaceWithoutItsTree();
    void readsDamagedVolumes_data();
    void readsDamagedVolumes();
    void findsFilesOfAnEarlierFormat();
    void survivesDamage();

private:
    [[nodiscard]] bool fill(const ExtImage &image, const Files &files);
    QVector<Finding> scan(const QString &image, Mode mode, bool listsExisting, qint64 start = 0);
    void compare(const QString &image, const QVector<Finding> &findings, const Files &files,
                 bool isDeleted);

    QTemporaryDir m_dir;
    QString m_mountPoint;
    QString m_imagePath;
};

void TestRecoverydXfs::initTestCase()
{
    const QString obstacle = ExtImage::obstacle();
    if (!obstacle.isEmpty())
        QSKIP(qPrintable(obstacle));
    m_mountPoint = m_dir.filePath(QStringLiteral("mnt"));
    m_imagePath = m_dir.filePath(QStringLiteral("xfs.img"));
    QVERIFY(QDir().mkpath(m_mountPoint));
    ExtImage image(m_imagePath, m_mountPoint);
    if (!format(image, {}) || !image.mount())
        QSKIP("needs mkfs.xfs and a kernel with XFS");
}

bool TestRecoverydXfs::fill(const ExtImage &image, const Files &files)
{
    for (auto file = files.cbegin(); file != files.cend(); ++file)
        if (!image.write(file.key(), file.value()))
            return false;
    return true;
}

QVector<Finding> TestRecoverydXfs::scan(const QString &image, Mode mode, bool listsExisting,
                                        qint64 start)
{
    ScanContext context;
    context.media = mediaOf(image);
    if (context.media && start > 0)
        context.media = std::make_shared<MediaReader>(
            Volume(context.media->volume().image(), start, context.media->size() - start));
    context.request.mode = mode;
    context.listsExisting = listsExisting;
    CollectingObserver observer;
    QString error;
    if (!context.media || !xfsSupport().makeScanner(context)->scan(observer, &error))
        qWarning("%s", qPrintable(error));
    return observer.findings;
}

/// Each file is found once, whole and in its folder, and nothing else is.
void TestRecoverydXfs::compare(const QString &image, const QVector<Finding> &findings,
                               const Files &files, bool isDeleted)
{
    const auto media = mediaOf(image);
    QSet<QString> found;
    for (const Finding &finding : findings) {
        const QString path = pathOf(finding);
        QVERIFY2(!found.contains(path), qPrintable(path));
        QVERIFY2(files.contains(path), qPrintable(path));
        QVERIFY2(bytesOf(*media, finding) == files.value(path), qPrintable(path));
        QCOMPARE(finding.folderKnowledge, Finding::Folder::Full);
        QVERIFY2(finding.isMapComplete && finding.isSizeExact, qPrintable(path));
        QCOMPARE(finding.isDeleted, isDeleted);
        found.insert(path);
    }
    for (auto file = files.cbegin(); file != files.cend(); ++file)
        QVERIFY2(found.contains(file.key()), qPrintable(file.key()));
}

void TestRecoverydXfs::findsDeletedFiles_data()
{
    QTest::addColumn<QStringList>("format");
    QTest::newRow("usual") << QStringList();
    QTest::newRow("1 KiB blocks, 8 KiB directories") << words("-b size=1024 -n size=8192");
    QTest::newRow("reverse map, large counts") << words("-m rmapbt=1 -i nrext64=1");
    QTest::newRow("old times, large inodes") << words("-m bigtime=0 -i size=2048");
    QTest::newRow("4 KiB sectors, 3 groups") << words("-s size=4096 -d agcount=3");
    QTest::newRow("no sparse chunks, striped log") << words("-i sparse=0 -l sunit=64");
}

void TestRecoverydXfs::findsDeletedFiles()
{
    QFETCH(QStringList, format);
    Files files = lostFiles();
    ExtImage image(m_imagePath, m_mountPoint);
    QVERIFY(::format(image, format));
    QVERIFY(image.mount());
    QVERIFY(image.write(QStringLiteral("kept/a"), noise(20000, 20)));
    QVERIFY(fill(image, files));
    // More pieces than an inode has room for.
    const QByteArray scattered = noise(1200000, 8);
    QVERIFY(
        image.writeInTurn(QStringLiteral("scattered"), QStringLiteral("kept/b"), scattered, 4096));
    files.insert(QStringLiteral("scattered"), scattered);
    // A hole, and blocks that are reserved but not written.
    QByteArray sparse(300000, '\0');
    sparse.replace(200000, 9000, noise(9000, 9));
    files.insert(QStringLiteral("sparse"), sparse);
    {
        QFile file(image.inside(QStringLiteral("sparse")));
        QVERIFY(file.open(QIODevice::WriteOnly) &&
                ::posix_fallocate(file.handle(), 100000, 200000) == 0 && file.seek(200000) &&
                file.write(sparse.mid(200000, 9000)) == 9000);
    }
    image.sync();
    QVERIFY(image.remount());
    const qint64 before = QDateTime::currentMSecsSinceEpoch() - 2000;
    QVERIFY(remove(image));
    QVERIFY(image.remove(QStringLiteral("scattered")) && image.remove(QStringLiteral("sparse")));
    QVERIFY(image.unmount());

    const QVector<Finding> findings = scan(m_imagePath, Mode::Quick, false);
    compare(m_imagePath, findings, files, true);
    for (const Finding &finding : findings)
        QVERIFY(finding.deletedMs >= before && finding.modifiedMs >= before - 60000);
}

/// Of a file that still exists, or whose name is another one's now, what it held before is found.
void TestRecoverydXfs::findsEarlierContents()
{
    ExtImage image(m_imagePath, m_mountPoint);
    QVERIFY(format(image, {}));
    QVERIFY(image.mount());
    Files files;
    for (const char *name : {"a/emptied", "a/shortened", "a/replaced", "a/grown", "a/moved"})
        files.insert(QString::fromLatin1(name), noise(30000, quint32(files.size()) + 1));
    QVERIFY(fill(image, files));
    image.sync();
    QVERIFY(image.remount());
    QVERIFY(QFile::resize(image.inside(QStringLiteral("a/emptied")), 0));
    QVERIFY(QFile::resize(image.inside(QStringLiteral("a/shortened")), 100));
    QVERIFY(image.write(QStringLiteral("a/new"), noise(20000, 50)));
    QVERIFY(::rename(QFile::encodeName(image.inside(QStringLiteral("a/new"))).constData(),
                     QFile::encodeName(image.inside(QStringLiteral("a/replaced"))).constData()) ==
            0);
    {
        QFile file(image.inside(QStringLiteral("a/grown")));
        QVERIFY(file.open(QIODevice::Append) && file.write(noise(9000, 51)) == 9000);
    }
    QVERIFY(image.makeFolder(QStringLiteral("bin")));
    QVERIFY(QFile::rename(image.inside(QStringLiteral("a/moved")),
                          image.inside(QStringLiteral("bin/moved"))));
    image.sync();
    QVERIFY(image.remove(QStringLiteral("bin/moved")));
    QVERIFY(QFile::rename(image.inside(QStringLiteral("a")), image.inside(QStringLiteral("b"))));
    QVERIFY(image.unmount());

    const auto media = mediaOf(m_imagePath);
    Files found;
    for (const Finding &finding : scan(m_imagePath, Mode::Quick, false)) {
        QVERIFY(finding.isDeleted && finding.isMapComplete);
        found.insert(pathOf(finding), bytesOf(*media, finding));
    }
    // The folder exists and goes by its present name; a file lies where it was deleted.
    QCOMPARE(found.keys(),
             (QStringList{QStringLiteral("b/emptied"), QStringLiteral("b/replaced"),
                          QStringLiteral("b/shortened"), QStringLiteral("bin/moved")}));
    QVERIFY(found.value(QStringLiteral("b/emptied")) == files.value(QStringLiteral("a/emptied")));
    QVERIFY(found.value(QStringLiteral("b/replaced")) == files.value(QStringLiteral("a/replaced")));
    QVERIFY(found.value(QStringLiteral("bin/moved")) == files.value(QStringLiteral("a/moved")));
    // Its first block is in use and was cleared behind the new end.
    QVERIFY(found.value(QStringLiteral("b/shortened")).mid(4096) ==
            files.value(QStringLiteral("a/shortened")).mid(4096));
}

/// Long after the deletion, or where the log was cleared by a repair.
void TestRecoverydXfs::findsFilesWithoutLog()
{
    const Files files = lostFiles();
    ExtImage image(m_imagePath, m_mountPoint);
    QVERIFY(format(image, {}));
    QVERIFY(image.mount());
    QVERIFY(image.write(QStringLiteral("kept/a"), noise(20000, 20)));
    QVERIFY(fill(image, files));
    image.sync();
    QVERIFY(image.remount());
    QVERIFY(remove(image));
    QVERIFY(image.unmount());
    // The number of the log's first block, blocks of a group, the log's blocks.
    const QByteArray head = readAll(m_imagePath).left(512);
    const quint64 start = qFromBigEndian<quint64>(head.constData() + 48);
    const int bits = head.at(124);
    const quint64 group = start >> bits;
    const quint32 perGroup = qFromBigEndian<quint32>(head.constData() + 84);
    const quint64 block = group * perGroup + (start & ((1ULL << bits) - 1));
    const quint32 length = qFromBigEndian<quint32>(head.constData() + 96) * 4096;
    QVERIFY(patch(m_imagePath, qint64(block) * 4096, QByteArray(int(length), '\0')));

    const auto media = mediaOf(m_imagePath);
    int whole = 0;
    int named = 0;
    for (const Finding &finding : scan(m_imagePath, Mode::Deep, false)) {
        QVERIFY(finding.source != FindingSource::Journal);
        const QByteArray bytes = bytesOf(*media, finding);
        const bool isRight = files.values().contains(bytes);
        QVERIFY2(isRight || !finding.isSizeExact, qPrintable(pathOf(finding)));
        whole += isRight ? 1 : 0;
        named += isRight && files.value(pathOf(finding)) == bytes ? 1 : 0;
    }
    QVERIFY2(whole >= files.size() * 98 / 100, qPrintable(QString::number(whole)));
    QVERIFY2(named >= files.size() * 85 / 100, qPrintable(QString::number(named)));
}

/// The log has yet to write what happened last.
void TestRecoverydXfs::readsWhatACrashLeaves()
{
    const Files files = lostFiles();
    ExtImage image(m_imagePath, m_mountPoint);
    QVERIFY(format(image, {}));
    QVERIFY(image.mount());
    QVERIFY(image.write(QStringLiteral("kept/a"), noise(20000, 20)));
    QVERIFY(fill(image, files));
    image.sync();
    const QString full = m_dir.filePath(QStringLiteral("full.img"));
    QVERIFY(image.copyTo(full));
    QVERIFY(remove(image));
    image.sync();
    const QString emptied = m_dir.filePath(QStringLiteral("emptied.img"));
    QVERIFY(image.copyTo(emptied));
    QVERIFY(image.unmount());

    Files existing = files;
    existing.insert(QStringLiteral("kept/a"), noise(20000, 20));
    compare(full, scan(full, Mode::Quick, false), Files(), true);
    compare(full, scan(full, Mode::Quick, true), existing, false);
    const QVector<Finding> findings = scan(emptied, Mode::Quick, false);
    compare(emptied, findings, files, true);
    // By what the log says, their blocks are free, but of files that are still being freed.
    Ranges free;
    qint64 total = 0;
    qint64 freed = 0;
    QString error;
    QVERIFY2(xfsSupport().freeRanges(*mediaOf(emptied), &free, &error), qPrintable(error));
    for (const Finding &finding : findings)
        for (const Range &range : finding.content.storedRanges()) {
            total += range.length;
            freed += overlapOf({range}, free);
        }
    QVERIFY2(freed > total / 2, qPrintable(QString::number(freed)));
}

void TestRecoverydXfs::knowsFreeSpaceWithoutItsTree()
{
    ExtImage image(m_imagePath, m_mountPoint);
    QVERIFY(format(image, {}));
    QVERIFY(image.mount());
    QVERIFY(fill(image, lostFiles()));
    QVERIFY(image.unmount());
    Ranges byTree;
    Ranges byInodes;
    QString error;
    QVERIFY2(xfsSupport().freeRanges(*mediaOf(m_imagePath), &byTree, &error), qPrintable(error));
    QVERIFY(patch(m_imagePath, 512, QByteArray(512, '\0'))); // first group's head of free space
    QVERIFY2(xfsSupport().freeRanges(*mediaOf(m_imagePath), &byInodes, &error), qPrintable(error));
    QVERIFY(totalLength(byTree) > 0);
    // What is called free is free, but for a few blocks of trees.
    QVERIFY(totalLength(subtracted(byInodes, byTree)) <= 64 * 4096);
    QVERIFY(totalLength(subtracted(byTree, byInodes)) <= 64 * 4096);
    // Without its inodes either, nothing can be said.
    QVERIFY(patch(m_imagePath, 1024, QByteArray(512, '\0')));
    QVERIFY(!xfsSupport().freeRanges(*mediaOf(m_imagePath), &byInodes, &error));
    QVERIFY(!error.isEmpty());
}

void TestRecoverydXfs::readsDamagedVolumes_data()
{
    QTest::addColumn<QStringList>("format");
    QTest::addColumn<qint64>("wiped");  // bytes from the start of the volume
    QTest::addColumn<qint64>("before"); // bytes of the disk before the volume
    QTest::newRow("superblock") << QStringList() << qint64(512) << qint64(0);
    QTest::newRow("all heads of the first group") << QStringList() << qint64(4096) << qint64(0);
    QTest::newRow("heads, 1 KiB, 3 groups")
        << words("-b size=1024 -d agcount=3") << qint64(4096) << qint64(0);
    QTest::newRow("lost partition") << QStringList() << qint64(0) << qint64(3 << 20);
    QTest::newRow("lost partition without a head")
        << words("-s size=4096") << qint64(16384) << qint64(3 << 20);
}

void TestRecoverydXfs::readsDamagedVolumes()
{
    QFETCH(QStringList, format);
    QFETCH(qint64, wiped);
    QFETCH(qint64, before);
    const Files files = lostFiles();
    ExtImage image(m_imagePath, m_mountPoint);
    QVERIFY(::format(image, format));
    QVERIFY(image.mount());
    QVERIFY(fill(image, files));
    QVERIFY(image.unmount());
    QByteArray bytes = readAll(m_imagePath);
    bytes.replace(0, int(wiped), QByteArray(int(wiped), '\0'));
    QVERIFY(write(m_imagePath, noise(int(before), 30) + bytes));

    qint64 start = -1;
    const auto media = mediaOf(m_imagePath);
    for (qint64 at = 0; at < media->size(); at += 512) {
        FoundVolume found;
        if (!xfsSupport().recognise(*media, at, media->read(at, 4096), &found))
            continue;
        QCOMPARE(found.isFromBackup, found.start != at);
        QVERIFY(start < 0 || start == found.start);
        start = found.start;
    }
    QCOMPARE(start, before);
    const QVector<Finding> findings = scan(m_imagePath, Mode::Quick, true, before);
    // Places are those of the volume.
    QFile::remove(m_imagePath);
    QVERIFY(write(m_imagePath, bytes));
    compare(m_imagePath, findings, files, false);
}

void TestRecoverydXfs::findsFilesOfAnEarlierFormat()
{
    ExtImage image(m_imagePath, m_mountPoint);
    QVERIFY(format(image, {}));
    QVERIFY(image.mount());
    Files files;
    for (int i = 0; i < 200; ++i)
        files.insert(QStringLiteral("照片/%1/f%2").arg(i % 3).arg(i), noise(5000, quint32(i)));
    QVERIFY(fill(image, files));
    QVERIFY(image.unmount());
    QVERIFY(runMkfs(m_imagePath, {}));

    const auto media = mediaOf(m_imagePath);
    int found = 0;
    for (const Finding &finding : scan(m_imagePath, Mode::Quick, false)) {
        // The root is a new one, and the folders next to it may have been overwritten.
        const QString name = QString::fromUtf8(finding.name);
        const QString path = QStringLiteral("照片/%1/%2").arg(name.mid(1).toInt() % 3).arg(name);
        QVERIFY2(files.contains(path) && path.endsWith(pathOf(finding)), qPrintable(path));
        QVERIFY(bytesOf(*media, finding) == files.value(path));
        ++found;
    }
    // All but those whose inodes the new file system has taken for itself.
    QVERIFY2(found >= 130, qPrintable(QString::number(found)));
}

/// Whatever the structures say, a scan ends and stays inside the image.
void TestRecoverydXfs::survivesDamage()
{
    ExtImage image(m_imagePath, m_mountPoint);
    QVERIFY(format(image, {}));
    QVERIFY(image.mount());
    QVERIFY(fill(image, lostFiles()));
    QVERIFY(image.makeFolder(QStringLiteral("kept")));
    QVERIFY(image.writeInTurn(QStringLiteral("kept/a"), QStringLiteral("kept/b"), noise(1200000, 8),
                              4096));
    QVERIFY(image.remove(QStringLiteral("many")));
    QVERIFY(image.unmount());
    const QByteArray sound = readAll(m_imagePath);
    QVector<int> places; // blocks of metadata
    for (int at = 0; at < sound.size(); at += 512) {
        const QByteArray mark = sound.mid(at, 4);
        if (mark.startsWith("IN") || mark.startsWith("XD") || mark.startsWith("XA") ||
            mark == "BMA3" || mark == "AB3B" || mark == "IAB3" || mark == "\xFE\xED\xBA\xBE")
            places.append(at);
    }
    QVERIFY(places.size() > 50);
    for (quint32 seed = 1; seed <= 24; ++seed) {
        QRandomGenerator random(seed);
        QByteArray bytes = sound;
        for (int i = 0; i < 400; ++i) {
            const int at =
                places.at(int(random.bounded(quint32(places.size())))) + int(random.bounded(256U));
            bytes[at] = seed % 3 == 0 ? char(0xFF) : char(random.bounded(256U));
        }
        QVERIFY(write(m_imagePath, bytes));
        const auto media = mediaOf(m_imagePath);
        for (const Finding &finding : scan(m_imagePath, Mode::Quick, seed % 2 == 0)) {
            QVERIFY(finding.content.size >= 0);
            for (const Range &range : finding.content.storedRanges())
                QVERIFY(range.start >= 0 && range.end() <= media->size());
        }
    }
}

QTEST_GUILESS_MAIN(TestRecoverydXfs)

#include "tst_recoveryd_xfs.moc"
