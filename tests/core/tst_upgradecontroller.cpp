#include "core/controllers/upgrade/upgradecontroller.h"
#include "support/fakeservice.h"
#include "support/updateserver.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace core::controllers::upgrade;
using testsupport::FakeService;
using testsupport::UpdateServer;

namespace {

constexpr int kShortStallMs = 2000;
const QString kInstall = QStringLiteral("vault.installPackage");
const QString kPackage = QStringLiteral("/morvane.deb");

QByteArray packageBytes()
{
    return QByteArray(300000, 'p') + "end";
}

QString submittedText()
{
    return QStringLiteral("更新安装任务已提交，应用将退出，请稍候完成系统安装。");
}

} // namespace

Q_DECLARE_METATYPE(UpdateServer::Answer)

class TestUpgradeController : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void checksAndRemembers();
    void keepsAnEarlierAnswerOnFailure_data();
    void keepsAnEarlierAnswerOnFailure();
    void checksAtStartOnceADay();
    void forgetsTheUpdateThatRuns();
    void installsOnlyWhatMatches_data();
    void installsOnlyWhatMatches();
    void fetchesAVerifiedPackageOnce();
    void installsThePackageItBeganWith();
    void reportsAMissingInstaller();
    void handsOverToTheAgent();
    void leadsToTheDownloadPage();
    void refusesInTheRecoveryEnvironment();
    void reportsTlsErrors();

private:
    std::unique_ptr<UpgradeController>
    newController(core::AppMode mode = core::AppMode::normal) const;
    /// The server offers version 9.0, whose package it serves.
    void offerUpdate(const QJsonObject &changes = QJsonObject());
    /// Ends with the message of the callback, or "time-out".
    static QString outcome(const std::function<void(const UpgradeController::Callback &)> &start,
                           bool *ok);
    QStringList cachedFiles() const;

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<UpdateServer> m_server;
    std::unique_ptr<FakeService> m_vault;
    QStringList m_agents;
    QList<QUrl> m_opened;
    int m_stallTimeoutMs = 0;
};

void TestUpgradeController::init()
{
    QCoreApplication::setApplicationVersion(QStringLiteral("1.0.1"));
    m_dir = std::make_unique<QTemporaryDir>();
    m_server = std::make_unique<UpdateServer>();
    QVERIFY(m_server->start());
    m_vault = std::make_unique<FakeService>();
    QVERIFY(m_vault->start());
    m_vault->reply(kInstall, {});
    m_agents = QStringList{QStringLiteral("/nonexistent/agent")};
    m_opened.clear();
    m_stallTimeoutMs = UpgradeEnvironment().stallTimeoutMs;
}

void TestUpgradeController::cleanup()
{
    m_vault.reset();
    m_server.reset();
    m_dir.reset();
}

std::unique_ptr<UpgradeController> TestUpgradeController::newController(core::AppMode mode) const
{
    UpgradeEnvironment environment;
    environment.statePath = m_dir->filePath(QStringLiteral("state.json"));
    environment.cacheDir = m_dir->filePath(QStringLiteral("cache"));
    environment.updateServer = m_server->url();
    environment.vaultService = m_vault->name();
    environment.agentCandidates = m_agents;
    environment.stallTimeoutMs = m_stallTimeoutMs;
    auto *opened = const_cast<QList<QUrl> *>(&m_opened);
    environment.openUrl = [opened](const QUrl &url) {
        opened->append(url);
        return true;
    };
    return std::make_unique<UpgradeController>(mode, nullptr, environment);
}

void TestUpgradeController::offerUpdate(const QJsonObject &changes)
{
    m_server->offerUpdate(kPackage, packageBytes(), changes);
    UpdateServer::Answer package;
    package.body = packageBytes();
    package.pieces = 4;
    m_server->answer(kPackage, package);
}

QString TestUpgradeController::outcome(
    const std::function<void(const UpgradeController::Callback &)> &start, bool *ok)
{
    QString text;
    bool ended = false;
    start([&](bool success, const QString &message) {
        *ok = success;
        text = message;
        ended = true;
    });
    return QTest::qWaitFor([&ended] { return ended; }, 15000) ? text : QStringLiteral("time-out");
}

QStringList TestUpgradeController::cachedFiles() const
{
    return QDir(m_dir->filePath(QStringLiteral("cache"))).entryList(QDir::Files | QDir::Hidden);
}

void TestUpgradeController::checksAndRemembers()
{
    offerUpdate({{QStringLiteral("forceUpdate"), true}});
    {
        auto controller = newController();
        QCOMPARE(controller->statusText(), QStringLiteral("尚未检查更新"));
        QCOMPARE(controller->lastCheckText(), QStringLiteral("从未"));
        QSignalSpy finished(controller.get(), &UpgradeController::checkFinished);
        controller->manualCheck();
        QCOMPARE(controller->statusText(), QStringLiteral("正在检查更新"));
        bool second = true;
        QString refused;
        controller->runCheck(true, [&](bool ok, const QString &message) {
            second = ok;
            refused = message;
        });
        QVERIFY(!second);
        QCOMPARE(refused, QStringLiteral("正在检查更新，请稍候。"));
        QTRY_COMPARE(finished, (QList<QVariantList>{{true, QStringLiteral("发现新版本 9.0。")}}));
    }
    const auto controller = newController();
    QCOMPARE(controller->statusText(), QStringLiteral("发现新版本 9.0"));
    QVERIFY(controller->isForceUpdateRequired());
    QVERIFY(!newController(core::AppMode::livecd)->isForceUpdateRequired());
}

void TestUpgradeController::keepsAnEarlierAnswerOnFailure_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("message");
    const QString failed = QStringLiteral("检查更新失败。");
    QTest::newRow("server's words") << 503 << QByteArray(R"({"message":"忙"})") << "忙";
    QTest::newRow("server error") << 503 << QByteArray("<html>")
                                  << "更新服务器返回了错误（HTTP 503）。";
    // What a hotel's network sends instead of the answer.
    QTest::newRow("log-in page") << 200 << QByteArray("<html>log in</html>") << failed;
    QTest::newRow("redirect") << 302
                              << QByteArray(R"({"latestVersion":"1.0.1","updateAvailable":false})")
                              << "更新服务器返回了错误（HTTP 302）。";
    QTest::newRow("array") << 200 << QByteArray("[]") << failed;
    QTest::newRow("empty body") << 200 << QByteArray() << failed;
    QTest::newRow("other JSON") << 200 << QByteArray(R"({"code":0,"data":{"login":"here"}})")
                                << failed;
    QTest::newRow("wrong types") << 200
                                 << QByteArray(R"({"latestVersion":7,"updateAvailable":"no"})")
                                 << failed;
    QTest::newRow("refusal without words")
        << 200 << QByteArray(R"({"code":42})") << "更新服务器拒绝了请求（代码 42）。";
}

void TestUpgradeController::keepsAnEarlierAnswerOnFailure()
{
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    offerUpdate({{QStringLiteral("forceUpdate"), true}});
    const auto controller = newController();
    bool ok = false;
    outcome([&](const auto &done) { controller->runCheck(true, done); }, &ok);
    QVERIFY(ok);
    QJsonObject before = controller->state().toJson();
    UpdateServer::Answer bad;
    bad.status = status;
    bad.body = body;
    bad.headers = {"Location: /login"};
    m_server->answer(QStringLiteral("/api/version/latest"), bad);
    QTEST(outcome([&](const auto &done) { controller->runCheck(true, done); }, &ok), "message");
    QVERIFY(!ok);
    QCOMPARE(controller->statusText(), QStringLiteral("最近一次检查失败"));
    QVERIFY(controller->isForceUpdateRequired());
    // Nothing but the outcome of the check has changed, in the file, either.
    for (QJsonObject after : {controller->state().toJson(), newController()->state().toJson()}) {
        QCOMPARE(after.take(QStringLiteral("lastCheckSuccess")), QJsonValue(false));
        after.remove(QStringLiteral("lastCheckAt"));
        before.remove(QStringLiteral("lastCheckSuccess"));
        before.remove(QStringLiteral("lastCheckAt"));
        QCOMPARE(after, before);
    }
}

void TestUpgradeController::checksAtStartOnceADay()
{
    offerUpdate();
    auto controller = newController();
    QSignalSpy finished(controller.get(), &UpgradeController::checkFinished);
    QVERIFY(controller->startupCheck());
    QVERIFY(finished.wait());
    QVERIFY(!newController()->startupCheck());
    // A mandatory one is looked at again at every start.
    offerUpdate({{QStringLiteral("forceUpdate"), true}});
    bool ok = false;
    outcome([&](const auto &done) { controller->runCheck(true, done); }, &ok);
    controller = newController();
    QSignalSpy again(controller.get(), &UpgradeController::checkFinished);
    QVERIFY(controller->startupCheck());
    QVERIFY(again.wait());
}

void TestUpgradeController::forgetsTheUpdateThatRuns()
{
    offerUpdate({{QStringLiteral("forceUpdate"), true}});
    bool ok = false;
    const auto controller = newController();
    outcome([&](const auto &done) { controller->runCheck(true, done); }, &ok);
    QCoreApplication::setApplicationVersion(QStringLiteral("9.0"));
    QVERIFY(!newController()->updateAvailable());
}

void TestUpgradeController::installsOnlyWhatMatches_data()
{
    QTest::addColumn<UpdateServer::Answer>("package");
    QTest::addColumn<QJsonObject>("changes");
    QTest::addColumn<QString>("message");
    const auto answerWith = [](int status, const QByteArray &body) {
        UpdateServer::Answer answer;
        answer.status = status;
        answer.body = body;
        return answer;
    };
    const UpdateServer::Answer good = answerWith(200, packageBytes());
    const QJsonObject same;
    const QString failed = QStringLiteral("下载更新包失败。");
    const QString wrong = QStringLiteral("更新包校验失败，请稍后重试。");
    QTest::newRow("the package") << good << same << submittedText();
    UpdateServer::Answer trickle = good;
    trickle.pieces = 500; // Takes longer than kShortStallMs, and never stands still.
    QTest::newRow("slow") << trickle << same << submittedText();
    UpdateServer::Answer stalled = good;
    stalled.holdAfter = 1000;
    QTest::newRow("standing still") << stalled << same << failed;
    QTest::newRow("another content") << answerWith(200, "other") << same << wrong;
    QTest::newRow("no content") << answerWith(200, QByteArray()) << same << wrong;
    UpdateServer::Answer cut = good;
    cut.cutAfter = 1000;
    QTest::newRow("cut off") << cut << same << failed;
    QTest::newRow("not found") << answerWith(404, packageBytes()) << same << failed;
    UpdateServer::Answer loop = answerWith(302, packageBytes());
    loop.headers = {"Location: " + kPackage.toLatin1()};
    QTest::newRow("moved in a circle") << loop << same << failed;
    QTest::newRow("refused") << good
                             << QJsonObject{{QStringLiteral("packageUrl"),
                                             QStringLiteral("http://127.0.0.1:9/p.deb")}}
                             << failed;
    QTest::newRow("another machine's")
        << good << QJsonObject{{QStringLiteral("arch"), QStringLiteral("mips64el")}}
        << QStringLiteral("服务端返回的更新包架构与当前设备不匹配。");
    QTest::newRow("without a hash")
        << good << QJsonObject{{QStringLiteral("packageMd5"), QString()}}
        << QStringLiteral("服务端未返回更新包校验值。");
    QTest::newRow("a version that names no file")
        << good << QJsonObject{{QStringLiteral("latestVersion"), QStringLiteral("../9.0")}}
        << QStringLiteral("服务端未返回目标版本号。");
    QTest::newRow("up to date") << good
                                << QJsonObject{{QStringLiteral("latestVersion"),
                                                QStringLiteral("1.0.1")}}
                                << QStringLiteral("当前已经是最新版本。");
}

void TestUpgradeController::installsOnlyWhatMatches()
{
    QFETCH(UpdateServer::Answer, package);
    QFETCH(QJsonObject, changes);
    QFETCH(QString, message);
    offerUpdate(changes);
    m_server->answer(kPackage, package);
    if (package.pieces > 1 || package.holdAfter >= 0)
        m_stallTimeoutMs = kShortStallMs;

    const auto controller = newController();
    bool ok = false;
    QCOMPARE(outcome([&](const auto &done) { controller->startImmediateUpdate(done); }, &ok),
             message);
    const bool good = message == submittedText();
    QCOMPARE(ok, good);
    QCOMPARE(m_vault->count(kInstall), good ? 1 : 0);
    QCOMPARE(cachedFiles().size(), good ? 1 : 0);
    if (!good) {
        QVERIFY(controller->statusText() != QStringLiteral("正在下载安装更新"));
        return;
    }
    const QJsonObject params = m_vault->lastParams(kInstall);
    QFile file(params.value(QStringLiteral("packagePath")).toString());
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), packageBytes());
    QVERIFY(params.value(QStringLiteral("launchEnv"))
                .toObject()
                .contains(QStringLiteral("QT_QPA_PLATFORM")));
}

void TestUpgradeController::fetchesAVerifiedPackageOnce()
{
    offerUpdate();
    // Through a redirect, as download hosts do.
    UpdateServer::Answer moved;
    moved.status = 302;
    moved.headers = {"Location: /elsewhere.deb"};
    UpdateServer::Answer package;
    package.body = packageBytes();
    m_server->answer(kPackage, moved);
    m_server->answer(QStringLiteral("/elsewhere.deb"), package);
    bool ok = false;
    m_vault->replyOnce(kInstall, services::Reply::failure(9, QStringLiteral("包管理器正忙")));
    const auto first = newController();
    QCOMPARE(outcome([&](const auto &done) { first->startImmediateUpdate(done); }, &ok),
             QStringLiteral("包管理器正忙"));
    QCOMPARE(m_server->count(kPackage), 1);

    const auto second = newController();
    outcome([&](const auto &done) { second->startImmediateUpdate(done); }, &ok);
    QVERIFY(ok);
    QCOMPARE(m_server->count(kPackage), 1);
    QCOMPARE(m_vault->count(kInstall), 2);

    // A run that ended before it could note what it had verified.
    QVERIFY(QFile::remove(m_dir->filePath(QStringLiteral("state.json"))));
    const auto third = newController();
    outcome([&](const auto &done) { third->startImmediateUpdate(done); }, &ok);
    QVERIFY(ok);
    QCOMPARE(m_server->count(kPackage), 1);
    QCOMPARE(m_vault->count(kInstall), 3);

    // What changed on the disk since is never handed over, but fetched anew.
    QFile file(m_dir->filePath(QStringLiteral("cache/")) + cachedFiles().constFirst());
    QVERIFY(file.open(QIODevice::ReadWrite));
    file.write("X");
    file.close();
    const auto fourth = newController();
    outcome([&](const auto &done) { fourth->startImmediateUpdate(done); }, &ok);
    QVERIFY(ok);
    QCOMPARE(m_server->count(kPackage), 2);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), packageBytes());
}

// A check may bring a newer version while the package of the one before is on its way.
void TestUpgradeController::installsThePackageItBeganWith()
{
    offerUpdate();
    const auto controller = newController();
    bool ok = false;
    outcome([&](const auto &done) { controller->runCheck(true, done); }, &ok);
    UpdateServer::Answer late;
    late.body = packageBytes();
    late.holdAfter = 1000;
    m_server->answer(kPackage, late);
    QSignalSpy finished(controller.get(), &UpgradeController::installFinished);
    controller->startImmediateUpdate();
    QCOMPARE(outcome([&](const auto &done) { controller->downloadPackage(done); }, &ok),
             QStringLiteral("更新任务正在进行中，请稍候。"));
    offerUpdate({{QStringLiteral("latestVersion"), QStringLiteral("9.1")},
                 {QStringLiteral("packageMd5"), QStringLiteral("00")}});
    outcome([&](const auto &done) { controller->runCheck(true, done); }, &ok);
    QVERIFY(ok);
    QVERIFY(finished.isEmpty());
    m_server->release(kPackage);
    QTRY_COMPARE(finished.size(), 1);
    QCOMPARE(controller->state().downloadedPackage.version, QStringLiteral("9.0"));
    QCOMPARE(controller->state().downloadedPackage.md5.toLatin1(),
             QCryptographicHash::hash(packageBytes(), QCryptographicHash::Md5).toHex());
    QVERIFY(!controller->hasUsableDownloadedPackage());
}

void TestUpgradeController::reportsAMissingInstaller()
{
    offerUpdate({{QStringLiteral("forceUpdate"), true}});
    m_vault->stop();
    const auto controller = newController();
    bool ok = true;
    outcome([&](const auto &done) { controller->runCheck(true, done); }, &ok);
    QSignalSpy finished(controller.get(), &UpgradeController::installFinished);
    const QString message = QStringLiteral("未连接到本地安装服务。");
    QCOMPARE(outcome([&](const auto &done) { controller->startForcedUpdate(done); }, &ok), message);
    QCOMPARE(finished, (QList<QVariantList>{{false, message}}));
    QCOMPARE(newController()->state().lastForcedUpdateFailure, message);
}

void TestUpgradeController::handsOverToTheAgent()
{
    const QString agent = m_dir->filePath(QStringLiteral("MorvaneUpgrade"));
    const QString notes = m_dir->filePath(QStringLiteral("arguments"));
    QFile script(agent);
    QVERIFY(script.open(QIODevice::WriteOnly));
    script.write("#!/bin/sh\necho \"$@\" > '" + QFile::encodeName(notes) + ".part'\nmv '" +
                 QFile::encodeName(notes) + ".part' '" + QFile::encodeName(notes) + "'\n");
    script.close();
    QVERIFY(script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    m_agents.append(agent);
    bool ok = false;
    const auto controller = newController();
    QCOMPARE(outcome([&](const auto &done) { controller->startImmediateUpdate(done); }, &ok),
             QStringLiteral("升级代理已启动，主程序即将退出。"));
    QTRY_VERIFY(QFile::exists(notes));
    QFile file(notes);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QList<QByteArray> words = file.readAll().trimmed().split(' ');
    QCOMPARE(words.size(), 3);
    QCOMPARE(words.at(0), QByteArray("--session"));
    QCOMPARE(words.at(1).size(), 36);
    QCOMPARE(words.at(2), QByteArray("--interactive"));
}

void TestUpgradeController::leadsToTheDownloadPage()
{
    const auto controller = newController(core::AppMode::livecd);
    bool ok = true;
    m_server->answerCheck({});
    QCOMPARE(outcome([&](const auto &done) { controller->openDownloadPage(done); }, &ok),
             QStringLiteral("服务端未返回有效的下载页面地址。"));
    offerUpdate({{QStringLiteral("downloadPageUrl"), QStringLiteral("file:///etc/passwd")}});
    outcome([&](const auto &done) { controller->openDownloadPage(done); }, &ok);
    QVERIFY(!ok);
    QVERIFY(m_opened.isEmpty());
    offerUpdate({{QStringLiteral("downloadPageUrl"), QStringLiteral("https://x.example/d")}});
    outcome([&](const auto &done) { controller->runCheck(true, done); }, &ok);
    QCOMPARE(outcome([&](const auto &done) { controller->openDownloadPage(done); }, &ok),
             QStringLiteral("已在浏览器中打开更新下载页。"));
    QCOMPARE(m_opened, QList<QUrl>{QUrl(QStringLiteral("https://x.example/d"))});
}

void TestUpgradeController::refusesInTheRecoveryEnvironment()
{
    bool ok = true;
    const auto livecd = newController(core::AppMode::livecd);
    QCOMPARE(outcome([&](const auto &done) { livecd->startImmediateUpdate(done); }, &ok),
             QStringLiteral("当前客户端不支持自动更新。"));
    const auto normal = newController();
    QCOMPARE(outcome([&](const auto &done) { normal->startForcedUpdate(done); }, &ok),
             QStringLiteral("当前不满足强制更新条件。"));
    QVERIFY(!ok);
}

void TestUpgradeController::reportsTlsErrors()
{
    // A certificate that nobody has signed.
    const QString key = m_dir->filePath(QStringLiteral("key.pem"));
    const QString certificate = m_dir->filePath(QStringLiteral("certificate.pem"));
    QCOMPARE(QProcess::execute(
                 QStringLiteral("openssl"),
                 {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"),
                  QStringLiteral("rsa:2048"), QStringLiteral("-nodes"), QStringLiteral("-days"),
                  QStringLiteral("2"), QStringLiteral("-subj"), QStringLiteral("/CN=127.0.0.1"),
                  QStringLiteral("-keyout"), key, QStringLiteral("-out"), certificate}),
             0);
    QFile keyFile(key);
    QFile certificateFile(certificate);
    QVERIFY(keyFile.open(QIODevice::ReadOnly) && certificateFile.open(QIODevice::ReadOnly));
    UpdateServer packages;
    QVERIFY(packages.start());
    packages.useTls(certificateFile.readAll(), keyFile.readAll());
    offerUpdate({{QStringLiteral("packageUrl"), packages.url(kPackage).toString()}});
    QTest::ignoreMessage(
        QtWarningMsg, QRegularExpression(QStringLiteral("Upgrade package sslErrors: .*errors=.")));
    auto controller = newController();
    bool ok = true;
    QCOMPARE(outcome([&](const auto &done) { controller->startImmediateUpdate(done); }, &ok),
             QStringLiteral("下载更新包失败。"));
    QCOMPARE(packages.count(kPackage), 0);

    keyFile.seek(0);
    certificateFile.seek(0);
    m_server->useTls(certificateFile.readAll(), keyFile.readAll());
    controller = newController();
    const QString message =
        outcome([&](const auto &done) { controller->runCheck(true, done); }, &ok);
    QVERIFY(!ok);
    QCOMPARE(message, QStringLiteral("无法与更新服务器建立安全连接，请检查系统时间和网络。"));
}

QTEST_GUILESS_MAIN(TestUpgradeController)
#include "tst_upgradecontroller.moc"
