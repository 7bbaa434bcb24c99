#include "btrfsimage.h"
#include "recoveryd/btrfs/btrfssupport.h"
#include "recoveryd/btrfs/node.h"
#include "recoveryd/devices/crc32c.h"
#include "support/diskimages.h"
#include "support/scanharness.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <random>

using namespace services::recoveryd;
using namespace diskimages;
using namespace testsupport;

namespace {

using Files = QMap<QString, QByteArray>;

constexpr int kSizeMiB = 192;
constexpr qint64 kFirstPlace = 64 * 1024;
constexpr qint64 kSecondPlace = 64 * 1024 * 1024;
constexpr int kPieces = 300; ///< More extents than the smallest leaf holds.

/// Text that compresses, but not to nothing.
QByteArray text(int length, quint32 seed)
{
    const QByteArray letters = noise(length, seed);
    QByteArray bytes;
    for (int i = 0; bytes.size() < length; ++i)
        bytes += "line " + QByteArray::number(quint8(letters.at(i))) + " of a report\n";
    return bytes.left(length);
}

Files sampleFiles()
{
    QByteArray sparse(900000, '\0');
    sparse.replace(0, 5000, noise(5000, 31));
    sparse.replace(600000, 70000, noise(70000, 32));
    return {
        {QStringLiteral("文档/tiny.txt"), "stands in the leaf"},
        {QStringLiteral("文档/a/b/深/letter.doc"), noise(70001, 2)},
        {QStringLiteral("文档/😀 %41 点.在.中间"), noise(3000, 3)},
        {QStringLiteral("文档/new\nline"), noise(5000, 9)},
        {QStringLiteral("文档/sparse.bin"), sparse},
        {QStringLiteral("text/report.txt"), text(300001, 4)},
        {QStringLiteral("text/short.txt"), text(1500, 8)},
        {QStringLiteral("text/mixed.bin"), text(200000, 5) + noise(100000, 6) + text(7, 7)},
    };
}

bool zero(const QString &image, qint64 offset, int length)
{
    return patch(image, offset, QByteArray(length, '\0'));
}

FileSystem btrfsFileSystem()
{
    FileSystem fileSystem;
    fileSystem.type = QStringLiteral("btrfs");
    return fileSystem;
}

QVector<Finding> scan(const std::shared_ptr<const MediaReader> &media, bool listsExisting)
{
    ScanContext context;
    context.media = media;
    context.fileSystem = btrfsFileSystem();
    context.listsExisting = listsExisting;
    CollectingObserver observer;
    QString error;
    const bool isDone = btrfsSupport().makeScanner(context)->scan(observer, &error);
    return isDone ? observer.findings : QVector<Finding>();
}

QString pathOf(const Finding &finding)
{
    const QByteArray path =
        finding.folder.isEmpty() ? finding.name : finding.folder + '/' + finding.name;
    return QString::fromUtf8(path);
}

bool isWhole(const Finding &finding)
{
    return finding.isMapComplete && finding.isSizeExact &&
           finding.contentCheck != Finding::Check::Failed &&
           finding.contentCheck != Finding::Check::Unusable;
}

/// What of `files` is not among the findings under its full path and with its bytes.
QString missing(const Files &files, const QVector<Finding> &findings, const MediaReader &media,
                bool isDeleted)
{
    QStringList missing;
    for (auto it = files.cbegin(); it != files.cend(); ++it) {
        const bool isThere =
            std::any_of(findings.cbegin(), findings.cend(), [&](const Finding &finding) {
                return finding.folderKnowledge == Finding::Folder::Full &&
                       pathOf(finding) == it.key() && finding.isDeleted == isDeleted &&
                       isWhole(finding) && bytesOf(media, finding) == *it;
            });
        if (!isThere)
            missing.append(it.key());
    }
    return missing.join(QLatin1Char(' '));
}

/// Findings that are called whole, and are not what ever stood under their name.
QString falseClaims(const Files &files, const QVector<Finding> &findings, const MediaReader &media)
{
    QStringList wrong;
    for (const Finding &finding : findings) {
        const QString name = QString::fromUtf8(finding.name);
        bool isKnown = finding.content.size == 0;
        for (auto it = files.cbegin(); it != files.cend() && !isKnown; ++it)
            isKnown = it.key().endsWith(name) && bytesOf(media, finding) == *it;
        if (isWhole(finding) && !isKnown)
            wrong.append(
                QStringLiteral("%1 (%2 bytes)").arg(pathOf(finding)).arg(finding.content.size));
    }
    return wrong.join(QLatin1Char(' '));
}

/// Calls `visit` with the offset of each node of the image.
template <typename Visit>
void forEachNode(const QByteArray &image, int nodeSize, Visit visit)
{
    for (int at = 0; at + nodeSize <= image.size(); at += int(btrfs::kNodeAlignment))
        if (btrfs::looksLikeNode(image.constData() + at))
            visit(at, btrfs::NodeView(image.constData() + at, nodeSize));
}

} // namespace

/// Images that the kernel has written, with files deleted, overwritten and truncated, and with what
/// may have happened to the volume since.
class TestRecoverydBtrfs : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void findsDeleted_data();
    void findsDeleted();
    void findsEarlierVersions();
    void tellsOfFilesBeforeItSweepsFreeSpace();
    void tellsFreeFromUsed();
    void knowsSubvolumesAndSnapshots();
    void findsAllOfDamagedVolumes_data();
    void findsAllOfDamagedVolumes();
    void findsFilesFromBeforeAFormat();
    void recognisesLostVolumes();
    void survivesMutations();

private:
    [[nodiscard]] bool fill(const Files &files);
    std::shared_ptr<const MediaReader> media() const { return mediaOf(m_image->path()); }

    QTemporaryDir m_dir;
    QString m_obstacle; ///< Why no image can be made here.
    std::unique_ptr<BtrfsImage> m_image;
};

void TestRecoverydBtrfs::initTestCase()
{
    m_obstacle = BtrfsImage::obstacle();
    QVERIFY(QDir().mkpath(m_dir.filePath(QStringLiteral("mount"))));
}

void TestRecoverydBtrfs::init()
{
    if (!m_obstacle.isEmpty())
        QSKIP(qPrintable(m_obstacle));
    m_image = std::make_unique<BtrfsImage>(m_dir.filePath(QStringLiteral("image")),
                                           m_dir.filePath(QStringLiteral("mount")));
}

bool TestRecoverydBtrfs::fill(const Files &files)
{
    bool isDone = true;
    for (auto it = files.cbegin(); it != files.cend(); ++it)
        isDone = isDone && m_image->write(it.key(), *it);
    return isDone && m_image->sync();
}

void TestRecoverydBtrfs::findsDeleted_data()
{
    QTest::addColumn<QStringList>("format");
    QTest::addColumn<QString>("mount");
    QTest::addColumn<bool>("isChecked");
    const auto words = [](const char *text) {
        return QString::fromLatin1(text).split(QLatin1Char(' '));
    };
    const QString none;
    QTest::newRow("as usual") << QStringList() << none << true;
    QTest::newRow("zlib") << QStringList() << QStringLiteral("compress-force=zlib") << true;
    QTest::newRow("lzo") << QStringList() << QStringLiteral("compress-force=lzo") << true;
    QTest::newRow("zstd") << QStringList() << QStringLiteral("compress-force=zstd:9") << true;
    QTest::newRow("small nodes") << words("-n 4096") << none << true;
    QTest::newRow("large nodes") << words("-n 65536") << none << true;
    QTest::newRow("mixed") << words("-M") << none << true;
    QTest::newRow("single") << words("-m single -d dup") << none << true;
    QTest::newRow("xxhash") << words("--csum xxhash") << none << true;
    QTest::newRow("sha256") << words("--csum sha256") << none << true;
    QTest::newRow("blake2") << words("--csum blake2") << none << false;
    QTest::newRow("no sums") << QStringList() << QStringLiteral("nodatasum") << false;
    QTest::newRow("holes as items") << words("-O ^no-holes -R ^free-space-tree") << none << true;
}

void TestRecoverydBtrfs::findsDeleted()
{
    QFETCH(const QStringList, format);
    QFETCH(const QString, mount);
    QFETCH(const bool, isChecked);
    Files files = sampleFiles();
    const QByteArray pieces = text(kPieces * 4096, 20);
    QVERIFY(m_image->format(kSizeMiB, format) && m_image->mount(mount));
    QVERIFY(m_image->write(QStringLiteral("stays.bin"), noise(50000, 1)));
    QVERIFY(
        m_image->writeInPieces(QStringLiteral("parts/a"), QStringLiteral("parts/b"), pieces, 4096));
    QVERIFY(fill(files) && m_image->unmount() && m_image->mount(mount));
    files.insert(QStringLiteral("parts/a"), pieces);
    files.insert(QStringLiteral("parts/b"), pieces);
    for (const char *folder : {"文档", "text", "parts"})
        QVERIFY(m_image->remove(QString::fromUtf8(folder)));
    QVERIFY(m_image->unmount());

    const auto media = this->media();
    QVERIFY(media);
    const QVector<Finding> findings = scan(media, false);
    QCOMPARE(missing(files, findings, *media, true), QString());
    QCOMPARE(falseClaims(files, findings, *media), QString());
    int passed = 0;
    for (const Finding &finding : findings) {
        QVERIFY(finding.name != "stays.bin");
        passed += finding.contentCheck == Finding::Check::Passed ? 1 : 0;
    }
    QCOMPARE(passed >= files.size(), isChecked);
}

void TestRecoverydBtrfs::findsEarlierVersions()
{
    const Files files = {{QStringLiteral("cut.bin"), noise(90000, 41)},
                         {QStringLiteral("emptied.bin"), noise(50000, 42)},
                         {QStringLiteral("rewritten.bin"), noise(60000, 43)},
                         {QStringLiteral("replaced.txt"), noise(30000, 44)}};
    QVERIFY(m_image->format(kSizeMiB, {}) && m_image->mount() && fill(files));
    QVERIFY(m_image->write(QStringLiteral("grows.log"), noise(20000, 45)) && m_image->sync());
    QVERIFY(m_image->write(QStringLiteral("grows.log"), noise(20000, 45)) && m_image->sync());
    QVERIFY(QFile::resize(m_image->inside(QStringLiteral("cut.bin")), 100));
    QVERIFY(QFile::resize(m_image->inside(QStringLiteral("emptied.bin")), 0));
    QVERIFY(m_image->write(QStringLiteral("rewritten.bin"), noise(60000, 46)));
    QVERIFY(m_image->write(QStringLiteral("replaced.new"), noise(30000, 47)));
    QVERIFY(m_image->sync() && m_image->remove(QStringLiteral("replaced.txt")));
    QVERIFY(QFile::rename(m_image->inside(QStringLiteral("replaced.new")),
                          m_image->inside(QStringLiteral("replaced.txt"))));
    QVERIFY(m_image->unmount());
    const auto media = this->media();
    QVERIFY(media);
    QCOMPARE(missing(files, scan(media, false), *media, true), QString());
}

/// On a large volume the free space takes long.
void TestRecoverydBtrfs::tellsOfFilesBeforeItSweepsFreeSpace()
{
    class FirstPlace : public CollectingObserver
    {
    public:
        qint64 at = -1; ///< Where the sweep was at the first file.

        bool found(Finding &&finding) override
        {
            if (at < 0)
                at = lastAdvance;
            return CollectingObserver::found(std::move(finding));
        }
    };
    QVERIFY(m_image->format(1536, {}) && m_image->mount());
    const Files files = {{QStringLiteral("folder/large"), noise(300000, 1)},
                         {QStringLiteral("folder/small"), noise(900, 2)}};
    QVERIFY(fill(files) && m_image->sync());
    for (const QString &name : files.keys())
        QVERIFY(m_image->remove(name));
    QVERIFY(m_image->unmount());

    ScanContext context;
    context.media = media();
    context.fileSystem = btrfsFileSystem();
    context.request.mode = ScanRequest::Mode::Deep;
    FirstPlace observer;
    QString error;
    const auto scanner = btrfsSupport().makeScanner(context);
    QVERIFY(scanner->scan(observer, &error));
    QCOMPARE(missing(files, observer.findings, *context.media, true), QString());
    QVERIFY2(observer.at >= 0 && observer.at < scanner->totalWork() / 2,
             qPrintable(QString::number(observer.at)));
}

void TestRecoverydBtrfs::tellsFreeFromUsed()
{
    const QByteArray used = noise(100000, 51);
    const QByteArray gone = noise(100000, 52);
    for (const char *option : {"free-space-tree", "^free-space-tree"}) {
        QVERIFY(m_image->format(kSizeMiB, {QStringLiteral("-R"), QLatin1String(option)}));
        QVERIFY(m_image->mount());
        QVERIFY(fill({{QStringLiteral("used"), used}, {QStringLiteral("gone"), gone}}));
        QVERIFY(m_image->remove(QStringLiteral("gone")) && m_image->unmount());
        const auto media = this->media();
        Ranges free;
        QString error;
        QVERIFY2(btrfsSupport().freeRanges(*media, &free, &error), qPrintable(error));
        const QByteArray image = readAll(m_image->path());
        const auto overlap = [&](const QByteArray &bytes) {
            return overlapOf({{image.indexOf(bytes), bytes.size()}}, free);
        };
        QCOMPARE(overlap(used), qint64(0));
        QCOMPARE(overlap(gone), qint64(gone.size()));
        // No node of the last transaction is free, none but its are used.
        QCOMPARE(overlapOf({{kFirstPlace, 4096}, {kSecondPlace, 4096}}, free), qint64(0));
        QVERIFY(totalLength(free) < media->size() - used.size());
    }
}

void TestRecoverydBtrfs::knowsSubvolumesAndSnapshots()
{
    const Files files = {{QStringLiteral("@home/li/one.bin"), noise(40000, 61)},
                         {QStringLiteral("@home/li/kept.bin"), noise(40000, 62)},
                         {QStringLiteral("@home/li/same.bin"), noise(40000, 63)}};
    QVERIFY(m_image->format(kSizeMiB, {}) && m_image->mount());
    QVERIFY(m_image->subvolume({QStringLiteral("create"), QStringLiteral("@home")}));
    QVERIFY(fill(files));
    QVERIFY(m_image->remove(QStringLiteral("@home/li/one.bin")) && m_image->sync());
    QVERIFY(m_image->subvolume(
        {QStringLiteral("snapshot"), QStringLiteral("@home"), QStringLiteral("@copy")}));
    // Still in the snapshot, so not lost; and changes of other files make new leaves of both.
    QVERIFY(m_image->remove(QStringLiteral("@home/li/kept.bin")));
    QVERIFY(m_image->write(QStringLiteral("@copy/li/more.txt"), "more"));
    QVERIFY(m_image->write(QStringLiteral("@home/li/more.txt"), "more"));
    QVERIFY(m_image->unmount());
    const auto media = this->media();
    const QVector<Finding> findings = scan(media, false);
    QCOMPARE(findings.size(), 1);
    QCOMPARE(pathOf(findings.first()), QStringLiteral("@home/li/one.bin"));
    QCOMPARE(findings.first().folderKnowledge, Finding::Folder::Full);
    QCOMPARE(bytesOf(*media, findings.first()), files.value(QStringLiteral("@home/li/one.bin")));
}

void TestRecoverydBtrfs::findsAllOfDamagedVolumes_data()
{
    QTest::addColumn<bool>("isSecondLost");
    QTest::addColumn<bool>("areChunksLost");
    QTest::newRow("superblock") << false << false;
    QTest::newRow("all superblocks") << true << false;
    QTest::newRow("all superblocks and the chunk tree") << true << true;
    QTest::newRow("superblock and the chunk tree") << false << true;
}

void TestRecoverydBtrfs::findsAllOfDamagedVolumes()
{
    QFETCH(const bool, isSecondLost);
    QFETCH(const bool, areChunksLost);
    Files existing = sampleFiles();
    const Files deleted = {{QStringLiteral("gone/a.bin"), noise(30000, 71)},
                           {QStringLiteral("gone/b.txt"), "short"}};
    QVERIFY(m_image->format(kSizeMiB, {}) && m_image->mount() && fill(existing) && fill(deleted));
    QVERIFY(m_image->remove(QStringLiteral("gone")) && m_image->unmount());
    QVERIFY(zero(m_image->path(), kFirstPlace, 4096));
    if (isSecondLost)
        QVERIFY(zero(m_image->path(), kSecondPlace, 4096));
    if (areChunksLost)
        forEachNode(readAll(m_image->path()), 16384, [&](int at, const btrfs::NodeView &node) {
            if (node.owner() == btrfs::kChunkTree)
                QVERIFY(zero(m_image->path(), at, 16384));
        });
    const auto media = this->media();
    const QVector<Finding> findings = scan(media, true);
    // Which files still exist cannot be told without the roots of the trees.
    const bool isTreeKnown = !isSecondLost && !areChunksLost;
    QCOMPARE(missing(existing, findings, *media, !isTreeKnown), QString());
    QCOMPARE(missing(deleted, findings, *media, true), QString());
    existing.insert(QStringLiteral("gone/a.bin"), deleted.first());
    existing.insert(QStringLiteral("gone/b.txt"), deleted.last());
    QCOMPARE(falseClaims(existing, findings, *media), QString());
}

void TestRecoverydBtrfs::findsFilesFromBeforeAFormat()
{
    Files files = sampleFiles();
    for (int i = 0; i < 200; ++i)
        files.insert(QStringLiteral("many/%1.bin").arg(i), noise(20000 + i, 100 + quint32(i)));
    QVERIFY(m_image->format(kSizeMiB, {}) && m_image->mount() && fill(files));
    QVERIFY(m_image->unmount() && m_image->formatAgain({}) && m_image->mount());
    QVERIFY(fill({{QStringLiteral("new.bin"), noise(200000, 99)}}) && m_image->unmount());
    const auto media = this->media();
    const QVector<Finding> findings = scan(media, false);
    QVERIFY2(findings.size() > files.size() / 2, qPrintable(QString::number(findings.size())));
    QCOMPARE(falseClaims(files, findings, *media), QString());
}

void TestRecoverydBtrfs::recognisesLostVolumes()
{
    constexpr qint64 kShift = 3 * 1024 * 1024;
    QVERIFY(m_image->format(kSizeMiB, {QStringLiteral("-L"), QStringLiteral("数据")}));
    QVERIFY(m_image->mount() && fill(sampleFiles()) && m_image->unmount());
    const QByteArray volume = readAll(m_image->path());
    const QString disk = m_dir.filePath(QStringLiteral("disk"));
    QVERIFY(write(disk, QByteArray(int(kShift), '\0') + volume));
    const auto media = mediaOf(disk);
    QSet<qint64> starts;
    int marks[2] = {};
    for (qint64 at = 0; at < media->size(); at += 4096) {
        FoundVolume found;
        if (!btrfsSupport().recognise(*media, at, media->read(at, 4096), &found))
            continue;
        starts.insert(found.start);
        QCOMPARE(found.size, qint64(volume.size()));
        if (at != kShift + kFirstPlace && at != kShift + kSecondPlace)
            continue;
        QCOMPARE(found.label, QStringLiteral("数据"));
        ++marks[found.isFromBackup ? 1 : 0];
    }
    QCOMPARE(starts, QSet<qint64>{kShift});
    QCOMPARE(marks[0], 1);
    QCOMPARE(marks[1], 1);
}

/// Nodes and superblocks with bytes changed at random, and their sums made right again. All that is
/// asked is that the scan ends without a crash.
void TestRecoverydBtrfs::survivesMutations()
{
    constexpr int kNodeSize = 4096;
    constexpr int kRounds = 25;
    QVERIFY(m_image->format(kSizeMiB, {QStringLiteral("-n"), QString::number(kNodeSize)}));
    QVERIFY(m_image->mount(QStringLiteral("compress-force=lzo")) && fill(sampleFiles()));
    QVERIFY(m_image->remove(QStringLiteral("text")) && m_image->unmount());
    QByteArray image = readAll(m_image->path());
    image.detach();
    QVector<int> nodes;
    forEachNode(image, kNodeSize, [&](int at, const btrfs::NodeView &) { nodes.append(at); });
    nodes += {int(kFirstPlace), int(kSecondPlace)};
    std::mt19937 random(7);
    int found = 0;
    for (int round = 0; round < kRounds; ++round) {
        for (int at : qAsConst(nodes)) {
            if (random() % 4 != 0)
                continue;
            char *const node = image.data() + at;
            // Most of what matters stands at the head and, of the data, at the end.
            const int place =
                random() % 2 ? 32 + int(random() % 400) : kNodeSize - 1 - int(random() % 1500);
            node[place] = char(random());
            const quint32 sum = ~crc32c(~quint32(0), node + 32, kNodeSize - 32);
            qToLittleEndian(sum, node);
        }
        QVERIFY(write(m_image->path(), image));
        const auto media = this->media();
        for (const Finding &finding : scan(media, round % 2 == 0)) {
            bytesOf(*media, finding);
            ++found;
        }
        Ranges free;
        QString error;
        if (btrfsSupport().freeRanges(*media, &free, &error))
            QVERIFY(totalLength(free) <= media->size());
    }
    QVERIFY(found > 0);
}

QTEST_GUILESS_MAIN(TestRecoverydBtrfs)
#include "tst_recoveryd_btrfs.moc"
