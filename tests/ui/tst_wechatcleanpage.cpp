#include "support/interruptedclean.h"
#include "wechatcleanfixture.h"

#include <QCheckBox>

using namespace wechatclean;

class TestWechatCleanPage : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { useLightTheme(); }
    void emptyHome();
    void scanCleanAndUndo();
    void copyOnAnotherPartition();
    void oneGroupAndTheFileChosen();
    void runningClientForbids();
    void warningsAreShownAndNoMeansNo();
    void interruptedCleanIsToldOf();
    void manualDirectory();
    void nothingSelected();
    void nothingFound();
    void stopEndsAScanAtOnce();
    void pageGoesInTheMiddle_data();
    void pageGoesInTheMiddle();
};

void TestWechatCleanPage::emptyHome()
{
    Bench bench;
    bench.show(UiState::NoDirectory);
    auto *card = child<QWidget>(bench.page.get(), "WechatEmptyCard");
    QVERIFY(card->isVisible());
    QCOMPARE(textOf(card, "EmptyStateTitle"), "还没有检测到可用的微信目录"_u);
    QVERIFY(!child<QWidget>(bench.page.get(), "WechatStartScanButton")->isVisible());
    QCOMPARE(textOf(bench.page.get(), "WechatStatus"), "尚未开始扫描"_u);

    // A client that was set up in the meantime is found by looking again.
    bench.fill();
    clickOn(bench.page.get(), "WechatRedetectButton");
    QTRY_COMPARE(bench.page->state(), UiState::Directories);
    QCOMPARE(bench.page->selectedScanDirs(), QStringList{bench.home.path(kFiles)});
}

void TestWechatCleanPage::scanCleanAndUndo()
{
    Bench bench;
    bench.fill();
    bench.show();
    QCOMPARE(textOf(bench.page.get(), "WechatProfileType"), "原生微信"_u);
    bench.scan();
    QCOMPARE(bench.told, QStringList({"扫描完成"_u, "扫描完成，共发现 2 组重复文件"_u}));
    QCOMPARE(textOf(bench.page.get(), "WechatSummaryLine"),
             "共发现 2 组重复文件，预计可释放 3.0 MB"_u);
    QCOMPARE(bench.cards().size(), 2);
    bench.told.clear();

    bench.cleanAll();
    QCOMPARE(bench.told.value(0), "确认清理"_u);
    QVERIFY2(bench.told.value(1).contains("将按当前选择执行文件合并，确定继续吗？"_u) &&
                 bench.told.value(1).contains("3 个副本（4 个路径）"_u),
             qPrintable(bench.told.value(1)));
    QCOMPARE(bench.told.value(2), "清理完成"_u);
    QVERIFY2(bench.told.value(3).startsWith("成功处理 4 个副本，释放 3.0 MB。"_u),
             qPrintable(bench.told.value(3)));
    const QStringList same{"2026-01/a.bin"_u, "2026-02/b.bin"_u, "2026-02/c.bin"_u,
                           "2026-02/c2.bin"_u};
    for (const QString &name : same) {
        QCOMPARE(identityOf(bench.file(name)).links, quint64(4));
        QCOMPARE(contentOf(bench.file(name)), Bench::bytes('a'));
    }
    QCOMPARE(identityOf(bench.file("p.bin"_u)).inode, identityOf(bench.file("q.bin"_u)).inode);
    QCOMPARE(contentOf(bench.file("p.bin"_u)), Bench::bytes('p'));
    QCOMPARE(identityOf(bench.file("small.bin"_u)).links, quint64(1));
    auto *card = child<QWidget>(bench.page.get(), "WechatNoResultCard");
    QVERIFY(card->isVisible());
    QCOMPARE(textOf(card, "EmptyStateTitle"), "清理完成"_u);
    QVERIFY(textOf(card, "EmptyStateHint").startsWith("成功处理 4 个副本，释放 3.0 MB。"_u));
    QCOMPARE(textOf(bench.page.get(), "WechatStatus"), "清理完成"_u);
    QCOMPARE(textOf(bench.page.get(), "WechatSummaryLine"),
             "共发现 0 组重复文件，预计可释放 0 B"_u);
    QVERIFY(!child<QWidget>(bench.page.get(), "WechatCleanAllButton")->isEnabled());
    bench.told.clear();

    QWidget *history = bench.history();
    QTRY_VERIFY(child<QWidget>(history, "WechatRecordUndoButton"));
    QCOMPARE(textOf(history, "WechatRecordOverview"), "处理 2 组，释放 3.0 MB"_u);
    bench.answering(
        "NoticeOkBtn", [history] { clickOn(history, "WechatRecordUndoButton"); }, 2);
    QCOMPARE(bench.told.value(0), "确认撤销"_u);
    QVERIFY(bench.told.value(1).contains("4 个文件"_u));
    QCOMPARE(bench.told.value(2), "撤销完成"_u);
    QCOMPARE(bench.told.value(3), "成功恢复 4 个独立副本。"_u);
    for (const QString &name : same) {
        QCOMPARE(identityOf(bench.file(name)).links, quint64(1));
        QCOMPARE(contentOf(bench.file(name)), Bench::bytes('a'));
    }
    QVERIFY(identityOf(bench.file("p.bin"_u)).inode != identityOf(bench.file("q.bin"_u)).inode);
    QCOMPARE(bench.page->state(), UiState::Results);
    // The record says so, and offers no second undo.
    QTRY_COMPARE(textOf(child<QWidget>(history, "WechatRecordStatus"), "StatusPillText"),
                 "已撤销"_u);
    QTRY_VERIFY(!child<QWidget>(history, "WechatRecordUndoButton"));

    // The page says what was undone, and leads to the duplicates that are there again.
    clickOn(history, "WechatHistoryClose");
    QCOMPARE(textOf(card, "EmptyStateTitle"), "撤销完成"_u);
    QVERIFY(textOf(card, "EmptyStateHint").startsWith("已将 4 个文件恢复为独立副本。"_u));
    QVERIFY(!child<QWidget>(bench.page.get(), "WechatCleanAllButton")->isEnabled());
    QVERIFY(!textOf(bench.page.get(), "WechatSummaryLine").contains("共发现"_u));
    bench.answering("NoticeOkBtn", [card] { clickOn(card, "EmptyStateButton"); });
    // The two names of one file have a file each now.
    QCOMPARE(textOf(bench.page.get(), "WechatSummaryLine"),
             "共发现 2 组重复文件，预计可释放 4.0 MB"_u);
    QVERIFY(!child<QWidget>(bench.page.get(), "WechatOutcome")->isVisible());
}

void TestWechatCleanPage::copyOnAnotherPartition()
{
    struct stat here = {};
    struct stat there = {};
    Bench bench;
    QTemporaryDir other("/dev/shm/wechat-XXXXXX"_u);
    if (!other.isValid() || ::stat(QFile::encodeName(other.path()).constData(), &there) != 0 ||
        ::stat(QFile::encodeName(bench.home.path()).constData(), &here) != 0 ||
        here.st_dev == there.st_dev)
        QSKIP("there is no second file system to write to");
    bench.fill();
    const QString far = other.filePath("far.bin"_u);
    QVERIFY(QFile::copy(bench.file("p.bin"_u), far));
    bench.show();
    bench.page->addDirectory(other.path());
    QTRY_COMPARE(bench.page->selectedScanDirs().size(), 2);
    QTRY_COMPARE(bench.page->state(), UiState::Directories);
    bench.scan();
    bench.told.clear();
    // The order of the directories must not decide which file stays.
    for (QRadioButton *radio : bench.page->findChildren<QRadioButton *>("WechatFileRadio"_u)) {
        if (radio->property("filePath").toString() == bench.file("p.bin"_u))
            radio->click();
    }
    bench.cleanAll();
    QCOMPARE(bench.told.value(0), "确认清理"_u);
    QVERIFY2(bench.told.value(1).contains("1 个副本与保留文件不在同一分区"_u) &&
                 bench.told.value(1).endsWith(far),
             qPrintable(bench.told.value(1)));
    QCOMPARE(bench.told.value(2), "清理完成"_u);
    QCOMPARE(identityOf(bench.file("p.bin"_u)).links, quint64(2));
    QCOMPARE(identityOf(bench.file("2026-01/a.bin"_u)).links, quint64(4));
    QCOMPARE(identityOf(far).links, quint64(1));
    // Its group is left, below what the clean has done.
    QCOMPARE(bench.cards().size(), 1);
    QVERIFY(child<QWidget>(bench.page.get(), "WechatOutcome")->isVisible());
    QVERIFY(textOf(bench.page.get(), "WechatOutcomeText").startsWith("成功处理 4 个副本"_u));
    // Alone there is nothing that could be done.
    bench.told.clear();
    bench.answering("NoticeOkBtn", [&] { clickOn(bench.cards().first(), "WechatGroupClean"); });
    QCOMPARE(bench.told.value(0), "无法执行清理"_u);
    QVERIFY(bench.told.value(1).contains("当前版本不支持跨分区合并："_u + far));
}

void TestWechatCleanPage::oneGroupAndTheFileChosen()
{
    Bench bench;
    bench.fill();
    bench.show();
    bench.scan();
    QWidget *card = nullptr;
    for (QWidget *candidate : bench.cards()) {
        if (candidate->property("groupSize").toLongLong() == Bench::bytes('p').size())
            card = candidate;
    }
    QVERIFY(card);
    const auto radios = card->findChildren<QRadioButton *>("WechatFileRadio"_u);
    const auto roles = card->findChildren<QLabel *>("WechatFileRole"_u);
    QCOMPARE(radios.size(), 2);
    QVERIFY(radios.at(0)->isChecked());
    // A click beside the button, on the row, chooses as well.
    QTest::mouseClick(child<QWidget>(radios.at(1)->parent(), "WechatFileCaption"), Qt::LeftButton);
    QVERIFY(radios.at(1)->isChecked());
    QCOMPARE(roles.at(0)->text() + roles.at(1)->text(), "合并保留"_u);
    const QString kept = radios.at(1)->property("filePath").toString();
    const QVariantMap action = bench.page->buildCleanActionForCard(card);
    QCOMPARE(action.value("keepPath"_u).toString(), kept);
    QCOMPARE(bench.page->buildAllCleanActions().size(), 2);
    const quint64 inode = identityOf(kept).inode;

    bench.answering(
        "NoticeOkBtn", [card] { clickOn(card, "WechatGroupClean"); }, 2);
    QTRY_COMPARE(textOf(bench.page.get(), "WechatSummaryLine"),
                 "共发现 1 组重复文件，预计可释放 2.0 MB"_u);
    QCOMPARE(identityOf(bench.file("p.bin"_u)).inode, inode);
    QCOMPARE(identityOf(bench.file("q.bin"_u)).inode, inode);
    QCOMPARE(identityOf(bench.file("2026-02/b.bin"_u)).links, quint64(1));
    QCOMPARE(bench.cards().size(), 1);
}

void TestWechatCleanPage::runningClientForbids()
{
    Bench bench;
    bench.fill();
    bench.show();
    bench.scan();
    bench.told.clear();
    QString error;
    QVERIFY(bench.tools.add("ps"_u, FakeTools::prints("wechat /opt/wechat/wechat\n"), &error));
    bench.answering("NoticeOkBtn", [&bench] { clickOn(bench.page.get(), "WechatCleanAllButton"); });
    QCOMPARE(bench.told.value(0), "无法执行清理"_u);
    QVERIFY(bench.told.value(1).startsWith("检测到微信仍在运行，请先退出微信后再清理。\n"_u));
    QCOMPARE(bench.page->state(), UiState::Results);
    QCOMPARE(identityOf(bench.file("p.bin"_u)).links, quint64(1));
}

void TestWechatCleanPage::warningsAreShownAndNoMeansNo()
{
    Bench bench;
    bench.fill();
    bench.show();
    bench.scan();
    bench.told.clear();
    for (const char *button : {"NoticeCancelBtn", "Escape"}) {
        ModalDriver driver([&](QWidget *dialog) {
            if (qstrcmp(button, "Escape") != 0)
                return presses(button, &bench.told)(dialog);
            bench.told << textOf(dialog, "NoticeTitle") << textOf(dialog, "NoticeMessage");
            QTest::keyClick(dialog, Qt::Key_Escape);
        });
        bench.page->onPreflightFinished(true, {"已跳过现有软链接：/x"_u}, {});
        QVERIFY(driver.handled());
        QVERIFY(bench.told.value(1).contains("确定继续吗？\n\n注意：\n已跳过现有软链接：/x"_u));
        QCOMPARE(bench.page->state(), UiState::Results);
        bench.told.clear();
    }
}

void TestWechatCleanPage::interruptedCleanIsToldOf()
{
    // As a clean leaves it that was killed between the rename and the link.
    Bench bench;
    bench.fill();
    const QString path = bench.file("q.bin"_u);
    const quint64 inode = identityOf(path).inode;
    const QString backup = interruptClean(bench.home, kFiles + "/p.bin"_u, kFiles + "/q.bin"_u);

    bench.answering("NoticeOkBtn", [&bench] { bench.show(); });
    QCOMPARE(bench.told.value(0), "已检查上次中断的清理"_u);
    QVERIFY2(bench.told.value(1).contains("已恢复 1 个文件到原来的位置：\n"_u + path),
             qPrintable(bench.told.value(1)));
    QCOMPARE(identityOf(path).inode, inode);
    QCOMPARE(contentOf(path), Bench::bytes('p'));
    QVERIFY(!QFile::exists(backup));
    QTRY_COMPARE(bench.page->state(), UiState::Directories);
}

void TestWechatCleanPage::manualDirectory()
{
    Bench bench;
    bench.home.file("photos/a.bin"_u, Bench::bytes('a'));
    bench.home.file("photos/b.bin"_u, Bench::bytes('a'));
    bench.show(UiState::NoDirectory);
    const QString folder = bench.home.path("photos"_u);
    {
        ModalDriver driver(choosesFolder(folder, &bench.told));
        clickOn(child<QWidget>(bench.page.get(), "WechatEmptyCard"), "EmptyStateButton");
        QVERIFY(driver.handled());
    }
    QCOMPARE(bench.told, QStringList{"选择微信目录"_u});
    QTRY_COMPARE(bench.page->state(), UiState::Directories);
    QCOMPARE(textOf(bench.page.get(), "WechatProfileType").size(), 6);
    QCOMPARE(bench.page->selectedScanDirs(), QStringList{folder});

    bench.page->addDirectory(folder + "/"_u);
    QTRY_COMPARE(textOf(bench.page.get(), "WechatStatus"), "所选目录已在列表中。"_u);
    QCOMPARE(bench.page->selectedProfileMaps().size(), 1);
    // Looking again keeps what was added by hand.
    clickOn(bench.page.get(), "WechatRedetectButton");
    QTRY_COMPARE(bench.page->state(), UiState::Directories);
    QCOMPARE(bench.page->selectedProfileMaps().size(), 1);

    bench.scan();
    QCOMPARE(bench.cards().size(), 1);
    QCOMPARE(textOf(bench.page.get(), "WechatFilePath"), "a.bin"_u);
    clickOn(bench.page.get(), "WechatAdjustDirsButton");
    QCOMPARE(bench.page->state(), UiState::Directories);
    clickOn(bench.page.get(), "WechatBackToResultsButton");
    QCOMPARE(bench.page->state(), UiState::Results);
    clickOn(bench.page.get(), "WechatAdjustDirsButton");
    clickOn(bench.page.get(), "WechatProfileRemove");
    QCOMPARE(bench.page->state(), UiState::NoDirectory);
}

void TestWechatCleanPage::nothingSelected()
{
    Bench bench;
    bench.fill();
    bench.show();
    auto *check = child<QCheckBox>(bench.page.get(), "WechatProfileCheck");
    QVERIFY(check->isChecked());
    QTest::keyClick(check, Qt::Key_Space);
    bench.answering("NoticeOkBtn",
                    [&bench] { clickOn(bench.page.get(), "WechatStartScanButton"); });
    QCOMPARE(bench.told, QStringList({"提示"_u, "请先选择至少一个微信目录。"_u}));
    // The choice outlives another look.
    clickOn(bench.page.get(), "WechatRedetectButton");
    QTRY_COMPARE(bench.page->state(), UiState::Directories);
    QVERIFY(bench.page->selectedScanDirs().isEmpty());
}

void TestWechatCleanPage::nothingFound()
{
    Bench bench;
    bench.home.file(kFiles + "/a.bin"_u, "x");
    bench.show();
    bench.scan();
    auto *card = child<QWidget>(bench.page.get(), "WechatNoResultCard");
    QVERIFY(card->isVisible());
    QCOMPARE(textOf(card, "EmptyStateTitle"), "未扫描到可清理的重复文件"_u);
    bench.told.clear();
    auto *clean = child<QPushButton>(bench.page.get(), "WechatCleanAllButton");
    QVERIFY(!clean->isEnabled() && !clean->toolTip().isEmpty());
    bench.answering("NoticeOkBtn", [clean] { emit clean->clicked(); });
    QCOMPARE(bench.told, QStringList({"提示"_u, "当前没有可清理的重复文件组。"_u}));
}

void TestWechatCleanPage::stopEndsAScanAtOnce()
{
    Bench bench;
    for (int i = 0; i < 40; ++i)
        bench.home.file(kFiles + "/%1.bin"_u.arg(i), Bench::bytes('a'));
    bench.show();
    bench.scan();
    bench.told.clear();
    ModalDriver driver(presses("NoticeOkBtn", &bench.told));
    clickOn(bench.page.get(), "WechatRescanButton");
    QCOMPARE(bench.page->state(), UiState::Busy);
    QCOMPARE(textOf(bench.page.get(), "WechatBusyTitle"), "正在扫描微信文件"_u);
    clickOn(bench.page.get(), "WechatStopButton");
    QCOMPARE(textOf(bench.page.get(), "WechatBusyText"), "正在停止..."_u);
    QTRY_VERIFY(driver.handled());
    QCOMPARE(bench.told, QStringList({"扫描已停止"_u, "用户取消"_u}));
    QCOMPARE(bench.page->state(), UiState::Directories);
    // What the scan before found is still there.
    clickOn(bench.page.get(), "WechatBackToResultsButton");
    QCOMPARE(bench.cards().size(), 1);
}

void TestWechatCleanPage::pageGoesInTheMiddle_data()
{
    QTest::addColumn<bool>("cleaning");
    QTest::newRow("scan") << false;
    QTest::newRow("clean") << true;
}

void TestWechatCleanPage::pageGoesInTheMiddle()
{
    QFETCH(bool, cleaning);
    Bench bench;
    for (int i = 0; i < 120; ++i)
        bench.home.file(kFiles + "/%1.bin"_u.arg(i), Bench::bytes('a'));
    bench.show();
    if (cleaning) {
        bench.scan();
        bench.answering("NoticeOkBtn",
                        [&bench] { clickOn(bench.page.get(), "WechatCleanAllButton"); });
        QTRY_VERIFY(textOf(bench.page.get(), "WechatBusyText").startsWith("正在执行清理，"_u));
    } else {
        clickOn(bench.page.get(), "WechatStartScanButton");
    }
    QCOMPARE(bench.page->state(), UiState::Busy);
    bench.page.reset();
    // Every name stands, with its content, and no backup does.
    const QStringList names = QDir(bench.home.path(kFiles)).entryList(QDir::Files | QDir::Hidden);
    QCOMPARE(names.size(), 120);
    for (const QString &name : names)
        QCOMPARE(contentOf(bench.file(name)), Bench::bytes('a'));
}

QTEST_MAIN(TestWechatCleanPage)
#include "tst_wechatcleanpage.moc"
