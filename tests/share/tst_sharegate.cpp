#include "share/httprequest.h"
#include "share/loginthrottle.h"
#include "share/requestorigin.h"
#include "support/shareharness.h"

#include <QHostInfo>
#include <QtTest>

/// Who is let in: guessed passwords, and requests that other web sites have made.
namespace {

constexpr qint64 kSecond = 1000;
constexpr qint64 kHour = 3600 * kSecond;

const QString kGuesser = QStringLiteral("10.0.0.1");

QByteArray loginRequest(const QByteArray &password, const QByteArray &headerLines = QByteArray())
{
    const QByteArray form = "password=" + password;
    return "POST /s/pw/auth HTTP/1.1\r\n" + headerLines +
           "Content-Length: " + QByteArray::number(form.size()) + "\r\n\r\n" + form;
}

/// A machine with two addresses.
share::OwnNames sampleNames()
{
    return {
        {QHostAddress(QStringLiteral("192.168.1.5")), QHostAddress(QStringLiteral("fe80::1%eth0"))},
        {QStringLiteral("desk"), QStringLiteral("desk.local")}};
}

} // namespace

class TestShareGate : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void waitsGrow();
    void manyAtOnceGainNothing();
    void rightPasswordsClearOnlyThemselves();
    void remembersAFloodOfAddresses();
    void guessingIsSlow();
    void knowsItsOwnNames_data();
    void knowsItsOwnNames();
    void refusesForeignRequests_data();
    void refusesForeignRequests();
    void answersToEveryNameOfItsOwn();

private:
    QScopedPointer<ShareHarness> m_share;
};

void TestShareGate::init()
{
    m_share.reset(new ShareHarness);
    TempTree &tree = m_share->tree();
    tree.file("d/a.txt", "private text");
    ShareSession session = ShareHarness::session(QStringLiteral("open"));
    session.accessMode = QStringLiteral("upload");
    m_share->add(session);
    m_share->addRoot(session.id, QStringLiteral("d"), tree.path("d"));
    session.id = QStringLiteral("pw");
    m_share->add(session, QStringLiteral("right"));
    m_share->addRoot(session.id, QStringLiteral("p"), tree.path("d"));
}

void TestShareGate::waitsGrow()
{
    share::LoginThrottle throttle;
    const auto waits = [&throttle](qint64 nowMs) {
        return throttle.begin(kGuesser, nowMs).waitSeconds;
    };
    qint64 now = 10 * kSecond;
    for (int i = 0; i < 5; ++i)
        QCOMPARE(waits(now + i), 0);
    QCOMPARE(waits(now + 5), 30);
    QCOMPARE(throttle.begin(QStringLiteral("10.0.0.2"), now).waitSeconds, 0);
    QCOMPARE(waits(now + 4 + 29001), 1); // never 0 before the time is over
    now += 4 + 30 * kSecond;
    for (const int seconds : {60, 120, 240, 480, 960, 1920, 3600, 3600}) {
        QCOMPARE(waits(now), 0);
        QCOMPARE(waits(now), seconds);
        now += seconds * kSecond;
    }
    now += kHour + 1;
    for (int i = 0; i < 5; ++i)
        QCOMPARE(waits(now), 0);
    QCOMPARE(waits(now), 30);

    // Slow mistakes are nobody's guessing.
    now += 3 * kHour;
    for (int i = 0; i < 20; ++i)
        QCOMPARE(waits(now + i * 16 * kSecond), 0);
}

void TestShareGate::manyAtOnceGainNothing()
{
    share::LoginThrottle throttle;
    int tried = 0;
    for (int i = 0; i < 100; ++i) // none has been found wrong so far
        tried += throttle.begin(kGuesser, 1).waitSeconds == 0 ? 1 : 0;
    QCOMPARE(tried, 5);
}

void TestShareGate::rightPasswordsClearOnlyThemselves()
{
    share::LoginThrottle throttle;
    for (int i = 0; i < 20; ++i) {
        const auto attempt = throttle.begin(kGuesser, i);
        QCOMPARE(attempt.waitSeconds, 0);
        throttle.succeed(kGuesser, attempt);
    }
    // Four wrong ones, then the right one of another share, over and over.
    for (int i = 0; i < 4; ++i)
        QCOMPARE(throttle.begin(kGuesser, 100).waitSeconds, 0);
    const auto right = throttle.begin(kGuesser, 100);
    throttle.succeed(kGuesser, right);
    const auto wrong = throttle.begin(kGuesser, 100);
    QCOMPARE(wrong.waitSeconds, 0);
    throttle.succeed(kGuesser, right); // one that ends late lifts no other's wait
    QCOMPARE(throttle.begin(kGuesser, 100).waitSeconds, 30);
    // After the wait the right one leads in, and leaves no new wait behind.
    const auto late = throttle.begin(kGuesser, 100 + 30 * kSecond);
    QCOMPARE(late.waitSeconds, 0);
    throttle.succeed(kGuesser, late);
    QCOMPARE(throttle.begin(kGuesser, 100 + 30 * kSecond).waitSeconds, 0);
}

void TestShareGate::remembersAFloodOfAddresses()
{
    share::LoginThrottle throttle;
    for (int i = 0; i < 6; ++i)
        throttle.begin(kGuesser, kHour);
    for (int i = 0; i < 10000; ++i)
        throttle.begin(QStringLiteral("fe80::%1").arg(i, 0, 16), kHour + 1);
    QVERIFY(throttle.begin(kGuesser, kHour + 2).waitSeconds > 0);
}

void TestShareGate::guessingIsSlow()
{
    for (int i = 0; i < 5; ++i)
        QCOMPARE(m_share->request(loginRequest("wrong")).status, 200);
    for (const char *password : {"wrong", "right"}) {
        const HttpReply reply = m_share->request(loginRequest(password));
        QCOMPARE(reply.statusLine, QByteArray("HTTP/1.1 429 Too Many Requests"));
        const int seconds = reply.headers.value("Retry-After").toInt();
        QVERIFY2(seconds > 20 && seconds <= 30, reply.headers.value("Retry-After").constData());
        QVERIFY(reply.says("密码错误次数过多，请在"));
        QVERIFY(reply.says("name='password'"));
        QVERIFY(!reply.headers.contains("Set-Cookie"));
    }
    QCOMPARE(m_share->get("/s/pw/").status, 200); // the page itself stays
    QCOMPARE(m_share->get("/s/open/d/a.txt").body, QByteArray("private text"));
    QTRY_COMPARE(m_share->log(QStringLiteral("pw")).count(QStringLiteral("auth_fail ")), 5);
}

void TestShareGate::knowsItsOwnNames_data()
{
    QTest::addColumn<QString>("host"); // null: no such line
    QTest::addColumn<QString>("origin");
    QTest::addColumn<bool>("isOwn");

    const auto row = [](const char *host, const char *origin, bool isOwn) {
        QTest::addRow("%s from %s", host ? host : "none", origin ? origin : "none")
            << QString::fromLatin1(host) << QString::fromLatin1(origin) << isOwn;
    };
    row(nullptr, nullptr, true);
    for (const char *own :
         {"192.168.1.5", "192.168.1.5:9800", "10.1.1.1:9800", "localhost", "LOCALHOST:1",
          "[fe80::1]:9800", "desk", "DESK:9800", "desk.", "desk.local:9800"})
        row(own, nullptr, true);
    for (const char *foreign : {"", "evil.example", "evil.example:9800", "192.168.1.6", "[fe80::2]",
                                "desk.evil.example", "evildesk", "localhost.evil.example",
                                "192.168.1.5.evil.example", "evil@desk", "desk:x", "[fe80::1"})
        row(foreign, nullptr, false);
    row("desk", "http://desk:9800", true);
    row("desk", "http://192.168.1.5:9800", true);
    row("desk", "http://[fe80::1]:9800", true);
    row("desk", "http://evil.example", false);
    row("desk", "https://desk.evil.example:9800", false);
    row("desk", "null", false);
    row("desk", "", false);
    row("evil.example", "http://desk:9800", false);
}

void TestShareGate::knowsItsOwnNames()
{
    QFETCH(QString, host);
    QFETCH(QString, origin);
    HttpRequest request;
    if (!host.isNull())
        request.headers.insert(QStringLiteral("host"), host);
    if (!origin.isNull())
        request.headers.insert(QStringLiteral("origin"), origin);
    const QHostAddress local(QStringLiteral("::ffff:10.1.1.1"));
    QTEST(share::isOwnRequest(request, local, sampleNames), "isOwn");
}

void TestShareGate::refusesForeignRequests_data()
{
    QTest::addColumn<QByteArray>("begin"); // of the request, without the empty line
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status"); // for a request of our own
    QTest::addColumn<bool>("isRefused");

    const auto row = [](const char *begin, const char *body, int status, bool isRefused) {
        QTest::newRow(begin) << QByteArray(begin) + "\r\n"
                             << QByteArray(body) << status << isRefused;
    };
    row("GET /s/open/ HTTP/1.1", "", 200, true);
    row("GET /s/open/auth HTTP/1.1", "", 200, true);
    row("GET /s/open/d/ HTTP/1.1", "", 200, true);
    row("GET /s/open/d/a.txt HTTP/1.1", "", 200, true);
    row("GET /s/open/api/upload-check/d?name=x HTTP/1.1", "", 200, true);
    row("PUT /s/open/upload/d HTTP/1.1\r\nX-File-Name: x\r\nContent-Length: 1", "x", 201, true);
    row("POST /s/pw/auth HTTP/1.1\r\nContent-Length: 14", "password=right", 302, true);
    row("PUT /s/pw/upload/p HTTP/1.1\r\nX-File-Name: x\r\nContent-Length: 1", "x", 401, true);
    // What asks for a password gives nothing away.
    row("GET /s/pw/ HTTP/1.1", "", 200, false);
    row("GET /s/pw/p/a.txt HTTP/1.1", "", 200, false);
}

void TestShareGate::refusesForeignRequests()
{
    QFETCH(QByteArray, begin);
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(bool, isRefused);
    const QByteArray port = QByteArray::number(m_share->port());
    for (const QByteArray &lines :
         {QByteArray("Host: evil.example:" + port + "\r\n"),
          QByteArray("Host: 127.0.0.1:" + port + "\r\nOrigin: http://evil.example\r\n")}) {
        const HttpReply reply = m_share->request(begin + lines + "\r\n" + body);
        QCOMPARE(reply.status, isRefused ? 403 : status);
        QCOMPARE(reply.says("请通过共享方提供的地址访问。"), isRefused);
        QVERIFY(!reply.says("private text") && !reply.headers.contains("Set-Cookie"));
        QVERIFY(!QFile::exists(m_share->tree().path("d/x")));
    }
    const QByteArray own =
        "Host: 127.0.0.1:" + port + "\r\nOrigin: http://127.0.0.1:" + port + "\r\n";
    QCOMPARE(m_share->request(begin + own + "\r\n" + body).status, status);
    if (begin.startsWith("PUT /s/open"))
        QTRY_COMPARE(m_share->log(QStringLiteral("open")),
                     (QStringList{QStringLiteral("upload_fail foreign_origin"),
                                  QStringLiteral("upload_fail foreign_origin"),
                                  QStringLiteral("upload_ok x")}));
}

void TestShareGate::answersToEveryNameOfItsOwn()
{
    QStringList hosts = FileShareController::localIpAddresses(); // as the links have them
    hosts << QStringLiteral("localhost") << QHostInfo::localHostName() << QStringLiteral("[::1]");
    for (const QString &host : qAsConst(hosts)) {
        const QByteArray line = "Host: " + host.toLatin1() + ":9800\r\n";
        QVERIFY2(m_share->get("/s/open/d/", line).status == 200, line.constData());
    }
}

QTEST_GUILESS_MAIN(TestShareGate)
#include "tst_sharegate.moc"
