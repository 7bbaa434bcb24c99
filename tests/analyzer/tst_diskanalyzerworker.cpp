#include "analyzer/diskanalyzerworker.h"
#include "core/workerthread.h"
#include "support/temptree.h"

#include <QDirIterator>
#include <QSignalSpy>
#include <QtTest>

#include <algorithm>
#include <limits>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr qint64 kMost = std::numeric_limits<qint64>::max();

/// All signals of one worker in their order; the map of an element is what the signal carried.
class Recorder
{
public:
    explicit Recorder(DiskAnalyzerWorker *worker)
    {
        QObject::connect(worker, &DiskAnalyzerWorker::progressChanged, worker,
                         [this](int percent, const QString &text) {
                             percents.append(percent);
                             note(QString::number(percent) + QLatin1Char(' ') + text);
                         });
        QObject::connect(worker, &DiskAnalyzerWorker::largeFilesReady, worker,
                         [this](const QVariantList &list) {
                             largeFiles = list;
                             note(QStringLiteral("large files"));
                         });
        QObject::connect(worker, &DiskAnalyzerWorker::directoryTreeReady, worker,
                         [this](const QVariantMap &map) {
                             tree = map;
                             note(QStringLiteral("tree"));
                         });
        QObject::connect(worker, &DiskAnalyzerWorker::duplicateGroupsReady, worker,
                         [this](const QVariantList &list) {
                             duplicates = list;
                             note(QStringLiteral("duplicates"));
                         });
        QObject::connect(
            worker, &DiskAnalyzerWorker::scanFinished, worker,
            [this](bool ok, const QString &message, int large, int groups) {
                note(QStringLiteral("%1 %2 %3 %4").arg(ok).arg(message).arg(large).arg(groups));
            });
    }

    /// Called with each line after it was added.
    std::function<void(const QString &)> onLine;
    QStringList lines;
    QVector<int> percents;
    QVariantList largeFiles;
    QVariantMap tree;
    QVariantList duplicates;

private:
    void note(const QString &line)
    {
        lines.append(line);
        if (onLine)
            onLine(line);
    }
};

/// "path total own" of a tree's directories, children before their siblings' children.
void flatten(const QVariantMap &node, const QString &path, QStringList *lines)
{
    lines->append(QStringLiteral("%1 %2 %3")
                      .arg(path)
                      .arg(node.value(QStringLiteral("totalSize")).toLongLong())
                      .arg(node.value(QStringLiteral("fileSize")).toLongLong()));
    qint64 before = kMost;
    const QVariantList children = node.value(QStringLiteral("children")).toList();
    for (const QVariant &child : children) {
        const QVariantMap map = child.toMap();
        const qint64 total = map.value(QStringLiteral("totalSize")).toLongLong();
        if (total > before)
            lines->append(QStringLiteral("unsorted in %1").arg(path));
        before = total;
        flatten(map, path + QLatin1Char('/') + map.value(QStringLiteral("name")).toString(), lines);
    }
}

QStringList treeLines(const QVariantMap &root)
{
    QStringList lines;
    flatten(root, root.value(QStringLiteral("name")).toString(), &lines);
    lines.sort();
    return lines;
}

/// The slow, obvious way: every file is added to every directory above it.
struct Expected
{
    explicit Expected(const QString &root)
    {
        QMap<QString, QPair<qint64, qint64>> sizes{{root, {0, 0}}};
        QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot | QDir::NoSymLinks,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QFileInfo file(it.next());
            if (!file.isFile() || file.filePath().contains(QLatin1String("/node_modules/")))
                continue;
            files.append({file.size(), file.filePath()});
            sizes[file.path()].second += file.size();
            for (QString dir = file.path();; dir = dir.left(dir.lastIndexOf(QLatin1Char('/')))) {
                sizes[dir].first += file.size();
                if (dir == root)
                    break;
            }
        }
        for (auto it2 = sizes.cbegin(); it2 != sizes.cend(); ++it2)
            tree.append(QStringLiteral("%1 %2 %3").arg(it2.key()).arg(it2->first).arg(it2->second));
        tree.sort();
        std::sort(files.begin(), files.end(), std::greater<QPair<qint64, QString>>());
    }

    QVector<QPair<qint64, QString>> files;
    QStringList tree;
};

QVector<MountPoint> noMounts()
{
    return {};
}

void fillAtRandom(TempTree *tree, quint32 seed)
{
    std::mt19937 random(seed);
    QStringList dirs{QString()};
    for (int i = 0; i < 60; ++i) {
        const QString parent = dirs.at(int(random() % quint32(dirs.size())));
        const QStringList names{QStringLiteral("d%1"), QStringLiteral(".h%1"),
                                QStringLiteral("中%1"), QStringLiteral("node_modules")};
        QString name = names.at(int(random() % 16 / 5));
        dirs.append(parent + name.replace(QLatin1String("%1"), QString::number(i % 9)) +
                    QLatin1Char('/'));
        tree->dir(dirs.last());
    }
    for (int i = 0; i < 300; ++i) {
        const QString dir = dirs.at(int(random() % quint32(dirs.size())));
        const QString name = QLatin1String(random() % 3 ? "f" : ".f") + QString::number(i);
        tree->file(dir + name, QByteArray(int(random() % 5000), 'x'));
        if (i % 10 == 0)
            tree->link(dir + name + QStringLiteral(".link"), tree->path(dir + name));
    }
    tree->file("node_modules/never", QByteArray(9999, 'x'));
    tree->link("loop", tree->path());
    tree->fifo("pipe");
}

} // namespace

class TestDiskAnalyzerWorker : public QObject
{
    Q_OBJECT

private slots:
    void findsWhatAddingUpFinds();
    void keepsTheLargest_data();
    void keepsTheLargest();
    void reportsInOrder();
    void findsDuplicates();
    void listsNoWrongNames();
    void entersNoOtherPartition();
    void stopsInEachPhase_data();
    void stopsInEachPhase();
    void stopsWhileHashing();
    void boundsThePercentage();
};

void TestDiskAnalyzerWorker::findsWhatAddingUpFinds()
{
    for (quint32 seed = 1; seed <= 5; ++seed) {
        TempTree tree;
        fillAtRandom(&tree, seed);
        const Expected expected(tree.path());
        DiskAnalyzerWorker worker(noMounts);
        Recorder recorder(&worker);
        worker.startScan(tree.path() + QLatin1Char('/'), 0, 0, false, true, 1);
        QCOMPARE(treeLines(recorder.tree), expected.tree);
        QCOMPARE(recorder.largeFiles.size(), expected.files.size());
        QVERIFY(expected.files.size() > 100);
        QVector<QPair<qint64, QString>> found;
        for (const QVariant &file : recorder.largeFiles) {
            const QVariantMap map = file.toMap();
            const QString path = map.value(QStringLiteral("path")).toString();
            found.append({map.value(QStringLiteral("size")).toLongLong(), path});
            QCOMPARE(map.value(QStringLiteral("modified")).toDateTime(),
                     QFileInfo(path).lastModified());
        }
        const auto larger = [](const auto &a, const auto &b) {
            return a.first > b.first;
        };
        QVERIFY(std::is_sorted(found.cbegin(), found.cend(), larger));
        std::sort(found.begin(), found.end(), std::greater<QPair<qint64, QString>>());
        QCOMPARE(found, expected.files);
    }
}

void TestDiskAnalyzerWorker::keepsTheLargest_data()
{
    QTest::addColumn<int>("threshold");
    QTest::addColumn<int>("limit");
    QTest::addColumn<int>("kept");
    QTest::newRow("limit") << 0 << 100 << 100;
    QTest::newRow("one") << 0 << 1 << 1;
    QTest::newRow("no limit") << 0 << 0 << 150;
    QTest::newRow("negative") << 0 << -1 << 150;
    QTest::newRow("threshold") << 140 << 100 << 11;
    QTest::newRow("none") << 151 << 100 << 0;
}

/// Sizes of 1 to 150 bytes, in an order that is neither up nor down.
void TestDiskAnalyzerWorker::keepsTheLargest()
{
    QFETCH(int, threshold);
    QFETCH(int, limit);
    QFETCH(int, kept);
    TempTree tree;
    for (int i = 0; i < 150; ++i)
        tree.file(QString::number(i), QByteArray(i * 7 % 150 + 1, 'x'));
    DiskAnalyzerWorker worker(noMounts);
    Recorder recorder(&worker);
    worker.startScan(tree.path(), threshold, limit, false, true, 1);
    QCOMPARE(recorder.largeFiles.size(), kept);
    for (int i = 0; i < kept; ++i)
        QCOMPARE(recorder.largeFiles.at(i).toMap().value(QStringLiteral("size")).toInt(), 150 - i);
}

void TestDiskAnalyzerWorker::reportsInOrder()
{
    TempTree tree;
    tree.file("a/1", QByteArray(5000, 'x'));
    tree.file("a/2", QByteArray(5000, 'x'));
    DiskAnalyzerWorker worker(noMounts);
    Recorder recorder(&worker);
    worker.startScan(tree.path(), 1, 10, true, true, 1);
    const QStringList start{QStringLiteral("70 正在分析数据..."), QStringLiteral("large files"),
                            QStringLiteral("75 正在构建目录树..."), QStringLiteral("tree"),
                            QStringLiteral("78 正在检测重复文件...")};
    const QStringList duplicates{QStringLiteral("78 正在检测重复文件：0/1"),
                                 QStringLiteral("100 正在检测重复文件：1/1"),
                                 QStringLiteral("duplicates")};
    const QStringList end{QStringLiteral("100 扫描完成"),
                          QStringLiteral("1 扫描完成，共扫描到 2 个大文件、1 组重复文件 2 1")};
    QStringList found = recorder.lines;
    found.removeDuplicates(); // the scanner may report a number of buckets again
    QCOMPARE(found, start + duplicates + end);

    recorder.lines.clear();
    worker.startScan(tree.path("absent"), 1, 10, false, true, 1);
    const QStringList nothing{QStringLiteral("duplicates"), end.first(),
                              QStringLiteral("1 扫描完成，共扫描到 0 个大文件、0 组重复文件 0 0")};
    QCOMPARE(recorder.lines, start + nothing);
    QCOMPARE(treeLines(recorder.tree), QStringList(tree.path("absent") + QStringLiteral(" 0 0")));
    QCOMPARE(recorder.duplicates, QVariantList());
}

void TestDiskAnalyzerWorker::findsDuplicates()
{
    TempTree tree;
    const auto files = [&tree](const char *dir, int count, int size) {
        for (int i = 0; i < count; ++i)
            tree.file(QStringLiteral("%1/%2").arg(QLatin1String(dir)).arg(i),
                      QByteArray(size, 'x'));
    };
    files("most-in-a-bucket", 100, 300);
    files("too-many", 101, 400);
    files("too-small", 2, 99);
    files(".hidden", 2, 100);
    for (int i = 1; i <= 510; ++i)
        files(qPrintable(QStringLiteral("pair%1").arg(i)), 2, 1000 + i);
    QCOMPARE(::link(QFile::encodeName(tree.path(".hidden/0")).constData(),
                    QFile::encodeName(tree.path(".hidden/2")).constData()),
             0);
    DiskAnalyzerWorker worker(noMounts);
    Recorder recorder(&worker);
    worker.startScan(tree.path(), kMost, 10, true, true, 100);
    const QVariantMap totals = recorder.duplicates.value(0).toMap();
    QCOMPARE(totals.value(QStringLiteral("totalGroups")).toInt(), 512);
    QCOMPARE(totals.value(QStringLiteral("shownGroups")).toInt(), 500);
    QCOMPARE(totals.value(QStringLiteral("totalReclaimable")).toLongLong(),
             qint64(99 * 300 + 100 + 510 * 1000 + 510 * 511 / 2));
    QCOMPARE(recorder.duplicates.size(), 501);
    QCOMPARE(recorder.duplicates.at(1).toMap().value(QStringLiteral("size")).toInt(), 1510);

    worker.startScan(tree.path(".hidden"), kMost, 10, true, false, 100);
    QCOMPARE(recorder.duplicates.value(0).toMap().value(QStringLiteral("totalGroups")).toInt(), 0);
}

/// Files that no text leads to count, but are neither listed nor compared.
void TestDiskAnalyzerWorker::listsNoWrongNames()
{
    TempTree tree;
    tree.file("good");
    tree.rawFile("", "bad-\xff");
    tree.rawFile("", "bad-\xfe");
    for (const char *name : {"/bad-\xff", "/bad-\xfe"})
        QCOMPARE(truncate((QFile::encodeName(tree.path()) + name).constData(), 4), 0);
    DiskAnalyzerWorker worker(noMounts);
    Recorder recorder(&worker);
    worker.startScan(tree.path(), 1, 10, true, true, 1);
    QCOMPARE(recorder.largeFiles.size(), 1);
    QCOMPARE(treeLines(recorder.tree), QStringList(tree.path() + QStringLiteral(" 12 12")));
    QCOMPARE(recorder.duplicates.value(0).toMap().value(QStringLiteral("totalGroups")).toInt(), 0);
}

void TestDiskAnalyzerWorker::entersNoOtherPartition()
{
    TempTree tree;
    tree.file("mounted/below/f");
    tree.file("mounted-not/f");
    tree.file("smb-share:server=a/f");
    const auto mounts = [&tree] {
        return QVector<MountPoint>{
            {tree.path("mounted"), QStringLiteral("/dev/sdb1"), QStringLiteral("ext4")}};
    };
    DiskAnalyzerWorker worker(mounts);
    Recorder recorder(&worker);
    const QString expected = QStringLiteral("[DiskAnalyzer] Will skip sub-mount: %1 device: "
                                            "/dev/sdb1 fs: ext4")
                                 .arg(tree.path("mounted"));
    QTest::ignoreMessage(QtInfoMsg, qPrintable(expected));
    worker.startScan(tree.path(), kMost, 10, false, true, 1);
    QCOMPARE(treeLines(recorder.tree),
             QStringList({tree.path() + QStringLiteral(" 4 0"),
                          tree.path("mounted-not") + QStringLiteral(" 4 4")}));
    worker.startScan(tree.path("mounted"), kMost, 10, false, true, 1);
    QCOMPARE(treeLines(recorder.tree).size(), 2);
}

void TestDiskAnalyzerWorker::stopsInEachPhase_data()
{
    QTest::addColumn<QString>("stopAt");
    QTest::addColumn<QStringList>("results");
    const QString files = QStringLiteral("large files");
    const QString tree = QStringLiteral("tree");
    QTest::newRow("walk") << QStringLiteral("(mounts)") << QStringList();
    QTest::newRow("lists") << QStringLiteral("70 正在分析数据...") << QStringList();
    QTest::newRow("tree") << QStringLiteral("75 正在构建目录树...") << QStringList(files);
    QTest::newRow("before duplicates")
        << QStringLiteral("78 正在检测重复文件...") << QStringList({files, tree});
    QTest::newRow("duplicates") << QStringLiteral("78 正在检测重复文件：0/1")
                                << QStringList({files, tree});
}

void TestDiskAnalyzerWorker::stopsInEachPhase()
{
    QFETCH(QString, stopAt);
    QFETCH(QStringList, results);
    TempTree tree;
    tree.file("a/1", QByteArray(5000, 'x'));
    tree.file("a/2", QByteArray(5000, 'x'));
    DiskAnalyzerWorker *stopped = nullptr;
    const auto stopAtLine = [&](const QString &line) {
        if (line == stopAt)
            stopped->requestStop();
    };
    DiskAnalyzerWorker worker([&] {
        stopAtLine(QStringLiteral("(mounts)"));
        return QVector<MountPoint>();
    });
    stopped = &worker;
    Recorder recorder(&worker);
    recorder.onLine = stopAtLine;
    worker.startScan(tree.path(), 1, 10, true, true, 1);
    QCOMPARE(recorder.lines.last(), QStringLiteral("0 用户取消 0 0"));
    QStringList found = recorder.lines;
    found = found.filter(QRegularExpression(QStringLiteral("^[a-z]")));
    QCOMPARE(found, results);

    recorder.onLine = nullptr; // a stop is forgotten by the next scan
    stopAt.clear();
    worker.startScan(tree.path(), 1, 10, true, true, 1);
    QVERIFY(recorder.lines.last().startsWith(QStringLiteral("1 扫描完成")));
}

/// From another thread, in the middle of files that take long to read.
void TestDiskAnalyzerWorker::stopsWhileHashing()
{
    TempTree tree;
    for (const char *name : {"a", "b"})
        QCOMPARE(truncate(QFile::encodeName(tree.file(name)).constData(), qint64(64) << 30), 0);
    auto *worker = new DiskAnalyzerWorker(noMounts);
    core::WorkerThread thread;
    QSignalSpy duplicates(worker, &DiskAnalyzerWorker::duplicateGroupsReady);
    QSignalSpy trees(worker, &DiskAnalyzerWorker::directoryTreeReady);
    QSignalSpy finished(worker, &DiskAnalyzerWorker::scanFinished);
    QSignalSpy progress(worker, &DiskAnalyzerWorker::progressChanged);
    thread.start(worker, QStringLiteral("analyzer"));
    const QString root = tree.path();
    QMetaObject::invokeMethod(worker, [=] { worker->startScan(root, kMost, 10, true, true, 1); });
    QVERIFY(trees.count() == 1 || trees.wait());
    const auto compares = [&progress] {
        const QString last = progress.isEmpty() ? QString() : progress.last().at(1).toString();
        return last.startsWith(QStringLiteral("正在检测重复文件"));
    };
    QTRY_VERIFY(compares());
    QVERIFY(finished.isEmpty()); // To the end it would take minutes.
    worker->requestStop();
    QVERIFY(finished.wait());
    QCOMPARE(finished.at(0).at(1).toString(), QStringLiteral("用户取消"));
    QCOMPARE(duplicates.count(), 0);
}

void TestDiskAnalyzerWorker::boundsThePercentage()
{
    QCOMPARE(DiskAnalyzerWorker::walkPercent(0, 1), 0);
    QCOMPARE(DiskAnalyzerWorker::walkPercent(50, 100), 35);
    QCOMPARE(DiskAnalyzerWorker::walkPercent(99, 100), 69);
    QCOMPARE(DiskAnalyzerWorker::walkPercent(100, 100), 70);
    QCOMPARE(DiskAnalyzerWorker::walkPercent(kMost, 1), 70);
}

QTEST_GUILESS_MAIN(TestDiskAnalyzerWorker)
#include "tst_diskanalyzerworker.moc"
