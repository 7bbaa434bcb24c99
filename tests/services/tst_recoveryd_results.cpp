#include "recoveryd/scan/resultlist.h"
#include "recoveryd/scan/volumesearch.h"
#include "support/diskimages.h"

#include <QTemporaryDir>
#include <QTest>

Q_DECLARE_METATYPE(services::recoveryd::Finding)
Q_DECLARE_METATYPE(services::recoveryd::Damage)

using namespace services::recoveryd;

namespace {

constexpr qint64 kBlock = 4096;
constexpr qint64 kDevice = 100000 * kBlock;

/// A file of metadata: "folder/name", its blocks and its size in bytes.
Finding named(const QByteArray &path, const QVector<Range> &blocks, qint64 size,
              quint64 recency = 1)
{
    Finding finding;
    const int slash = path.lastIndexOf('/');
    finding.name = path.mid(slash + 1);
    finding.folder = path.left(qMax(0, slash));
    finding.folderKnowledge = Finding::Folder::Full;
    finding.recency = recency;
    qint64 logical = 0;
    for (const Range &range : blocks) {
        finding.content.append(logical, range.start * kBlock, range.length * kBlock);
        logical += range.length * kBlock;
    }
    finding.content.size = size;
    return finding;
}

Finding carved(qint64 block, qint64 size, Evidence evidence)
{
    Finding finding;
    finding.source = FindingSource::Carving;
    finding.type = QStringLiteral("PDF");
    finding.extension = QStringLiteral("pdf");
    finding.evidence = evidence;
    finding.content.append(0, block * kBlock, size);
    finding.content.size = size;
    return finding;
}

bool isSame(const Finding &a, const Finding &b)
{
    return a.name == b.name && a.folder == b.folder && a.folderKnowledge == b.folderKnowledge &&
           a.source == b.source && a.modifiedMs == b.modifiedMs && a.deletedMs == b.deletedMs &&
           a.isDeleted == b.isDeleted && a.isSizeExact == b.isSizeExact &&
           a.isMapComplete == b.isMapComplete && a.isMapGuessed == b.isMapGuessed &&
           a.recency == b.recency && a.takenBytes == b.takenBytes &&
           a.contentCheck == b.contentCheck && a.type == b.type && a.extension == b.extension &&
           a.evidence == b.evidence && a.content.size == b.content.size &&
           a.content.extents == b.content.extents &&
           a.content.inlineBytes == b.content.inlineBytes && contentKey(a) == contentKey(b);
}

} // namespace

/// From findings to rows: grades, claims to the same blocks, the one list, and its log.
class TestRecoverydResults : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void grades_data();
    void grades();
    void settlesClaims_data();
    void settlesClaims();
    void keepsOneList_data();
    void keepsOneList();
    void leavesFoundBlocksToCarving();
    void keepsEverythingInTheLog();
    void refusesOtherLogs();
    void namesAndPlaces_data();
    void namesAndPlaces();
    void mergesFoundVolumes_data();
    void mergesFoundVolumes();

private:
    /// Adds findings of one scanner each, in turn; the rows as "path size source label".
    QStringList rowsOf(const QVector<QVector<Finding>> &scanners);

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_path;
};

void TestRecoverydResults::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_path = m_dir->filePath(QStringLiteral("results"));
}

void TestRecoverydResults::grades_data()
{
    QTest::addColumn<Finding>("finding");
    QTest::addColumn<Damage>("damage");
    QTest::addColumn<QString>("grade"); // key, label, contiguity
    const auto row = [](const char *name, const Finding &finding, const char *grade,
                        const Damage &damage = Damage()) {
        QTest::newRow(name) << finding << damage << QString::fromUtf8(grade);
    };
    const Finding whole = named("a/b.txt", {{10, 10}}, 10 * kBlock);
    const auto with = [&whole](const std::function<void(Finding &)> &change) {
        Finding finding = whole;
        change(finding);
        return finding;
    };
    row("whole", whole, "excellent 目录完整 1");
    row("in several pieces", named("a", {{10, 5}, {30, 3}, {50, 2}}, 10 * kBlock),
        "excellent 目录完整 0.5");
    row("empty", named("a", {}, 0), "excellent 目录完整 1");
    row("name lost", with([](Finding &f) { f.name.clear(); }), "excellent 名称丢失 1");
    row("size estimated", with([](Finding &f) { f.isSizeExact = false; }), "good 大小为估计 1");
    row("a tenth of the map lost", with([](Finding &f) {
            f.isMapComplete = false;
            f.content.extents.first().length -= kBlock / 2;
        }),
        "fair 数据不全 1");
    row("blocks worked out", with([](Finding &f) { f.isMapComplete = false; }), "fair 待核验 1");
    row("by the rule of a driver", with([](Finding &f) { f.isMapGuessed = true; }),
        "good 待核验 1");
    row("by the rule, and decoded", with([](Finding &f) {
            f.isMapGuessed = true;
            f.contentCheck = Finding::Check::Passed;
        }),
        "excellent 目录完整 1");
    row("map lost", with([](Finding &f) {
            f.isMapComplete = false;
            f.content.extents.clear();
        }),
        "very_poor 数据不全 1");
    row("checksum wrong", with([](Finding &f) { f.contentCheck = Finding::Check::Failed; }),
        "poor 校验未通过 1");
    row("a little used again", whole, "fair 部分被覆盖 1", {kBlock / 2, 0, 0});
    row("half claimed by a newer file", whole, "very_poor 已被覆盖 1", {0, 5 * kBlock, 0});
    row("known to its scanner as taken", with([](Finding &f) { f.takenBytes = kBlock; }),
        "poor 部分被覆盖 1");
    row("bad sectors", whole, "fair 含坏道 1", {0, 0, 512});
    row("carved with its end", carved(5, 100, Evidence::End), "good  1");
    row("carved container", carved(5, 100, Evidence::Container), "excellent 容器已验证 1");
    row("carved to an end that is only told", carved(5, 100, Evidence::Structure),
        "good 待核验 0.5");
    row("carved head", carved(5, 100, Evidence::Header), "poor  0.5");
    row("carved over bad sectors", carved(5, 100, Evidence::End), "very_poor 含坏道 1",
        {0, 0, 100});
}

void TestRecoverydResults::grades()
{
    QFETCH(Finding, finding);
    QFETCH(Damage, damage);
    const Grade grade = gradeOf(finding, damage);
    QTEST(QStringLiteral("%1 %2 %3").arg(grade.probabilityKey, grade.label).arg(grade.contiguity),
          "grade");
    QVERIFY(!grade.reason.isEmpty());
    // Words that promise whole files are only for whole ones.
    const bool isPromised = grade.probabilityKey == QLatin1String("excellent");
    QVERIFY(!isPromised || isWhole(finding, damage));
    QVERIFY(!grade.isBoundaryVerified || damage.isNone());
}

void TestRecoverydResults::settlesClaims_data()
{
    QTest::addColumn<QVector<QVector<qint64>>>("claims"); // start, length, recency, exists, logical
    QTest::addColumn<QVector<qint64>>("lost");            // of each
    using Rows = QVector<QVector<qint64>>;
    QTest::newRow("apart") << Rows{{0, 10, 1, 0, 0}, {10, 10, 2, 0, 0}} << QVector<qint64>{0, 0};
    QTest::newRow("newer in the middle")
        << Rows{{0, 30, 1, 0, 0}, {10, 5, 2, 0, 0}} << QVector<qint64>{5, 0};
    QTest::newRow("a third over both")
        << Rows{{0, 10, 1, 0, 0}, {5, 10, 2, 0, 0}, {8, 4, 3, 0, 0}} << QVector<qint64>{5, 4, 0};
    QTest::newRow("what exists wins")
        << Rows{{0, 10, 9, 0, 0}, {5, 10, 1, 1, 0}} << QVector<qint64>{5, 0};
    QTest::newRow("equal, both lose")
        << Rows{{0, 10, 1, 0, 0}, {5, 10, 1, 0, 0}} << QVector<qint64>{5, 5};
    QTest::newRow("equal, the same bytes of one file")
        << Rows{{0, 10, 1, 0, 0}, {5, 10, 1, 0, 5}} << QVector<qint64>{0, 0};
}

void TestRecoverydResults::settlesClaims()
{
    using Rows = QVector<QVector<qint64>>;
    QFETCH(Rows, claims);
    QFETCH(QVector<qint64>, lost);
    ClaimMap map;
    // The claims of an earlier scanner have no part in it.
    FileContent everything;
    everything.append(0, 0, 1000);
    map.add(1, everything, 100, true);
    map.settle();
    map.begin();
    for (int i = 0; i < claims.size(); ++i) {
        FileContent content;
        content.append(claims.at(i).at(4), claims.at(i).at(0), claims.at(i).at(1));
        map.add(i + 2, content, quint64(claims.at(i).at(2)), claims.at(i).at(3) != 0);
    }
    QVector<qint64> found(claims.size());
    for (const ClaimMap::Loss &loss : map.settle())
        found[loss.number - 2] = loss.bytes;
    QCOMPARE(found, lost);
}

QStringList TestRecoverydResults::rowsOf(const QVector<QVector<Finding>> &scanners)
{
    ResultLog log;
    QString error;
    if (!log.openForAppending(m_path, &error))
        return {error};
    ResultList list(log, ScanRequest(), kDevice);
    for (const QVector<Finding> &findings : scanners) {
        const bool isCarving =
            !findings.isEmpty() && findings.first().source == FindingSource::Carving;
        if (isCarving)
            list.closeClaims();
        else
            list.beginScanner(ResultList::Place());
        for (const Finding &finding : findings)
            if (!list.add(Finding(finding)))
                return {QStringLiteral("full")};
        if (!isCarving)
            list.endScanner();
    }
    QStringList rows;
    for (int i = 0; i < log.count(); ++i) {
        ResultRow row;
        if (!log.readRow(i, &row))
            return {QStringLiteral("unreadable")};
        const FoundFile file = row.described();
        rows.append(QStringLiteral("%1 %2 %3 %4")
                        .arg(file.path)
                        .arg(file.size)
                        .arg(file.source, file.integrityLabel));
    }
    return rows;
}

void TestRecoverydResults::keepsOneList_data()
{
    QTest::addColumn<QVector<QVector<Finding>>>("scanners");
    QTest::addColumn<QString>("rows");
    const auto row = [](const char *name, const QVector<QVector<Finding>> &scanners,
                        const char *rows) {
        QTest::newRow(name) << scanners << QString::fromUtf8(rows);
    };
    const Finding file = named("d/a.pdf", {{10, 2}}, 5000, 3);
    Finding nameless = file;
    nameless.name.clear();
    nameless.folder.clear();
    nameless.folderKnowledge = Finding::Folder::Unknown;
    Finding unsized = named("d/u.pdf", {{20, 3}}, 3 * kBlock);
    unsized.isSizeExact = false;
    Finding journal = file;
    journal.source = FindingSource::Journal;
    row("found twice by one scanner", {{file, file}}, "/d/a.pdf 5000 metadata 目录完整");
    row("by two scanners", {{file}, {journal}}, "/d/a.pdf 5000 metadata 目录完整");
    row("name found later", {{nameless, file}}, "/d/a.pdf 5000 metadata 目录完整");
    row("name found earlier", {{file}, {nameless}}, "/d/a.pdf 5000 metadata 目录完整");
    row("renamed", {{named("d/a.tmp", {{10, 2}}, 5000, 2), file}},
        "/d/a.pdf 5000 metadata 目录完整");
    row("hard links", {{file, named("e/b.pdf", {{10, 2}}, 5000, 3)}},
        "/d/a.pdf 5000 metadata 目录完整|/e/b.pdf 5000 metadata 目录完整");
    row("empty files", {{named("a", {}, 0), named("b", {}, 0)}},
        "/a 0 metadata 目录完整|/b 0 metadata 目录完整");
    row("claimed by a newer file", {{named("old", {{10, 2}}, 8000, 1), file}},
        "/old 8000 metadata 已被覆盖|/d/a.pdf 5000 metadata 目录完整");
    row("carved as well",
        {{named("d/a.pdf", {{10, 1}}, 4000, 3)}, {carved(10, 4000, Evidence::End)}},
        "/d/a.pdf 4000 metadata 目录完整|/特征扫描/PDF/f000000080.pdf 4000 carving ");
    row("end found by contents", {{unsized}, {carved(20, 9000, Evidence::End)}},
        "/d/u.pdf 9000 hybrid 边界已验证");
    Finding inPieces = named("d/u.pdf", {{20, 1}, {30, 2}}, 3 * kBlock);
    inPieces.isSizeExact = false;
    row("carved across other files", {{inPieces}, {carved(20, 9000, Evidence::End)}},
        "/d/u.pdf 12288 metadata 大小为估计|/特征扫描/PDF/f000000160.pdf 9000 carving ");
    Finding decoded = carved(20, 9000, Evidence::End);
    decoded.contentCheck = Finding::Check::Passed;
    row("carved and decoded", {{inPieces}, {decoded}}, "/d/u.pdf 9000 hybrid 边界已验证");
    row("no end found by contents", {{unsized}, {carved(20, 9000, Evidence::Header)}},
        "/d/u.pdf 12288 metadata 大小为估计");
    row("outside of the device", {{named("x", {{200000, 1}}, 100)}}, "/x 100 metadata 数据不全");
}

void TestRecoverydResults::keepsOneList()
{
    QFETCH(QVector<QVector<Finding>>, scanners);
    QTEST(rowsOf(scanners).join(QLatin1Char('|')), "rows");
}

void TestRecoverydResults::leavesFoundBlocksToCarving()
{
    ResultLog log;
    QString error;
    QVERIFY(log.openForAppending(m_path, &error));
    ResultList list(log, ScanRequest(), kDevice);
    ResultList::Place place;
    place.shift = 100 * kBlock;
    place.ownInUse = {{(100 + 30) * kBlock, kBlock}};
    list.beginScanner(place);
    Finding existing = named("lives", {{30, 2}}, 2 * kBlock);
    existing.isDeleted = false;
    for (const Finding &finding : {named("whole", {{0, 2}, {2, 3}}, 5 * kBlock),
                                   named("taken", {{29, 2}}, 2 * kBlock), existing})
        QVERIFY(list.add(Finding(finding)));
    list.endScanner();
    // Shifted to the device; the file whose block is in use is searched for again.
    QCOMPARE(list.closeClaims(), (Ranges{{100 * kBlock, 5 * kBlock}, {130 * kBlock, 2 * kBlock}}));
    list.markUnreadable({{101 * kBlock, 512}});
    QStringList labels;
    for (int i = 0; i < 3; ++i) {
        ResultRow row;
        QVERIFY(log.readRow(i, &row));
        labels.append(row.described().integrityLabel);
    }
    QCOMPARE(labels.join(QLatin1Char(' ')), QStringLiteral("含坏道 已被覆盖 目录完整"));
}

void TestRecoverydResults::keepsEverythingInTheLog()
{
    Finding rich = named("\xE6\x96\x87/\xFF raw", {{5, 1}, {1, 1}, {90000, 7}}, 1 << 20);
    rich.source = FindingSource::Journal;
    rich.modifiedMs = -1234567890123;
    rich.deletedMs = 1700000000001;
    rich.isDeleted = false;
    rich.isMapComplete = false;
    rich.recency = std::numeric_limits<quint64>::max();
    rich.takenBytes = 77;
    rich.contentCheck = Finding::Check::Failed;
    rich.content.inlineBytes = QByteArray("\0inline\xFF", 8);
    rich.content.packed = {{4096, 8192, 3, 16384, Codec::Zstd, {{7, 9}, {1, 2}}, "packed"}};
    const Damage damage{1, 2, 3};
    QString error;
    for (int round = 1; round <= 3; ++round) {
        ResultLog log;
        QVERIFY2(log.openForAppending(m_path, &error), qPrintable(error));
        QCOMPARE(log.lastNumber(), 3 * (round - 1));
        const int first = log.append(rich, damage);
        const int second = log.append(carved(4, 10, Evidence::Container), Damage());
        log.drop(log.append(Finding(), Damage()));
        log.setDamage(second, {0, 0, 9});
        log.setCheckpoint({{QStringLiteral("round"), round}});
        // What is not flushed yet is read back as well.
        ResultRow row;
        QVERIFY(log.read(first, &row) && isSame(row.finding, rich));
        QVERIFY(log.flush(false, &error));
    }
    ResultLog log;
    QVERIFY(log.openForReading(m_path, &error));
    QCOMPARE(log.count(), 6);
    QCOMPARE(log.checkpoint().value(QLatin1String("round")).toInt(), 3);
    for (int row = 0; row < 6; ++row) {
        ResultRow found;
        QVERIFY(log.readRow(row, &found));
        QCOMPARE(found.number, row / 2 * 3 + row % 2 + 1);
        if (row % 2 == 0) {
            QVERIFY(isSame(found.finding, rich));
            QCOMPARE(found.damage.overwritten, qint64(2));
        } else {
            QCOMPARE(found.damage.unreadable, qint64(9));
        }
    }
    ResultRow none;
    QVERIFY(!log.read(3, &none) && !log.readRow(6, &none) && !log.read(0, &none));
}

void TestRecoverydResults::refusesOtherLogs()
{
    QString error;
    ResultLog log;
    QVERIFY(!log.openForReading(m_path, &error) && !error.isEmpty());
    QVERIFY(diskimages::write(m_path, "{\"files\":[]}"));
    QVERIFY(!log.openForReading(m_path, &error));
}

void TestRecoverydResults::namesAndPlaces_data()
{
    QTest::addColumn<Finding>("finding");
    QTest::addColumn<QString>("shown"); // name, path, type
    const auto row = [](const char *name, const Finding &finding, const char *shown) {
        QTest::newRow(name) << finding << QString::fromUtf8(shown);
    };
    Finding finding = named("home/li/a.JPG", {{2, 1}}, 9);
    row("full path", finding, "a.JPG|/home/li/a.JPG|JPG");
    finding.folderKnowledge = Finding::Folder::Partial;
    row("last folders", finding, "a.JPG|/…/home/li/a.JPG|JPG");
    finding.folderKnowledge = Finding::Folder::Unknown;
    row("name alone", finding, "a.JPG|/丢失路径/a.JPG|JPG");
    finding.name.clear();
    finding.extension = QStringLiteral("png");
    row("nothing but contents", finding, "f000000016.png|/丢失路径/f000000016.png|PNG");
    row("in the root", named("x", {{2, 1}}, 9), "x|/x|文件");
    row("bytes that are no text", named("\xFFz.txt", {{2, 1}}, 9),
        "\xEF\xBF\xBDz.txt|/\xEF\xBF\xBDz.txt|TXT");
    row("carved", carved(3, 9, Evidence::End), "f000000024.pdf|/特征扫描/PDF/f000000024.pdf|PDF");
}

void TestRecoverydResults::namesAndPlaces()
{
    QFETCH(Finding, finding);
    const FoundFile file = describe(finding, 7);
    QTEST(QStringList({file.name, file.path, file.type}).join(QLatin1Char('|')), "shown");
    QCOMPARE(numberOf(file.fileId), 7);
    QCOMPARE(numberOf(QStringLiteral("c000007")), 7);
    for (const char *id : {"", "f", "7", "f-7", "f7x", "f0"})
        QCOMPARE(numberOf(QLatin1String(id)), 0);
}

void TestRecoverydResults::mergesFoundVolumes_data()
{
    QTest::addColumn<QVector<QStringList>>("found"); // type, start, size, "b" for a backup
    QTest::addColumn<QString>("kept");
    using Rows = QVector<QStringList>;
    const auto row = [](const char *name, const Rows &found, const char *kept) {
        QTest::newRow(name) << found << QString::fromLatin1(kept);
    };
    const auto volume = [](const char *text) {
        return QString::fromLatin1(text).split(QLatin1Char(' '));
    };
    row("nothing", {}, "");
    row("copies of one", {volume("ext4 10 90 b"), volume("ext4 10 90"), volume("ext4 10 90 b")},
        "ext4@10+90");
    row("two in a row", {volume("xfs 100 50"), volume("ext4 0 100")}, "ext4@0+100 xfs@100+50");
    row("formatted as something else", {volume("ext4 0 100"), volume("ntfs 0 99 b")},
        "ext4@0+100 ntfs@0+99");
    row("an image inside", {volume("ext4 0 100"), volume("fat32 30 20")}, "ext4@0+100");
    row("an older one that overlaps", {volume("ext4 0 100"), volume("ext4 50 100 b")},
        "ext4@0+100");
    row("only backups", {volume("ext4 0 50 b"), volume("ext4 60 10 b")}, "ext4@0+50 ext4@60+10");
}

void TestRecoverydResults::mergesFoundVolumes()
{
    QFETCH(QVector<QStringList>, found);
    QVector<FoundVolume> volumes;
    for (const QStringList &row : found) {
        FoundVolume volume;
        volume.type = row.at(0);
        volume.start = row.at(1).toInt();
        volume.size = row.at(2).toInt();
        volume.isFromBackup = row.size() > 3;
        volumes.append(volume);
    }
    QStringList kept;
    for (const FoundVolume &volume : VolumeSearch::mergedVolumes(volumes))
        kept.append(QStringLiteral("%1@%2+%3").arg(volume.type).arg(volume.start).arg(volume.size));
    QTEST(kept.join(QLatin1Char(' ')), "kept");
}

QTEST_GUILESS_MAIN(TestRecoverydResults)
#include "tst_recoveryd_results.moc"
