#include "protectionfixture.h"

#include <QTimer>

using namespace protectiontest;

class TestRealtimeProtectionPage : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        useDarkTheme();
        qputenv("USER", "tester");
    }
    void followsTheLink();
    void fetchesAllFiles();
    void warnsOfSpaceUntilThereIsRoom();
    void asksForMoreOnlyWhileMoreComes_data();
    void asksForMoreOnlyWhileMoreComes();
    void searches();
    void toggles_data();
    void toggles();
    void warnsOfBreakage();
    void changesFiles_data();
    void changesFiles();
    void restores();
    void protectedFilesComeInBursts();
    void errorsComeOnce();
    void settings();
    void settingsThatWereNotRead();
    void setController();
};

void TestRealtimeProtectionPage::followsTheLink()
{
    Bench bench;
    QCOMPARE(bench.text("StatusText"), "守护进程未连接"_u);
    const auto dot = [&bench] {
        return child<QWidget>(bench.page.get(), "StatusDot")->grab().toImage().pixelColor(6, 6);
    };
    QCOMPARE(dot().name(), "#ef4444"_u);
    QCOMPARE(textOf(bench.tree(), "EmptyStateTitle"), "守护进程未连接"_u);
    const char *const controls[] = {"ProtectionToggle",      "ShieldSettingsButton",
                                    "RestoreSelectedButton", "DeleteSelectedButton",
                                    "ClearAllButton",        "FileSearchEdit"};
    for (const char *name : controls)
        QVERIFY2(!bench.isEnabled(name), name);
    QVERIFY(bench.service.start());
    bench.controller.connectToVaultDaemon();
    QTRY_COMPARE(bench.text("StatusText"), "保护已启用"_u);
    QCOMPARE(dot().name(), "#22c55e"_u);
    QCOMPARE(bench.service.methods().mid(0, 3), (QStringList{kStatus, kConfig, kList}));
    QCOMPARE(bench.service.lastParams(kList), (QJsonObject{{"limit"_u, 100}, {"offset"_u, 0}}));
    QTRY_COMPARE(bench.text("FileListHeading"), "受保护文件列表 (3 个文件)"_u);
    QVERIFY(!bench.isEnabled("RestoreSelectedButton") && !bench.isEnabled("DeleteSelectedButton"));
    bench.tick(0);
    for (const char *name : controls)
        QVERIFY2(bench.isEnabled(name), name);
    QCOMPARE(textOf(child<QWidget>(bench.page.get(), "FileCountStat"), "LargeValue"), "3"_u);

    const auto *service = child<QWidget>(bench.page.get(), "ServiceStat");
    QCOMPARE(textOf(service, "LargeValue"), "● 运行中"_u);
    bench.service.stop();
    QTRY_COMPARE(bench.text("StatusText"), "守护进程未连接"_u);
    QCOMPARE(textOf(service, "LargeValue"), "○ 未知"_u);
    QCOMPARE(textOf(child<QWidget>(bench.page.get(), "FileCountStat"), "LargeValue"), "3"_u);
    for (const char *name : controls)
        QVERIFY2(!bench.isEnabled(name), name);
}

void TestRealtimeProtectionPage::fetchesAllFiles()
{
    Bench bench;
    bench.service.reply(kList, listOf(150, 150));
    bench.service.replyOnce(kList, Reply::ok(listOf(100, 150)));
    QSignalSpy fills(bench.tree(), &ProtectedFileTree::checkedCountChanged);
    bench.connectService();
    QTRY_COMPARE(fills.size(), 2);
    QCOMPARE(bench.tree()->topLevelItem(0)->childCount(), 150);
    QCOMPARE(bench.text("FileListHeading"), "受保护文件列表 (150 个文件)"_u);
}

void TestRealtimeProtectionPage::warnsOfSpaceUntilThereIsRoom()
{
    Bench bench;
    QJsonObject status = statusOf(true);
    status.insert("usedSpaceBytes"_u, 9500000);
    status.insert("secondNetReason"_u, "无法监视文件系统"_u);
    bench.service.reply(kStatus, status);
    bench.service.reply(kConfig, {{"maxSpaceBytes"_u, 10000000}});
    QVERIFY(bench.service.start());
    auto *line = bench.page->findChild<QWidget *>("SpaceWarning"_u);
    QVERIFY(line && !line->isVisible());
    bench.controller.connectToVaultDaemon();
    QTRY_VERIFY(bench.service.requests().size() >= 3); // The service has the client by then.
    bench.service.broadcast("vault.spaceWarning"_u,
                            {{"usedBytes"_u, 9500000}, {"maxBytes"_u, 10000000}});
    QTRY_VERIFY(line->isVisible());
    QVERIFY(textOf(bench.page.get(), "SpaceWarningText").contains("9.1 MB"_u));
    bool isOpened = false;
    ModalDriver driver([&isOpened](QWidget *dialog) {
        isOpened = qobject_cast<ShieldSettingsDialog *>(dialog) != nullptr;
        QVERIFY(dialog->findChild<QWidget *>("ShieldDirHint"_u)
                    ->accessibleDescription()
                    .endsWith("当前未启用：无法监视文件系统"_u));
        qobject_cast<QDialog *>(dialog)->reject();
    });
    bench.page->findChild<QPushButton *>("SpaceSettingsButton"_u)->click();
    QVERIFY(isOpened);
    status.insert("usedSpaceBytes"_u, 1000);
    bench.service.reply(kStatus, status);
    bench.controller.refreshStatus();
    QTRY_VERIFY(!line->isVisible());
}

void TestRealtimeProtectionPage::asksForMoreOnlyWhileMoreComes_data()
{
    using Answers = QVector<QPair<int, int>>; // files and their total, then always the last
    QTest::addColumn<Answers>("answers");
    QTest::addColumn<int>("growth"); // of the total from then on
    QTest::addColumn<int>("requests");
    QTest::newRow("capped") << Answers{{100, 150}} << 0 << 2;
    QTest::newRow("capped, and the total changes") << Answers{{100, 150}} << 1 << 2;
    QTest::newRow("more meanwhile") << Answers{{100, 150}, {150, 152}, {152, 152}} << 0 << 3;
    QTest::newRow("more meanwhile, then capped") << Answers{{100, 150}, {150, 152}} << 1 << 3;
    QTest::newRow("fewer meanwhile") << Answers{{100, 150}, {140, 140}} << 0 << 2;
}

void TestRealtimeProtectionPage::asksForMoreOnlyWhileMoreComes()
{
    using Answers = QVector<QPair<int, int>>;
    QFETCH(Answers, answers);
    QFETCH(int, growth);
    QFETCH(int, requests);
    Bench bench;
    int count = 0;
    bench.service.handle(
        kList, services::ServiceHost::Handler([&](const QJsonObject &, const auto &respond) {
            const int past = qMax(0, ++count - answers.size());
            const auto answer = answers.at(qMin(count, answers.size()) - 1);
            respond(Reply::ok(listOf(answer.first, answer.second + past * growth)));
        }));
    QSignalSpy fills(bench.tree(), &ProtectedFileTree::checkedCountChanged);
    QVERIFY(bench.service.start());
    bench.controller.connectToVaultDaemon();
    QTRY_COMPARE(fills.size(), requests);
    // What the last answer led to would reach the service before this.
    bench.service.clearRequests();
    bench.controller.refreshStatus();
    QVERIFY(bench.service.waitForRequest(kStatus));
    QCOMPARE(count, requests);
    // A new listing starts over.
    bench.page->refreshAll();
    QTRY_VERIFY(count > requests);
}

void TestRealtimeProtectionPage::searches()
{
    Bench bench;
    bench.connectService();
    bench.service.replyOnce(kList, Reply::ok(listOf(2, 5)));
    bench.service.replyOnce(kList, Reply::ok(listOf(0, 0)));
    QTest::keyClicks(child<QLineEdit>(bench.page.get(), "FileSearchEdit"), "abc"_u);
    QVERIFY(bench.service.waitForRequest(kList, 2));
    // One request for all three keys, then one for the rest of what matches.
    QJsonObject wanted{{"limit"_u, 100}, {"offset"_u, 0}, {"filter"_u, "abc"_u}};
    QCOMPARE(bench.service.requests().at(0).params, wanted);
    wanted.insert("limit"_u, 5);
    QCOMPARE(bench.service.requests().at(1).params, wanted);
    QTRY_COMPARE(textOf(bench.tree(), "EmptyStateTitle"), "没有匹配的文件"_u);
    QVERIFY(bench.tree()->isVisible());
}

void TestRealtimeProtectionPage::toggles_data()
{
    QTest::addColumn<bool>("wasOn");
    QTest::addColumn<bool>("works");
    QTest::addColumn<bool>("needReboot");
    QTest::addColumn<bool>("hook"); // in place afterwards
    QTest::addColumn<QStringList>("told");
    QTest::newRow("on") << false << true << false << true << QStringList();
    QTest::newRow("on, without effect")
        << false << true << false << false
        << QStringList{"保护状态异常"_u, "预加载未注册到系统，请重新启用保护。"_u};
    // One notice, though the hook is not in place until then.
    QTest::newRow("on, reboot") << false << true << true << false
                                << QStringList{"需要重启"_u,
                                               "文件保护已启用，需要重启系统后才能对所有程序生效。"
                                               "\n\n建议保存工作进度，然后重启系统。"_u};
    QTest::newRow("not on") << false << false << false << false
                            << QStringList{"操作错误"_u, "坏了"_u, "启用失败"_u,
                                           "启用文件保护失败，请检查守护进程日志。"_u};
    QTest::newRow("off") << true << true << false << true << QStringList();
    QTest::newRow("not off") << true << false << false << true
                             << QStringList{"操作错误"_u, "坏了"_u, "关闭失败"_u,
                                            "关闭文件保护失败，请检查守护进程日志。"_u};
}

void TestRealtimeProtectionPage::toggles()
{
    QFETCH(bool, wasOn);
    QFETCH(bool, works);
    QFETCH(bool, needReboot);
    QFETCH(bool, hook);
    QFETCH(QStringList, told);
    Bench bench;
    bench.connectService();
    bench.service.reply(kStatus, statusOf(wasOn));
    bench.controller.refreshStatus();
    QVERIFY(bench.service.waitForRequest(kStatus));
    QTRY_COMPARE(bench.buttonText("ProtectionToggle"), wasOn ? "关闭保护"_u : "启用保护"_u);
    bench.service.clearRequests();
    const QString method = wasOn ? "vault.disable"_u : "vault.enable"_u;
    bench.service.hold(method);
    bench.service.reply(kStatus, statusOf(wasOn != works, hook));
    bench.click("ProtectionToggle");
    QVERIFY(bench.service.waitForRequest(method));
    QVERIFY(!bench.isEnabled("ProtectionToggle"));
    const auto answer = [&] {
        bench.service.release(
            method, works ? Reply::ok({{"deployMode"_u, "global"_u}, {"needReboot"_u, needReboot}})
                          : Reply::failure(9, "坏了"_u));
    };
    std::unique_ptr<ModalDriver> second;
    if (told.size() == 4) {
        // The service's own words, then what they mean.
        ModalDriver first([&](QWidget *dialog) {
            presses("NoticeOkBtn", &bench.told)(dialog);
            second = std::make_unique<ModalDriver>(presses("NoticeOkBtn", &bench.told));
        });
        answer();
        QTRY_VERIFY(second && second->handled());
    } else if (told.isEmpty()) {
        answer();
    } else {
        bench.noticeAfter(answer);
    }
    QTRY_VERIFY(bench.isEnabled("ProtectionToggle"));
    QVERIFY(bench.service.waitForRequest(kConfig));
    QCOMPARE(bench.service.methods(), (QStringList{method, kStatus, kConfig}));
    // A notice of the new status would come with it.
    const ModalDriver unexpected(presses("NoticeOkBtn", &bench.told));
    const QString expected = wasOn != works ? hook ? "保护已启用"_u : "保护异常"_u : "保护未启用"_u;
    QTRY_COMPARE(bench.text("StatusText"), expected);
    QCoreApplication::processEvents();
    QCOMPARE(bench.told, told);
}

void TestRealtimeProtectionPage::warnsOfBreakage()
{
    Bench bench;
    bench.connectService();
    bench.service.reply(kStatus, statusOf(true, false));
    bench.noticeAfter([&] { bench.controller.refreshStatus(); });
    QCOMPARE(bench.told, (QStringList{"保护状态异常"_u, "预加载未注册到系统，请重新启用保护。"_u}));
}

void TestRealtimeProtectionPage::changesFiles_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<QByteArray>("button");
    QTest::addColumn<QStringList>("question");
    QTest::addColumn<QStringList>("failure");
    QTest::newRow("delete") << "vault.deleteFiles"_u << QByteArray("DeleteSelectedButton")
                            << QStringList{"确认删除"_u,
                                           "确定要永久删除选中的 2 个文件吗？此操作不可恢复。"_u}
                            << QStringList{"删除失败"_u, "部分文件删除失败。"_u};
    QTest::newRow("clear") << "vault.clearAll"_u << QByteArray("ClearAllButton")
                           << QStringList{"确认清空"_u,
                                          "确定要清空所有受保护文件吗？此操作不可恢复。"_u}
                           << QStringList{"清空失败"_u, "清空操作失败。"_u};
}

void TestRealtimeProtectionPage::changesFiles()
{
    QFETCH(QString, method);
    QFETCH(QByteArray, button);
    QFETCH(QStringList, question);
    QFETCH(QStringList, failure);
    Bench bench;
    bench.connectService();
    const bool isClear = button == "ClearAllButton";
    if (!isClear) {
        QVERIFY(!bench.isEnabled(button.constData())); // nothing ticked
        bench.tick(0);
        bench.tick(2);
        QCOMPARE(bench.text("CheckedCountLabel"), "已勾选 2 个"_u);
    }
    bench.clickAndPress(button.constData(), "NoticeCancelBtn");
    QCOMPARE(bench.told, question);
    QVERIFY(bench.service.requests().isEmpty());

    bench.service.reply(method, {{"success"_u, true}});
    bench.clickAndPress(button.constData(), "NoticeOkBtn");
    QVERIFY(bench.service.waitForRequest(kList));
    QVERIFY(bench.service.waitForRequest(kStatus));
    const QJsonObject params =
        isClear ? QJsonObject() : QJsonObject{{"fileIds"_u, QJsonArray{"id0"_u, "id2"_u}}};
    QCOMPARE(bench.service.lastParams(method), params);

    bench.service.reply(method, QJsonObject());
    QTRY_VERIFY(bench.text("CheckedCountLabel").isEmpty()); // the new list is there
    bench.tick(1);
    bench.told.clear();
    bench.clickAndPress(button.constData(), "NoticeOkBtn");
    bench.noticeAfter([] {});
    QCOMPARE(bench.told.mid(2), failure);
}

void TestRealtimeProtectionPage::restores()
{
    Bench bench;
    bench.connectService();
    QString target;
    QStringList titles;
    bench.page->setDirectoryChooser([&](QWidget *, const QString &title) {
        titles.append(title);
        return target;
    });
    QVERIFY(!bench.isEnabled("RestoreSelectedButton"));
    bench.tick(1);
    bench.click("RestoreSelectedButton"); // no directory chosen
    QCOMPARE(titles, QStringList{"选择恢复目标目录"_u});
    QVERIFY(bench.service.requests().isEmpty());
    target = "/tmp/目标"_u;
    bench.service.reply("vault.restoreFiles"_u, {{"success"_u, false}});
    bench.noticeAfter([&] { bench.click("RestoreSelectedButton"); });
    QCOMPARE(bench.service.lastParams("vault.restoreFiles"_u),
             (QJsonObject{{"fileIds"_u, QJsonArray{"id1"_u}}, {"targetDir"_u, target}}));
    QCOMPARE(bench.told, (QStringList{"恢复失败"_u, "部分文件恢复失败。"_u}));
}

void TestRealtimeProtectionPage::protectedFilesComeInBursts()
{
    Bench bench;
    bench.connectService();
    child<QLineEdit>(bench.page.get(), "FileSearchEdit")->setText("x"_u);
    QVERIFY(bench.service.waitForRequest(kList));
    bench.service.clearRequests();
    for (int i = 0; i < 50; ++i)
        bench.service.broadcast("vault.fileProtected"_u, {{"file"_u, QJsonObject()}});
    QVERIFY(bench.service.waitForRequest(kList, 2));
    QCOMPARE(bench.service.methods(), (QStringList{kStatus, kList, kStatus, kList}));
    QVERIFY(!bench.service.lastParams(kList).contains("filter"_u));
}

void TestRealtimeProtectionPage::errorsComeOnce()
{
    Bench bench;
    bench.connectService();
    bench.service.fail(kStatus, 3, "磁盘故障"_u);
    bench.service.fail(kConfig, 3, "磁盘故障"_u);
    bench.noticeAfter([&] { bench.page->refreshAll(); });
    QCOMPARE(bench.told, (QStringList{"操作错误"_u, "磁盘故障"_u}));
    // What was asked for last is answered last; a second notice would have come up by then.
    const ModalDriver unexpected(presses("NoticeOkBtn", &bench.told));
    QSignalSpy last(&bench.controller, &VaultController::fileListUpdated);
    bench.controller.refreshFileList(100, 0, QString());
    QVERIFY(last.wait());
    QCoreApplication::processEvents();
    QCOMPARE(bench.told.size(), 2);
}

void TestRealtimeProtectionPage::settings()
{
    Bench bench;
    bench.service.reply(kConfig, {{"protectedDirs"_u, QJsonArray{"/home/a"_u}},
                                  {"protectedExtensions"_u,
                                   QJsonArray{"MP3"_u, "wav"_u, "flac"_u, "ogg"_u, "xyz"_u}},
                                  {"retentionDays"_u, 45},
                                  {"maxSpaceBytes"_u, 5368709120.0}});
    bench.service.reply("vault.setConfig"_u, QJsonObject());
    bench.connectService();
    for (const char *button : {"ShieldCancel", "ShieldSave"}) {
        QVERIFY(bench.service.requests().isEmpty());
        ModalDriver driver([button](QWidget *dialog) { clickOn(dialog, button); });
        bench.click("ShieldSettingsButton");
        QVERIFY(driver.handled());
    }
    QVERIFY(bench.service.waitForRequest("vault.setConfig"_u));
    QCOMPARE(bench.service.lastParams("vault.setConfig"_u),
             (QJsonObject{{"protectedDirs"_u, QJsonArray{"/home/a"_u}},
                          {"protectedExtensions"_u,
                           QJsonArray{"mp3"_u, "wav"_u, "flac"_u, "aac"_u, "ogg"_u, "wma"_u}},
                          {"retentionDays"_u, 7},
                          {"maxSpaceBytes"_u, 5368709120.0},
                          {"emergencyThresholdBytes"_u, 524288000}}));
}

/// Saving them would wipe what the service holds.
void TestRealtimeProtectionPage::settingsThatWereNotRead()
{
    Bench bench;
    bench.connectService();
    bench.noticeAfter([&bench] { bench.click("ShieldSettingsButton"); });
    QCOMPARE(bench.told.first(), "保护设置"_u);
    QVERIFY(bench.service.waitForRequest(kConfig));
    QCOMPARE(bench.service.methods(), QStringList{kConfig});
}

void TestRealtimeProtectionPage::setController()
{
    Bench bench;
    bench.connectService();
    FakeService other;
    other.reply(kStatus, statusOf(false));
    other.reply(kConfig, QJsonObject());
    other.reply(kList, listOf(1, 1));
    QVERIFY(other.start());
    IpcClient client(other.name());
    VaultController controller(&client);
    QVERIFY(client.ensureConnected(1000));
    bench.page->setController(&controller);
    QTRY_COMPARE(bench.text("FileListHeading"), "受保护文件列表 (1 个文件)"_u);
    // The old one is heard no more.
    emit bench.controller.fileListUpdated(QJsonArray(), 9);
    emit bench.controller.connectionChanged(false);
    QCOMPARE(bench.text("FileListHeading"), "受保护文件列表 (1 个文件)"_u);
    QVERIFY(bench.isEnabled("ProtectionToggle"));
    bench.page->setController(nullptr);
    QVERIFY(!bench.isEnabled("ProtectionToggle"));
    bench.page->refreshAll();
    bench.page->toggleProtection();
    bench.page->openSettings();
    bench.page->onClearAll();
    QVERIFY(!QApplication::activeModalWidget());
}

QTEST_MAIN(TestRealtimeProtectionPage)
#include "tst_realtimeprotectionpage.moc"
