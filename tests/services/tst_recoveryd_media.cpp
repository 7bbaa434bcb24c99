#include "recoveryd/recover/recoverytask.h"
#include "recoveryd/scan/scantask.h"
#include "support/diskimages.h"

#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <cstring>

using namespace services;
using namespace services::recoveryd;
using namespace diskimages;

namespace {

constexpr qint64 kMebi = 1024 * 1024;

/// A medium with bad sectors, which may get better, and which may be pulled.
class FaultyImage : public Image
{
public:
    explicit FaultyImage(const QByteArray &content)
        : Image(QStringLiteral("/dev/faulty"), -1, content.size())
        , bytes(content)
    {}

    bool isGone() const override { return reads >= pulledAfter; }

    QByteArray bytes;
    Ranges bad;
    /// Bad places fail this often and can be read then.
    int failures = std::numeric_limits<int>::max();
    mutable int failed = 0;
    mutable int reads = 0;
    int pulledAfter = std::numeric_limits<int>::max();

protected:
    qint64 readSome(qint64 offset, char *to, qint64 length) const override
    {
        ++reads;
        if (isGone())
            return -ENODEV;
        if (overlapOf({{offset, length}}, bad) > 0 && failed < failures) {
            ++failed;
            return -EIO;
        }
        std::memcpy(to, bytes.constData() + offset, size_t(length));
        return length;
    }
};

class Listener : public ScanListener, public RecoveryListener
{
public:
    void onProgress(const QString &, double, int, qint64, const QString &phaseText) override
    {
        phases += phaseText + QLatin1Char('\n');
    }
    void onFilesFound(const QString &, const QJsonArray &batch) override
    {
        for (const QJsonValue &file : batch)
            files.append(file.toObject());
    }
    void onPaused(const QString &) override {}
    void onFinished(const QString &, const ScanOutcome &finished) override
    {
        outcome = finished;
        isFinished = true;
    }
    void onProgress(const QString &, double, int, int) override {}
    void onFileStatus(const QString &, const FileResult &result) override
    {
        if (result.status != QLatin1String("running"))
            results.append(result);
    }
    void onFinished(const QString &, bool, const QString &) override { isFinished = true; }

    QString phases;
    QVector<QJsonObject> files;
    ScanOutcome outcome;
    QVector<FileResult> results;
    bool isFinished = false;
};

} // namespace

class TestRecoverydMedia : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void readsSmallPiecesExactly();
    void skipsInGrowingSteps();
    void comesBackAtTheEnd();
    void findsFilesBesideBadSectors();
    void findsWhatCouldBeReadAtLast();
    void keepsWhatItHasWhenPulled();
    void goesOnWithAReloadedScan();
    void writesWhatCanBeRead();

private:
    Listener scan(const std::shared_ptr<const Image> &image);
    QStringList rows() const;

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_log;
};

void TestRecoverydMedia::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_log = m_dir->filePath(QStringLiteral("log"));
}

/// A deep scan of the whole medium, to its end.
Listener TestRecoverydMedia::scan(const std::shared_ptr<const Image> &image)
{
    Listener listener;
    Mailbox inbox;
    ScanTask::Order order;
    order.sessionId = QStringLiteral("s");
    order.device.path = QStringLiteral("/dev/faulty");
    order.device.volume = Volume(image, 0, image->size());
    order.request.mode = ScanRequest::Mode::Deep;
    order.logPath = m_log;
    ScanTask task(order, std::make_shared<WorkControl>(), inbox, listener);
    task.run();
    if (!QTest::qWaitFor([&listener] { return listener.isFinished; }, 10000))
        qWarning("the scan did not report its end");
    return listener;
}

/// The kept list as "type label".
QStringList TestRecoverydMedia::rows() const
{
    QStringList rows;
    ResultLog log;
    QString error;
    if (!log.openForReading(m_log, &error))
        return {error};
    for (int i = 0; i < log.count(); ++i) {
        ResultRow row;
        if (!log.readRow(i, &row))
            return {QStringLiteral("unreadable")};
        rows.append(row.described().type + QLatin1Char(' ') + row.described().integrityLabel);
    }
    return rows;
}

void TestRecoverydMedia::readsSmallPiecesExactly()
{
    const auto image = std::make_shared<FaultyImage>(QByteArray(64 * 1024, 'x'));
    image->bad = {{5000, 1}, {20480, 512}};
    const MediaReader media(Volume(image, 1024, 60 * 1024));
    QByteArray got(32 * 1024, '\0');
    QCOMPARE(media.read(0, got.data(), got.size()), qint64(1024));
    QCOMPARE(got.count('x'), 31 * 1024);
    QCOMPARE(media.badRanges(), (Ranges{{3584, 512}, {19456, 512}}));
    QVERIFY(media.hasBadBytes({4000, 1}) && !media.hasBadBytes({4096, 100}));
    // Beyond the volume everything is zero, and lost.
    QCOMPARE(media.read(60 * 1024 - 10, got.data(), 20), qint64(10));
    QCOMPARE(got.left(20), QByteArray(10, 'x') + QByteArray(10, '\0'));
    QCOMPARE(media.read(-5, got.data(), 10), qint64(5));
    QCOMPARE(media.lostBytes(), qint64(1024));
}

void TestRecoverydMedia::skipsInGrowingSteps()
{
    const auto image = std::make_shared<FaultyImage>(QByteArray(int(96 * kMebi), 'x'));
    image->bad = {{8 * kMebi, 64 * kMebi}};
    const MediaReader media(Volume(image, 0, image->size()));
    QByteArray window(int(kMebi), '\0');
    qint64 lost = 0;
    for (qint64 at = 0; at < image->size(); at += kMebi)
        lost += media.read(at, window.data(), kMebi);
    // A drive takes seconds for each attempt; 64 MiB are 131,072 sectors.
    QVERIFY2(image->failed < 250, qPrintable(QString::number(image->failed)));
    QVERIFY(lost >= 64 * kMebi && lost < 66 * kMebi);
    QCOMPARE(media.lostBytes(), lost);
    QVERIFY(!media.isGone());
}

void TestRecoverydMedia::comesBackAtTheEnd()
{
    const auto image = std::make_shared<FaultyImage>(QByteArray(int(4 * kMebi), 'x'));
    image->bad = {{kMebi + 4096 * 5, 512}, {3 * kMebi, 100000}};
    const MediaReader media(Volume(image, 0, image->size()));
    QByteArray all(int(image->size()), '\0');
    const qint64 lost = media.read(0, all.data(), all.size());
    QVERIFY(lost > 150000 && media.skippedBytes() > 0);
    const Ranges readable = media.retrySkipped([] { return true; });
    // One sector stays bad of the first place, and all of the second.
    QCOMPARE(intersected(media.badRanges(), {{0, 2 * kMebi}}), (Ranges{image->bad.first()}));
    const Ranges second = intersected(media.badRanges(), {{2 * kMebi, 2 * kMebi}});
    QCOMPARE(second.first().start, 3 * kMebi);
    QVERIFY(totalLength(second) >= 100000 && totalLength(second) < 102400);
    QCOMPARE(totalLength(readable) + media.lostBytes(), lost);

    // A medium that answers at the second attempt loses nothing.
    const auto slow = std::make_shared<FaultyImage>(image->bytes);
    slow->bad = image->bad;
    slow->failures = 4;
    const MediaReader patient(Volume(slow, 0, slow->size()));
    patient.read(0, all.data(), all.size());
    patient.retrySkipped([] { return true; });
    QCOMPARE(patient.lostBytes(), qint64(0));
}

void TestRecoverydMedia::findsFilesBesideBadSectors()
{
    QByteArray disk(int(8 * kMebi), '\0');
    const QByteArray picture = png(70000);
    for (int i = 0; i < 6; ++i)
        disk.replace(i * int(kMebi), picture.size(), picture);
    const auto image = std::make_shared<FaultyImage>(disk);
    // In front of one picture, in the middle of another, behind a third.
    image->bad = {{kMebi - 512, 512}, {2 * kMebi + 8192, 512}, {3 * kMebi + 102400, 4096}};
    const Listener listener = scan(image);
    QCOMPARE(int(listener.outcome.kind), int(ScanOutcome::Kind::Completed));
    QCOMPARE(listener.outcome.unreadableBytes, qint64(5120));
    QVERIFY(!listener.outcome.notes.isEmpty());
    QVERIFY(listener.phases.contains(QStringLiteral("无法读取")));
    QStringList found = rows();
    found.sort();
    // One of the others was passed over at first, so its checksums were not compared.
    QCOMPARE(found.join(QLatin1Char('|')),
             QStringLiteral(
                 "PNG |PNG 含坏道|PNG 边界已验证|PNG 边界已验证|PNG 边界已验证|PNG 边界已验证"));
}

void TestRecoverydMedia::findsWhatCouldBeReadAtLast()
{
    QByteArray disk(int(4 * kMebi), '\0');
    disk.replace(int(kMebi), 20000, gif(19000));
    const auto image = std::make_shared<FaultyImage>(disk);
    image->bad = {{kMebi - 4096, 8192}};
    image->failures = 2; // the window, and its bad block
    const Listener listener = scan(image);
    QCOMPARE(listener.outcome.unreadableBytes, qint64(0));
    QCOMPARE(rows().join(QLatin1Char('|')), QStringLiteral("GIF "));
}

void TestRecoverydMedia::keepsWhatItHasWhenPulled()
{
    QByteArray disk(int(32 * kMebi), '\0');
    disk.replace(512, 3000, gif(2500));
    disk.replace(int(30 * kMebi), 3000, gif(2500));
    const auto image = std::make_shared<FaultyImage>(disk);
    scan(image); // tells how many reads a whole scan takes
    QCOMPARE(rows().size(), 2);
    const int all = image->reads;
    for (const int after : {1, all / 3, all - 3, all - 1}) {
        QVERIFY(QFile::remove(m_log));
        const auto pulled = std::make_shared<FaultyImage>(disk);
        pulled->pulledAfter = after;
        const Listener listener = scan(pulled);
        QCOMPARE(int(listener.outcome.kind), int(ScanOutcome::Kind::Interrupted));
        QVERIFY(!listener.outcome.error.isEmpty());
        // Back again, the scan goes on; nothing is found twice.
        pulled->pulledAfter = std::numeric_limits<int>::max();
        const int before = pulled->reads;
        const Listener second = scan(pulled);
        QCOMPARE(int(second.outcome.kind), int(ScanOutcome::Kind::Completed));
        QCOMPARE(rows().size(), 2);
        QVERIFY(after < all / 2 || pulled->reads - before <= all);
    }
}

void TestRecoverydMedia::goesOnWithAReloadedScan()
{
    // More than is carved again, so that what is left out shows.
    QByteArray disk(int(160 * kMebi), '\0');
    for (const int at : {1, 90, 150})
        disk.replace(at * int(kMebi), 3000, gif(2500, quint32(at)));
    const auto image = std::make_shared<FaultyImage>(disk);
    scan(image);
    QCOMPARE(rows().size(), 3);
    {
        ResultLog log;
        QString error;
        QVERIFY(log.openForAppending(m_log, &error));
        QJsonObject reached = log.checkpoint();
        reached.insert(QStringLiteral("carvedTo"), 140 * kMebi);
        log.drop(1);
        log.drop(3);
        log.setCheckpoint(reached);
        QVERIFY(log.flush(false, &error));
    }
    const int before = image->reads;
    scan(image);
    // The first place was behind already; the last one comes again under a new number.
    QCOMPARE(rows().size(), 2);
    QVERIFY(image->reads - before < before * 2 / 3);
}

void TestRecoverydMedia::writesWhatCanBeRead()
{
    const QByteArray content = noise(3 * int(kMebi), 5);
    const auto image = std::make_shared<FaultyImage>(content);
    image->bad = {{kMebi + 1000, 1}};
    {
        ResultLog log;
        QString error;
        QVERIFY(log.openForAppending(m_log, &error));
        Finding file;
        file.name = "a?.txt";
        file.folder = "d";
        file.folderKnowledge = Finding::Folder::Full;
        file.modifiedMs = 1600000000123;
        file.content.size = 2 * kMebi + 7;
        file.content.append(0, kMebi / 2, kMebi);
        file.content.append(kMebi + 4096, 0, 500);
        log.append(file, Damage());
        file.name = "gone";
        file.content = FileContent();
        file.content.append(0, kMebi + 600, 900);
        file.content.extents.first().physical = kMebi + 512;
        file.content.extents.first().length = 512;
        file.content.size = 512;
        log.append(file, Damage());
        file.name = "guessed";
        file.isMapComplete = false;
        file.content.extents.first().physical = 0;
        log.append(file, Damage());
        file.name = "holed";
        file.content.size = 1024;
        log.append(file, Damage());
        QVERIFY(log.flush(false, &error));
    }
    RecoveryPlan plan;
    plan.recoveryId = QStringLiteral("r");
    plan.volume = Volume(image, 0, image->size());
    plan.resultsPath = m_log;
    plan.numbers = {1, 2, 3, 4};
    plan.outputDir = m_dir->filePath(QStringLiteral("out"));
    Listener listener;
    Mailbox inbox;
    RecoveryTask task(plan, std::make_shared<WorkControl>(), inbox, listener);
    task.run();
    QVERIFY(QTest::qWaitFor([&listener] { return listener.isFinished; }, 10000));
    QCOMPARE(listener.results.size(), 4);
    const FileResult &result = listener.results.first();
    QCOMPARE(result.status, QStringLiteral("partial"));
    QVERIFY(result.detail.contains(QStringLiteral("无法读取")));
    QCOMPARE(QFileInfo(result.outputPath).lastModified().toMSecsSinceEpoch(), 1600000000123);
    QByteArray expected = content.mid(int(kMebi / 2), int(kMebi));
    expected.replace(int(kMebi / 2) + 512, 512, QByteArray(512, '\0'));
    expected += QByteArray(4096, '\0') + content.left(500);
    expected += QByteArray(int(2 * kMebi) + 7 - expected.size(), '\0');
    QVERIFY(readAll(result.outputPath) == expected);
    QCOMPARE(listener.results.at(1).status, QStringLiteral("failed"));
    QVERIFY(listener.results.at(1).outputPath.isEmpty());
    QVERIFY(listener.results.at(2).detail.contains(QStringLiteral("推断")));
    QVERIFY(listener.results.at(3).detail.contains(QStringLiteral("已填零")));
}

QTEST_GUILESS_MAIN(TestRecoverydMedia)
#include "tst_recoveryd_media.moc"
