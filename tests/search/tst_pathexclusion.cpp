#include "search/pathexclusion.h"
#include "support/temptree.h"

#include <QtTest>

class TestPathExclusion : public QObject
{
    Q_OBJECT

private slots:
    void excludes_data();
    void excludes();
    void namesThatTrimmingWouldChange();
    void matchesSuffixes_data();
    void matchesSuffixes();
};

void TestPathExclusion::excludes_data()
{
    QTest::addColumn<QString>("entry");
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("excluded");
    const auto row = [](const char *name, const char *entry, const char *path, bool excluded) {
        QTest::newRow(name) << QString::fromUtf8(entry) << QString::fromUtf8(path) << excluded;
    };
    row("name at the end", "node_modules", "/h/node_modules", true);
    row("name in the middle", "node_modules", "/h/node_modules/a/b.txt", true);
    row("name of a file", "a.txt", "/h/a.txt", true);
    row("name is only a part", "node", "/h/node_modules/a", false);
    row("case counts", "Node_modules", "/h/node_modules/a", false);
    row("blanks and a slash at the end", "  .git/ ", "/h/.git/config", true);
    row("Chinese name", "缓存", "/h/缓存/a", true);
    row("path itself", "/a/b", "/a/b", true);
    row("below the path", "/a/b", "/a/b/c/d", true);
    row("beside the path", "/a/b", "/a/bc", false);
    row("above the path", "/a/b", "/a", false);
    row("path is cleaned", "/a//x/../b/", "/a/b/c", true);
    row("relative path", "a/b", "/a/b/c", false);
    row("file system root", "/", "/a", true);
    row("empty entry", "   ", "/a", false);
}

void TestPathExclusion::excludes()
{
    QFETCH(QString, entry);
    QFETCH(QString, path);
    QTEST(PathExclusion({entry}).excludes(path), "excluded");
    // Other entries neither hide nor add anything.
    QTEST(PathExclusion({QStringLiteral("zzz"), entry, QStringLiteral("/zzz")}).excludes(path),
          "excluded");
}

void TestPathExclusion::namesThatTrimmingWouldChange()
{
    TempTree tree;
    const QString plain = tree.dir("d");
    const QString blank = tree.dir("d ");
    QVERIFY(PathExclusion({blank}).excludes(blank));
    QVERIFY(!PathExclusion({blank}).excludes(plain));
    QVERIFY(!PathExclusion({plain}).excludes(blank));
    tree.remove("d ");
    QVERIFY(PathExclusion({blank}).excludes(plain));
}

void TestPathExclusion::matchesSuffixes_data()
{
    QTest::addColumn<QString>("entry");
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<bool>("matches");
    QTest::newRow("case of both sides") << " TXT "
                                        << "A.TxT" << true;
    QTest::newRow("one leading dot") << ".txt"
                                     << "a.txt" << true;
    QTest::newRow("two leading dots") << "..txt"
                                      << "a.txt" << false;
    QTest::newRow("last suffix counts") << "gz"
                                        << "a.tar.gz" << true;
    QTest::newRow("not an inner suffix") << "tar"
                                         << "a.tar.gz" << false;
    QTest::newRow("no suffix") << "txt"
                               << "txt" << false;
    QTest::newRow("longer suffix") << "doc"
                                   << "a.docx" << false;
}

void TestPathExclusion::matchesSuffixes()
{
    QFETCH(QString, entry);
    QFETCH(QString, fileName);
    QTEST(SuffixSet({QStringLiteral("zzz"), entry}).matches(fileName), "matches");
}

QTEST_APPLESS_MAIN(TestPathExclusion)
#include "tst_pathexclusion.moc"
