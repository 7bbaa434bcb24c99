#include "recoveryd/exfat/exfatlayout.h"
#include "recoveryd/exfat/exfatsupport.h"
#include "support/diskimages.h"
#include "support/scanharness.h"

#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

using namespace services::recoveryd;
using namespace diskimages;
using namespace testsupport;

namespace {

constexpr int kSlot = 32;
constexpr qint64 kModifiedMs = 1584360000000; // 2020-03-16 12:00 UTC

/// One file or directory of the volume.
struct Node
{
    QString name;
    QByteArray bytes; ///< Of a directory its slots.
    QVector<quint32> clusters;
    bool isDirectory = false;
    bool isChained = false; ///< In the table, as of fragmented files.
};

void put16(QByteArray *to, int at, quint16 value)
{
    qToLittleEndian(value, to->data() + at);
}

void put32(QByteArray *to, int at, quint32 value)
{
    qToLittleEndian(value, to->data() + at);
}

/// The entry set as drivers write it; a deleted one differs in the type bytes only.
QByteArray entrySet(const Node &node, qint64 size, bool isDeleted)
{
    constexpr quint32 kStamp = quint32((40 << 9 | 3 << 5 | 16) << 16 | (20 << 11)); // 20:00, UTC+8
    const int names = (node.name.size() + 14) / 15;
    QByteArray set((2 + names) * kSlot, '\0');
    set[0] = char(0x85);
    set[1] = char(1 + names);
    put16(&set, 4, node.isDirectory ? 0x10 : 0x20);
    put32(&set, 8, kStamp);
    put32(&set, 12, kStamp);
    set[22] = set[23] = char(0x80 | 32);
    set[kSlot] = char(0xC0);
    set[kSlot + 1] = char(node.isChained ? 1 : 3);
    set[kSlot + 3] = char(node.name.size());
    qToLittleEndian(quint64(size), set.data() + kSlot + 8);
    put32(&set, kSlot + 20, node.clusters.first());
    qToLittleEndian(quint64(size), set.data() + kSlot + 24);
    for (int i = 0; i < node.name.size(); ++i) {
        const int slot = (2 + i / 15) * kSlot;
        set[slot] = char(0xC1);
        put16(&set, slot + 2 + i % 15 * 2, node.name.at(i).unicode());
    }
    quint16 sum = 0;
    for (int i = 0; i < set.size(); ++i)
        if (i != 2 && i != 3)
            sum = quint16((sum << 15 | sum >> 1) + quint8(set.at(i)));
    put16(&set, 2, sum);
    for (int i = 0; isDeleted && i < set.size(); i += kSlot)
        set[i] = char(set.at(i) & 0x7F);
    return set;
}

} // namespace

class TestRecoverydExfat : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void findsFiles_data();
    void findsFiles();
    void findsFilesOfAnEarlierFormat();
    void readsTheBackupAndRecognises();
    void tellsOverwrittenFiles();
    void survivesDamage();

private:
    void fill(bool isDeleted);
    void put(const Node &node, bool isDeleted);
    QVector<Finding> scan(bool listsExisting);
    void check(const QVector<Finding> &findings, bool isDeleted, const QByteArray &folder,
               Finding::Folder knowledge);
    QString image() const { return m_temporary->filePath(QStringLiteral("exfat.img")); }

    std::unique_ptr<QTemporaryDir> m_temporary;
    exfat::ExfatLayout m_layout;
    QByteArray m_bytes;
    Node m_plain;
    Node m_chained;
    Node m_folder;
    Node m_inside;
};

void TestRecoverydExfat::initTestCase()
{
    if (QStandardPaths::findExecutable(
            QStringLiteral("mkfs.exfat"),
            {QStringLiteral("/usr/sbin"), QStringLiteral("/sbin"), QStringLiteral("/usr/bin")})
            .isEmpty())
        QSKIP("mkfs.exfat is missing");
}

void TestRecoverydExfat::init()
{
    m_temporary = std::make_unique<QTemporaryDir>();
    QVERIFY(write(image(), QByteArray(16 << 20, '\0')));
    QString error;
    QVERIFY2(runTool(QStringLiteral("mkfs.exfat"), {image()}, &error), qPrintable(error));
    QVERIFY(exfat::findExfatLayout(*mediaOf(image()), &m_layout));
    m_bytes = readAll(image());
    const int cluster = int(m_layout.grid.clusterSize);
    m_plain = {QStringLiteral("一个很长很长的文件名 with more than thirty letters.bin"),
               noise(3 * cluster - 100, 1),
               {30, 31, 32}};
    m_chained = {QStringLiteral("pieces"), noise(3 * cluster - 1, 2), {40, 45, 41}, false, true};
    m_inside = {QStringLiteral("in.txt"), noise(10, 3), {51}};
    m_folder = {QStringLiteral("目录"), QByteArray(), {50}, true};
}

void TestRecoverydExfat::put(const Node &node, bool isDeleted)
{
    const int size = int(m_layout.grid.clusterSize);
    for (int i = 0; i < node.clusters.size(); ++i) {
        const QByteArray piece = node.bytes.mid(i * size, size);
        const quint32 cluster = node.clusters.at(i);
        m_bytes.replace(int(m_layout.grid.offsetOf(cluster)), piece.size(), piece);
        // Drivers leave the chain of a deleted file.
        if (node.isChained)
            put32(&m_bytes, int(m_layout.table.copies.first()) + int(cluster) * 4,
                  i + 1 < node.clusters.size() ? node.clusters.at(i + 1) : 0xFFFFFFFF);
        const int bit = int(m_layout.grid.heapOffset) + int(cluster - 2) / 8;
        if (!isDeleted)
            m_bytes[bit] = char(m_bytes.at(bit) | 1 << (cluster - 2) % 8);
    }
}

/// A file in one piece, one in pieces, and one in a directory.
void TestRecoverydExfat::fill(bool isDeleted)
{
    m_folder.bytes = entrySet(m_inside, m_inside.bytes.size(), isDeleted);
    for (const Node *node : {&m_plain, &m_chained, &m_folder, &m_inside})
        put(*node, isDeleted);
    const QByteArray sets = entrySet(m_plain, m_plain.bytes.size(), isDeleted) +
                            entrySet(m_chained, m_chained.bytes.size(), isDeleted) +
                            entrySet(m_folder, m_layout.grid.clusterSize, isDeleted);
    const int root = int(m_layout.grid.offsetOf(m_layout.rootCluster));
    int at = root;
    while (m_bytes.at(at) != 0)
        at += kSlot;
    m_bytes.replace(at, sets.size(), sets);
    QVERIFY(write(image(), m_bytes));
}

QVector<Finding> TestRecoverydExfat::scan(bool listsExisting)
{
    ScanContext context;
    context.media = mediaOf(image());
    context.listsExisting = listsExisting;
    CollectingObserver observer;
    QString error;
    if (!exfatSupport().makeScanner(context)->scan(observer, &error))
        qWarning().noquote() << error;
    return observer.findings;
}

void TestRecoverydExfat::check(const QVector<Finding> &findings, bool isDeleted,
                               const QByteArray &folder, Finding::Folder knowledge)
{
    const auto media = mediaOf(image());
    for (const Node *node : {&m_plain, &m_chained, &m_inside}) {
        const auto found =
            std::find_if(findings.begin(), findings.end(), [node](const Finding &finding) {
                return finding.name == node->name.toUtf8();
            });
        QVERIFY2(found != findings.end(), qPrintable(node->name));
        QCOMPARE(bytesOf(*media, *found), node->bytes);
        QCOMPARE(found->isDeleted, isDeleted);
        QVERIFY(found->isMapComplete);
        QCOMPARE(found->modifiedMs, kModifiedMs);
        QCOMPARE(found->folder, node == &m_inside ? folder : QByteArray());
        QCOMPARE(found->folderKnowledge, knowledge);
    }
    QCOMPARE(findings.size(), 3);
}

void TestRecoverydExfat::findsFiles_data()
{
    QTest::addColumn<bool>("isDeleted");
    QTest::newRow("deleted") << true;
    QTest::newRow("existing, on a lost volume") << false;
}

void TestRecoverydExfat::findsFiles()
{
    QFETCH(bool, isDeleted);
    fill(isDeleted);
    check(scan(!isDeleted), isDeleted, m_folder.name.toUtf8(), Finding::Folder::Full);
    if (!isDeleted)
        QVERIFY(scan(false).isEmpty());
}

void TestRecoverydExfat::findsFilesOfAnEarlierFormat()
{
    // The root's entries are gone, the directory below it is not.
    fill(false);
    QString error;
    QVERIFY2(runTool(QStringLiteral("mkfs.exfat"), {image()}, &error), qPrintable(error));
    const QVector<Finding> findings = scan(false);
    QCOMPARE(findings.size(), 1);
    QCOMPARE(findings.first().name, m_inside.name.toUtf8());
    QCOMPARE(bytesOf(*mediaOf(image()), findings.first()), m_inside.bytes);
    QCOMPARE(findings.first().folderKnowledge, Finding::Folder::Unknown);
}

void TestRecoverydExfat::readsTheBackupAndRecognises()
{
    fill(false);
    QVERIFY(patch(image(), 0, QByteArray(12 * 512, '\0')));
    check(scan(true), false, m_folder.name.toUtf8(), Finding::Folder::Full);

    constexpr qint64 kStart = 1024 * 1024;
    QVERIFY(write(image(), QByteArray(int(kStart), '\0') + m_bytes));
    const auto media = mediaOf(image());
    for (qint64 sector : {qint64(0), exfat::kBackupSector}) {
        const qint64 at = kStart + sector * 512;
        FoundVolume found;
        QVERIFY(exfatSupport().recognise(*media, at, media->read(at, 4096), &found));
        QCOMPARE(found.start, kStart);
        QCOMPARE(found.size, qint64(16) << 20);
        QCOMPARE(found.isFromBackup, sector != 0);
    }
}

void TestRecoverydExfat::tellsOverwrittenFiles()
{
    fill(true);
    // An existing file has the second cluster of the deleted one.
    const Node later = {QStringLiteral("later"), noise(100, 9), {31}};
    put(later, false);
    QVERIFY(write(image(), m_bytes));
    Ranges free;
    QString error;
    QVERIFY2(exfatSupport().freeRanges(*mediaOf(image()), &free, &error), qPrintable(error));
    for (const Finding &finding : scan(false)) {
        const Ranges stored = finding.content.storedRanges();
        const bool isFree = overlapOf(stored, free) == totalLength(stored);
        QCOMPARE(isFree, finding.name != m_plain.name.toUtf8());
    }
}

void TestRecoverydExfat::survivesDamage()
{
    fill(true);
    const QByteArray sound = m_bytes;
    const int root = int(m_layout.grid.offsetOf(m_layout.rootCluster));
    for (quint32 seed = 1; seed <= 60; ++seed) {
        m_bytes = sound;
        const QByteArray places = noise(160, seed);
        for (int i = 0; i + 4 <= places.size(); i += 4) {
            const quint32 at = qFromLittleEndian<quint32>(places.constData() + i);
            const int starts[] = {0, int(m_layout.table.copies.first()), root,
                                  int(m_layout.grid.offsetOf(50))};
            m_bytes[starts[at % 4] + int(at / 4 % 512)] = places.at(i);
        }
        QVERIFY(write(image(), m_bytes));
        for (const Finding &finding : scan(seed % 2 == 0))
            QVERIFY(finding.content.size > 0 && !finding.name.isEmpty());
    }
}

QTEST_GUILESS_MAIN(TestRecoverydExfat)
#include "tst_recoveryd_exfat.moc"
