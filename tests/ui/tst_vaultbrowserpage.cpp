#include "core/controllers/recoverycontroller.h"
#include "recoverypagesfixture.h"
#include "support/dialogsteps.h"
#include "support/temptree.h"
#include "ui/common/emptystate.h"
#include "ui/common/protectedfiletree.h"
#include "ui/common/wraplabel.h"
#include "ui/pages/vaultbrowserpage.h"

#include <QComboBox>
#include <QLineEdit>
#include <QProgressBar>

using core::AppMode;
using core::controllers::RecoveryController;
using core::ipc::IpcClient;
using support::ModalDriver;
using testsupport::child;
using testsupport::clickOn;
using testsupport::FakeService;
using testsupport::textOf;
using ui::common::EmptyState;
using ui::common::ProtectedFileTree;

namespace {

const QString kList = QStringLiteral("recovery.listVaultLocations");
const QString kRestore = QStringLiteral("recovery.restoreVaultFiles");
const QString kFileRestored = QStringLiteral("recovery.vaultFileRestored");
const QString kCompleted = QStringLiteral("recovery.vaultRestoreCompleted");
const QString kNotMounted =
    QStringLiteral("未检测到目标系统挂载目录 /live_target，请运行Livecd工具挂载目标系统。");

QJsonArray files(int count)
{
    QJsonArray made;
    for (int i = 0; i < count; ++i)
        made.append(QJsonObject{{QStringLiteral("id"), QStringLiteral("id%1").arg(i)},
                                {QStringLiteral("fileName"), QStringLiteral("报告%1.docx").arg(i)},
                                {QStringLiteral("originalPath"),
                                 QStringLiteral("/home/li/目录%1/报告%2.docx").arg(i % 3).arg(i)},
                                {QStringLiteral("fileSize"), 2048},
                                {QStringLiteral("deletedAt"), 1700000000}});
    return made;
}

QJsonObject location(const char *parent, const QJsonArray &records)
{
    return vault::VaultLocation{QString::fromUtf8(parent), QStringLiteral("/dev/image0p2"),
                                QString(), QStringLiteral("li"), records}
        .toJson();
}

QJsonObject answer(const QJsonArray &locations, bool targetMounted = false)
{
    return {{QStringLiteral("locations"), locations},
            {QStringLiteral("targetMounted"), targetMounted}};
}

} // namespace

class TestVaultBrowserPage : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { testsupport::useDarkTheme(); }
    void init();
    void cleanup();
    void rules();
    void nothingFound_data();
    void nothingFound();
    void showsWhatTheServiceTells();
    void restoresAndIgnoresOthers();
    void restoreThatDoesNotStart();
    void serviceGoesMidRestore();
    void noticesWithoutFiles();
    void withoutController();
    void readsMountedPartitions();

private:
    void show(AppMode mode);
    void show(const QJsonArray &locations);
    QComboBox *combo() const { return child<QComboBox>(m_page.get(), "VaultPartitionCombo"); }
    ProtectedFileTree *tree() const
    {
        return child<ProtectedFileTree>(m_page.get(), "VaultFileTree");
    }
    bool isBusy() const
    {
        const bool selected =
            child<QPushButton>(m_page.get(), "VaultRestoreSelectedButton")->isEnabled();
        const bool all = child<QPushButton>(m_page.get(), "VaultRestoreAllButton")->isEnabled();
        return !selected && !all;
    }
    QString status() const { return textOf(m_page.get(), "VaultStatusLabel"); }
    QString restoreText() const { return textOf(m_page.get(), "VaultRestoreLabel"); }
    void broadcast(const QString &event, const char *task, const QJsonObject &data);

    std::unique_ptr<FakeService> m_service;
    std::unique_ptr<IpcClient> m_client;
    std::unique_ptr<RecoveryController> m_controller;
    std::unique_ptr<VaultBrowserPage> m_page;
    QStringList m_titles; ///< Of the directory dialogs.
};

void TestVaultBrowserPage::init()
{
    m_service = std::make_unique<FakeService>();
    QVERIFY(m_service->start());
    m_service->reply(kRestore, {{QStringLiteral("taskId"), QStringLiteral("t1")}});
    m_client = std::make_unique<IpcClient>(m_service->name());
    QVERIFY(m_client->ensureConnected(3000));
    m_controller = std::make_unique<RecoveryController>(m_client.get());
    m_titles.clear();
}

void TestVaultBrowserPage::cleanup()
{
    m_page.reset();
    m_controller.reset();
    m_client.reset();
    m_service.reset();
}

void TestVaultBrowserPage::show(AppMode mode)
{
    m_page = std::make_unique<VaultBrowserPage>(mode, m_controller.get());
    m_page->setDirectoryChooser([this](QWidget *, const QString &title) {
        m_titles.append(title);
        return QStringLiteral("/out");
    });
    m_page->resize(900, 640);
    QCOMPARE(status(), QStringLiteral("正在扫描分区..."));
    m_page->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_page.get()));
}

void TestVaultBrowserPage::show(const QJsonArray &locations)
{
    m_service->reply(kList, answer(locations));
    show(AppMode::livecd);
    QTRY_COMPARE(m_service->count(kList), 1);
    QTRY_VERIFY(combo()->count() > 0);
}

void TestVaultBrowserPage::broadcast(const QString &event, const char *task,
                                     const QJsonObject &data)
{
    QJsonObject all = data;
    all.insert(QStringLiteral("taskId"), QLatin1String(task));
    m_service->broadcast(event, all);
}

void TestVaultBrowserPage::rules()
{
    const auto shown = [](const char *parent, const char *device, const char *user) {
        return vaultbrowser::locationText({QString::fromUtf8(parent),
                                           QString::fromUtf8(device),
                                           QString(),
                                           QString::fromUtf8(user),
                                           {}});
    };
    QCOMPARE(shown("/dev/image0:/home/li", "/dev/image0", "li"),
             QStringLiteral("/dev/image0 -> /home/li -> li"));
    QCOMPARE(shown("/data", "/dev/sda2", ""), QStringLiteral("/dev/sda2 -> /data"));
    QCOMPARE(shown("/data", "", ""), QStringLiteral("/data"));

    const auto all = protectedfiles::fromJson(files(12));
    QCOMPARE(vaultbrowser::matching(all, QString()).size(), 12);
    QCOMPARE(vaultbrowser::matching(all, QStringLiteral("报告1")).size(), 3);
    QCOMPARE(vaultbrowser::matching(all, QStringLiteral("/LI/目录1")).size(), 4);
    QCOMPARE(vaultbrowser::matching(all, QStringLiteral("2048")).size(), 0);
}

void TestVaultBrowserPage::nothingFound_data()
{
    QTest::addColumn<bool>("targetMounted");
    QTest::addColumn<bool>("fails");
    QTest::addColumn<QString>("status");
    QTest::addColumn<QString>("inTheList");
    QTest::newRow("not mounted") << false << false << kNotMounted
                                 << QStringLiteral("未检测到受保护文件");
    QTest::newRow("mounted") << true << false
                             << QStringLiteral("未在目标系统中发现包含 .morvane_vault 的用户目录。")
                             << QStringLiteral("未检测到受保护文件");
    QTest::newRow("failed") << false << true << kNotMounted << QStringLiteral("无法读取受保护文件");
}

void TestVaultBrowserPage::nothingFound()
{
    QFETCH(bool, targetMounted);
    QFETCH(bool, fails);
    if (fails)
        m_service->fail(kList, 1005, QStringLiteral("磁盘读取失败"));
    else
        m_service->reply(kList, answer({}, targetMounted));
    show(AppMode::livecd);
    QTRY_COMPARE(combo()->count(), 1);
    QCOMPARE(combo()->itemText(0), QStringLiteral("未检测到受保护文件"));
    QTEST(status(), "status");
    QTEST(textOf(tree(), "EmptyStateTitle"), "inTheList");
    QCOMPARE(textOf(tree(), "EmptyStateHint").contains(QStringLiteral("磁盘读取失败")), fails);
    // The way on.
    m_service->reply(kList, answer({location("/dev/image0p2:/home/li", files(2))}));
    clickOn(tree(), "EmptyStateButton");
    QTRY_COMPARE(status(), QStringLiteral("发现 1 个受保护文件目录"));
}

void TestVaultBrowserPage::showsWhatTheServiceTells()
{
    m_service->hold(kList);
    show(AppMode::livecd);
    QTRY_COMPARE(m_service->heldCount(kList), 1);
    QCOMPARE(status(), QStringLiteral("正在扫描目标系统中的受保护文件..."));
    QVERIFY(m_service->release(
        kList, services::Reply::ok(answer({location("/dev/image0p2:/home/li", files(7)),
                                           location("/dev/image0p2:/root", files(0)),
                                           location("/live_target/home/li", files(1))}))));
    QTRY_COMPARE(status(), QStringLiteral("发现 3 个受保护文件目录"));
    QCOMPARE(combo()->itemText(0), QStringLiteral("/dev/image0p2 -> /home/li -> li"));
    for (int i = 0; i < combo()->count(); ++i)
        QVERIFY(combo()->itemData(i, Qt::ForegroundRole).value<QColor>().isValid());
    const auto heading = [this] {
        return textOf(m_page.get(), "VaultListHeading");
    };
    QCOMPARE(heading(), QStringLiteral("受保护文件列表（7 个文件）"));
    QCOMPARE(tree()->topLevelItemCount(), 3);
    QCOMPARE(tree()->topLevelItem(0)->text(0), QStringLiteral("/home/li/目录0 - 3 个文件"));
    QCOMPARE(tree()->headerItem()->text(2), QStringLiteral("保护时间"));

    auto *search = child<QLineEdit>(m_page.get(), "VaultSearchEdit");
    QTest::keyClicks(search, QStringLiteral("5.DOCX"));
    QTRY_COMPARE(heading(), QStringLiteral("受保护文件列表（1 个文件）"));
    QTest::keyClicks(search, QStringLiteral("none"));
    QTRY_COMPARE(tree()->topLevelItemCount(), 0);
    QCOMPARE(textOf(tree(), "EmptyStateTitle"), QStringLiteral("没有匹配的文件"));
    clickOn(tree(), "EmptyStateButton");
    QTRY_COMPARE(tree()->topLevelItemCount(), 3);

    combo()->setCurrentIndex(1);
    QCOMPARE(textOf(tree(), "EmptyStateTitle"), QStringLiteral("这个保护区中没有文件"));
    combo()->setCurrentIndex(2);
    QCOMPARE(tree()->topLevelItemCount(), 1);
    // The choice outlives a refresh, wherever it stands then.
    clickOn(m_page.get(), "VaultRefreshButton");
    QTRY_COMPARE(m_service->heldCount(kList), 1);
    QVERIFY(m_service->release(
        kList, services::Reply::ok(answer({location("/live_target/home/li", files(2)),
                                           location("/dev/image0p2:/home/li", files(7))}))));
    QTRY_COMPARE(heading(), QStringLiteral("受保护文件列表（2 个文件）"));
    QCOMPARE(combo()->currentIndex(), 0);
}

void TestVaultBrowserPage::restoresAndIgnoresOthers()
{
    show({location("/dev/image0p2:/home/li", files(4))});
    tree()->topLevelItem(0)->setCheckState(0, Qt::Checked); // files 0 and 3
    QCOMPARE(textOf(m_page.get(), "VaultCheckedLabel"), QStringLiteral("已勾选 2 个"));
    m_service->hold(kRestore);
    clickOn(m_page.get(), "VaultRestoreSelectedButton");
    QCOMPARE(m_titles, QStringList{QStringLiteral("选择恢复目标目录")});
    QCOMPARE(restoreText(), QStringLiteral("正在恢复 2 个文件..."));
    QVERIFY(isBusy());
    QTRY_COMPARE(m_service->heldCount(kRestore), 1);
    const QJsonObject sent = m_service->lastParams(kRestore);
    QCOMPARE(sent.value(QLatin1String("vaultPartition")).toString(),
             QStringLiteral("/dev/image0p2:/home/li"));
    QCOMPARE(sent.value(QLatin1String("fileIds")).toArray(),
             (QJsonArray{QStringLiteral("id0"), QStringLiteral("id3")}));
    QCOMPARE(sent.value(QLatin1String("targetDir")).toString(), QStringLiteral("/out"));
    QCOMPARE(sent.value(QLatin1String("conflictPolicy")).toString(), QStringLiteral("rename"));
    QCOMPARE(sent.size(), 4);
    QVERIFY(m_service->release(
        kRestore, services::Reply::ok({{QStringLiteral("taskId"), QStringLiteral("t1")}})));

    const QJsonObject succeeded{{QStringLiteral("status"), QStringLiteral("succeeded")}};
    const QJsonObject failed{{QStringLiteral("status"), QStringLiteral("failed")},
                             {QStringLiteral("originalPath"), QStringLiteral("/home/li/a")},
                             {QStringLiteral("error"), QStringLiteral("内容损坏")}};
    const QJsonObject summary{{QStringLiteral("total"), 2},
                              {QStringLiteral("succeeded"), 1},
                              {QStringLiteral("failed"), 1},
                              {QStringLiteral("skipped"), 0},
                              {QStringLiteral("totalBytes"), 1536}};
    broadcast(kFileRestored, "other", failed);
    broadcast(kCompleted, "other", summary);
    broadcast(kFileRestored, "t1", succeeded);
    QTRY_COMPARE(restoreText(), QStringLiteral("恢复中... 成功 1 / 失败 0"));
    QVERIFY(isBusy());
    QCOMPARE(child<QProgressBar>(m_page.get(), "VaultRestoreBar")->value(), 1);
    broadcast(kFileRestored, "t1", failed);
    QTRY_COMPARE(restoreText(), QStringLiteral("恢复中... 成功 1 / 失败 1"));
    QString notice;
    ModalDriver driver([&notice](QWidget *dialog) {
        notice = textOf(dialog, "NoticeTitle") + QLatin1Char('|') +
                 textOf(dialog, "NoticeMessage") + QLatin1Char('|') +
                 child<QLineEdit>(dialog, "NoticeDetailEdit")->text();
        clickOn(dialog, "NoticeOkBtn");
    });
    broadcast(kCompleted, "t1", summary);
    QTRY_VERIFY(driver.handled());
    QCOMPARE(notice, QStringLiteral("恢复完成|恢复完成，但有 1 个文件恢复失败。|"
                                    "/home/li/a：内容损坏"));
    QCOMPARE(restoreText(),
             QStringLiteral("恢复完成：共 2 个文件，成功 1，失败 1，跳过 0，数据量 1.5 KB"));
    QVERIFY(!isBusy());
    // What comes late changes nothing.
    QSignalSpy arrived(m_client.get(), &IpcClient::eventReceived);
    broadcast(kFileRestored, "t1", succeeded);
    broadcast(QStringLiteral("recovery.progress"), "t1", {});
    QTRY_COMPARE(arrived.size(), 2);
    QVERIFY(restoreText().startsWith(QStringLiteral("恢复完成")));
}

void TestVaultBrowserPage::restoreThatDoesNotStart()
{
    show({location("/dev/image0p2:/home/li", files(3))});
    m_service->fail(kRestore, 1006, QStringLiteral("目标位置空间不足"));
    QStringList notice;
    ModalDriver driver(support::presses("NoticeOkBtn", &notice));
    clickOn(m_page.get(), "VaultRestoreAllButton");
    QCOMPARE(restoreText(), QStringLiteral("正在恢复全部 3 个文件..."));
    QTRY_VERIFY(driver.handled());
    QCOMPARE(notice, (QStringList{QStringLiteral("恢复失败"), QStringLiteral("目标位置空间不足")}));
    QCOMPARE(restoreText(), QStringLiteral("恢复失败：目标位置空间不足"));
    QVERIFY(!isBusy());
}

void TestVaultBrowserPage::serviceGoesMidRestore()
{
    show({location("/dev/image0p2:/home/li", files(3))});
    clickOn(m_page.get(), "VaultRestoreAllButton");
    QTRY_VERIFY(child<QProgressBar>(m_page.get(), "VaultRestoreBar")->maximum() == 3);
    m_page->onServiceLost();
    QVERIFY(!isBusy());
    QVERIFY(restoreText().contains(QStringLiteral("已断开")));
    // Connected again: listed anew, and another restore runs; the old one's events are not its own.
    m_page->onServiceConnected();
    QTRY_COMPARE(m_service->count(kList), 2);
    m_service->reply(kRestore, {{QStringLiteral("taskId"), QStringLiteral("t2")}});
    clickOn(m_page.get(), "VaultRestoreAllButton");
    QTRY_VERIFY(child<QProgressBar>(m_page.get(), "VaultRestoreBar")->maximum() == 3);
    const QJsonObject succeeded{{QStringLiteral("status"), QStringLiteral("succeeded")}};
    broadcast(kFileRestored, "t1", succeeded);
    broadcast(kFileRestored, "t2", succeeded);
    QTRY_COMPARE(restoreText(), QStringLiteral("恢复中... 成功 1 / 失败 0"));
}

void TestVaultBrowserPage::noticesWithoutFiles()
{
    show({location("/dev/image0p2:/home/li", files(0))});
    QStringList notices;
    for (const char *button : {"VaultRestoreSelectedButton", "VaultRestoreAllButton"}) {
        ModalDriver driver(support::presses("NoticeOkBtn", &notices));
        // The buttons are off and say why; what they start still has its own answer.
        auto *off = child<QPushButton>(m_page.get(), button);
        QVERIFY(!off->isEnabled() && !off->toolTip().isEmpty());
        emit off->clicked();
        QVERIFY(driver.handled());
    }
    QCOMPARE(notices.join(QLatin1Char('|')),
             QStringLiteral("提示|请先勾选需要恢复的文件。|提示|当前分区没有受保护文件。"));
    QVERIFY(m_titles.isEmpty());
    QCOMPARE(m_service->count(kRestore), 0);
}

void TestVaultBrowserPage::withoutController()
{
    m_controller.reset();
    show(AppMode::livecd);
    QTRY_COMPARE(status(), QStringLiteral("恢复服务不可用，无法读取受保护文件。"));
    QCOMPARE(textOf(tree(), "EmptyStateTitle"), QStringLiteral("无法读取受保护文件"));
}

void TestVaultBrowserPage::readsMountedPartitions()
{
    TempTree disk;
    for (const char *user : {"li", "wang"}) {
        const QString dir = QStringLiteral("home/%1/.morvane_vault/").arg(QLatin1String(user));
        disk.file(dir + QStringLiteral("1.dat"));
        disk.file(dir + QStringLiteral(".meta/1.json"),
                  "{\"originalPath\":\"/home/" + QByteArray(user) + "/a.txt\"}");
    }
    const QString mounts =
        disk.file("mounts", "/dev/sdz1 " + disk.path().toUtf8() + " ext4 rw 0 0\n");
    m_controller.reset(); // as in normal mode
    show(AppMode::normal);
    m_page->setMountsFile(mounts);
    clickOn(m_page.get(), "VaultRefreshButton");
    QTRY_COMPARE(status(), QStringLiteral("发现 2 个受保护文件目录"));
    QTRY_COMPARE(tree()->topLevelItemCount(), 1);
    QCOMPARE(tree()->topLevelItem(0)->child(0)->text(3), QStringLiteral("/home/li/a.txt"));
    combo()->setCurrentIndex(1);
    QTRY_VERIFY(tree()->topLevelItemCount() == 1 &&
                tree()->topLevelItem(0)->child(0)->text(3) == QLatin1String("/home/wang/a.txt"));
    // Choosing another while the vaults are looked for anew ends neither.
    clickOn(m_page.get(), "VaultRefreshButton");
    combo()->setCurrentIndex(0);
    QTRY_COMPARE(status(), QStringLiteral("发现 2 个受保护文件目录"));
    QTRY_VERIFY(tree()->topLevelItemCount() == 1 &&
                tree()->topLevelItem(0)->child(0)->text(3) == QLatin1String("/home/li/a.txt"));
    m_page->setMountsFile(disk.path("none"));
    clickOn(m_page.get(), "VaultRefreshButton");
    QTRY_COMPARE(status(), QStringLiteral("未发现包含 .morvane_vault 的已挂载分区"));
    QCOMPARE(tree()->topLevelItemCount(), 0);
}

QTEST_MAIN(TestVaultBrowserPage)
#include "tst_vaultbrowserpage.moc"
