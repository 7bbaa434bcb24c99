#include "app/forcedupdateflow.h"
#include "app/mainwindow.h"
#include "core/controllers/upgrade/upgradecontroller.h"
#include "support/fakeservice.h"
#include "support/updateserver.h"
#include "ui/pages/forcedupdatedialog.h"

#include <QLabel>
#include <QPushButton>
#include <QtTest>

#include <memory>

using core::AppMode;
using core::controllers::upgrade::UpgradeController;
using core::controllers::upgrade::UpgradeEnvironment;
using testsupport::FakeService;
using testsupport::UpdateServer;

namespace {

const QString kInstall = QStringLiteral("vault.installPackage");
const QString kPackage = QStringLiteral("/p.deb");

// True if the program ends within the time.
bool ends()
{
    QTimer::singleShot(10000, qApp, [] { QCoreApplication::exit(1); });
    return QCoreApplication::exec() == 0;
}

} // namespace

class TestForcedUpdateFlow : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void retriesFromTheWindow();
    void letsTheUserLeave();
    void forcesOnlyWhatItMust_data();
    void forcesOnlyWhatItMust();
    void followsAnUpdateUnderWay();

private:
    void offer(bool mandatory, const QByteArray &served);
    UpgradeEnvironment environment() const;
    ForcedUpdateDialog *dialog(const QWidget &window) const
    {
        return window.findChild<ForcedUpdateDialog *>();
    }
    static bool canRetry(const ForcedUpdateDialog *dialog)
    {
        return dialog->findChild<QPushButton *>(QStringLiteral("ForcedUpdateRetry"))->isVisible();
    }
    static QString stage(const ForcedUpdateDialog *dialog)
    {
        return dialog->findChild<QLabel *>(QStringLiteral("ForcedUpdateStage"))->text();
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<UpdateServer> m_server;
    std::unique_ptr<FakeService> m_vault;
};

void TestForcedUpdateFlow::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_server = std::make_unique<UpdateServer>();
    QVERIFY(m_server->start());
    m_vault = std::make_unique<FakeService>();
    QVERIFY(m_vault->start());
    m_vault->reply(kInstall, {});
}

void TestForcedUpdateFlow::offer(bool mandatory, const QByteArray &served)
{
    m_server->offerUpdate(kPackage, "package", {{QStringLiteral("forceUpdate"), mandatory}});
    UpdateServer::Answer package;
    package.body = served;
    m_server->answer(kPackage, package);
}

UpgradeEnvironment TestForcedUpdateFlow::environment() const
{
    UpgradeEnvironment environment;
    environment.statePath = m_dir->filePath(QStringLiteral("state.json"));
    environment.cacheDir = m_dir->filePath(QStringLiteral("cache"));
    environment.updateServer = m_server->url();
    environment.vaultService = m_vault->name();
    environment.agentCandidates = QStringList{QStringLiteral("/nonexistent")};
    return environment;
}

void TestForcedUpdateFlow::retriesFromTheWindow()
{
    offer(true, "damaged");
    MainWindowOptions options;
    options.trayProbe = [] {
        return false;
    };
    options.updateServer = m_server->url();
    options.vaultService = m_vault->name();
    MainWindow window(AppMode::normal, nullptr, options);
    window.show();
    QTRY_VERIFY(dialog(window) && canRetry(dialog(window)));
    ForcedUpdateDialog *shown = dialog(window);
    QCOMPARE(stage(shown), QStringLiteral("更新包校验失败，请稍后重试。"));
    QCOMPARE(shown->windowModality(), Qt::ApplicationModal);
    QCOMPARE(m_vault->count(kInstall), 0);

    offer(true, "package");
    QTest::mouseClick(shown->findChild<QPushButton *>(QStringLiteral("ForcedUpdateRetry")),
                      Qt::LeftButton);
    QVERIFY(ends());
    QCOMPARE(m_vault->count(kInstall), 1);
    QCOMPARE(stage(shown), QStringLiteral("更新程序已启动，应用即将退出。"));
}

void TestForcedUpdateFlow::letsTheUserLeave()
{
    offer(true, "damaged");
    UpgradeController controller(AppMode::normal, nullptr, environment());
    QWidget window;
    const ForcedUpdateFlow flow(&controller, &window);
    controller.runCheck(false);
    QTRY_VERIFY(dialog(window) && canRetry(dialog(window)));
    QTimer::singleShot(0,
                       dialog(window)->findChild<QPushButton *>(QStringLiteral("ForcedUpdateExit")),
                       &QPushButton::click);
    QVERIFY(ends());
    QCOMPARE(m_vault->count(kInstall), 0);
}

void TestForcedUpdateFlow::forcesOnlyWhatItMust_data()
{
    QTest::addColumn<bool>("livecd");
    QTest::addColumn<bool>("mandatory");
    QTest::addColumn<bool>("answers");
    QTest::newRow("optional") << false << false << true;
    QTest::newRow("recovery environment") << true << true << true;
    QTest::newRow("remembered, but no server") << false << true << false;
}

void TestForcedUpdateFlow::forcesOnlyWhatItMust()
{
    QFETCH(bool, livecd);
    QFETCH(bool, mandatory);
    QFETCH(bool, answers);
    offer(mandatory, "package");
    UpgradeController controller(livecd ? AppMode::livecd : AppMode::normal, nullptr,
                                 environment());
    QSignalSpy checked(&controller, &UpgradeController::checkFinished);
    if (!answers) {
        controller.runCheck(false);
        QVERIFY(checked.wait());
        QVERIFY(controller.isForceUpdateRequired());
        m_server->close();
    }
    QWidget window;
    const ForcedUpdateFlow flow(&controller, &window);
    controller.runCheck(false);
    QVERIFY(checked.wait());
    QVERIFY(!dialog(window));
}

void TestForcedUpdateFlow::followsAnUpdateUnderWay()
{
    offer(false, "damaged");
    UpgradeController controller(AppMode::normal, nullptr, environment());
    QSignalSpy checked(&controller, &UpgradeController::checkFinished);
    controller.runCheck(true);
    QVERIFY(checked.wait());
    UpdateServer::Answer late;
    late.body = "damaged";
    late.holdAfter = 0;
    m_server->answer(kPackage, late);
    controller.startImmediateUpdate();
    offer(true, "damaged");
    QWidget window;
    const ForcedUpdateFlow flow(&controller, &window);
    controller.runCheck(true);
    QVERIFY(checked.wait());
    QVERIFY(dialog(window));
    m_server->release(kPackage);
    QTRY_COMPARE(stage(dialog(window)), QStringLiteral("更新包校验失败，请稍后重试。"));
    QVERIFY(canRetry(dialog(window)));
}

QTEST_MAIN(TestForcedUpdateFlow)
#include "tst_forcedupdateflow.moc"
