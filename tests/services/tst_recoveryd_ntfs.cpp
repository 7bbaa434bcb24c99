#include "ntfsimage.h"
#include "recoveryd/ntfs/geometry.h"
#include "recoveryd/ntfs/ntfssupport.h"
#include "support/diskimages.h"
#include "support/scanharness.h"

#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

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

/// Takes those out that are as large as one of `sizes`.
QVector<Finding> takeBySize(QVector<Finding> *findings, const QVector<qint64> &sizes)
{
    const auto first =
        std::stable_partition(findings->begin(), findings->end(), [&sizes](const Finding &finding) {
            return !sizes.contains(finding.content.size);
        });
    QVector<Finding> taken;
    std::move(first, findings->end(), std::back_inserter(taken));
    findings->erase(first, findings->end());
    return taken;
}

ntfs::Geometry geometryOf(const QString &image)
{
    ntfs::Geometry geometry;
    const auto media = mediaOf(image);
    if (!media || !ntfs::findGeometry(*media, &geometry))
        qWarning("no geometry");
    return geometry;
}

} // namespace

class TestRecoverydNtfs : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void findsDeletedFiles_data();
    void findsDeletedFiles();
    void readsDamagedVolumes_data();
    void readsDamagedVolumes();
    void findsFilesOfAnEarlierFormat_data();
    void findsFilesOfAnEarlierFormat();
    void recognisesLostVolumes();

private:
    [[nodiscard]] bool fill(const NtfsImage &image, const Files &files);
    QVector<Finding> scan(ScanRequest::Mode mode, bool listsExisting);
    void compare(const QVector<Finding> &findings, const Files &files, bool isDeleted);

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

QVector<Finding> TestRecoverydNtfs::scan(ScanRequest::Mode mode, bool listsExisting)
{
    ScanContext context;
    context.media = mediaOf(m_imagePath);
    context.request.mode = mode;
    context.listsExisting = listsExisting;
    CollectingObserver observer;
    QString error;
    if (!context.media || !ntfsSupport().makeScanner(context)->scan(observer, &error))
        qWarning("%s", qPrintable(error));
    return observer.findings;
}

/// Each file is found once, whole and in its folder, and nothing else is.
void TestRecoverydNtfs::compare(const QVector<Finding> &findings, const Files &files,
                                bool isDeleted)
{
    const auto media = mediaOf(m_imagePath);
    Files found;
    for (const Finding &finding : findings) {
        const QByteArray path =
            finding.folder.isEmpty() ? finding.name : finding.folder + '/' + finding.name;
        if (finding.name.startsWith("spacer"))
            continue;
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
    QTest::addColumn<QString>("clusterSize");
    QTest::addColumn<QString>("sectorSize");
    QTest::addColumn<bool>("isPacked"); // compression needs clusters of at most 4096 bytes

    QTest::newRow("smallest clusters") << "512"
                                       << "512" << true;
    QTest::newRow("usual") << "4096"
                           << "512" << true;
    QTest::newRow("large clusters") << "65536"
                                    << "512" << false;
    QTest::newRow("large sectors and records") << "4096"
                                               << "4096" << true;
}

void TestRecoverydNtfs::findsDeletedFiles()
{
    QFETCH(QString, clusterSize);
    QFETCH(QString, sectorSize);
    QFETCH(bool, isPacked);

    // Enough pieces for more than one record.
    constexpr int kPieces = 400;
    const int gap = qMax(4096, clusterSize.toInt());
    const QByteArray scattered = noise(kPieces * gap - 9, 8);
    NtfsImage image(m_imagePath, m_mountPoint);
    Files files = sampleFiles();
    QVERIFY(image.format(gap > 4096 ? 250 : 24,
                         {QStringLiteral("-c"), clusterSize, QStringLiteral("-s"), sectorSize}));
    QVERIFY(image.mount());
    QVERIFY(fill(image, files));
    QVERIFY(image.leaveGaps(scattered.size() + 100 * gap, gap));
    QVERIFY(image.write(QStringLiteral("left.bin"), scattered));
    QVERIFY(image.writeStream(QStringLiteral("left.bin"), "notes", noise(4000, 11)));
    QVERIFY(image.write(QStringLiteral("other.bin"), noise(9000, 12)));
    QVERIFY(image.writeStream(QStringLiteral("other.bin"), "notes", noise(40, 13)));
    QVERIFY(image.writeStream(QStringLiteral("other.bin"), "Zone.Identifier", "[ZoneTransfer]"));
    QVERIFY(image.write(QStringLiteral("kept.txt"), noise(5000, 10)));
    QVERIFY(image.unmount());

    QVERIFY(image.mount());
    for (const char *name : {"文档", "packed", "left.bin", "other.bin"})
        QVERIFY(image.remove(QString::fromUtf8(name)));
    const qint64 bytesFree = image.bytesFree();
    QVERIFY(image.unmount());

    files.insert(QStringLiteral("other.bin"), noise(9000, 12));
    files.insert(QStringLiteral("other.bin:notes"), noise(40, 13));
    QVector<Finding> findings = scan(ScanRequest::Mode::Quick, false);
    const QVector<Finding> left = takeBySize(&findings, {scattered.size(), 4000});
    compare(findings, files, true);
    int packed = 0;
    for (const Finding &finding : findings)
        packed += finding.content.packed.size();
    QCOMPARE(packed > 0, isPacked);
    // From a file of several records the driver itself takes the name off.
    QCOMPARE(left.size(), 2);
    QCOMPARE(bytesOf(*mediaOf(m_imagePath), left.at(0)), scattered);
    QVERIFY(left.at(0).content.extents.size() >= kPieces / 4);
    QCOMPARE(bytesOf(*mediaOf(m_imagePath), left.at(1)), noise(4000, 11));

    Ranges free;
    QString error;
    QVERIFY2(ntfsSupport().freeRanges(*mediaOf(m_imagePath), &free, &error), qPrintable(error));
    QCOMPARE(totalLength(free), bytesFree);
}

void TestRecoverydNtfs::readsDamagedVolumes_data()
{
    QTest::addColumn<bool>("hasHead");
    QTest::addColumn<bool>("hasBackup");
    QTest::addColumn<bool>("hasTableStart");
    QTest::addColumn<bool>("hasMirror");

    QTest::newRow("boot sector lost") << false << true << true << true;
    QTest::newRow("both boot sectors lost") << false << false << true << true;
    QTest::newRow("start of the file table lost") << true << true << false << true;
    QTest::newRow("all of them lost") << false << false << false << false;
}

/// Files that exist and deleted ones, with as much of the path as is left.
void TestRecoverydNtfs::readsDamagedVolumes()
{
    QFETCH(bool, hasHead);
    QFETCH(bool, hasBackup);
    QFETCH(bool, hasTableStart);
    QFETCH(bool, hasMirror);

    NtfsImage image(m_imagePath, m_mountPoint);
    Files files = sampleFiles();
    QVERIFY(image.format(40, {}));
    QVERIFY(image.mount());
    QVERIFY(fill(image, files));
    QVERIFY(image.write(QStringLiteral("gone.bin"), noise(100000, 21)));
    QVERIFY(image.remove(QStringLiteral("gone.bin")));
    QVERIFY(image.unmount());
    const ntfs::Geometry geometry = geometryOf(m_imagePath);
    constexpr int kSystemRecords = 4;
    if (!hasHead)
        QVERIFY(patch(m_imagePath, 0, QByteArray(512, '\0')));
    if (!hasBackup)
        QVERIFY(patch(m_imagePath, geometry.size, QByteArray(512, '\0')));
    if (!hasTableStart)
        QVERIFY(patch(m_imagePath, geometry.mftOffset, QByteArray(kSystemRecords * 1024, '\0')));
    if (!hasMirror)
        QVERIFY(patch(m_imagePath, geometry.mirrorOffset, QByteArray(kSystemRecords * 1024, '\0')));

    QVector<Finding> findings = scan(ScanRequest::Mode::Quick, true);
    const auto gone = std::find_if(findings.begin(), findings.end(), [](const Finding &finding) {
        return finding.name == "gone.bin";
    });
    QVERIFY(gone != findings.end());
    QCOMPARE(bytesOf(*mediaOf(m_imagePath), *gone), noise(100000, 21));
    QVERIFY(gone->isDeleted);
    findings.erase(gone);
    compare(findings, files, false);
}

/// The new volume has written over the first records of the old one.
void TestRecoverydNtfs::findsFilesOfAnEarlierFormat_data()
{
    QTest::addColumn<QString>("clusterSize");
    QTest::addColumn<QString>("newClusterSize");

    QTest::newRow("same clusters") << "4096"
                                   << "4096";
    QTest::newRow("other clusters") << "4096"
                                    << "1024";
}

void TestRecoverydNtfs::findsFilesOfAnEarlierFormat()
{
    QFETCH(QString, clusterSize);
    QFETCH(QString, newClusterSize);

    NtfsImage image(m_imagePath, m_mountPoint);
    QVERIFY(image.format(64, {QStringLiteral("-c"), clusterSize}));
    QVERIFY(image.mount());
    for (int i = 0; i < 80; ++i)
        QVERIFY(image.write(QStringLiteral("early-%1").arg(i), noise(2000, 1)));
    const Files files = sampleFiles();
    QVERIFY(fill(image, files));
    QVERIFY(image.unmount());
    QVERIFY(image.formatAgain({QStringLiteral("-c"), newClusterSize}));
    QVERIFY(image.mount());
    QVERIFY(image.write(QStringLiteral("new.txt"), noise(3000, 2)));
    QVERIFY(image.unmount());

    for (ScanRequest::Mode mode : {ScanRequest::Mode::Quick, ScanRequest::Mode::Deep}) {
        Files found;
        for (const Finding &finding : scan(mode, false)) {
            const QString path = QString::fromUtf8(finding.folder + '/' + finding.name);
            if (!files.contains(path))
                continue;
            QVERIFY(!found.contains(path));
            QVERIFY(finding.isDeleted);
            found.insert(path, bytesOf(*mediaOf(m_imagePath), finding));
        }
        QVERIFY(found == files);
    }
}

void TestRecoverydNtfs::recognisesLostVolumes()
{
    constexpr qint64 kStart = 3 * 1024 * 1024 + 512;
    NtfsImage image(m_imagePath, m_mountPoint);
    QVERIFY(image.format(16, {QStringLiteral("-L"), QStringLiteral("卷标")}));
    const ntfs::Geometry geometry = geometryOf(m_imagePath);
    const QString disk = m_dir.filePath(QStringLiteral("disk.img"));
    QVERIFY(write(disk, QByteArray(int(kStart), '\0') + readAll(m_imagePath) +
                            QByteArray(1024 * 1024, '\0')));
    // Each trace tells where the volume is, and is enough by itself.
    for (qint64 trace : {qint64(0), geometry.size, geometry.mftOffset}) {
        const auto media = mediaOf(disk);
        FoundVolume found;
        QVERIFY(ntfsSupport().recognise(*media, kStart + trace, media->read(kStart + trace, 4096),
                                        &found));
        QCOMPARE(found.start, kStart);
        // Without a boot sector only whole clusters are known.
        QVERIFY(qAbs(found.size - (geometry.size + 512)) <= 4096);
        QCOMPARE(found.label, QStringLiteral("卷标"));
        QCOMPARE(found.isFromBackup, trace != 0);
        QVERIFY(patch(disk, kStart + trace, QByteArray(512, '\0')));
    }
    FoundVolume found;
    const auto media = mediaOf(disk);
    QVERIFY(!ntfsSupport().recognise(*media, kStart, media->read(kStart, 4096), &found));
}

QTEST_GUILESS_MAIN(TestRecoverydNtfs)

#include "tst_recoveryd_ntfs.moc"
