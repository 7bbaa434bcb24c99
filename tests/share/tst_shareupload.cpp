#include "share/sharedentry.h"
#include "share/uploadfile.h"
#include "support/shareharness.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>

Q_DECLARE_METATYPE(share::UploadFile::Storage)

namespace {

QByteArray put(const QByteArray &place, const QByteArray &headers, const QByteArray &body)
{
    return "PUT /s/up/upload/" + place + " HTTP/1.1\r\n" + headers + "\r\n" + body;
}

QByteArray putFile(const QByteArray &name, const QByteArray &body, bool overwrite = false)
{
    return put("d",
               "X-File-Name: " + name + "\r\nX-Overwrite: " + (overwrite ? "1" : "0") +
                   "\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n",
               body);
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(none)");
}

QString messageOf(const HttpReply &reply)
{
    return QJsonDocument::fromJson(reply.body).object().value(QStringLiteral("message")).toString();
}

} // namespace

class TestShareUpload : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void refuses_data();
    void refuses();
    void checks();
    void stores();
    void fileAppearsWhole_data();
    void fileAppearsWhole();
    void breaksAtAnyByte();
    void givesUpOnSilence();
    void stopsWithTheServer();
    void survivesAFullDisk_data();
    void survivesAFullDisk();
    void answersWhoStillSends();
    void oneOfTwoWins();

private:
    QStringList filesOfTarget() const;
    QString target(const char *name) const
    {
        return m_share->tree().path("d/") + QLatin1String(name);
    }
    QStringList log() const { return m_share->log(QStringLiteral("up")); }

    QScopedPointer<ShareHarness> m_share;
};

void TestShareUpload::init()
{
    m_share.reset(new ShareHarness);
    TempTree &tree = m_share->tree();
    tree.file("d/old.txt", "old");
    tree.file("d/sub/x");
    tree.fifo("d/pipe");
    tree.file("outside.txt", "outside");
    tree.file("d/.hidden/x");
    tree.file("d/.profile", "mine");
    tree.link("d/link", tree.path("outside.txt"));
    tree.link("d/dead", tree.path("made-by-upload"));
    tree.link("d/dirlink", tree.path());
    ShareSession session = ShareHarness::session(QStringLiteral("up"));
    session.accessMode = QStringLiteral("upload");
    m_share->add(session);
    m_share->addRoot(session.id, QStringLiteral("d"), tree.path("d"));
    m_share->addRoot(session.id, QStringLiteral("f"), tree.path("d/old.txt"));
    session = ShareHarness::session(QStringLiteral("down"));
    m_share->add(session);
    m_share->addRoot(session.id, QStringLiteral("x"), tree.path("d"));
}

QStringList TestShareUpload::filesOfTarget() const
{
    return QDir(m_share->tree().path("d"))
        .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

void TestShareUpload::refuses_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("logged"); // empty: nothing

    const auto row = [](const char *name, const QByteArray &request, int status,
                        const char *message, const char *logged = "") {
        QTest::newRow(name) << request << status << QString::fromUtf8(message)
                            << QString::fromUtf8(logged);
    };
    const auto check = [](const QByteArray &place) {
        return "GET /s/up/api/upload-check/" + place + " HTTP/1.1\r\n\r\n";
    };
    row("check, method", "POST /s/up/api/upload-check/d?name=a HTTP/1.1\r\n\r\n", 405,
        "不支持的请求方法。");
    row("check, not allowed", "GET /s/down/api/upload-check/x?name=a HTTP/1.1\r\n\r\n", 403,
        "当前共享未开启上传权限。");
    row("check, no root", check("?name=a"), 400, "上传目录参数无效。");
    row("check, no name", check("d"), 400, "文件名无效。");
    row("check, bad name", check("d?name=..%2Fa"), 400, "文件名无效。");
    row("check, other root", check("x?name=a"), 404, "未找到共享目录。");
    row("check, file root", check("f?name=a"), 400, "当前共享项不是目录，无法上传。");
    row("check, outside", check("d/dirlink?name=a"), 403, "目标目录超出共享范围。");
    row("check, no directory", check("d/old.txt?name=a"), 404, "目标目录不存在。");
    row("check, directory", check("d?name=sub"), 409, "当前目录中已有同名文件夹，无法覆盖。");
    row("check, link", check("d?name=link"), 403, "目标目录超出共享范围。");

    const QByteArray one = "X-File-Name: a\r\nContent-Length: 1\r\n";
    row("method", "GET /s/up/upload/d HTTP/1.1\r\n\r\n", 405, "不支持的请求方法。");
    row("not allowed", "PUT /s/down/upload/x HTTP/1.1\r\n" + one + "\r\n1", 403,
        "当前共享未开启上传权限。"); // logged in the other session
    row("chunked", put("d", "Transfer-Encoding: gzip, Chunked\r\n" + one, "1"), 400,
        "暂不支持分块上传。", "upload_fail chunked_upload");
    row("no length", put("d", "X-File-Name: a\r\n", ""), 411, "缺少有效的 Content-Length。",
        "upload_fail missing_length");
    row("negative length", put("d", "X-File-Name: a\r\nContent-Length: -1\r\n", ""), 411,
        "缺少有效的 Content-Length。", "upload_fail missing_length");
    row("no root", put("", one, "1"), 400, "上传目录参数无效。", "upload_fail invalid_path");
    row("other root", put("x", one, "1"), 404, "未找到共享目录。", "upload_fail root_not_found");
    row("file root", put("f", one, "1"), 400, "当前共享项不是目录，无法上传。",
        "upload_fail root_not_dir");
    row("outside", put("d/..", one, "1"), 403, "目标目录超出共享范围。",
        "upload_fail path_forbidden");
    row("linked outside", put("d/dirlink", one, "1"), 403, "目标目录超出共享范围。",
        "upload_fail path_forbidden");
    row("nul", put("d/sub%00", one, "1"), 403, "目标目录超出共享范围。",
        "upload_fail path_forbidden");
    row("no directory", put("d/old.txt", one, "1"), 404, "目标目录不存在。",
        "upload_fail dir_not_found");
    row("no name", put("d", "Content-Length: 1\r\n", "1"), 400, "文件名无效。",
        "upload_fail invalid_file_name");
    row("name with slash", putFile("..%2Fx", "1"), 400, "文件名无效。",
        "upload_fail invalid_file_name");
    row("name with nul", putFile("a%00", "1"), 400, "文件名无效。",
        "upload_fail invalid_file_name");
    row("name with raw nul", putFile(QByteArray("nul\0name.txt", 12), "1"), 400, "文件名无效。",
        "upload_fail invalid_file_name");
    row("check, raw nul", check(QByteArray("d?name=nul\0name.txt", 19)), 400, "文件名无效。");
    row("check, nul", check("d?name=nul%00name.txt"), 400, "文件名无效。");
    row("check, hidden directory", check("d/.hidden?name=a"), 404, "目标目录不存在。");
    row("check, hidden name", check("d?name=.profile"), 404, "不能上传以“.”开头的隐藏文件。");
    row("hidden directory", put("d/.hidden", one, "1"), 404, "目标目录不存在。",
        "upload_fail dir_not_found");
    row("hidden name", putFile(".profile", "1", true), 404, "不能上传以“.”开头的隐藏文件。",
        "upload_fail hidden_name");
    row("new hidden name", putFile(".new", "1"), 404, "不能上传以“.”开头的隐藏文件。",
        "upload_fail hidden_name");
    row("directory", putFile("sub", "1", true), 409, "当前目录中已有同名文件夹，无法覆盖。",
        "upload_conflict sub");
    row("taken", putFile("old.txt", "1"), 409, "当前目录已存在同名文件，请确认是否覆盖。",
        "upload_conflict old.txt");
    row("link", putFile("link", "1", true), 403, "目标目录超出共享范围。", "upload_fail link");
    row("dead link", putFile("dead", "1"), 403, "目标目录超出共享范围。", "upload_fail dead");
    row("pipe", putFile("pipe", "1", true), 500, "无法写入目标文件。", "upload_fail pipe");
    row("no room", put("d/sub", "X-File-Name: a\r\nContent-Length: 9223372036854775807\r\n", "1"),
        507, "目标磁盘剩余空间不足，无法完成上传。", "upload_fail sub/a");
}

void TestShareUpload::refuses()
{
    QFETCH(QByteArray, request);
    QFETCH(QString, logged);
    const QStringList before = filesOfTarget();
    const HttpReply reply = m_share->request(request);
    QTEST(reply.status, "status");
    QTEST(messageOf(reply), "message");
    if (reply.status == 405)
        QCOMPARE(reply.headers.value("Allow"),
                 QByteArray(request.startsWith("POST") ? "GET" : "PUT"));
    QTRY_COMPARE(m_share->server().activeConnectionCount(), 0);
    QTRY_COMPARE(log(), logged.isEmpty() ? QStringList() : QStringList(logged));
    QCOMPARE(filesOfTarget(), before);
    QCOMPARE(contentOf(target("old.txt")), QByteArray("old"));
    QCOMPARE(contentOf(target(".profile")), QByteArray("mine"));
    QCOMPARE(contentOf(m_share->tree().path("outside.txt")), QByteArray("outside"));
    QVERIFY(!QFileInfo::exists(m_share->tree().path("made-by-upload")));
}

void TestShareUpload::checks()
{
    HttpReply reply = m_share->get("/s/up/api/upload-check/d?name=new.txt");
    QCOMPARE(reply.status, 200);
    QCOMPARE(reply.body, QByteArray("{\"exists\":false,\"isDirectory\":false,\"lastModified\":0,"
                                    "\"ok\":true,\"size\":0}"));
    reply = m_share->get("/s/up/api/upload-check/d?name=%20old.txt%20");
    const QJsonObject object = QJsonDocument::fromJson(reply.body).object();
    QCOMPARE(object.value(QStringLiteral("exists")).toBool(), true);
    QCOMPARE(object.value(QStringLiteral("size")).toInt(), 3);
    QCOMPARE(object.value(QStringLiteral("lastModified")).toDouble(),
             double(QFileInfo(target("old.txt")).lastModified().toMSecsSinceEpoch()));
    QCOMPARE(reply.headers.value("Content-Type"), QByteArray("application/json; charset=utf-8"));
}

void TestShareUpload::stores()
{
    const QByteArray big(300000, 'b');
    HttpReply reply = m_share->request(putFile("%E6%96%B0.txt", big));
    QCOMPARE(reply.statusLine, QByteArray("HTTP/1.1 201 Created"));
    QCOMPARE(QString::fromUtf8(reply.body),
             QStringLiteral("{\"fileName\":\"新.txt\",\"message\":\"上传成功\",\"ok\":true,"
                            "\"overwritten\":false}"));
    QCOMPARE(contentOf(m_share->tree().path("d/新.txt")), big);
    QCOMPARE(m_share->request(putFile("empty", "")).status, 201);
    QCOMPARE(contentOf(target("empty")), QByteArray());
    QCOMPARE(m_share->request(putFile(":x", "1")).status, 201);
    QCOMPARE(contentOf(target(":x")), QByteArray("1"));

    QCOMPARE(::chmod(QFile::encodeName(target("old.txt")).constData(), 0652), 0);
    reply = m_share->request(putFile("old.txt", "new and more", true) + "beyond");
    QCOMPARE(reply.status, 200);
    QVERIFY(reply.says("\"message\":\"文件已覆盖\",\"ok\":true,\"overwritten\":true"));
    QCOMPARE(contentOf(target("old.txt")), QByteArray("new and more"));
    struct stat status;
    QCOMPARE(::stat(QFile::encodeName(target("old.txt")).constData(), &status), 0);
    QCOMPARE(int(status.st_mode & 07777), 0652);
    m_share->tree().dir(".inbox");
    m_share->addRoot(QStringLiteral("up"), QStringLiteral("h"), m_share->tree().path(".inbox"));
    const QByteArray hidden = "X-File-Name: .y\r\nContent-Length: 1\r\n";
    QCOMPARE(m_share->request(put("h", hidden, "1")).status, 201);
    QCOMPARE(contentOf(m_share->tree().path(".inbox/.y")), QByteArray("1"));
    QCOMPARE(m_share->request(put("d/sub/", "X-File-Name: y\r\nContent-Length: 1\r\n", "1")).status,
             201);
    QTRY_COMPARE(log(),
                 (QStringList{QStringLiteral("upload_ok 新.txt"), QStringLiteral("upload_ok empty"),
                              QStringLiteral("upload_ok :x"), QStringLiteral("upload_ok old.txt"),
                              QStringLiteral("upload_ok .y"), QStringLiteral("upload_ok sub/y")}));
}

void TestShareUpload::fileAppearsWhole_data()
{
    QTest::addColumn<share::UploadFile::Storage>("storage");
    QTest::newRow("without a name") << share::UploadFile::Storage::Unnamed;
    QTest::newRow("with a hidden name") << share::UploadFile::Storage::HiddenName;
}

void TestShareUpload::fileAppearsWhole()
{
    QFETCH(share::UploadFile::Storage, storage);
    const QStringList before = filesOfTarget();
    const share::SharedEntry directory = share::SharedEntry::root(m_share->tree().path("d"));
    const auto receive = [&](const char *name, bool commits) {
        share::UploadFile file(directory.descriptor(), storage);
        const bool received = file.open(0600) && file.write("new", 3);
        // Neither listed nor served meanwhile.
        const QByteArray page = m_share->get("/s/down/x/").body;
        return received && page.contains("old.txt") && !page.contains("morvane-upload") &&
               (!commits || file.commit(name));
    };
    QVERIFY(receive("old.txt", false));
    QCOMPARE(filesOfTarget(), before);
    QCOMPARE(contentOf(target("old.txt")), QByteArray("old"));
    QVERIFY(receive("old.txt", true));
    QCOMPARE(filesOfTarget(), before);
    QCOMPARE(contentOf(target("old.txt")), QByteArray("new"));
    QVERIFY(!receive("sub", true)); // a directory is never replaced
    QCOMPARE(filesOfTarget(), before);
    QVERIFY(receive("new.txt", true));
    QCOMPARE(contentOf(target("new.txt")), QByteArray("new"));
}

void TestShareUpload::breaksAtAnyByte()
{
    const QStringList before = filesOfTarget();
    const QByteArray body(150000, 'n');
    const QByteArray whole = putFile("old.txt", body, true);
    const int header = whole.size() - body.size();
    int broken = 0;
    for (const int sent : {0, 1, 8191, 65536, 149999}) {
        ShareClient client(m_share->port());
        client.send(whole.left(header + sent));
        while (client.socket().bytesToWrite() > 0)
            QVERIFY(client.socket().waitForBytesWritten());
        client.socket().disconnectFromHost();
        ++broken;
        QTRY_COMPARE(log().size(), broken);
        QTRY_COMPARE(m_share->server().activeConnectionCount(), 0);
        QCOMPARE(filesOfTarget(), before);
        QCOMPARE(contentOf(target("old.txt")), QByteArray("old"));
    }
    QCOMPARE(log().filter(QStringLiteral("upload_fail old.txt")).size(), broken);
}

void TestShareUpload::givesUpOnSilence()
{
    m_share->limits().uploadSilenceMs = 200;
    const QStringList before = filesOfTarget();
    QByteArray request = putFile("new.txt", "12345");
    request.chop(1);
    const HttpReply reply = m_share->request(request);
    QCOMPARE(reply.status, 408);
    QCOMPARE(messageOf(reply), QStringLiteral("上传连接超时，请重试。"));
    QTRY_COMPARE(m_share->server().activeConnectionCount(), 0);
    QCOMPARE(filesOfTarget(), before);
}

void TestShareUpload::stopsWithTheServer()
{
    const QStringList before = filesOfTarget();
    QByteArray request = putFile("old.txt", QByteArray(100000, 'n'), true);
    request.chop(1);
    ShareClient client(m_share->port());
    client.send(request);
    QTRY_COMPARE(m_share->context().waiters.loadAcquire(), 1);
    m_share->server().shutdownSync(3000);
    QCOMPARE(m_share->server().activeConnectionCount(), 0);
    const HttpReply reply = client.reply();
    QCOMPARE(reply.status, 503);
    QCOMPARE(messageOf(reply), QStringLiteral("服务正在停止，请稍后重试。"));
    QCOMPARE(filesOfTarget(), before);
    QCOMPARE(contentOf(target("old.txt")), QByteArray("old"));
}

void TestShareUpload::survivesAFullDisk_data()
{
    QTest::addColumn<int>("size");
    QTest::newRow("early") << (8 << 20);
    QTest::newRow("in the last bytes") << (4 << 20) + 1;
}

/// A limit on the size of files stands for the disk.
void TestShareUpload::survivesAFullDisk()
{
    QFETCH(int, size);
    const QStringList before = filesOfTarget();
    rlimit old{};
    QCOMPARE(::getrlimit(RLIMIT_FSIZE, &old), 0);
    rlimit small = old;
    small.rlim_cur = 4 << 20;
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    QCOMPARE(::setrlimit(RLIMIT_FSIZE, &small), 0);
    const HttpReply reply = m_share->request(putFile("old.txt", QByteArray(size, 'n'), true));
    ::setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, oldHandler);
    QCOMPARE(reply.status, 500);
    QVERIFY(!messageOf(reply).isEmpty());
    QTRY_COMPARE(m_share->server().activeConnectionCount(), 0);
    QCOMPARE(filesOfTarget(), before);
    QCOMPARE(contentOf(target("old.txt")), QByteArray("old"));
}

/// A client that reads only after it has sent everything still sees why it was refused.
void TestShareUpload::answersWhoStillSends()
{
    ShareClient client(m_share->port());
    client.send(putFile("old.txt", QByteArray(32 << 20, 'n')));
    const HttpReply reply = client.reply();
    QCOMPARE(reply.status, 409);
    QCOMPARE(messageOf(reply), QStringLiteral("当前目录已存在同名文件，请确认是否覆盖。"));
    QCOMPARE(client.socket().bytesToWrite(), 0);

    m_share->limits().disconnectMs = 300;
    ShareClient endless(m_share->port());
    QByteArray request = putFile("old.txt", "12345");
    request.chop(1);
    endless.send(request);
    QVERIFY(endless.waitForClose(3000));
    QCOMPARE(endless.reply(0).status, 409);
}

void TestShareUpload::oneOfTwoWins()
{
    const QStringList before = filesOfTarget();
    const QByteArray first(400000, '1');
    const QByteArray second(300000, '2');
    ShareClient one(m_share->port());
    ShareClient two(m_share->port());
    const QByteArray firstRequest = putFile("old.txt", first, true);
    const QByteArray secondRequest = putFile("old.txt", second, true);
    one.send(firstRequest.left(200000));
    two.send(secondRequest.left(200000));
    QTRY_COMPARE(m_share->context().waiters.loadAcquire(), 2);
    QCOMPARE(contentOf(target("old.txt")), QByteArray("old"));
    two.send(secondRequest.mid(200000));
    QCOMPARE(two.reply().status, 200);
    QVERIFY(contentOf(target("old.txt")) == second);
    one.send(firstRequest.mid(200000));
    QCOMPARE(one.reply().status, 200);
    QVERIFY(contentOf(target("old.txt")) == first);
    QCOMPARE(filesOfTarget(), before);
}

QTEST_GUILESS_MAIN(TestShareUpload)
#include "tst_shareupload.moc"
