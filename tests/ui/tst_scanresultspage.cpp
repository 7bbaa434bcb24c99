#include "ui/scanresultsfixture.h"

#include <QAbstractAnimation>
#include <QProgressBar>
#include <QTemporaryDir>

namespace {

using Fixture = ScanResultsFixture;
using State = ScanResultsPage::State;

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

bool beats(const Fixture &f)
{
    const auto *animation =
        f.child<QProgressBar>("ScanProgressBar")->findChild<QAbstractAnimation *>();
    return animation->state() == QAbstractAnimation::Running;
}

} // namespace

/// The life of a scan on its page, and what one does with its files.
class TestScanResultsPage : public QObject
{
    Q_OBJECT

private slots:
    void startsAnew();
    void progress();
    void pauseAndResume();
    void pauseNeedsASession();
    void timeStandsStillInAPause();
    void endings_data();
    void endings();
    void refusals();
    void lateEventsChangeNothing();
    void connectionLostWhileIdle();
    void startOfRecovery();
    void outputDirectory();
    void detailPanel();
    void logExport();
    void logThatCannotBeWritten();
    void emptyStates();
    void narrowPage();
};

void TestScanResultsPage::startsAnew()
{
    Fixture f;
    QVERIFY(!f.child<QPushButton>("PauseButton")->isEnabled());
    QVERIFY(!f.child<QPushButton>("StopButton")->isEnabled());
    f.startScan();
    f.page()->addFiles(Fixture::manyFiles(3, 50));
    f.clickCell(0, Fixture::Check);
    f.typeName(QStringLiteral("f1"));
    f.page()->onScanError(text("坏了"));
    f.page()->initForScan(QStringLiteral("/dev/sdb2"), QString(), QString());
    QCOMPARE(f.label("ScanTitle"), text("正在扫描 /dev/sdb2"));
    QVERIFY(!f.child<QLabel>("TagLabel")->isVisible());
    QCOMPARE(f.label("ScanElapsedLabel"), text("耗时 00:00:00"));
    QCOMPARE(f.label("ScanFoundLabel"), text("已发现 0"));
    QCOMPARE(f.label("ScanPhaseLabel"), text("当前: 正在初始化..."));
    QCOMPARE(f.label("ScanPercentLabel"), QStringLiteral("0%"));
    QCOMPARE(f.label("ListCountLabel"), text("列表显示了 0 个文件"));
    QCOMPARE(f.label("CheckedCountLabel"), text("0 项 · 0 B"));
    QVERIFY(f.child<QLineEdit>("ScanSearchEdit")->text().isEmpty());
    QCOMPARE(f.child<QPushButton>("StartRecoveryButton")->text(), text("恢复选中文件"));
    QVERIFY(f.child<QPushButton>("PauseButton")->isEnabled());
    QCOMPARE(f.child<QPushButton>("PauseButton")->text(), text("暂停"));
    QCOMPARE(f.child<QPushButton>("StopButton")->text(), text("停止"));
    QCOMPARE(f.child<QPushButton>("StopButton")->property("role").toString(),
             QStringLiteral("danger"));
    QVERIFY(f.child<QLabel>("ExportHint")->isVisible());
    QVERIFY(beats(f));
    f.page()->hide();
    QVERIFY(!beats(f));
    QVERIFY(!f.page()->wantsFullList());
    f.startScan();
    f.page()->show();
    QCOMPARE(f.label("TagLabel"), QStringLiteral("EXT4"));
    QVERIFY(beats(f));
}

void TestScanResultsPage::progress()
{
    Fixture f;
    f.startScan();
    f.page()->updateProgress(42.9, 7, 1000, text("读取日志"));
    QCOMPARE(f.child<QProgressBar>("ScanProgressBar")->value(), 42);
    QCOMPARE(f.label("ScanPercentLabel"), QStringLiteral("42%"));
    QCOMPARE(f.label("ScanPhaseLabel"), text("当前: 读取日志"));
    f.page()->updateProgress(250.0, 7, 1000, QString());
    QCOMPARE(f.label("ScanPercentLabel"), QStringLiteral("100%"));
    QCOMPARE(f.label("ScanPhaseLabel"), text("当前: 读取日志"));
}

void TestScanResultsPage::pauseAndResume()
{
    Fixture f;
    QSignalSpy paused(f.page(), &ScanResultsPage::requestPauseScan);
    QSignalSpy resumed(f.page(), &ScanResultsPage::requestResumeScan);
    QSignalSpy stopped(f.page(), &ScanResultsPage::requestStopScan);
    f.startScan();
    f.page()->addFiles(Fixture::manyFiles(2, 50));
    f.press("PauseButton");
    QCOMPARE(paused.value(0).value(0).toString(), QStringLiteral("0123456789"));
    QCOMPARE(f.label("ScanTitle"), text("扫描已暂停 /dev/sda1"));
    QCOMPARE(f.child<QPushButton>("PauseButton")->text(), text("继续"));
    QVERIFY(!beats(f));
    f.page()->addFiles(Fixture::manyFiles(2, 10, QStringLiteral("dropped")));
    f.page()->updateProgress(70.0, 4, 0, text("不应显示"));
    QCOMPARE(f.label("ScanFoundLabel"), text("已发现 2"));
    QCOMPARE(f.names().size(), 2);
    QCOMPARE(f.label("ScanPercentLabel"), QStringLiteral("0%"));
    f.press("StopButton");
    QCOMPARE(stopped.value(0).value(0).toString(), QStringLiteral("0123456789"));
    f.press("PauseButton");
    QCOMPARE(resumed.count(), 1);
    QCOMPARE(f.label("ScanTitle"), text("正在扫描 /dev/sda1"));
    QCOMPARE(f.child<QPushButton>("PauseButton")->text(), text("暂停"));
    QVERIFY(beats(f));
    f.page()->addFiles(Fixture::manyFiles(1, 10, QStringLiteral("later")));
    QCOMPARE(f.names().size(), 3);
    QCOMPARE(paused.count(), 1);
}

void TestScanResultsPage::pauseNeedsASession()
{
    Fixture f;
    QSignalSpy paused(f.page(), &ScanResultsPage::requestPauseScan);
    f.page()->initForScan(QStringLiteral("/dev/sda1"), QStringLiteral("ext4"), QString());
    f.press("PauseButton");
    QCOMPARE(f.page()->state(), State::Running);
    f.page()->setSessionId(QStringLiteral("late"));
    f.press("PauseButton");
    QCOMPARE(paused.value(0).value(0).toString(), QStringLiteral("late"));
}

void TestScanResultsPage::timeStandsStillInAPause()
{
    Fixture f;
    f.startScan();
    QTRY_COMPARE_WITH_TIMEOUT(f.label("ScanElapsedLabel"), text("耗时 00:00:01"), 3000);
    f.press("PauseButton");
    const QString shown = f.label("ScanElapsedLabel");
    // Only time can show that it stands still: a clock that went on would show the next second.
    QTest::qWait(1100);
    QCOMPARE(f.label("ScanElapsedLabel"), shown);
    f.press("PauseButton");
    QTRY_VERIFY(f.label("ScanElapsedLabel") != shown);
}

void TestScanResultsPage::endings_data()
{
    QTest::addColumn<int>("state");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("phase");
    QTest::addColumn<QString>("percent");
    QTest::addColumn<bool>("canRescan");
    const auto row = [](const char *name, State state, const char *title, const char *phase,
                        const char *percent, bool canRescan) {
        QTest::newRow(name) << int(state) << text(title) << text(phase) << text(percent)
                            << canRescan;
    };
    row("completed", State::Completed, "扫描完成 /dev/sda1", "扫描已完成", "100%", true);
    row("stopped", State::Stopped, "扫描停止 /dev/sda1", "扫描已停止", "100%", true);
    row("failed", State::Failed, "扫描出错", "错误: 读取失败", "42%", true);
    row("connection lost", State::ConnectionLost, "与恢复服务的连接已断开",
        "扫描可能仍在服务中继续；重新连接后会取回它的状态。", "42%", false);
    row("interrupted", State::Interrupted, "扫描已中断 /dev/sda1", "服务已重启", "42%", true);
}

void TestScanResultsPage::endings()
{
    QFETCH(int, state);
    QFETCH(bool, canRescan);
    for (const bool paused : {false, true}) {
        Fixture f;
        QSignalSpy rescan(f.page(), &ScanResultsPage::requestRescan);
        QSignalSpy stop(f.page(), &ScanResultsPage::requestStopScan);
        f.startScan();
        f.page()->updateProgress(42.0, 0, 0, QString());
        f.page()->addFiles(Fixture::manyFiles(2, 50));
        if (paused)
            f.press("PauseButton");
        switch (static_cast<State>(state)) {
        case State::Completed:
            f.page()->onScanCompleted(QJsonObject());
            break;
        case State::Stopped:
            f.page()->onScanStopped();
            break;
        case State::Failed:
            f.page()->onScanError(text("读取失败"));
            break;
        default:
            f.page()->onConnectionLost();
            if (static_cast<State>(state) == State::Interrupted)
                f.page()->onScanInterrupted(text("服务已重启"));
        }
        QCOMPARE(int(f.page()->state()), state);
        QTEST(f.label("ScanTitle"), "title");
        QTEST(f.label("ScanPhaseLabel"), "phase");
        QTEST(f.label("ScanPercentLabel"), "percent");
        QVERIFY(!f.child<QPushButton>("PauseButton")->isEnabled());
        QVERIFY(!f.child<QLabel>("ExportHint")->isVisible());
        QVERIFY(!beats(f));
        auto *button = f.child<QPushButton>("StopButton");
        QCOMPARE(button->isEnabled(), canRescan);
        f.press("StopButton");
        QCOMPARE(rescan.count(), canRescan ? 1 : 0);
        QCOMPARE(stop.count(), 0);
        // The rows are still there, and the full list comes in even after a pause.
        QCOMPARE(f.names().size(), 2);
        f.page()->replaceFiles(Fixture::manyFiles(5, 50));
        QCOMPARE(f.names().size(), 5);
        if (!canRescan)
            continue;
        QCOMPARE(button->text(), text("重新扫描"));
        QCOMPARE(button->property("role").toString(), QStringLiteral("primary"));
        QCOMPARE(rescan.first(),
                 (QVariantList{QStringLiteral("/dev/sda1"), QStringLiteral("ext4")}));
    }
}

void TestScanResultsPage::refusals()
{
    Fixture f;
    ScanResultsPage *page = f.page();
    f.startScan();
    f.press("PauseButton");
    QCOMPARE(Fixture::noticeOf([page] { page->onPauseRequestFailed(text("忙")); }),
             text("暂停失败|扫描任务未成功暂停，已恢复实时扫描显示。"));
    QCOMPARE(page->state(), State::Running);
    QCOMPARE(f.label("ScanTitle"), text("正在扫描 /dev/sda1"));
    QVERIFY(beats(f));
    f.press("PauseButton");
    f.press("PauseButton");
    QCOMPARE(Fixture::noticeOf([page] { page->onResumeRequestFailed(QString()); }),
             text("恢复失败|扫描任务未成功恢复，界面已回到暂停状态。"));
    QCOMPARE(page->state(), State::Paused);
    QCOMPARE(f.label("ScanTitle"), text("扫描已暂停 /dev/sda1"));
    QCOMPARE(Fixture::noticeOf([page] { page->onStopRequestFailed(QString()); }),
             text("停止失败|扫描任务未成功停止，请稍后重试。"));
    QCOMPARE(page->state(), State::Paused);
}

void TestScanResultsPage::lateEventsChangeNothing()
{
    Fixture f;
    f.startScan();
    f.page()->onScanCompleted(QJsonObject());
    f.page()->updateProgress(98.0, 0, 0, text("迟到"));
    f.page()->onConnectionLost();
    f.page()->onConnectionRestored(false, 0);
    f.page()->onScanInterrupted(text("迟到"));
    f.page()->onPauseRequestFailed(QString());
    QCOMPARE(f.label("ScanPercentLabel"), QStringLiteral("100%"));
    QCOMPARE(f.label("ScanPhaseLabel"), text("扫描已完成"));
    QCOMPARE(f.page()->state(), State::Completed);
}

void TestScanResultsPage::connectionLostWhileIdle()
{
    Fixture f;
    const QString title = f.label("ScanTitle");
    f.page()->onConnectionLost();
    QCOMPARE(f.page()->state(), State::Idle);
    QCOMPARE(f.label("ScanTitle"), title);
}

void TestScanResultsPage::startOfRecovery()
{
    Fixture f;
    QSignalSpy start(f.page(), &ScanResultsPage::requestStartRecovery);
    f.startScan();
    f.page()->addFiles(Fixture::manyFiles(4, 50));
    const auto press = [&f] {
        f.press("StartRecoveryButton");
    };
    QCOMPARE(Fixture::noticeOf(press), text("未设置输出路径|请先选择恢复文件的输出目录。"));
    auto *output = f.child<QLineEdit>("OutputPathEdit");
    QCOMPARE(output->placeholderText(), text("请选择恢复文件的输出目录..."));
    QTest::keyClicks(output, QStringLiteral("  /media/usb "));
    QCOMPARE(Fixture::noticeOf(press), text("无选中文件|请先勾选要恢复的文件。"));
    QCOMPARE(start.count(), 0);
    f.clickCell(2, Fixture::Check);
    f.clickCell(0, Fixture::Check);
    // What a filter hides is still ticked.
    f.typeName(QStringLiteral("f2"));
    press();
    QCOMPARE(start.first(), (QVariantList{QStringLiteral("0123456789"),
                                          QStringList{QStringLiteral("f0"), QStringLiteral("f2")},
                                          QStringLiteral("/media/usb"), QStringLiteral("rename")}));
}

void TestScanResultsPage::outputDirectory()
{
    Fixture f;
    QString title;
    QString answer = QStringLiteral("/media/usb");
    f.page()->setDirectoryChooser([&](QWidget *, const QString &asked, const QString &) {
        title = asked;
        return answer;
    });
    f.press("BrowseButton");
    QCOMPARE(title, text("选择恢复文件输出目录"));
    QCOMPARE(f.page()->outputPath(), answer);
    answer.clear();
    f.press("BrowseButton");
    QCOMPARE(f.page()->outputPath(), QStringLiteral("/media/usb"));
}

void TestScanResultsPage::detailPanel()
{
    Fixture f;
    f.startScan();
    f.page()->addFiles(
        {Fixture::file(QStringLiteral("1"), QStringLiteral("/a/b.pdf"), 90,
                       {{QStringLiteral("blockStart"), 2048}, {QStringLiteral("contiguity"), 0.5}}),
         QJsonObject{{QStringLiteral("fileId"), QStringLiteral("2")},
                     {QStringLiteral("name"), QStringLiteral("bare")}}});
    auto *panel = f.child<QFrame>("FileDetailPanel");
    QVERIFY(!panel->isVisible());
    f.clickCell(0, Fixture::Detail);
    const QPair<const char *, QString> full[] = {
        {"DetailName", QStringLiteral("b.pdf")},
        {"DetailSize", QStringLiteral("1.0 KB")},
        {"DetailType", QStringLiteral("PDF")},
        {"DetailPath", QStringLiteral("/a/b.pdf")},
        {"DetailBlockStart", text("2048 扇区")},
        {"DetailSource", text("元数据")},
        {"DetailIntegrity", text("可能碎片")},
        {"DetailReason", text("来自 EXT4 元数据恢复，但数据块为多段分布，存在碎片风险")},
        {"DetailProbability", text("良好")},
        {"DetailContiguity", text("否（存在碎片）")}};
    for (const auto &row : full)
        QCOMPARE(f.label(row.first), row.second);
    // It slides to the right edge of the table, covers nothing but the table, and stays there when
    // the page grows.
    const auto placeOf = [&](QWidget *widget) {
        return QRect(widget->mapTo(f.page(), QPoint()), widget->size());
    };
    const auto atEdge = [&] {
        return placeOf(f.table()).right() - placeOf(panel).right();
    };
    QTRY_COMPARE(atEdge(), 8);
    f.page()->resize(1500, 800);
    QCOMPARE(atEdge(), 8);
    QVERIFY(placeOf(f.table()).contains(placeOf(panel)));
    QVERIFY(panel->width() < f.table()->width() / 2);
    for (const char *name : {"StartRecoveryButton", "BrowseButton", "StopButton"})
        QVERIFY(!placeOf(f.child<QPushButton>(name)).intersects(placeOf(panel)));
    // A narrow page has room for one of the two.
    f.page()->resize(700, 700);
    QCOMPARE(panel->width(), f.table()->width() - 16);
    // The open panel follows the current row; what is empty shows a dash.
    QTest::keyClick(f.table(), Qt::Key_Down);
    QCOMPARE(f.label("DetailName"), QStringLiteral("bare"));
    for (const char *name : {"DetailType", "DetailPath", "DetailBlockStart", "DetailProbability"})
        QCOMPARE(f.label(name), QStringLiteral("-"));
    f.press("DetailCloseButton");
    QTRY_VERIFY(!panel->isVisible());
    QTest::keyClick(f.table(), Qt::Key_Return);
    QVERIFY(panel->isVisible());
    QTest::keyClick(panel, Qt::Key_Escape);
    QTRY_VERIFY(!panel->isVisible());
}

void TestScanResultsPage::logExport()
{
    const QTemporaryDir target;
    Fixture f;
    f.startScan();
    f.page()->updateProgress(12.0, 0, 0, QString());
    f.page()->addFiles({Fixture::file(QStringLiteral("1"), QStringLiteral("/a/low.txt"), 1),
                        Fixture::file(QStringLiteral("2"), QStringLiteral("/a/top.txt"), 9)});
    f.typeName(QStringLiteral("low"));
    QString title;
    f.page()->setDirectoryChooser([&](QWidget *, const QString &asked, const QString &) {
        title = asked;
        return target.path();
    });
    const QString notice = Fixture::noticeOf([&f] {
        f.press("ExportLogButton");
        QTRY_VERIFY(f.child<QPushButton>("ExportLogButton")->isEnabled());
    });
    QCOMPARE(title, text("选择日志导出目录"));
    QCOMPARE(notice, text("导出完成|日志已成功保存。"));
    const QStringList files = QDir(target.path()).entryList(QDir::Files);
    QCOMPARE(files.size(), 1);
    QVERIFY(QRegularExpression(QStringLiteral("^scan_log_01234567_\\d{8}_\\d{6}\\.txt$"))
                .match(files.first())
                .hasMatch());
    QFile file(target.filePath(files.first()));
    QVERIFY(file.open(QIODevice::ReadOnly));
    // Every file, in the order of the table; a filter leaves none out.
    const QString log = QString::fromUtf8(file.readAll());
    for (const char *part :
         {"会话 ID:     0123456789\n", "设备:       /dev/sda1\n", "文件系统:   ext4\n",
          "已发现文件: 2\n", "当前进度:   12%\n", "已用时间:   00:00:0",
          "[   1] top.txt\n    路径: /a/top.txt\n    大小: 1.0 KB  类型: TXT  删除时间: 未知\n"
          "    来源: 元数据  完整性: 目录完整\n",
          "[   2] low.txt\n"})
        QVERIFY2(log.contains(text(part)), part);
}

void TestScanResultsPage::logThatCannotBeWritten()
{
    const QTemporaryDir target;
    Fixture f;
    f.startScan();
    f.page()->setDirectoryChooser([&](QWidget *, const QString &, const QString &) {
        return target.filePath(QStringLiteral("gone"));
    });
    const QString notice = Fixture::noticeOf([&f] {
        f.press("ExportLogButton");
        QTRY_VERIFY(f.child<QPushButton>("ExportLogButton")->isEnabled());
    });
    QVERIFY2(notice.startsWith(text("导出失败|")), qPrintable(notice));
    // A choice that is called off does nothing.
    f.page()->setDirectoryChooser(
        [](QWidget *, const QString &, const QString &) { return QString(); });
    f.press("ExportLogButton");
    QVERIFY(f.child<QPushButton>("ExportLogButton")->isEnabled());
}

void TestScanResultsPage::emptyStates()
{
    Fixture f;
    const auto title = [&f] {
        return f.label("EmptyStateTitle");
    };
    QCOMPARE(title(), text("尚未开始扫描"));
    f.startScan();
    QCOMPARE(title(), text("正在查找已删除的文件"));
    QVERIFY(f.child<QProgressBar>("EmptyStateBusyBar")->isVisible());
    f.page()->addFiles(Fixture::manyFiles(1, 50));
    QVERIFY(!f.child<QLabel>("EmptyStateTitle")->isVisible());
    f.startScan();
    f.page()->onConnectionLost();
    QCOMPARE(title(), text("与恢复服务的连接已断开"));
    QVERIFY(!f.child<QPushButton>("EmptyStateButton")->isVisible());
    f.page()->onScanInterrupted(text("服务已重启"));
    QCOMPARE(title(), text("扫描已中断"));
    QCOMPARE(f.label("EmptyStateHint"), text("服务已重启"));
    QSignalSpy rescan(f.page(), &ScanResultsPage::requestRescan);
    f.press("EmptyStateButton");
    QCOMPARE(rescan.count(), 1);
    f.startScan();
    f.page()->onScanError(text("读取失败"));
    QCOMPARE(f.label("EmptyStateHint"), text("读取失败"));
    f.press("EmptyStateButton");
    QCOMPARE(rescan.count(), 2);
}

void TestScanResultsPage::narrowPage()
{
    ScanResultsFixture f;
    f.startScan();
    f.page()->addFiles(
        {ScanResultsFixture::file(QStringLiteral("a"), QStringLiteral("/home/a.pdf"))});
    QVERIFY(f.tree()->isVisible());
    f.page()->resize(1022, 640); // Of the smallest window.
    QVERIFY(!f.tree()->isVisible());
    const QHeaderView *header = f.table()->horizontalHeader();
    const auto rightEdge = [header] {
        return header->sectionViewportPosition(ScanResultsFixture::Chance) +
               header->sectionSize(ScanResultsFixture::Chance);
    };
    QTRY_VERIFY2(rightEdge() <= f.table()->viewport()->width(),
                 qPrintable(QString::number(rightEdge())));
    f.press("TreeToggleButton");
    QVERIFY(f.tree()->isVisible());
    QVERIFY(f.tree()->width() > 150);
    // From now on the user decides.
    f.page()->resize(1280, 768);
    f.page()->resize(1022, 640);
    QVERIFY(f.tree()->isVisible());
    f.press("TreeToggleButton");
    QVERIFY(!f.tree()->isVisible());
}

QTEST_MAIN(TestScanResultsPage)
#include "tst_scanresultspage.moc"
