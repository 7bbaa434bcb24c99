#include "analyzer/duplicate_scanner.h"
#include "analyzer/duplicatesearch.h"
#include "analyzer/scanidentity.h"
#include "support/temptree.h"

#include <QCryptographicHash>
#include <QSemaphore>
#include <QThreadPool>
#include <QtConcurrentRun>
#include <QtTest>

#include <algorithm>
#include <memory>
#include <random>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

Q_DECLARE_METATYPE(DuplicateScanner::ScanOptions)

using Options = DuplicateScanner::ScanOptions;
using Result = DuplicateScanner::PartialResult;
using SizeGroups = QHash<qint64, QStringList>;

namespace {

QByteArray bytesOf(const QString &path)
{
    QFile file(path);
    return QFileInfo(path).isFile() && file.open(QIODevice::ReadOnly) ? file.readAll()
                                                                      : QByteArray();
}

QByteArray md5(const QByteArray &bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Md5);
}

void link(const QString &existing, const QString &path)
{
    if (::link(QFile::encodeName(existing).constData(), QFile::encodeName(path).constData()) != 0)
        qFatal("cannot link %s", qPrintable(path));
}

/// A group as one line, so that whole results can be compared.
QString line(qint64 size, const QString &hash, const QVector<QStringList> &files)
{
    QStringList parts{QString::number(size), hash};
    for (const QStringList &paths : files)
        parts.append(paths.join(QLatin1Char('=')));
    return parts.join(QLatin1Char(' '));
}

QStringList lines(const Result &result)
{
    QStringList all;
    for (const QVariant &group : result.groups) {
        const QVariantMap map = group.toMap();
        QVector<QStringList> files;
        const QVariantList members = map.value(QStringLiteral("files")).toList();
        for (const QVariant &member : members) {
            const QVariantMap file = member.toMap();
            const QString path = file.value(QStringLiteral("path")).toString();
            const QStringList aliases = file.value(QStringLiteral("aliasPaths")).toStringList();
            if (file.value(QStringLiteral("aliasCount")).toInt() != aliases.size() ||
                file.value(QStringLiteral("modified")).toDateTime() !=
                    QFileInfo(path).lastModified())
                qFatal("wrong entry of %s", qPrintable(path));
            files.append(QStringList(path) + aliases);
        }
        all.append(line(map.value(QStringLiteral("size")).toLongLong(),
                        map.value(QStringLiteral("hash"), QStringLiteral("-")).toString(), files));
    }
    return all;
}

/// The slow, obvious way: everything is read whole. Limits of groups are left to the tests.
struct Expected
{
    Expected(const SizeGroups &sizeGroups, const Options &options)
    {
        QVector<qint64> sizes;
        for (auto it = sizeGroups.cbegin(); it != sizeGroups.cend(); ++it)
            if (it->size() > 1 && it.key() >= options.minimumSize &&
                (options.maximumFilesPerBucket <= 0 || it->size() <= options.maximumFilesPerBucket))
                sizes.append(it.key());
        std::sort(sizes.begin(), sizes.end(), [&](qint64 a, qint64 b) {
            const qint64 stakeA = a * (sizeGroups[a].size() - 1);
            const qint64 stakeB = b * (sizeGroups[b].size() - 1);
            return stakeA != stakeB ? stakeA > stakeB : a > b;
        });
        if (options.maximumBuckets > 0)
            sizes = sizes.mid(0, options.maximumBuckets);
        for (const qint64 size : sizes)
            addBucket(size, sizeGroups[size], options.byHash);
        lines.sort();
    }

    void addBucket(qint64 size, const QStringList &paths, bool byHash)
    {
        QMap<quint64, QStringList> physical;
        QVector<quint64> order;
        for (const QString &path : paths) {
            struct stat info;
            if (stat(QFile::encodeName(path).constData(), &info) != 0)
                continue;
            if (!physical.contains(info.st_ino))
                order.append(info.st_ino);
            physical[info.st_ino].append(path);
        }
        QMap<QString, QVector<QStringList>> groups;
        for (const quint64 inode : order) {
            const QString path = physical[inode].first();
            if (!byHash)
                groups[QFileInfo(path).fileName()].append(physical[inode]);
            else if (QFileInfo(path).isFile())
                groups[QString::fromLatin1(md5(bytesOf(path)).toHex())].append(physical[inode]);
        }
        for (auto it = groups.cbegin(); it != groups.cend(); ++it) {
            if (it->size() < 2)
                continue;
            lines.append(line(size, byHash ? it.key() : QStringLiteral("-"), *it));
            reclaimable += size * (it->size() - 1);
        }
    }

    QStringList lines;
    qint64 reclaimable = 0;
};

/// Files that differ at the start, in the middle or at the end, or not at all; links; what cannot
/// be read.
SizeGroups randomFiles(TempTree *tree, quint32 seed)
{
    const int sizes[] = {0, 1, 17, 4095, 4096, 4097, 8191, 8192, 20000, 1048576, 1048577};
    std::mt19937 random(seed);
    SizeGroups groups;
    for (const int size : sizes) {
        QStringList &paths = groups[size];
        const int count = int(random() % 12);
        for (int i = 0; i < count; ++i) {
            QByteArray content(size, 'x');
            const int places[] = {0, size / 2, size - 1};
            if (size > 0 && random() % 2 == 0)
                content[places[random() % 3]] = char('a' + random() % 2);
            const QString name = QStringLiteral("%1/%2/%3")
                                     .arg(size)
                                     .arg(i)
                                     .arg(QLatin1Char(char('a' + random() % 3)));
            if (!paths.isEmpty() && random() % 4 == 0) {
                tree->dir(QFileInfo(name).path());
                link(paths.at(int(random() % quint32(paths.size()))), tree->path(name));
                paths.append(tree->path(name));
            } else {
                paths.append(tree->file(name, content));
            }
        }
    }
    groups[4096] << tree->dir("directory") << tree->fifo("pipe") << tree->path("absent");
    return groups;
}

/// What read(2) and its like gave to this process so far.
qint64 bytesRead()
{
    QFile file(QStringLiteral("/proc/self/io"));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("no /proc/self/io");
    return file.readLine().mid(int(qstrlen("rchar: "))).trimmed().toLongLong();
}

const DuplicateScanner::StopFunction kNoStop = [] {
    return false;
};

} // namespace

class TestDuplicateScanner : public QObject
{
    Q_OBJECT

private slots:
    void findsWhatWholeComparisonFinds_data();
    void findsWhatWholeComparisonFinds();
    void limitsGroupsButNotTotals();
    void hashesParts_data();
    void hashesParts();
    void readsUnequalFilesInPartOnly();
    void partsContentsThatDifferLate_data();
    void partsContentsThatDifferLate();
    void tellsContentsOfOneHashApart();
    void comparesTheFilesThatItNames();
    void stops();
    void reportsProgress();
    void searchesOnSeveralThreads();
    void sharesABusyPool();
};

void TestDuplicateScanner::findsWhatWholeComparisonFinds_data()
{
    QTest::addColumn<Options>("options");
    const auto row = [](const char *name, qint64 minimum, bool byHash, int files, int buckets,
                        int threads) {
        QTest::newRow(name) << Options{minimum, byHash, files, buckets, 0, threads};
    };
    row("all, one thread", 0, true, 0, 0, 1);
    row("all, two threads", 0, true, -1, -1, 2);
    row("all, default threads", 0, true, 0, 0, 0);
    row("too many threads", 0, true, 0, 0, 99);
    row("from 4097 bytes", 4097, true, 0, 0, 2);
    row("files per bucket", 0, true, 5, 0, 2);
    row("buckets", 0, true, 0, 3, 2);
    row("by name", 0, false, 0, 0, 2);
}

void TestDuplicateScanner::findsWhatWholeComparisonFinds()
{
    QFETCH(Options, options);
    int groups = 0;
    for (quint32 seed = 1; seed <= 8; ++seed) {
        TempTree tree;
        const SizeGroups sizeGroups = randomFiles(&tree, seed);
        const Expected expected(sizeGroups, options);
        const Result result = DuplicateScanner::scan(sizeGroups, options, kNoStop, nullptr);
        QStringList found = lines(result);
        found.sort();
        QCOMPARE(found, expected.lines);
        QCOMPARE(result.totalReclaimable, expected.reclaimable);
        QCOMPARE(result.totalGroups, expected.lines.size());
        QCOMPARE(lines(DuplicateScanner::scan(sizeGroups, options, kNoStop, nullptr)),
                 lines(result));
        groups += result.totalGroups;
    }
    QVERIFY(groups > 8);
}

void TestDuplicateScanner::limitsGroupsButNotTotals()
{
    TempTree tree;
    SizeGroups sizeGroups;
    QList<DuplicateScanner::Bucket> buckets;
    for (int size = 1; size <= 20; ++size) {
        for (const char *name : {"a", "b"})
            sizeGroups[size].append(tree.file(
                QStringLiteral("%1/%2").arg(size).arg(QLatin1String(name)), QByteArray(size, 'x')));
        buckets.append({size, sizeGroups[size]});
    }
    const Options options{0, true, 0, 0, 7, 2};
    const Result result = DuplicateScanner::scan(sizeGroups, options, kNoStop, nullptr);
    QCOMPARE(result.totalGroups, 20);
    QCOMPARE(result.totalReclaimable, qint64(210));
    QCOMPARE(result.groups.size(), 7);
    for (int i = 0; i < 7; ++i)
        QCOMPARE(result.groups.at(i).toMap().value(QStringLiteral("size")).toInt(), 20 - i);

    const Result part = DuplicateScanner::processBucketRange(buckets, 5, 15, options, kNoStop);
    QCOMPARE(part.totalGroups, 10);
    QCOMPARE(part.totalReclaimable, qint64(105));
    QCOMPARE(part.groups.size(), 7);
    QCOMPARE(part.groups.first().toMap().value(QStringLiteral("size")).toInt(), 6);
}

void TestDuplicateScanner::hashesParts_data()
{
    QTest::addColumn<int>("size");
    for (const int size : {0, 1, 4095, 4096, 4097, 8192, 1048575, 1048576, 1048577, 3000000})
        QTest::newRow(qPrintable(QString::number(size))) << size;
}

void TestDuplicateScanner::hashesParts()
{
    QFETCH(int, size);
    TempTree tree;
    QByteArray content(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        content[i] = char(i * 7 + i / 256);
    const QString path = tree.file("f", content);
    QCOMPARE(DuplicateScanner::partialHash(path), md5(content.left(4096)));
    QCOMPARE(DuplicateScanner::tailHash(path, size), md5(content.right(4096)));
    QCOMPARE(DuplicateScanner::fullHash(path, nullptr), md5(content));
    int asked = 0;
    const auto stopAtLastChunk = [&] {
        return ++asked > size / 1048576;
    };
    QCOMPARE(DuplicateScanner::fullHash(path, stopAtLastChunk), QByteArray());
}

void TestDuplicateScanner::readsUnequalFilesInPartOnly()
{
    TempTree tree;
    const int count = 60;
    const int size = 300000;
    SizeGroups sizeGroups;
    for (int i = 0; i < count; ++i) {
        QByteArray content(size, 'x');
        content[i % 2 == 0 ? 0 : size - 1] = char(i); // half of them only differ at the end
        sizeGroups[size].append(tree.file(QString::number(i), content));
    }
    const qint64 before = bytesRead();
    const Result result = DuplicateScanner::scan(sizeGroups, Options(), kNoStop, nullptr);
    const qint64 read = bytesRead() - before;
    QCOMPARE(result.totalGroups, 0);
    QVERIFY2(read < count * 8192 + 4096, qPrintable(QString::number(read)));
}

void TestDuplicateScanner::partsContentsThatDifferLate_data()
{
    QTest::addColumn<int>("count");
    QTest::newRow("all open at once") << 12;
    QTest::newRow("more than stay open") << 36;
}

/// Some differ from the first file in the first block, some in the second one, some from all.
void TestDuplicateScanner::partsContentsThatDifferLate()
{
    QFETCH(int, count);
    TempTree tree;
    const int size = 1048576 + 20000;
    SizeGroups sizeGroups;
    for (int i = 0; i < count; ++i) {
        QByteArray content(size, 'x');
        content[10000] = char('a' + i % 3);
        content[size - 10000] = char(i % 3 == 1 ? i : i % 2);
        sizeGroups[size].append(tree.file(QString::number(i), content));
    }
    const Expected expected(sizeGroups, Options());
    const Result result = DuplicateScanner::scan(sizeGroups, Options(), kNoStop, nullptr);
    QStringList found = lines(result);
    found.sort();
    QCOMPARE(found, expected.lines);
    QCOMPARE(result.totalGroups, 4);
}

/// Two contents that are known to have the same MD5; what follows them is the same.
void TestDuplicateScanner::tellsContentsOfOneHashApart()
{
    const QByteArray start = QByteArray::fromHex(
        "d131dd02c5e6eec4693d9a0698aff95c2fcab58712467eab4004583eb8fb7f8955ad340609f4b30283e48883"
        "2571415a085125e8f7cdc99fd91dbdf280373c5bd8823e3156348f5bae6dacd436c919c6dd53e2b487da03fd"
        "02396306d248cda0e99f33420f577ee8ce54b67080a80d1ec69821bcb6a8839396f9652b6ff72a70");
    QByteArray other = start;
    for (const int place : {19, 45, 59, 83, 109, 123})
        other[place] = char(other.at(place) ^ 0x80);
    const QByteArray rest(8000, 'x');
    QVERIFY(start != other && md5(start + rest) == md5(other + rest));
    TempTree tree;
    const QStringList paths{tree.file("a", start + rest), tree.file("b", other + rest),
                            tree.file("c", start + rest), tree.file("d", other + rest)};
    const SizeGroups sizeGroups{{start.size() + rest.size(), paths}};
    const QStringList found =
        lines(DuplicateScanner::scan(sizeGroups, Options(), kNoStop, nullptr));
    const QString hash = QString::fromLatin1(md5(start + rest).toHex());
    QCOMPARE(found, (QStringList{line(8128, hash, {{paths.at(0)}, {paths.at(2)}}),
                                 line(8128, hash, {{paths.at(1)}, {paths.at(3)}})}));
}

/// A file of other content is exchanged for an equal one at any moment of the comparison. It may
/// count as a duplicate only under the identity of the file that was read.
void TestDuplicateScanner::comparesTheFilesThatItNames()
{
    const int size = 5000;
    bool found = false;
    bool exchanged = true;
    for (int moment = 1; exchanged; ++moment) {
        TempTree tree;
        const QStringList paths{tree.file("a", QByteArray(size, 'x')),
                                tree.file("b", QByteArray(size, 'y'))};
        tree.file("new", QByteArray(size, 'x'));
        const auto inodeOf = [](const QString &path) {
            struct stat info;
            return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_ino : 0;
        };
        const quint64 wanted = inodeOf(tree.path("new"));
        int asked = 0;
        const auto exchange = [&] {
            if (++asked == moment)
                tree.move("new", "b");
            return false;
        };
        const Result result =
            DuplicateScanner::processBucketRange({{size, paths}}, 0, 1, Options(), exchange);
        exchanged = asked >= moment;
        if (result.groups.isEmpty())
            continue;
        found = true;
        const QVariantList files =
            result.groups.first().toMap().value(QStringLiteral("files")).toList();
        const QVariantMap file = files.at(1).toMap();
        QCOMPARE(identityFromMap(file, size).inode, wanted);
    }
    QVERIFY(found);
}

/// Whatever the moment of the stop, what is returned is part of the whole.
void TestDuplicateScanner::stops()
{
    TempTree tree;
    const SizeGroups sizeGroups = randomFiles(&tree, 3);
    const Options options{0, true, 0, 0, 0, 2};
    std::atomic<int> asked{0};
    const auto whole = lines(DuplicateScanner::scan(
        sizeGroups, options, [&] { return ++asked < 0; }, nullptr));
    const int most = asked;
    QVERIFY(most > 50);
    for (int limit = 0; limit < most; limit += most / 25 + 1) {
        asked = 0;
        const Result part = DuplicateScanner::scan(
            sizeGroups, options, [&] { return ++asked > limit; }, nullptr);
        const QStringList found = lines(part);
        for (const QString &group : found)
            QVERIFY2(whole.contains(group), qPrintable(group));
        QVERIFY(limit > 0 || found.isEmpty());
    }
}

void TestDuplicateScanner::reportsProgress()
{
    TempTree tree;
    const QThread *caller = QThread::currentThread();
    QVector<QPair<int, int>> calls;
    const auto record = [&](int done, int total) {
        QCOMPARE(QThread::currentThread(), caller);
        calls.append({done, total});
    };
    DuplicateScanner::scan(SizeGroups(), Options(), kNoStop, record);
    QVERIFY(calls.size() == calls.count({0, 0}) && !calls.isEmpty());

    calls.clear();
    const SizeGroups sizeGroups = randomFiles(&tree, 5);
    DuplicateScanner::scan(sizeGroups, Options(), kNoStop, record);
    const int total = calls.first().second;
    QCOMPARE(calls.first(), qMakePair(0, total));
    QCOMPARE(calls.last(), qMakePair(total, total));
    QVERIFY(total > 5 && std::is_sorted(calls.cbegin(), calls.cend()));
}

void TestDuplicateScanner::searchesOnSeveralThreads()
{
    TempTree tree;
    const SizeGroups sizeGroups = randomFiles(&tree, 4);
    QList<DuplicateScanner::Bucket> buckets;
    for (auto it = sizeGroups.cbegin(); it != sizeGroups.cend(); ++it)
        buckets.append({it.key(), it.value()});
    const int count = buckets.size();
    const QStringList expected =
        lines(DuplicateScanner::processBucketRange(buckets, 0, count, Options(), kNoStop));
    DuplicateSearch search(buckets, 0, count, Options(), kNoStop);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&search] { search.work(); });
    for (std::thread &thread : threads)
        thread.join();
    QCOMPARE(search.finishedBuckets(), count);
    QVERIFY(!expected.isEmpty());
    QCOMPARE(lines(search.result(0, count)), expected);
}

/// Every thread of the pool is taken: by something that never ends before the scan does, and then
/// by scans.
void TestDuplicateScanner::sharesABusyPool()
{
    TempTree tree;
    const SizeGroups sizeGroups = randomFiles(&tree, 7);
    const Options options{0, true, 0, 0, 0, 4};
    const QStringList expected =
        lines(DuplicateScanner::scan(sizeGroups, options, kNoStop, nullptr));
    QSemaphore release;
    QVector<QFuture<void>> blockers;
    for (int i = 0; i < QThreadPool::globalInstance()->maxThreadCount(); ++i)
        blockers.append(QtConcurrent::run([&release] { release.acquire(); }));
    const QStringList found = lines(DuplicateScanner::scan(sizeGroups, options, kNoStop, nullptr));
    release.release(blockers.size());
    QCOMPARE(found, expected);
    for (QFuture<void> &blocker : blockers)
        blocker.waitForFinished();

    QVector<QFuture<QStringList>> scans;
    for (int i = 0; i < 2 * QThreadPool::globalInstance()->maxThreadCount(); ++i)
        scans.append(QtConcurrent::run(
            [&] { return lines(DuplicateScanner::scan(sizeGroups, options, kNoStop, nullptr)); }));
    for (QFuture<QStringList> &scan : scans)
        QCOMPARE(scan.result(), expected);
}

QTEST_GUILESS_MAIN(TestDuplicateScanner)
#include "tst_duplicatescanner.moc"
