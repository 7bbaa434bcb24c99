#include "ntfsimage.h"
#include "recoveryd/ntfs/ntfssupport.h"
#include "support/diskimages.h"
#include "support/scanharness.h"

#include <QTemporaryDir>
#include <QTest>

using namespace services::recoveryd;
using namespace diskimages;
using namespace testsupport;

namespace {

using Files = QMap<QString, QByteArray>;

/// Text that compresses, but not to nothing.
QByteArray text(int length, quint32 seed)
{
    const QByteArray letters = noise(length, seed);
    QByteArray bytes;
    for (int i = 0; bytes.size() < length; ++i)
        bytes += "line " + QByteArray::number(quint8(letters.at(i))) + " of a report\n";
    return bytes.left(length);
}

/// One file or more of each kind of map, by path.
Files sampleFiles()
{
    QByteArray sparse(900000, '\0');
    sparse.replace(0, 5000, noise(5000, 31));
    sparse.replace(600000, 70000, noise(70000, 32));
    return {
        {QStringLiteral("文档/tiny.txt"), "resident"},
        {QStringLiteral("文档/a/b/深/letter.doc"), noise(70001, 2)},
        {QStringLiteral("文档/😀 %41 点.在.中间"), noise(3000, 3)},
        {QStringLiteral("文档/sparse.bin"), sparse},
        {QStringLiteral("packed/report.txt"), text(300000, 4)},
        {QStringLiteral("packed/mixed.bin"), text(100000, 5) + noise(100000, 6) + text(7, 7)},
    };
}

Files alternatingFiles(int pieces, int step)
{
    return {{QStringLiteral("left.bin"), noise(pieces * step, 8)},
            {QStringLiteral("right.bin"), noise(pieces * step - 9, 9)}};
}

} // namespace

class TestRecoverydNtfs : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void findsDeletedFiles_data();
    void findsDeletedFiles();

private:
    [[nodiscard]] bool fill(const NtfsImage &image, const Files &files);
    QVector<Finding> scan(const QString &image, ScanRequest::Mode mode, bool listsExisting);
    void compare(const QString &image, const QVector<Finding> &findings, const Files &files,
                 bool isDeleted);

    QTemporaryDir m_dir;
    QString m_mountPoint;
    QString m_imagePath;
};

void TestRecoverydNtfs::initTestCase()
{
    const QString obstacle = NtfsImage::obstacle();
    if (!obstacle.isEmpty())
        QSKIP(qPrintable(obstacle));
    m_mountPoint = m_dir.filePath(QStringLiteral("mnt"));
    m_imagePath = m_dir.filePath(QStringLiteral("ntfs.img"));
    QVERIFY(QDir().mkpath(m_mountPoint));
}

bool TestRecoverydNtfs::fill(const NtfsImage &image, const Files &files)
{
    bool isGood = true;
    for (auto file = files.constBegin(); file != files.constEnd() && isGood; ++file) {
        const QString folder = file.key().section(QLatin1Char('/'), 0, -2);
        const bool isNew = !QFile::exists(image.inside(folder));
        isGood = image.makeFolder(folder) &&
                 (!isNew || folder != QLatin1String("packed") || image.compress(folder)) &&
                 image.write(file.key(), file.value());
    }
    return isGood;
}

QVector<Finding> TestRecoverydNtfs::scan(const QString &image, ScanRequest::Mode mode,
                                         bool listsExisting)
{
    ScanContext context;
    context.media = mediaOf(image);
    context.request.mode = mode;
    context.listsExisting = listsExisting;
    CollectingObserver observer;
    QString error;
    if (!context.media || !ntfsSupport().makeScanner(context)->scan(observer, &error))
        qWarning("%s", qPrintable(error));
    return observer.findings;
}

/// Each file is found once, whole and in its folder, and nothing else is.
void TestRecoverydNtfs::compare(const QString &image, const QVector<Finding> &findings,
                                const Files &files, bool isDeleted)
{
    const auto media = mediaOf(image);
    Files found;
    for (const Finding &finding : findings) {
        const QByteArray path =
            finding.folder.isEmpty() ? finding.name : finding.folder + '/' + finding.name;
        QVERIFY2(!found.contains(QString::fromUtf8(path)), path.constData());
        QVERIFY2(files.contains(QString::fromUtf8(path)), path.constData());
        QVERIFY2(bytesOf(*media, finding) == files.value(QString::fromUtf8(path)),
                 path.constData());
        QCOMPARE(finding.folderKnowledge, Finding::Folder::Full);
        QVERIFY(finding.isMapComplete && finding.isSizeExact);
        QCOMPARE(finding.isDeleted, isDeleted);
        found.insert(QString::fromUtf8(path), QByteArray());
    }
    QCOMPARE(found.keys(), files.keys());
}

void TestRecoverydNtfs::findsDeletedFiles_data()
{
    QTest::addColumn<QStringList>("options");

    const auto row = [](const char *options) {
        QTest::newRow(options) << QString::fromLatin1(options).split(QLatin1Char(' '));
    };
    row("-c 512");
    row("-c 4096");
    row("-c 65536");
    row("-s 4096 -c 4096");
}

void TestRecoverydNtfs::findsDeletedFiles()
{
    QFETCH(QStringList, options);

    NtfsImage image(m_imagePath, m_mountPoint);
    Files files = sampleFiles();
    const Files alternating = alternatingFiles(60, 70000);
    QVERIFY(image.format(32, options));
    QVERIFY(image.mount());
    // Compression needs clusters of at most 4096 bytes; others write plainly.
    QVERIFY(fill(image, files));
    QVERIFY(image.writeInTurns(alternating, 70000));
    QVERIFY(image.writeStream(QStringLiteral("left.bin"), "notes", noise(4000, 11)));
    QVERIFY(image.write(QStringLiteral("kept.txt"), noise(5000, 10)));
    QVERIFY(image.unmount());

    QCOMPARE(scan(m_imagePath, ScanRequest::Mode::Quick, false).size(), 0);

    QVERIFY(image.mount());
    for (const char *name : {"文档", "packed", "left.bin", "right.bin"})
        QVERIFY(image.remove(QString::fromUtf8(name)));
    QVERIFY(image.unmount());

    for (auto file = alternating.constBegin(); file != alternating.constEnd(); ++file)
        files.insert(file.key(), file.value());
    files.insert(QStringLiteral("left.bin:notes"), noise(4000, 11));
    compare(m_imagePath, scan(m_imagePath, ScanRequest::Mode::Quick, false), files, true);
}

QTEST_GUILESS_MAIN(TestRecoverydNtfs)

#include "tst_recoveryd_ntfs.moc"
