#include "core/controllers/recoverycontroller.h"
#include "recoverypagesfixture.h"
#include "support/modaldriver.h"
#include "ui/common/utils/timetext.h"
#include "ui/pages/recentscanspage.h"
#include "ui/pages/recoverydetaildialog.h"
#include "ui/pages/recoveryhistorydialog.h"
#include "ui/pages/recoveryhistorydialog/taskrules.h"
#include "ui/pages/recoveryprogresspage.h"
#include "ui/pages/recoveryworkflowwindow.h"
#include "ui/pages/scanresultspage.h"

#include <QLineEdit>
#include <QPushButton>

using namespace recentscans;
using namespace testsupport;
using core::controllers::RecoveryController;
using services::Reply;

class TestRecentScans : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void pendingSession_data();
    void pendingSession();
    void summaries_data();
    void summaries();
    void taskWords_data();
    void taskWords();
    void times_data();
    void times();
    void listAndFilter();
    void emptyBusyBroken();
    void opensByClick_data();
    void opensByClick();
    void laterViewWins();
    void failedViewLeavesThePage();
    void runningScanIsNotReplacedUnasked();
    void historyByClick();
    void historyIsRebuilt();
    void historyAnswersForOtherTasks();
    void deleting();
    void deleteRefused();
    void listsAnewWhatChanged();

private:
    enum Column { IdColumn, DeviceColumn, TimeColumn, CountColumn, ModeColumn, ActionColumn };
    enum Action { View, History, Delete };
};

namespace {

const QString kList = QStringLiteral("session.list");
const QString kDetail = QStringLiteral("session.getDetail");
const QString kFiles = QStringLiteral("session.getFiles");
const QString kTask = QStringLiteral("recovery.getDetail");
const QString kDelete = QStringLiteral("session.delete");

QJsonObject object(const char *json)
{
    return QJsonDocument::fromJson(json).object();
}

QJsonObject sessions()
{
    return object(R"({"sessions":[
        {"sessionId":"s-1","devicePath":"/dev/sda1","scanTime":"2026-01-02 03:04:05",
         "filesFound":12,"scanMode":"quick"},
        {"sessionId":"s-2","devicePath":"/dev/sdb1","scanTime":"2026-01-03 03:04:05",
         "filesFound":7,"scanMode":"deep"},
        {"sessionId":"s-3","devicePath":"/dev/sdb2","filesFound":3000000000,"scanMode":"raw"}]})");
}

QJsonObject detail()
{
    return object(R"({"devicePath":"/dev/sda1","fileSystem":"ext4","filesFound":12,"elapsedMs":5,
        "recoveryTasks":[
        {"recoveryId":"r-1","status":"completed_with_errors","startedAt":"2026-01-02 04:00:00",
         "outputDir":"/mnt/out","succeeded":3,"failed":1,"partial":2,"writtenBytes":1536},
        {"recoveryId":"r-2","status":"running"}]})");
}

/// A page with its service, controller and window, after its first list.
struct Bench
{
    FakeService service;
    core::ipc::IpcClient client{service.name()};
    RecoveryController controller{&client};
    RecoveryWorkflowWindow window;
    RecentScansPage page{&controller, &window};
    QTableView *table = child<QTableView>(&page, "RecentScansTable");

    void start()
    {
        QVERIFY(service.start());
        service.reply(kList, sessions());
        service.reply(kDetail, detail());
        service.reply(kFiles, object(R"({"files":[{"fileId":"f1","name":"a.txt"}]})"));
        QVERIFY(client.ensureConnected(5000));
        page.resize(1000, 640);
        page.show();
        QVERIFY(QTest::qWaitForWindowExposed(&page));
        page.refresh();
        QTRY_COMPARE(table->model()->rowCount(), 3);
    }
    RecoveryHistoryDialog *history() const { return page.findChild<RecoveryHistoryDialog *>(); }
};

} // namespace

void TestRecentScans::initTestCase()
{
    useDarkTheme();
}

void TestRecentScans::pendingSession_data()
{
    QTest::addColumn<QString>("steps"); // b: begin, d: detail, f: files, c: clear; then the id
    QTest::addColumn<QString>("taken"); // y or n for each answer
    QTest::addColumn<bool>("complete");
    const auto row = [](const char *name, const char *steps, const char *taken, bool complete) {
        QTest::newRow(name) << QString::fromLatin1(steps) << QString::fromLatin1(taken) << complete;
    };
    row("detail first", "bA dA fA", "yy", true);
    row("files first", "bA fA dA", "yy", true);
    row("only the detail, twice", "bA dA dA", "yy", false);
    row("only the files", "bA fA", "y", false);
    row("nothing asked for", "dA fA", "nn", false);
    row("other ids", "bA dB fA fB", "nyn", false);
    row("replaced", "bA dA bB fA fB", "yny", false);
    row("replaced and complete", "bA fA bB fB dA dB", "yyny", true);
    row("asked for again", "bA dA bA fA", "yy", false);
    row("given up", "bA dA c- fA dA", "ynn", false);
}

void TestRecentScans::pendingSession()
{
    QFETCH(QString, steps);
    PendingSession pending;
    QString taken;
    const QStringList list = steps.split(QLatin1Char(' '));
    for (const QString &step : list) {
        const QString id = step.mid(1);
        const auto note = [&taken](bool accepted) {
            taken.append(QLatin1Char(accepted ? 'y' : 'n'));
        };
        if (step.startsWith(QLatin1Char('b')))
            pending.begin(id);
        else if (step.startsWith(QLatin1Char('c')))
            pending.clear();
        else if (step.startsWith(QLatin1Char('d')))
            note(pending.takeDetail(id, {}));
        else
            note(pending.takeFiles(id, {}));
    }
    QTEST(taken, "taken");
    QTEST(pending.isComplete(), "complete");
}

void TestRecentScans::summaries_data()
{
    QTest::addColumn<QByteArray>("detail");
    QTest::addColumn<int>("filesFound");
    QTest::addColumn<int>("elapsedMs");
    QTest::newRow("its own") << QByteArray(R"({"filesFound":1,"elapsedMs":2,
        "scanSummary":{"filesFound":30,"elapsedMs":40}})")
                             << 30 << 40;
    QTest::newRow("empty") << QByteArray(R"({"filesFound":1,"elapsedMs":2,"scanSummary":{}})") << 1
                           << 2;
    QTest::newRow("missing") << QByteArray(R"({"filesFound":1,"elapsedMs":2})") << 1 << 2;
}

void TestRecentScans::summaries()
{
    QFETCH(QByteArray, detail);
    const QJsonObject summary = summaryOf(object(detail.constData()));
    QTEST(summary.value(QLatin1String("filesFound")).toInt(), "filesFound");
    QTEST(summary.value(QLatin1String("elapsedMs")).toInt(), "elapsedMs");
}

void TestRecentScans::taskWords_data()
{
    QTest::addColumn<QByteArray>("task");
    QTest::addColumn<QString>("status");
    QTest::addColumn<QString>("summary");
    QTest::newRow("all well") << QByteArray(R"({"status":"success","succeeded":3})")
                              << QStringLiteral("完成")
                              << QStringLiteral("成功 3 / 失败 0 / 部分 0 / 0 B");
    QTest::newRow("completed") << QByteArray(R"({"status":"completed","writtenBytes":1536})")
                               << QStringLiteral("完成")
                               << QStringLiteral("成功 0 / 失败 0 / 部分 0 / 1.5 KB");
    QTest::newRow("errors")
        << QByteArray(R"({"status":"completed_with_errors","succeeded":1,"failed":2,"partial":3})")
        << QStringLiteral("部分异常") << QStringLiteral("成功 1 / 失败 2 / 部分 3 / 0 B");
    const QString nothing = QStringLiteral("成功 0 / 失败 0 / 部分 0 / 0 B");
    QTest::newRow("failed") << QByteArray(R"({"status":"failed"})") << QStringLiteral("失败")
                            << nothing;
    QTest::newRow("running") << QByteArray(R"({"status":"running"})") << QStringLiteral("进行中")
                             << nothing;
    QTest::newRow("unknown") << QByteArray(R"({"status":"stopped"})") << QStringLiteral("stopped")
                             << nothing;
}

void TestRecentScans::taskWords()
{
    QFETCH(QByteArray, task);
    const QJsonObject json = object(task.constData());
    QTEST(recoveryhistory::translateTaskStatus(json.value(QLatin1String("status")).toString()),
          "status");
    QTEST(recoveryhistory::summarizeTask(json), "summary");
}

void TestRecentScans::times_data()
{
    QTest::addColumn<QJsonValue>("time");
    QTest::addColumn<QString>("shown");
    const QDateTime local(QDate(2026, 1, 2), QTime(3, 4, 5));
    const QString minutes = QStringLiteral("2026-01-02 03:04");
    QTest::newRow("text") << QJsonValue(QStringLiteral("gestern")) << QStringLiteral("gestern");
    QTest::newRow("ISO, other zone")
        << QJsonValue(local.toUTC().toString(Qt::ISODate)) << minutes + QStringLiteral(":05");
    QTest::newRow("number") << QJsonValue(double(local.toMSecsSinceEpoch())) << minutes;
    QTest::newRow("zero") << QJsonValue(0) << QStringLiteral("--");
    QTest::newRow("missing") << QJsonValue(QJsonValue::Undefined) << QStringLiteral("--");
}

void TestRecentScans::times()
{
    QFETCH(QJsonValue, time);
    QTEST(ui::common::utils::timeText(time), "shown");
}

void TestRecentScans::listAndFilter()
{
    Bench bench;
    bench.start();
    QCOMPARE(bench.service.lastParams(kList), object(R"({"limit":50,"offset":0})"));
    QCOMPARE(cellText(bench.table, 0, ModeColumn), QStringLiteral("快速扫描"));
    QCOMPARE(cellText(bench.table, 1, ModeColumn), QStringLiteral("深度扫描"));
    QCOMPARE(cellText(bench.table, 2, ModeColumn), QStringLiteral("raw"));
    QCOMPARE(cellText(bench.table, 2, CountColumn), QStringLiteral("3000000000"));
    auto *search = child<QLineEdit>(&bench.page, "RecentScansSearch");
    const struct
    {
        const char *text;
        int shown;
    } filters[] = {{"", 3},    {"  ", 3},    {"深度", 1}, {"deep", 0},     {" SDB ", 2},
                   {"S-3", 1}, {"01-03", 1}, {"300", 1},  {"恢复记录", 0}, {".*", 0}};
    for (const auto &filter : filters) {
        search->setText(QString::fromUtf8(filter.text));
        QCOMPARE(bench.table->model()->rowCount(), filter.shown);
        QCOMPARE(textOf(&bench.page, "RecentScansStatus"),
                 QStringLiteral("显示 %1 / 3 条记录").arg(filter.shown));
    }
    QCOMPARE(textOf(&bench.page, "EmptyStateTitle"), QStringLiteral("没有匹配的扫描会话"));
    clickOn(&bench.page, "EmptyStateButton");
    QCOMPARE(bench.table->model()->rowCount(), 3);
    QVERIFY(search->text().isEmpty());

    // The current session stays current where its row moves.
    bench.table->selectRow(1);
    bench.service.reply(kList, object(R"({"sessions":[{"sessionId":"s-9"},{"sessionId":"s-8"},
        {"sessionId":"s-2"}]})"));
    clickOn(&bench.page, "RecentScansRefresh");
    QTRY_COMPARE(cellText(bench.table, 0, IdColumn), QStringLiteral("s-9"));
    QCOMPARE(bench.table->currentIndex().row(), 2);
}

void TestRecentScans::emptyBusyBroken()
{
    FakeService service;
    core::ipc::IpcClient client(service.name());
    RecoveryController controller(&client);
    RecentScansPage page(&controller, nullptr);
    page.resize(900, 600);
    page.show();
    QVERIFY(QTest::qWaitForWindowExposed(&page));
    const auto title = [&page] {
        return textOf(&page, "EmptyStateTitle");
    };
    QCOMPARE(title(), QStringLiteral("等待恢复服务"));
    clickOn(&page, "RecentScansRefresh"); // Not connected.
    QCOMPARE(title(), QStringLiteral("无法读取扫描会话"));
    QVERIFY(!textOf(&page, "EmptyStateHint").isEmpty());

    QVERIFY(service.start());
    QVERIFY(client.ensureConnected(5000));
    service.hold(kList);
    clickOn(&page, "EmptyStateButton");
    QCOMPARE(title(), QStringLiteral("正在读取扫描会话..."));
    QVERIFY(!child<QPushButton>(&page, "RecentScansRefresh")->isEnabled());
    QVERIFY(service.waitForRequest(kList));
    QVERIFY(service.release(kList, Reply::ok({})));
    QTRY_COMPARE(title(), QStringLiteral("还没有扫描会话"));

    // A failure leaves the rows and is told beside them; the next success takes the words away.
    service.replyOnce(kList, Reply::ok(sessions()));
    page.refresh();
    auto *table = child<QTableView>(&page, "RecentScansTable");
    QTRY_COMPARE(table->model()->rowCount(), 3);
    service.stop();
    service.dropClients();
    QTRY_VERIFY(!client.isConnected());
    clickOn(&page, "RecentScansRefresh");
    QVERIFY(textOf(&page, "RecentScansMessage").startsWith(QStringLiteral("刷新失败：")));
    QVERIFY(child<QWidget>(&page, "RecentScansMessage")->isVisible());
    QCOMPARE(table->model()->rowCount(), 3);
    QVERIFY(table->isVisible());
}

void TestRecentScans::opensByClick_data()
{
    QTest::addColumn<bool>("filesFirst");
    QTest::newRow("detail first") << false;
    QTest::newRow("files first") << true;
}

void TestRecentScans::opensByClick()
{
    QFETCH(bool, filesFirst);
    Bench bench;
    bench.start();
    const QString first = filesFirst ? kFiles : kDetail;
    const QString second = filesFirst ? kDetail : kFiles;
    bench.service.hold(second);
    clickAction(bench.table, 0, ActionColumn, View);
    QVERIFY(bench.service.waitForRequest(first));
    QVERIFY(bench.service.waitForRequest(second));
    QSignalSpy details(&bench.controller, &RecoveryController::sessionDetailReceived);
    QSignalSpy files(&bench.controller, &RecoveryController::sessionFilesReceived);
    QTRY_VERIFY(bench.service.heldCount(second) == 1);
    QTRY_COMPARE((filesFirst ? files : details).count(), 1);
    QVERIFY(!bench.window.isVisible());
    QVERIFY(bench.service.release(
        second,
        Reply::ok(filesFirst ? detail() : object(R"({"files":[{"fileId":"f1","name":"a"}]})"))));
    QTRY_VERIFY(bench.window.isVisible());
    const ScanResultsPage *results = bench.window.scanPage();
    QCOMPARE(results->sessionId(), QStringLiteral("s-1"));
    QCOMPARE(results->devicePath(), QStringLiteral("/dev/sda1"));
    QCOMPARE(results->fileSystem(), QStringLiteral("ext4"));
    QVERIFY(results->state() == ScanResultsPage::State::Completed);
    QCOMPARE(results->fileNamesForIds({QStringLiteral("f1")}).size(), 1);
    QVERIFY(!child<QWidget>(&bench.page, "RecentScansMessage")->isVisible());
}

void TestRecentScans::laterViewWins()
{
    Bench bench;
    bench.start();
    bench.service.hold(kDetail);
    bench.page.requestViewSession(QStringLiteral("s-1"));
    clickAction(bench.table, 1, ActionColumn, View);
    QVERIFY(bench.service.waitForRequest(kDetail, 2));
    QVERIFY(bench.service.release(kDetail, Reply::ok(object(R"({"devicePath":"/dev/old"})"))));
    QVERIFY(bench.service.release(kDetail, Reply::ok(object(R"({"devicePath":"/dev/sdb1"})"))));
    QTRY_VERIFY(bench.window.isVisible());
    QCOMPARE(bench.window.scanPage()->sessionId(), QStringLiteral("s-2"));
    QCOMPARE(bench.window.scanPage()->devicePath(), QStringLiteral("/dev/sdb1"));

    // Nothing is pending any more.
    bench.window.close();
    bench.page.onSessionDetailReceived(QStringLiteral("s-2"), detail());
    bench.page.onSessionFilesReceived(QStringLiteral("s-2"), {});
    QVERIFY(!bench.window.isVisible());
}

void TestRecentScans::failedViewLeavesThePage()
{
    Bench bench;
    bench.start();
    bench.service.fail(kDetail, 404, QStringLiteral("会话已损坏"));
    clickAction(bench.table, 0, ActionColumn, View);
    QTRY_COMPARE(textOf(&bench.page, "RecentScansMessage"),
                 QStringLiteral("无法打开会话 s-1：会话已损坏"));
    QVERIFY(!bench.window.isVisible());
    QCOMPARE(bench.table->model()->rowCount(), 3);
    clickAction(bench.table, 0, ActionColumn, History);
    QTRY_COMPARE(textOf(&bench.page, "RecentScansMessage"),
                 QStringLiteral("无法读取会话 s-1 的恢复记录：会话已损坏"));
    QVERIFY(!QApplication::activeModalWidget());

    RecentScansPage lonely(nullptr, nullptr); // Whatever is asked of it, it stays as it is.
    lonely.refresh();
    lonely.requestViewSession(QStringLiteral("s-1"));
    lonely.requestViewRecoveryHistory(QStringLiteral("s-1"));
    lonely.requestDeleteSession(QStringLiteral("s-1"), 0);
}

void TestRecentScans::runningScanIsNotReplacedUnasked()
{
    Bench bench;
    bench.start();
    bench.window.scanPage()->initForScan(QStringLiteral("/dev/sdc1"), QString(),
                                         QStringLiteral("live"));
    for (const char *const button : {"NoticeCancelBtn", "NoticeOkBtn"}) {
        QVERIFY(bench.window.scanPage()->state() == ScanResultsPage::State::Running);
        bench.service.clearRequests();
        support::ModalDriver driver([button](QWidget *dialog) {
            QCOMPARE(textOf(dialog, "NoticeTitle"), QStringLiteral("扫描仍在进行"));
            clickOn(dialog, button);
        });
        clickAction(bench.table, 0, ActionColumn, View);
        QTRY_VERIFY(driver.handled());
        if (qstrcmp(button, "NoticeCancelBtn") == 0)
            QVERIFY(!bench.service.methods().contains(kDetail));
    }
    QTRY_COMPARE(bench.window.scanPage()->sessionId(), QStringLiteral("s-1"));
}

void TestRecentScans::historyByClick()
{
    Bench bench;
    bench.start();
    bench.service.hold(kTask);
    clickAction(bench.table, 0, ActionColumn, History);
    QTRY_VERIFY(bench.history() && bench.history()->isVisible());
    RecoveryHistoryDialog *dialog = bench.history();
    QCOMPARE(dialog->windowTitle(), QStringLiteral("恢复记录"));
    QVERIFY(textOf(dialog, "RecoveryHistorySession").startsWith(QStringLiteral("会话: s-1")));
    auto *tasks = child<QTableView>(dialog, "RecoveryTaskTable");
    QCOMPARE(tasks->model()->rowCount(), 2);
    QCOMPARE(cellText(tasks, 0, 2), QStringLiteral("部分异常 · 成功 3 / 失败 1 / 部分 2 / 1.5 KB"));
    QCOMPARE(cellText(tasks, 1, 1), QStringLiteral("--"));
    QVERIFY(bench.service.waitForRequest(kTask));
    QCOMPARE(bench.service.lastParams(kTask), object(R"({"recoveryId":"r-1"})"));
    QVERIFY(bench.service.release(kTask, Reply::ok(object(R"({"status":"completed",
        "fileStatuses":[{"fileId":"f1","name":"a.txt","status":"partial","timeline":["x","y"]},
                        {"fileId":"f2","name":"b.txt","status":"skipped","detail":"重名"}]})"))));
    auto *files = child<QTableView>(dialog, "RecoveryResultTable");
    QTRY_COMPARE(files->model()->rowCount(), 2);
    QCOMPARE(cellText(files, 0, 1), QStringLiteral("部分恢复"));
    QCOMPARE(cellText(files, 0, 2), QStringLiteral("文件已写出，但完整性校验未完全通过。"));
    QCOMPARE(cellText(files, 1, 2), QStringLiteral("重名"));
    clickAction(files, 1, 3, 0);
    QTRY_VERIFY(dialog->findChild<RecoveryDetailDialog *>());
    QCOMPARE(textOf(dialog->findChild<RecoveryDetailDialog *>(), "RecoveryDetailName"),
             QStringLiteral("b.txt"));
    clickOn(dialog, "RecoveryDetailCloseButton");

    // The second task fails to load; it can be asked for again.
    QTest::mouseClick(tasks->viewport(), Qt::LeftButton, Qt::NoModifier,
                      tasks->visualRect(tasks->model()->index(1, 0)).center());
    QVERIFY(bench.service.waitForRequest(kTask, 2));
    QVERIFY(bench.service.release(kTask, Reply::failure(7, QStringLiteral("读不出"))));
    QTRY_VERIFY(files->isHidden());
    const auto *state =
        dialog->findChild<QWidget *>(QStringLiteral("RecoveryResultTable"))->parentWidget();
    QTRY_COMPARE(textOf(state, "EmptyStateTitle"), QStringLiteral("无法读取文件恢复结果"));
    clickOn(state, "EmptyStateButton");
    QVERIFY(bench.service.waitForRequest(kTask, 3));
    QCOMPARE(bench.service.lastParams(kTask), object(R"({"recoveryId":"r-2"})"));
}

void TestRecentScans::historyIsRebuilt()
{
    Bench bench;
    bench.start();
    bench.service.reply(kTask, {});
    clickAction(bench.table, 0, ActionColumn, History);
    QTRY_VERIFY(bench.history());
    const QPointer<RecoveryHistoryDialog> first = bench.history();
    // Nobody waits for the detail any more: opening a session does not open its history.
    bench.page.onSessionDetailReceived(QStringLiteral("s-1"), {});
    QCOMPARE(child<QTableView>(first, "RecoveryTaskTable")->model()->rowCount(), 2);
    clickOn(first, "RecoveryHistoryCloseButton");
    QTRY_VERIFY(!first);
    bench.service.reply(kDetail, object(R"({"devicePath":"/dev/sdb1"})"));
    clickAction(bench.table, 1, ActionColumn, History);
    QTRY_VERIFY(bench.history() && bench.history()->isVisible());
    QVERIFY(textOf(bench.history(), "RecoveryHistorySession").contains(QStringLiteral("s-2")));
    bool saysEmpty = false;
    const auto labels = bench.history()->findChildren<QLabel *>();
    for (const QLabel *label : labels)
        saysEmpty |=
            label->isVisible() && label->text() == QStringLiteral("该扫描会话还没有恢复记录。");
    QVERIFY(saysEmpty);
    QTest::keyClick(bench.history(), Qt::Key_Escape);
    QTRY_VERIFY(!bench.history());
}

void TestRecentScans::historyAnswersForOtherTasks()
{
    RecoveryHistoryDialog dialog;
    QSignalSpy asked(&dialog, &RecoveryHistoryDialog::recoveryTaskRequested);
    dialog.setRecoveryTaskDetail(QString(), object(R"({"fileStatuses":[{}]})"));
    dialog.setRecoveryTasks(detail().value(QLatin1String("recoveryTasks")).toArray());
    QCOMPARE(asked.count(), 1);
    QCOMPARE(asked.at(0).at(0).toString(), QStringLiteral("r-1"));
    const QJsonObject answer = object(R"({"status":"running","fileStatuses":[{"fileId":"f"}]})");
    dialog.setRecoveryTaskDetail(QStringLiteral("r-2"), answer);
    const auto *files = child<QTableView>(&dialog, "RecoveryResultTable");
    QCOMPARE(files->model()->rowCount(), 0);
    dialog.setRecoveryTaskDetail(QStringLiteral("r-1"), answer);
    QCOMPARE(files->model()->rowCount(), 1);
    QCOMPARE(cellText(files, 0, 1), QStringLiteral("等待恢复")); // The task runs.
    dialog.setRecoveryTaskFailed(QStringLiteral("r-2"), QStringLiteral("no"));
    QVERIFY(!files->isHidden());
}

void TestRecentScans::deleting()
{
    Bench bench;
    bench.start();
    bench.service.reply(kDelete, {});
    support::ModalDriver refuse([](QWidget *dialog) {
        QCOMPARE(textOf(dialog, "NoticeTitle"), QStringLiteral("确认删除"));
        QCOMPARE(textOf(dialog, "NoticeMessage"),
                 QStringLiteral("确定要删除会话 s-2 吗？此操作不可撤销。"));
        QCOMPARE(child<QPushButton>(dialog, "NoticeOkBtn")->text(), QStringLiteral("确认"));
        QCOMPARE(child<QPushButton>(dialog, "NoticeCancelBtn")->text(), QStringLiteral("取消"));
        QTest::keyClick(dialog, Qt::Key_Return); // The dangerous choice is not the default.
    });
    clickAction(bench.table, 1, ActionColumn, Delete);
    QTRY_VERIFY(refuse.handled());
    QCOMPARE(bench.service.count(kDelete), 0);

    QJsonArray rest = sessions().value(QLatin1String("sessions")).toArray();
    rest.removeAt(1);
    bench.service.reply(kList, {{QStringLiteral("sessions"), rest}});
    support::ModalDriver agree([](QWidget *dialog) { clickOn(dialog, "NoticeOkBtn"); });
    clickAction(bench.table, 1, ActionColumn, Delete);
    QTRY_VERIFY(agree.handled());
    QVERIFY(bench.service.waitForRequest(kDelete));
    QCOMPARE(bench.service.lastParams(kDelete), object(R"({"sessionId":"s-2"})"));
    QTRY_COMPARE(bench.table->model()->rowCount(), 2);
    QCOMPARE(bench.table->currentIndex().row(), 1); // Where the deleted one was.
    QCOMPARE(cellText(bench.table, 1, IdColumn), QStringLiteral("s-3"));
}

void TestRecentScans::deleteRefused()
{
    Bench bench;
    bench.start();
    support::ModalDriver driver([](QWidget *dialog) {
        QCOMPARE(textOf(dialog, "NoticeTitle"), QStringLiteral("删除失败"));
        QCOMPARE(textOf(dialog, "NoticeMessage"), QStringLiteral("无法删除会话 s-1"));
        clickOn(dialog, "NoticeOkBtn");
    });
    bench.controller.deleteSession(QStringLiteral("s-1")); // The service knows no such method.
    QTRY_VERIFY(driver.handled());
    QCOMPARE(bench.table->model()->rowCount(), 3);
    QCOMPARE(bench.service.count(kList), 1);
}

void TestRecentScans::listsAnewWhatChanged()
{
    Bench bench;
    bench.start();
    bench.page.hide();
    bench.service.hold(kList);
    bench.page.show(); // A scan may have ended meanwhile.
    QVERIFY(bench.service.waitForRequest(kList, 2));
    // A list that was on its way during a deletion still has the row.
    bench.service.reply(kDelete, {});
    QSignalSpy deleted(&bench.controller, &RecoveryController::sessionDeleted);
    bench.controller.deleteSession(QStringLiteral("s-1"));
    QTRY_COMPARE(deleted.count(), 1);
    bench.service.release(kList, Reply::ok(sessions()));
    QVERIFY(bench.service.waitForRequest(kList, 3));
    bench.service.release(kList, Reply::ok({}));
    QTRY_COMPARE(bench.table->model()->rowCount(), 0);
}

QTEST_MAIN(TestRecentScans)
#include "tst_recentscans.moc"
