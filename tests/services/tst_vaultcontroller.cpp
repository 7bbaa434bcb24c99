#include "core/ipc/ipcclient.h"
#include "support/fakeservice.h"
#include "vault/vaultcontroller.h"

#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>

using core::ipc::IpcClient;
using services::Reply;
using testsupport::FakeService;

namespace {

QJsonObject json(const QByteArray &utf8)
{
    return QJsonDocument::fromJson(utf8).object();
}

QString compact(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

/// The signals of a controller in their order, one line each.
class Signals : public QObject
{
public:
    explicit Signals(VaultController *controller)
    {
        using V = VaultController;
        const auto flag = [](bool value) {
            return value ? QStringLiteral("true") : QStringLiteral("false");
        };
        connect(controller, &V::statusUpdated, this,
                [this](const QJsonObject &status) { note("status", compact(status)); });
        connect(controller, &V::configUpdated, this,
                [this](const QJsonObject &config) { note("config", compact(config)); });
        connect(controller, &V::fileListUpdated, this, [this](const QJsonArray &files, int total) {
            note("list", QStringLiteral("%1 of %2").arg(files.size()).arg(total));
        });
        connect(controller, &V::fileProtected, this,
                [this](const QJsonObject &file) { note("protected", compact(file)); });
        connect(controller, &V::fileExpired, this,
                [this](const QString &id) { note("expired", id); });
        connect(controller, &V::spaceWarning, this, [this](qint64 used, qint64 limit) {
            note("space", QStringLiteral("%1 of %2").arg(used).arg(limit));
        });
        connect(controller, &V::restoreCompleted, this,
                [this, flag](bool success) { note("restored", flag(success)); });
        connect(controller, &V::deleteCompleted, this,
                [this, flag](bool success) { note("deleted", flag(success)); });
        connect(controller, &V::clearCompleted, this,
                [this, flag](bool success) { note("cleared", flag(success)); });
        connect(controller, &V::enableCompleted, this,
                [this, flag](bool success, const QString &mode, bool needReboot) {
                    note("enabled", flag(success) + QLatin1Char(' ') + mode + QLatin1Char(' ') +
                                        flag(needReboot));
                });
        connect(controller, &V::disableCompleted, this,
                [this, flag](bool success) { note("disabled", flag(success)); });
        connect(controller, &V::operationError, this,
                [this](const QString &operation, const QString &message) {
                    note("error", operation + QLatin1Char(' ') + message);
                });
        connect(controller, &V::authenticateCompleted, this,
                [this, flag](bool success, const QString &message) {
                    note("authenticated", flag(success) + QLatin1Char(' ') + message);
                });
    }

    QStringList lines;

private:
    void note(const char *name, const QString &values)
    {
        lines.append(QLatin1String(name) + QLatin1Char(' ') + values);
    }
};

using Call = std::function<void(VaultController &)>;

} // namespace

Q_DECLARE_METATYPE(Call)

class TestVaultController : public QObject
{
    Q_OBJECT

private slots:
    void tellsConnection();
    void asksAndAnswers_data();
    void asksAndAnswers();
    void tellsRefusals_data();
    void tellsRefusals();
    void authenticates_data();
    void authenticates();
    void passesEventsOn_data();
    void passesEventsOn();
    void outlivesWhatItTalksTo();
};

void TestVaultController::tellsConnection()
{
    FakeService service;
    IpcClient client(service.name());
    VaultController controller(&client);
    QSignalSpy connection(&controller, &VaultController::connectionChanged);
    QVERIFY(!controller.isConnected());
    QVERIFY(service.start());
    controller.connectToVaultDaemon();
    QTRY_VERIFY(controller.isConnected());
    QCOMPARE(connection, (QList<QVariantList>{{true}}));
    service.stop();
    QTRY_COMPARE(connection, (QList<QVariantList>{{true}, {false}}));
    QVERIFY(!controller.isConnected());
}

void TestVaultController::asksAndAnswers_data()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<QString>("method"); // Without "vault."
    QTest::addColumn<QByteArray>("params");
    QTest::addColumn<QByteArray>("result");
    QTest::addColumn<QStringList>("signalled");
    QTest::addColumn<QString>("next"); // The request that follows by itself.
    const auto row = [](const char *name, const Call &call, const char *method, const char *params,
                        const char *result, const char *signalled, const char *next = "") {
        QTest::newRow(name) << call << QString::fromLatin1(method) << QByteArray(params)
                            << QByteArray(result) << QStringList{QString::fromUtf8(signalled)}
                            << QString::fromLatin1(next);
    };
    const QStringList ids{QStringLiteral("a"), QStringLiteral("b")};
    const QString dir = QStringLiteral("/目标");

    row(
        "status", [](VaultController &c) { c.refreshStatus(); }, "getStatus", "{}",
        R"({"enabled":true,"new key":1})", R"(status {"enabled":true,"new key":1})");
    row(
        "config", [](VaultController &c) { c.refreshConfig(); }, "getConfig", "{}",
        R"({"retentionDays":7})", R"(config {"retentionDays":7})");
    row(
        "list", [](VaultController &c) { c.refreshFileList(100, 50, QString()); }, "listFiles",
        R"({"limit":100,"offset":50})", R"({"files":[{"id":"a"}],"totalCount":7})", "list 1 of 7");
    row(
        "list of matches",
        [](VaultController &c) { c.refreshFileList(100, 0, QStringLiteral(" 报告")); }, "listFiles",
        R"({"limit":100,"offset":0,"filter":" 报告"})", R"({"files":[{},{}]})", "list 2 of 0");
    row(
        "list of nothing", [](VaultController &c) { c.refreshFileList(1, 0, QString()); },
        "listFiles", R"({"limit":1,"offset":0})", R"({"files":3,"totalCount":"x"})", "list 0 of 0");
    row(
        "enable", [](VaultController &c) { c.enableProtection(); }, "enable", "{}",
        R"({"deployMode":"pending_reboot","needReboot":true})", "enabled true pending_reboot true");
    row(
        "enable for all", [](VaultController &c) { c.enableGlobal(); }, "enableGlobal", "{}",
        R"({"deployMode":"global"})", "enabled true global false");
    row(
        "disable", [](VaultController &c) { c.disableProtection(); }, "disable", "{}", "{}",
        "disabled true");
    row(
        "deploy mode", [](VaultController &c) { c.getDeployMode(); }, "getDeployMode", "{}",
        R"({"deployMode":"global","enabled":true})", R"(status {"deployMode":"global"})");

    const auto update = [](VaultController &c) {
        c.updateConfig(json(R"({"a":[1],"b":2})"));
    };
    row("new config", update, "setConfig", R"({"a":[1],"b":2})", R"({"b":3})", "", "getConfig");
    const auto restore = [ids, dir](VaultController &c) {
        c.restoreFiles(ids, dir);
    };
    row("restore", restore, "restoreFiles", R"({"fileIds":["a","b"],"targetDir":"/目标"})",
        R"({"success":true})", "restored true", "listFiles");
    row("restore, told nothing", restore, "restoreFiles",
        R"({"fileIds":["a","b"],"targetDir":"/目标"})", "{}", "restored false", "listFiles");
    const auto remove = [ids](VaultController &c) {
        c.deleteFiles(ids);
    };
    row("delete", remove, "deleteFiles", R"({"fileIds":["a","b"]})", R"({"success":true})",
        "deleted true", "listFiles");
    const auto clear = [](VaultController &c) {
        c.clearAllFiles();
    };
    row("clear", clear, "clearAll", "{}", R"({"success":true})", "cleared true", "listFiles");
}

void TestVaultController::asksAndAnswers()
{
    QFETCH(Call, call);
    QFETCH(QString, method);
    QFETCH(QByteArray, params);
    QFETCH(QByteArray, result);
    QFETCH(QStringList, signalled);
    QFETCH(QString, next);
    FakeService service;
    IpcClient client(service.name());
    VaultController controller(&client);
    Signals seen(&controller);
    QVERIFY(service.start());
    QVERIFY(client.ensureConnected(3000));
    // In a refresh the service says what it holds now.
    if (!next.isEmpty())
        service.reply(QStringLiteral("vault.") + next,
                      json(R"({"files":[{}],"totalCount":9,"retentionDays":60})"));
    service.reply(QStringLiteral("vault.") + method, json(result));

    call(controller);
    signalled.removeAll(QString());
    if (next == QLatin1String("listFiles"))
        signalled.append(QStringLiteral("list 1 of 9"));
    else if (next == QLatin1String("getConfig"))
        signalled.append(
            QStringLiteral(R"(config {"files":[{}],"retentionDays":60,"totalCount":9})"));
    QTRY_COMPARE(seen.lines, signalled);
    QStringList methods{QStringLiteral("vault.") + method};
    if (!next.isEmpty())
        methods.append(QStringLiteral("vault.") + next);
    QCOMPARE(service.methods(), methods);
    QCOMPARE(service.requests().at(0).params, json(params));
    if (!next.isEmpty())
        QCOMPARE(service.requests().at(1).params, next == QLatin1String("listFiles")
                                                      ? json(R"({"limit":100,"offset":0})")
                                                      : QJsonObject());
}

void TestVaultController::tellsRefusals_data()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("completion"); // After the error.
    const auto row = [](const char *operation, const char *completion, const Call &call) {
        QTest::newRow(operation) << call << QString::fromLatin1(operation)
                                 << QString::fromLatin1(completion);
    };
    row("getStatus", "", [](VaultController &c) { c.refreshStatus(); });
    row("getConfig", "", [](VaultController &c) { c.refreshConfig(); });
    row("listFiles", "", [](VaultController &c) { c.refreshFileList(1, 0, QString()); });
    row("enable", "enabled false  false", [](VaultController &c) { c.enableProtection(); });
    row("enableGlobal", "enabled false  false", [](VaultController &c) { c.enableGlobal(); });
    row("disable", "disabled false", [](VaultController &c) { c.disableProtection(); });
    row("setConfig", "", [](VaultController &c) { c.updateConfig(QJsonObject()); });
    row("restoreFiles", "restored false",
        [](VaultController &c) { c.restoreFiles(QStringList(), QString()); });
    row("deleteFiles", "deleted false", [](VaultController &c) { c.deleteFiles(QStringList()); });
    row("clearAll", "cleared false", [](VaultController &c) { c.clearAllFiles(); });
    row("getDeployMode", "", [](VaultController &c) { c.getDeployMode(); });
}

/// By the service, by a connection that is lost, by one that was never there, and without a client.
void TestVaultController::tellsRefusals()
{
    QFETCH(Call, call);
    QFETCH(QString, operation);
    QFETCH(QString, completion);
    FakeService service;
    IpcClient client(service.name());
    VaultController controller(&client);
    VaultController bare(nullptr);
    Signals seen(&controller);
    Signals seenBare(&bare);
    const auto expected = [&](const QString &message) {
        QStringList lines{QStringLiteral("error %1 %2").arg(operation, message)};
        if (!completion.isEmpty())
            lines.append(completion);
        return lines;
    };
    const QString method = QStringLiteral("vault.") + operation;
    call(bare);
    QCOMPARE(seenBare.lines, expected(QStringLiteral("IPC 客户端不可用")));
    call(controller);
    QCOMPARE(seen.lines, expected(QStringLiteral("未连接到服务 (%1)").arg(service.name())));

    QVERIFY(service.start());
    QVERIFY(client.ensureConnected(3000));
    seen.lines.clear();
    service.fail(method, 5, QStringLiteral("服务繁忙"));
    call(controller);
    QTRY_COMPARE(seen.lines, expected(QStringLiteral("服务繁忙")));
    // An answer with data, and one without a message, are refusals all the same.
    seen.lines.clear();
    Reply odd = Reply::failure(5, QString());
    odd.data = json(R"({"success":true,"message":"not this one"})");
    service.replyOnce(method, odd);
    call(controller);
    QTRY_COMPARE(seen.lines, expected(QString()));

    seen.lines.clear();
    service.hold(method);
    call(controller);
    QVERIFY(service.waitForRequest(method, 3));
    service.stop();
    QTRY_COMPARE(seen.lines,
                 expected(QStringLiteral("与服务 (%1) 的连接已断开").arg(service.name())));
    QCOMPARE(service.methods(), QStringList({method, method, method}));
}

void TestVaultController::authenticates_data()
{
    QTest::addColumn<bool>("isOk");
    QTest::addColumn<QByteArray>("result");
    QTest::addColumn<QString>("message"); // Of the error.
    QTest::addColumn<QString>("signalled");
    const QString error = QStringLiteral("出错");
    QTest::newRow("right") << true << QByteArray(R"({"success":true,"message":"x"})") << QString()
                           << QStringLiteral("authenticated true ");
    QTest::newRow("wrong") << true << QByteArray(R"({"success":false,"message":"密码错误"})")
                           << QString() << QStringLiteral("authenticated false 密码错误");
    QTest::newRow("told nothing") << true << QByteArray("{}") << QString()
                                  << QStringLiteral("authenticated false ");
    QTest::newRow("by an error") << false << QByteArray(R"({"success":false})") << error
                                 << QStringLiteral("authenticated false 出错");
    QTest::newRow("by an error with a result")
        << false << QByteArray(R"({"success":true,"message":"结果"})") << error
        << QStringLiteral("authenticated false 结果");
}

void TestVaultController::authenticates()
{
    QFETCH(bool, isOk);
    QFETCH(QByteArray, result);
    QFETCH(QString, message);
    QFETCH(QString, signalled);
    FakeService service;
    core::ipc::ServicePolicy policy;
    bool isRoots = true;
    policy.mayHearSecrets = [&isRoots](const core::ipc::Peer &peer) {
        return isRoots && peer.pid == QCoreApplication::applicationPid();
    };
    IpcClient client(service.name(), nullptr, policy);
    VaultController controller(&client);
    Signals seen(&controller);
    const QString method = QStringLiteral("vault.authenticate");
    Reply reply = isOk ? Reply::ok() : Reply::failure(7, message);
    reply.data = json(result);
    service.replyOnce(method, reply);
    QVERIFY(service.start());
    QVERIFY(client.ensureConnected(3000));
    controller.authenticate(QStringLiteral("我"), QStringLiteral(" p\"w "));
    QTRY_COMPARE(seen.lines, QStringList(signalled));
    const QByteArray sent(R"({"username":"我","password":" p\"w "})");
    QCOMPARE(service.lastParams(method), json(sent));

    // Another service gets everything but a password.
    seen.lines.clear();
    isRoots = false;
    const int requests = service.requests().size();
    controller.authenticate(QStringLiteral("我"), QStringLiteral("secret"));
    QCOMPARE(seen.lines,
             QStringList(QStringLiteral("authenticated false ") + controller.passwordRefusal()));
    QVERIFY(!controller.passwordRefusal().isEmpty());
    QCOMPARE(service.requests().size(), requests);

    seen.lines.clear();
    VaultController bare(nullptr);
    Signals seenBare(&bare);
    bare.authenticate(QString(), QString());
    QCOMPARE(seenBare.lines, QStringList(QStringLiteral("authenticated false IPC 客户端不可用")));
}

void TestVaultController::passesEventsOn_data()
{
    QTest::addColumn<QString>("event");
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QString>("signalled"); // Empty: none.
    const auto row = [](const char *name, const char *event, const char *data,
                        const char *signalled) {
        QTest::newRow(name) << QString::fromLatin1(event) << QByteArray(data)
                            << QString::fromUtf8(signalled);
    };
    row("protected", "vault.fileProtected", R"({"file":{"id":"a","x":[1]},"id":"b"})",
        R"(protected {"id":"a","x":[1]})");
    row("protected, no file", "vault.fileProtected", "{}", "protected {}");
    row("expired", "vault.fileExpired", R"({"fileId":"a"})", "expired a");
    row("expired, no id", "vault.fileExpired", R"({"fileId":1})", "expired ");
    row("space", "vault.spaceWarning", R"({"usedBytes":4831838208,"maxBytes":5368709120})",
        "space 4831838208 of 5368709120");
    row("space, no numbers", "vault.spaceWarning", R"({"usedBytes":"1"})", "space 0 of 0");
    row("of another client", "scan.progress", R"({"fileId":"a"})", "");
}

void TestVaultController::passesEventsOn()
{
    QFETCH(QString, event);
    QFETCH(QByteArray, data);
    QFETCH(QString, signalled);
    FakeService service;
    IpcClient client(service.name());
    VaultController controller(&client);
    Signals seen(&controller);
    QVERIFY(service.start());
    QVERIFY(client.ensureConnected(3000));
    QTRY_COMPARE(service.clientCount(), 1);
    service.broadcast(event, json(data));
    // Another one behind it, so that nothing is waited for in vain.
    service.broadcast(QStringLiteral("vault.fileExpired"), json(R"({"fileId":"last"})"));
    QStringList expected{signalled, QStringLiteral("expired last")};
    expected.removeAll(QString());
    QTRY_COMPARE(seen.lines, expected);
    QCOMPARE(service.methods(), QStringList());
}

void TestVaultController::outlivesWhatItTalksTo()
{
    auto *gone = new IpcClient(QStringLiteral("gone"));
    VaultController orphan(gone);
    delete gone;
    orphan.connectToVaultDaemon();
    QVERIFY(!orphan.isConnected());

    // The answer may find that the controller has gone before its client.
    FakeService service;
    IpcClient client(service.name());
    auto *controller = new VaultController(&client);
    QVERIFY(service.start());
    QVERIFY(client.ensureConnected(3000));
    service.hold(QStringLiteral("vault.getStatus"));
    service.hold(QStringLiteral("vault.authenticate"));
    controller->refreshStatus();
    controller->authenticate(QString(), QString());
    QVERIFY(service.waitForRequest(QStringLiteral("vault.authenticate")));
    delete controller;
    service.stop();
    QTRY_VERIFY(!client.isConnected());

    // And whoever hears of an error may delete it.
    auto *brief = new VaultController(nullptr);
    connect(brief, &VaultController::operationError, brief, [brief] { delete brief; });
    brief->clearAllFiles();

    // As may whoever hears of a success, which the list would have followed.
    FakeService other;
    IpcClient link(other.name());
    QPointer<VaultController> passing = new VaultController(&link);
    connect(passing, &VaultController::clearCompleted, passing, [passing] { delete passing; });
    other.reply(QStringLiteral("vault.clearAll"), QJsonObject());
    QVERIFY(other.start());
    QVERIFY(link.ensureConnected(3000));
    passing->clearAllFiles();
    QTRY_VERIFY(!passing);
}

QTEST_GUILESS_MAIN(TestVaultController)
#include "tst_vaultcontroller.moc"
