#include "app/recoverylink.h"
#include "core/controllers/diskinfoprovider.h"
#include "core/ipc/ipcclient.h"
#include "recoveryflowfixture.h"

using namespace recoveryflow;

/// What a lost, restored or refused link does to the disks, a scan and a recovery.
class TestRecoveryLink : public QObject, private Bench
{
    Q_OBJECT

private slots:
    void initTestCase() { prepareApplication(); }
    void init() { open(); }
    void cleanup() { close(); }
    void samplesGoAndComeBack();
    void tellsWhyAServiceIsRefused();
    void tellsThatAnAdministratorRefused();
    void disksThatCannotBeRead();
    void linkLostMidScan_data();
    void linkLostMidScan();
    void linkLostTwice();
    void linkLostMidRecovery_data();
    void linkLostMidRecovery();
};

void TestRecoveryLink::samplesGoAndComeBack()
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

void TestRecoveryLink::tellsWhyAServiceIsRefused()
{
    core::ipc::ServicePolicy policy;
    policy.isTrusted = [](const core::ipc::Peer &) {
        return false;
    };
    core::ipc::IpcClient client(m_service->name(), nullptr, policy);
    core::controllers::DiskInfoProvider disks(&client);
    PartitionSelectPage page;
    const RecoveryLink link(&client, &disks, &page, nullptr);
    m_service->clearRequests();
    client.connectToService();
    QVERIFY(!client.refusal().isEmpty());
    const auto *notice = page.findChild<QLabel *>(QStringLiteral("SampleNotice"));
    QVERIFY(notice->text().contains(client.refusal()));
    QVERIFY(m_service->requests().isEmpty());
}

void TestRecoveryLink::tellsThatAnAdministratorRefused()
{
    const QString reason = QStringLiteral("授权已取消");
    int asked = 0;
    m_service->setAuthorizer(
        [&](const core::ipc::Peer &, const services::ServiceHost::Decide &decide) {
            decide(++asked > 1, reason);
        });
    m_service->dropClients();
    QTRY_VERIFY(m_window->showsSamples());
    const auto *notice =
        m_window->partitions()->findChild<QLabel *>(QStringLiteral("SampleNotice"));
    QTRY_VERIFY(notice->text().contains(reason));
    // Asking again by itself would bring up the question again and again.
    QCOMPARE(asked, 1);
    emit m_window->partitions()->requestRefresh();
    QTRY_VERIFY(!m_window->showsSamples());
    QCOMPARE(asked, 2);
}

void TestRecoveryLink::disksThatCannotBeRead()
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

void TestRecoveryLink::linkLostMidScan_data()
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

void TestRecoveryLink::linkLostMidScan()
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

void TestRecoveryLink::linkLostTwice()
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

void TestRecoveryLink::linkLostMidRecovery_data()
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

void TestRecoveryLink::linkLostMidRecovery()
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

QTEST_MAIN(TestRecoveryLink)
#include "tst_recoverylink.moc"
