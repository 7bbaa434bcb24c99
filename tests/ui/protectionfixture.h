#pragma once

#include "recoverypagesfixture.h"
#include "support/dialogsteps.h"
#include "ui/common/appnoticedialog.h"
#include "ui/common/protectedfiletree.h"
#include "ui/pages/realtimeprotectionpage.h"
#include "ui/pages/shieldsettingsdialog.h"
#include "vault/vaultcontroller.h"

#include <QJsonArray>
#include <QLineEdit>

using namespace testsupport;
using core::AppMode;
using core::ipc::IpcClient;
using services::Reply;
using support::ModalDriver;
using support::presses;
using ui::common::AppNoticeDialog;
using ui::common::ProtectedFileTree;

/// What the tests of the protection page share.
namespace protectiontest {

inline QString operator""_u(const char *utf8, size_t length)
{
    return QString::fromUtf8(utf8, static_cast<int>(length));
}

const QString kStatus = QStringLiteral("vault.getStatus");
const QString kConfig = QStringLiteral("vault.getConfig");
const QString kList = QStringLiteral("vault.listFiles");
const QString kAuthenticate = QStringLiteral("vault.authenticate");

inline QJsonObject listOf(int files, int total,
                          const QString &directory = QStringLiteral("/home/a"))
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

inline QJsonObject statusOf(bool enabled, bool hook = true)
{
    return {{"running"_u, true},
            {"enabled"_u, enabled},
            {"preloadActive"_u, hook},
            {"soFileExists"_u, true},
            {"protectedFileCount"_u, 3}};
}

/// The service of a test is of the test's own user, which need not be root.
inline core::ipc::ServicePolicy testPolicy()
{
    core::ipc::ServicePolicy policy;
    policy.mayHearSecrets = policy.isTrusted;
    return policy;
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
        : client(service.name(), nullptr, testPolicy())
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

} // namespace protectiontest
