#include "analyzer/directorywalk.h"
#include "analyzer/listingqueue.h"
#include "analyzer/mountpoints.h"
#include "support/temptree.h"

#include <QtTest>

#include <thread>
#include <unistd.h>

class TestDirectoryWalk : public QObject
{
    Q_OBJECT

private slots:
    void skipsDirectories_data();
    void skipsDirectories();
    void findsMountsBelow_data();
    void findsMountsBelow();
    void tellsNamesThatNoTextLeadsTo();
    void survivesWhatVanishes();
    void survivesDepth();
    void listsAheadInOrder();
};

void TestDirectoryWalk::skipsDirectories_data()
{
    QTest::addColumn<bool>("skipped");
    for (const char *path :
         {"/proc", "/sys/class", "/dev", "/run/user/1000", "/snap/core", "/boot/efi",
          "/boot/efi/EFI", "/var/run", "/var/lock/a", "/home/a/.git", "/.svn", "/a/.hg",
          "/a/b/node_modules", "/a/__pycache__", "/home/a/.thumbnails"})
        QTest::newRow(path) << true;
    for (const char *path : {"/procs", "/a/proc", "/boot", "/boot/efi2", "/var", "/var/runs",
                             "/home/a/.github", "/a/git", "/a/.git/b", "/a/my_node_modules"})
        QTest::newRow(path) << false;
}

void TestDirectoryWalk::skipsDirectories()
{
    QFETCH(bool, skipped);
    QCOMPARE(shouldSkipDir(QTest::currentDataTag()), skipped);
}

void TestDirectoryWalk::findsMountsBelow_data()
{
    QTest::addColumn<QString>("root");
    QTest::addColumn<QString>("below");
    QTest::newRow("system") << "/"
                            << "/data /data/in /database";
    QTest::newRow("partition") << "/data"
                               << "/data/in";
    QTest::newRow("innermost") << "/data/in"
                               << "";
    QTest::newRow("no mount itself") << "/home"
                                     << "";
}

void TestDirectoryWalk::findsMountsBelow()
{
    QFETCH(QString, root);
    QFETCH(QString, below);
    QVector<MountPoint> all;
    for (const char *path : {"/", "/data", "/data/in", "/database"})
        all.append({QLatin1String(path), QStringLiteral("/dev/sda1"), QStringLiteral("ext4")});
    QStringList found;
    for (const MountPoint &point : mountPointsBelow(root, all))
        found.append(point.rootPath);
    QCOMPARE(found.join(QLatin1Char(' ')), below);
}

namespace {

/// Runs a walk; the listable files as text, the others as "?".
QStringList walked(DirectoryTree *tree, const std::function<void(const QString &)> &onFile)
{
    QStringList files;
    const auto collect = [&](DirNode *dir, const DirectoryEntry &file) {
        DirectoryTree::accumulateToDir(dir, file.size);
        const bool listable = DirectoryTree::isListable(dir, file.name);
        files.append(listable ? tree->listedPath(dir, file.name) : QStringLiteral("?"));
        if (onFile)
            onFile(files.last());
    };
    if (!DirectoryWalk(
             QSet<QByteArray>(), [] { return false; }, collect)
             .run(tree))
        files.clear();
    files.sort();
    tree->sumUp();
    return files;
}

} // namespace

void TestDirectoryWalk::tellsNamesThatNoTextLeadsTo()
{
    TempTree tree;
    QStringList expected{tree.file("中文/文件 名.md"), tree.file(".hidden/.h"),
                         tree.file("\xef\xbf\xbd-replacement"), tree.file("new\nline")};
    for (const char *name :
         {"bad-\xff\xfe", "overlong-\xc0\xaf", "half-\xe6\x96", "\xed\xa0\x80"}) {
        tree.rawFile("raw", name);
        expected.append(QStringLiteral("?"));
    }
    // A file with a good name behind a directory with a bad one cannot be reached, either.
    tree.file("dir/good");
    tree.dir("outer");
    QCOMPARE(::rename(QFile::encodeName(tree.path("dir")).constData(),
                      (QFile::encodeName(tree.path("outer")) + "/\xff").constData()),
             0);
    expected.append(QStringLiteral("?"));
    expected.sort();
    DirectoryTree found(tree.path());
    QCOMPARE(walked(&found, nullptr), expected);
    QCOMPARE(found.at(0)->totalSize, qint64(5 * 4));
}

/// Far more directories than are listed ahead, most of which vanish at the first file.
void TestDirectoryWalk::survivesWhatVanishes()
{
    TempTree tree;
    const int dirs = 400;
    for (int dir = 0; dir < dirs; ++dir)
        tree.file(QStringLiteral("%1/file").arg(dir));
    const QString outside = tree.dir("elsewhere/outside");
    tree.rawFile("elsewhere/outside", "f");
    int seen = 0;
    DirectoryTree found(tree.path());
    walked(&found, [&](const QString &) {
        if (seen++ > 0)
            return;
        for (int dir = 0; dir < dirs; ++dir) {
            tree.remove(QStringLiteral("%1").arg(dir));
            // A link in a directory's place must not be followed.
            tree.link(QStringLiteral("%1").arg(dir), outside);
        }
    });
    QVERIFY2(seen >= 1 && seen < 100, qPrintable(QString::number(seen)));
    QCOMPARE(found.at(0)->totalSize, qint64(seen - 1) * 4);
}

/// Hundreds of levels, up to what a path can name.
void TestDirectoryWalk::survivesDepth()
{
    TempTree tree;
    QString path;
    while (tree.path().size() + path.size() < 4000)
        path += QStringLiteral("/deep");
    path = path.mid(1) + QStringLiteral("/f");
    tree.file(path);
    DirectoryTree found(tree.path());
    QCOMPARE(walked(&found, nullptr), QStringList(tree.path(path)));
    const QVariantMap map = found.toVariant([] { return false; });
    QCOMPARE(map.value(QStringLiteral("totalSize")).toInt(), 4);
}

/// With a second thread of its own the queue gives the same entries, in the same order.
void TestDirectoryWalk::listsAheadInOrder()
{
    TempTree tree;
    for (int dir = 0; dir < 40; ++dir)
        for (int file = 0; file <= dir % 7; ++file)
            tree.file(QStringLiteral("%1/%2").arg(dir).arg(file));
    for (int file = 0; file < 3000; ++file)
        tree.rawFile("20", QByteArray::number(file + 100));
    const auto stop = [] {
        return false;
    };
    QByteArray expected;
    QByteArray found;
    ListingQueue queue(stop);
    for (int dir = 0; dir < 40; ++dir) {
        const QByteArray path = QFile::encodeName(tree.path(QString::number(dir)));
        queue.add(path, false);
        listDirectory(path, false, stop,
                      [&](const DirectoryEntry &entry) { expected += entry.name; });
    }
    std::thread helper([&queue] { queue.help(); });
    while (!queue.isEmpty())
        QVERIFY(queue.takeFirst([&](const DirectoryEntry &entry) { found += entry.name; }));
    queue.finish();
    helper.join();
    QVERIFY(expected.size() > 9000 && found == expected);
}

QTEST_GUILESS_MAIN(TestDirectoryWalk)
#include "tst_directorywalk.moc"
