#include "share/directorylisting.h"
#include "share/escaping.h"
#include "share/pagetemplates.h"
#include "share/sharedentry.h"
#include "share/sharepaths.h"
#include "share/sharetarget.h"
#include "share/uploadtarget.h"
#include "support/temptree.h"

#include <QtTest>

#include <sys/stat.h>

using namespace share;

class TestSharePaths : public QObject
{
    Q_OBJECT

private slots:
    void splits_data();
    void splits();
    void resolves_data();
    void resolves();
    void knowsHiddenParts();
    void needsItsRoot();
    void judgesUploadNames_data();
    void judgesUploadNames();
    void knowsTypesAndSizes();
    void keepsRoomBesideAnUpload();
    void listsLikeTheToolkit();
    void escapesForEachPlace();
    void fillsEachPlaceOnce();

private:
    TempTree m_tree;
};

void TestSharePaths::splits_data()
{
    QTest::addColumn<QString>("subPath");
    QTest::addColumn<bool>("isGood");
    QTest::addColumn<QString>("parts"); // "root|relative"

    QTest::newRow("root") << "r" << true << "r|";
    QTest::newRow("root, slash") << "r/" << true << "r|";
    QTest::newRow("below") << "r/a/b" << true << "r|a/b";
    QTest::newRow("encoded slash") << "r%2Fa%2fb" << true << "r|a/b";
    QTest::newRow("decoded once") << "r/%2541" << true << "r|%41";
    QTest::newRow("utf-8") << "r/%E4%B8%AD" << true << QStringLiteral("r|中");
    QTest::newRow("empty") << "" << false << "|";
    QTest::newRow("no root") << "/a" << false << "|a";
    QTest::newRow("encoded no root") << "%2fa" << false << "|a";
}

void TestSharePaths::splits()
{
    QFETCH(QString, subPath);
    QString root;
    QString relative;
    QTEST(splitRootAndRelativePath(subPath, &root, &relative), "isGood");
    QTEST(QString(root + QLatin1Char('|') + relative), "parts");
}

void TestSharePaths::resolves_data()
{
    QTest::addColumn<QString>("relative");
    QTest::addColumn<QString>("resolved"); // below the tree; empty: refused

    m_tree.file("root/a.txt");
    m_tree.file("root/sub/b.txt");
    m_tree.file("root/:x");
    m_tree.file("root/a b.txt");
    m_tree.file("root/build..old/c.txt");
    m_tree.file("rootside/secret.txt");
    m_tree.file("secret.txt");
    m_tree.link("root/inside", m_tree.path("root/sub"));
    m_tree.link("root/outside", m_tree.path());
    m_tree.link("root/sibling", m_tree.path("rootside"));
    m_tree.link("root/outfile", m_tree.path("secret.txt"));
    m_tree.link("root/relative", QStringLiteral("sub/../sub/b.txt"));
    m_tree.link("root/upward", QStringLiteral("../root/a.txt"));
    m_tree.link("root/toself", m_tree.path("root"));
    m_tree.link("root/chain", QStringLiteral("inside"));
    m_tree.link("root/escape", QStringLiteral("../secret.txt"));
    m_tree.link("root/dead", m_tree.path("nothing"));
    m_tree.link("root/loop", m_tree.path("root/loop"));

    const auto row = [](const char *relative, const char *resolved) {
        QTest::newRow(relative) << QString::fromUtf8(relative) << QString::fromUtf8(resolved);
    };
    row("", "root");
    row("a.txt", "root/a.txt");
    row("sub/", "root/sub");
    row("sub//b.txt", "root/sub/b.txt");
    row("sub/../a.txt", "root/a.txt");
    row(".", "root/.");
    row(":x", "root/:x");
    row("a%20b.txt", "root/a b.txt");
    row("inside/b.txt", "root/inside/b.txt");
    row("relative", "root/relative");
    row("upward", "root/upward"); // leaves the root and comes back
    row("toself/sub/b.txt", "root/toself/sub/b.txt");
    row("chain/b.txt", "root/chain/b.txt");
    row("escape", "");
    row("%2e", "root/.");
    row("..", "");
    row("../secret.txt", "");
    row("sub/../../secret.txt", "");
    row("%2e%2e/secret.txt", "");
    row("%2e%2e%2fsecret.txt", "");
    row("..%2Frootside/secret.txt", "");
    row("build..old", "");
    row("build..old/c.txt", "");
    row("/etc/passwd", "");
    row("%2fetc/passwd", "");
    row("//", "");
    row("a.txt%00", "");
    row("a.txt%00.html", "");
    row("%00", "");
    row("outside", "");
    row("outside/secret.txt", "");
    row("sibling/secret.txt", "");
    row("outfile", "");
    row("dead", "");
    row("loop", "");
    row("missing", "");
    row("a.txt/", "root/a.txt"); // cleaned before it is looked for
    row("a.txt/b", "");
    row("%", "");
    row("%zz", "");
    // Decoded a second time here, so this names no longer the file of that name.
    row("a%2520b.txt", "");
}

void TestSharePaths::resolves()
{
    QFETCH(QString, relative);
    QFETCH(QString, resolved);
    const QString expected = resolved.isEmpty() ? QString() : m_tree.path(resolved);
    QCOMPARE(resolveSafePath(m_tree.path("root"), relative), expected);
    QString clean;
    if (!cleanRelativePath(relative, &clean)) {
        QVERIFY(expected.isEmpty());
        return;
    }
    // Whoever walks, what is held open is what the path names.
    for (const SharedEntry::Walk walk :
         {SharedEntry::Walk::Kernel, SharedEntry::Walk::PartByPart}) {
        const SharedEntry entry = SharedEntry::root(m_tree.path("root")).below(clean, walk);
        QCOMPARE(entry.isOpen(), !expected.isEmpty());
        struct stat held = {};
        struct stat named = {};
        QCOMPARE(::fstat(entry.descriptor(), &held), expected.isEmpty() ? -1 : 0);
        QCOMPARE(::stat(QFile::encodeName(expected).constData(), &named),
                 expected.isEmpty() ? -1 : 0);
        QCOMPARE(held.st_ino, named.st_ino);
    }
}

void TestSharePaths::knowsHiddenParts()
{
    for (const char *hidden : {".a", ".a/b", "a/.b", "a/.b/c", "..."})
        QVERIFY2(hasHiddenPart(QString::fromLatin1(hidden)), hidden);
    for (const char *open : {"", "a", "a/b.c", "a./b", "a.b/c"})
        QVERIFY2(!hasHiddenPart(QString::fromLatin1(open)), open);
}

void TestSharePaths::needsItsRoot()
{
    m_tree.file("gone/x");
    QVERIFY(!resolveSafePath(m_tree.path("gone"), QStringLiteral("x")).isEmpty());
    m_tree.remove("gone");
    QVERIFY(resolveSafePath(m_tree.path("gone"), QStringLiteral("x")).isEmpty());
    QVERIFY(resolveSafePath(m_tree.path("gone"), QStringLiteral(".")).isEmpty());
    // A shared link is its target; the whole system may be shared.
    m_tree.link("shared", m_tree.path("root"));
    QCOMPARE(resolveSafePath(m_tree.path("shared"), QStringLiteral("a.txt")),
             m_tree.path("shared/a.txt"));
    QCOMPARE(resolveSafePath(QStringLiteral("/"), QStringLiteral("tmp")), QStringLiteral("/tmp"));
}

void TestSharePaths::judgesUploadNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("isValid");

    QTest::newRow("plain") << "a.txt" << true;
    QTest::newRow("hidden") << ".a" << true;
    QTest::newRow("dots in it") << "a..b" << true;
    QTest::newRow("three dots") << "..." << true;
    QTest::newRow("utf-8") << QStringLiteral("报告 1.txt") << true;
    QTest::newRow("empty") << "" << false;
    QTest::newRow("blank") << " \t " << false;
    QTest::newRow("dot") << "." << false;
    QTest::newRow("dots") << ".." << false;
    QTest::newRow("slash") << "a/b" << false;
    QTest::newRow("backslash") << "a\\b" << false;
    QTest::newRow("nul") << QString(QStringLiteral("a") + QChar(QChar::Null)) << false;
}

void TestSharePaths::judgesUploadNames()
{
    QFETCH(QString, name);
    QTEST(isValidUploadFileName(name), "isValid");
}

void TestSharePaths::knowsTypesAndSizes()
{
    QCOMPARE(mimeTypeForFile(QStringLiteral("A.HTM")), QStringLiteral("text/html; charset=utf-8"));
    QCOMPARE(mimeTypeForFile(QStringLiteral("a.tar.jpeg")), QStringLiteral("image/jpeg"));
    QCOMPARE(mimeTypeForFile(QStringLiteral("README")), QStringLiteral("application/octet-stream"));
    QCOMPARE(formatFileSize(0), QStringLiteral("0 B"));
    QCOMPARE(formatFileSize(1023), QStringLiteral("1023 B"));
    QCOMPARE(formatFileSize(1024), QStringLiteral("1.0 KB"));
    QCOMPARE(formatFileSize(1048575), QStringLiteral("1024.0 KB"));
    QCOMPARE(formatFileSize(1572864), QStringLiteral("1.5 MB"));
    QCOMPARE(formatFileSize(1073741824), QStringLiteral("1.00 GB"));
}

void TestSharePaths::keepsRoomBesideAnUpload()
{
    const qint64 reserve = 64 * 1024 * 1024;
    QVERIFY(fitsInto(reserve + 10, 10));
    QVERIFY(!fitsInto(reserve + 9, 10));
    QVERIFY(fitsInto(reserve, 0));
    QVERIFY(!fitsInto(reserve - 1, 0));
    QVERIFY(!fitsInto(0, 0));
    QVERIFY(!fitsInto(reserve * 2, std::numeric_limits<qint64>::max()));
}

/// The same names in the same order as a QDir with the filter and order that are asked for.
void TestSharePaths::listsLikeTheToolkit()
{
    TempTree tree;
    for (const char *name : {"b.txt", "B.txt", "10", "9", "中文", "ä", "z z", ":x", ".hidden"})
        tree.file(name, "1234");
    tree.dir("dir");
    tree.dir("Dir2");
    tree.dir(".hiddendir");
    tree.link("filelink", tree.path("b.txt"));
    tree.link("dirlink", tree.path("dir"));
    tree.link("dead", tree.path("nothing"));
    tree.fifo("pipe");
    tree.rawFile("", QByteArray("bad\xff"));

    QVector<ListedEntry> entries;
    QVERIFY(listDirectory(SharedEntry::root(tree.path()), &entries));
    const QFileInfoList expected =
        QDir(tree.path()).entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot, QDir::DirsFirst);
    QVERIFY(expected.size() >= 12);
    QStringList names;
    QStringList expectedNames;
    for (const QFileInfo &info : expected)
        expectedNames.append(info.fileName());
    for (const ListedEntry &entry : qAsConst(entries)) {
        names.append(entry.name);
        const QFileInfo info(joinedPath(tree.path(), entry.name));
        QCOMPARE(entry.isDirectory, info.isDir());
        QCOMPARE(entry.size, info.size());
        QCOMPARE(QString::fromLatin1(minuteText(entry.modified)),
                 info.lastModified().toString(QStringLiteral("yyyy-MM-dd HH:mm")));
    }
    QCOMPARE(names, expectedNames);
    QVERIFY(!listDirectory(SharedEntry::root(tree.path("nothing")), &entries));
    QVERIFY(!listDirectory(SharedEntry::root(tree.path("b.txt")), &entries));
}

void TestSharePaths::escapesForEachPlace()
{
    QCOMPARE(htmlEscaped(QStringLiteral("<b a='1' c=\"2\">&中")),
             QByteArray("&lt;b a=&#39;1&#39; c=&quot;2&quot;&gt;&amp;中"));
    QCOMPARE(encodedPath(QStringLiteral("a b/中'\"?#%.txt")),
             QStringLiteral("a%20b/%E4%B8%AD%27%22%3F%23%2525.txt"));
    QCOMPARE(headerFileName(QStringLiteral("a\"b.txt")), QStringLiteral("a_b.txt"));
    QCOMPARE(headerFileName(QStringLiteral("a\r\nX: 1\t\x7f.txt")),
             QStringLiteral("a__X: 1__.txt"));
    QCOMPARE(headerFileName(QStringLiteral("a\\b\\")), QStringLiteral("a\\b_"));
    QCOMPARE(headerFileName(QStringLiteral("中文.txt")), QStringLiteral("中文.txt"));
}

void TestSharePaths::fillsEachPlaceOnce()
{
    const PageTemplate text("<a>{{one}}</a>{{&two}}{{one}}{{none}}{{open");
    QCOMPARE(text.filled({{"one", QStringLiteral("{{&two}} %1 <Morvane>")},
                          {"two", QByteArrayLiteral("<b>{{one}}</b>")}}),
             QByteArray("<a>{{&amp;two}} %1 &lt;Morvane&gt;</a><b>{{one}}</b>"
                        "{{&amp;two}} %1 &lt;Morvane&gt;{{open"));
    const QByteArray whole = page(QStringLiteral("</title>"), "<p>x</p>");
    QVERIFY(whole.contains("<title>&lt;/title&gt;</title>"));
    QVERIFY(!whole.contains("{{"));
    QVERIFY(!whole.contains("src=") && !whole.contains("url("));
    QVERIFY(pageTemplate("list").filled({}).contains(
        "target='_blank' rel='noopener noreferrer'>Morvane</a>"));
}

QTEST_GUILESS_MAIN(TestSharePaths)
#include "tst_sharepaths.moc"
