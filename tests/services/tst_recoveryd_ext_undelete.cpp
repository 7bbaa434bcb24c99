#include "extimage.h"
#include "recoveryd/ext/undelete/extsupport.h"
#include "support/diskimages.h"
#include "support/scanharness.h"

#include <QDateTime>
#include <QDir>
#include <QMap>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>
#include <unistd.h>

using namespace services::recoveryd;
using namespace diskimages;
using namespace testsupport;

namespace {

using Files = QMap<QString, QByteArray>; ///< By path below the root of the volume.

QStringList words(const char *text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '));
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
    return files;
}

} // namespace

class TestRecoverydExtUndelete : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void findsDeletedFiles_data();
    void findsDeletedFiles();
    void findsEarlierContents();
    void readsWhatACrashLeaves();
    void findsFilesWithoutDescriptors_data();
    void findsFilesWithoutDescriptors();
    void readsDamagedVolumes_data();
    void readsDamagedVolumes();
    void findsFilesOfAnEarlierFormat();
    void findsFilesByIndirectBlocks();

private:
    [[nodiscard]] bool fill(const ExtImage &image, const Files &files);
    QVector<Finding> scan(const QString &image, ScanRequest::Mode mode, bool listsExisting,
                          qint64 start = 0);
    void compare(const QString &image, const QVector<Finding> &findings, const Files &files,
                 bool isDeleted);

    QTemporaryDir m_dir;
    QString m_mountPoint;
    QString m_imagePath;
};

void TestRecoverydExtUndelete::initTestCase()
{
    const QString obstacle = ExtImage::obstacle();
    if (!obstacle.isEmpty())
        QSKIP(qPrintable(obstacle));
    m_mountPoint = m_dir.filePath(QStringLiteral("mnt"));
    m_imagePath = m_dir.filePath(QStringLiteral("ext.img"));
    QVERIFY(QDir().mkpath(m_mountPoint));
}

bool TestRecoverydExtUndelete::fill(const ExtImage &image, const Files &files)
{
    for (auto file = files.cbegin(); file != files.cend(); ++file)
        if (!image.write(file.key(), file.value()))
            return false;
    return true;
}

QVector<Finding> TestRecoverydExtUndelete::scan(const QString &image, ScanRequest::Mode mode,
                                                bool listsExisting, qint64 start)
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
    if (!context.media || !extSupport().makeScanner(context)->scan(observer, &error))
        qWarning("%s", qPrintable(error));
    return observer.findings;
}

/// Each file is found once, whole and in its folder, and nothing else is.
void TestRecoverydExtUndelete::compare(const QString &image, const QVector<Finding> &findings,
                                       const Files &files, bool isDeleted)
{
    const auto media = mediaOf(image);
    Files found;
    for (const Finding &finding : findings) {
        const QString path = pathOf(finding);
        QVERIFY2(!found.contains(path), qPrintable(path));
        QVERIFY2(files.contains(path), qPrintable(path));
        QVERIFY2(bytesOf(*media, finding) == files.value(path), qPrintable(path));
        QCOMPARE(finding.folderKnowledge, Finding::Folder::Full);
        QVERIFY2(finding.isMapComplete && finding.isSizeExact && finding.takenBytes == 0,
                 qPrintable(path));
        QCOMPARE(finding.isDeleted, isDeleted);
        found.insert(path, QByteArray());
    }
    QCOMPARE(found.keys(), files.keys());
}

void TestRecoverydExtUndelete::findsDeletedFiles_data()
{
    QTest::addColumn<QStringList>("format");
    QTest::addColumn<QString>("mount");
    QTest::newRow("ext4") << words("-t ext4 -b 4096") << QString();
    QTest::newRow("ext4, 1 KiB") << words("-t ext4 -b 1024") << QString();
    QTest::newRow("ext4, 2 KiB, 32 bit, no checksums")
        << words("-t ext4 -b 2048 -O ^64bit,^metadata_csum") << QString();
    QTest::newRow("ext4, group checksums, small inodes")
        << words("-t ext4 -b 1024 -I 128 -O ^metadata_csum,uninit_bg") << QString();
    QTest::newRow("ext4, data in the journal")
        << words("-t ext4 -b 4096") << QStringLiteral("data=journal");
    QTest::newRow("ext4, data in the inode")
        << words("-t ext4 -b 4096 -O inline_data") << QString();
    QTest::newRow("ext4, clusters") << words("-t ext4 -b 4096 -O bigalloc -C 16384") << QString();
    QTest::newRow("ext4, scattered descriptors")
        << words("-t ext4 -b 1024 -O meta_bg,^resize_inode,^flex_bg") << QString();
    QTest::newRow("ext3") << words("-t ext3 -b 4096") << QString();
    QTest::newRow("ext3, 1 KiB, no index") << words("-t ext3 -b 1024 -O ^dir_index") << QString();
}

void TestRecoverydExtUndelete::findsDeletedFiles()
{
    QFETCH(QStringList, format);
    QFETCH(QString, mount);

    Files files = lostFiles();
    ExtImage image(m_imagePath, m_mountPoint);
    QVERIFY(image.format(64, format));
    QVERIFY(image.mount(mount));
    QVERIFY(image.write(QStringLiteral("kept/a"), noise(20000, 20)));
    QVERIFY(fill(image, files));
    // More pieces than an inode has room for.
    const QByteArray scattered = noise(400000, 8);
    QVERIFY(
        image.writeInTurn(QStringLiteral("scattered"), QStringLiteral("kept/b"), scattered, 4096));
    files.insert(QStringLiteral("scattered"), scattered);
    QByteArray sparse(300000, '\0');
    sparse.replace(200000, 9000, noise(9000, 9));
    QVERIFY(image.write(QStringLiteral("sparse"), sparse.left(200000)));
    files.insert(QStringLiteral("sparse"), sparse);
    {
        QFile file(image.inside(QStringLiteral("sparse")));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.seek(200000) &&
                file.write(sparse.mid(200000, 9000)) == 9000 && file.resize(sparse.size()));
    }
    image.sync();
    QVERIFY(image.remount(mount));
    const qint64 before = QDateTime::currentMSecsSinceEpoch() - 2000;
    for (const char *name : {"tiny.txt", "文档", "folder", "large.bin", "scattered", "sparse"})
        QVERIFY(image.remove(QString::fromUtf8(name)));
    QVERIFY(image.unmount());

    const QVector<Finding> findings = scan(m_imagePath, ScanRequest::Mode::Quick, false);
    compare(m_imagePath, findings, files, true);
    for (const Finding &finding : findings)
        QVERIFY(finding.deletedMs >= before && finding.modifiedMs >= before - 60000);
}

/// Of a file that still exists, or whose name is another one's now, what it held before is found.
void TestRecoverydExtUndelete::findsEarlierContents()
{
    ExtImage image(m_imagePath, m_mountPoint);
    QVERIFY(image.format(64, words("-t ext4 -b 4096")));
    QVERIFY(image.mount());
    Files files;
    for (const char *name : {"a/emptied", "a/shortened", "a/replaced", "a/grown", "a/linked"})
        files.insert(QString::fromLatin1(name), noise(30000, quint32(files.size()) + 1));
    QVERIFY(fill(image, files));
    QVERIFY(::link(QFile::encodeName(image.inside(QStringLiteral("a/linked"))).constData(),
                   QFile::encodeName(image.inside(QStringLiteral("second"))).constData()) == 0);
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
    QVERIFY(image.remove(QStringLiteral("a/linked")));
    QVERIFY(image.remove(QStringLiteral("second")));
    QVERIFY(QFile::rename(image.inside(QStringLiteral("a")), image.inside(QStringLiteral("b"))));
    QVERIFY(image.unmount());

    const QVector<Finding> findings = scan(m_imagePath, ScanRequest::Mode::Quick, false);
    const auto media = mediaOf(m_imagePath);
    Files found;
    for (const Finding &finding : findings) {
        QVERIFY(finding.isDeleted && finding.isMapComplete);
        found.insert(pathOf(finding), bytesOf(*media, finding));
    }
    // The folder exists and goes by its present name.
    QCOMPARE(found.keys(), (QStringList{QStringLiteral("b/emptied"), QStringLiteral("b/linked"),
                                        QStringLiteral("b/replaced"), QStringLiteral("b/shortened"),
                                        QStringLiteral("second")}));
    QVERIFY(found.value(QStringLiteral("b/emptied")) == files.value(QStringLiteral("a/emptied")));
    QVERIFY(found.value(QStringLiteral("b/replaced")) == files.value(QStringLiteral("a/replaced")));
    QVERIFY(found.value(QStringLiteral("second")) == files.value(QStringLiteral("a/linked")));
    // Its first block is in use and was cleared behind the new end.
    QVERIFY(found.value(QStringLiteral("b/shortened")).mid(4096) ==
            files.value(QStringLiteral("a/shortened")).mid(4096));
}

/// The journal has yet to write what happened last.
void TestRecoverydExtUndelete::readsWhatACrashLeaves()
{
    const Files files = lostFiles();
    ExtImage image(m_imagePath, m_mountPoint);
    QVERIFY(image.format(64, words("-t ext4 -b 1024")));
    QVERIFY(image.mount());
    QVERIFY(image.write(QStringLiteral("kept/a"), noise(20000, 20)));
    QVERIFY(fill(image, files));
    image.sync();
    const QString full = m_dir.filePath(QStringLiteral("full.img"));
    QVERIFY(image.copyTo(full));
    for (const char *name : {"tiny.txt", "文档", "folder", "large.bin"})
        QVERIFY(image.remove(QString::fromUtf8(name)));
    image.sync();
    const QString emptied = m_dir.filePath(QStringLiteral("emptied.img"));
    QVERIFY(image.copyTo(emptied));
    QVERIFY(image.unmount());

    Files existing = files;
    existing.insert(QStringLiteral("kept/a"), noise(20000, 20));
    compare(full, scan(full, ScanRequest::Mode::Quick, false), Files(), true);
    compare(full, scan(full, ScanRequest::Mode::Quick, true), existing, false);
    const QVector<Finding> findings = scan(emptied, ScanRequest::Mode::Quick, false);
    compare(emptied, findings, files, true);
    // By what the journal says, the blocks are free.
    Ranges free;
    QString error;
    QVERIFY2(extSupport().freeRanges(*mediaOf(emptied), &free, &error), qPrintable(error));
    for (const Finding &finding : findings)
        for (const Range &range : finding.content.storedRanges())
            QCOMPARE(overlapOf({range}, free), range.length);
}

void TestRecoverydExtUndelete::findsFilesWithoutDescriptors_data()
{
    QTest::addColumn<QStringList>("format");
    QTest::newRow("by checksums") << words("-t ext4 -b 4096 -J size=4");
    QTest::newRow("by generations") << words("-t ext4 -b 4096 -J size=4 -O ^metadata_csum");
    QTest::newRow("ext3, by generations") << words("-t ext3 -b 4096 -J size=4");
}

/// Kernels before 6.4 begin the journal anew at each mount, so that the descriptor of what they
/// have not overwritten is often gone.
void TestRecoverydExtUndelete::findsFilesWithoutDescriptors()
{
    QFETCH(QStringList, format);
    const Files files = lostFiles();
    ExtImage image(m_imagePath, m_mountPoint);
    QVERIFY(image.format(64, format));
    QVERIFY(image.mount());
    QVERIFY(image.write(QStringLiteral("kept/a"), noise(20000, 20)));
    QVERIFY(fill(image, files));
    image.sync();
    QVERIFY(image.remount());
    for (const char *name : {"tiny.txt", "文档", "folder", "large.bin"})
        QVERIFY(image.remove(QString::fromUtf8(name)));
    QVERIFY(image.unmount());

    // Every first descriptor of a transaction is overwritten with file data.
    QByteArray bytes = readAll(m_imagePath);
    const QByteArray header = QByteArray::fromHex("c03b399800000001");
    int overwritten = 0;
    for (int at = 0; (at = bytes.indexOf(header, at)) >= 0; at += 4096)
        if (at % 4096 == 0) {
            bytes.replace(at, 4096, noise(4096, quint32(at)));
            ++overwritten;
        }
    QVERIFY(overwritten >= 2);
    QVERIFY(write(m_imagePath, bytes));
    compare(m_imagePath, scan(m_imagePath, ScanRequest::Mode::Quick, false), files, true);
}

void TestRecoverydExtUndelete::readsDamagedVolumes_data()
{
    QTest::addColumn<QStringList>("format");
    QTest::addColumn<qint64>("wiped");  // bytes from the start of the volume
    QTest::addColumn<qint64>("before"); // bytes of the disk before the volume
    QTest::newRow("superblock") << words("-t ext4 -b 1024") << qint64(2048) << qint64(0);
    QTest::newRow("superblock of a single group, left in the journal only")
        << words("-t ext4 -b 4096") << qint64(4096) << qint64(0);
    QTest::newRow("superblock and descriptors")
        << words("-t ext4 -b 4096 -g 4096") << qint64(8192) << qint64(0);
    QTest::newRow("ext2, superblock and descriptors")
        << words("-t ext2 -b 1024") << qint64(4096) << qint64(0);
    QTest::newRow("lost partition")
        << words("-t ext4 -b 4096 -g 8192") << qint64(0) << qint64(3 << 20);
    QTest::newRow("lost partition without a superblock")
        << words("-t ext3 -b 1024") << qint64(2048) << qint64(3 << 20);
}

void TestRecoverydExtUndelete::readsDamagedVolumes()
{
    QFETCH(QStringList, format);
    QFETCH(qint64, wiped);
    QFETCH(qint64, before);
    const Files files = lostFiles();
    ExtImage image(m_imagePath, m_mountPoint);
    QVERIFY(image.format(64, format));
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
        if (!extSupport().recognise(*media, at, media->read(at, 4096), &found))
            continue;
        QCOMPARE(found.size, qint64(64) << 20);
        QVERIFY(start < 0 || start == found.start);
        start = found.start;
    }
    QCOMPARE(start, before);
    const QVector<Finding> findings = scan(m_imagePath, ScanRequest::Mode::Quick, true, before);
    // Places are those of the volume.
    QFile::remove(m_imagePath);
    QVERIFY(write(m_imagePath, bytes));
    compare(m_imagePath, findings, files, false);
}

void TestRecoverydExtUndelete::findsFilesOfAnEarlierFormat()
{
    ExtImage image(m_imagePath, m_mountPoint);
    const QStringList format = words("-t ext4 -b 4096");
    QVERIFY(image.format(64, format));
    QVERIFY(image.mount());
    Files files;
    for (int i = 0; i < 200; ++i)
        files.insert(QStringLiteral("照片/%1/f%2").arg(i % 3).arg(i), noise(5000, quint32(i)));
    QVERIFY(fill(image, files));
    QVERIFY(image.unmount());
    QVERIFY(image.formatAgain(format));

    const auto media = mediaOf(m_imagePath);
    const QVector<Finding> findings = scan(m_imagePath, ScanRequest::Mode::Quick, false);
    QSet<QString> found;
    for (const Finding &finding : findings) {
        const QString path = QStringLiteral("照片/") + pathOf(finding);
        QVERIFY2(files.contains(path), qPrintable(path));
        QCOMPARE(finding.folderKnowledge, Finding::Folder::Partial);
        QVERIFY(bytesOf(*media, finding) == files.value(path));
        found.insert(path);
    }
    // All but those whose inodes the new file system has taken for itself.
    QVERIFY2(found.size() >= 195, qPrintable(QString::number(found.size())));
}

/// What ext2 leaves of a file: neither its name nor its size to the byte, unless the contents tell
/// it.
void TestRecoverydExtUndelete::findsFilesByIndirectBlocks()
{
    ExtImage image(m_imagePath, m_mountPoint);
    QVERIFY(image.format(64, words("-t ext2 -b 1024")));
    QVERIFY(image.mount());
    Files files;
    files.insert(QStringLiteral("single"), noise(100000, 1));
    files.insert(QStringLiteral("double"), noise(3000000, 2));
    files.insert(QStringLiteral("text"), QByteArray("a line of text\n").repeated(3000));
    files.insert(QStringLiteral("zero at its end"), container(QStringLiteral("docx"), 60000));
    QVERIFY(fill(image, files));
    image.sync();
    QVERIFY(image.remount());
    for (auto file = files.cbegin(); file != files.cend(); ++file)
        QVERIFY(image.remove(file.key()));
    QVERIFY(image.unmount());

    const auto media = mediaOf(m_imagePath);
    for (const auto mode : {ScanRequest::Mode::Quick, ScanRequest::Mode::Deep}) {
        const QVector<Finding> findings = scan(m_imagePath, mode, false);
        QCOMPARE(findings.size(), files.size());
        QByteArrayList kinds;
        for (const Finding &finding : findings) {
            QVERIFY(finding.isDeleted && finding.name.isEmpty());
            QVERIFY(files.values().contains(bytesOf(*media, finding)));
            QCOMPARE(finding.isSizeExact, !finding.extension.isEmpty());
            QCOMPARE(finding.source == FindingSource::Hybrid, finding.isSizeExact);
            kinds.append(finding.extension.toLatin1());
        }
        std::sort(kinds.begin(), kinds.end());
        QCOMPARE(kinds, (QByteArrayList{"", "", "docx", "txt"}));
    }
}

QTEST_GUILESS_MAIN(TestRecoverydExtUndelete)

#include "tst_recoveryd_ext_undelete.moc"
