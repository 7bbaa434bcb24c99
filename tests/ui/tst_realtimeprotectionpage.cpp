#include "recoverypagesfixture.h"
#include "support/dialogsteps.h"
#include "ui/common/appnoticedialog.h"
#include "ui/common/protectedfiletree.h"
#include "ui/pages/realtimeprotectionpage.h"
#include "ui/pages/shieldsettingsdialog.h"
#include "vault/vaultcontroller.h"

#include <QJsonArray>
#include <QLineEdit>
#include <QPointer>
#include <QTimer>

using namespace testsupport;
using core::AppMode;
using core::ipc::IpcClient;
using services::Reply;
using support::ModalDriver;
using support::presses;
using ui::common::AppNoticeDialog;
using ui::common::ProtectedFileTree;

namespace {

QString operator""_u(const char *utf8, size_t length)
{
    return QString::fromUtf8(utf8, static_cast<int>(length));
}

const QString kStatus = QStringLiteral("vault.getStatus");
const QString kConfig = QStringLiteral("vault.getConfig");
const QString kList = QStringLiteral("vault.listFiles");
const QString kAuthenticate = QStringLiteral("vault.authenticate");

QJsonObject listOf(int files, int total, const QString &directory = QStringLiteral("/home/a"))
{
    QJsonArray records;
    for (int i = 0; i < files; ++i) {
        const QString name = "%1.txt"_u.arg(i);
        records.append(QJsonObject{{"id"_u, "id%1"_u.arg(i)},
                                   {"fileName"_u, name},
                                   {"originalPath"_u, directory + "/"_u + name},
                                   {"fileSize"_u, 1024},
                                   {"deletedAt"_u, 0}});
    }
    return {{"files"_u, records}, {"totalCount"_u, total}};
}

QJsonObject statusOf(bool enabled, bool hook = true)
{
    return {{"running"_u, true},
            {"enabled"_u, enabled},
            {"preloadActive"_u, hook},
            {"soFileExists"_u, true},
            {"protectedFileCount"_u, 3}};
}

/// The page over a service of its own.
struct Bench
{
    FakeService service;
    IpcClient client;
    VaultController controller;
    std::unique_ptr<RealtimeProtectionPage> page;
    QStringList told; ///< Titles and messages of the notices.

    explicit Bench(AppMode mode = AppMode::livecd, int files = 3)
        : client(service.name())
        , controller(&client)
    {
        service.reply(kStatus, statusOf(true));
        service.reply(kConfig, QJsonObject());
        service.reply(kList, listOf(files, files));
        page = std::make_unique<RealtimeProtectionPage>(&controller, mode);
        page->resize(900, 620);
        page->show();
        if (!QTest::qWaitForWindowExposed(page.get()))
            qFatal("the page is not shown");
    }
    /// Starts the service; the page has its list afterwards.
    void connectService()
    {
        QVERIFY(service.start());
        controller.connectToVaultDaemon();
        QTRY_VERIFY(text("FileListHeading").contains("个文件"_u));
        QTRY_COMPARE(text("StatusText"), "保护已启用"_u);
        service.clearRequests();
    }
    ProtectedFileTree *tree() const
    {
        return child<ProtectedFileTree>(page.get(), "ProtectedFileTree");
    }
    QString text(const char *name) const { return textOf(page.get(), name); }
    QString buttonText(const char *name) const
    {
        return child<QPushButton>(page.get(), name)->text();
    }
    bool isVisible(const char *name) const { return child<QWidget>(page.get(), name)->isVisible(); }
    bool isEnabled(const char *name) const { return child<QWidget>(page.get(), name)->isEnabled(); }
    void click(const char *name) const { clickOn(page.get(), name); }
    void tick(int row) const { tree()->topLevelItem(0)->child(row)->setCheckState(0, Qt::Checked); }
    /// Clicks and answers the dialog that comes up.
    void clickAndPress(const char *name, const char *button)
    {
        ModalDriver driver(presses(button, &told));
        click(name);
        QVERIFY(driver.handled());
    }
    /// Runs what leads to a notice, and closes that.
    template <typename Action>
    void noticeAfter(Action action)
    {
        ModalDriver driver(presses("NoticeOkBtn", &told));
        action();
        QTRY_VERIFY(driver.handled());
    }
    /// Opens the password dialog and runs `inside` in it.
    void unlock(const std::function<void(QWidget *)> &inside)
    {
        ModalDriver driver(inside);
        click("UnlockButton");
        QVERIFY(driver.handled());
    }
};

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
    void asksACappedServiceOnce();
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
    void startsLocked();
    void password();
    void passwordTimesOut();
    void passwordDialogOutlivesAll_data();
    void passwordDialogOutlivesAll();
    void locksItself();
    void locksUnderAConfirmation();
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
    for (const char *name : controls)
        QVERIFY2(bench.isEnabled(name), name);
    QCOMPARE(textOf(child<QWidget>(bench.page.get(), "FileCountStat"), "LargeValue"), "3"_u);

    bench.service.stop();
    QTRY_COMPARE(bench.text("StatusText"), "守护进程未连接"_u);
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

void TestRealtimeProtectionPage::asksACappedServiceOnce()
{
    Bench bench;
    bench.service.reply(kList, listOf(100, 150)); // whatever it is asked for
    QSignalSpy fills(bench.tree(), &ProtectedFileTree::checkedCountChanged);
    bench.connectService();
    QTRY_COMPARE(fills.size(), 2);
    bench.service.clearRequests();
    bench.controller.refreshStatus();
    QVERIFY(bench.service.waitForRequest(kStatus));
    QCOMPARE(bench.service.count(kList), 0);
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
    QTest::addColumn<QStringList>("told");
    QTest::newRow("on") << false << true << false << QStringList();
    QTest::newRow("on, reboot") << false << true << true
                                << QStringList{"需要重启"_u,
                                               "文件保护已启用，需要重启系统后才能对所有程序生效。"
                                               "\n\n建议保存工作进度，然后重启系统。"_u};
    QTest::newRow("not on") << false << false << false
                            << QStringList{"操作错误"_u, "坏了"_u, "启用失败"_u,
                                           "启用文件保护失败，请检查守护进程日志。"_u};
    QTest::newRow("off") << true << true << false << QStringList();
    QTest::newRow("not off") << true << false << false
                             << QStringList{"操作错误"_u, "坏了"_u, "关闭失败"_u,
                                            "关闭文件保护失败，请检查守护进程日志。"_u};
}

void TestRealtimeProtectionPage::toggles()
{
    QFETCH(bool, wasOn);
    QFETCH(bool, works);
    QFETCH(bool, needReboot);
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
        bench.click(button.constData()); // nothing ticked, no reaction
        QVERIFY(!QApplication::activeModalWidget());
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
    bench.click("RestoreSelectedButton");
    QVERIFY(titles.isEmpty());
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
    QTest::qWait(50); // in which a second one would come up
    QVERIFY(!QApplication::activeModalWidget());
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

void TestRealtimeProtectionPage::startsLocked()
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
    bench.click("UnlockButton");
    QVERIFY(!QApplication::activeModalWidget());
    QVERIFY(bench.isVisible("LockMessage"));
    QCOMPARE(bench.text("LockMessage"), "守护进程未连接，无法验证"_u);
}

void TestRealtimeProtectionPage::password()
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

void TestRealtimeProtectionPage::passwordTimesOut()
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
        QTest::qWait(50); // in which the answer arrives
        QVERIFY(dialog->isVisible());
        clickOn(dialog, "AuthCancel");
    });
    QVERIFY(!bench.page->isFileListUnlocked());
}

void TestRealtimeProtectionPage::passwordDialogOutlivesAll_data()
{
    QTest::addColumn<QString>("what");
    for (const char *what : {"link", "controller", "dialog", "page", "closed"})
        QTest::newRow(what) << QString::fromLatin1(what);
}

void TestRealtimeProtectionPage::passwordDialogOutlivesAll()
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

void TestRealtimeProtectionPage::locksItself()
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
    while (bench.page->isFileListUnlocked() && clock.elapsed() < 5000) {
        bench.tick(++ticks % 3);
        QTest::qWait(20); // between two uses
    }
    QVERIFY(!bench.page->isFileListUnlocked());
    QVERIFY(clock.elapsed() >= 200 && ticks > 3);
    QVERIFY(bench.isVisible("LockOverlay"));
    QVERIFY(!bench.isVisible("ProtectedFileTree"));
    QVERIFY(!QApplication::activeModalWidget());
}

void TestRealtimeProtectionPage::locksUnderAConfirmation()
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
