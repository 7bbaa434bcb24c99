#include "recoveryflowfixture.h"

using namespace recoveryflow;

/// The way from a partition to recovered files.
class TestRecoveryFlow : public QObject, private Bench
{
    Q_OBJECT

private slots:
    void initTestCase() { prepareApplication(); }
    void init() { open(); }
    void cleanup() { close(); }
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
    void warnsOfTheTarget();
    void closingAsksWhileWorkIsUnderWay_data();
    void closingAsksWhileWorkIsUnderWay();
    void closingEndsTheRun();
};

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
        // A start that the service has not answered fails with the link.
        if (isRecovery)
            QTRY_COMPARE(RecoveryWindow::recovery()->recoveryId(), QStringLiteral("r1"));
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
