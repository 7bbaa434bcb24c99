#include "search/filewalker.h"
#include "support/temptree.h"

#include <QDirIterator>
#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QStringList walked(const QString &root, const FileWalker::DirectoryVisitor &onDirectory)
{
    QStringList files;
    FileWalker walker([] { return true; }, onDirectory,
                      [&files](const QString &, const QString &path) {
                          files.append(path);
                          return true;
                      });
    if (!walker.walk(root))
        files.append(QStringLiteral("(ended early)"));
    files.sort();
    return files;
}

bool enterAll(const QString &, const QString &, int)
{
    return true;
}

} // namespace

class TestFileWalker : public QObject
{
    Q_OBJECT

private slots:
    void findsWhatTheToolkitFinds();
    void entersALinkedRootOnly();
    void visitsDirectoriesWithTheirDepth();
    void endsEarly();
    void survivesWhatVanishes();
    void survivesPathsTooLongToOpen();
    void decodesNames_data();
    void decodesNames();
};

/// The set that QDirIterator gives is the reference, over everything a tree can hold.
void TestFileWalker::findsWhatTheToolkitFinds()
{
    TempTree tree;
    tree.file(QStringLiteral("r/plain.txt"));
    tree.file(QStringLiteral("r/empty"), QByteArray());
    tree.file(QStringLiteral("r/.hidden"));
    tree.file(QStringLiteral("r/.~lock.doc"));
    tree.file(QStringLiteral("r/.git/config"));
    tree.file(QStringLiteral("r/a/.cache/b/c.txt"));
    tree.file(QStringLiteral("r/a/b/c/d/e/deep.txt"));
    tree.file(QStringLiteral("r/中文/文件 名.md"));
    tree.file(QStringLiteral("r/new\nline/name\twith\rblanks "));
    tree.file(QStringLiteral("r/") + QString(255, QLatin1Char('n')));
    tree.file(QStringLiteral("r/") + QString(85, QChar(0x6587)));
    tree.dir(QStringLiteral("r/empty-dir"));
    tree.file(QStringLiteral("outside/o.txt"));
    tree.link(QStringLiteral("r/to-file"), tree.path(QStringLiteral("outside/o.txt")));
    tree.link(QStringLiteral("r/to-dir"), tree.path(QStringLiteral("outside")));
    tree.link(QStringLiteral("r/to-self"), tree.path(QStringLiteral("r")));
    tree.link(QStringLiteral("r/dangling"), QStringLiteral("/no/such/file"));
    tree.fifo(QStringLiteral("r/pipe"));
    tree.link(QStringLiteral("r/to-pipe"), tree.path(QStringLiteral("r/pipe")));
    tree.rawFile(QStringLiteral("r/raw"), "bad-\xff\xfe.txt");
    tree.rawFile(QStringLiteral("r/raw"), "half-\xe6\x96.txt");
    tree.file(QStringLiteral("r/locked/l.txt"));
    QVERIFY(chmod(QFile::encodeName(tree.path(QStringLiteral("r/locked"))).constData(), 0) == 0);

    QStringList expected;
    QDirIterator it(tree.path(QStringLiteral("r")), QDir::Files | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        if (it.fileInfo().isFile())
            expected.append(it.filePath());
    }
    expected.sort();
    QVERIFY(expected.size() >= 8);
    QCOMPARE(walked(tree.path(QStringLiteral("r")), enterAll), expected);
    chmod(QFile::encodeName(tree.path(QStringLiteral("r/locked"))).constData(), 0700);
}

void TestFileWalker::entersALinkedRootOnly()
{
    TempTree tree;
    tree.file(QStringLiteral("real/a.txt"));
    const QString root = tree.link(QStringLiteral("root"), tree.path(QStringLiteral("real")));
    QCOMPARE(walked(root, enterAll), QStringList{root + QStringLiteral("/a.txt")});
    // A directory that became a link after it was listed must not lead out of the tree.
    tree.file(QStringLiteral("top/d/b.txt"));
    const auto replace = [&tree](const QString &name, const QString &, int) {
        if (name == QLatin1String("d")) {
            tree.remove(QStringLiteral("top/d"));
            tree.link(QStringLiteral("top/d"), tree.path(QStringLiteral("real")));
        }
        return true;
    };
    QCOMPARE(walked(tree.path(QStringLiteral("top")), replace), QStringList());
}

void TestFileWalker::visitsDirectoriesWithTheirDepth()
{
    TempTree tree;
    tree.dir(QStringLiteral("a/b/c"));
    tree.dir(QStringLiteral("d/.e/f"));
    tree.file(QStringLiteral("a/file"));
    tree.link(QStringLiteral("d/up"), tree.path());
    QStringList seen;
    FileWalker walker([] { return true; },
                      [&](const QString &name, const QString &path, int depth) {
                          seen.append(QString::number(depth) + QLatin1Char(' ') + name);
                          return path != tree.path(QStringLiteral("a/b"));
                      });
    QVERIFY(walker.walk(tree.path()));
    seen.sort();
    const QStringList expected{QStringLiteral("1 a"), QStringLiteral("1 d"), QStringLiteral("2 b")};
    QCOMPARE(seen, expected);
}

void TestFileWalker::endsEarly()
{
    TempTree tree;
    for (int i = 0; i < 20; ++i)
        tree.file(QStringLiteral("d%1/f").arg(i));
    int files = 0;
    FileWalker byVisitor([] { return true; }, enterAll,
                         [&files](const QString &, const QString &) { return ++files < 3; });
    QVERIFY(!byVisitor.walk(tree.path()));
    QCOMPARE(files, 3);

    int asked = 0;
    FileWalker byFlag([&asked] { return ++asked < 10; }, enterAll,
                      [](const QString &, const QString &) { return true; });
    QVERIFY(!byFlag.walk(tree.path()));
    QCOMPARE(asked, 10);
}

void TestFileWalker::survivesWhatVanishes()
{
    TempTree tree;
    for (int i = 0; i < 50; ++i)
        tree.file(QStringLiteral("r/d%1/f").arg(i));
    const auto removeAll = [&tree](const QString &, const QString &, int) {
        if (QFileInfo::exists(tree.path(QStringLiteral("r"))))
            tree.remove(QStringLiteral("r"));
        return true;
    };
    QCOMPARE(walked(tree.path(QStringLiteral("r")), removeAll), QStringList());
    QCOMPARE(walked(tree.path(QStringLiteral("gone")), enterAll), QStringList());
}

/// A chain of directories whose full path is beyond what any call takes.
void TestFileWalker::survivesPathsTooLongToOpen()
{
    TempTree tree;
    const QByteArray name(200, 'd');
    int fd = open(QFile::encodeName(tree.path()).constData(), O_RDONLY | O_DIRECTORY);
    const int levels = 30;
    for (int i = 0; i < levels; ++i) {
        QVERIFY(mkdirat(fd, name.constData(), 0700) == 0);
        const int next = openat(fd, name.constData(), O_RDONLY | O_DIRECTORY);
        QVERIFY(next >= 0);
        close(openat(next, "file", O_WRONLY | O_CREAT, 0600));
        close(fd);
        fd = next;
    }
    close(fd);
    const QStringList files = walked(tree.path(), enterAll);
    QVERIFY2(files.size() >= 19 && files.size() < levels,
             qPrintable(QString::number(files.size())));

    // The tree is taken down from its top: each level's child is moved up before it goes.
    const QByteArray top = QFile::encodeName(tree.path()) + '/';
    for (int i = 0; i < levels; ++i) {
        QVERIFY(rename((top + name).constData(), (top + "current").constData()) == 0);
        unlink((top + "current/file").constData());
        rename((top + "current/" + name).constData(), (top + name).constData());
        QVERIFY(rmdir((top + "current").constData()) == 0);
    }
}

void TestFileWalker::decodesNames_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("name");

    QTest::newRow("plain") << QByteArray("a b.txt") << QStringLiteral("a b.txt");
    QTest::newRow("Chinese") << QByteArray("文件") << QStringLiteral("文件");
    QTest::newRow("beyond the basic plane")
        << QByteArray("\xf0\x9f\x98\x80") << QString::fromUcs4(U"\x1f600");
    QTest::newRow("replacement character itself")
        << QByteArray("\xef\xbf\xbd") << QString(QChar(0xfffd));
    QTest::newRow("stray byte") << QByteArray("a\xff") << QString();
    QTest::newRow("cut sequence") << QByteArray("\xe6\x96") << QString();
    QTest::newRow("overlong slash") << QByteArray("\xc0\xaf") << QString();
}

void TestFileWalker::decodesNames()
{
    QFETCH(QByteArray, bytes);
    QTEST(FileWalker::decodedName(bytes.constData()), "name");
}

QTEST_GUILESS_MAIN(TestFileWalker)
#include "tst_filewalker.moc"
