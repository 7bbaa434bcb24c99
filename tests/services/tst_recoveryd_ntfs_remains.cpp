#include "ntfsimage.h"
#include "recoveryd/content/codec.h"
#include "recoveryd/ntfs/indexentries.h"
#include "recoveryd/ntfs/ntfssupport.h"
#include "recoveryd/ntfs/ntfsvolume.h"
#include "recoveryd/scan/grading.h"
#include "support/diskimages.h"
#include "support/scanharness.h"

#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include <sys/stat.h>

using namespace services::recoveryd;
using namespace diskimages;
using namespace testsupport;

namespace {

constexpr qint64 kNoon2024Ms = 1719835200000; ///< 2024-07-01 12:00 UTC.

quint64 fileTime(qint64 ms)
{
    return quint64(ms) * 10000 + 116444736000000000ULL;
}

template <typename T>
void put(QByteArray *bytes, int at, T value)
{
    if (bytes->size() < at + int(sizeof(T)))
        bytes->append(QByteArray(at + int(sizeof(T)) - bytes->size(), '\0'));
    qToLittleEndian<T>(value, bytes->data() + at);
}

QByteArray utf16(const QString &text)
{
    QByteArray bytes;
    for (QChar unit : text)
        put<quint16>(&bytes, bytes.size(), unit.unicode());
    return bytes;
}

/// A record of the change journal, version 2.
QByteArray usnRecord(quint64 file, quint64 parent, const QString &name, quint32 reason,
                     quint32 attributes)
{
    QByteArray bytes(0x3C, '\0');
    bytes += utf16(name);
    bytes += QByteArray((8 - bytes.size() % 8) % 8, '\0');
    put<quint32>(&bytes, 0, quint32(bytes.size()));
    put<quint16>(&bytes, 4, 2);
    put<quint64>(&bytes, 0x08, file);
    put<quint64>(&bytes, 0x10, parent);
    put<quint64>(&bytes, 0x20, fileTime(kNoon2024Ms));
    put<quint32>(&bytes, 0x28, reason);
    put<quint32>(&bytes, 0x34, attributes);
    put<quint16>(&bytes, 0x38, quint16(name.size() * 2));
    put<quint16>(&bytes, 0x3A, 0x3C);
    return bytes;
}

QByteArray indexEntry(quint64 file, quint64 parent, const QString &name, quint32 attributes)
{
    QByteArray entry = QByteArray(0x52, '\0') + utf16(name);
    entry += QByteArray((8 - entry.size() % 8) % 8, '\0');
    put<quint64>(&entry, 0x00, file);
    put<quint16>(&entry, 0x08, quint16(entry.size()));
    put<quint16>(&entry, 0x0A, quint16(0x42 + 2 * name.size()));
    put<quint64>(&entry, 0x10, parent);
    for (int at = 0x18; at < 0x38; at += 8)
        put<quint64>(&entry, at, fileTime(kNoon2024Ms));
    put<quint32>(&entry, 0x48, attributes);
    put<quint8>(&entry, 0x50, quint8(name.size()));
    return entry;
}

/// A page of $LogFile around `data`.
QByteArray logPage(const QByteArray &data)
{
    QByteArray page = QByteArray(0x40, '\0') + data;
    page += QByteArray(4096 - page.size(), '\0');
    page.replace(0, 4, "RCRD");
    put<quint16>(&page, 4, 0x28);
    put<quint16>(&page, 6, 9);
    put<quint16>(&page, 0x28, 0x1234);
    for (int sector = 0; sector < 8; ++sector) {
        page.replace(0x2A + 2 * sector, 2, page.mid(sector * 512 + 510, 2));
        put<quint16>(&page, sector * 512 + 510, 0x1234);
    }
    return page;
}

/// A "$I" file of the recycle bin, version 2.
QByteArray recycleInfo(const QString &path)
{
    QByteArray bytes;
    put<quint64>(&bytes, 0, 2);
    put<quint64>(&bytes, 8, 5000);
    put<quint64>(&bytes, 16, fileTime(kNoon2024Ms));
    put<quint32>(&bytes, 24, quint32(path.size() + 1));
    return bytes + utf16(path) + QByteArray(2, '\0');
}

} // namespace

class TestRecoverydNtfsRemains : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void unpacksCompressionUnits_data();
    void unpacksCompressionUnits();
    void findsNamesInIndexSlack();
    void mapsRecycleBins();
    void readsTheChangeJournal();
    void readsTheLog();
    void findsEmptiedFiles();
    void marksWhatCannotBeRead();
    void standsDamagedStructures();

private:
    [[nodiscard]] bool makeImage();
    QVector<Finding> scan();
    quint64 numberOf(const QString &name) const;
    [[nodiscard]] bool patchRecord(quint64 number,
                                   const std::function<void(QByteArray *record)> &change);

    /// Puts bytes behind the attributes of a record.
    [[nodiscard]] bool putIntoSlack(quint64 number, const QByteArray &bytes);

    QTemporaryDir m_dir;
    QString m_imagePath;
    QString m_obstacle; ///< Why no image can be made here.
    std::unique_ptr<NtfsImage> m_image;
};

void TestRecoverydNtfsRemains::initTestCase()
{
    const QString mountPoint = m_dir.filePath(QStringLiteral("mnt"));
    m_imagePath = m_dir.filePath(QStringLiteral("ntfs.img"));
    QVERIFY(QDir().mkpath(mountPoint));
    m_obstacle = NtfsImage::obstacle();
    m_image.reset(new NtfsImage(m_imagePath, mountPoint));
}

/// An empty volume, mounted.
bool TestRecoverydNtfsRemains::makeImage()
{
    return m_image->format(24, {}) && m_image->mount();
}

QVector<Finding> TestRecoverydNtfsRemains::scan()
{
    ScanContext context;
    context.media = mediaOf(m_imagePath);
    CollectingObserver observer;
    QString error;
    if (!ntfsSupport().makeScanner(context)->scan(observer, &error))
        qWarning("%s", qPrintable(error));
    return observer.findings;
}

/// The record of a file on the mounted volume.
quint64 TestRecoverydNtfsRemains::numberOf(const QString &name) const
{
    struct stat status = {};
    return ::stat(QFile::encodeName(m_image->inside(name)).constData(), &status) == 0
               ? quint64(status.st_ino)
               : 0;
}

/// Changes a record of the unmounted image; `change` sees it as it is on the disk.
bool TestRecoverydNtfsRemains::patchRecord(quint64 number,
                                           const std::function<void(QByteArray *record)> &change)
{
    const auto media = mediaOf(m_imagePath);
    ntfs::NtfsVolume volume(*media);
    if (!volume.open() || volume.offsetOfRecord(number) < 0)
        return false;
    const qint64 offset = volume.offsetOfRecord(number);
    QByteArray record = media->read(offset, volume.geometry().recordSize);
    change(&record);
    return patch(m_imagePath, offset, record);
}

bool TestRecoverydNtfsRemains::putIntoSlack(quint64 number, const QByteArray &bytes)
{
    constexpr int kSlack = 0x300;
    return patchRecord(
        number, [&bytes](QByteArray *record) { record->replace(kSlack, bytes.size(), bytes); });
}

void TestRecoverydNtfsRemains::unpacksCompressionUnits_data()
{
    QTest::addColumn<QByteArray>("stored");
    QTest::addColumn<int>("length");
    QTest::addColumn<QByteArray>("plain"); // null: refused

    const auto hex = [](const char *text) {
        return QByteArray::fromHex(text);
    };
    const QByteArray plain = noise(4096, 1);
    QTest::newRow("stored chunk") << hex("ff3f") + plain << 4096 << plain;
    QTest::newRow("nothing but an end") << hex("0000") << 4 << QByteArray(4, '\0');
    // "abcabcabc…": three letters, then a match of distance 3 that overlaps itself.
    QTest::newRow("overlapping match") << hex("05b0") + hex("08616263") + hex("0620") + hex("0000")
                                       << 12 << QByteArray("abcabcabcabc");
    QTest::newRow("distance before the chunk")
        << hex("05b0") + hex("08616263") + hex("0630") + hex("0000") << 12 << QByteArray();
    QTest::newRow("cut chunk") << hex("0fb0") + hex("08616263") << 12 << QByteArray();
    QTest::newRow("match beyond the end")
        << hex("05b0") + hex("08616263") + hex("0620") + hex("0000") << 8 << QByteArray();
}

void TestRecoverydNtfsRemains::unpacksCompressionUnits()
{
    QFETCH(QByteArray, stored);
    QFETCH(int, length);
    QFETCH(QByteArray, plain);

    QByteArray result;
    QCOMPARE(decompress(Codec::Lznt1, stored, length, &result), !plain.isNull());
    if (!plain.isNull())
        QCOMPARE(result, plain);
}

/// The folder's record is another's by now; its name is left only behind the entries of the root.
void TestRecoverydNtfsRemains::findsNamesInIndexSlack()
{
    if (!m_obstacle.isEmpty())
        QSKIP(qPrintable(m_obstacle));
    QVERIFY(makeImage());
    QVERIFY(m_image->makeFolder(QStringLiteral("ghost")));
    QVERIFY(m_image->write(QStringLiteral("ghost/file.bin"), noise(5000, 1)));
    const quint64 folder = numberOf(QStringLiteral("ghost"));
    QVERIFY(m_image->remove(QStringLiteral("ghost")));
    QVERIFY(m_image->unmount());

    QVERIFY(patchRecord(folder, [](QByteArray *record) { put<quint16>(record, 0x10, 7); }));
    QCOMPARE(scan().size(), 1);
    QCOMPARE(scan().first().folderKnowledge, Finding::Folder::Unknown);

    QVERIFY(putIntoSlack(ntfs::kRootRecord,
                         indexEntry(ntfs::makeReference(folder, 1),
                                    ntfs::makeReference(ntfs::kRootRecord, 5),
                                    QStringLiteral("ghost"), ntfs::FileName::kDirectory)));
    const QVector<Finding> findings = scan();
    QCOMPARE(findings.size(), 1);
    QCOMPARE(findings.first().folder, QByteArray("ghost"));
    QCOMPARE(findings.first().folderKnowledge, Finding::Folder::Full);
}

void TestRecoverydNtfsRemains::mapsRecycleBins()
{
    const QString bin = QStringLiteral("$Recycle.Bin/S-1-5-21-1000/");
    if (!m_obstacle.isEmpty())
        QSKIP(qPrintable(m_obstacle));
    QVERIFY(makeImage());
    QVERIFY(m_image->makeFolder(bin + QStringLiteral("$RFOLDER/sub")));
    QVERIFY(m_image->write(bin + QStringLiteral("$RFOLDER/sub/inner.txt"), noise(3000, 1)));
    QVERIFY(m_image->write(bin + QStringLiteral("$RA1B2C3.docx"), noise(5000, 2)));
    QVERIFY(m_image->write(bin + QStringLiteral("$RORPHAN.txt"), noise(4000, 3)));
    QVERIFY(m_image->write(bin + QStringLiteral("$IFOLDER"),
                           recycleInfo(QStringLiteral("D:\\项目\\旧"))));
    QVERIFY(m_image->write(bin + QStringLiteral("$IA1B2C3.docx"),
                           recycleInfo(QStringLiteral("C:\\Users\\li\\报告.docx"))));
    QVERIFY(m_image->remove(QStringLiteral("$Recycle.Bin")));
    QVERIFY(m_image->unmount());

    QMap<QByteArray, qint64> places;
    for (const Finding &finding : scan()) {
        QCOMPARE(finding.folderKnowledge, Finding::Folder::Full);
        places.insert(finding.folder + '|' + finding.name, finding.deletedMs);
    }
    const QMap<QByteArray, qint64> expected = {
        {"Users/li|报告.docx", kNoon2024Ms},
        {"项目/旧/sub|inner.txt", kNoon2024Ms},
        {"$Recycle.Bin/S-1-5-21-1000|$RORPHAN.txt", Finding::kUnknownTime},
    };
    QCOMPARE(places, expected);
}

/// Deletion times, and the name of a folder whose record is another's by now.
void TestRecoverydNtfsRemains::readsTheChangeJournal()
{
    if (!m_obstacle.isEmpty())
        QSKIP(qPrintable(m_obstacle));
    QVERIFY(makeImage());
    QVERIFY(m_image->makeFolder(QStringLiteral("old")));
    QVERIFY(m_image->write(QStringLiteral("old/file.bin"), noise(5000, 1)));
    const quint64 folder = numberOf(QStringLiteral("old"));
    const quint64 file = numberOf(QStringLiteral("old/file.bin"));
    const quint64 root = ntfs::makeReference(ntfs::kRootRecord, 5);
    // A page begins anew after zeros, as the real one does.
    QByteArray journal =
        usnRecord(ntfs::makeReference(folder, 1), root, QStringLiteral("older name"), 0x1000, 0x10);
    journal += QByteArray(4096 - journal.size(), '\0');
    journal +=
        usnRecord(ntfs::makeReference(folder, 1), root, QStringLiteral("年/报"), 0x2000, 0x10);
    journal += usnRecord(ntfs::makeReference(file, 1), ntfs::makeReference(folder, 1),
                         QStringLiteral("file.bin"), 0x80000200, 0x20);
    // The driver lets nobody write where the journal belongs.
    QVERIFY(m_image->write(QStringLiteral("journal"), QByteArray()));
    QVERIFY(m_image->writeStream(QStringLiteral("journal"), "$J", journal));
    const quint64 journalRecord = numberOf(QStringLiteral("journal"));
    QVERIFY(m_image->remove(QStringLiteral("old")));
    QVERIFY(m_image->unmount());
    QVERIFY(
        putIntoSlack(ntfs::kExtendRecord, indexEntry(ntfs::makeReference(journalRecord, 1),
                                                     ntfs::makeReference(ntfs::kExtendRecord, 11),
                                                     QStringLiteral("$UsnJrnl"), 0x26)));
    QVERIFY(patchRecord(folder, [](QByteArray *record) { put<quint16>(record, 0x10, 9); }));

    const QVector<Finding> findings = scan();
    QCOMPARE(findings.size(), 1);
    QCOMPARE(findings.first().folder, QByteArray("年_报")); // no slash within a name
    QCOMPARE(findings.first().folderKnowledge, Finding::Folder::Full);
    QCOMPARE(findings.first().deletedMs, kNoon2024Ms);
}

/// A file whose record was taken over has its image in the log only.
void TestRecoverydNtfsRemains::readsTheLog()
{
    if (!m_obstacle.isEmpty())
        QSKIP(qPrintable(m_obstacle));
    QVERIFY(makeImage());
    QVERIFY(m_image->makeFolder(QStringLiteral("a")));
    QVERIFY(m_image->write(QStringLiteral("a/logged.bin"), noise(7000, 1)));
    const quint64 number = numberOf(QStringLiteral("a/logged.bin"));
    QVERIFY(m_image->unmount());

    const auto media = mediaOf(m_imagePath);
    ntfs::NtfsVolume volume(*media);
    ntfs::Record record;
    FileContent log;
    QVERIFY(volume.open() && volume.readRecord(number, &record));
    QVERIFY(volume.streamOf(ntfs::kLogFileRecord, QByteArray(), &log));
    const qint64 page = log.extents.first().physical + 16 * 4096;
    const QByteArray image(QByteArray(0x58, 'x') + record.bytes.left(0x200));
    QVERIFY(patch(m_imagePath, page, logPage(image)));
    QCOMPARE(scan().size(), 0); // the same life of the record still exists

    QVERIFY(patchRecord(number, [](QByteArray *bytes) { put<quint16>(bytes, 0x10, 3); }));
    const QVector<Finding> findings = scan();
    QCOMPARE(findings.size(), 1);
    QCOMPARE(findings.first().name, QByteArray("logged.bin"));
    QCOMPARE(findings.first().folder, QByteArray("a"));
    QCOMPARE(findings.first().source, FindingSource::Journal);
    QVERIFY(findings.first().isDeleted);
    QCOMPARE(bytesOf(*media, findings.first()), noise(7000, 1));
}

/// A file that was cut to nothing still exists, so only its earlier version is found.
void TestRecoverydNtfsRemains::findsEmptiedFiles()
{
    if (!m_obstacle.isEmpty())
        QSKIP(qPrintable(m_obstacle));
    const QByteArray report = noise(9000, 1) + "end";
    QVERIFY(makeImage());
    QVERIFY(m_image->write(QStringLiteral("report.txt"), report));
    QVERIFY(m_image->write(QStringLiteral("always empty"), QByteArray()));
    QVERIFY(m_image->unmount());
    QVERIFY(m_image->mount());
    QVERIFY(QFile::resize(m_image->inside(QStringLiteral("report.txt")), 0));
    QVERIFY(m_image->unmount());

    const QVector<Finding> findings = scan();
    QCOMPARE(findings.size(), 1);
    QCOMPARE(findings.first().name, QByteArray("report.txt"));
    QVERIFY(findings.first().isDeleted && !findings.first().isSizeExact);
    QCOMPARE(bytesOf(*mediaOf(m_imagePath), findings.first()), report);
}

/// Encrypted data is there, but is no whole file for anyone.
void TestRecoverydNtfsRemains::marksWhatCannotBeRead()
{
    if (!m_obstacle.isEmpty())
        QSKIP(qPrintable(m_obstacle));
    QVERIFY(makeImage());
    QVERIFY(m_image->write(QStringLiteral("secret.doc"), noise(5000, 1)));
    const quint64 number = numberOf(QStringLiteral("secret.doc"));
    QVERIFY(m_image->remove(QStringLiteral("secret.doc")));
    QVERIFY(m_image->unmount());
    QVERIFY(patchRecord(number, [](QByteArray *record) {
        ntfs::Record parsed;
        if (ntfs::parseRecord(record->constData(), record->size(), &parsed))
            put<quint16>(record, parsed.find(ntfs::kData)->runsAt - 0x40 + 0x0C, ntfs::kEncrypted);
    }));

    const QVector<Finding> findings = scan();
    QCOMPARE(findings.size(), 1);
    QCOMPARE(findings.first().contentCheck, Finding::Check::Unusable);
    QVERIFY(!isWhole(findings.first(), Damage()));
    QCOMPARE(gradeOf(findings.first(), Damage()).label, QStringLiteral("无法直接使用"));
}

/// Whatever stands on the disk, a scan ends, and within reason.
void TestRecoverydNtfsRemains::standsDamagedStructures()
{
    if (!m_obstacle.isEmpty())
        QSKIP(qPrintable(m_obstacle));
    QVERIFY(makeImage());
    for (int i = 0; i < 40; ++i) {
        QVERIFY(m_image->makeFolder(QStringLiteral("d%1").arg(i % 4)));
        QVERIFY(m_image->write(QStringLiteral("d%1/f%2").arg(i % 4).arg(i), noise(900 * i, 1)));
    }
    QVERIFY(m_image->makeFolder(QStringLiteral("p")));
    QVERIFY(m_image->compress(QStringLiteral("p")));
    QVERIFY(m_image->write(QStringLiteral("p/packed"), QByteArray(300000, 'x')));
    QVERIFY(m_image->remove(QStringLiteral("d1")));
    QVERIFY(m_image->unmount());
    const QByteArray whole = readAll(m_imagePath);
    const auto media = mediaOf(m_imagePath);
    ntfs::NtfsVolume volume(*media);
    QVERIFY(volume.open());
    const qint64 table = volume.geometry().mftOffset;
    const qint64 tableSize = volume.mft().size;

    quint32 state = 1;
    const auto random = [&state](qint64 limit) {
        state = state * 1664525U + 1013904223U;
        return qint64(state >> 8) % limit;
    };
    constexpr int kRounds = 60;
    for (int round = 0; round < kRounds; ++round) {
        QByteArray damaged = whole;
        for (int i = 0; i < 200; ++i) {
            // Half of them into the headers of records, where lengths and offsets are.
            const qint64 record = table + random(tableSize / 1024) * 1024;
            const qint64 at = i % 8 == 0 ? random(512) : record + random(i % 2 == 0 ? 1024 : 0x120);
            damaged[int(at)] = char(i % 3 == 0 ? 0xFF : random(256));
        }
        QVERIFY(write(m_imagePath, damaged));
        ScanContext context;
        context.media = mediaOf(m_imagePath);
        context.listsExisting = true;
        context.request.mode = round % 2 == 0 ? ScanRequest::Mode::Quick : ScanRequest::Mode::Deep;
        CollectingObserver observer;
        QString error;
        QVERIFY(ntfsSupport().makeScanner(context)->scan(observer, &error));
        for (const Finding &finding : qAsConst(observer.findings))
            bytesOf(*context.media, finding);
    }
}

QTEST_GUILESS_MAIN(TestRecoverydNtfsRemains)

#include "tst_recoveryd_ntfs_remains.moc"
