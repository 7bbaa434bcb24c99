#include "support/shareharness.h"

#include <QtTest>

namespace {

constexpr int kPoolThreads = 2;

QByteArray loginRequest(const QByteArray &session, const QByteArray &form)
{
    return "POST /s/" + session +
           "/auth HTTP/1.1\r\nContent-Length: " + QByteArray::number(form.size()) + "\r\n\r\n" +
           form;
}

/// The token of a login's answer.
QByteArray cookieOf(const HttpReply &reply)
{
    return reply.headers.value("Set-Cookie").split(';').first();
}

} // namespace

class TestFileShareServer : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void answers_data();
    void answers();
    void writesHeadersInOrder();
    void listsRootsAndDirectories();
    void keepsNamesOutOfMarkup();
    void downloads_data();
    void downloads();
    void logsIn();
    void keepsNulBytes();
    void limitsTheHeader();
    void countsOpenRequests();
    void silentClientsHoldNobodyUp();
    void turnsAwayTooManySilentClients();
    void stopsWaitingWorkers();
    void outlivesItsController();

private:
    QScopedPointer<ShareHarness> m_share;
};

void TestFileShareServer::init()
{
    // As on the smallest machine: what waits must not need a thread of its own.
    QThreadPool::globalInstance()->setMaxThreadCount(kPoolThreads);
    m_share.reset(new ShareHarness);
    TempTree &tree = m_share->tree();
    tree.file("d/a.txt", "0123456789");
    tree.file("d/empty", "");
    tree.file("d/sub/b.txt", "b");
    tree.file("d/build..old/c.txt");
    tree.fifo("d/pipe");
    tree.file("secret.txt", "secret");
    tree.link("d/out", tree.path("secret.txt"));
    tree.file("d/.ssh/id", "secret");
    tree.file("d/sub/.hidden", "secret");
    tree.file(".shown/.x", "of a hidden root");

    ShareSession session = ShareHarness::session(QStringLiteral("s"));
    m_share->add(session);
    m_share->addRoot(session.id, QStringLiteral("d"), tree.path("d"));
    m_share->addRoot(session.id, QStringLiteral("f"), tree.path("d/a.txt"));
    m_share->addRoot(session.id, QStringLiteral("h"), tree.path(".shown/"));
    m_share->addRoot(session.id, QStringLiteral("gone"), tree.path("nothing"));
    m_share->addRoot(session.id, QStringLiteral("pipe"), tree.path("d/pipe"));
    session.id = QStringLiteral("pw");
    m_share->add(session, QStringLiteral("a+b 中"));
    m_share->addRoot(session.id, QStringLiteral("pwroot"), tree.path("d"));
    session.id = QStringLiteral("full");
    session.maxClients = 0;
    m_share->add(session, QStringLiteral("x"));
    session.maxClients = 1;
    session.id = QStringLiteral("one");
    m_share->add(session);
    session.id = QStringLiteral("stopped");
    session.status = QStringLiteral("stopped");
    m_share->add(session);
    session.id = QStringLiteral("old");
    session.expiresAt = 1;
    m_share->add(session);
}

void TestFileShareServer::cleanup()
{
    m_share.reset();
}

void TestFileShareServer::answers_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("text");

    const auto row = [](const char *request, int status, const char *text) {
        QTest::newRow(request) << QByteArray(request) << status << QByteArray(text);
    };
    row("GET /", 404, "未找到资源。");
    row("GET /favicon.ico", 404, "未找到资源。");
    row("BROKEN", 404, "未找到资源。");
    row("GET /s/", 400, "缺少共享标识。");
    row("GET /s//", 400, "缺少共享标识。");
    row("GET /s/none/", 404, "未找到该共享。");
    row("GET /s/old/", 410, "该共享已过期。");
    row("GET /s/stopped/", 410, "该共享已停止。");
    row("GET /s/full/", 503, "当前连接数过多，请稍后再试。");
    row("GET /s/full/auth", 503, "当前连接数过多，请稍后再试。");
    row("GET /s/pw/", 200, "此共享需要密码才能访问");
    row("GET /s/pw/pwroot/a.txt", 200, "此共享需要密码才能访问");
    row("GET /s/pw/api/upload-check/pwroot?name=x", 401,
        "{\"message\":\"需要先完成访问认证。\",\"ok\":false}");
    row("PUT /s/pw/upload/pwroot", 401, "需要先完成访问认证。");
    row("GET /s/s/auth", 200, "action='/s/s/auth'");
    row("GET /s/s", 200, "共享文件");
    row("GET /s/s/?x=1", 200, "共享文件");
    row("DELETE /s/s/", 200, "共享文件");
    row("GET /s/s/%2F", 400, "路径参数无效。");
    row("GET /s/s/nope", 404, "未找到资源。");
    row("GET /s/s/pwroot/", 404, "未找到资源。");
    row("GET /s/s/gone/", 404, "未找到资源。");
    row("GET /s/s/gone/x", 404, "未找到资源。");
    row("GET /s/s/pipe", 404, "未找到资源。");
    row("GET /s/s/f/x", 404, "未找到资源。");
    row("GET /s/s/f", 200, "0123456789");
    row("GET /s/s/d", 200, "/s/s/d/sub/");
    row("GET /s/s/d/sub", 200, "/s/s/d/sub/b.txt");
    row("GET /s/s/d/a.txt", 200, "0123456789");
    row("GET /s/s/d/pipe", 404, "未找到文件。");
    row("GET /s/s/d/nothing", 403, "拒绝访问。");
    row("GET /s/s/d/out", 403, "拒绝访问。");
    row("GET /s/s/d/build..old/", 403, "拒绝访问。");
    row("GET /s/s/d/../secret.txt", 403, "拒绝访问。");
    row("GET /s/s/d/%252e%252e/secret.txt", 403, "拒绝访问。");
    row("GET /s/s/d/.ssh/", 404, "未找到文件。");
    row("GET /s/s/d/.ssh/id", 404, "未找到文件。");
    row("GET /s/s/d/sub/.hidden", 404, "未找到文件。");
    row("GET /s/s/d/sub/%252ehidden", 404, "未找到文件。");
    row("GET /s/s/d/./.ssh/id", 404, "未找到文件。");
    row("GET /s/s/d/.none", 404, "未找到文件。"); // no telling whether it is there
    row("GET /s/s/d/./a.txt", 200, "0123456789");
    row("GET /s/s/h/.x", 200, "of a hidden root");
    row("GET /s/s/d/a.txt%00", 403, "拒绝访问。");
    row("GET /s/s/d/a.txt%2500", 403, "拒绝访问。");
}

void TestFileShareServer::answers()
{
    QFETCH(QByteArray, request);
    QFETCH(QByteArray, text);
    const HttpReply reply = m_share->request(request + " HTTP/1.1\r\n\r\n");
    QTEST(reply.status, "status");
    QVERIFY2(reply.body.contains(text), reply.body.constData());
    QCOMPARE(reply.headers.value("Content-Length").toInt(), reply.body.size());
    QVERIFY(!reply.body.contains("secret") || text.contains("sub"));
    QTRY_COMPARE(m_share->server().activeConnectionCount(), 0);
}

void TestFileShareServer::writesHeadersInOrder()
{
    HttpReply reply = m_share->get("/s/s/");
    QCOMPARE(reply.statusLine, QByteArray("HTTP/1.1 200 OK"));
    QList<QByteArray> lines = reply.headerLines;
    const QRegularExpression date(QStringLiteral(
        "^Date: [A-Z][a-z]{2}, \\d\\d [A-Z][a-z]{2} \\d{4} \\d\\d:\\d\\d:\\d\\d GMT$"));
    QVERIFY2(date.match(QString::fromLatin1(lines.value(2))).hasMatch(),
             lines.value(2).constData());
    lines.removeAt(2);
    QCOMPARE(lines,
             (QList<QByteArray>{"Content-Type: text/html; charset=utf-8",
                                "Content-Length: " + QByteArray::number(reply.body.size()),
                                "Cache-Control: no-store, no-cache, must-revalidate, max-age=0",
                                "Surrogate-Control: no-store", "Pragma: no-cache",
                                "Expires: Thu, 01 Jan 1970 00:00:00 GMT", "Vary: Cookie",
                                "Connection: close"}));

    reply = m_share->get("/nothing");
    QCOMPARE(reply.statusLine, QByteArray("HTTP/1.1 404 ???"));
    QVERIFY(reply.says("<title>未找到</title>"));
    QVERIFY(reply.says("expectedStatus = 404;"));

    reply = m_share->get("/s/s/f", "Range: bytes=2-5\r\n");
    QCOMPARE(reply.statusLine, QByteArray("HTTP/1.1 206 Partial Content"));
    QCOMPARE(reply.headerLines,
             (QList<QByteArray>{"Content-Type: text/plain; charset=utf-8", "Content-Length: 4",
                                "Content-Disposition: attachment; filename=\"a.txt\"; "
                                "filename*=UTF-8''a.txt",
                                "Accept-Ranges: bytes", "Content-Range: bytes 2-5/10",
                                "Connection: close"}));
    QTRY_COMPARE(m_share->log(QStringLiteral("s")),
                 (QStringList{QStringLiteral("browse /"), QStringLiteral("download a.txt")}));
}

void TestFileShareServer::listsRootsAndDirectories()
{
    HttpReply reply = m_share->get("/s/s/");
    QVERIFY(reply.says("<tr><td><a href='/s/s/d/'>&#128193; d</a></td><td>--</td><td>20"));
    QVERIFY(reply.says("<tr><td><a href='/s/s/f'>&#128196; f</a></td><td>10 B</td><td>20"));
    QVERIFY(reply.says("<tr><td><a href='/s/s/gone'>&#128196; gone</a></td><td>0 B</td><td></td>"));
    QVERIFY(!reply.says("class='remain'") && !reply.says("仅下载"));

    ShareSession session = ShareHarness::session(QStringLiteral("timed"));
    session.accessMode = QStringLiteral("upload");
    session.expiresAt = QDateTime::currentMSecsSinceEpoch() + 360000000 + 59500; // 100 h, 59.5 s
    m_share->add(session);
    m_share->addRoot(session.id, QStringLiteral("t"), m_share->tree().path("d"));
    reply = m_share->get("/s/timed/");
    QVERIFY2(reply.says("<span class='remain'>剩余时间: 100:00:5"), reply.body.constData());
    QVERIFY(reply.says("</a> 提供支持 &middot; 剩余 允许上传</footer>"));

    reply = m_share->get("/s/timed/t/sub/");
    QVERIFY2(reply.says("<a href='/s/timed/'>首页</a> / <a href='/s/timed/t/'>t</a> / "
                        "<a href='/s/timed/t/sub/'>sub</a>"),
             reply.body.constData());
    QVERIFY(
        reply.says("<tr><td><a href='/s/timed/t/'>&#11013; ..</a></td><td></td><td></td></tr>"));
    QVERIFY(reply.says("data-check='/s/timed/api/upload-check/t/sub' "
                       "data-put='/s/timed/upload/t/sub'"));
    QTRY_COMPARE(m_share->log(QStringLiteral("timed")),
                 (QStringList{QStringLiteral("browse /"), QStringLiteral("browse t/sub/")}));
}

void TestFileShareServer::keepsNamesOutOfMarkup()
{
    const char hostile[] = "</script><b>'\"&%1{{name}} Morvane\n";
    TempTree &tree = m_share->tree();
    tree.file(QStringLiteral("odd/") +
              QString::fromUtf8(hostile).replace(QLatin1Char('/'), QLatin1Char('_')));
    m_share->addRoot(QStringLiteral("s"), QStringLiteral("odd"), tree.path("odd"),
                     QString::fromUtf8(hostile));
    for (const char *target : {"/s/s/", "/s/s/odd/"}) {
        const HttpReply reply = m_share->get(target);
        QCOMPARE(reply.status, 200);
        QVERIFY(!reply.says("<b>"));
        QVERIFY(reply.says("&lt;b&gt;&#39;&quot;&amp;%1{{name}} Morvane"));
        QCOMPARE(reply.body.count("<a href='https"), 1); // the footer's
    }
    const HttpReply reply =
        m_share->get("/s/s/odd/%3C_script%3E%3Cb%3E%27%22%26%251%7B%7Bname%7D%7D%20Morvane%0A");
    QCOMPARE(reply.status, 403); // the second decoding takes "%1{" apart

    const QString name = QStringLiteral("a\"b\r\nX-Evil: 1.txt");
    tree.file(QStringLiteral("odd/") + name);
    const HttpReply file = m_share->get("/s/s/odd/a%22b%0D%0AX-Evil%3A%201.txt");
    QCOMPARE(file.status, 200);
    QCOMPARE(file.headers.value("Content-Disposition"),
             QByteArray("attachment; filename=\"a_b__X-Evil: 1.txt\"; "
                        "filename*=UTF-8''a%22b%0D%0AX-Evil%3A%201.txt"));
}

void TestFileShareServer::downloads_data()
{
    QTest::addColumn<QByteArray>("range");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("length");
    QTest::addColumn<int>("from"); // of the file's bytes that arrive
    QTest::addColumn<int>("count");

    const int size = 200000;
    const auto row = [](const char *range, int status, const char *length, int from, int count) {
        QTest::newRow(range) << QByteArray(range) << status << QByteArray(length) << from << count;
    };
    row("", 200, "200000", 0, size);
    row("bytes=65535-65536", 206, "2", 65535, 2);
    row("bytes=100-", 206, "199900", 100, size - 100);
    row("bytes=-70000", 206, "70000", size - 70000, 70000);
    row("bytes=-300000", 200, "200000", 0, size);
    row("bytes=150000-999999", 200, "200000", 150000, 50000);
    row("bytes=999999-", 200, "200000", 0, 0);
    row("bytes=0-1,5-6", 200, "200000", 0, size);
}

void TestFileShareServer::downloads()
{
    QByteArray content(200000, Qt::Uninitialized);
    for (int i = 0; i < content.size(); ++i)
        content[i] = static_cast<char>(i * 31 / 7);
    m_share->tree().file("d/big.bin", content);
    QFETCH(QByteArray, range);
    QFETCH(int, from);
    QFETCH(int, count);
    const HttpReply reply = m_share->get("/s/s/d/big.bin", "Range: " + range + "\r\n");
    QTEST(reply.status, "status");
    QTEST(reply.headers.value("Content-Length"), "length");
    QCOMPARE(reply.body.size(), count);
    QVERIFY(reply.body == content.mid(from, count));
    QTRY_COMPARE(m_share->log(QStringLiteral("s")),
                 QStringList(QStringLiteral("download big.bin")));
}

void TestFileShareServer::logsIn()
{
    const QByteArray right = "other=1&password=a+b%20%E4%B8%AD";
    HttpReply reply = m_share->request(loginRequest("pw", "password=wrong"));
    QCOMPARE(reply.status, 200);
    QVERIFY(reply.says("<p class='err'>密码错误，请重试</p>"));
    QCOMPARE(m_share->request(loginRequest("s", right)).status, 200); // no password, no login
    QCOMPARE(m_share->request(loginRequest("pw", right + '\0')).status, 200);

    // A form in pieces.
    ShareClient client(m_share->port());
    const QByteArray request = loginRequest("pw", right);
    for (const int from : {0, 20, request.size() - 10}) {
        client.send(request.mid(from, from == 0 ? 20 : from == 20 ? request.size() - 30 : 10));
        QTest::qWait(20); // apart, so that each is a segment of its own
    }
    reply = client.reply();
    QCOMPARE(reply.statusLine, QByteArray("HTTP/1.1 302 Found"));
    QCOMPARE(reply.headers.value("Location"), QByteArray("/s/pw/"));
    QVERIFY(reply.headers.value("Set-Cookie").endsWith("; Path=/s/pw; HttpOnly"));
    const QByteArray first = cookieOf(reply);

    const auto isOpen = [this](const QByteArray &cookie) {
        return m_share->get("/s/pw/", "Cookie: " + cookie + "\r\n").says("pwroot");
    };
    QVERIFY(isOpen(first));
    QVERIFY(isOpen("other=1; " + first));
    QVERIFY(!isOpen("sess="));
    QVERIFY(!isOpen("sess=; " + first)); // the first one counts
    QVERIFY(!isOpen(first + "0"));
    QVERIFY(!isOpen(first + '\0'));
    // The login of one share opens no other.
    ShareSession other = ShareHarness::session(QStringLiteral("pw2"));
    m_share->add(other, QStringLiteral("a+b 中"));
    m_share->addRoot(other.id, QStringLiteral("otherroot"), m_share->tree().path("d"));
    const auto otherIsOpen = [this](const QByteArray &cookie) {
        return m_share->get("/s/pw2/", "Cookie: " + cookie + "\r\n").says("otherroot");
    };
    QVERIFY(!otherIsOpen(first));
    QVERIFY(otherIsOpen(cookieOf(m_share->request(loginRequest("pw2", right)))));
    QVERIFY(!otherIsOpen(first) && isOpen(first));
    const QByteArray second = cookieOf(m_share->request(loginRequest("pw", right)));
    QVERIFY(first != second);
    QVERIFY(!isOpen(first));
    QVERIFY(isOpen(second));
    m_share->server().invalidateSessionAuth(QStringLiteral("pw"));
    QVERIFY(!isOpen(second));
    QTRY_COMPARE(m_share->log(QStringLiteral("pw")).filter(QStringLiteral("auth")),
                 (QStringList{QStringLiteral("auth_fail "), QStringLiteral("auth_fail "),
                              QStringLiteral("auth_ok "), QStringLiteral("auth_ok ")}));
}

void TestFileShareServer::keepsNulBytes()
{
    const QByteArray nul(1, '\0');
    QCOMPARE(m_share->get("/s/s/d/a.txt" + nul + ".png").status, 403);
    QCOMPARE(m_share->get("/s/s/d" + nul + "/a.txt").status, 404);
    QCOMPARE(m_share->get("/s/s" + nul + "/").status, 404);
    QCOMPARE(m_share->get(nul + "/s/s/").status, 404);
}

void TestFileShareServer::limitsTheHeader()
{
    HttpReply reply = m_share->request("GET /" + QByteArray(70000, 'a'));
    QCOMPARE(reply.status, 431);
    QVERIFY(reply.says("请求头超过允许大小。"));
    reply = m_share->request("GET /s/s/ HTTP/1.1\r\nA: " + QByteArray(60000, 'a') + "\r\n\r\n");
    QCOMPARE(reply.status, 200);

    m_share->limits().headerMs = 400;
    ShareClient endless(m_share->port());
    QElapsedTimer clock;
    clock.start();
    QTimer drip; // as if the header were on its way
    connect(&drip, &QTimer::timeout, &endless.socket(), [&endless] { endless.send("A"); });
    drip.start(50);
    QVERIFY(endless.waitForClose(10000));
    drip.stop();
    QVERIFY(clock.elapsed() >= 400);
    QCOMPARE(endless.reply(0).status, 0);
    QCOMPARE(m_share->request("GET /s/s/ HTTP/1.1\n\n").status, 0); // never ends its header
}

void TestFileShareServer::countsOpenRequests()
{
    QFile big(m_share->tree().path("big"));
    QVERIFY(big.open(QIODevice::WriteOnly) && big.resize(64 << 20));
    m_share->addRoot(QStringLiteral("one"), QStringLiteral("big"), big.fileName());
    ShareClient reader(m_share->port());
    reader.socket().setReadBufferSize(1000);
    reader.send("GET /s/one/big HTTP/1.1\r\n\r\n");
    QVERIFY(reader.waitForBytes(1000));
    QCOMPARE(m_share->get("/s/one/").status, 503);
    QTRY_COMPARE(m_share->context().waiters.loadAcquire(), 1); // stalled, without a slot
    reader.socket().abort();
    QTRY_COMPARE(m_share->server().activeConnectionCount(), 0);
    QCOMPARE(m_share->get("/s/one/").status, 200);
    QTRY_VERIFY(m_share->log(QStringLiteral("one")).contains(QStringLiteral("download big")));

    m_share->server().removeActiveSession(QStringLiteral("one"));
    m_share->server().purgeInactiveSessionCounters();
    QVERIFY(!m_share->context().sessionCounters.contains(QStringLiteral("one")));
    QVERIFY(m_share->context().sessionCounters.contains(QStringLiteral("s")));
}

void TestFileShareServer::silentClientsHoldNobodyUp()
{
    constexpr int kDripping = 6 * kPoolThreads; // enough that one is always at it
    constexpr int kAll = kDripping + 3 * kPoolThreads;
    QFile big(m_share->tree().path("d/big"));
    QVERIFY(big.open(QIODevice::WriteOnly) && big.resize(64 << 20));
    std::vector<std::unique_ptr<ShareClient>> silent;
    QTimer drip; // headers that never end
    drip.setTimerType(Qt::PreciseTimer);
    drip.start(1);
    QElapsedTimer clock;
    clock.start();
    for (int i = 0; i < kAll; ++i) {
        silent.push_back(std::make_unique<ShareClient>(m_share->port()));
        ShareClient *client = silent.back().get();
        if (i < kDripping)
            connect(&drip, &QTimer::timeout, &client->socket(), [client] { client->send("A"); });
        if (i % 2 == 0 || i < kDripping)
            continue;
        client->socket().setReadBufferSize(1000);
        client->send("GET /s/s/d/big HTTP/1.1\r\n\r\n");
        QVERIFY(client->waitForBytes(1000));
    }
    QCOMPARE(m_share->get("/s/s/f").body, QByteArray("0123456789"));
    QVERIFY(clock.elapsed() < 5000);
    drip.stop();
    QTRY_COMPARE(m_share->context().waiters.loadAcquire(), kAll);
    silent.clear();
    QTRY_COMPARE(m_share->context().waiters.loadAcquire(), 0);
}

void TestFileShareServer::turnsAwayTooManySilentClients()
{
    m_share->context().maxWaiters = 2;
    m_share->limits().crowdedWaitMs = 200;
    QFile big(m_share->tree().path("d/big"));
    QVERIFY(big.open(QIODevice::WriteOnly) && big.resize(64 << 20));
    ShareClient first(m_share->port());
    ShareClient second(m_share->port());
    QTRY_COMPARE(m_share->context().waiters.loadAcquire(), 2);
    ShareClient third(m_share->port());
    QVERIFY(third.waitForClose(5000));
    QCOMPARE(third.reply(0).status, 0);
    QCOMPARE(m_share->get("/s/s/f").status, 200);

    std::vector<std::unique_ptr<ShareClient>> stalled; // one for every thread
    for (int i = 0; i < kPoolThreads; ++i) {
        stalled.push_back(std::make_unique<ShareClient>(m_share->port()));
        stalled.back()->socket().setReadBufferSize(1000);
        stalled.back()->send("GET /s/s/d/big HTTP/1.1\r\n\r\n");
    }
    QTRY_COMPARE(m_share->log(QStringLiteral("s")).count(QStringLiteral("download big")),
                 kPoolThreads);
    QCOMPARE(m_share->get("/s/s/f").status, 200);
    first.send("GET /s/s/f HTTP/1.1\r\n\r\n");
    QCOMPARE(first.reply().status, 200);
}

void TestFileShareServer::stopsWaitingWorkers()
{
    QFile big(m_share->tree().path("d/big"));
    QVERIFY(big.open(QIODevice::WriteOnly) && big.resize(64 << 20));
    const int port = m_share->port();
    FileShareServer &server = m_share->server();
    ShareClient idle(port);
    ShareClient reader(port);
    reader.socket().setReadBufferSize(1000);
    reader.send("GET /s/s/d/big HTTP/1.1\r\n\r\n");
    QVERIFY(reader.waitForBytes(1000));
    QTRY_COMPARE(server.activeConnectionCount(), 2);

    QSignalSpy complete(&server, &FileShareServer::shutdownComplete);
    QElapsedTimer clock;
    clock.start();
    server.shutdownAsync(10000);
    server.shutdownAsync(10000);
    QVERIFY(!server.isListening());
    QTRY_COMPARE(complete.count(), 1);
    QVERIFY(clock.elapsed() < 8000); // 10 s are the limit
    QVERIFY(m_share->context().sessionCounters.isEmpty());
    QTRY_COMPARE(m_share->log(QStringLiteral("s")), QStringList(QStringLiteral("download big")));

    QVERIFY(server.startListening(port));
    QVERIFY(server.startListening(port));
    QVERIFY(!server.startListening(port + 1));
    QCOMPARE(m_share->get("/s/s/f").status, 200);
    QTRY_COMPARE(server.activeConnectionCount(), 0);
    server.shutdownAsync(10000);
    QCOMPARE(complete.count(), 2); // nothing to wait for
    server.shutdownSync(1000);
    QCOMPARE(complete.count(), 2);
}

void TestFileShareServer::outlivesItsController()
{
    ShareClient waiting(m_share->port());
    QTRY_COMPARE(m_share->server().activeConnectionCount(), 1);
    m_share->dropController();
    waiting.send("GET /s/old/ HTTP/1.1\r\n\r\n");
    QCOMPARE(waiting.reply().status, 410);
}

QTEST_GUILESS_MAIN(TestFileShareServer)
#include "tst_fileshareserver.moc"
