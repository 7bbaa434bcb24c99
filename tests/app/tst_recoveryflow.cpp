#include "app/recoveryflow.h"
#include "support/dialogsteps.h"
#include "support/fakeservice.h"
#include "support/recoverywindow.h"
#include "ui/common/theme.h"

#include <QtTest>

using core::controllers::RecoveryTargetFacts;
using support::ModalDriver;
using support::presses;
using support::RecoveryWindow;
using testsupport::FakeService;
using Scan = ScanResultsPage::State;
using Recovery = RecoveryProgressPage::State;

namespace {

const QString kEnumerate = QStringLiteral("disk.enumerate");
const QString kPrepare = QStringLiteral("disk.prepareForScan");
const QString kStart = QStringLiteral("scan.start");
const QString kFiles = QStringLiteral("session.getFiles");
const QString kRecover = QStringLiteral("recovery.start");
const QString kCannotStart = QStringLiteral("无法开始扫描");
const QString kLinkLost = QStringLiteral("与恢复服务的连接已断开");

QJsonObject disks(const QString &pathAndFs)
{
    const QJsonObject partition{{QStringLiteral("title"), QStringLiteral("数据")},
                                {QStringLiteral("pathAndFs"), pathAndFs}};
    const QJsonObject disk{{QStringLiteral("diskTitle"), QStringLiteral("Disk")},
                           {QStringLiteral("partitions"), QJsonArray{partition}}};
    return {{QStringLiteral("groups"), QJsonArray{disk}}};
}

QJsonArray files(int count)
{
    QJsonArray made;
    for (int i = 0; i < count; ++i)
        made.append(QJsonObject{{QStringLiteral("fileId"), QStringLiteral("id%1").arg(i)},
                                {QStringLiteral("name"), QStringLiteral("名%1.pdf").arg(i)},
                                {QStringLiteral("sizeBytes"), 1000},
                                {QStringLiteral("probScore"), 90 - i},
                                {QStringLiteral("path"), QStringLiteral("/a")}});
    return made;
}

QJsonObject error(int code, const char *message)
{
    return {{QStringLiteral("code"), code},
            {QStringLiteral("message"), QString::fromUtf8(message)}};
}

} // namespace

Q_DECLARE_METATYPE(ScanResultsPage::State)
Q_DECLARE_METATYPE(RecoveryProgressPage::State)

class TestRecoveryFlow : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void wholePath();
    void refusedBeforeTheService_data();
    void refusedBeforeTheService();
    void refusedByTheService_data();
    void refusedByTheService();
    void mountedReadOnly();
    void otherSessionsAndTasks();
    void asksBeforeReplacing();
    void stopsAndEnds_data();
    void stopsAndEnds();
    void detailThatCannotBeRead();
    void samplesGoAndComeBack();
    void disksThatCannotBeRead();
    void linkLostMidScan_data();
    void linkLostMidScan();
    void linkLostTwice();
    void linkLostMidRecovery_data();
    void linkLostMidRecovery();
    void warnsOfTheTarget();
    void closingAsksWhileWorkIsUnderWay_data();
    void closingAsksWhileWorkIsUnderWay();
    void closingEndsTheRun();

private:
    void scanEvent(const char *event, QJsonObject data, const char *session = "s1");
    void taskEvent(const char *event, QJsonObject data, const char *task = "r1");
    void startScan();
    void startRecovery();

    std::unique_ptr<FakeService> m_service;
    std::unique_ptr<RecoveryWindow> m_window;
    RecoveryTargetFacts m_facts;
};

void TestRecoveryFlow::initTestCase()
{
    QApplication::setQuitOnLastWindowClosed(false);
    ui::common::ThemeColors::init(ui::common::ThemeType::dark, 1.0);
}

void TestRecoveryFlow::init()
{
    m_facts = RecoveryTargetFacts();
    m_facts.outputDir = QStringLiteral("/out/文件恢复_1");
    m_service = std::make_unique<FakeService>();
    QVERIFY(m_service->start());
    m_service->reply(kEnumerate, disks(QStringLiteral("/dev/sda1  EXT4")));
    m_service->reply(kPrepare, {{QStringLiteral("action"), QStringLiteral("ready")}});
    m_service->reply(kStart, {{QStringLiteral("sessionId"), QStringLiteral("s1")}});
    m_service->reply(kFiles, {{QStringLiteral("files"), files(3)}});
    m_service->reply(kRecover, {{QStringLiteral("recoveryId"), QStringLiteral("r1")}});
    m_service->reply(QStringLiteral("recovery.getDetail"), {});
    m_window = std::make_unique<RecoveryWindow>(m_service->name());
    m_window->findChild<RecoveryFlow *>()->setTargetProbe(
        [this](const QString &) { return m_facts; });
    QTRY_COMPARE(m_window->partitions()->selectedDevicePath(), QStringLiteral("/dev/sda1"));
}

void TestRecoveryFlow::cleanup()
{
    m_window.reset();
    QVERIFY(!RecoveryWindow::workflow()); // goes with the main window
    m_service.reset();
}

void TestRecoveryFlow::scanEvent(const char *event, QJsonObject data, const char *session)
{
    data.insert(QStringLiteral("sessionId"), QLatin1String(session));
    m_service->broadcast(QLatin1String(event), data);
}

void TestRecoveryFlow::taskEvent(const char *event, QJsonObject data, const char *task)
{
    data.insert(QStringLiteral("recoveryId"), QLatin1String(task));
    m_service->broadcast(QLatin1String(event), data);
}

void TestRecoveryFlow::startScan()
{
    m_window->pressStart();
    QTRY_COMPARE(RecoveryWindow::scan()->sessionId(), QStringLiteral("s1"));
    QCOMPARE(RecoveryWindow::scan()->state(), Scan::Running);
}

void TestRecoveryFlow::startRecovery()
{
    if (RecoveryWindow::scan()->state() != Scan::Running)
        startScan();
    scanEvent("scan.fileFound", {{QStringLiteral("files"), files(3)}});
    scanEvent("scan.completed", {});
    QTRY_COMPARE(RecoveryWindow::scan()->state(), Scan::Completed);
    RecoveryWindow::tick(0);
    RecoveryWindow::tick(2);
    RecoveryWindow::setOutput(QStringLiteral("/out"));
    RecoveryWindow::press("StartRecoveryButton");
}

void TestRecoveryFlow::wholePath()
{
    startScan();
    QCOMPARE(m_service->lastParams(kPrepare),
             (QJsonObject{{QStringLiteral("devicePath"), QStringLiteral("/dev/sda1")}}));
    QCOMPARE(m_service->lastParams(kStart),
             (QJsonObject{{QStringLiteral("devicePath"), QStringLiteral("/dev/sda1")},
                          {QStringLiteral("fileSystem"), QStringLiteral("EXT4")},
                          {QStringLiteral("scanMode"), QStringLiteral("quick")}}));
    QVERIFY(RecoveryWindow::scan()->isVisible());
    scanEvent("scan.progress", {{QStringLiteral("progress"), 41.9}});
    scanEvent("scan.fileFound", {{QStringLiteral("files"), files(2)}});
    QTRY_COMPARE(RecoveryWindow::rowCount(), 2);
    scanEvent("scan.completed", {});
    QTRY_COMPARE(RecoveryWindow::rowCount(), 3); // the full list
    QCOMPARE(m_service->count(kFiles), 1);

    RecoveryWindow::tick(0);
    RecoveryWindow::tick(2);
    RecoveryWindow::setOutput(QStringLiteral("  /out "));
    RecoveryWindow::press("StartRecoveryButton");
    QTRY_COMPARE(RecoveryWindow::recovery()->recoveryId(), QStringLiteral("r1"));
    QVERIFY(RecoveryWindow::recovery()->isVisible());
    QCOMPARE(m_service->lastParams(kRecover),
             (QJsonObject{{QStringLiteral("sessionId"), QStringLiteral("s1")},
                          {QStringLiteral("fileIds"),
                           QJsonArray{QStringLiteral("id0"), QStringLiteral("id2")}},
                          {QStringLiteral("outputDir"), m_facts.outputDir},
                          {QStringLiteral("conflictPolicy"), QStringLiteral("rename")}}));
    const auto *table = RecoveryWindow::recovery()->findChild<QAbstractItemView *>(
        QStringLiteral("RecoveryFileTable"));
    QCOMPARE(table->model()->rowCount(), 2);
    QCOMPARE(table->model()->index(1, 0).data().toString(), QStringLiteral("名2.pdf"));

    taskEvent("recovery.fileStatus", {{QStringLiteral("fileId"), QStringLiteral("id0")},
                                      {QStringLiteral("status"), QStringLiteral("success")}});
    QTRY_COMPARE(RecoveryWindow::text("RecoverySucceededCount"), QStringLiteral("已恢复\n1"));
    taskEvent("recovery.completed",
              {{QStringLiteral("summary"), QJsonObject{{QStringLiteral("succeeded"), 2}}}});
    QTRY_COMPARE(RecoveryWindow::recovery()->state(), Recovery::Completed);
    QVERIFY(m_service->waitForRequest(QStringLiteral("recovery.getDetail")));

    RecoveryWindow::press("BackToScanResultsButton");
    QVERIFY(RecoveryWindow::scan()->isVisible());
    QCOMPARE(RecoveryWindow::scan()->checkedFileIds().size(), 2);

    // Scanning again begins with the preparation.
    RecoveryWindow::press("StopButton");
    QVERIFY(m_service->waitForRequest(kStart, 2));
    QCOMPARE(m_service->count(kPrepare), 2);
    QCOMPARE(m_service->lastParams(kStart).value(QLatin1String("fileSystem")).toString(),
             QStringLiteral("EXT4"));
}

void TestRecoveryFlow::refusedBeforeTheService_data()
{
    QTest::addColumn<QString>("pathAndFs");
    QTest::addColumn<bool>("isServiceThere");
    QTest::addColumn<QString>("words");
    const QString none = QStringLiteral("当前没有可用于恢复的 EXT4 分区。");
    const QString link = QStringLiteral("恢复服务未连接，暂时无法准备目标分区。");
    QTest::newRow("free space") << QStringLiteral("未分配  RAW") << true << none;
    QTest::newRow("no disk") << QString() << true << none;
    QTest::newRow("service down") << QStringLiteral("/dev/sda1  EXT4") << false << link;
}

void TestRecoveryFlow::refusedBeforeTheService()
{
    QFETCH(QString, pathAndFs);
    QFETCH(bool, isServiceThere);
    m_service->reply(kEnumerate, pathAndFs.isEmpty() ? QJsonObject() : disks(pathAndFs));
    const QString before = m_window->partitions()->selectedDevicePath();
    m_service->dropClients();
    if (isServiceThere) {
        QTRY_VERIFY(m_window->partitions()->selectedDevicePath() != before);
        QVERIFY(m_service->waitForRequest(kEnumerate, 2));
    } else {
        m_service->stop();
        QTRY_VERIFY(m_window->showsSamples());
    }
    m_service->clearRequests();
    QStringList texts;
    const ModalDriver notice(presses("NoticeOkBtn", &texts));
    m_window->pressStart();
    QVERIFY(notice.handled());
    QCOMPARE(texts.value(0), kCannotStart);
    QTEST(texts.value(1), "words");
    QCOMPARE(m_service->count(kPrepare), 0);
    QVERIFY(!RecoveryWindow::workflow()->isVisible());
}

void TestRecoveryFlow::refusedByTheService_data()
{
    QTest::addColumn<QString>("said");
    QTest::addColumn<QString>("shown");
    QTest::newRow("its words") << QStringLiteral("分区忙") << QStringLiteral("分区忙");
    QTest::newRow("no words") << QString() << QStringLiteral("目标分区准备失败，请稍后重试。");
}

void TestRecoveryFlow::refusedByTheService()
{
    QFETCH(QString, said);
    m_service->fail(kPrepare, 7, said);
    QStringList texts;
    const ModalDriver notice(presses("NoticeOkBtn", &texts));
    m_window->pressStart();
    QTRY_VERIFY(notice.handled());
    QCOMPARE(texts.value(0), kCannotStart);
    QTEST(texts.value(1), "shown");
    QCOMPARE(m_service->count(kStart), 0);
    QVERIFY(!RecoveryWindow::workflow()->isVisible());

    // A start that is refused has no session, and shows on the page.
    m_service->reply(kPrepare, {});
    m_service->fail(kStart, 7, QStringLiteral("服务忙"));
    m_window->pressStart();
    QTRY_COMPARE(RecoveryWindow::scan()->state(), Scan::Failed);
    QVERIFY(RecoveryWindow::text("ScanPhaseLabel").contains(QStringLiteral("服务忙")));
    m_service->reply(kStart, {{QStringLiteral("sessionId"), QStringLiteral("s1")}});
    RecoveryWindow::press("StopButton");
    QTRY_COMPARE(RecoveryWindow::scan()->sessionId(), QStringLiteral("s1"));
    QCOMPARE(RecoveryWindow::scan()->state(), Scan::Running);
}

void TestRecoveryFlow::mountedReadOnly()
{
    m_service->reply(kPrepare, {{QStringLiteral("action"), QStringLiteral("mounted_readonly")}});
    QStringList texts;
    bool cameThrough = false;
    const ModalDriver notice([&](QWidget *dialog) {
        // Frames go on while the notice stands.
        scanEvent("scan.fileFound", {{QStringLiteral("files"), files(2)}});
        QTRY_COMPARE(RecoveryWindow::rowCount(), 2);
        cameThrough = true;
        presses("NoticeOkBtn", &texts)(dialog);
    });
    m_window->pressStart();
    QTRY_VERIFY(notice.handled());
    QCOMPARE(texts, (QStringList{QStringLiteral("扫描准备完成"),
                                 QStringLiteral("目标分区当前无法卸载，已切换为只读挂载后开始扫"
                                                "描。")}));
    QVERIFY(cameThrough);
}

void TestRecoveryFlow::otherSessionsAndTasks()
{
    startScan();
    const auto strangersScan = [this](const char *session) {
        scanEvent("scan.fileFound", {{QStringLiteral("files"), files(2)}}, session);
        scanEvent("scan.stopped", {}, session);
        scanEvent("scan.completed", {}, session);
        scanEvent("scan.progress", {{QStringLiteral("progress"), 77}}, session);
    };
    strangersScan("s0");
    strangersScan("");
    scanEvent("scan.error", {{QStringLiteral("error"), error(5, "x")}}, "s0");
    scanEvent("scan.progress", {{QStringLiteral("progress"), 12.0},
                                {QStringLiteral("phaseText"), QStringLiteral("到此")}});
    QTRY_VERIFY(RecoveryWindow::text("ScanPhaseLabel").contains(QStringLiteral("到此")));
    QCOMPARE(RecoveryWindow::scan()->state(), Scan::Running);
    QCOMPARE(RecoveryWindow::rowCount(), 0);
    QCOMPARE(m_service->count(kFiles), 0);

    startRecovery();
    QTRY_COMPARE(RecoveryWindow::recovery()->recoveryId(), QStringLiteral("r1"));
    for (const char *task : {"r0", ""}) {
        taskEvent("recovery.fileStatus",
                  {{QStringLiteral("fileId"), QStringLiteral("id0")},
                   {QStringLiteral("status"), QStringLiteral("failed")}},
                  task);
        taskEvent("recovery.completed", {}, task);
    }
    taskEvent("recovery.error", {{QStringLiteral("error"), error(5, "x")}}, "r0");
    taskEvent("recovery.error", {{QStringLiteral("error"), error(1002, "")}}, "r0");
    taskEvent("recovery.progress",
              {{QStringLiteral("processed"), 1}, {QStringLiteral("total"), 2}});
    QTRY_COMPARE(RecoveryWindow::text("RecoveryFailedCount"), QStringLiteral("失败\n0"));
    QCOMPARE(RecoveryWindow::recovery()->state(), Recovery::Running);
}

void TestRecoveryFlow::asksBeforeReplacing()
{
    // The preparation may take long; a second press starts no second one.
    m_service->hold(kPrepare);
    m_window->pressStart();
    QVERIFY(m_service->waitForRequest(kPrepare));
    QStringList told;
    {
        const ModalDriver notice(presses("NoticeOkBtn", &told));
        m_window->pressStart();
        QVERIFY(notice.handled());
    }
    QCOMPARE(told.value(0), QStringLiteral("正在准备分区"));
    QVERIFY(m_service->release(kPrepare, services::Reply::ok({})));
    QTRY_COMPARE(RecoveryWindow::scan()->sessionId(), QStringLiteral("s1"));
    QCOMPARE(m_service->count(kPrepare), 1);
    m_service->reply(kPrepare, {});

    for (const char *button : {"NoticeCancelBtn", "NoticeOkBtn"}) {
        QStringList texts;
        const ModalDriver question(presses(button, &texts));
        m_window->pressStart();
        QVERIFY(question.handled());
        QCOMPARE(texts.value(0), QStringLiteral("扫描仍在进行"));
        QCOMPARE(m_service->count(kStart), 1);
    }
    QVERIFY(m_service->waitForRequest(kStart, 2));
}

void TestRecoveryFlow::stopsAndEnds_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<Scan>("end");
    QTest::newRow("on request") << 1002 << Scan::Stopped;
    QTest::newRow("by a fault") << 1005 << Scan::Failed;
}

void TestRecoveryFlow::stopsAndEnds()
{
    QFETCH(int, code);
    QFETCH(Scan, end);
    // A request that is refused is told, and the scan goes on.
    startScan();
    for (const char *method : {"scan.pause", "scan.stop"}) {
        m_service->fail(QLatin1String(method), 9, QStringLiteral("不行"));
        QStringList texts;
        const ModalDriver notice(presses("NoticeOkBtn", &texts));
        RecoveryWindow::press(qstrcmp(method, "scan.pause") == 0 ? "PauseButton" : "StopButton");
        QTRY_VERIFY(notice.handled());
        QCOMPARE(RecoveryWindow::scan()->state(), Scan::Running);
        m_service->reply(QLatin1String(method), {});
    }
    // What came during a pause is dropped, and comes back with the end.
    RecoveryWindow::press("PauseButton");
    QVERIFY(m_service->waitForRequest(QStringLiteral("scan.pause"), 2));
    scanEvent("scan.fileFound", {{QStringLiteral("files"), files(2)}});
    RecoveryWindow::press("StopButton");
    QVERIFY(m_service->waitForRequest(QStringLiteral("scan.stop"), 2));
    QCOMPARE(RecoveryWindow::rowCount(), 0);
    scanEvent("scan.error", {{QStringLiteral("error"), error(code, "读取出错")}});
    QTRY_COMPARE(RecoveryWindow::scan()->state(), end);
    QTRY_COMPARE(RecoveryWindow::rowCount(), 3);
}

void TestRecoveryFlow::detailThatCannotBeRead()
{
    m_service->fail(QStringLiteral("recovery.getDetail"), 5, QStringLiteral("记录损坏"));
    startRecovery();
    QTRY_COMPARE(RecoveryWindow::recovery()->recoveryId(), QStringLiteral("r1"));
    taskEvent("recovery.completed", {});
    QTRY_VERIFY(RecoveryWindow::text("RecoveryStateHint").contains(QStringLiteral("记录损坏")));
    QCOMPARE(RecoveryWindow::recovery()->state(), Recovery::Completed);
}

void TestRecoveryFlow::samplesGoAndComeBack()
{
    QVERIFY(!m_window->showsSamples());
    m_service->stop();
    QTRY_VERIFY(m_window->showsSamples());
    QCOMPARE(m_window->partitions()->findChildren<QFrame *>(QStringLiteral("PartitionCard")).size(),
             15);
    QVERIFY(m_service->start());
    QTRY_VERIFY(!m_window->showsSamples());
    QCOMPARE(m_window->partitions()->selectedDevicePath(), QStringLiteral("/dev/sda1"));
    // What the other pages show is asked for anew as well.
    QVERIFY(m_service->waitForRequest(QStringLiteral("session.list"), 2));
    QVERIFY(m_service->waitForRequest(QStringLiteral("debug.listSnapshots"), 2));
    QTRY_VERIFY(
        !m_window->findChild<QTimer *>(QStringLiteral("RecoveryReconnectTimer"))->isActive());
}

void TestRecoveryFlow::disksThatCannotBeRead()
{
    m_service->fail(kEnumerate, 5, QStringLiteral("读取失败"));
    m_service->dropClients();
    QTRY_VERIFY(m_window->showsSamples());
    QVERIFY(m_service->waitForRequest(kEnumerate, 3)); // it keeps asking
    // A sample is never scanned, although the service is there.
    QStringList texts;
    const ModalDriver notice(presses("NoticeOkBtn", &texts));
    m_window->pressStart();
    QVERIFY(notice.handled());
    QCOMPARE(texts.value(0), kCannotStart);
    QCOMPARE(m_service->count(kPrepare), 0);
    m_service->reply(kEnumerate, disks(QStringLiteral("/dev/sdb1  XFS")));
    QTRY_VERIFY(!m_window->showsSamples());
    QCOMPARE(m_window->partitions()->selectedDevicePath(), QStringLiteral("/dev/sdb1"));
}

void TestRecoveryFlow::linkLostMidScan_data()
{
    QTest::addColumn<QJsonObject>("detail"); // empty: the service does not know the session
    QTest::addColumn<bool>("isPaused");
    QTest::addColumn<Scan>("state");
    QTest::addColumn<QString>("phase");
    QTest::addColumn<int>("rows");
    const auto withStatus = [](const char *status) {
        return QJsonObject{{QStringLiteral("status"), QLatin1String(status)},
                           {QStringLiteral("error"), QStringLiteral("读取出错")}};
    };
    const QString restored = QStringLiteral("已重新连接");
    QTest::newRow("goes on") << withStatus("running") << false << Scan::Running << restored << 1;
    QTest::newRow("is paused") << withStatus("paused") << false << Scan::Paused << restored << 1;
    QTest::newRow("was paused") << withStatus("running") << true << Scan::Paused << restored << 1;
    QTest::newRow("completed") << withStatus("completed") << false << Scan::Completed
                               << QStringLiteral("扫描已完成") << 3;
    QTest::newRow("completed, without a status")
        << QJsonObject{{QStringLiteral("scanSummary"),
                        QJsonObject{{QStringLiteral("filesFound"), 3}}}}
        << true << Scan::Completed << QStringLiteral("扫描已完成") << 3;
    QTest::newRow("stopped") << withStatus("stopped") << false << Scan::Stopped
                             << QStringLiteral("扫描已停止") << 3;
    QTest::newRow("failed") << withStatus("failed") << false << Scan::Failed
                            << QStringLiteral("读取出错") << 3;
    QTest::newRow("interrupted") << withStatus("interrupted") << false << Scan::Interrupted
                                 << QStringLiteral("曾经退出") << 3;
    QTest::newRow("gone") << QJsonObject() << false << Scan::Interrupted
                          << QStringLiteral("没有这样的会话") << 1;
}

void TestRecoveryFlow::linkLostMidScan()
{
    QFETCH(QJsonObject, detail);
    QFETCH(bool, isPaused);
    QFETCH(Scan, state);
    QFETCH(QString, phase);
    QFETCH(int, rows);

    const QString getDetail = QStringLiteral("session.getDetail");
    if (detail.isEmpty())
        m_service->fail(getDetail, 1003, QStringLiteral("没有这样的会话"));
    else
        m_service->reply(getDetail, detail);
    for (const char *method : {"scan.pause", "scan.stop"})
        m_service->reply(QLatin1String(method), {});
    startScan();
    scanEvent("scan.fileFound", {{QStringLiteral("files"), files(1)}});
    QTRY_COMPARE(RecoveryWindow::rowCount(), 1);
    if (isPaused)
        RecoveryWindow::press("PauseButton");
    m_service->stop();
    QTRY_COMPARE(RecoveryWindow::scan()->state(), Scan::ConnectionLost);
    QCOMPARE(RecoveryWindow::text("ScanTitle"), kLinkLost);
    // Nothing that could start a second scan beside the first.
    for (const char *button : {"PauseButton", "StopButton"})
        QVERIFY(!RecoveryWindow::isEnabled(button));

    QVERIFY(m_service->start());
    QTRY_COMPARE(RecoveryWindow::scan()->state(), state);
    QVERIFY(RecoveryWindow::text("ScanPhaseLabel").contains(phase));
    QTRY_COMPARE(RecoveryWindow::rowCount(), rows);
    QVERIFY(RecoveryWindow::isEnabled("StopButton"));
    QCOMPARE(m_service->lastParams(getDetail),
             (QJsonObject{{QStringLiteral("sessionId"), QStringLiteral("s1")}}));
    RecoveryWindow::press("StopButton");
    if (state == Scan::Running || state == Scan::Paused) {
        QVERIFY(m_service->waitForRequest(QStringLiteral("scan.stop")));
        // What was sent while the link was down comes with the end, even if nobody looks.
        RecoveryWindow::workflow()->hide();
        scanEvent("scan.stopped", {});
        QTRY_COMPARE(RecoveryWindow::rowCount(), 3);
    } else {
        QVERIFY(m_service->waitForRequest(kStart, 2));
        QTRY_COMPARE(RecoveryWindow::scan()->state(), Scan::Running);
    }
}

void TestRecoveryFlow::linkLostTwice()
{
    const QString getDetail = QStringLiteral("session.getDetail");
    m_service->hold(getDetail);
    startScan();
    m_service->dropClients();
    QVERIFY(m_service->waitForRequest(getDetail));
    // The answer is lost with the link; a scan on another partition is asked about meanwhile.
    m_service->dropClients();
    QVERIFY(m_service->waitForRequest(getDetail, 2));
    QCOMPARE(RecoveryWindow::scan()->state(), Scan::ConnectionLost);
    QStringList texts;
    const ModalDriver question(presses("NoticeCancelBtn", &texts));
    QTRY_VERIFY(!m_window->showsSamples());
    m_window->pressStart();
    QVERIFY(question.handled());
    QCOMPARE(texts.value(0), QStringLiteral("扫描仍在进行"));
    // The end comes as an event before the answer, which then changes nothing.
    scanEvent("scan.completed", {});
    QTRY_COMPARE(RecoveryWindow::scan()->state(), Scan::Completed);
    m_service->release(getDetail, services::Reply::ok()); // of the dropped connection
    QVERIFY(m_service->release(
        getDetail, services::Reply::ok({{QStringLiteral("status"), QStringLiteral("running")}})));
    m_service->reply(getDetail, {});
    m_service->broadcast(
        QStringLiteral("scan.fileFound"),
        {{QStringLiteral("sessionId"), QStringLiteral("s1")}, {QStringLiteral("files"), files(4)}});
    QTRY_VERIFY(RecoveryWindow::rowCount() >= 4); // came after the answer
    QCOMPARE(RecoveryWindow::scan()->state(), Scan::Completed);
}

void TestRecoveryFlow::linkLostMidRecovery_data()
{
    QTest::addColumn<QJsonObject>("detail"); // empty: the service does not know the task
    QTest::addColumn<Recovery>("state");
    QTest::addColumn<QString>("succeeded");
    const auto withStatus = [](const char *status) {
        const QJsonObject file{{QStringLiteral("fileId"), QStringLiteral("id0")},
                               {QStringLiteral("status"), QStringLiteral("success")}};
        return QJsonObject{{QStringLiteral("status"), QLatin1String(status)},
                           {QStringLiteral("succeeded"), 2},
                           {QStringLiteral("writtenBytes"), 2048},
                           {QStringLiteral("fileStatuses"), QJsonArray{file}}};
    };
    QTest::newRow("goes on") << withStatus("running") << Recovery::Running
                             << QStringLiteral("已恢复\n1");
    QTest::newRow("completed") << withStatus("completed_with_errors") << Recovery::Completed
                               << QStringLiteral("已恢复\n2");
    QTest::newRow("failed") << withStatus("failed") << Recovery::Failed
                            << QStringLiteral("已恢复\n1");
    QTest::newRow("gone") << QJsonObject() << Recovery::Failed << QStringLiteral("已恢复\n0");
}

void TestRecoveryFlow::linkLostMidRecovery()
{
    QFETCH(QJsonObject, detail);
    QFETCH(Recovery, state);

    startRecovery();
    QTRY_COMPARE(RecoveryWindow::recovery()->recoveryId(), QStringLiteral("r1"));
    if (detail.isEmpty())
        m_service->fail(QStringLiteral("recovery.getDetail"), 1003, QStringLiteral("没有"));
    else
        m_service->reply(QStringLiteral("recovery.getDetail"), detail);
    m_service->stop();
    QTRY_COMPARE(RecoveryWindow::recovery()->state(), Recovery::ConnectionLost);
    QCOMPARE(RecoveryWindow::text("RecoveryStateText"), kLinkLost);
    QCOMPARE(RecoveryWindow::scan()->state(), Scan::Completed); // untouched

    QStringList texts;
    const ModalDriver notice(presses("NoticeOkBtn", &texts));
    QVERIFY(m_service->start());
    QTRY_COMPARE(RecoveryWindow::recovery()->state(), state);
    QTRY_COMPARE(notice.handled(), state == Recovery::Failed);
    QTEST(RecoveryWindow::text("RecoverySucceededCount"), "succeeded");
    if (state == Recovery::Running) {
        QVERIFY(RecoveryWindow::isEnabled("StopRecoveryButton"));
        return;
    }
    RecoveryWindow::press("BackToScanResultsButton");
    QVERIFY(RecoveryWindow::scan()->isVisible());
}

void TestRecoveryFlow::warnsOfTheTarget()
{
    m_facts.devices = QStringList{QStringLiteral("/dev/sda")};
    m_facts.mountPoint = QStringLiteral("/mnt/disk");
    m_facts.freeBytes = 1999; // of 2000
    QStringList texts;
    {
        const ModalDriver warning(presses("NoticeCancelBtn", &texts));
        startRecovery();
        QTRY_VERIFY(warning.handled());
    }
    QVERIFY(texts.value(1).contains(QStringLiteral("/mnt/disk")));
    QVERIFY(texts.value(1).contains(QStringLiteral("剩余空间")));
    QVERIFY(RecoveryWindow::scan()->isVisible());
    QCOMPARE(m_service->count(kRecover), 0);

    {
        const ModalDriver warning(presses("NoticeOkBtn", &texts));
        RecoveryWindow::press("StartRecoveryButton");
        QTRY_VERIFY(warning.handled());
    }
    QVERIFY(m_service->waitForRequest(kRecover));
    QTRY_COMPARE(RecoveryWindow::recovery()->state(), Recovery::Running);

    // A path that is no place is not asked about at all.
    m_facts = RecoveryTargetFacts();
    taskEvent("recovery.completed", {});
    QTRY_COMPARE(RecoveryWindow::recovery()->state(), Recovery::Completed);
    RecoveryWindow::press("BackToScanResultsButton");
    RecoveryWindow::setOutput(QStringLiteral("out"));
    const ModalDriver refusal(presses("NoticeOkBtn", &texts));
    RecoveryWindow::press("StartRecoveryButton");
    QVERIFY(refusal.handled());
    QCOMPARE(m_service->count(kRecover), 1);
}

void TestRecoveryFlow::closingAsksWhileWorkIsUnderWay_data()
{
    QTest::addColumn<bool>("isRecovery");
    QTest::addColumn<bool>("isLinkLost");
    QTest::addColumn<QString>("title");
    QTest::newRow("scan") << false << false << QStringLiteral("扫描仍在进行");
    QTest::newRow("scan, link lost") << false << true << QStringLiteral("扫描仍在进行");
    QTest::newRow("recovery") << true << false << QStringLiteral("恢复仍在进行");
    QTest::newRow("recovery, link lost") << true << true << QStringLiteral("恢复仍在进行");
}

void TestRecoveryFlow::closingAsksWhileWorkIsUnderWay()
{
    QFETCH(bool, isRecovery);
    QFETCH(bool, isLinkLost);
    if (isRecovery)
        startRecovery();
    else
        startScan();
    QTRY_VERIFY(RecoveryWindow::workflow()->workUnderWay() != RecoveryWorkflowWindow::Work::None);
    if (isLinkLost) {
        m_service->stop();
        QTRY_VERIFY(m_window->showsSamples());
    }
    QStringList texts;
    {
        const ModalDriver question([&](QWidget *dialog) {
            m_window->close(); // again, which asks no second question
            presses("NoticeCancelBtn", &texts)(dialog);
        });
        m_window->close();
        QVERIFY(question.handled());
    }
    QTEST(texts.value(0), "title");
    QVERIFY(m_window->isVisible() && RecoveryWindow::workflow()->isVisible());
    const ModalDriver question(presses("NoticeOkBtn", &texts));
    m_window->close();
    QVERIFY(question.handled());
    QVERIFY(!m_window->isVisible() && !RecoveryWindow::workflow()->isVisible());
}

void TestRecoveryFlow::closingEndsTheRun()
{
    startScan();
    scanEvent("scan.completed", {});
    QTRY_COMPARE(RecoveryWindow::scan()->state(), Scan::Completed);
    // Closing the second window only puts it away.
    QApplication::setQuitOnLastWindowClosed(true);
    QSignalSpy lastClosed(qApp, &QGuiApplication::lastWindowClosed);
    RecoveryWindow::workflow()->close();
    QCOMPARE(lastClosed.count(), 0);
    RecoveryWindow::workflow()->show();
    QVERIFY(m_window->isVisible());

    // Closing the main window ends the run, whatever else is open.
    QTimer::singleShot(0, m_window.get(), [this] { m_window->close(); });
    QTimer watchdog;
    connect(&watchdog, &QTimer::timeout, qApp, [] { QCoreApplication::exit(1); });
    watchdog.start(5000);
    QCOMPARE(QCoreApplication::exec(), 0);
    QVERIFY(!RecoveryWindow::workflow()->isVisible());
    QApplication::setQuitOnLastWindowClosed(false);
}

QTEST_MAIN(TestRecoveryFlow)
#include "tst_recoveryflow.moc"
