#include "core/controllers/diskinfoprovider.h"
#include "core/controllers/forensicscontroller.h"
#include "core/controllers/recoverycontroller.h"
#include "core/controllers/scancontroller.h"
#include "core/controllers/scanparams.h"
#include "core/ipc/ipcclient.h"
#include "support/fakeservice.h"

#include <QJsonDocument>
#include <QMetaMethod>
#include <QSignalSpy>
#include <QTest>

#include <functional>
#include <memory>
#include <vector>

using core::ipc::IpcClient;
using services::Reply;
using testsupport::FakeService;
using ui::common::models::DiskGroup;

namespace {

QJsonObject json(const char *text)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(QByteArray(text), &error);
    if (error.error != QJsonParseError::NoError)
        qFatal("bad JSON in a table: %s", text);
    return document.object();
}

QString argumentText(const QVariant &value)
{
    if (value.userType() == QMetaType::QJsonObject)
        return QString::fromUtf8(
            QJsonDocument(value.toJsonObject()).toJson(QJsonDocument::Compact));
    if (value.userType() == QMetaType::QJsonArray)
        return QString::fromUtf8(QJsonDocument(value.toJsonArray()).toJson(QJsonDocument::Compact));
    if (value.userType() == QMetaType::QStringList)
        return value.toStringList().join(QLatin1Char('|'));
    if (value.userType() == qMetaTypeId<QVector<DiskGroup>>()) {
        QStringList titles;
        for (const DiskGroup &group : value.value<QVector<DiskGroup>>())
            titles.append(group.diskTitle);
        return titles.join(QLatin1Char('|'));
    }
    return value.toString();
}

/// The four controllers on one client, and every signal that any of them emits, as
/// "name(argument, argument)".
struct Controllers
{
    core::controllers::DiskInfoProvider disks;
    core::controllers::ScanController scan;
    core::controllers::RecoveryController recovery;
    core::controllers::ForensicsController forensics;
    std::vector<std::unique_ptr<QSignalSpy>> spies;

    explicit Controllers(IpcClient *client)
        : disks(client)
        , scan(client)
        , recovery(client)
        , forensics(client)
    {
        for (QObject *controller :
             std::initializer_list<QObject *>{&disks, &scan, &recovery, &forensics}) {
            const QMetaObject *meta = controller->metaObject();
            for (int i = QObject::staticMetaObject.methodCount(); i < meta->methodCount(); ++i) {
                if (meta->method(i).methodType() != QMetaMethod::Signal)
                    continue;
                // What SIGNAL() makes of a signature.
                const QByteArray signature = "2" + meta->method(i).methodSignature();
                spies.emplace_back(new QSignalSpy(controller, signature.constData()));
            }
        }
    }

    /// Runs the event loop until something comes, and gives back what came.
    QStringList waitForSignals()
    {
        QStringList got;
        const bool came = QTest::qWaitFor([&] { return !(got = takeSignals()).isEmpty(); });
        return came ? got : QStringList(QStringLiteral("nothing came"));
    }

    /// What came since the last call, each controller's signals in the order of its header.
    QStringList takeSignals()
    {
        QStringList lines;
        for (const std::unique_ptr<QSignalSpy> &spy : spies) {
            const QByteArray signature = spy->signal();
            const QString name = QString::fromLatin1(signature.left(signature.indexOf('(')));
            for (const QVariantList &arguments : qAsConst(*spy)) {
                QStringList texts;
                for (const QVariant &argument : arguments)
                    texts.append(argumentText(argument));
                lines.append(QStringLiteral("%1(%2)").arg(name, texts.join(QStringLiteral(", "))));
            }
            spy->clear();
        }
        return lines;
    }
};

using Call = std::function<void(Controllers &)>;

QStringList lines(const char *text)
{
    return *text ? QString::fromUtf8(text).split(QLatin1Char('\n')) : QStringList();
}

} // namespace

Q_DECLARE_METATYPE(Call)

class TestRecoveryControllers : public QObject
{
    Q_OBJECT

private slots:
    void requests_data();
    void requests();
    void events_data();
    void events();
    void keepsTheIdOfTheLastStart();
    void refusesAStartWithoutAnId_data();
    void refusesAStartWithoutAnId();
    void joinsThePagesOfAList();
    void survivesTheEndOfEitherSide();
    void tellsALostLink();
    void readsPartitions();
    void buildsScanParams_data();
    void buildsScanParams();
};

void TestRecoveryControllers::requests_data()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<QJsonObject>("params");
    QTest::addColumn<QJsonObject>("data");
    QTest::addColumn<QStringList>("onSuccess");
    QTest::addColumn<QStringList>("onWords");   // refused with the words "不行"
    QTest::addColumn<QStringList>("onSilence"); // refused without words
    QTest::addColumn<QStringList>("onNoClient");
    const auto text = [](const char *utf8) {
        return QString::fromUtf8(utf8);
    };
    const auto row = [](const char *method, const Call &call, const char *params, const char *data,
                        const char *success, const QString &words, const QString &silence,
                        const QString &noClient) {
        const auto list = [](const QString &line) {
            return line.isEmpty() ? QStringList() : QStringList(line);
        };
        QTest::newRow(method) << call << json(params) << json(data)
                              << list(QString::fromUtf8(success)) << list(words) << list(silence)
                              << list(noClient);
    };
    // `failure` holds the place of the message as %1.
    const auto asking = [&](const char *method, const Call &call, const char *params,
                            const char *data, const char *success, const char *failure,
                            const char *fallback, const char *noClient) {
        row(method, call, params, data, success, text(failure).arg(text("不行")),
            text(failure).arg(text(fallback)),
            *noClient ? text(failure).arg(text(noClient)) : QString());
    };
    const auto query = [&](const char *method, const char *id, const Call &call, const char *params,
                           const char *data, const char *success) {
        const QString failure = QStringLiteral("queryFailed(%1, %2, ").arg(text(method), text(id));
        asking(method, call, params, data, success, qUtf8Printable(failure + text("%1)")), "", "");
    };
    const char *noIpc = "IPC 客户端不可用";
    const char *noIpcEnglish = "IPC not available";

    asking(
        "disk.enumerate", [](Controllers &c) { c.disks.refresh(); }, "{}",
        R"({"groups":[{"diskTitle":"A"},{"diskTitle":"B"}]})", "diskGroupsReady(A|B)",
        "loadFailed(%1)", "获取分区数据失败", noIpc);
    asking(
        "scan.start", [](Controllers &c) { c.scan.startScan(json(R"({"devicePath":"/dev/x"})")); },
        R"({"devicePath":"/dev/x"})", R"({"sessionId":"s1"})", "scanStarted(s1)", "scanError(, %1)",
        "启动扫描失败", noIpc);
    asking(
        "scan.pause", [=](Controllers &c) { c.scan.pauseScan(text("s2")); },
        R"({"sessionId":"s2"})", "{}", "pauseRequestResult(s2, true, )",
        "pauseRequestResult(s2, false, %1)", "", noIpc);
    asking(
        "scan.resume", [=](Controllers &c) { c.scan.resumeScan(text("s2")); },
        R"({"sessionId":"s2"})", "{}", "resumeRequestResult(s2, true, )",
        "resumeRequestResult(s2, false, %1)", "", noIpc);
    asking(
        "scan.stop", [=](Controllers &c) { c.scan.stopScan(text("s2")); }, R"({"sessionId":"s2"})",
        "{}", "stopRequestResult(s2, true, )", "stopRequestResult(s2, false, %1)", "", noIpc);

    asking(
        "recovery.start",
        [](Controllers &c) { c.recovery.startRecovery(json(R"({"fileIds":["a"]})")); },
        R"({"fileIds":["a"]})", R"({"recoveryId":"r1"})", "recoveryStarted(r1)",
        "recoveryError(, %1)", "启动恢复失败", noIpc);
    asking(
        "recovery.stop", [=](Controllers &c) { c.recovery.stopRecovery(text("r2")); },
        R"({"recoveryId":"r2"})", "{}", "stopResult(r2, true, )", "stopResult(r2, false, %1)",
        "停止恢复失败", "");
    asking(
        "recovery.restoreVaultFiles",
        [=](Controllers &c) {
            c.recovery.restoreVaultFiles(text("/dev/x1"), {text("f1"), text("f2")}, text("/out"),
                                         text("rename"));
        },
        R"({"vaultPartition":"/dev/x1","fileIds":["f1","f2"],"targetDir":"/out",
               "conflictPolicy":"rename"})",
        R"({"taskId":"t1"})", "vaultRestoreStarted(t1)", "vaultRestoreError(%1)",
        "启动 vault 恢复失败", noIpc);
    asking(
        "recovery.listVaultLocations", [](Controllers &c) { c.recovery.fetchVaultLocations(); },
        "{}", R"({"locations":[{"userName":"u"}],"targetMounted":true})",
        "vaultLocationsReceived([{\"userName\":\"u\"}], true, )",
        "vaultLocationsReceived([], false, %1)", "读取受保护文件列表失败", noIpc);
    query(
        "session.list", "", [](Controllers &c) { c.recovery.fetchSessionList(50, 10); },
        R"({"limit":50,"offset":10})", R"({"sessions":[{"sessionId":"s"}]})",
        "sessionListReceived([{\"sessionId\":\"s\"}])");
    query(
        "session.getDetail", "s3",
        [=](Controllers &c) { c.recovery.fetchSessionDetail(text("s3")); }, R"({"sessionId":"s3"})",
        R"({"devicePath":"/dev/x"})", "sessionDetailReceived(s3, {\"devicePath\":\"/dev/x\"})");
    query(
        "session.getFiles", "s3", [=](Controllers &c) { c.recovery.fetchSessionFiles(text("s3")); },
        R"({"sessionId":"s3","limit":5000,"offset":0})", R"({"files":[{"fileId":"f"}]})",
        "sessionFilesReceived(s3, [{\"fileId\":\"f\"}])");
    query(
        "recovery.getDetail", "r3",
        [=](Controllers &c) { c.recovery.fetchRecoveryTaskDetail(text("r3")); },
        R"({"recoveryId":"r3"})", R"({"status":"running"})",
        "recoveryTaskDetailReceived(r3, {\"status\":\"running\"})");
    asking(
        "session.delete", [=](Controllers &c) { c.recovery.deleteSession(text("s4")); },
        R"({"sessionId":"s4"})", "{}", "sessionDeleted(s4, true)", "sessionDeleted(s4, false)", "",
        "");

    asking(
        "debug.registerFile", [=](Controllers &c) { c.forensics.registerFile(text("/a/b")); },
        R"({"filePath":"/a/b"})", R"({"snapshotId":"n"})",
        "registerResult(true, {\"snapshotId\":\"n\"}, )", "registerResult(false, {}, %1)", "",
        noIpcEnglish);
    asking(
        "debug.verify", [=](Controllers &c) { c.forensics.verify(text("n"), text("首次")); },
        R"({"snapshotId":"n","note":"首次"})", R"({"verificationId":"v"})",
        "verifyResult(true, {\"verificationId\":\"v\"}, )", "verifyResult(false, {}, %1)", "",
        noIpcEnglish);
    asking(
        "debug.recoverFile",
        [=](Controllers &c) { c.forensics.recoverFile(text("n"), text("/out")); },
        R"({"snapshotId":"n","outputDir":"/out"})", R"({"failedBlocks":0})",
        "recoverFileResult(true, {\"failedBlocks\":0}, )", "recoverFileResult(false, {}, %1)", "",
        noIpcEnglish);
    query(
        "debug.listSnapshots", "", [](Controllers &c) { c.forensics.listSnapshots(); }, "{}",
        R"({"snapshots":[{"snapshotId":"n"}]})", "snapshotsListed([{\"snapshotId\":\"n\"}])");
    query(
        "debug.getSnapshot", "n", [=](Controllers &c) { c.forensics.getSnapshot(text("n")); },
        R"({"snapshotId":"n"})", R"({"fileSize":5})", "snapshotLoaded({\"fileSize\":5})");
    query(
        "debug.getVerification", "v",
        [=](Controllers &c) { c.forensics.getVerification(text("v")); },
        R"({"verificationId":"v"})", R"({"note":"x"})", "verificationLoaded({\"note\":\"x\"})");
    asking(
        "debug.deleteSnapshot", [=](Controllers &c) { c.forensics.deleteSnapshot(text("n")); },
        R"({"snapshotId":"n"})", "{}", "snapshotDeleted(true)", "snapshotDeleted(false)", "", "");
}

void TestRecoveryControllers::requests()
{
    QFETCH(Call, call);
    QFETCH(QJsonObject, params);
    QFETCH(QJsonObject, data);
    QFETCH(QStringList, onSuccess);
    QFETCH(QStringList, onWords);
    QFETCH(QStringList, onSilence);
    QFETCH(QStringList, onNoClient);
    const QString method = QString::fromLatin1(QTest::currentDataTag());

    FakeService service;
    QVERIFY(service.start());
    service.replyOnce(method, Reply::ok(data));
    service.replyOnce(method, Reply::failure(7, QStringLiteral("不行")));
    service.replyOnce(method, Reply::failure(7, QString()));
    IpcClient client(service.name());
    QVERIFY(client.ensureConnected(2000));
    Controllers controllers(&client);
    for (const QStringList &expected : {onSuccess, onWords, onSilence}) {
        call(controllers);
        QCOMPARE(controllers.waitForSignals(), expected);
        QCOMPARE(service.lastParams(method), params);
    }
    QCOMPARE(service.methods(), QStringList({method, method, method}));

    Controllers bare(nullptr);
    call(bare);
    QCOMPARE(bare.takeSignals(), onNoClient);
}

void TestRecoveryControllers::events_data()
{
    QTest::addColumn<QString>("event");
    QTest::addColumn<QJsonObject>("data");
    QTest::addColumn<QStringList>("expected");
    const auto row = [](const char *name, const char *event, const char *data,
                        const char *expected) {
        QTest::newRow(name) << QString::fromLatin1(event) << json(data) << lines(expected);
    };
    row("scan progress", "scan.progress",
        R"({"sessionId":"s","progress":12.5,"filesFound":7,"elapsed":5000000000,
            "phaseText":"正在扫描"})",
        "scanProgress(s, 12.5, 7, 5000000000, 正在扫描)");
    row("scan progress with keys missing", "scan.progress", R"({"sessionId":"s"})",
        "scanProgress(s, 0, 0, 0, )");
    row("scan progress with values of other types", "scan.progress",
        R"({"sessionId":5,"progress":"x","filesFound":[],"elapsed":"y","phaseText":1})",
        "scanProgress(, 0, 0, 0, )");
    row("fractions of a millisecond", "scan.progress", R"({"elapsed":1234.9})",
        "scanProgress(, 0, 0, 1234, )");
    row("no such time", "scan.progress", R"({"elapsed":1e300})",
        "scanProgress(, 0, 0, 9223372036854775807, )");
    row("no such time, negative", "scan.progress", R"({"elapsed":-1e300})",
        "scanProgress(, 0, 0, -9223372036854775808, )");
    row("files", "scan.fileFound", R"({"sessionId":"s","files":[{"fileId":"f"}]})",
        "filesDiscovered(s, [{\"fileId\":\"f\"}])");
    row("scan completed", "scan.completed", R"({"sessionId":"s","summary":{"filesFound":3}})",
        "scanCompleted(s, {\"filesFound\":3})");
    row("scan paused", "scan.paused", R"({"sessionId":"s"})", "scanPaused(s)");
    row("scan stopped", "scan.stopped", R"({"sessionId":"s"})", "scanStopped(s)");
    row("scan error", "scan.error",
        R"({"sessionId":"s","error":{"code":1003,"message":"读取失败"}})",
        "scanError(s, 读取失败)");
    row("scan error without words", "scan.error", R"({"sessionId":"s","error":{"code":5}})",
        "scanError(s, 扫描异常)");
    row("scan error without an error", "scan.error", R"({"sessionId":"s"})",
        "scanError(s, 扫描异常)");
    row("scan error of a requested stop", "scan.error",
        R"({"sessionId":"s","error":{"code":1002,"message":"已取消"}})", "scanStopped(s)");

    row("recovery progress", "recovery.progress",
        R"({"recoveryId":"r","progress":50.5,"processed":2,"total":4})",
        "recoveryProgress(r, 50.5, 2, 4)");
    row("file status", "recovery.fileStatus",
        R"({"recoveryId":"r","fileId":"f","status":"partial","detail":"d",
            "timeline":["一","二"]})",
        "recoveryFileStatus(r, f, partial, d, 一|二)");
    row("recovery completed", "recovery.completed",
        R"({"recoveryId":"r","summary":{"succeeded":1}})",
        "recoveryCompleted(r, {\"succeeded\":1})");
    row("recovery error", "recovery.error", R"({"recoveryId":"r","error":{"message":"磁盘已满"}})",
        "recoveryError(r, 磁盘已满)");
    row("recovery error without words", "recovery.error",
        R"({"recoveryId":"r","error":{"message":""}})", "recoveryError(r, 恢复异常)");
    row("recovery error of a requested stop", "recovery.error",
        R"({"recoveryId":"r","error":{"code":1002}})", "recoveryStopped(r)");
    row("vault file", "recovery.vaultFileRestored",
        R"({"taskId":"t","fileId":"f","originalPath":"/p","status":"failed","error":"e"})",
        "vaultFileRestored(t, f, /p, failed, e)");
    row("vault restore completed", "recovery.vaultRestoreCompleted",
        R"({"taskId":"t","total":4,"succeeded":1,"failed":2,"skipped":1,
            "totalBytes":9007199254740991})",
        "vaultRestoreCompleted(t, 4, 1, 2, 1, 9007199254740991)");

    for (const char *event : {"scan", "scan.", "scan.progress2", "scan.Progress", "xscan.progress",
                              "progress", "recovery.vaultfilerestored", "recovery.stopped",
                              "recovery.", "debug.progress", "vault.progress", ""})
        row(qPrintable(QStringLiteral("unknown '%1'").arg(QLatin1String(event))), event,
            R"({"sessionId":"s","recoveryId":"s"})", "");
}

void TestRecoveryControllers::events()
{
    QFETCH(QString, event);
    QFETCH(QJsonObject, data);
    QFETCH(QStringList, expected);
    FakeService service;
    QVERIFY(service.start());
    IpcClient client(service.name());
    QVERIFY(client.ensureConnected(2000));
    Controllers controllers(&client);
    QTRY_COMPARE(service.clientCount(), 1);
    service.broadcast(event, data);
    // The marker comes behind the event, so that nothing is still under way.
    service.broadcast(QStringLiteral("scan.paused"),
                      {{QStringLiteral("sessionId"), QStringLiteral("marker")}});
    QStringList got;
    const QString marker = QStringLiteral("scanPaused(marker)");
    QTRY_VERIFY((got += controllers.takeSignals()).contains(marker));
    got.removeOne(marker);
    QCOMPARE(got, expected);
}

void TestRecoveryControllers::keepsTheIdOfTheLastStart()
{
    FakeService service;
    QVERIFY(service.start());
    IpcClient client(service.name());
    QVERIFY(client.ensureConnected(2000));
    Controllers controllers(&client);
    for (const QString &id : {QStringLiteral("1"), QStringLiteral("2")}) {
        service.replyOnce(QStringLiteral("scan.start"),
                          Reply::ok({{QStringLiteral("sessionId"), id}}));
        service.replyOnce(QStringLiteral("recovery.start"),
                          Reply::ok({{QStringLiteral("recoveryId"), id}}));
        controllers.scan.startScan(QJsonObject());
        controllers.recovery.startRecovery(QJsonObject());
        QTRY_COMPARE(controllers.recovery.currentRecoveryId(), id);
        QCOMPARE(controllers.scan.currentSessionId(), id);
    }
    // A refused start leaves the running one.
    controllers.takeSignals();
    controllers.scan.startScan(QJsonObject());
    QVERIFY(controllers.waitForSignals().first().startsWith(QLatin1String("scanError(, ")));
    QCOMPARE(controllers.scan.currentSessionId(), QStringLiteral("2"));
}

void TestRecoveryControllers::refusesAStartWithoutAnId_data()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<QString>("expected");
    QTest::newRow("scan.start") << Call([](Controllers &c) { c.scan.startScan({}); })
                                << QStringLiteral("scanError(, 启动扫描失败)");
    QTest::newRow("recovery.start") << Call([](Controllers &c) { c.recovery.startRecovery({}); })
                                    << QStringLiteral("recoveryError(, 启动恢复失败)");
    QTest::newRow("recovery.restoreVaultFiles")
        << Call([](Controllers &c) { c.recovery.restoreVaultFiles({}, {}, {}, {}); })
        << QStringLiteral("vaultRestoreError(启动 vault 恢复失败)");
}

void TestRecoveryControllers::refusesAStartWithoutAnId()
{
    QFETCH(Call, call);
    QFETCH(QString, expected);
    FakeService service;
    QVERIFY(service.start());
    service.reply(QString::fromLatin1(QTest::currentDataTag()), QJsonObject());
    IpcClient client(service.name());
    QVERIFY(client.ensureConnected(2000));
    Controllers controllers(&client);
    call(controllers);
    QCOMPARE(controllers.waitForSignals(), QStringList(expected));
}

void TestRecoveryControllers::joinsThePagesOfAList()
{
    FakeService service;
    QVERIFY(service.start());
    IpcClient client(service.name());
    QVERIFY(client.ensureConnected(2000));
    Controllers controllers(&client);
    const QString method = QStringLiteral("session.getFiles");
    const auto page = [&](const char *files, int total) {
        service.replyOnce(
            method, Reply::ok({{QStringLiteral("files"), QJsonDocument::fromJson(files).array()},
                               {QStringLiteral("total"), total}}));
    };
    page("[1,2]", 4);
    page("[3]", 4);
    page("[4]", 4);
    controllers.recovery.fetchSessionFiles(QStringLiteral("s"));
    QCOMPARE(controllers.waitForSignals(),
             QStringList(QStringLiteral("sessionFilesReceived(s, [1,2,3,4])")));
    QCOMPARE(service.count(method), 3);
    QCOMPARE(service.lastParams(method).value(QLatin1String("offset")).toInt(), 3);

    // A list that has become shorter meanwhile ends all the same; a failure is told once.
    page("[1]", 9);
    page("[]", 9);
    controllers.recovery.fetchSessionFiles(QStringLiteral("s"));
    QCOMPARE(controllers.waitForSignals(),
             QStringList(QStringLiteral("sessionFilesReceived(s, [1])")));
    page("[1]", 9);
    service.fail(method, 7, QStringLiteral("weg"));
    controllers.recovery.fetchSessionFiles(QStringLiteral("s"));
    QCOMPARE(controllers.waitForSignals().join(QLatin1Char(' ')),
             QStringLiteral("queryFailed(session.getFiles, s, weg)"));
}

void TestRecoveryControllers::survivesTheEndOfEitherSide()
{
    FakeService service;
    QVERIFY(service.start());
    service.hold(QStringLiteral("disk.enumerate"));
    auto *client = new IpcClient(service.name());
    QVERIFY(client->ensureConnected(2000));
    auto *gone = new Controllers(client);
    Controllers left(client);
    gone->disks.refresh();
    QVERIFY(service.waitForRequest(QStringLiteral("disk.enumerate")));
    delete gone;
    QVERIFY(service.release(QStringLiteral("disk.enumerate"), Reply::ok()));
    left.disks.refresh();
    QVERIFY(service.waitForRequest(QStringLiteral("disk.enumerate"), 2));
    QVERIFY(service.release(QStringLiteral("disk.enumerate"), Reply::ok()));
    QCOMPARE(left.waitForSignals(), QStringList(QStringLiteral("diskGroupsReady()")));

    delete client;
    left.disks.refresh();
    QCOMPARE(left.takeSignals(), QStringList(QStringLiteral("loadFailed(IPC 客户端不可用)")));
}

void TestRecoveryControllers::tellsALostLink()
{
    FakeService service;
    IpcClient client(service.name());
    Controllers controllers(&client);
    controllers.scan.startScan(QJsonObject());
    QCOMPARE(controllers.takeSignals(),
             QStringList(QStringLiteral("scanError(, 未连接到服务 (%1))").arg(service.name())));

    QVERIFY(service.start());
    QVERIFY(client.ensureConnected(2000));
    service.hold(QStringLiteral("scan.start"));
    controllers.scan.startScan(QJsonObject());
    QVERIFY(service.waitForRequest(QStringLiteral("scan.start")));
    service.stop();
    QCOMPARE(
        controllers.waitForSignals(),
        QStringList(QStringLiteral("scanError(, 与服务 (%1) 的连接已断开)").arg(service.name())));
}

void TestRecoveryControllers::readsPartitions()
{
    const QJsonObject data = json(R"({"groups":[
        {"diskTitle":"Disk","diskSize":"3 GB","partitions":[
            {"title":"T","pathAndFs":"/dev/a  EXT4","used":"1 GB","total":"2 GB","mountPoint":"/m",
             "usage":50,"selected":true,"dashed":true},
            {}]},
        {"partitions":[]},
        7]})");
    const auto groups = core::controllers::DiskInfoProvider::parseGroups(
        data.value(QLatin1String("groups")).toArray());
    const QVector<DiskGroup> expected = {
        {QStringLiteral("Disk"),
         {{QStringLiteral("T"), QStringLiteral("/dev/a  EXT4"), QStringLiteral("1 GB"),
           QStringLiteral("2 GB"), QStringLiteral("/m"), 50, true, true},
          {QString(), QString(), QString(), QString(), QString(), 0, false, false}},
         QStringLiteral("3 GB")},
        {QString(), {}},
        {QString(), {}}};
    QCOMPARE(groups, expected);
}

void TestRecoveryControllers::buildsScanParams_data()
{
    QTest::addColumn<QString>("fileSystem");
    QTest::addColumn<QJsonObject>("settings");
    QTest::addColumn<QJsonObject>("expected");
    QTest::newRow("bare") << QString() << QJsonObject()
                          << json(R"({"devicePath":"/dev/x","scanMode":"deep"})");
    QTest::newRow("file system")
        << QStringLiteral("EXT4") << QJsonObject()
        << json(R"({"devicePath":"/dev/x","scanMode":"deep","fileSystem":"EXT4"})");
    QTest::newRow("settings, twice")
        << QString() << json(R"({"fileScope":"all","deepScanScope":"fullDisk"})")
        << json(R"({"devicePath":"/dev/x","scanMode":"deep","fileScope":"all",
                    "deepScanScope":"fullDisk",
                    "advancedSettings":{"fileScope":"all","deepScanScope":"fullDisk"}})");
}

void TestRecoveryControllers::buildsScanParams()
{
    QFETCH(QString, fileSystem);
    QFETCH(QJsonObject, settings);
    QTEST(core::controllers::buildScanParams(QStringLiteral("/dev/x"), fileSystem,
                                             QStringLiteral("deep"), settings),
          "expected");
}

QTEST_GUILESS_MAIN(TestRecoveryControllers)
#include "tst_recoverycontrollers.moc"
