#include "protectionfixture.h"

#include <QPointer>
#include <QTimer>

using namespace protectiontest;

namespace {

/// Types a password and gives it in with Return.
void enter(QWidget *dialog, const QString &password)
{
    auto *field = child<QLineEdit>(dialog, "AuthPassword");
    field->setText(password);
    QTest::keyClick(field, Qt::Key_Return);
}

QString shownError(QWidget *dialog)
{
    auto *label = child<QLabel>(dialog, "AuthError");
    return label->isVisible() ? label->text() : QString();
}

} // namespace

class TestProtectionLock : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        useDarkTheme();
        qputenv("USER", "tester");
    }
    void startsLocked();
    void password();
    void takesNoPasswordForAForeignService();
    void takesNoPasswordForAServiceThatIsNotRoots();
    void passwordTimesOut();
    void passwordDialogOutlivesAll_data();
    void passwordDialogOutlivesAll();
    void locksItself();
    void locksUnderAConfirmation();
};

void TestProtectionLock::startsLocked()
{
    Bench livecd;
    Bench bench(AppMode::normal);
    for (const char *name : {"ProtectedFileTree", "FileSearchEdit", "RestoreSelectedButton",
                             "DeleteSelectedButton", "ClearAllButton"}) {
        QVERIFY2(livecd.isVisible(name), name);
        QVERIFY2(!bench.isVisible(name), name);
    }
    QVERIFY(livecd.page->isFileListUnlocked() && !child<QWidget>(livecd.page.get(), "LockOverlay"));
    livecd.page->requestUnlock();
    QVERIFY(!QApplication::activeModalWidget());
    auto *overlay = child<QWidget>(bench.page.get(), "LockOverlay");
    auto *frame = child<QWidget>(bench.page.get(), "fileListFrame");
    QCOMPARE(overlay->geometry(), frame->rect());
    bench.page->resize(1200, 800);
    QTRY_COMPARE(overlay->geometry(), frame->rect());
    QCOMPARE(overlay->width(), frame->width());
    QVERIFY(!bench.isEnabled("UnlockButton"));
    bench.page->requestUnlock();
    QVERIFY(!QApplication::activeModalWidget());
    QVERIFY(bench.isVisible("LockMessage"));
    QCOMPARE(bench.text("LockMessage"), "守护进程未连接，无法验证"_u);
}

void TestProtectionLock::password()
{
    Bench bench(AppMode::normal);
    bench.connectService();
    QWidget *const page = bench.page.get();
    bench.unlock([&](QWidget *dialog) {
        QCOMPARE(dialog->size(), QSize(360, 220));
        QVERIFY((dialog->geometry().center() - page->geometry().center()).manhattanLength() < 4);
        auto *field = child<QLineEdit>(dialog, "AuthPassword");
        QCOMPARE(dialog->focusWidget(), field);
        QCOMPARE(field->echoMode(), QLineEdit::Password);
        enter(dialog, QString());
        QCOMPARE(shownError(dialog), "请输入密码"_u);
        QCOMPARE(bench.service.count(kAuthenticate), 0);

        // Two shapes of refusal.
        bench.service.replyOnce(kAuthenticate,
                                Reply::ok({{"success"_u, false}, {"message"_u, "no"_u}}));
        enter(dialog, "falsch"_u);
        QCOMPARE(shownError(dialog), "密码错误"_u);
        QCOMPARE(field->selectedText().size(), 6);
        bench.service.replyOnce(kAuthenticate, Reply::failure(7, "no"_u));
        QTest::mouseClick(child<QWidget>(dialog, "AuthConfirm"), Qt::LeftButton);
        QCOMPARE(shownError(dialog), "密码错误"_u);
        QCOMPARE(bench.service.count(kAuthenticate), 2);
        QCOMPARE(bench.service.lastParams(kAuthenticate),
                 (QJsonObject{{"username"_u, "tester"_u}, {"password"_u, "falsch"_u}}));
        QVERIFY(!bench.page->isFileListUnlocked());

        bench.service.reply(kAuthenticate, {{"success"_u, true}});
        enter(dialog, "richtig"_u);
    });
    QVERIFY(bench.page->isFileListUnlocked());
    QVERIFY(!bench.isVisible("LockOverlay"));
    QVERIFY(bench.isVisible("ProtectedFileTree"));
    QVERIFY(bench.isVisible("ClearAllButton"));

    // Cancelling leaves a locked list locked.
    bench.page->setFileListLocked(true);
    bench.unlock([](QWidget *dialog) { clickOn(dialog, "AuthCancel"); });
    QVERIFY(!bench.page->isFileListUnlocked());
    QVERIFY(bench.isVisible("LockOverlay"));
}

void TestProtectionLock::takesNoPasswordForAForeignService()
{
    FakeService service;
    QVERIFY(service.start());
    core::ipc::ServicePolicy policy;
    policy.isTrusted = [](const core::ipc::Peer &) {
        return false;
    };
    IpcClient client(service.name(), nullptr, policy);
    VaultController controller(&client);
    RealtimeProtectionPage page(&controller, AppMode::normal);
    page.show();
    controller.connectToVaultDaemon();
    QTRY_COMPARE(textOf(&page, "StatusText"), "守护进程不可信任，已拒绝连接"_u);
    page.requestUnlock(); // opens no dialog
    QCOMPARE(textOf(&page, "LockMessage"), client.refusal());
    QVERIFY(client.refusal().contains("不可信任"_u));
    QVERIFY(service.requests().isEmpty());
}

void TestProtectionLock::takesNoPasswordForAServiceThatIsNotRoots()
{
    FakeService service;
    QVERIFY(service.start());
    core::ipc::ServicePolicy policy;
    policy.mayHearSecrets = [](const core::ipc::Peer &) {
        return false;
    };
    IpcClient client(service.name(), nullptr, policy);
    VaultController controller(&client);
    RealtimeProtectionPage page(&controller, AppMode::normal);
    page.show();
    controller.connectToVaultDaemon();
    QTRY_VERIFY(controller.isConnected());
    page.requestUnlock(); // opens no dialog
    QCOMPARE(textOf(&page, "LockMessage"), controller.passwordRefusal());
    QVERIFY(!page.isFileListUnlocked() && !controller.passwordRefusal().isEmpty());
    QVERIFY(service.lastParams(kAuthenticate).isEmpty());
}

void TestProtectionLock::passwordTimesOut()
{
    Bench bench(AppMode::normal);
    bench.connectService();
    bench.page->setVerificationTimeout(150);
    bench.service.hold(kAuthenticate);
    bench.unlock([&](QWidget *dialog) {
        auto *confirm = child<QPushButton>(dialog, "AuthConfirm");
        QTimer::singleShot(50, confirm, [confirm] {
            QCOMPARE(confirm->text(), "验证中..."_u);
            QVERIFY(!confirm->isEnabled());
        });
        enter(dialog, "x"_u);
        QCOMPARE(shownError(dialog), "验证超时，请重试"_u);
        QCOMPARE(confirm->text(), "确定"_u);
        QVERIFY(confirm->isEnabled());
        // Too late: nobody listens any more.
        QVERIFY(bench.service.release(kAuthenticate, Reply::ok({{"success"_u, true}})));
        // Its answer comes after that one.
        QSignalSpy later(&bench.controller, &VaultController::configUpdated);
        bench.controller.refreshConfig();
        QVERIFY(later.wait());
        QVERIFY(dialog->isVisible());
        clickOn(dialog, "AuthCancel");
    });
    QVERIFY(!bench.page->isFileListUnlocked());
}

void TestProtectionLock::passwordDialogOutlivesAll_data()
{
    QTest::addColumn<QString>("what");
    for (const char *what : {"link", "controller", "dialog", "page", "closed"})
        QTest::newRow(what) << QString::fromLatin1(what);
}

void TestProtectionLock::passwordDialogOutlivesAll()
{
    QFETCH(QString, what);
    FakeService service;
    service.hold(kAuthenticate);
    IpcClient client(service.name());
    auto controller = std::make_unique<VaultController>(&client);
    QVERIFY(service.start() && client.ensureConnected(1000));
    for (const QString &method : {kStatus, kConfig, kList})
        service.reply(method, QJsonObject());
    auto page = std::make_unique<RealtimeProtectionPage>(controller.get(), AppMode::normal);
    page->setVerificationTimeout(60000); // longer than the test
    page->show();
    QElapsedTimer clock;
    clock.start();
    QString error;
    QTimer meanwhile;
    connect(&meanwhile, &QTimer::timeout, this, [&] {
        if (service.heldCount(kAuthenticate) == 0)
            return;
        meanwhile.stop();
        if (what == "link"_u)
            service.stop();
        else if (what == "controller"_u)
            controller.reset();
        else if (what == "dialog"_u)
            delete QApplication::activeModalWidget();
        else if (what == "page"_u)
            page.reset();
        else
            QApplication::activeModalWidget()->close();
    });
    meanwhile.start(10);
    ModalDriver driver([&error](QWidget *dialog) {
        const QPointer<QWidget> alive(dialog);
        enter(dialog, "x"_u);
        if (!alive || !alive->isVisible())
            return;
        error = shownError(dialog);
        clickOn(dialog, "AuthCancel");
    });
    page->requestUnlock();
    QVERIFY(driver.handled());
    QVERIFY(clock.elapsed() < 20000);
    const bool isLinkGone = what == "link"_u || what == "controller"_u;
    QCOMPARE(error, isLinkGone ? "守护进程未连接，无法验证"_u : QString());
    QVERIFY(!page || !page->isFileListUnlocked());
}

void TestProtectionLock::locksItself()
{
    Bench bench(AppMode::normal);
    bench.connectService();
    bench.page->setAutoLockInterval(300);
    bench.service.reply(kAuthenticate, {{"success"_u, true}});
    bench.unlock([](QWidget *dialog) { enter(dialog, "x"_u); });
    QVERIFY(bench.page->isFileListUnlocked());
    QElapsedTimer clock;
    clock.start();
    // Use of the list does not keep it open.
    int ticks = 0;
    QTimer use;
    connect(&use, &QTimer::timeout, this, [&] {
        if (bench.page->isFileListUnlocked())
            bench.tick(++ticks % 3);
    });
    use.start(20);
    QTRY_VERIFY(!bench.page->isFileListUnlocked());
    QVERIFY(clock.elapsed() >= 200 && ticks > 0);
    QVERIFY(bench.isVisible("LockOverlay"));
    QVERIFY(!bench.isVisible("ProtectedFileTree"));
    QVERIFY(!QApplication::activeModalWidget());
}

void TestProtectionLock::locksUnderAConfirmation()
{
    Bench bench(AppMode::normal);
    bench.connectService();
    bench.service.reply(kAuthenticate, {{"success"_u, true}});
    bench.unlock([](QWidget *dialog) { enter(dialog, "x"_u); });
    bench.service.clearRequests();
    ModalDriver driver([&](QWidget *dialog) {
        bench.page->setFileListLocked(true);
        presses("NoticeOkBtn", &bench.told)(dialog);
    });
    bench.click("ClearAllButton");
    QVERIFY(driver.handled());
    QCOMPARE(bench.text("LockMessage"), "列表已自动锁定，操作未执行"_u);
    bench.controller.refreshConfig();
    QVERIFY(bench.service.waitForRequest(kConfig));
    QCOMPARE(bench.service.methods(), QStringList{kConfig});
}

QTEST_MAIN(TestProtectionLock)
#include "tst_protectionlock.moc"
