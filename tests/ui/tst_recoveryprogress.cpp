#include "core/controllers/recoverycontroller.h"
#include "recoverypagesfixture.h"
#include "support/modaldriver.h"
#include "ui/pages/recoverydetaildialog.h"
#include "ui/pages/recoverydetaildialog/fileresultmodel.h"
#include "ui/pages/recoveryprogresspage.h"
#include "ui/pages/recoveryworkflowwindow.h"
#include "ui/pages/scanresultspage.h"

#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QStackedWidget>
#include <QTemporaryDir>

#include <cmath>

using namespace recoveryprogress;
using namespace recoveryresult;
using namespace testsupport;
using core::controllers::RecoveryController;

using State = RecoveryProgressPage::State;

class TestRecoveryProgress : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void statusWords_data();
    void statusWords();
    void tally_data();
    void tally();
    void shownPercent_data();
    void shownPercent();
    void runsToTheEnd();
    void summaries_data();
    void summaries();
    void endings_data();
    void endings();
    void connectionLostAndBack();
    void stopButton();
    void searchAndDetail();
    void unknownFilesGetRows();
    void laterTaskStartsOver();
    void tenThousandFiles();
    void workflowWindow();
    void followsTheService();
};

namespace {

void begin(RecoveryProgressPage *page, const QString &recoveryId = QStringLiteral("task-1"))
{
    page->initForRecovery(QStringLiteral("session-1"), recoveryId, QStringLiteral("/dev/sda2"),
                          QStringLiteral("/mnt/usb/out"), 3,
                          {{QStringLiteral("a"), QStringLiteral("alpha.txt")},
                           {QStringLiteral("b"), QStringLiteral("beta.txt")},
                           {QStringLiteral("c"), QStringLiteral("gamma.jpg")}});
}

void show(QWidget *widget)
{
    widget->resize(1024, 700);
    widget->show();
    QVERIFY(QTest::qWaitForWindowExposed(widget));
}

QString stat(const RecoveryProgressPage &page, const char *name)
{
    return textOf(child<QWidget>(&page, name), "LargeValue");
}

bool isShown(const RecoveryProgressPage &page, const char *name)
{
    return child<QWidget>(&page, name)->isVisible();
}

} // namespace

void TestRecoveryProgress::initTestCase()
{
    useDarkTheme();
}

void TestRecoveryProgress::statusWords_data()
{
    QTest::addColumn<QString>("status");
    QTest::addColumn<int>("outcome");
    QTest::addColumn<QString>("running");
    QTest::addColumn<QString>("ended");
    QTest::addColumn<QString>("sentence");
    const auto row = [](const char *status, Outcome outcome, const char *running, const char *ended,
                        const char *sentence) {
        QTest::newRow(*status ? status : "none")
            << QString::fromUtf8(status) << int(outcome) << QString::fromUtf8(running)
            << QString::fromUtf8(ended) << QString::fromUtf8(sentence);
    };
    const char *const fine = "恢复已完成，未检测到异常。";
    const char *const broken = "恢复过程中发生错误，文件未能完整写出。";
    const char *const goesOn = "恢复任务正在进行中。";
    row("success", Outcome::Success, "已恢复", "已恢复", fine);
    row("succeeded", Outcome::Success, "已恢复", "已恢复", fine);
    row("failed", Outcome::Failure, "失败", "失败", broken);
    row("error", Outcome::Failure, "失败", "失败", broken);
    row("partial", Outcome::Failure, "部分恢复", "部分恢复",
        "文件已写出，但完整性校验未完全通过。");
    row("skipped", Outcome::Skipped, "已跳过", "已跳过",
        "该文件未被写出，通常是由于冲突策略为跳过。");
    row("running", Outcome::Pending, "恢复中", "未完成", goesOn);
    row("Success", Outcome::Pending, "恢复中", "未完成", goesOn);
    row("", Outcome::Pending, "等待恢复", "未完成", goesOn);
}

void TestRecoveryProgress::statusWords()
{
    QFETCH(QString, status);
    QTEST(int(outcomeOf(status)), "outcome");
    QTEST(statusText(status, true), "running");
    QTEST(statusText(status, false), "ended");
    FileResult result;
    result.status = status;
    QTEST(conclusion(result), "sentence");
    result.detail = QStringLiteral("磁盘已满");
    QCOMPARE(conclusion(result), result.detail);
}

void TestRecoveryProgress::tally_data()
{
    QTest::addColumn<QStringList>("events"); // "file status"
    QTest::addColumn<int>("succeeded");
    QTest::addColumn<int>("failed");
    const auto row = [](const char *name, const char *events, int succeeded, int failed) {
        QTest::newRow(name) << QString::fromLatin1(events).split(QLatin1Char(',')) << succeeded
                            << failed;
    };
    row("each word once", "a success,b succeeded,c failed,d error,e partial,f skipped", 2, 3);
    row("a second final word", "a success,a failed,b failed,b success", 1, 1);
    row("on the way", "a running,a copying,a success", 1, 0);
    row("back on the way after the end", "a success,a running,a failed", 1, 0);
    row("skipped is final, too", "a skipped,a success", 0, 0);
    row("nothing final", "a running,b unknown", 0, 0);
}

void TestRecoveryProgress::tally()
{
    QFETCH(QStringList, events);
    RecoveryTally tally;
    int counted = 0;
    for (const QString &event : qAsConst(events))
        counted +=
            tally.record(event.section(QLatin1Char(' '), 0, 0), event.section(QLatin1Char(' '), 1));
    QTEST(tally.succeeded(), "succeeded");
    QTEST(tally.failed(), "failed");
    QCOMPARE(counted, tally.succeeded() + tally.failed() + tally.skipped());
    tally.reset();
    QVERIFY(tally.record(QStringLiteral("a"), QStringLiteral("success")));
    QCOMPARE(tally.succeeded(), 1);
}

void TestRecoveryProgress::shownPercent_data()
{
    QTest::addColumn<double>("progress");
    QTest::addColumn<int>("shown");
    QTest::newRow("none") << 0.0 << 0;
    QTest::newRow("not through yet") << 99.99 << 99;
    QTest::newRow("through") << 100.0 << 100;
    QTest::newRow("above") << 1e300 << 100;
    QTest::newRow("below") << -5.0 << 0;
    QTest::newRow("no number") << std::nan("") << 0;
}

void TestRecoveryProgress::shownPercent()
{
    QFETCH(double, progress);
    QTEST(recoveryprogress::shownPercent(progress), "shown");
}

void TestRecoveryProgress::runsToTheEnd()
{
    RecoveryProgressPage page;
    show(&page);
    QVERIFY(!isShown(page, "StopRecoveryButton"));
    begin(&page);
    QCOMPARE(textOf(&page, "RecoverySessionText"), QStringLiteral("会话: session-1  /dev/sda2"));
    QCOMPARE(textOf(&page, "RecoveryTargetPath"), QStringLiteral("/mnt/usb/out"));
    QCOMPARE(stat(page, "RecoveryCountStat"), QStringLiteral("3"));
    QCOMPARE(stat(page, "RecoveryProcessedStat"), QStringLiteral("0 / 3"));
    QVERIFY(isShown(page, "StopRecoveryButton"));
    QVERIFY(!isShown(page, "BackToScanResultsButton"));

    page.updateProgress(66.7, 2, 3);
    QCOMPARE(textOf(&page, "RecoveryPercentText"), QStringLiteral("66%"));
    QCOMPARE(child<QProgressBar>(&page, "RecoveryProgressBar")->value(), 66);
    QCOMPARE(stat(page, "RecoveryProcessedStat"), QStringLiteral("2 / 3"));
    page.updateFileStatus(QStringLiteral("a"), QStringLiteral("success"), QString(), {});
    page.updateFileStatus(QStringLiteral("b"), QStringLiteral("partial"), QString(), {});
    page.updateFileStatus(QStringLiteral("b"), QStringLiteral("success"), QString(), {});
    QCOMPARE(textOf(&page, "RecoverySucceededCount"), QStringLiteral("已恢复\n1"));
    QCOMPARE(textOf(&page, "RecoveryFailedCount"), QStringLiteral("失败\n1"));
    auto *table = child<QTableView>(&page, "RecoveryFileTable");
    QCOMPARE(cellText(table, 1, 1), QStringLiteral("已恢复"));
    QCOMPARE(cellText(table, 2, 1), QStringLiteral("等待恢复"));

    page.onRecoveryCompleted({});
    QCOMPARE(textOf(&page, "RecoveryStateText"), QStringLiteral("恢复完成"));
    QCOMPARE(textOf(&page, "RecoveryPercentText"), QStringLiteral("100%"));
    QCOMPARE(cellText(table, 2, 1), QStringLiteral("未完成"));
    QVERIFY(!isShown(page, "StopRecoveryButton"));
    const QSignalSpy back(&page, &RecoveryProgressPage::requestBackToScanResults);
    clickOn(&page, "BackToScanResultsButton");
    QCOMPARE(back.count(), 1);

    // What comes late tells of files, but moves neither the sums nor the state.
    page.updateFileStatus(QStringLiteral("c"), QStringLiteral("success"), QString(), {});
    page.updateProgress(10, 1, 3);
    page.onRecoveryStopped();
    QCOMPARE(cellText(table, 2, 1), QStringLiteral("已恢复"));
    QCOMPARE(textOf(&page, "RecoverySucceededCount"), QStringLiteral("已恢复\n1"));
    QCOMPARE(textOf(&page, "RecoveryPercentText"), QStringLiteral("100%"));
    QVERIFY(page.state() == State::Completed);
    clickOn(&page, "CloseRecoveryWindowButton");
    QVERIFY(!page.isVisible());
}

void TestRecoveryProgress::summaries_data()
{
    QTest::addColumn<QByteArray>("summary");
    QTest::addColumn<QString>("volume");
    QTest::addColumn<QString>("succeeded");
    QTest::addColumn<QString>("failed");
    const auto row = [](const char *name, const char *summary, const char *volume,
                        const char *succeeded, const char *failed) {
        QTest::newRow(name) << QByteArray(summary) << QString::fromLatin1(volume)
                            << QString::fromLatin1(succeeded) << QString::fromLatin1(failed);
    };
    row("all told", R"({"totalBytesWritten":1536,"succeeded":5,"failed":1,"partial":2})", "1.5 KB",
        "5", "3");
    row("written wins", R"({"totalBytesWritten":0,"totalBytes":1024,"succeeded":5})", "0 B", "5",
        "0");
    row("bytes as fallback", R"({"totalBytes":999})", "999 B", "2", "0");
    row("nothing told", "{}", "0 B", "2", "0");
    row("none recovered", R"({"succeeded":0,"partial":4})", "0 B", "0", "4");
}

void TestRecoveryProgress::summaries()
{
    QFETCH(QByteArray, summary);
    QFETCH(QString, succeeded);
    QFETCH(QString, failed);
    RecoveryProgressPage page;
    begin(&page);
    QCOMPARE(stat(page, "RecoveryVolumeStat"), QStringLiteral("--"));
    page.updateFileStatus(QStringLiteral("a"), QStringLiteral("success"), QString(), {});
    page.updateFileStatus(QStringLiteral("b"), QStringLiteral("succeeded"), QString(), {});
    page.updateFileStatus(QStringLiteral("c"), QStringLiteral("failed"), QString(), {});
    page.onRecoveryCompleted(QJsonDocument::fromJson(summary).object());
    QTEST(stat(page, "RecoveryVolumeStat"), "volume");
    QCOMPARE(textOf(&page, "RecoverySucceededCount"), QStringLiteral("已恢复\n") + succeeded);
    QCOMPARE(textOf(&page, "RecoveryFailedCount"), QStringLiteral("失败\n") + failed);
}

void TestRecoveryProgress::endings_data()
{
    QTest::addColumn<int>("state");
    QTest::addColumn<QString>("text");
    QTest::newRow("stopped") << int(State::Stopped) << QStringLiteral("恢复已停止");
    QTest::newRow("error") << int(State::Failed) << QStringLiteral("恢复出错");
    QTest::newRow("lost") << int(State::ConnectionLost) << QStringLiteral("与恢复服务的连接已断开");
}

void TestRecoveryProgress::endings()
{
    QFETCH(int, state);
    RecoveryProgressPage page;
    show(&page);
    begin(&page);
    page.updateProgress(42, 1, 3);
    QString title;
    QString message;
    support::ModalDriver driver([&](QWidget *dialog) {
        title = textOf(dialog, "NoticeTitle");
        message = textOf(dialog, "NoticeMessage");
        clickOn(dialog, "NoticeOkBtn");
    });
    if (state == int(State::Stopped))
        page.onRecoveryStopped();
    else if (state == int(State::Failed))
        page.onRecoveryError(QStringLiteral("目标磁盘已满"));
    else
        page.onConnectionLost();
    // The slot returns before a dialog opens: it runs while the link reads.
    QVERIFY(title.isEmpty());
    QTEST(textOf(&page, "RecoveryStateText"), "text");
    if (state == int(State::Failed)) {
        QTRY_VERIFY(driver.handled());
        QCOMPARE(title, QStringLiteral("恢复失败"));
        QCOMPARE(message, QStringLiteral("目标磁盘已满"));
    }
    QCOMPARE(int(page.state()), state);
    QVERIFY(!isShown(page, "StopRecoveryButton"));
    clickOn(&page, "BackToScanResultsButton");
    clickOn(&page, "CloseRecoveryWindowButton");
    QVERIFY(!page.isVisible());
}

void TestRecoveryProgress::connectionLostAndBack()
{
    RecoveryProgressPage page;
    page.onConnectionLost();
    QVERIFY(page.state() == State::Idle);
    begin(&page);
    page.onConnectionLost();
    page.updateProgress(80, 2, 3);
    QCOMPARE(textOf(&page, "RecoveryPercentText"), QStringLiteral("0%"));
    // The service went on by itself and tells the end to the new connection.
    page.onRecoveryCompleted({{QStringLiteral("succeeded"), 3}});
    QVERIFY(page.state() == State::Completed);
    page.onConnectionLost();
    QVERIFY(page.state() == State::Completed);
}

void TestRecoveryProgress::stopButton()
{
    RecoveryProgressPage page;
    show(&page);
    begin(&page, QString());
    auto *stop = child<QPushButton>(&page, "StopRecoveryButton");
    QVERIFY(!stop->isEnabled()); // The task has no name yet.
    page.setRecoveryId(QStringLiteral("task-9"));
    QSignalSpy asked(&page, &RecoveryProgressPage::requestStopRecovery);
    clickOn(&page, "StopRecoveryButton");
    QTest::mouseClick(stop, Qt::LeftButton); // An impatient second click.
    QCOMPARE(asked.count(), 1);
    QCOMPARE(asked.at(0).at(0).toString(), QStringLiteral("task-9"));
    QVERIFY(!stop->isEnabled());

    support::ModalDriver driver([](QWidget *dialog) {
        QCOMPARE(textOf(dialog, "NoticeTitle"), QStringLiteral("停止恢复失败"));
        clickOn(dialog, "NoticeOkBtn");
    });
    page.onStopRequestFailed(QStringLiteral("忙"));
    QTRY_VERIFY(driver.handled());
    QVERIFY(stop->isEnabled());
    QCOMPARE(stop->text(), QStringLiteral("停止恢复"));
    QVERIFY(page.state() == State::Running);
}

void TestRecoveryProgress::searchAndDetail()
{
    RecoveryProgressPage page;
    show(&page);
    begin(&page);
    page.updateFileStatus(QStringLiteral("c"), QStringLiteral("failed"), QStringLiteral("坏扇区"),
                          {QStringLiteral("打开"), QStringLiteral("读取失败")});
    auto *table = child<QTableView>(&page, "RecoveryFileTable");
    QTest::keyClicks(child<QLineEdit>(&page, "RecoverySearchEdit"), QStringLiteral("GAMMA"));
    QCOMPARE(textOf(&page, "RecoveryShownCount"), QStringLiteral("显示 1 / 3 个文件"));
    const QPoint cell = table->visualRect(table->model()->index(0, 0)).center();
    QTest::mouseClick(table->viewport(), Qt::LeftButton, Qt::NoModifier, cell);
    QTest::mouseDClick(table->viewport(), Qt::LeftButton, Qt::NoModifier, cell);
    auto *dialog = page.findChild<RecoveryDetailDialog *>();
    QVERIFY(dialog);
    QCOMPARE(dialog->windowTitle(), QStringLiteral("恢复详情"));
    QCOMPARE(textOf(dialog, "RecoveryDetailName"), QStringLiteral("gamma.jpg"));
    QCOMPARE(textOf(dialog, "RecoveryDetailId"), QStringLiteral("c"));
    QCOMPARE(textOf(dialog, "RecoveryDetailStatus"), QStringLiteral("失败"));
    QCOMPARE(textOf(dialog, "RecoveryDetailConclusion"), QStringLiteral("坏扇区"));
    QCOMPARE(child<QPlainTextEdit>(dialog, "RecoveryDetailTimeline")->toPlainText(),
             QStringLiteral("打开\n读取失败"));
    clickOn(dialog, "RecoveryDetailCloseButton");
    QTRY_VERIFY(!page.findChild<RecoveryDetailDialog *>());

    // Nothing matches; the way out is a button.
    QTest::keyClicks(child<QLineEdit>(&page, "RecoverySearchEdit"), QStringLiteral("zzz"));
    QCOMPARE(textOf(&page, "EmptyStateTitle"), QStringLiteral("没有匹配的文件"));
    clickOn(&page, "EmptyStateButton");
    QCOMPARE(table->model()->rowCount(), 3);

    // Of a file that no event told about, the task's detail does; of another, nobody.
    page.onRecoveryStopped();
    page.setRecoveryTaskDetail(QJsonDocument::fromJson(R"({"fileStatuses":[{"fileId":"x"},
        {"fileId":"a","status":"skipped"}]})")
                                   .object());
    const char *const sentences[] = {"该文件未被写出，通常是由于冲突策略为跳过。",
                                     "恢复已结束，没有收到该文件的最终结果。"};
    for (int row = 0; row < 2; ++row) {
        table->setCurrentIndex(table->model()->index(row, 0));
        QTest::keyClick(table, Qt::Key_Return);
        dialog = page.findChild<RecoveryDetailDialog *>();
        QVERIFY(dialog);
        QCOMPARE(textOf(dialog, "RecoveryDetailConclusion"), QString::fromUtf8(sentences[row]));
        QCOMPARE(child<QPlainTextEdit>(dialog, "RecoveryDetailTimeline")->toPlainText(),
                 QStringLiteral("当前没有更详细的时序记录。"));
        QTest::keyClick(dialog, Qt::Key_Escape);
        QTRY_VERIFY(!page.findChild<RecoveryDetailDialog *>());
    }
}

void TestRecoveryProgress::unknownFilesGetRows()
{
    FileResultModel model(FileResultModel::StatusColumn + 1, nullptr);
    model.setFiles({}, true);
    FileResult result;
    result.fileId = QStringLiteral("new");
    result.status = QStringLiteral("running");
    model.update(result);
    result.status = QStringLiteral("success");
    model.update(result);
    QCOMPARE(model.rowCount(), 1);
    QCOMPARE(model.at(0).name, QStringLiteral("new"));
    QCOMPARE(model.at(0).status, QStringLiteral("success"));
}

void TestRecoveryProgress::laterTaskStartsOver()
{
    RecoveryProgressPage page;
    begin(&page);
    child<QLineEdit>(&page, "RecoverySearchEdit")->setText(QStringLiteral("zzz"));
    page.updateFileStatus(QStringLiteral("a"), QStringLiteral("failed"), QString(), {});
    page.onRecoveryCompleted({{QStringLiteral("totalBytes"), 7}});
    begin(&page, QStringLiteral("task-2"));
    QVERIFY(page.state() == State::Running);
    QCOMPARE(textOf(&page, "RecoveryFailedCount"), QStringLiteral("失败\n0"));
    QCOMPARE(textOf(&page, "RecoveryPercentText"), QStringLiteral("0%"));
    QCOMPARE(stat(page, "RecoveryVolumeStat"), QStringLiteral("--"));
    QCOMPARE(textOf(&page, "RecoveryShownCount"), QStringLiteral("显示 3 / 3 个文件"));
    page.updateFileStatus(QStringLiteral("a"), QStringLiteral("failed"), QString(), {});
    QCOMPARE(textOf(&page, "RecoveryFailedCount"), QStringLiteral("失败\n1"));
}

void TestRecoveryProgress::tenThousandFiles()
{
    constexpr int kFiles = 10000;
    constexpr int kMostMs = 5000; // Cell widgets or a search for each row take many times that.
    RecoveryProgressPage page;
    show(&page);
    QVector<RecoveryProgressPage::File> files;
    for (int index = 0; index < kFiles; ++index)
        files.append({QString::number(index), QStringLiteral("file%1.bin").arg(index)});
    QElapsedTimer clock;
    clock.start();
    page.initForRecovery(QString(), QStringLiteral("t"), QString(), QString(), kFiles, files);
    for (const RecoveryProgressPage::File &file : qAsConst(files))
        page.updateFileStatus(file.fileId, QStringLiteral("success"), QString(), {});
    page.onRecoveryCompleted({});
    QVERIFY2(clock.elapsed() < kMostMs, qPrintable(QString::number(clock.elapsed())));
    QCOMPARE(textOf(&page, "RecoverySucceededCount"), QStringLiteral("已恢复\n10000"));
}

void TestRecoveryProgress::workflowWindow()
{
    RecoveryWorkflowWindow window;
    QCOMPARE(window.objectName(), QStringLiteral("RecoveryWorkflowWindow"));
    QCOMPARE(window.windowTitle(), QStringLiteral("墨川归档 - 扫描与恢复"));
    QCOMPARE(window.size(), QSize(1280, 768));
    QCOMPARE(window.minimumSize(), QSize(1024, 700));
    QVERIFY(!window.parent() && !window.isVisible());
    window.openRecoveryPage();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QVERIFY(window.recoveryPage()->isVisible() && !window.scanPage()->isVisible());
    const QColor ground = window.grab().toImage().pixelColor(6, window.height() / 2);
    QCOMPARE(ground.name(), QStringLiteral("#0a1322"));
    window.close();
    window.openScanPage();
    QVERIFY(window.scanPage()->isVisible() && !window.recoveryPage()->isVisible());
}

void TestRecoveryProgress::followsTheService()
{
    FakeService service;
    QVERIFY(service.start());
    service.reply(QStringLiteral("recovery.stop"), {});
    core::ipc::IpcClient client(service.name());
    QVERIFY(client.ensureConnected(5000));
    RecoveryController controller(&client);
    RecoveryProgressPage page;
    show(&page);
    begin(&page);
    const auto isOurs = [&page](const QString &id) {
        return id == page.recoveryId();
    };
    connect(&controller, &RecoveryController::recoveryFileStatus, &page,
            [&](const QString &id, const QString &file, const QString &status,
                const QString &detail, const QStringList &timeline) {
                if (isOurs(id))
                    page.updateFileStatus(file, status, detail, timeline);
            });
    connect(&controller, &RecoveryController::recoveryStopped, &page, [&](const QString &id) {
        if (isOurs(id))
            page.onRecoveryStopped();
    });
    connect(&page, &RecoveryProgressPage::requestStopRecovery, &controller,
            &RecoveryController::stopRecovery);
    const auto status = [&service](const char *task, const char *file) {
        service.broadcast(QStringLiteral("recovery.fileStatus"),
                          {{QStringLiteral("recoveryId"), QLatin1String(task)},
                           {QStringLiteral("fileId"), QLatin1String(file)},
                           {QStringLiteral("status"), QStringLiteral("success")}});
    };
    status("task-2", "a");
    status("task-1", "b");
    QTRY_COMPARE(textOf(&page, "RecoverySucceededCount"), QStringLiteral("已恢复\n1"));
    auto *table = child<QTableView>(&page, "RecoveryFileTable");
    QCOMPARE(cellText(table, 0, 1), QStringLiteral("等待恢复"));
    clickOn(&page, "StopRecoveryButton");
    QVERIFY(service.waitForRequest(QStringLiteral("recovery.stop")));
    service.broadcast(QStringLiteral("recovery.error"),
                      {{QStringLiteral("recoveryId"), QStringLiteral("task-1")},
                       {QStringLiteral("error"), QJsonObject{{QStringLiteral("code"), 1002}}}});
    QTRY_COMPARE(textOf(&page, "RecoveryStateText"), QStringLiteral("恢复已停止"));
    QVERIFY(!QApplication::activeModalWidget());
}

QTEST_MAIN(TestRecoveryProgress)
#include "tst_recoveryprogress.moc"
