#include "recoveryd/carve/carver.h"
#include "recoveryd/scan/carvingscanner.h"
#include "recoveryd/scan/foundfile.h"
#include "support/diskimages.h"
#include "support/samplecontainers.h"

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>

using namespace services::recoveryd;
using namespace diskimages;

namespace {

/// Keeps what is found; can end the scan after a number of files.
class Collector : public ScanObserver
{
public:
    bool mayGoOn() override { return !m_isFull; }
    void advanced(qint64 done) override
    {
        isMonotonic = isMonotonic && done >= lastDone;
        lastDone = done;
    }
    bool found(Finding &&finding) override
    {
        files.append(describe(finding, files.size() + 1));
        m_isFull = files.size() >= limit;
        return !m_isFull;
    }

    int limit = 1000000;
    bool isMonotonic = true;
    qint64 lastDone = 0;
    QVector<FoundFile> files;

private:
    bool m_isFull = false;
};

QByteArray padded(const QByteArray &bytes, int alignment)
{
    return bytes + QByteArray((alignment - bytes.size() % alignment) % alignment, '\0');
}

} // namespace

class TestRecoverydCarving : public QObject
{
    Q_OBJECT

private slots:
    void findsTheEnd_data();
    void findsTheEnd();
    void tellsBrokenFilesHonestly_data();
    void tellsBrokenFilesHonestly();
    void refusesLookalikes_data();
    void refusesLookalikes();
    void findsNeighboursAndCutsOpenFiles();
    void looksOnlyAtThePlanned();
    void crossesWindows();
    void findsFilesBehindManyCutOnes_data();
    void findsFilesBehindManyCutOnes();
    void staysLinearOnHeadsWithoutEnds();

private:
    Volume volumeOf(const QByteArray &bytes);
    QVector<FoundFile> scan(const QByteArray &bytes, Collector *collector = nullptr,
                            qint64 alignment = 512, Ranges ranges = Ranges());

    QTemporaryDir m_dir;
    int m_images = 0;
};

Volume TestRecoverydCarving::volumeOf(const QByteArray &bytes)
{
    const QString path = m_dir.filePath(QString::number(++m_images));
    QString error;
    if (!write(path, bytes))
        return Volume();
    const auto image = Image::open(path, &error);
    return Volume(image, 0, image->size());
}

QVector<FoundFile> TestRecoverydCarving::scan(const QByteArray &bytes, Collector *collector,
                                              qint64 alignment, Ranges ranges)
{
    CarvingScanner::Plan plan;
    plan.volume = volumeOf(bytes);
    plan.ranges = ranges.isEmpty() ? Ranges{{0, plan.volume.size()}} : ranges;
    plan.alignment = alignment;
    CarvingScanner scanner(plan);
    Collector own;
    Collector &used = collector ? *collector : own;
    QString error;
    return scanner.scan(used, &error) ? used.files : QVector<FoundFile>();
}

void TestRecoverydCarving::findsTheEnd_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("label");
    const QString whole = QStringLiteral("容器已验证");
    const QString decoded = QStringLiteral("边界已验证");
    QTest::newRow("png") << png(5000) << "PNG" << decoded;
    QTest::newRow("jpeg, several scans, end mark in a segment") << jpeg(5000) << "JPG" << decoded;
    QTest::newRow("gif") << gif(5000) << "GIF" << QString();
    QTest::newRow("pdf") << pdf(5000) << "PDF" << QString();
    QTest::newRow("pdf with an update") << updatedPdf(5000) << "PDF" << QString();
    QTest::newRow("pdf inside the text of another line end")
        << pdf(100).replace("%%EOF\n", "%%EOF") << "PDF" << QString();
    for (const char *kind : {"zip", "docx", "xlsx", "pptx", "odt", "ods", "odp"})
        QTest::newRow(kind) << container(QLatin1String(kind), 5000)
                            << QString(QLatin1String(kind)).toUpper() << whole;
    QTest::newRow("zip in a stored zip")
        << samples::zipArchive(
               {{QStringLiteral("inner.zip"), container(QStringLiteral("zip"), 900)},
                {QStringLiteral("more"), noise(900, 3)}})
        << "ZIP" << whole;
    QByteArray commented = container(QStringLiteral("zip"), 300);
    commented[commented.size() - 2] = 4;
    QTest::newRow("zip with a comment") << commented + "note"
                                        << "ZIP" << whole;
}

void TestRecoverydCarving::findsTheEnd()
{
    QFETCH(QByteArray, file);
    QFETCH(QString, type);
    QFETCH(QString, label);
    // At the volume's very end, before zeros, and right before other data.
    const QByteArray lead(1024, '\0');
    for (const QByteArray &tail :
         {QByteArray(), QByteArray(3000, '\0'), QByteArray(700, '\0') + noise(5000, 9)}) {
        const QVector<FoundFile> files = scan(lead + file + tail);
        QCOMPARE(files.size(), 1);
        const FoundFile &found = files.first();
        QCOMPARE(found.ranges, (Ranges{{1024, file.size()}}));
        QCOMPARE(found.type, type);
        QCOMPARE(found.name, QStringLiteral("f000000002.%1").arg(type.toLower()));
        QCOMPARE(found.integrityLabel, label);
        QVERIFY(found.boundaryVerified);
        QCOMPARE(found.probabilityKey,
                 label.isEmpty() ? QStringLiteral("good") : QStringLiteral("excellent"));
    }
}

void TestRecoverydCarving::tellsBrokenFilesHonestly_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("key");
    QTest::newRow("png cut in its data") << png(9000).left(6000) << "PNG"
                                         << "poor";
    QTest::newRow("png without IEND") << png(9000).chopped(12) << "PNG"
                                      << "fair";
    QTest::newRow("jpeg cut in its scan") << jpeg(9000).left(6000) << "JPG"
                                          << "fair";
    QTest::newRow("png with a wrong byte") << png(9000).replace(3000, 1, "?") << "PNG"
                                           << "fair";
    QTest::newRow("jpeg overwritten in its scan")
        << jpeg(9000).replace(3000, 4, "\xFF\x11\xFF\x12") << "JPG"
        << "fair";
    QTest::newRow("gif cut") << gif(9000).left(6000) << "GIF"
                             << "fair";
    QTest::newRow("pdf without its end") << pdf(9000).chopped(7) << "PDF"
                                         << "poor";
    QTest::newRow("pdf whose update is cut") << updatedPdf(9000).chopped(9) << "PDF"
                                             << "fair";
    QTest::newRow("zip without directory")
        << container(QStringLiteral("docx"), 9000).left(9000) << "DOCX"
        << "fair";
    QByteArray lost = container(QStringLiteral("docx"), 9000);
    lost.replace(lost.indexOf("word/"), 5, "wurd/");
    QTest::newRow("zip whose entry is gone") << lost << "DOCX"
                                             << "good";
    QByteArray shifted = container(QStringLiteral("zip"), 9000);
    shifted.insert(200, "x");
    QTest::newRow("zip with a byte too many") << shifted << "ZIP"
                                              << "poor";
}

void TestRecoverydCarving::tellsBrokenFilesHonestly()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, type);
    QFETCH(QString, key);
    const QVector<FoundFile> files = scan(bytes + QByteArray(2000, '\0'));
    QCOMPARE(files.size(), 1);
    QCOMPARE(files.first().type, type);
    QCOMPARE(files.first().probabilityKey, key);
    QCOMPARE(files.first().boundaryVerified, key == QLatin1String("good"));
    QVERIFY(files.first().integrityLabel.isEmpty());
    QVERIFY(files.first().size <= bytes.size() + 2000);
}

void TestRecoverydCarving::refusesLookalikes_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("jpeg: three bytes") << QByteArray("\xFF\xD8\xFF\x00 text", 9);
    QTest::newRow("jpeg: unknown segment") << QByteArray("\xFF\xD8\xFF\xB0\x00\x08", 6);
    QTest::newRow("gif: version") << QByteArrayLiteral("GIF88a in a text about pictures");
    QTest::newRow("gif: no size") << QByteArray("GIF89a\0\0\0\0\x80\0\0", 13);
    QTest::newRow("pdf: no version") << QByteArrayLiteral("%PDF-x is how one begins");
    QTest::newRow("zip: no version") << QByteArray("PK\x03\x04\xFF\xFF", 6) + QByteArray(40, 'x');
    QTest::newRow("cut magic at the end") << QByteArray(510, '\0') + "\x89P";
}

void TestRecoverydCarving::refusesLookalikes()
{
    QFETCH(QByteArray, bytes);
    QCOMPARE(scan(bytes).size(), 0);
    for (const FoundFile &file : scan(padded(bytes, 512) + noise(4000, 5)))
        QCOMPARE(file.type, QStringLiteral("TXT")); // what it is, where it is text
}

void TestRecoverydCarving::findsNeighboursAndCutsOpenFiles()
{
    const QByteArray openPdf = padded(pdf(3000).chopped(7), 512);
    const QByteArray first = padded(jpeg(3000), 512);
    const QByteArray bytes = first + openPdf + padded(png(2000), 512) + padded(gif(700), 512) +
                             container(QStringLiteral("odt"), 1000);
    Collector collector;
    const QVector<FoundFile> files = scan(bytes, &collector);
    QStringList types;
    for (const FoundFile &file : files)
        types.append(file.type);
    QCOMPARE(types.join(QLatin1Char(' ')), QStringLiteral("JPG PDF PNG GIF ODT"));
    QCOMPARE(files.at(1).ranges, (Ranges{{first.size(), openPdf.size()}}));
    QVERIFY(!files.at(1).boundaryVerified);
    QVERIFY(collector.isMonotonic);
    QCOMPARE(collector.lastDone, qint64(bytes.size()));

    Collector two;
    two.limit = 2;
    QCOMPARE(scan(bytes, &two).size(), 2);
}

void TestRecoverydCarving::looksOnlyAtThePlanned()
{
    // One picture in a range, one outside, and one that begins in a range and leaves it.
    const QByteArray one = padded(png(3000), 4096);
    const QByteArray bytes = one + one + one + padded(noise(512, 1), 512) + one;
    const qint64 size = one.size();
    const Ranges ranges = {{0, size}, {2 * size, 2048}, {3 * size, 512 + size}};
    QVector<FoundFile> files = scan(bytes, nullptr, 512, ranges);
    QCOMPARE(files.size(), 3);
    QVERIFY(files.at(0).boundaryVerified);
    QVERIFY(!files.at(1).boundaryVerified);
    QVERIFY(files.at(1).ranges.first().end() <= 2 * size + 2048);
    QVERIFY(files.at(2).boundaryVerified);
    // At block boundaries only, the last one is missed, since it begins in mid-block.
    files = scan(bytes, nullptr, 4096, ranges);
    QCOMPARE(files.size(), 2);
}

void TestRecoverydCarving::crossesWindows()
{
    // Heads, marks and directories on both sides of where the reader's window ends.
    for (const int before : {0, 1, 3, 511, 4095}) {
        const int at = int(WindowReader::kWindow) - 512;
        const QByteArray lead(at, '\0');
        const QByteArray file = pdf(before + 400);
        const QByteArray archive = container(QStringLiteral("docx"), 5 * 1024 * 1024 + before);
        const QByteArray bytes = lead + padded(file, 512) + archive;
        const QVector<FoundFile> files = scan(bytes);
        QCOMPARE(files.size(), 2);
        QCOMPARE(files.at(0).size, qint64(file.size()));
        QCOMPARE(files.at(1).size, qint64(archive.size()));
        QCOMPARE(files.at(1).integrityLabel, QStringLiteral("容器已验证"));
    }
}

/// The search for the ends of the cut ones uses up nothing that the last file needs.
void TestRecoverydCarving::findsFilesBehindManyCutOnes_data()
{
    QTest::addColumn<QByteArray>("between");
    const QByteArray end = QByteArray("PK\5\6", 4) + QByteArray(508, '\1');
    QTest::newRow("nothing between") << QByteArray();
    QTest::newRow("ends of lost archives between") << end + QByteArray(100 * 1024, '\0') + end;
}

void TestRecoverydCarving::findsFilesBehindManyCutOnes()
{
    QFETCH(QByteArray, between);
    const QByteArray cut = container(QStringLiteral("docx"), 60000).left(4096);
    const QByteArray picture = png(70000);
    const QByteArray bytes =
        cut.repeated(64) + between + QByteArray(24 * 1024 * 1024, '\0') + picture;
    const QVector<FoundFile> files = scan(bytes);
    QCOMPARE(files.size(), 65);
    QCOMPARE(files.last().size, qint64(picture.size()));
    QCOMPARE(files.last().integrityLabel, QStringLiteral("边界已验证"));
}

void TestRecoverydCarving::staysLinearOnHeadsWithoutEnds()
{
    // 65,536 heads, each of which would have its carver look through the whole rest: 10^12 bytes.
    QByteArray head = QByteArray("%PDF-1.4 ", 9);
    const QByteArray sector = head + QByteArray(512 - head.size(), ' ');
    QByteArray bytes;
    bytes.reserve(32 * 1024 * 1024);
    while (bytes.size() < 32 * 1024 * 1024)
        bytes += sector;
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(scan(bytes).size(), 65536);
    QVERIFY2(clock.elapsed() < 30000, qPrintable(QString::number(clock.elapsed())));
}

QTEST_GUILESS_MAIN(TestRecoverydCarving)
#include "tst_recoveryd_carving.moc"
