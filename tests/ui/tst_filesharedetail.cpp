#include "filesharefixture.h"
#include "ui/common/sharepathlist.h"
#include "ui/pages/filesharedetaildialog.h"
#include "ui/pages/filesharedetaildialog/viewcard.h"

#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QListWidget>
#include <QSpinBox>

using namespace testsupport;
using fileshare::SharePathList;
using support::ModalDriver;
using support::presses;

namespace {

struct DialogBench : ShareBench
{
    std::unique_ptr<FileShareDetailDialog> dialog;

    void open(const QString &id)
    {
        dialog = std::make_unique<FileShareDetailDialog>(controller.get(), id);
        dialog->setModal(false); // Or the modal driver would take it for the notice.
        dialog->show();
    }
    QString text(const char *name) const { return textOf(dialog.get(), name); }
    void click(const char *name) const { clickOn(dialog.get(), name); }
    bool isVisible(const char *name) const
    {
        return child<QWidget>(dialog.get(), name)->isVisible();
    }
    QTableView *log() const { return child<QTableView>(dialog.get(), "ShareLogTable"); }
    int logRows() const { return log()->model()->rowCount(); }
    QString page() const { return text("ShareLogPageText"); }
    SharePathList *files() const { return child<SharePathList>(dialog.get(), "ShareEditList"); }
    void filter(const QString &text) const
    {
        auto *combo = child<QComboBox>(dialog.get(), "ShareLogFilter");
        combo->setCurrentIndex(combo->findText(text));
    }
};

} // namespace

class TestFileShareDetail : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { useLightTheme(); }
    void facts();
    void unknownShare();
    void linksAreCopied();
    void logFilters_data();
    void logFilters();
    void logPages();
    void logGrows();
    void editAsksFirst();
    void editShowsTheRecord();
    void savesAndRestarts();
    void saveRefused();
    void staysWhileBusy();
};

void TestFileShareDetail::facts()
{
    DialogBench bench;
    const QString id = bench.share("甲.txt", QString(), 60, "upload");
    bench.open(id);
    const ShareSession session = bench.controller->sessionInfo(id);
    const auto time = [](qint64 ms) {
        return QDateTime::fromMSecsSinceEpoch(ms).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    };
    QCOMPARE(bench.dialog->windowTitle(), QStringLiteral("共享详情"));
    QCOMPARE(bench.text("ShareDetailContent"), QStringLiteral("甲.txt"));
    QCOMPARE(bench.text("ShareDetailPort"), QString::number(bench.controller->sharePort()));
    QCOMPARE(bench.text("ShareDetailCreated"), time(session.createdAt));
    QCOMPARE(bench.text("ShareDetailDuration"), QStringLiteral("60 分钟"));
    QCOMPARE(bench.text("ShareDetailExpires"), time(session.expiresAt));
    QCOMPARE(bench.text("ShareDetailPermission"), QStringLiteral("允许上传"));
    QVERIFY(bench.isVisible("ShareDetailStopButton"));

    bench.click("ShareDetailStopButton");
    QCOMPARE(bench.status(id), QStringLiteral("stopped"));
    QVERIFY(!bench.isVisible("ShareDetailStopButton"));

    bench.open(bench.share());
    QCOMPARE(bench.text("ShareDetailDuration"), QStringLiteral("不限时"));
    QCOMPARE(bench.text("ShareDetailExpires"), QStringLiteral("无"));
}

void TestFileShareDetail::unknownShare()
{
    DialogBench bench;
    const QString id = bench.share();
    bench.open(id);
    QVERIFY(!bench.isVisible("ShareMissing"));
    bench.controller->removeSession(id);
    QVERIFY(bench.isVisible("ShareMissing"));
    QCOMPARE(bench.text("EmptyStateTitle"), QStringLiteral("还没有访问记录")); // The log's own.
    QCOMPARE(textOf(child<QWidget>(bench.dialog.get(), "ShareMissing"), "EmptyStateTitle"),
             QStringLiteral("未找到"));
    QVERIFY(!bench.isVisible("ShareDetailStopButton"));
    QVERIFY(!bench.isVisible("ShareDetailEditButton"));
    bench.click("ShareDetailCloseButton");
    QVERIFY(!bench.dialog->isVisible());
}

void TestFileShareDetail::linksAreCopied()
{
    fileshare::ViewCard card;
    ShareSession session;
    session.status = QStringLiteral("active");
    const QStringList urls = {QStringLiteral("http://10.0.0.1:9800/s/a/"),
                              QStringLiteral("http://10.0.0.2:9800/s/a/")};
    card.showSession(session, urls);
    card.show();
    auto *list = child<QListWidget>(&card, "ShareUrlList");
    clickOn(&card, "ShareCopyUrlButton");
    QCOMPARE(QApplication::clipboard()->text(), urls.at(0));
    QCOMPARE(textOf(&card, "ShareUrlHint"), QStringLiteral("已复制到剪贴板"));

    list->setCurrentRow(1);
    session.totalDownloads = 1; // A visitor's coming leaves the choice alone.
    card.showSession(session, urls);
    QCOMPARE(textOf(&card, "ShareUrlHint"), QStringLiteral("已复制到剪贴板"));
    clickOn(&card, "ShareCopyUrlButton");
    QCOMPARE(QApplication::clipboard()->text(), urls.at(1));
    QTRY_COMPARE(textOf(&card, "ShareUrlHint"), QString());

    session.status = QStringLiteral("stopped");
    card.showSession(session, urls);
    QVERIFY(textOf(&card, "ShareUrlHint").contains(QStringLiteral("共享未运行")));
    card.showSession(session, {});
    QVERIFY(!child<QWidget>(&card, "ShareCopyUrlButton")->isEnabled());
    QVERIFY(textOf(&card, "ShareUrlHint").contains(QStringLiteral("未检测到可用的局域网地址")));
}

void TestFileShareDetail::logFilters_data()
{
    QTest::addColumn<QString>("filter");
    QTest::addColumn<QStringList>("actions");
    QTest::newRow("all") << QStringLiteral("全部")
                         << (QStringList{QStringLiteral("上传冲突"), QStringLiteral("上传失败"),
                                         QStringLiteral("上传成功"), QStringLiteral("下载"),
                                         QStringLiteral("浏览"), QStringLiteral("认证失败"),
                                         QStringLiteral("认证成功")});
    QTest::newRow("browse") << QStringLiteral("浏览") << QStringList{QStringLiteral("浏览")};
    QTest::newRow("download") << QStringLiteral("下载") << QStringList{QStringLiteral("下载")};
    QTest::newRow("logins") << QStringLiteral("认证") << QStringList{QStringLiteral("认证成功")};
    QTest::newRow("uploads") << QStringLiteral("上传")
                             << (QStringList{QStringLiteral("上传冲突"), QStringLiteral("上传失败"),
                                             QStringLiteral("上传成功")});
}

void TestFileShareDetail::logFilters()
{
    QFETCH(QString, filter);
    DialogBench bench;
    const QString id = bench.share();
    for (const char *action : {"browse", "download", "auth_ok", "auth_fail", "upload_ok",
                               "upload_conflict", "upload_fail"})
        bench.visit(id, action, QStringLiteral("/文件"));
    QTRY_COMPARE(bench.controller->accessLogCount(id, QString()), 7);
    bench.open(id);
    bench.filter(filter);
    QStringList actions;
    for (int row = 0; row < bench.logRows(); ++row)
        actions << cellText(bench.log(), row, 2);
    std::sort(actions.begin(), actions.end());
    QStringList expected =
        *static_cast<const QStringList *>(QTest::qData("actions", QMetaType::QStringList));
    std::sort(expected.begin(), expected.end());
    QCOMPARE(actions, expected);
    QCOMPARE(cellText(bench.log(), 0, 1), QStringLiteral("10.0.0.9"));
    QCOMPARE(cellText(bench.log(), 0, 3), QStringLiteral("/文件"));
}

void TestFileShareDetail::logPages()
{
    DialogBench bench;
    const QString id = bench.share();
    for (int i = 0; i < 31; ++i)
        bench.visit(id, i < 5 ? "download" : "browse");
    QTRY_COMPARE(bench.controller->accessLogCount(id, QString()), 31);
    bench.open(id);
    QCOMPARE(bench.logRows(), 15);
    bench.dialog->onPrevPage();
    QCOMPARE(bench.page(), QStringLiteral("第 1 / 3 页，共 31 条"));
    bench.click("ShareLogNextButton");
    bench.click("ShareLogNextButton");
    QCOMPARE(bench.page(), QStringLiteral("第 3 / 3 页，共 31 条"));
    QCOMPARE(bench.logRows(), 1);
    QVERIFY(!child<QWidget>(bench.dialog.get(), "ShareLogNextButton")->isEnabled());
    bench.dialog->onNextPage();
    QCOMPARE(bench.page(), QStringLiteral("第 3 / 3 页，共 31 条"));
    bench.click("ShareLogPrevButton");
    QCOMPARE(bench.page(), QStringLiteral("第 2 / 3 页，共 31 条"));
    bench.filter(QStringLiteral("下载"));
    QCOMPARE(bench.page(), QStringLiteral("第 1 / 1 页，共 5 条"));
}

void TestFileShareDetail::logGrows()
{
    DialogBench bench;
    const QString id = bench.share();
    bench.open(id);
    QVERIFY(bench.isVisible("ShareLogEmpty"));
    bench.visit(id, "download", QStringLiteral("/x"));
    QTRY_COMPARE(bench.logRows(), 1);
    QTRY_COMPARE(bench.text("ShareDetailDownloads"), QStringLiteral("1"));
    QVERIFY(!bench.isVisible("ShareLogEmpty"));

    for (int i = 0; i < 16; ++i)
        bench.visit(id, "browse");
    QTRY_COMPARE(bench.page(), QStringLiteral("第 1 / 2 页，共 17 条"));
    bench.click("ShareLogNextButton");
    bench.visit(id, "browse");
    QTRY_COMPARE(bench.page(), QStringLiteral("第 2 / 2 页，共 18 条"));
}

void TestFileShareDetail::editAsksFirst()
{
    DialogBench bench;
    const QString id = bench.share();
    bench.open(id);
    QStringList shown;
    {
        ModalDriver no(presses("NoticeCancelBtn", &shown));
        bench.click("ShareDetailEditButton");
        QVERIFY(no.handled());
    }
    QCOMPARE(shown, (QStringList{QStringLiteral("停止共享"),
                                 QStringLiteral("编辑前需要先停止当前共享，是否继续？")}));
    QVERIFY(!bench.dialog->isEditing());
    QCOMPARE(bench.status(id), QStringLiteral("active"));
    {
        ModalDriver yes(presses("NoticeOkBtn", &shown));
        bench.click("ShareDetailEditButton");
        QVERIFY(yes.handled());
    }
    QVERIFY(bench.dialog->isEditing());
    QCOMPARE(bench.status(id), QStringLiteral("stopped"));
    // Esc gives up the editing, then closes.
    QTest::keyClick(bench.dialog.get(), Qt::Key_Escape);
    QVERIFY(!bench.dialog->isEditing() && bench.dialog->isVisible());
    bench.click("ShareDetailEditButton"); // It is stopped, so nothing is asked.
    QVERIFY(bench.dialog->isEditing());
    bench.click("ShareEditCancelButton");
    QTest::keyClick(bench.dialog.get(), Qt::Key_Escape);
    QVERIFY(!bench.dialog->isVisible());
}

void TestFileShareDetail::editShowsTheRecord()
{
    DialogBench bench;
    const QString id = bench.share("甲.txt", QStringLiteral("secret"), 45, "upload");
    bench.controller->stopShare(id);
    bench.open(id);
    bench.click("ShareDetailEditButton");
    QCOMPARE(bench.text("ShareEditHeading"), QStringLiteral("编辑共享"));
    QCOMPARE(bench.files()->paths(), QStringList{bench.tree.path("甲.txt")});
    QVERIFY(child<QSpinBox>(bench.dialog.get(), "SharePortSpin")->isReadOnly());
    QVERIFY(child<QLineEdit>(bench.dialog.get(), "SharePasswordEdit")->text().isEmpty());
    QCOMPARE(child<QComboBox>(bench.dialog.get(), "ShareAccessModeCombo")->currentText(),
             QStringLiteral("允许上传"));
    QStringList captions;
    for (const QLabel *label : bench.dialog->findChildren<QLabel *>()) {
        if (label->buddy())
            captions.append(label->text());
    }
    QCOMPARE(captions, (QStringList{QStringLiteral("端口:"), QStringLiteral("密码:"),
                                    QStringLiteral("共享权限:"), QStringLiteral("时长:"),
                                    QStringLiteral("最大连接数:")}));
    // A duration that is not on offer stays what it is.
    QCOMPARE(child<QComboBox>(bench.dialog.get(), "ShareDurationCombo")->currentText(),
             QStringLiteral("45 分钟"));
    QCOMPARE(child<QSpinBox>(bench.dialog.get(), "ShareMaxClientsSpin")->value(), 5);
    QCOMPARE(bench.text("SharePortHint"), QStringLiteral("共享端口请在文件分享页顶部统一修改"));
    bench.share("乙.txt");
    QCOMPARE(
        bench.text("SharePortHint"),
        QStringLiteral("其他共享正在使用端口 %1，无法更改").arg(bench.controller->sharePort()));
    QVERIFY(bench.dialog->isEditing());
}

void TestFileShareDetail::savesAndRestarts()
{
    DialogBench bench;
    const QString id = bench.share("甲.txt", QStringLiteral("secret"));
    bench.visit(id, "download");
    QTRY_COMPARE(bench.controller->accessLogCount(id, QString()), 1);
    bench.controller->stopShare(id);
    bench.open(id);
    fileshare::SharePathChooser chooser;
    chooser.files = [](QWidget *, const QString &) {
        return QStringList{QStringLiteral("/x/b"), QStringLiteral("/x/b")};
    };
    chooser.folder = [](QWidget *, const QString &) {
        return QStringLiteral("/x/d");
    };
    bench.dialog->setPathChooser(chooser);
    bench.click("ShareDetailEditButton");
    bench.files()->setCurrentRow(0);
    bench.click("ShareEditRemoveButton");
    QStringList shown;
    {
        ModalDriver empty(presses("NoticeOkBtn", &shown));
        bench.click("ShareEditSaveButton");
        QVERIFY(empty.handled());
    }
    QCOMPARE(shown,
             (QStringList{QStringLiteral("提示"), QStringLiteral("请至少添加一个文件或文件夹。")}));
    shown.clear();
    bench.click("ShareEditAddFilesButton");
    QTRY_COMPARE(bench.files()->count(), 1);
    bench.click("ShareEditAddFolderButton");
    QTRY_COMPARE(bench.files()->count(), 2);
    child<QSpinBox>(bench.dialog.get(), "ShareMaxClientsSpin")->setValue(7);
    ModalDriver saved(presses("NoticeOkBtn", &shown));
    bench.click("ShareEditSaveButton");
    QVERIFY(saved.handled());
    QCOMPARE(shown.first(), QStringLiteral("共享已更新"));
    const ShareSession session = bench.controller->sessionInfo(id);
    QCOMPARE(session.status, QStringLiteral("active"));
    QCOMPARE(session.rootNames, (QStringList{QStringLiteral("b"), QStringLiteral("d")}));
    QCOMPARE(session.maxClients, 7);
    QVERIFY(!session.hasPassword);
    QVERIFY(!bench.dialog->isEditing());
    QCOMPARE(bench.logRows(), 0);
    QVERIFY(bench.isVisible("ShareDetailStopButton"));
}

void TestFileShareDetail::saveRefused()
{
    DialogBench bench;
    const QString id = bench.share();
    bench.controller->stopAllShares(true);
    QTcpServer other;
    QVERIFY(other.listen(QHostAddress::Any, quint16(bench.controller->sharePort())));
    bench.open(id);
    bench.click("ShareDetailEditButton");
    QStringList shown;
    ModalDriver failed(presses("NoticeOkBtn", &shown));
    bench.click("ShareEditSaveButton");
    QVERIFY(failed.handled());
    QCOMPARE(shown, (QStringList{QStringLiteral("失败"),
                                 QStringLiteral("重新共享失败，请检查端口是否被占用。")}));
    QVERIFY(bench.dialog->isEditing());
    QCOMPARE(bench.files()->count(), 1);
}

void TestFileShareDetail::staysWhileBusy()
{
    DialogBench bench;
    const QString id = bench.share();
    bench.open(id);
    QVERIFY(bench.service.start());
    bench.service.hold(kFirewallMethod);
    bool looked = false;
    WhenHeld wait(&bench.service, [&] {
        QVERIFY(!child<QWidget>(bench.dialog.get(), "ShareDetailEditButton")->isEnabled());
        QTest::keyClick(bench.dialog.get(), Qt::Key_Escape);
        QVERIFY(!bench.dialog->close());
        bench.dialog->onStopAndEdit();
        QVERIFY(bench.dialog->isVisible() && !bench.dialog->isEditing());
        looked = true;
        QVERIFY(bench.service.release(kFirewallMethod, services::Reply::ok()));
    });
    bench.click("ShareDetailStopButton");
    QVERIFY(looked);
    QCOMPARE(bench.service.count(kFirewallMethod), 1);
    QCOMPARE(bench.status(id), QStringLiteral("stopped"));
    QVERIFY(bench.dialog->close());
    bench.service.stop();
}

QTEST_MAIN(TestFileShareDetail)
#include "tst_filesharedetail.moc"
