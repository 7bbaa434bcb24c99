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
    void endsEarly();
    void survivesWhatVanishes();
    void survivesPathsTooLongToOpen();
};

/// The set that QDirIterator gives is the reference, over everything a tree can hold.
void TestFileWalker::findsWhatTheToolkitFinds()
{
    TempTree tree;
    tree.file("r/plain.txt");
    tree.file("r/empty", QByteArray());
    tree.file("r/.hidden");
    tree.file("r/.~lock.doc");
    tree.file("r/.git/config");
    tree.file("r/a/.cache/b/c.txt");
    tree.file("r/a/b/c/d/e/deep.txt");
    tree.file("r/中文/文件 名.md");
    tree.file("r/new\nline/name\twith\rblanks ");
    tree.file(QStringLiteral("r/") + QString(255, QLatin1Char('n')));
    tree.file(QStringLiteral("r/") + QString(85, QChar(0x6587)));
    tree.dir("r/empty-dir");
    tree.file("outside/o.txt");
    tree.link("r/to-file", tree.path("outside/o.txt"));
    tree.link("r/to-dir", tree.path("outside"));
    tree.link("r/to-self", tree.path("r"));
    tree.link("r/dangling", QStringLiteral("/no/such/file"));
    tree.fifo("r/pipe");
    tree.link("r/to-pipe", tree.path("r/pipe"));
    tree.rawFile("r/raw", "bad-\xff\xfe.txt");
    tree.rawFile("r/raw", "overlong-\xc0\xaf");
    tree.rawFile("r/raw", "replacement-\xef\xbf\xbd-is-valid");
    tree.rawFile("r/raw", "half-\xe6\x96.txt");
    tree.file("r/locked/l.txt");
    QVERIFY(chmod(QFile::encodeName(tree.path("r/locked")).constData(), 0) == 0);

    QStringList expected;
    QDirIterator it(tree.path("r"), QDir::Files | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        if (it.fileInfo().isFile())
            expected.append(it.filePath());
    }
    expected.sort();
    QVERIFY(expected.size() >= 8);
    QCOMPARE(walked(tree.path("r"), enterAll), expected);
    chmod(QFile::encodeName(tree.path("r/locked")).constData(), 0700);
}

void TestFileWalker::entersALinkedRootOnly()
{
    TempTree tree;
    tree.file("real/a.txt");
    const QString root = tree.link("root", tree.path("real"));
    QCOMPARE(walked(root, enterAll), QStringList{root + QStringLiteral("/a.txt")});
    // A directory that became a link after it was listed must not lead out of the tree.
    tree.file("top/d/b.txt");
    const auto replace = [&tree](const QString &name, const QString &, int) {
        if (name == QLatin1String("d")) {
            tree.remove("top/d");
            tree.link("top/d", tree.path("real"));
        }
        return true;
    };
    QCOMPARE(walked(tree.path("top"), replace), QStringList());
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
        if (QFileInfo::exists(tree.path("r")))
            tree.remove("r");
        return true;
    };
    QCOMPARE(walked(tree.path("r"), removeAll), QStringList());
    QCOMPARE(walked(tree.path("gone"), enterAll), QStringList());
}

/// A chain of directories whose full path is beyond what any call takes. The sandbox removes it.
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
    const int files = walked(tree.path(), enterAll).size();
    QVERIFY2(files >= 19 && files < levels, qPrintable(QString::number(files)));
}

QTEST_GUILESS_MAIN(TestFileWalker)
#include "tst_filewalker.moc"
