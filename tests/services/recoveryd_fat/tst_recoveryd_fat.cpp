#include "recoveryd/fat/fatlayout.h"
#include "recoveryd/fat/fatscanner.h"
#include "recoveryd/fat/fatsupport.h"
#include "recoveryd/fat/fatsurvey.h"
#include "support/diskimages.h"
#include "support/scanharness.h"

#include <QDir>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include <algorithm>

using namespace services::recoveryd;
using namespace diskimages;
using namespace testsupport;

namespace {

using Files = QMap<QString, QByteArray>;

Files sampleFiles()
{
    return {
        {QStringLiteral("UPPER.TXT"), noise(3000, 1)},
        {QStringLiteral("长文件名 with spaces.bin"), noise(70001, 2)},
        {QStringLiteral("文档/Année/b c/letter.doc"), noise(20000, 3)},
        {QStringLiteral("文档/Année/é %41.点.dat"), noise(1, 4)},
        {QStringLiteral("文档/thirteen long"), noise(40000, 5)},
    };
}

/// 64 MiB of zeros but for the beginning; counts what is read.
class CountingImage : public Image
{
public:
    explicit CountingImage(const QByteArray &start)
        : Image(QStringLiteral("counting"), -1, 64 * 1024 * 1024)
        , m_start(start)
    {}
    mutable qint64 bytesRead = 0;

protected:
    qint64 readSome(qint64 offset, char *to, qint64 length) const override
    {
        bytesRead += length;
        std::fill(to, to + length, '\0');
        for (qint64 i = offset; i < qMin(offset + length, qint64(m_start.size())); ++i)
            to[i - offset] = m_start.at(int(i));
        return length;
    }

private:
    QByteArray m_start;
};

QStringList words(const char *text)
{
    return QString::fromUtf8(text).split(QLatin1Char(' '));
}

bool tool(const char *name, const QStringList &arguments)
{
    QString error;
    const bool isDone = runTool(QString::fromLatin1(name), arguments, &error);
    if (!isDone)
        qWarning().noquote() << name << arguments << error;
    return isDone;
}

} // namespace

class TestRecoverydFat : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void findsDeletedFiles_data();
    void findsDeletedFiles();
    void readsDamagedVolumes_data();
    void readsDamagedVolumes();
    void findsFilesOfAnEarlierFormat_data();
    void findsFilesOfAnEarlierFormat();
    void recognisesVolumes();
    void looksFarForWideTablesOnly_data();
    void looksFarForWideTablesOnly();
    void doubtsClustersThatOthersHave();
    void skipsWhatWasInTheWay();
    void findsDirectoriesThatLostTheHighHalf();
    void survivesDamage();

private:
    bool format(int sizeMiB, const QStringList &options);
    bool fill(const Files &files);
    bool removeAll();
    bool remove(const char *mtool, const char *path);
    QVector<Finding> scan(bool listsExisting);
    QStringList missing(const Files &files, const QVector<Finding> &findings, bool isDeleted,
                        bool withFolder = true);
    QString image() const { return m_temporary->filePath(QStringLiteral("fat.img")); }

    std::unique_ptr<QTemporaryDir> m_temporary;
};

void TestRecoverydFat::initTestCase()
{
    qputenv("LC_ALL", "C.UTF-8");
    qputenv("MTOOLS_SKIP_CHECK", "1");
    if (QStandardPaths::findExecutable(QStringLiteral("mcopy")).isEmpty())
        QSKIP("mtools is missing");
}

void TestRecoverydFat::init()
{
    m_temporary = std::make_unique<QTemporaryDir>();
}

bool TestRecoverydFat::format(int sizeMiB, const QStringList &options)
{
    QFile file(image());
    return file.open(QIODevice::ReadWrite) && file.resize(qint64(sizeMiB) << 20) &&
           tool("mkfs.fat", options + QStringList{image()});
}

bool TestRecoverydFat::fill(const Files &files)
{
    QTemporaryDir source;
    QStringList roots;
    for (auto file = files.begin(); file != files.end(); ++file) {
        const QString path = source.filePath(file.key());
        if (!QDir().mkpath(QFileInfo(path).path()) || !write(path, file.value()))
            return false;
        const QString root = source.filePath(file.key().section(QLatin1Char('/'), 0, 0));
        if (!roots.contains(root))
            roots.append(root);
    }
    return tool("mcopy", QStringList{QStringLiteral("-i"), image(), QStringLiteral("-s")} + roots +
                             QStringList{QStringLiteral("::/")});
}

bool TestRecoverydFat::removeAll()
{
    return tool("mdeltree",
                {QStringLiteral("-i"), image(), QStringLiteral("::/文档"),
                 QStringLiteral("::/UPPER.TXT"), QStringLiteral("::/长文件名 with spaces.bin")});
}

bool TestRecoverydFat::remove(const char *mtool, const char *path)
{
    return tool(mtool, {QStringLiteral("-i"), image(), QString::fromLatin1(path)});
}

QVector<Finding> TestRecoverydFat::scan(bool listsExisting)
{
    const auto media = mediaOf(image());
    ScanContext context;
    context.media = media;
    context.listsExisting = listsExisting;
    CollectingObserver observer;
    QString error;
    if (!fatSupport().makeScanner(context)->scan(observer, &error))
        qWarning().noquote() << error;
    return observer.findings;
}

QStringList TestRecoverydFat::missing(const Files &files, const QVector<Finding> &findings,
                                      bool isDeleted, bool withFolder)
{
    const auto media = mediaOf(image());
    QStringList missing;
    for (auto file = files.begin(); file != files.end(); ++file) {
        const QString folder = file.key().contains(QLatin1Char('/'))
                                   ? file.key().section(QLatin1Char('/'), 0, -2)
                                   : QString();
        const QString name = file.key().section(QLatin1Char('/'), -1);
        // Nothing but a guess is left of the first letter where there is no long name.
        const QString guessed = QLatin1Char('_') + name.mid(1);
        const bool isFound =
            std::any_of(findings.begin(), findings.end(), [&](const Finding &finding) {
                const QString found = QString::fromUtf8(finding.name);
                return (found == name || (isDeleted && found == guessed)) &&
                       finding.isDeleted == isDeleted && finding.isMapComplete &&
                       (!withFolder || (finding.folder == folder.toUtf8() &&
                                        finding.folderKnowledge == Finding::Folder::Full)) &&
                       qAbs(finding.modifiedMs - QDateTime::currentMSecsSinceEpoch()) < 600000 &&
                       bytesOf(*media, finding) == file.value();
            });
        if (!isFound)
            missing.append(file.key());
    }
    return missing;
}

void TestRecoverydFat::findsDeletedFiles_data()
{
    QTest::addColumn<int>("sizeMiB");
    QTest::addColumn<QStringList>("options");
    const auto row = [](const char *name, int size, const char *options) {
        QTest::newRow(name) << size << words(options);
    };
    row("FAT12", 4, "-F 12 -s 4");
    row("FAT16", 32, "-F 16 -s 4");
    row("FAT16, few root entries", 16, "-F 16 -s 1 -r 112");
    row("FAT32", 64, "-F 32 -s 1");
    row("FAT32, large clusters", 300, "-F 32 -s 8");
    row("FAT32, 4096-byte sectors", 300, "-F 32 -S 4096 -s 1");
    row("FAT32, one table", 64, "-F 32 -s 1 -f 1");
}

void TestRecoverydFat::findsDeletedFiles()
{
    QFETCH(int, sizeMiB);
    QFETCH(QStringList, options);
    QVERIFY(format(sizeMiB, options) && fill(sampleFiles()));
    QCOMPARE(scan(false).size(), 0);
    QCOMPARE(missing(sampleFiles(), scan(true), false).join(QLatin1Char('|')), QString());
    QVERIFY(removeAll());
    const QVector<Finding> findings = scan(false);
    QCOMPARE(missing(sampleFiles(), findings, true).join(QLatin1Char('|')), QString());
    QStringList names;
    for (const Finding &finding : findings)
        names.append(QString::fromUtf8(finding.folder + '/' + finding.name));
    QVERIFY2(findings.size() == sampleFiles().size(), qPrintable(names.join(QLatin1Char('|'))));
}

void TestRecoverydFat::readsDamagedVolumes_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("zeroed"); // sectors from the start
    QTest::newRow("boot sector") << words("-F 32 -s 1") << 1;
    QTest::newRow("all boot sectors") << words("-F 32 -s 1") << 32;
    QTest::newRow("larger clusters") << words("-F 32 -s 2") << 32;
    QTest::newRow("FAT16") << words("-F 16 -s 4") << 1;
    QTest::newRow("FAT12, 224 entries") << words("-F 12 -s 64 -r 224") << 1;
}

void TestRecoverydFat::readsDamagedVolumes()
{
    QFETCH(QStringList, options);
    QFETCH(int, zeroed);
    QVERIFY(format(80, options) && fill(sampleFiles()));
    QVERIFY(patch(image(), 0, QByteArray(zeroed * 512, '\0')));
    QCOMPARE(missing(sampleFiles(), scan(true), false).join(QLatin1Char('|')), QString());
}

void TestRecoverydFat::findsFilesOfAnEarlierFormat_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::newRow("as before") << words("-F 32 -s 1");
    QTest::newRow("other clusters") << words("-F 32 -s 4 -R 64");
}

void TestRecoverydFat::findsFilesOfAnEarlierFormat()
{
    QFETCH(QStringList, options);
    Files files = sampleFiles();
    files.remove(QStringLiteral("UPPER.TXT"));
    files.remove(QStringLiteral("长文件名 with spaces.bin"));
    QVERIFY(format(80, words("-F 32 -s 1")) && fill(sampleFiles()) && format(80, options));
    const QVector<Finding> findings = scan(false);
    QCOMPARE(missing(files, findings, true, false).join(QLatin1Char('|')), QString());
    // The name in the root is gone, those below are not.
    const auto letter = std::find_if(findings.begin(), findings.end(), [](const Finding &finding) {
        return finding.name == "letter.doc";
    });
    QCOMPARE(letter->folder, QByteArray("Année/b c"));
    QCOMPARE(letter->folderKnowledge, Finding::Folder::Partial);
}

void TestRecoverydFat::recognisesVolumes()
{
    constexpr qint64 kStart = 3 * 1024 * 1024;
    QVERIFY(format(64, words("-F 32 -s 1 -n CARD")) && fill(sampleFiles()));
    const QByteArray volume = readAll(image());
    QVERIFY(write(image(), QByteArray(int(kStart), '\0') + volume));
    const auto media = mediaOf(image());
    const auto found = [&media](qint64 at) {
        FoundVolume mark;
        mark.start = -1;
        (void)fatSupport().recognise(*media, at, media->read(at, 4096), &mark);
        return mark;
    };
    QCOMPARE(found(kStart).start, kStart);
    QCOMPARE(found(kStart).label, QStringLiteral("CARD"));
    QCOMPARE(found(kStart).size, qint64(64) << 20);
    QCOMPARE(found(kStart + 6 * 512).start, kStart);
    QVERIFY(found(kStart + 6 * 512).isFromBackup);
    QCOMPARE(found(kStart + 32 * 512).start, kStart); // by the table alone
    for (qint64 at = 0; at < kStart + (1 << 20); at += 512)
        QVERIFY2(found(at).start < 0 || found(at).start == kStart, qPrintable(QString::number(at)));
}

void TestRecoverydFat::looksFarForWideTablesOnly_data()
{
    QTest::addColumn<QByteArray>("start");
    QTest::addColumn<qint64>("least");
    QTest::addColumn<qint64>("most");
    constexpr qint64 mib = 1024 * 1024;
    QTest::newRow("wide table") << QByteArray("\xF8\xFF\xFF\x0F\xFF\xFF\xFF\x0F\0\0", 10)
                                << 63 * mib << 66 * mib;
    // Volumes are full of bitmaps: a search through the disk for each of them would take days.
    QTest::newRow("bitmap") << QByteArray("\xFC").append(QByteArray(200, '\xFF')) << qint64(0)
                            << 5 * mib;
    QTest::newRow("narrow table") << QByteArray("\xF8\xFF\xFF\xFF\x03\0", 6) << qint64(0)
                                  << 5 * mib;
}

void TestRecoverydFat::looksFarForWideTablesOnly()
{
    QFETCH(const QByteArray, start);
    QFETCH(const qint64, least);
    QFETCH(const qint64, most);
    const auto image = std::make_shared<CountingImage>(start);
    const MediaReader media(Volume(image, 0, image->size()));
    FoundVolume found;
    QVERIFY(!fatSupport().recognise(media, 0, media.read(0, 4096), &found));
    QVERIFY2(image->bytesRead >= least && image->bytesRead <= most,
             qPrintable(QString::number(image->bytesRead)));
}

void TestRecoverydFat::doubtsClustersThatOthersHave()
{
    // The second file takes the place of the first.
    QVERIFY(format(4, words("-F 12 -s 4")));
    const Files first = {{QStringLiteral("first-long-name.bin"), noise(900000, 1)}};
    const Files second = {{QStringLiteral("second-long-name.bin"), noise(300000, 2)},
                          {QStringLiteral("third-long-name.bin"), noise(3000000, 3)}};
    QVERIFY(fill(first) && remove("mdel", "::/first-long-name.bin") && fill(second));
    for (const Finding &finding : scan(false))
        if (finding.name == "first-long-name.bin")
            QVERIFY(finding.content.size == 900000 &&
                    bytesOf(*mediaOf(image()), finding) != first.first());
    QVERIFY(remove("mdel", "::/second-long-name.bin"));
    QCOMPARE(missing(second, scan(false), true, false).size(), 1); // but the existing one
}

void TestRecoverydFat::skipsWhatWasInTheWay()
{
    // The holes between small files, filled by one large file.
    QVERIFY(format(4, words("-F 12 -s 4")));
    Files small;
    for (int i = 0; i < 100; ++i)
        small.insert(QStringLiteral("small %1.bin").arg(i, 3, 10, QLatin1Char('0')),
                     noise(2048, quint32(i + 1)));
    QVERIFY(fill(small) && fill({{QStringLiteral("filler.bin"), noise(3960000, 7)}}));
    QStringList removed = {QStringLiteral("-i"), image(), QStringLiteral("::/filler.bin")};
    for (int i = 0; i < 100; i += 2)
        removed.append(QStringLiteral("::/small %1.bin").arg(i, 3, 10, QLatin1Char('0')));
    QVERIFY(tool("mdel", removed));
    const Files large = {{QStringLiteral("large-file.bin"), noise(80000, 9)}};
    QVERIFY(fill(large) && remove("mdel", "::/large-file.bin"));
    const QVector<Finding> findings = scan(false);
    const auto found = std::find_if(findings.begin(), findings.end(), [](const Finding &finding) {
        return finding.name == "large-file.bin";
    });
    QVERIFY(found != findings.end());
    QCOMPARE(bytesOf(*mediaOf(image()), *found), large.first());
}

void TestRecoverydFat::findsDirectoriesThatLostTheHighHalf()
{
    // As old Windows deletes: the entry of the directory keeps only the low half.
    QVERIFY(format(80, words("-F 32 -s 1")));
    QVERIFY(fill({{QStringLiteral("large-filler.bin"), noise(40 * 1024 * 1024, 1)}}));
    const Files files = {{QStringLiteral("some folder/long picture.png"), png(5000)}};
    QVERIFY(fill(files) && remove("mdeltree", "::/some folder"));
    const auto media = mediaOf(image());
    fat::FatLayout layout;
    QVERIFY(fat::findFatLayout(*media, &layout));
    const qint64 root = layout.grid.offsetOf(layout.rootCluster);
    QByteArray bytes = readAll(image());
    for (qint64 at = 0; at + 32 <= bytes.size(); at += 32)
        if (quint8(bytes.at(int(at))) == 0xE5 && bytes.at(int(at) + 11) != 0x0F &&
            (at == root || bytes.mid(int(at) + 1, 5) == "OMEFO" ||
             bytes.mid(int(at) + 1, 5) == "ONGPI"))
            bytes.replace(int(at) + 20, 2, QByteArray(2, '\0'));
    QVERIFY(write(image(), bytes));
    QCOMPARE(missing(files, scan(false), true).join(QLatin1Char('|')), QString());
}

void TestRecoverydFat::survivesDamage()
{
    QVERIFY(format(4, words("-F 12 -s 4")) && fill(sampleFiles()) && removeAll() &&
            fill(sampleFiles()));
    const QByteArray sound = readAll(image());
    for (quint32 seed = 1; seed <= 60; ++seed) {
        QByteArray damaged = sound;
        const QByteArray places = noise(400, seed);
        for (int i = 0; i + 4 <= places.size(); i += 4) {
            const quint32 at = qFromLittleEndian<quint32>(places.constData() + i);
            // Most of it in the structures at the beginning.
            damaged[int(at % (seed % 2 ? 16384 : quint32(damaged.size())))] = places.at(i);
        }
        QVERIFY(write(image(), damaged));
        for (const Finding &finding : scan(seed % 3 == 0))
            QVERIFY(finding.content.size >= 0 && !finding.name.isEmpty());
    }
}

QTEST_GUILESS_MAIN(TestRecoverydFat)
#include "tst_recoveryd_fat.moc"
