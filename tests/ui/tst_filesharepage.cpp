#include "filesharefixture.h"
#include "ui/common/sharepathlist.h"
#include "ui/pages/filesharedetaildialog.h"
#include "ui/pages/filesharepage.h"
#include "ui/pages/filesharepage/sessiontable.h"

#include <QComboBox>
#include <QMimeData>
#include <QPointer>
#include <QScrollBar>
#include <QSpinBox>

using namespace testsupport;
using fileshare::SessionTable;
using fileshare::SharePathList;
using support::ModalDriver;
using support::presses;

namespace {

constexpr int kActionColumn = 7;
constexpr int kDownloadsColumn = 6;

struct PageBench : ShareBench
{
    std::unique_ptr<FileSharePage> page;

    explicit PageBench(int records = 0)
        : ShareBench(records)
        , page(std::make_unique<FileSharePage>(controller.get()))
    {
        page->resize(1000, 660);
        page->show();
    }

    SharePathList *pending() const { return child<SharePathList>(page.get(), "SharePendingList"); }
    SessionTable *table() const { return child<SessionTable>(page.get(), "ShareSessionTable"); }
    void click(const char *name) const { clickOn(page.get(), name); }
    void act(int row, fileshare::SessionAction action) const
    {
        clickAction(table(), row, kActionColumn, action);
    }
    bool isEnabled(const char *name) const { return child<QWidget>(page.get(), name)->isEnabled(); }
    /// What the file dialogs give.
    void choose(const QStringList &files, const QString &folder, QStringList *titles)
    {
        fileshare::SharePathChooser chooser;
        chooser.files = [files, titles](QWidget *, const QString &title) {
            *titles << title;
            return files;
        };
        chooser.folder = [folder, titles](QWidget *, const QString &title) {
            *titles << title;
            return folder;
        };
        page->setPathChooser(chooser);
    }
    bool dragIn(const QList<QUrl> &urls) const
    {
        QMimeData data;
        data.setUrls(urls);
        QDragEnterEvent event(QPoint(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        event.ignore();
        QCoreApplication::sendEvent(page.get(), &event);
        return event.isAccepted();
    }
    /// Whether it was taken.
    bool drop(const QList<QUrl> &urls) const
    {
        if (!dragIn(urls))
            return false;
        QMimeData data;
        data.setUrls(urls);
        QDropEvent event(QPointF(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        event.ignore();
        QCoreApplication::sendEvent(page.get(), &event);
        return event.isAccepted();
    }
};

} // namespace

class TestFileSharePage : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { useLightTheme(); }
    void pendingList();
    void drops();
    void asksAboutPrivateFolders();
    void startsAShare();
    void startWithoutAPort();
    void rowsShowTheRecords();
    void actionsByMouse();
    void actionsByKeyboard();
    void allAtOnce();
    void startAllWithoutAPort();
    void portDialog();
    void keepsSelectionAndPlace();
    void refreshesWhenShown();
    void countersGrow();
    void oneOperationAtATime();
    void outlivesItsPage();
    void withoutController();
};

void TestFileSharePage::pendingList()
{
    PageBench bench;
    auto *hint = child<QLabel>(bench.page.get(), "ShareDropHint");
    QCOMPARE(hint->text(), QStringLiteral("拖拽文件或文件夹到这里\n或使用上方按钮添加"));
    QVERIFY(hint->isVisible());
    QVERIFY(!bench.isEnabled("ShareStartButton"));
    QVERIFY(!bench.isEnabled("ShareClearButton"));

    QStringList titles;
    bench.choose({QStringLiteral("/x/a.txt"), QStringLiteral("/x/b.txt")}, QStringLiteral("/x/d"),
                 &titles);
    bench.click("ShareAddFilesButton");
    QTRY_COMPARE(bench.pending()->count(), 2);
    bench.click("ShareAddFolderButton");
    QTRY_COMPARE(bench.pending()->count(), 3);
    bench.click("ShareAddFolderButton");
    QCOMPARE(titles, (QStringList{QStringLiteral("选择文件"), QStringLiteral("选择文件夹"),
                                  QStringLiteral("选择文件夹")}));
    QTRY_VERIFY(textOf(bench.page.get(), "SharePendingStatus")
                    .startsWith(QStringLiteral("待共享 3 项 · 1 项已在列表中")));
    QCOMPARE(bench.pending()->item(0)->text(), QStringLiteral("a.txt  —  /x/a.txt"));
    QCOMPARE(bench.pending()->item(0)->toolTip(), QStringLiteral("<qt>/x/a.txt</qt>"));
    QVERIFY(!hint->isVisible());
    QVERIFY(bench.isEnabled("ShareStartButton"));

    QVERIFY(!bench.isEnabled("ShareRemoveSelectedButton"));
    bench.pending()->setCurrentRow(1);
    bench.click("ShareRemoveSelectedButton");
    QCOMPARE(bench.pending()->paths(),
             (QStringList{QStringLiteral("/x/a.txt"), QStringLiteral("/x/d")}));
    bench.pending()->setCurrentRow(0);
    QTest::keyClick(bench.pending(), Qt::Key_Delete);
    QCOMPARE(bench.pending()->paths(), QStringList{QStringLiteral("/x/d")});
    bench.click("ShareClearButton");
    QVERIFY(hint->isVisible());
    QVERIFY(!bench.isEnabled("ShareStartButton"));
}

void TestFileSharePage::drops()
{
    PageBench bench;
    const QUrl file = QUrl::fromLocalFile(QStringLiteral("/x/a b"));
    const QUrl web(QStringLiteral("http://host/x"));
    QVERIFY(!bench.dragIn({web}));
    QVERIFY(!bench.pending()->property("dropping").toBool());
    QVERIFY(bench.dragIn({web, file}));
    QVERIFY(bench.pending()->property("dropping").toBool());
    QVERIFY(bench.drop({file, web, file}));
    QVERIFY(!bench.pending()->property("dropping").toBool());
    QTRY_COMPARE(bench.pending()->paths(), QStringList{QStringLiteral("/x/a b")});
    QVERIFY(bench.drop({file}));
    QVERIFY(!bench.drop({web}));
    QTRY_VERIFY(textOf(bench.page.get(), "SharePendingStatus")
                    .startsWith(QStringLiteral("待共享 1 项 · 1 项已在列表中")));
}

void TestFileSharePage::asksAboutPrivateFolders()
{
    PageBench bench;
    const QString home = bench.tree.dir("home");
    bench.tree.file("home/.ssh/id");
    const QString plain = bench.tree.file("plain.txt");
    const QList<QUrl> both{QUrl::fromLocalFile(home), QUrl::fromLocalFile(plain)};
    QStringList shown;
    {
        ModalDriver refused(presses("NoticeCancelBtn", &shown));
        QVERIFY(bench.drop(both));
        QTRY_COMPARE(bench.pending()->paths(), QStringList(plain));
        QVERIFY(refused.handled());
    }
    QCOMPARE(shown.first(), QStringLiteral("共享私密内容？"));
    QVERIFY2(shown.at(1).contains(home + QStringLiteral("（其中有 .ssh）")),
             qPrintable(shown.at(1)));
    QVERIFY(!shown.at(1).contains(plain));
    ModalDriver wanted(presses("NoticeOkBtn", &shown));
    QVERIFY(bench.drop(both));
    QTRY_COMPARE(bench.pending()->paths(), (QStringList{plain, home}));
    QVERIFY(wanted.handled());
}

void TestFileSharePage::startsAShare()
{
    PageBench bench;
    bench.drop({QUrl::fromLocalFile(bench.tree.file("甲.txt"))});
    QTRY_COMPARE(bench.pending()->count(), 1);
    QStringList shown;
    std::unique_ptr<ModalDriver> notice;
    ModalDriver confirm(thenPresses(
        [&](QWidget *dialog) {
            shown << dialog->windowTitle() << textOf(dialog, "ShareConfirmHeading");
            auto *port = child<QSpinBox>(dialog, "SharePortSpin");
            QVERIFY(port->isReadOnly());
            QCOMPARE(port->value(), bench.controller->sharePort());
            QCOMPARE(child<QSpinBox>(dialog, "ShareMaxClientsSpin")->value(), 10);
            QTest::keyClicks(child<QLineEdit>(dialog, "SharePasswordEdit"),
                             QStringLiteral("secret"));
            auto *mode = child<QComboBox>(dialog, "ShareAccessModeCombo");
            mode->setCurrentIndex(mode->findText(QStringLiteral("允许上传")));
            auto *duration = child<QComboBox>(dialog, "ShareDurationCombo");
            duration->setCurrentIndex(duration->findText(QStringLiteral("2 小时")));
            clickOn(dialog, "ShareConfirmStart");
        },
        &notice, "NoticeOkBtn", &shown));
    bench.click("ShareStartButton");
    QVERIFY(confirm.handled() && notice && notice->handled());

    const QList<ShareSession> sessions = bench.controller->allSessions();
    QCOMPARE(sessions.size(), 1);
    const ShareSession session = sessions.first();
    QVERIFY(session.hasPassword);
    QCOMPARE(session.accessMode, QStringLiteral("upload"));
    QCOMPARE(session.durationMin, 120);
    const QString links = bench.controller->shareUrls(session.id).join(QLatin1Char('\n'));
    QCOMPARE(shown.mid(0, 3),
             (QStringList{QStringLiteral("共享设置"), QStringLiteral("配置共享参数后开始共享"),
                          QStringLiteral("共享已启动")}));
    QVERIFY(shown.at(3).startsWith(
        QStringLiteral("局域网内其他设备可通过以下地址访问共享文件：\n") + links));
    QCOMPARE(bench.pending()->count(), 0);
    QCOMPARE(bench.table()->model()->rowCount(), 1);

    // The next one starts with these, but never with the password.
    bench.drop({QUrl::fromLocalFile(QStringLiteral("/x"))});
    QTRY_COMPARE(bench.pending()->count(), 1);
    ModalDriver again([](QWidget *dialog) {
        QCOMPARE(child<QComboBox>(dialog, "ShareAccessModeCombo")->currentData().toString(),
                 QStringLiteral("upload"));
        QCOMPARE(child<QComboBox>(dialog, "ShareDurationCombo")->currentData().toInt(), 120);
        QVERIFY(child<QLineEdit>(dialog, "SharePasswordEdit")->text().isEmpty());
        clickOn(dialog, "ShareConfirmCancel");
    });
    bench.click("ShareStartButton");
    QVERIFY(again.handled());
    QCOMPARE(bench.controller->allSessions().size(), 1);
    QCOMPARE(bench.pending()->count(), 1);
}

void TestFileSharePage::startWithoutAPort()
{
    PageBench bench;
    QTcpServer other;
    QVERIFY(other.listen(QHostAddress::Any, quint16(bench.controller->sharePort())));
    bench.drop({QUrl::fromLocalFile(QStringLiteral("/x"))});
    QTRY_COMPARE(bench.pending()->count(), 1);
    QStringList shown;
    std::unique_ptr<ModalDriver> notice;
    ModalDriver confirm(thenPresses([](QWidget *dialog) { clickOn(dialog, "ShareConfirmStart"); },
                                    &notice, "NoticeOkBtn", &shown));
    bench.click("ShareStartButton");
    QVERIFY(confirm.handled() && notice && notice->handled());
    QCOMPARE(shown, (QStringList{QStringLiteral("共享失败"),
                                 QStringLiteral("无法启动文件共享，请检查端口是否被占用。")}));
    QCOMPARE(bench.pending()->count(), 1);
    QVERIFY(bench.isEnabled("ShareStartButton"));
}

void TestFileSharePage::rowsShowTheRecords()
{
    PageBench bench;
    const QString id = bench.share("乙.txt", QString(), 0, "upload");
    const QAbstractItemModel *model = bench.table()->model();
    QStringList titles;
    for (int column = 0; column < model->columnCount(); ++column)
        titles << model->headerData(column, Qt::Horizontal).toString();
    QCOMPARE(titles.join(QLatin1Char(' ')),
             QStringLiteral("共享内容 路径 共享端口 共享权限 状态 共享时间 下载次数 操作"));
    const QDateTime created =
        QDateTime::fromMSecsSinceEpoch(bench.controller->sessionInfo(id).createdAt);
    const QStringList expected = {
        QStringLiteral("乙.txt"),
        bench.tree.path("乙.txt"),
        QString::number(bench.controller->sharePort()),
        QStringLiteral("允许上传"),
        QStringLiteral("共享中"),
        created.toString(QStringLiteral("MM-dd HH:mm")),
        QStringLiteral("0"),
    };
    for (int column = 0; column < expected.size(); ++column)
        QCOMPARE(cellText(bench.table(), 0, column), expected.at(column));
    QCOMPARE(model->index(0, 1).data(Qt::ToolTipRole).toString(),
             QStringLiteral("<qt>%1</qt>").arg(bench.tree.path("乙.txt")));
    // All of it fits beside the collapsed side bar of the smallest window.
    QCOMPARE(bench.table()->horizontalScrollBar()->maximum(), 0);
}

void TestFileSharePage::actionsByMouse()
{
    PageBench bench;
    const QString id = bench.share();
    bench.act(0, fileshare::ToggleAction);
    QTRY_COMPARE(bench.status(id), QStringLiteral("stopped"));
    QTRY_COMPARE(cellText(bench.table(), 0, 4), QStringLiteral("已停止"));

    QStringList shown;
    {
        ModalDriver started(presses("NoticeOkBtn", &shown));
        bench.act(0, fileshare::ToggleAction);
        QTRY_VERIFY(started.handled());
    }
    QCOMPARE(shown.first(), QStringLiteral("共享已启动"));
    QCOMPARE(bench.status(id), QStringLiteral("active"));

    bench.act(0, fileshare::DetailAction);
    QTRY_VERIFY(bench.page->findChild<FileShareDetailDialog *>());
    const QPointer<FileShareDetailDialog> detail = bench.page->findChild<FileShareDetailDialog *>();
    QCOMPARE(detail->sessionId(), id);
    detail->close();
    QTRY_VERIFY(!detail);

    shown.clear();
    {
        ModalDriver kept(presses("NoticeCancelBtn", &shown));
        bench.act(0, fileshare::DeleteAction);
        QTRY_VERIFY(kept.handled());
    }
    QCOMPARE(shown, (QStringList{QStringLiteral("确认删除"),
                                 QStringLiteral("确定要删除这条共享记录吗？")}));
    QCOMPARE(bench.controller->allSessions().size(), 1);
    ModalDriver removed(presses("NoticeOkBtn", &shown));
    bench.act(0, fileshare::DeleteAction);
    QTRY_VERIFY(removed.handled());
    QTRY_VERIFY(bench.controller->allSessions().isEmpty());
    QTRY_VERIFY(child<QWidget>(bench.page.get(), "ShareRecordsEmpty")->isVisible());
}

void TestFileSharePage::actionsByKeyboard()
{
    PageBench bench;
    const QString id = bench.share();
    QVERIFY(QTest::qWaitForWindowActive(bench.page.get()));
    bench.table()->setFocus();
    bench.table()->selectRow(0);
    QTest::keyClick(bench.table(), Qt::Key_Left);
    QCOMPARE(bench.table()->focusedAction(), int(fileshare::DetailAction));
    QTest::keyClick(bench.table(), Qt::Key_Right);
    QTest::keyClick(bench.table(), Qt::Key_Space);
    QCOMPARE(bench.status(id), QStringLiteral("stopped"));
    QVERIFY(bench.table()->hasFocus()); // The wait in between has taken it.

    QStringList shown;
    {
        ModalDriver started(presses("NoticeOkBtn", &shown));
        QTest::keyClick(bench.table(), Qt::Key_Return);
        QVERIFY(started.handled());
    }
    QCOMPARE(bench.status(id), QStringLiteral("active"));
    {
        ModalDriver kept(presses("NoticeCancelBtn", &shown));
        QTest::keyClick(bench.table(), Qt::Key_Delete);
        QVERIFY(kept.handled());
    }
    QCOMPARE(shown.at(2), QStringLiteral("确认删除"));

    // A double click anywhere but on a button opens the details.
    const QPoint place = bench.table()->visualRect(bench.table()->model()->index(0, 1)).center();
    QTest::mouseClick(bench.table()->viewport(), Qt::LeftButton, Qt::NoModifier, place);
    QTest::mouseDClick(bench.table()->viewport(), Qt::LeftButton, Qt::NoModifier, place);
    QVERIFY(bench.page->findChild<FileShareDetailDialog *>());
}

void TestFileSharePage::allAtOnce()
{
    PageBench bench;
    QVERIFY(!bench.isEnabled("ShareStopAllButton"));
    QVERIFY(!bench.isEnabled("ShareStartAllButton"));
    QVERIFY(!bench.isEnabled("ShareRemoveAllButton"));
    bench.share("一");
    bench.share("二");
    bench.share("三");
    QVERIFY(!bench.isEnabled("ShareStartAllButton"));
    bench.click("ShareStopAllButton");
    QCOMPARE(bench.controller->activeSessions().size(), 0);
    QCOMPARE(textOf(bench.page.get(), "ShareRecordsStatus"),
             QStringLiteral("3 条记录，0 个共享中"));

    QStringList shown;
    {
        ModalDriver done(presses("NoticeOkBtn", &shown));
        bench.click("ShareStartAllButton");
        QVERIFY(done.handled());
    }
    QCOMPARE(shown,
             (QStringList{QStringLiteral("全部启动完成"), QStringLiteral("已启动 3 项共享。")}));
    QCOMPARE(bench.controller->activeSessions().size(), 3);
    shown.clear();
    ModalDriver removed(presses("NoticeOkBtn", &shown));
    bench.click("ShareRemoveAllButton");
    QVERIFY(removed.handled());
    QCOMPARE(shown.at(1), QStringLiteral("确定要删除所有共享记录吗？"));
    QVERIFY(bench.controller->allSessions().isEmpty());
}

void TestFileSharePage::startAllWithoutAPort()
{
    PageBench bench(2);
    QTcpServer other;
    QVERIFY(other.listen(QHostAddress::Any, quint16(bench.controller->sharePort())));
    QStringList shown;
    ModalDriver done(presses("NoticeOkBtn", &shown));
    bench.click("ShareStartAllButton");
    QVERIFY(done.handled());
    QCOMPARE(shown, (QStringList{QStringLiteral("部分启动失败"),
                                 QStringLiteral("已启动 0 项共享，2 项启动失败。\n"
                                                "请检查共享端口是否被其他程序占用。")}));
}

void TestFileSharePage::portDialog()
{
    PageBench bench;
    const int wanted = freePort();
    QStringList shown;
    std::unique_ptr<ModalDriver> notice;
    {
        ModalDriver changes(thenPresses(
            [&](QWidget *dialog) {
                shown << dialog->windowTitle() << textOf(dialog, "SharePortDialogHint");
                child<QSpinBox>(dialog, "SharePortSpin")->setValue(wanted);
                clickOn(dialog, "SharePortSave");
            },
            &notice, "NoticeOkBtn", &shown));
        bench.click("SharePortSettingsButton");
        QVERIFY(changes.handled() && notice && notice->handled());
    }
    QCOMPARE(bench.controller->sharePort(), wanted);
    QCOMPARE(shown,
             (QStringList{
                 QStringLiteral("共享端口设置"),
                 QStringLiteral("修改后，后续新建或重新启动的共享都会使用新端口。"),
                 QStringLiteral("端口已更新"),
                 QStringLiteral("新的共享端口已生效，后续新建或重新启动的共享都会使用该端口。")}));
    QCOMPARE(textOf(bench.page.get(), "SharePendingStatus"), QStringLiteral("端口 %1").arg(wanted));

    bench.share();
    ModalDriver locked([&](QWidget *dialog) {
        QVERIFY(!child<QSpinBox>(dialog, "SharePortSpin")->isEnabled());
        QVERIFY(!child<QWidget>(dialog, "SharePortSave")->isEnabled());
        QCOMPARE(textOf(dialog, "SharePortDialogHint"),
                 QStringLiteral("当前有共享正在运行，统一使用端口 %1。如需修改，"
                                "请先停止所有共享。")
                     .arg(wanted));
        clickOn(dialog, "SharePortCancel");
    });
    bench.click("SharePortSettingsButton");
    QVERIFY(locked.handled());
}

void TestFileSharePage::keepsSelectionAndPlace()
{
    PageBench bench(500);
    QCOMPARE(bench.table()->model()->rowCount(), 500);
    bench.table()->selectRow(300);
    const int place = bench.table()->verticalScrollBar()->value();
    QVERIFY(place > 0);
    const QString id = bench.table()->idAt(300);

    bench.share(); // Becomes the first row.
    QCOMPARE(bench.table()->model()->rowCount(), 501);
    const QModelIndexList chosen = bench.table()->selectionModel()->selectedRows();
    QCOMPARE(chosen.size(), 1);
    QCOMPARE(bench.table()->idAt(chosen.first().row()), id);
    QCOMPARE(bench.table()->idAt(bench.table()->currentIndex().row()), id);
    QCOMPARE(bench.table()->verticalScrollBar()->value(), place);

    bench.controller->removeSession(id);
    QVERIFY(!bench.table()->selectionModel()->hasSelection());
    QCOMPARE(bench.table()->verticalScrollBar()->value(), place);
}

void TestFileSharePage::refreshesWhenShown()
{
    PageBench bench;
    bench.page->hide();
    bench.share();
    QCOMPARE(bench.table()->model()->rowCount(), 0);
    bench.page->show();
    QCOMPARE(bench.table()->model()->rowCount(), 1);
}

void TestFileSharePage::countersGrow()
{
    PageBench bench;
    const QString first = bench.share("一");
    bench.share("二");
    bench.visit(first, "download");
    bench.visit(first, "browse");
    QTRY_COMPARE(cellText(bench.table(), 1, kDownloadsColumn), QStringLiteral("1"));
    QCOMPARE(cellText(bench.table(), 0, kDownloadsColumn), QStringLiteral("0"));
}

void TestFileSharePage::oneOperationAtATime()
{
    PageBench bench;
    const QString id = bench.share("一");
    bench.share("二");
    bench.drop({QUrl::fromLocalFile(QStringLiteral("/x"))});
    QTRY_COMPARE(bench.pending()->count(), 1);
    QVERIFY(bench.service.start());
    bench.service.hold(kFirewallMethod);
    bool looked = false;
    WhenHeld wait(&bench.service, [&] {
        QVERIFY(!bench.isEnabled("ShareStartButton"));
        QVERIFY(!bench.isEnabled("ShareStopAllButton"));
        QVERIFY(!bench.table()->isEnabled());
        QCOMPARE(textOf(bench.page.get(), "ShareBusyText"), QStringLiteral("正在停止共享..."));
        QVERIFY(child<QWidget>(bench.page.get(), "ShareBusyNote")->isVisible());
        QTest::mouseClick(child<QWidget>(bench.page.get(), "ShareStopAllButton"), Qt::LeftButton);
        bench.page->onStopAllSessions();
        bench.page->onStartShare();
        bench.page->onRemoveAllSessions();
        bench.page->onRestartSession(id);
        bench.page->onShowDetail(id);
        QVERIFY(!bench.drop({QUrl::fromLocalFile(QStringLiteral("/y"))}));
        QVERIFY(!bench.page->findChild<FileShareDetailDialog *>());
        looked = true;
        QVERIFY(bench.service.release(kFirewallMethod, services::Reply::ok()));
    });
    bench.page->onStopSession(id);
    QVERIFY(looked);
    QCOMPARE(bench.service.count(kFirewallMethod), 1);
    QCOMPARE(bench.controller->activeSessions().size(), 1);
    QVERIFY(bench.isEnabled("ShareStartButton"));
    QVERIFY(!child<QWidget>(bench.page.get(), "ShareBusyNote")->isVisible());
    QCOMPARE(cellText(bench.table(), 1, 4), QStringLiteral("已停止"));
    bench.service.stop();
}

void TestFileSharePage::outlivesItsPage()
{
    PageBench bench(3);
    QVERIFY(bench.service.start());
    bench.service.hold(kFirewallMethod);
    WhenHeld wait(&bench.service, [&] {
        bench.page.reset();
        QVERIFY(bench.service.release(kFirewallMethod, services::Reply::ok()));
    });
    FileSharePage *page = bench.page.get();
    page->onStartAllSessions();
    QVERIFY(!bench.page);
    // What was under way has ended; the rest was not begun.
    QCOMPARE(bench.controller->activeSessions().size(), 1);
    bench.service.stop();
}

void TestFileSharePage::withoutController()
{
    FileSharePage page(nullptr);
    page.show();
    QVERIFY(!child<QWidget>(&page, "SharePendingCard")->isEnabled());
    auto *state = child<QWidget>(&page, "ShareRecordsEmpty");
    QVERIFY(state->isVisible());
    QCOMPARE(textOf(state, "EmptyStateTitle"), QStringLiteral("文件分享不可用"));
    page.onStopAllSessions();
    page.onStartShare();
    page.refreshSessionList();
}

QTEST_MAIN(TestFileSharePage)
#include "tst_filesharepage.moc"
