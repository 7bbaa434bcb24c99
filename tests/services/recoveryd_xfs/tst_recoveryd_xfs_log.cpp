#include "recoveryd/xfs/logitems.h"
#include "support/diskimages.h"
#include "support/scanharness.h"
#include "xfsbytes.h"

#include <QTemporaryDir>
#include <QTest>

using namespace services::recoveryd::xfs;
using namespace xfsbytes;

namespace {

constexpr int kSector = 512;
constexpr int kLogSize = int(kLogBlocks) * kBlockSize;
constexpr quint8 kStart = 1;
constexpr quint8 kCommit = 2;
constexpr quint8 kContinues = 4;
constexpr quint8 kWasContinued = 8;

QByteArray operation(quint8 flags, const QByteArray &data = QByteArray(), quint32 id = 7,
                     int length = -1)
{
    Block head(12);
    head.put(0, id).put(4, quint32(length < 0 ? data.size() : length)).put(8, quint8(0x69));
    return head.put(9, flags).bytes() + data;
}

/// A log of 16 KiB: 32 sectors, stamped as the file system does.
class LogBytes
{
public:
    /// A record of `operations` at a sector; its header's fields may lie.
    LogBytes &record(quint32 cycle, int sector, const QByteArray &data, quint32 operations,
                     qint64 length = -1)
    {
        Block header(kSector);
        header.put(0, 0xFEEDBABEU).put(4, cycle).put(8, 2U);
        header.put(12, quint32(length < 0 ? data.size() : length));
        header.put(16, quint64(cycle) << 32 | quint64(sector)).put(24, quint64(1) << 32);
        header.put(40, operations).put(300, 1U).put(320, 32768U);
        QByteArray body = data;
        body.append((kSector - body.size() % kSector) % kSector, '\0');
        for (int i = 0; i < body.size() / kSector; ++i) {
            header.text(44 + 4 * i, body.mid(i * kSector, 4));
            const bool isWrapped = sector + 1 + i >= kLogSize / kSector;
            qToBigEndian(isWrapped ? cycle + 1 : cycle, body.data() + i * kSector);
        }
        place(sector, header.bytes());
        place(sector + 1, body);
        return *this;
    }
    LogBytes &stamp(int sector, quint32 cycle)
    {
        qToBigEndian(cycle, m_bytes.data() + sector * kSector);
        return *this;
    }
    QByteArray bytes() const { return m_bytes; }

private:
    void place(int sector, const QByteArray &bytes)
    {
        for (int i = 0; i < bytes.size(); ++i)
            m_bytes[(sector * kSector + i) % kLogSize] = bytes.at(i);
    }

    QByteArray m_bytes = QByteArray(kLogSize, '\0');
};

QByteArray whole(const QByteArray &region)
{
    return operation(kStart) + operation(0, region) + operation(kCommit);
}

/// The first region of an item of an inode: how many regions it has, which fields, the number.
QByteArray inodeFormat(int regions, quint32 fields, quint64 number, bool isShort = false)
{
    QByteArray bytes(isShort ? 52 : 56, '\0');
    qToLittleEndian(quint16(0x123B), bytes.data());
    qToLittleEndian(quint16(regions), bytes.data() + 2);
    qToLittleEndian(fields, bytes.data() + 4);
    qToLittleEndian(number, bytes.data() + (isShort ? 12 : 16));
    return bytes;
}

QByteArray core(quint16 mode, quint64 size)
{
    QByteArray bytes(176, '\0');
    qToLittleEndian(quint16(0x494E), bytes.data());
    qToLittleEndian(mode, bytes.data() + 2);
    bytes[4] = 3;
    bytes[5] = 2;
    qToLittleEndian(size, bytes.data() + 56);
    return bytes;
}

QByteArray bufferFormat(int regions, quint16 length, quint64 block, const QVector<quint32> &map,
                        quint32 words)
{
    QByteArray bytes(20 + 4 * map.size(), '\0');
    qToLittleEndian(quint16(0x123C), bytes.data());
    qToLittleEndian(quint16(regions), bytes.data() + 2);
    qToLittleEndian(length, bytes.data() + 6);
    qToLittleEndian(block, bytes.data() + 8);
    qToLittleEndian(words, bytes.data() + 16);
    for (int i = 0; i < map.size(); ++i)
        qToLittleEndian(map.at(i), bytes.data() + 20 + 4 * i);
    return bytes;
}

} // namespace

class TestRecoverydXfsLog : public QObject
{
    Q_OBJECT

private slots:
    void readsTransactions_data();
    void readsTransactions();
    void endsWithHostileRecords();
    void readsItems_data();
    void readsItems();

private:
    std::shared_ptr<const services::recoveryd::MediaReader> mediaOf(const QByteArray &log);

    QTemporaryDir m_dir;
};

std::shared_ptr<const services::recoveryd::MediaReader>
TestRecoverydXfsLog::mediaOf(const QByteArray &log)
{
    QByteArray image = superblock().leftJustified(2 * int(kGroupBlocks) * kBlockSize, '\0');
    image.replace(int(kLogBlock) * kBlockSize, log.size(), log);
    const QString path = m_dir.filePath(QStringLiteral("log.img"));
    QFile::remove(path);
    return diskimages::write(path, image) ? testsupport::mediaOf(path) : nullptr;
}

void TestRecoverydXfsLog::readsTransactions_data()
{
    QTest::addColumn<QByteArray>("log");
    QTest::addColumn<QByteArrayList>("expected"); // regions of all transactions, in order
    const auto row = [](const char *name, const LogBytes &log, const QByteArrayList &expected) {
        QTest::newRow(name) << log.bytes() << expected;
    };
    const QByteArray large(700, 'l');
    row("nothing", LogBytes(), {});
    row("one", LogBytes().record(1, 0, whole("one"), 3), {"one"});
    row("in the order of their numbers, not of their places",
        LogBytes().record(2, 0, whole("new"), 3).record(1, 6, whole("old"), 3), {"old", "new"});
    row("over the end of the ring", LogBytes().record(1, 30, whole(large), 3), {large});
    row("sectors with the ring's stamp", LogBytes().record(1, 4, whole(large), 3), {large});
    row("torn: a later cycle has reached it", LogBytes().record(1, 4, whole(large), 3).stamp(6, 2),
        {});
    row("a region over two records",
        LogBytes()
            .record(1, 0, operation(kStart) + operation(kContinues, "be"), 2)
            .record(1, 2, operation(kWasContinued, "gun") + operation(kCommit), 2),
        {"begun"});
    row("two at once",
        LogBytes().record(1, 0,
                          operation(kStart, {}, 1) + operation(kStart, {}, 2) +
                              operation(0, "b", 2) + operation(0, "a", 1) +
                              operation(kCommit, {}, 2) + operation(kCommit, {}, 1),
                          6),
        {"b", "a"});
    row("without its end", LogBytes().record(1, 0, operation(kStart) + operation(0, "x"), 2), {});
    row("without its start", LogBytes().record(1, 0, operation(0, "x") + operation(kCommit), 2),
        {});
    row("an operation longer than its record",
        LogBytes().record(1, 0, operation(kStart) + operation(0, "x", 7, 100000), 2), {});
    row("more operations than there are", LogBytes().record(1, 0, whole("one"), 0xFFFFFFFFU),
        {"one"});
    row("a record longer than the log", LogBytes().record(1, 0, whole("one"), 3, kLogSize), {});
    row("a record of another place", LogBytes().record(1, 0, whole("one"), 3).stamp(0, 9), {});
}

void TestRecoverydXfsLog::readsTransactions()
{
    QFETCH(QByteArray, log);
    QFETCH(QByteArrayList, expected);
    const auto media = mediaOf(log);
    QVERIFY(media);
    QByteArrayList found;
    const bool isDone = Log(*media, geometry())
                            .readHistory(
                                [&found](const LogTransaction &transaction) {
                                    for (const QByteArray &region : transaction.regions)
                                        found.append(region);
                                },
                                [](qint64) { return true; });
    QVERIFY(isDone);
    QCOMPARE(found, expected);
}

/// Headers in every sector, each of a record that reaches around the whole ring.
void TestRecoverydXfsLog::endsWithHostileRecords()
{
    LogBytes log;
    constexpr quint32 kCycle = 0xFEEDBABEU; // a stamp that is a header as well
    for (int sector = 0; sector < kLogSize / kSector; ++sector)
        log.record(kCycle, sector, QByteArray(), 100000, kLogSize - kSector);
    const auto media = mediaOf(log.bytes());
    QVERIFY(media);
    const Log reader(*media, geometry());
    QVERIFY(reader.readHistory([](const LogTransaction &) {}, [](qint64) { return true; }));
    reader.readPending(quint64(kCycle) << 32, [](const LogTransaction &) {});
    QVERIFY(!reader.state().isClean);
}

void TestRecoverydXfsLog::readsItems_data()
{
    using Regions = QVector<QByteArray>;
    QTest::addColumn<Regions>("regions");
    QTest::addColumn<QStringList>("expected");
    constexpr quint32 kCoreAndExtents = 0x005;
    const QByteArray fork = extent(0, 20, 1);
    const QByteArray header(16, '\0');
    const auto row = [](const char *name, const Regions &regions, const QStringList &expected) {
        QTest::newRow(name) << regions << expected;
    };
    const QStringList inode{QStringLiteral("inode 130 size 9 fork 16")};
    row("inode", {header, inodeFormat(3, kCoreAndExtents, 130), core(0100644, 9), fork}, inode);
    row("inode of a 32-bit machine",
        {header, inodeFormat(3, kCoreAndExtents, 130, true), core(0100644, 9), fork}, inode);
    row("inode without a fork", {header, inodeFormat(2, 1, 130), core(0100644, 9)},
        {QStringLiteral("inode 130 size 9 fork -")});
    row("inode without its core", {header, inodeFormat(1, kCoreAndExtents, 130)}, {});
    row("core that is none", {header, inodeFormat(2, 1, 130), QByteArray(176, 'x')}, {});
    row("more regions than there are",
        {header, inodeFormat(65535, kCoreAndExtents, 130), core(0100644, 9)},
        {QStringLiteral("inode 130 size 9 fork -")});
    row("a root that counts more than it holds",
        {header, inodeFormat(3, 0x009, 130), core(0100644, 9), QByteArray(80, '\xFF')},
        {QStringLiteral("inode 130 size 9 fork 0")});
    const QByteArray piece(128, 'p');
    row("buffer", {header, bufferFormat(3, 8, 160, {0x5}, 1), piece, piece},
        {QStringLiteral("buffer 81920 at 0,256")});
    row("buffer in a run of pieces", {header, bufferFormat(2, 8, 160, {0x7}, 1), piece.repeated(3)},
        {QStringLiteral("buffer 81920 at 0")});
    row("buffer with fewer regions than bits", {header, bufferFormat(2, 8, 160, {0xFF}, 1), piece},
        {QStringLiteral("buffer 81920 at 0")});
    row("map larger than its region", {header, bufferFormat(2, 8, 160, {0x1}, 1000), piece},
        {QStringLiteral("buffer 81920 at 0")});
    row("map of no end", {header, bufferFormat(2, 8, 160, {0x1}, 0xFFFFFFFFU), piece}, {});
    row("address of no medium", {header, bufferFormat(2, 8, ~0ULL, {0x1}, 1), piece}, {});
    row("region of nothing", {header, bufferFormat(2, 8, 160, {0x1}, 1), QByteArray()},
        {QStringLiteral("buffer 81920 at 0")});
    row("items of other kinds", {header, QByteArray(40, 'o'), QByteArray()}, {});
}

void TestRecoverydXfsLog::readsItems()
{
    using Regions = QVector<QByteArray>;
    QFETCH(Regions, regions);
    QFETCH(QStringList, expected);
    LogTransaction transaction;
    transaction.regions = regions;
    QStringList found;
    LogItemHandlers handlers;
    handlers.inode = [&found](const LoggedInode &item) {
        found.append(QStringLiteral("inode %1 size %2 fork %3")
                         .arg(item.number)
                         .arg(item.inode.size)
                         .arg(item.inode.hasFork ? QString::number(item.inode.fork.size())
                                                 : QStringLiteral("-")));
    };
    handlers.buffer = [&found](const LoggedBuffer &item) {
        QStringList places;
        for (const LoggedBuffer::Piece &piece : item.pieces)
            places.append(QString::number(piece.at));
        found.append(
            QStringLiteral("buffer %1 at %2").arg(item.offset).arg(places.join(QLatin1Char(','))));
    };
    forEachItem(transaction, handlers);
    QCOMPARE(found, expected);
}

QTEST_GUILESS_MAIN(TestRecoverydXfsLog)
#include "tst_recoveryd_xfs_log.moc"
