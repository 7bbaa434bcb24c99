#include "recoveryd/ext/extfreespace.h"
#include "recoveryd/ext/extlookup.h"
#include "support/diskimages.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

using namespace services::recoveryd;
using namespace diskimages;

namespace {

QStringList words(const char *text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '));
}

bool isInside(const Ranges &ranges, qint64 start, qint64 length)
{
    for (const Range &range : ranges)
        if (start >= range.start && start + length <= range.end())
            return true;
    return false;
}

bool touches(const Ranges &ranges, qint64 start, qint64 length)
{
    for (const Range &range : ranges)
        if (start < range.end() && start + length > range.start)
            return true;
    return false;
}

/// The content by the runs; holes are zeros.
QByteArray contentOf(const ExtVolume &ext, const ExtInode &inode, const QVector<BlockRun> &runs)
{
    const qint64 blockSize = ext.superblock().blockSize;
    QByteArray content(int(inode.size), '\0');
    for (const BlockRun &run : runs) {
        const QByteArray bytes = ext.volume().read(run.physical * blockSize, run.count * blockSize);
        content.replace(int(run.logical * blockSize), bytes.size(), bytes);
    }
    return content.left(int(inode.size));
}

} // namespace

class TestRecoverydExt : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void readsVolumes_data();
    void readsVolumes();
    void followsWhatIsSparseAndFragmented();
    void refusesWhatIsNotThere();

private:
    void open(const QString &image, ExtVolume *ext);

    QTemporaryDir m_dir;
    QHash<QString, QByteArray> m_files; ///< By path inside the image.
};

void TestRecoverydExt::initTestCase()
{
    const QDir source(m_dir.filePath(QStringLiteral("source")));
    QVERIFY(source.mkpath(QStringLiteral("a/深/c")));
    QVERIFY(source.mkpath(QStringLiteral("many")));
    m_files.insert(QStringLiteral("/a/深/c/small"), noise(10, 1));
    m_files.insert(QStringLiteral("/a/large"), noise(3000000, 2));
    // Enough for a directory with an index.
    for (int i = 0; i < 400; ++i)
        m_files.insert(QStringLiteral("/many/a-name-of-some-length-%1").arg(i), noise(3 + i, 3));
    for (auto it = m_files.cbegin(); it != m_files.cend(); ++it)
        QVERIFY(write(source.path() + it.key(), it.value()));
}

void TestRecoverydExt::open(const QString &image, ExtVolume *ext)
{
    QString error;
    const auto file = Image::open(image, &error);
    QVERIFY2(file && ext->open(Volume(file, 0, file->size()), &error), qPrintable(error));
}

void TestRecoverydExt::readsVolumes_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("sizeKiB");
    QTest::newRow("ext4, blocks of 1 KiB, several groups")
        << words("-t ext4 -b 1024 -g 4096") << 40960;
    QTest::newRow("ext4, blocks of 4 KiB") << words("-t ext4 -b 4096 -N 1024") << 40960;
    QTest::newRow("ext4, 64 bit, no flexible groups")
        << words("-t ext4 -b 1024 -g 8192 -O 64bit,^flex_bg") << 40960;
    QTest::newRow("ext4, groups never written")
        << words("-t ext4 -b 4096 -g 4096 -N 1024 -O uninit_bg,^metadata_csum") << 262144;
    QTest::newRow("ext3, block map") << words("-t ext3 -b 1024") << 40960;
    QTest::newRow("ext2, block map") << words("-t ext2 -b 4096 -N 1024") << 40960;
}

void TestRecoverydExt::readsVolumes()
{
    QFETCH(QStringList, options);
    QFETCH(int, sizeKiB);
    const QString image = m_dir.filePath(QStringLiteral("image"));
    QFile::remove(image);
    QString error;
    QVERIFY2(makeExt(image, m_dir.filePath(QStringLiteral("source")), sizeKiB, options, &error),
             qPrintable(error));
    ExtVolume ext;
    open(image, &ext);
    const qint64 blockSize = ext.superblock().blockSize;
    Ranges before;
    QVERIFY2(readFreeRanges(ext, &before, &error), qPrintable(error));
    QCOMPARE(totalLength(before), ext.superblock().freeBlocks * blockSize);

    QVector<BlockRun> large;
    for (auto it = m_files.cbegin(); it != m_files.cend(); ++it) {
        ExtInode inode;
        QVector<BlockRun> runs;
        QVERIFY2(lookUp(ext, it.key(), &inode, &error), qPrintable(error));
        QVERIFY2(readBlockRuns(ext, inode, 100000, &runs, &error), qPrintable(error));
        QVERIFY2(contentOf(ext, inode, runs) == it.value(), qPrintable(it.key()));
        for (const BlockRun &run : qAsConst(runs))
            QVERIFY(!touches(before, run.physical * blockSize, run.count * blockSize));
        if (it.key() == QLatin1String("/a/large"))
            large = runs;
    }

    // A deleted file's blocks become free, and only they.
    QVERIFY2(debugfs(image, QStringLiteral("rm /a/large"), &error), qPrintable(error));
    open(image, &ext);
    Ranges after;
    QVERIFY(readFreeRanges(ext, &after, &error));
    QCOMPARE(totalLength(after), ext.superblock().freeBlocks * blockSize);
    for (const BlockRun &run : qAsConst(large))
        QVERIFY(isInside(after, run.physical * blockSize, run.count * blockSize));
    ExtInode gone;
    QVERIFY(!lookUp(ext, QStringLiteral("/a/large"), &gone, &error));
}

void TestRecoverydExt::followsWhatIsSparseAndFragmented()
{
    // Written into the gaps that every second deleted file leaves, with a hole in the middle.
    const QString source = m_dir.filePath(QStringLiteral("gaps"));
    QVERIFY(QDir().mkpath(source));
    for (int i = 0; i < 200; ++i)
        QVERIFY(write(QStringLiteral("%1/%2").arg(source).arg(i), noise(2048, 7)));
    const QString image = m_dir.filePath(QStringLiteral("fragmented"));
    QString error;
    QVERIFY2(makeExt(image, source, 2048, words("-t ext4 -b 1024 -N 256 -O ^has_journal"), &error),
             qPrintable(error));
    for (int i = 0; i < 200; i += 2)
        QVERIFY(debugfs(image, QStringLiteral("rm /%1").arg(i), &error));
    QByteArray content = noise(1300000, 11);
    content.replace(100 * 1024, 50 * 1024, QByteArray(50 * 1024, '\0'));
    const QString host = m_dir.filePath(QStringLiteral("new"));
    QVERIFY(write(host, content));
    QVERIFY2(debugfs(image, QStringLiteral("write %1 /new").arg(host), &error), qPrintable(error));

    ExtVolume ext;
    open(image, &ext);
    ExtInode inode;
    QVector<BlockRun> runs;
    QVERIFY2(lookUp(ext, QStringLiteral("/new"), &inode, &error), qPrintable(error));
    QVERIFY2(readBlockRuns(ext, inode, 100000, &runs, &error), qPrintable(error));
    QVERIFY2(runs.size() > 20, qPrintable(QString::number(runs.size()))); // a tree with levels
    QVERIFY(contentOf(ext, inode, runs) == content);
    QVERIFY(!readBlockRuns(ext, inode, 100, &runs, &error));
}

void TestRecoverydExt::refusesWhatIsNotThere()
{
    const QString image = m_dir.filePath(QStringLiteral("plain"));
    QString error;
    QVERIFY(
        makeExt(image, m_dir.filePath(QStringLiteral("source")), 40960, words("-t ext4"), &error));
    ExtVolume ext;
    open(image, &ext);
    ExtInode inode;
    for (const char *path : {"/none", "/a/large/x", "/a/deep/c", "/many/a-name"}) {
        error.clear();
        QVERIFY2(!lookUp(ext, QLatin1String(path), &inode, &error), path);
        QVERIFY(!error.isEmpty());
    }
    QVERIFY(ext.readInode(0, &error).isEmpty());
    QVERIFY(ext.readInode(0xFFFFFFFF, &error).isEmpty());
    QVERIFY(ext.readBlock(ext.superblock().blockCount, &error).isEmpty());

    // Cut behind the first group: what lies behind is neither free nor readable.
    QVERIFY(QFile::resize(image, 9 * 1024 * 1024));
    open(image, &ext);
    Ranges ranges;
    if (readFreeRanges(ext, &ranges, &error) && !ranges.isEmpty())
        QVERIFY(ranges.last().end() <= 9 * 1024 * 1024);
}

QTEST_GUILESS_MAIN(TestRecoverydExt)
#include "tst_recoveryd_ext.moc"
