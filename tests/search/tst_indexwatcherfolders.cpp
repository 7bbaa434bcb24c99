#include "search/searchindexdb.h"
#include "support/watcherharness.h"

#include <QProcess>
#include <QtTest>

#include <fcntl.h>
#include <unistd.h>

using namespace testsupport;

/// What the watcher does about folders that appear, change their place and go.
class TestIndexWatcherFolders : public testsupport::WatcherHarness
{
    Q_OBJECT

private slots:
    void watchesToTheDepthLimit_data();
    void watchesToTheDepthLimit();
    void watchesNewDirectories();
    void takesInWhatANewDirectoryHolds();
    void looksAgainAtWhatIsNotWatched_data();
    void looksAgainAtWhatIsNotWatched();
    void forgetsDirectoriesThatLeave();
    void aNewDirectoryOutlivesTheOldOneOfItsName();
};

void TestIndexWatcherFolders::watchesToTheDepthLimit_data()
{
    QTest::addColumn<int>("maxDepth");
    QTest::addColumn<QStringList>("excludeDirs");
    QTest::addColumn<int>("watches");

    QTest::newRow("no limit") << 0 << QStringList() << 7;
    QTest::newRow("one level") << 1 << QStringList() << 3;
    QTest::newRow("two levels") << 2 << QStringList() << 5;
    QTest::newRow("three levels") << 3 << QStringList() << 6;
    QTest::newRow("deeper than the tree") << 50 << QStringList() << 7;
    QTest::newRow("excluded name") << 0 << QStringList{QStringLiteral("b")} << 4;
    QTest::newRow("excluded below, with limit") << 2 << QStringList{QStringLiteral("y")} << 4;
    QTest::newRow("everything excluded") << 0 << QStringList{QStringLiteral("r")} << 0;
}

void TestIndexWatcherFolders::watchesToTheDepthLimit()
{
    QFETCH(int, maxDepth);
    QFETCH(QStringList, excludeDirs);
    QFETCH(int, watches);
    m_tree->dir("r/a/b/c/d");
    m_tree->dir("r/x/y");
    m_tree->dir("r/.hidden/z");
    m_tree->link("r/x/link", at("out"));
    startWatcher(watches, excludeDirs, maxDepth);
    // The probe would be excluded with everything else where nothing is watched.
    if (watches > 0)
        settle();
    QCOMPARE(watchCount(), watches);
}

void TestIndexWatcherFolders::watchesNewDirectories()
{
    startWatcher(1, {}, 1);
    // The limit counts from where a watch begins, so new directories are watched at any depth.
    int watches = 1;
    for (const char *dir : {"r/x", "r/x/y", "r/x/y/z"}) {
        m_tree->dir(dir);
        ++watches;
        QTRY_COMPARE(watchCount(), watches);
    }
    m_tree->file("r/x/y/z/new.txt", "nested");
    QTRY_COMPARE(content("r/x/y/z/new.txt"), QStringLiteral("nested"));

    m_tree->file("out/d/sub/f.txt", "moved in");
    m_tree->move("out/d", "r/d");
    QTRY_COMPARE(watchCount(), 6);
    QTRY_COMPARE(content("r/d/sub/f.txt"), QStringLiteral("moved in"));
    m_tree->file("r/d/sub/f.txt", "changed");
    QTRY_COMPARE(content("r/d/sub/f.txt"), QStringLiteral("changed"));

    m_tree->move("r/d", "r/renamed");
    QTRY_COMPARE(countOf("r/d", removeDir), 1);
    m_tree->file("r/renamed/sub/f.txt", "again");
    QTRY_COMPARE(content("r/renamed/sub/f.txt"), QStringLiteral("again"));
    QCOMPARE(indexed().size(), 2);
    QCOMPARE(watchCount(), 6);
    // One report for the old name, and none for the new one.
    QCOMPARE(countOf("r/d", removeDir), 1);
    QCOMPARE(countOf("r/renamed", removeDir), 0);
}

void TestIndexWatcherFolders::takesInWhatANewDirectoryHolds()
{
    const int files = 500;
    for (int i = 0; i < files; ++i)
        m_tree->file(QStringLiteral("out/d/s%1/f%2.%3")
                         .arg(i % 5)
                         .arg(i)
                         .arg(i % 2 == 0 ? QLatin1String("txt") : QLatin1String("bin")),
                     QByteArray::number(i));
    startWatcher(1);
    m_tree->dir("r/copy");
    QCOMPARE(
        QProcess::execute(QStringLiteral("cp"), {QStringLiteral("-r"), at("out/d"), at("r/copy")}),
        0);
    QTRY_COMPARE_WITH_TIMEOUT(rows().size(), files, slowMs);
    QTRY_COMPARE_WITH_TIMEOUT(content("r/copy/d/s3/f498.txt"), QStringLiteral("498"), slowMs);
    m_tree->move("r/copy", "r/renamed");
    QTRY_COMPARE_WITH_TIMEOUT(rows().contains(at("r/copy/d/s0/f0.txt")), false, slowMs);
    const auto texts = [this] {
        int count = 0;
        const IndexSnapshot all = rows();
        for (auto it = all.cbegin(); it != all.cend(); ++it) {
            const QString number = QFileInfo(it.key()).completeBaseName().mid(1);
            count += it.key().startsWith(at("r/renamed/")) && it->content == number ? 1 : 0;
        }
        return count;
    };
    QTRY_COMPARE_WITH_TIMEOUT(texts(), files / 2, slowMs);
    QCOMPARE(rows().size(), files);
    QCOMPARE(m_invalidated, 0);
}

void TestIndexWatcherFolders::looksAgainAtWhatIsNotWatched_data()
{
    QTest::addColumn<int>("maxDepth");
    QTest::addColumn<int>("mostWatches");
    QTest::addColumn<bool>("tells");
    QTest::newRow("too deep") << 1 << 0 << false;
    QTest::newRow("no more watches") << 0 << 2 << true;
}

void TestIndexWatcherFolders::looksAgainAtWhatIsNotWatched()
{
    QFETCH(int, maxDepth);
    QFETCH(int, mostWatches);
    QFETCH(bool, tells);
    m_tree->dir("r/a/deep/er");
    m_tree->file("r/a/deep/old.txt", "old");
    QVERIFY(SearchIndexDB(m_dbPath).upsertFile(QFileInfo(at("r/a/deep/old.txt")), {}));
    QStringList told;
    connect(m_watcher.data(), &IndexWatcher::foldersNotFollowed, this,
            [&told](const QStringList &folders) { told = folders; });
    m_watcher->setWatchLimit(mostWatches, 50);
    startWatcher(2, {}, maxDepth);
    settle();
    if (tells)
        QTRY_COMPARE(told, QStringList{at("r/a/deep")});
    m_tree->file("r/a/deep/er/new.txt", "new");
    QTRY_COMPARE_WITH_TIMEOUT(content("r/a/deep/er/new.txt"), QStringLiteral("new"), slowMs);
    m_tree->remove("r/a/deep/old.txt");
    QTRY_COMPARE_WITH_TIMEOUT(rows().contains(at("r/a/deep/old.txt")), false, slowMs);
    m_tree->file("out/m/f.bin");
    m_tree->move("out/m", "r/a/deep/m");
    QTRY_COMPARE_WITH_TIMEOUT(rows().contains(at("r/a/deep/m/f.bin")), true, slowMs);
    m_tree->remove("r/a/deep/er");
    QTRY_COMPARE_WITH_TIMEOUT(indexed(), QStringList{QStringLiteral("r/a/deep/m/f.bin")}, slowMs);
    m_tree->remove("r/a/deep");
    if (tells)
        QTRY_COMPARE_WITH_TIMEOUT(told, QStringList(), slowMs);
    QCOMPARE(m_invalidated, 0);
}

void TestIndexWatcherFolders::forgetsDirectoriesThatLeave()
{
    for (const char *dir : {"r/d/sub", "r/dd", "r/deleted/sub"})
        m_tree->dir(dir);
    startWatcher(6);
    for (const char *file : {"r/d/a.txt", "r/d/sub/b.bin", "r/dd/stays.bin", "r/deleted/sub/c.bin"})
        m_tree->file(file);
    settle();
    m_tree->file("r/d/late.txt"); // still waiting when its directory leaves
    m_tree->move("r/d", "out/d");
    m_tree->remove("r/deleted");
    QTRY_VERIFY(countOf("r/deleted", removeDir) > 0);
    QCOMPARE(countOf("r/d", removeDir), 1);
    QCOMPARE(watchCount(), 2);
    // What happens there now is none of ours, though the same directories are concerned.
    m_tree->file("out/d/a.txt", "changed outside");
    m_tree->file("out/d/sub/new.bin");
    settle();
    QCOMPARE(indexed(), QStringList{QStringLiteral("r/dd/stays.bin")});
    m_tree->move("r", "out/r"); // a root, whose parent nobody watches
    QTRY_COMPARE(countOf("r", removeDir), 1);
    QCOMPARE(watchCount(), 0);
    QVERIFY(rows().isEmpty() && m_watcher->isRunning());
    QCOMPARE(m_invalidated, 0);
}

/// A deleted directory that somebody still holds open reports its end only when it is let go.
void TestIndexWatcherFolders::aNewDirectoryOutlivesTheOldOneOfItsName()
{
    const QString dir = m_tree->dir("r/d");
    startWatcher(2);
    const int held = open(QFile::encodeName(dir).constData(), O_RDONLY | O_DIRECTORY);
    m_tree->remove("r/d");
    m_tree->dir("r/d");
    settle();
    m_tree->file("r/d/f.bin");
    settle();
    QCOMPARE(indexed(), QStringList{QStringLiteral("r/d/f.bin")});
    close(held);
    settle();
    QCOMPARE(indexed(), QStringList{QStringLiteral("r/d/f.bin")});
    QCOMPARE(watchCount(), 2);
}

QTEST_GUILESS_MAIN(TestIndexWatcherFolders)
#include "tst_indexwatcherfolders.moc"
