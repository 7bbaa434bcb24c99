#include "recoveryd/devices/devicecatalog.h"
#include "recoveryd/ext/extlookup.h"
#include "recoveryd/scan/scanplan.h"
#include "support/diskimages.h"

#include <QElapsedTimer>
#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QTest>

#include <random>

using namespace services::recoveryd;
using namespace diskimages;

namespace {

/// Counts; ends a scan that takes too long, and says so.
class Counter : public ScanObserver
{
public:
    Counter() { m_clock.start(); }
    bool mayGoOn() override { return !isLate(); }
    void advanced(qint64) override {}
    bool found(Finding &&finding) override
    {
        const FileContent &content = finding.content;
        isSane = isSane && content.size >= 0 &&
                 (finding.source != FindingSource::Carving ||
                  totalLength(content.storedRanges()) == content.size);
        return ++files < 100000 && !isLate();
    }
    bool isLate() const { return m_clock.elapsed() > 20000; }

    int files = 0;
    bool isSane = true;

private:
    QElapsedTimer m_clock;
};

} // namespace

/// Images with bytes changed at random, and cut ones. What is asked is that everything ends, soon
/// and without a crash, and that what is found lies within the image.
class TestRecoverydHostile : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void survivesMutations_data();
    void survivesMutations();

private:
    void work(const QString &image, int *files, bool *isLate);

    QTemporaryDir m_dir;
    QVector<QByteArray> m_images;
};

void TestRecoverydHostile::initTestCase()
{
    // Half of the mutants warn about what they hold.
    QLoggingCategory::setFilterRules(QStringLiteral("default.warning=false"));
    const QString source = m_dir.filePath(QStringLiteral("source"));
    QVERIFY(QDir().mkpath(source + QStringLiteral("/d")));
    QVERIFY(write(source + QStringLiteral("/d/a.png"), png(9000)));
    QVERIFY(write(source + QStringLiteral("/b.docx"), container(QStringLiteral("docx"), 9000)));
    QVERIFY(write(source + QStringLiteral("/c.pdf"), updatedPdf(9000)));
    QVERIFY(write(source + QStringLiteral("/e.gif"), gif(9000)));
    QVERIFY(write(source + QStringLiteral("/f.jpg"), jpeg(9000)));
    QString error;
    for (const char *type : {"ext4", "ext2"}) {
        const QString image = m_dir.filePath(QLatin1String(type));
        QVERIFY2(makeExt(image, source, 1024, {QStringLiteral("-t"), QLatin1String(type)}, &error),
                 qPrintable(error));
        QVERIFY(debugfs(image, QStringLiteral("rm /b.docx"), &error));
        QVERIFY(debugfs(image, QStringLiteral("rm /f.jpg"), &error));
        m_images.append(readAll(image));
    }
    // A disk with a logical partition and files side by side.
    QByteArray disk(300 * 1024, '\0');
    const auto entry = [&disk](int at, char type, char start, char count) {
        disk[at + 4] = type;
        disk[at + 8] = start;
        disk[at + 12] = count;
        disk.replace(at / 512 * 512 + 510, 2, "\x55\xAA");
    };
    entry(446, '\x05', 8, 100);
    entry(8 * 512 + 446, '\x83', 2, 60);
    int place = 10 * 512;
    for (const QByteArray &file :
         {png(5000), jpeg(5000), gif(5000), pdf(5000), container(QStringLiteral("odt"), 5000)}) {
        disk.replace(place, file.size(), file);
        place += (file.size() / 512 + 1) * 512;
    }
    m_images.append(disk);
}

void TestRecoverydHostile::survivesMutations_data()
{
    QTest::addColumn<int>("image");
    QTest::addColumn<int>("hotStart"); // where the structures are that are worth hitting
    QTest::addColumn<int>("hotLength");
    QTest::newRow("ext4, superblock") << 0 << 1024 << 264;
    QTest::newRow("ext4, tables") << 0 << 2048 << 200000;
    QTest::newRow("ext2, tables") << 1 << 1024 << 200000;
    QTest::newRow("partitions and files") << 2 << 0 << 32000;
}

void TestRecoverydHostile::survivesMutations()
{
    QFETCH(int, image);
    QFETCH(int, hotStart);
    QFETCH(int, hotLength);
    constexpr int kMutants = 60;
    std::mt19937 random(4711);
    const auto upTo = [&random](int end) {
        return int(random() % quint32(end));
    };
    const QString path = m_dir.filePath(QStringLiteral("mutant"));
    int files = 0;
    for (int i = 0; i < kMutants; ++i) {
        QByteArray bytes = m_images.at(image);
        for (int k = 1 + upTo(12); k > 0; --k) {
            static const char extremes[] = {'\0', '\x01', '\x7F', '\x80', '\xFF'};
            const int at = hotStart + upTo(hotLength);
            const int length = 1 + upTo(4);
            for (int j = 0; j < length; ++j)
                bytes[at + j] = upTo(2) ? extremes[upTo(5)] : char(random());
        }
        if (upTo(4) == 0)
            bytes.truncate(upTo(bytes.size()));
        QVERIFY(write(path, bytes));
        bool isLate = false;
        work(path, &files, &isLate);
        QVERIFY2(!isLate, qPrintable(QString::number(i)));
    }
    QVERIFY(files > 0); // the mutants still hold something to find
}

void TestRecoverydHostile::work(const QString &image, int *files, bool *isLate)
{
    DeviceCatalog catalog;
    QString error;
    QVERIFY2(catalog.addImage(image, &error), qPrintable(error));
    QVERIFY(!catalog.groups().isEmpty());
    const QVector<Device> devices = catalog.devices();
    for (const Device &device : devices) {
        ExtVolume ext;
        for (const char *name : {"/d/a.png", "/c.pdf", "/e.gif/x"}) {
            ExtInode inode;
            QVector<BlockRun> runs;
            if (ext.open(device.volume, &error) &&
                lookUp(ext, QLatin1String(name), &inode, &error) &&
                readBlockRuns(ext, inode, 131072, &runs, &error))
                for (const BlockRun &run : qAsConst(runs))
                    QVERIFY(run.physical > 0 && run.count > 0 &&
                            run.physical + run.count <= ext.superblock().blockCount);
        }
        for (const auto mode : {ScanRequest::Mode::Quick, ScanRequest::Mode::Deep}) {
            ScanRequest request;
            request.mode = mode;
            Counter counter;
            ScanPlan plan(device, request);
            if (!plan.search(counter))
                QVERIFY(counter.isLate());
            for (const ScanPhase &phase : plan.metadataPhases())
                if (!phase.scanner->scan(counter, &error))
                    QVERIFY(!error.isEmpty());
            const auto carver = plan.makeCarver(plan.carvingRanges(Ranges()));
            if (mode == ScanRequest::Mode::Deep && !carver->scan(counter, &error))
                QVERIFY(!error.isEmpty());
            QVERIFY(counter.isSane);
            *files += counter.files;
            *isLate = *isLate || counter.isLate();
        }
    }
}

QTEST_GUILESS_MAIN(TestRecoverydHostile)
#include "tst_recoveryd_hostile.moc"
