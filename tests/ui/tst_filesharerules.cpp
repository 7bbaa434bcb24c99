#include "support/temptree.h"
#include "ui/common/privatefolders.h"
#include "ui/pages/filesharedetaildialog/logrules.h"
#include "ui/pages/filesharepage/sharerules.h"

#include <QDateTime>
#include <QtTest>

using namespace fileshare;

class TestFileShareRules : public QObject
{
    Q_OBJECT

private slots:
    void words_data();
    void words();
    void rows();
    void uniquePaths_data();
    void uniquePaths();
    void droppedAddresses();
    void findsPrivateFolders_data();
    void findsPrivateFolders();
    void pendingTexts_data();
    void pendingTexts();
    void linksAndOutcomes();
    void exposure_data();
    void exposure();
    void tips_data();
    void tips();
    void logWords_data();
    void logWords();
    void paging_data();
    void paging();
};

namespace {

qint64 localMs(int hour, int minute)
{
    return QDateTime(QDate(2026, 3, 9), QTime(hour, minute, 7)).toMSecsSinceEpoch();
}

} // namespace

void TestFileShareRules::words_data()
{
    QTest::addColumn<QString>("shown");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char *name, const QString &shown, const char *expected) {
        QTest::newRow(name) << shown << QString::fromUtf8(expected);
    };
    row("active", statusText(QStringLiteral("active")), "共享中");
    row("expired", statusText(QStringLiteral("expired")), "已过期");
    row("stopped", statusText(QStringLiteral("stopped")), "已停止");
    row("unknown state", statusText(QStringLiteral("?")), "已停止");
    row("upload", permissionText(QStringLiteral("upload")), "允许上传");
    row("download", permissionText(QStringLiteral("download")), "仅下载");
    row("no mode", permissionText(QString()), "仅下载");
    row("no limit", durationText(0), "不限时");
    row("negative", durationText(-5), "不限时");
    row("an hour", durationText(60), "60 分钟");
    row("odd", durationText(45), "45 分钟");
    row("time", timeText(localMs(8, 5), QStringLiteral("MM-dd HH:mm")), "03-09 08:05");
    row("no time", timeText(0, QStringLiteral("MM-dd"), QString::fromUtf8("无")), "无");
    row("running", sessionActions(true).join(QLatin1Char('|')), "详情|停止|删除");
    row("stopped actions", sessionActions(false).join(QLatin1Char('|')), "详情|开始|删除");
    row("records", recordsText(12, 3), "12 条记录，3 个共享中");
    row("no records", recordsText(0, 0), "");
}

void TestFileShareRules::words()
{
    QFETCH(QString, shown);
    QTEST(shown, "expected");
}

void TestFileShareRules::rows()
{
    ShareSession session;
    session.id = QStringLiteral("abc");
    session.port = 9900;
    session.status = QStringLiteral("expired");
    session.accessMode = QStringLiteral("upload");
    session.createdAt = localMs(23, 59);
    session.totalDownloads = 7;
    session.rootNames = QStringList{QStringLiteral("a"), QStringLiteral("b")};
    QList<ShareRoot> roots;
    for (const QString &path : {QStringLiteral("/x/a"), QStringLiteral("/y/b")}) {
        roots.append(ShareRoot());
        roots.last().localPath = path;
    }
    const SessionRow row = sessionRow(session, roots);
    QCOMPARE(row.id, QStringLiteral("abc"));
    QCOMPARE(row.content, QStringLiteral("a、b"));
    QCOMPARE(row.path, QStringLiteral("/x/a；/y/b"));
    QCOMPARE(row.paths.size(), 2);
    QCOMPARE(row.port, 9900);
    QCOMPARE(row.permission, QStringLiteral("允许上传"));
    QCOMPARE(row.status, QStringLiteral("已过期"));
    QCOMPARE(row.time, QStringLiteral("03-09 23:59"));
    QCOMPARE(row.downloads, 7);
    QVERIFY(isExpired(row.state));
}

void TestFileShareRules::uniquePaths_data()
{
    QTest::addColumn<QStringList>("listed");
    QTest::addColumn<QStringList>("candidates");
    QTest::addColumn<QStringList>("expected");
    const auto list = [](const char *text) {
        const QString all = QString::fromUtf8(text);
        return all.isEmpty() ? QStringList() : all.split(QLatin1Char(' '));
    };
    QTest::newRow("order kept") << list("/a") << list("/c /b") << list("/c /b");
    QTest::newRow("listed") << list("/a /b") << list("/b /a /c") << list("/c");
    QTest::newRow("twice at once") << list("") << list("/a /a") << list("/a");
    QTest::newRow("same spelled otherwise")
        << list("/a/b") << list("/a/b/ /a//b /a/./b /a/c/../b") << list("");
    QTest::newRow("case differs") << list("/a") << list("/A") << list("/A");
    QTest::newRow("below one another") << list("/a") << list("/a/b") << list("/a/b");
    QTest::newRow("no path") << list("") << QStringList{QString(), QStringLiteral("rel/x")}
                             << list("");
    QTest::newRow("root") << list("") << list("/") << list("/");
}

void TestFileShareRules::uniquePaths()
{
    QFETCH(QStringList, listed);
    QFETCH(QStringList, candidates);
    QTEST(newPaths(listed, candidates), "expected");
}

void TestFileShareRules::droppedAddresses()
{
    const QList<QUrl> urls = {QUrl::fromLocalFile(QStringLiteral("/a b/é")),
                              QUrl(QStringLiteral("http://host/file")),
                              QUrl(QStringLiteral("file://server/share/x")),
                              QUrl(QStringLiteral("file:///c%20d")), QUrl()};
    QCOMPARE(localPaths(urls), (QStringList{QStringLiteral("/a b/é"), QStringLiteral("/c d")}));
}

void TestFileShareRules::findsPrivateFolders_data()
{
    QTest::addColumn<QString>("path"); // below the tree
    QTest::addColumn<QString>("folders");
    QTest::addColumn<bool>("isInside");

    const auto row = [](const char *path, const char *folders, bool isInside) {
        QTest::newRow(path) << QString::fromLatin1(path) << QString::fromLatin1(folders)
                            << isInside;
    };
    row("u/me", ".ssh .config/morvane", false);
    row("u", ".ssh .config/morvane", false); // around the home of the user
    row("u/me/", ".ssh .config/morvane", false);
    row("u/me/.config", ".config/morvane", false);
    row("u/me/.config/morvane", ".config/morvane", true);
    row("u/me/.ssh/id", ".ssh", true);
    row("u/me/pictures", "", false);
    row("u/me/missing", "", false);
    row("u/menu", "", false);
    row("backup", ".gnupg", false); // of another home
    row("backup/.gnupg/keys", ".gnupg", true);
    row("link", ".ssh .config/morvane", false);
    row("vault", ".morvane_vault", false);
    row("file-of-that-name", "", false);
}

void TestFileShareRules::findsPrivateFolders()
{
    QFETCH(QString, path);
    TempTree tree;
    tree.file("u/me/.ssh/id");
    tree.file("u/me/.config/morvane/fileshare.db");
    tree.file("u/me/pictures/a.jpg");
    tree.file("u/menu/a");
    tree.file("backup/.gnupg/keys");
    tree.file("vault/.morvane_vault/1.dat");
    tree.file("file-of-that-name/.ssh");
    tree.link("link", tree.path("u/me"));
    const PrivateContent content = privateContentOf(tree.path(path), tree.path("u/me"));
    QTEST(content.folders.join(QLatin1Char(' ')), "folders");
    QTEST(content.isInside, "isInside");
    if (content.isEmpty())
        return;
    const QString text = privateContentText({content});
    QVERIFY(text.contains(content.path));
    QCOMPARE(text.contains(QStringLiteral("会被拿到链接的人读取")), content.isInside);
}

void TestFileShareRules::pendingTexts_data()
{
    QTest::addColumn<QString>("shown");
    QTest::addColumn<QString>("expected");
    QTest::newRow("file") << pathRowText(QStringLiteral("/x/y.txt"))
                          << QStringLiteral("y.txt  —  /x/y.txt");
    QTest::newRow("percent") << pathRowText(QStringLiteral("/x/%2%1"))
                             << QStringLiteral("%2%1  —  /x/%2%1");
    QTest::newRow("root") << pathRowText(QStringLiteral("/")) << QStringLiteral("/  —  /");
    QTest::newRow("none") << pendingText(0, 0, 9800) << QStringLiteral("端口 9800");
    QTest::newRow("some") << pendingText(3, 0, 9800) << QStringLiteral("待共享 3 项 · 端口 9800");
    QTest::newRow("some again") << pendingText(3, 2, 9800)
                                << QStringLiteral("待共享 3 项 · 2 项已在列表中 · 端口 9800");
    QTest::newRow("no port") << pendingText(0, 0, 0) << QString();
}

void TestFileShareRules::pendingTexts()
{
    QFETCH(QString, shown);
    QTEST(shown, "expected");
}

void TestFileShareRules::linksAndOutcomes()
{
    QCOMPARE(linksText({QStringLiteral("http://1/"), QStringLiteral("http://2/")}),
             QStringLiteral("局域网内其他设备可通过以下地址访问共享文件：\nhttp://1/\nhttp://2/"));
    QVERIFY(linksText({}).contains(QStringLiteral("未检测到可用的局域网地址")));
    QCOMPARE(startedText(4, 0), QStringLiteral("已启动 4 项共享。"));
    QCOMPARE(startedText(1, 2), QStringLiteral("已启动 1 项共享，2 项启动失败。\n"
                                               "请检查共享端口是否被其他程序占用。"));
}

void TestFileShareRules::exposure_data()
{
    QTest::addColumn<bool>("hasPassword");
    QTest::addColumn<QString>("mode");
    QTest::addColumn<bool>("saysAnyone");
    QTest::addColumn<bool>("saysUpload");
    QTest::newRow("open, download") << false << "download" << true << false;
    QTest::newRow("open, upload") << false << "upload" << true << true;
    QTest::newRow("password, download") << true << "download" << false << false;
    QTest::newRow("password, upload") << true << "upload" << false << true;
}

void TestFileShareRules::exposure()
{
    QFETCH(bool, hasPassword);
    QFETCH(QString, mode);
    const QString text = exposureText(hasPassword, mode);
    QTEST(text.contains(QStringLiteral("任何人")), "saysAnyone");
    QTEST(text.contains(QStringLiteral("上传")), "saysUpload");
}

void TestFileShareRules::tips_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");
    QTest::newRow("plain") << "/a/b\n/c"
                           << "<qt>/a/b<br>/c</qt>";
    QTest::newRow("a name like markup") << "/<b>x</b>\n/y"
                                        << "<qt>/&lt;b&gt;x&lt;/b&gt;<br>/y</qt>";
}

void TestFileShareRules::tips()
{
    QFETCH(QString, text);
    QTEST(plainTip(text), "expected");
}

void TestFileShareRules::logWords_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("outcome");
    QTest::newRow("browse") << "browse" << QStringLiteral("浏览") << QStringLiteral("成功");
    QTest::newRow("download") << "download" << QStringLiteral("下载") << QStringLiteral("成功");
    QTest::newRow("auth_ok") << "auth_ok" << QStringLiteral("认证成功") << QStringLiteral("成功");
    QTest::newRow("auth_fail") << "auth_fail" << QStringLiteral("认证失败")
                               << QStringLiteral("失败");
    QTest::newRow("upload_ok") << "upload_ok" << QStringLiteral("上传成功")
                               << QStringLiteral("成功");
    QTest::newRow("upload_conflict")
        << "upload_conflict" << QStringLiteral("上传冲突") << QStringLiteral("冲突");
    QTest::newRow("upload_fail") << "upload_fail" << QStringLiteral("上传失败")
                                 << QStringLiteral("失败");
    QTest::newRow("unknown") << "later_word"
                             << "later_word" << QStringLiteral("成功");
}

void TestFileShareRules::logWords()
{
    QFETCH(QString, action);
    QTEST(actionText(action), "text");
    QTEST(outcomeText(outcomeOf(action)), "outcome");
}

void TestFileShareRules::paging_data()
{
    QTest::addColumn<int>("page");
    QTest::addColumn<int>("total");
    QTest::addColumn<int>("pages");
    QTest::addColumn<int>("shown");
    QTest::addColumn<QString>("text");
    QTest::newRow("empty") << 0 << 0 << 0 << 0 << "";
    QTest::newRow("one") << 0 << 1 << 1 << 0 << QStringLiteral("第 1 / 1 页，共 1 条");
    QTest::newRow("full page") << 0 << 15 << 1 << 0 << QStringLiteral("第 1 / 1 页，共 15 条");
    QTest::newRow("one more") << 1 << 16 << 2 << 1 << QStringLiteral("第 2 / 2 页，共 16 条");
    QTest::newRow("shrunk") << 5 << 31 << 3 << 2 << QStringLiteral("第 3 / 3 页，共 31 条");
    QTest::newRow("emptied") << 3 << 0 << 0 << 0 << "";
    QTest::newRow("below 0") << -1 << 20 << 2 << 0 << QStringLiteral("第 1 / 2 页，共 20 条");
}

void TestFileShareRules::paging()
{
    QFETCH(int, page);
    QFETCH(int, total);
    QTEST(pageCount(total), "pages");
    QTEST(clampedPage(page, total), "shown");
    QTEST(pageText(clampedPage(page, total), total), "text");
}

QTEST_GUILESS_MAIN(TestFileShareRules)
#include "tst_filesharerules.moc"
