#include "extimage.h"
#include "recoveryd/ext/undelete/extsupport.h"
#include "support/diskimages.h"
#include "support/scanharness.h"

#include <QDateTime>
#include <QDir>
#include <QMap>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

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

private:
    QVector<Finding> scan(const QString &image, ScanRequest::Mode mode, bool listsExisting);
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

QVector<Finding> TestRecoverydExtUndelete::scan(const QString &image, ScanRequest::Mode mode,
                                                bool listsExisting)
{
    ScanContext context;
    context.media = mediaOf(image);
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
    for (auto file = files.cbegin(); file != files.cend(); ++file)
        QVERIFY(image.write(file.key(), file.value()));
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

QTEST_GUILESS_MAIN(TestRecoverydExtUndelete)

#include "tst_recoveryd_ext_undelete.moc"
