#include "recoveryd/xfs/directory.h"
#include "recoveryd/xfs/fork.h"
#include "support/diskimages.h"
#include "support/scanharness.h"
#include "xfsbytes.h"

#include <QTemporaryDir>
#include <QTest>

using namespace services::recoveryd::xfs;
using namespace xfsbytes;

namespace {

constexpr quint64 kInode = 130; ///< The third one of block 16.

/// An entry with its tag; `tag` is its place in the block unless it lies.
QByteArray entry(quint64 child, const QByteArray &name, int type, int tag)
{
    const int used = 9 + name.size() + (type >= 0 ? 1 : 0) + 2;
    const int size = (used + 7) / 8 * 8;
    Block bytes(size);
    bytes.put(0, child).put(8, quint8(name.size())).text(9, name);
    if (type >= 0)
        bytes.put(9 + name.size(), quint8(type));
    return bytes.put(size - 2, quint16(tag)).bytes();
}

/// The same once it was removed: its first four bytes say how much is free.
QByteArray freed(QByteArray bytes, int length, int tag)
{
    bytes.resize(length);
    qToBigEndian(quint16(0xFFFF), bytes.data());
    qToBigEndian(quint16(length), bytes.data() + 2);
    qToBigEndian(quint16(tag), bytes.data() + length - 2);
    return bytes;
}

QByteArray block(const char *magic, int head, const QByteArray &entries)
{
    return (QByteArray(magic).leftJustified(head, '\0') + entries).leftJustified(kBlockSize, '\0');
}

QString shown(const DirectoryEntry &entry)
{
    return QStringLiteral("%1:%2:%3%4%5")
        .arg(entry.child)
        .arg(QString::fromUtf8(entry.name))
        .arg(entry.type)
        .arg(entry.isFreed ? QStringLiteral(" freed") : QString())
        .arg(entry.isChildWhole ? QString() : QStringLiteral(" half"));
}

/// A block of a tree of extents that belongs to kInode.
QByteArray treeBlock(int level, int count, const QByteArray &body, int bodyAt = 0,
                     quint64 owner = kInode)
{
    Block bytes(kBlockSize);
    bytes.text(0, "BMA3").put(4, quint16(level)).put(6, quint16(count)).put(56, owner);
    return bytes.text(72 + bodyAt, body).bytes();
}

QByteArray pointers(const QVector<quint64> &blocks)
{
    Block bytes(8 * blocks.size());
    for (int i = 0; i < blocks.size(); ++i)
        bytes.put(8 * i, blocks.at(i));
    return bytes.bytes();
}

constexpr int kRoom = (kBlockSize - 72) / 16; ///< Keys of a node; the pointers stand behind them.

} // namespace

class TestRecoverydXfsBlocks : public QObject
{
    Q_OBJECT

private slots:
    void refusesSuperblocks_data();
    void refusesSuperblocks();
    void readsEntries_data();
    void readsEntries();
    void readsShortEntries_data();
    void readsShortEntries();
    void readsExtents_data();
    void readsExtents();
    void readsTrees_data();
    void readsTrees();

private:
    QTemporaryDir m_dir;
};

void TestRecoverydXfsBlocks::refusesSuperblocks_data()
{
    QTest::addColumn<int>("at");
    QTest::addColumn<QByteArray>("bytes");
    const auto row = [](const char *name, int at, const QByteArray &bytes) {
        QTest::newRow(name) << at << bytes;
    };
    row("other magic", 0, "XFSC");
    row("block size of 0", 4, QByteArray(4, '\0'));
    row("block size that is no power", 4, QByteArray("\0\0\x10\x01", 4));
    row("more blocks than groups hold", 8, QByteArray("\0\0\0\0\0\0\x10\0", 8));
    row("so many blocks that bytes overflow", 8, QByteArray(8, '\x7F'));
    row("groups of no blocks", 84, QByteArray(4, '\0'));
    row("no groups", 88, QByteArray(4, '\0'));
    row("version 3", 100, QByteArray("\0\3", 2));
    row("sectors of 0 bytes", 102, QByteArray(2, '\0'));
    row("inodes of 0 bytes", 104, QByteArray(2, '\0'));
    row("inodes larger than blocks", 104, QByteArray("\x20\0", 2));
    row("shift of 255", 123, QByteArray("\xFF", 1));
    row("too few bits for a group", 124, QByteArray("\5", 1));
    row("64 bits for a group", 124, QByteArray("\x40", 1));
}

void TestRecoverydXfsBlocks::refusesSuperblocks()
{
    QFETCH(int, at);
    QFETCH(QByteArray, bytes);
    for (int version : {4, 5}) {
        QByteArray super = superblock(version);
        Geometry geometry;
        QVERIFY(parseSuperblock(super, &geometry));
        QVERIFY(!parseSuperblock(super.left(511), &geometry));
        super.replace(at, bytes.size(), bytes);
        QVERIFY(!parseSuperblock(super, &geometry));
    }
}

void TestRecoverydXfsBlocks::readsEntries_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("hasTypes");
    QTest::addColumn<QStringList>("expected");
    const auto row = [](const char *name, const QByteArray &bytes, const QStringList &expected,
                        bool hasTypes = true) {
        QTest::newRow(name) << bytes << hasTypes << expected;
    };
    const QStringList both = {QStringLiteral("130:one:1"), QStringLiteral("131:two:2")};
    const auto pair = [](int head) { // of 24 bytes each
        return entry(130, "one", 1, head) + entry(131, "two", 2, head + 16);
    };
    row("version 3 of data blocks", block("XDD3", 64, pair(64)), both);
    row("version 2 of data blocks", block("XD2D", 16, pair(16)), both);
    row("without types", block("XD2D", 16, entry(130, "one", -1, 16) + entry(131, "b", -1, 32)),
        {QStringLiteral("130:one:0"), QStringLiteral("131:b:0")}, false);
    QByteArray only = block("XDB3", 64, pair(64));
    only.replace(kBlockSize - 40, 24, entry(132, "in the hash", 1, kBlockSize - 40));
    only.replace(kBlockSize - 8, 8, QByteArray("\0\0\0\4\0\0\0\0", 8));
    row("the only block ends with its hashes", only, both);
    only.replace(kBlockSize - 8, 8, QByteArray(8, '\x7F'));
    row("more hashes than a block holds", only,
        both + QStringList(QStringLiteral("132:in the hash:1")));
    row("removed", block("XDD3", 64, pair(64).left(16) + freed(entry(131, "two", 2, 80), 16, 80)),
        {both.first(), QStringLiteral("131:two:2 freed half")});
    row("removed, and joined with the next one", block("XDD3", 64, freed(pair(64), 32, 64)),
        {QStringLiteral("130:one:1 freed half"), QStringLiteral("131:two:2 freed")});
    row("removed, reaching over the end",
        block("XDD3", 64, freed(pair(64).left(16), 16, 64).replace(2, 2, "\xFF\xF8")),
        {QStringLiteral("130:one:1 freed half")});
    row("free space of no length", block("XDD3", 64, QByteArray("\xFF\xFF\0\0", 4)), {});
    row("tag of another place", block("XDD3", 64, entry(130, "one", 1, 72)), {});
    row("no name", block("XDD3", 64, entry(130, "", 1, 64)), {});
    row("name with a slash", block("XDD3", 64, entry(130, "a/b", 1, 64)), {});
    row("name with a zero", block("XDD3", 64, entry(130, QByteArray("a\0b", 3), 1, 64)), {});
    row("unknown type", block("XDD3", 64, entry(130, "one", 9, 64)), {});
    row("inode outside of the volume", block("XDD3", 64, entry(1 << 20, "one", 1, 64)), {});
    row("name that reaches over the end",
        block("XDD3", kBlockSize - 16,
              entry(130, QByteArray(200, 'n'), 1, kBlockSize - 16).left(16)),
        {});
    row("stretch from the middle", entry(130, "one", 1, 0), {QStringLiteral("130:one:1")});
}

void TestRecoverydXfsBlocks::readsEntries()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, hasTypes);
    QFETCH(QStringList, expected);
    Geometry geometry = xfsbytes::geometry();
    geometry.hasFileTypes = hasTypes;
    QStringList found;
    const auto take = [&found](const DirectoryEntry &entry) {
        found.append(shown(entry));
    };
    forEachEntry(View(bytes), 0, geometry, take);
    QCOMPARE(found, expected);
    // However it is cut, nothing is read behind it.
    for (int size = 0; size < qMin(bytes.size(), 200); ++size) {
        const QByteArray cut(bytes.constData(), size);
        forEachEntry(View(cut), 0, geometry, take);
        forEachEntry(View(cut), 8, geometry, take);
    }
}

void TestRecoverydXfsBlocks::readsShortEntries_data()
{
    QTest::addColumn<QByteArray>("fork");
    QTest::addColumn<int>("size");
    QTest::addColumn<QStringList>("expected");
    const QString parent = QStringLiteral("128:..:2");
    const QByteArray head("\2\0\0\0\0\x80", 6);
    const QByteArray one("\3\0\x60one\1\0\0\0\x82", 11);
    const QByteArray two("\3\0\x78two\2\0\0\0\x83", 11);
    QTest::newRow("two entries") << head + one + two << 28
                                 << QStringList{parent, QStringLiteral("130:one:1"),
                                                QStringLiteral("131:two:2")};
    QTest::newRow("wide numbers") << QByteArray("\1\1\0\0\0\0\0\0\0\x80", 10) +
                                         QByteArray("\3\0\x60one\1\0\0\0\0\0\0\0\x82", 15)
                                  << 25 << QStringList{parent, QStringLiteral("130:one:1")};
    QTest::newRow("the second is removed")
        << head + one + two << 17
        << QStringList{parent, QStringLiteral("130:one:1"), QStringLiteral("131:two:2 freed")};
    QTest::newRow("the first is removed: what was behind it moved up")
        << head + two + one.right(11) << 17
        << QStringList{parent, QStringLiteral("131:two:2"), QStringLiteral("130:one:1 freed")};
    QTest::newRow("places that do not ascend")
        << head + two + one << 28 << QStringList{parent, QStringLiteral("131:two:2")};
    QTest::newRow("name beyond the end")
        << head + QByteArray("\xFF\0\x60o", 4) << 28 << QStringList{parent};
    QTest::newRow("size beyond the fork")
        << head + one << 5000 << QStringList{parent, QStringLiteral("130:one:1")};
    QTest::newRow("parent outside of the volume")
        << QByteArray("\0\0\x7F\0\0\0", 6) << 6 << QStringList();
    QTest::newRow("nothing") << QByteArray() << 0 << QStringList();
}

void TestRecoverydXfsBlocks::readsShortEntries()
{
    QFETCH(QByteArray, fork);
    QFETCH(int, size);
    QFETCH(QStringList, expected);
    const Geometry geometry = xfsbytes::geometry();
    QStringList found;
    forEachShortEntry(View(fork), quint64(size), geometry,
                      [&found](const DirectoryEntry &entry) { found.append(shown(entry)); });
    QCOMPARE(found, expected);
}

void TestRecoverydXfsBlocks::readsExtents_data()
{
    QTest::addColumn<QByteArray>("records");
    QTest::addColumn<int>("most");
    QTest::addColumn<bool>("isRight");
    QTest::addColumn<int>("found");
    const QByteArray first = extent(0, 20, 3);
    const auto row = [](const char *name, const QByteArray &records, int most, bool isRight,
                        int found) {
        QTest::newRow(name) << records << most << isRight << found;
    };
    row("none", QByteArray(), 0, true, 0);
    row("with a hole", first + extent(10, 70, 2), 2, true, 2);
    row("unwritten", first + extent(3, 30, 5, true), 2, true, 2);
    row("fewer than counted", first, 2, false, 1);
    row("a part of a record", (first + first).left(24), 2, false, 1);
    row("empty", extent(0, 20, 0), 1, false, 0);
    row("overlapping", first + extent(2, 40, 1), 2, false, 1);
    row("descending", extent(10, 40, 1) + first, 2, false, 1);
    row("in the superblock", extent(0, 0, 1), 1, false, 0);
    row("outside of the volume", extent(0, 2 * kGroupBlocks, 1), 1, false, 0);
    row("over the end of the volume", extent(0, 2 * kGroupBlocks - 1, 2), 1, false, 0);
    row("so far into the file that bytes overflow", extent((1ULL << 54) - 1, 20, 1), 1, false, 0);
    row("ones", QByteArray(16, '\xFF'), 1, false, 0);
}

void TestRecoverydXfsBlocks::readsExtents()
{
    QFETCH(QByteArray, records);
    QFETCH(int, most);
    QFETCH(bool, isRight);
    QFETCH(int, found);
    BlockMap map;
    QCOMPARE(services::recoveryd::xfs::readExtents(View(records), quint64(most), geometry(), &map),
             isRight);
    QCOMPARE(int(map.extents.size()), found);
    if (found == 0)
        return;
    const services::recoveryd::FileContent content = contentOf(map, 12 * kBlockSize, geometry());
    QVERIFY(content.extents.size() <= found);
    for (const services::recoveryd::Extent &part : content.extents)
        QVERIFY(part.physical >= 0 && part.logical + part.length <= content.size);
}

void TestRecoverydXfsBlocks::readsTrees_data()
{
    using Blocks = QMap<int, QByteArray>; // by number
    QTest::addColumn<Blocks>("blocks");
    QTest::addColumn<int>("level");
    QTest::addColumn<QVector<quint64>>("roots");
    QTest::addColumn<int>("extents");
    QTest::addColumn<bool>("isComplete");
    const auto row = [](const char *name, const Blocks &blocks, int level,
                        const QVector<quint64> &roots, int extents, bool isComplete) {
        QTest::newRow(name) << blocks << level << roots << extents << isComplete;
    };
    const QByteArray low = treeBlock(0, 2, extent(0, 20, 1) + extent(1, 22, 1));
    const QByteArray high = treeBlock(0, 1, extent(2, 24, 1));
    const auto node = [](int level, const QVector<quint64> &below) {
        return treeBlock(level, below.size(), pointers(below), 8 * kRoom);
    };
    row("two leaves", {{8, low}, {9, high}}, 1, {8, 9}, 3, true);
    row("a node between", {{7, node(1, {8, 9})}, {8, low}, {9, high}}, 2, {7}, 3, true);
    row("a leaf is missing", {{8, low}}, 1, {8, 9}, 2, false);
    row("a leaf of another file", {{8, low}, {9, treeBlock(0, 1, extent(2, 24, 1), 0, kInode + 1)}},
        1, {8, 9}, 2, false);
    row("a leaf counts more than it holds", {{8, treeBlock(0, 60000, extent(0, 20, 1))}}, 1, {8}, 1,
        false);
    row("records of a leaf that was emptied",
        {{8, treeBlock(0, 0, extent(0, 20, 1) + extent(1, 22, 1))}}, 1, {8}, 2, true);
    row("the same leaf twice", {{8, low}}, 1, {8, 8}, 2, false);
    row("a node that counts more than it holds",
        {{7, treeBlock(1, 60000, pointers({8}), 8 * kRoom)}, {8, low}}, 2, {7}, 2, false);
    row("a node below itself", {{7, node(1, {7})}}, 2, {7}, 0, false);
    row("pointer out of the volume", {{8, low}}, 1, {8, quint64(1) << 50}, 2, false);
    row("level that no tree has", {{8, low}}, 60, {8}, 0, false);
}

void TestRecoverydXfsBlocks::readsTrees()
{
    using Blocks = QMap<int, QByteArray>;
    QFETCH(Blocks, blocks);
    QFETCH(int, level);
    QFETCH(QVector<quint64>, roots);
    QFETCH(int, extents);
    QFETCH(bool, isComplete);
    QByteArray image = superblock().leftJustified(2 * int(kGroupBlocks) * kBlockSize, '\0');
    for (auto block = blocks.cbegin(); block != blocks.cend(); ++block)
        image.replace(block.key() * kBlockSize, kBlockSize, block.value());
    const QString path = m_dir.filePath(QStringLiteral("tree.img"));
    QFile::remove(path);
    QVERIFY(diskimages::write(path, image));
    const auto media = testsupport::mediaOf(path);
    XfsVolume volume(*media);
    QVERIFY(volume.open());

    constexpr int kForkSize = 4 + 16 * 10;
    Inode inode;
    inode.format = ForkFormat::Tree;
    inode.hasFork = true;
    inode.extents = quint64(extents);
    inode.fork = Block(kForkSize)
                     .put(0, quint16(level))
                     .put(2, quint16(roots.size()))
                     .text(4 + 8 * 10, pointers(roots))
                     .bytes();
    const BlockMap map = ForkReader(volume, nullptr).read(kInode, inode, volume.geometry());
    QCOMPARE(int(map.extents.size()), extents);
    QCOMPARE(map.isComplete, isComplete);
    // Of a freed inode nothing tells how much of it was the attributes'.
    inode.fork += QByteArray(16 * 9, '\0');
    const BlockMap left = ForkReader(volume, nullptr).readRemains(kInode, inode, geometry());
    QCOMPARE(int(left.extents.size()), extents);
}

QTEST_GUILESS_MAIN(TestRecoverydXfsBlocks)
#include "tst_recoveryd_xfs_blocks.moc"
