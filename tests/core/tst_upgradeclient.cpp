#include "core/controllers/upgrade/upgradeapiclient.h"
#include "support/updateserver.h"

#include <QJsonDocument>
#include <QRegularExpression>
#include <QTest>
#include <QUrlQuery>

#include <optional>

using namespace core::controllers::upgrade;
using testsupport::UpdateServer;

namespace {

struct Outcome
{
    bool ok = false;
    QJsonObject payload;
    UpgradeApiClient::ApiError error;
};

const QString kPath = QStringLiteral("/api/version/latest");

} // namespace

class TestUpgradeClient : public QObject
{
    Q_OBJECT

private slots:
    void signsRequests();
    void sendsWhatIsKnown();
    void readsAnswers_data();
    void readsAnswers();
    void reportsADeadServer();
    void hidesTheQueryFromTheUser();

private:
    static Outcome check(const QUrl &base, const QString &osInfo = QString());
};

Outcome TestUpgradeClient::check(const QUrl &base, const QString &osInfo)
{
    UpgradeApiClient client;
    client.setBaseUrl(base);
    std::optional<Outcome> outcome;
    client.checkForUpdate(
        QStringLiteral(" 1.0 "), QStringLiteral("amd64"), QStringLiteral("normal"), QString(),
        osInfo, QStringLiteral("A+B 50%41"),
        [&outcome](bool ok, const QJsonObject &payload, const UpgradeApiClient::ApiError &error) {
            outcome = Outcome{ok, payload, error};
        });
    if (!QTest::qWaitFor([&outcome] { return outcome.has_value(); }, 10000))
        return Outcome();
    return *outcome;
}

void TestUpgradeClient::signsRequests()
{
    const ApiParams params{{QStringLiteral("ts"), QStringLiteral("5")},
                           {QStringLiteral("arch"), QStringLiteral("amd64")},
                           {QStringLiteral("fingerprint"), QString()},
                           {QStringLiteral("osInfo"), QStringLiteral("统信 UOS")},
                           {QStringLiteral("currentVersion"), QStringLiteral("1.0.1")}};
    // MD5 of "arch=amd64&currentVersion=1.0.1&osInfo=统信 UOS&ts=5&secret=s3"
    QCOMPARE(signRequest(params, QStringLiteral("s3")),
             QStringLiteral("e5c2cb5d1d839e90076396a4dda9ca6c"));
    QCOMPARE(signRequest({}, QStringLiteral("s3")),
             QStringLiteral("41079002aaa29a6da93a2ee323c2b99b"));
    QCOMPARE(redacted(params).value(QStringLiteral("osInfo")), QStringLiteral("<redacted>"));
    QVERIFY(!redacted(params).contains(QStringLiteral("cpuModel")));
}

void TestUpgradeClient::sendsWhatIsKnown()
{
    UpdateServer server;
    QVERIFY(server.start());
    server.answerCheck({});
    QTest::ignoreMessage(QtInfoMsg, QRegularExpression(QStringLiteral("GET request.*<redacted>")));
    QVERIFY(check(server.url(), QStringLiteral(" UOS 20 ")).ok);
    const QUrlQuery query(server.lastQuery(kPath));
    ApiParams sent;
    const auto items = query.queryItems(QUrl::FullyDecoded);
    for (const auto &item : items)
        sent.insert(item.first, item.second);
    const QString sign = sent.take(QStringLiteral("sign"));
    QVERIFY(!sign.isEmpty());
    QVERIFY(sent.take(QStringLiteral("ts")).toLongLong() > 1500000000000);
    QCOMPARE(sent, (ApiParams{{QStringLiteral("product"), QStringLiteral("morvane")},
                              {QStringLiteral("currentVersion"), QStringLiteral("1.0")},
                              {QStringLiteral("arch"), QStringLiteral("amd64")},
                              {QStringLiteral("mode"), QStringLiteral("normal")},
                              {QStringLiteral("osInfo"), QStringLiteral("UOS 20")},
                              {QStringLiteral("cpuModel"), QStringLiteral("A+B 50%41")}}));
    // A bare plus would reach the server as a blank.
    QVERIFY(server.lastQuery(kPath).contains(QLatin1String("A%2BB")));
}

void TestUpgradeClient::readsAnswers_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QString>("code");
    QTest::addColumn<QString>("message");
    const QByteArray data(R"({"latestVersion":"1.2.0"})");
    const QString failed = QStringLiteral("Upgrade request failed");
    QTest::newRow("text code 200")
        << 200 << QByteArray(R"({"code":"200","data":{"latestVersion":"1.2.0"}})") << true << data
        << ""
        << "";
    QTest::newRow("number 0") << 200 << QByteArray(R"({"code":0,"latestVersion":"1.2.0"})") << true
                              << QByteArray(R"({"code":0,"latestVersion":"1.2.0"})") << ""
                              << "";
    QTest::newRow("no code") << 200 << data << true << data << ""
                             << "";
    QTest::newRow("a null code and no object")
        << 200 << QByteArray(R"({"code":null,"data":[1]})") << true
        << QByteArray(R"({"code":null,"data":[1]})") << ""
        << "";
    QTest::newRow("a code with a fraction")
        << 200 << QByteArray(R"({"code":200.7,"data":{}})") << true << QByteArray("{}") << ""
        << "";
    // Redirects of the check are not followed: what answers is not the update server.
    QTest::newRow("moved") << 302 << QByteArray("<html>") << false << QByteArray("{}") << ""
                           << failed;
    QTest::newRow("no JSON") << 200 << QByteArray("<html>") << true << QByteArray("{}") << ""
                             << "";
    QTest::newRow("true is a refusal") << 200 << QByteArray(R"({"code":true,"data":{"a":1}})")
                                       << false << QByteArray(R"({"a":1})") << "1" << failed;
    QTest::newRow("refusal with words")
        << 200 << QByteArray(R"({"code":" 403 ","message":"未授权"})") << false
        << QByteArray(R"({"code":" 403 ","message":"未授权"})") << "403"
        << "未授权";
    QTest::newRow("server error with words")
        << 500 << QByteArray(R"({"code":7,"message":"忙"})") << false << QByteArray("{}") << "7"
        << "忙";
}

void TestUpgradeClient::readsAnswers()
{
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, payload);
    UpdateServer server;
    QVERIFY(server.start());
    UpdateServer::Answer answer;
    answer.status = status;
    answer.body = body;
    server.answer(kPath, answer);
    const Outcome outcome = check(server.url());
    QTEST(outcome.ok, "ok");
    QCOMPARE(outcome.payload, QJsonDocument::fromJson(payload).object());
    QTEST(outcome.error.code, "code");
    QTEST(outcome.error.message, "message");
    QCOMPARE(outcome.error.isEmpty(), outcome.ok);
    QCOMPARE(outcome.error.httpStatus, outcome.ok ? 0 : status);
}

void TestUpgradeClient::reportsADeadServer()
{
    UpdateServer cutting;
    QVERIFY(cutting.start());
    UpdateServer::Answer half;
    half.body = R"({"code":200,"data":{"latestVersion":"1.2.0"}})";
    half.cutAfter = 20;
    cutting.answer(kPath, half);
    const Outcome cut = check(cutting.url());
    QVERIFY(!cut.ok && cut.payload.isEmpty());
    QVERIFY(cut.error.networkError != 0 && !cut.error.message.isEmpty());
    QCOMPARE(cut.error.reason, QStringLiteral("与更新服务器的连接中断，请稍后重试。"));

    QUrl gone;
    {
        UpdateServer server;
        QVERIFY(server.start());
        gone = server.url();
    }
    const Outcome refused = check(gone);
    QVERIFY(!refused.ok);
    QVERIFY(refused.error.networkError != 0);
    QVERIFY(!refused.error.message.isEmpty());
    QCOMPARE(refused.error.reason, QStringLiteral("无法连接更新服务器，请检查网络。"));
}

void TestUpgradeClient::hidesTheQueryFromTheUser()
{
    UpdateServer server;
    QVERIFY(server.start());
    UpdateServer::Answer answer;
    answer.status = 404;
    server.answer(kPath, answer);
    // The text that is logged, though it is the network's own, which holds the whole URL.
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral(
                                           "^Upgrade GET failed: (?!.*(sign=|\\?)).*$")));
    const Outcome outcome = check(server.url());
    QVERIFY(outcome.error.message.contains(QLatin1String("sign=")));
    QCOMPARE(outcome.error.reason, QStringLiteral("更新服务器返回了错误（HTTP 404）。"));
    // A server that repeats the URL in its words, at length.
    server.answerCheck(
        {{QStringLiteral("code"), 9},
         {QStringLiteral("message"), QStringLiteral("不可用:\n http://x/a?sign=1&fingerprint=2 ") +
                                         QString(500, QLatin1Char('x'))}});
    const QString words = check(server.url()).error.reason;
    QVERIFY2(words.startsWith(QStringLiteral("不可用: http://x/a x")), qPrintable(words));
    QCOMPARE(words.size(), 200);
}

QTEST_GUILESS_MAIN(TestUpgradeClient)
#include "tst_upgradeclient.moc"
