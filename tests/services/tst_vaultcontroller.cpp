#include "core/ipc/ipcclient.h"
#include "support/fakeservice.h"
#include "vault/vaultcontroller.h"

#include <QSignalSpy>
#include <QTest>

using core::ipc::IpcClient;
using testsupport::FakeService;

class TestVaultController : public QObject
{
    Q_OBJECT

private slots:
    void tellsConnectionAndStatus();
    void tellsFailures();
    void livesWithoutAClient();
};

void TestVaultController::tellsConnectionAndStatus()
{
    FakeService service;
    service.reply(QStringLiteral("vault.getStatus"), {{QStringLiteral("running"), true}});
    IpcClient client(service.name());
    VaultController controller(&client);
    QSignalSpy connection(&controller, &VaultController::connectionChanged);
    QSignalSpy status(&controller, &VaultController::statusUpdated);
    QVERIFY(!controller.isConnected());
    QVERIFY(service.start());
    controller.connectToVaultDaemon();
    QTRY_VERIFY(controller.isConnected());
    QCOMPARE(connection, (QList<QVariantList>{{true}}));

    controller.refreshStatus();
    QTRY_COMPARE(status.size(), 1);
    QCOMPARE(status.at(0).at(0).toJsonObject(), (QJsonObject{{QStringLiteral("running"), true}}));
    QCOMPARE(service.methods(), QStringList{QStringLiteral("vault.getStatus")});
    QCOMPARE(service.lastParams(QStringLiteral("vault.getStatus")), QJsonObject());

    service.stop();
    QTRY_COMPARE(connection, (QList<QVariantList>{{true}, {false}}));
    QVERIFY(!controller.isConnected());
}

void TestVaultController::tellsFailures()
{
    FakeService service;
    service.fail(QStringLiteral("vault.getStatus"), 5, QStringLiteral("服务繁忙"));
    IpcClient client(service.name());
    auto *controller = new VaultController(&client);
    QSignalSpy errors(controller, &VaultController::operationError);
    controller->refreshStatus();
    QCOMPARE(errors.size(), 1);
    QVERIFY(errors.at(0).at(1).toString().contains(service.name()));

    QVERIFY(service.start());
    QVERIFY(client.ensureConnected(1000));
    controller->refreshStatus();
    QTRY_COMPARE(errors.size(), 2);
    QCOMPARE(errors.at(1), (QVariantList{QStringLiteral("getStatus"), QStringLiteral("服务繁忙")}));

    // The answer may find that the controller has gone before its client.
    service.hold(QStringLiteral("vault.getStatus"));
    controller->refreshStatus();
    QVERIFY(service.waitForRequest(QStringLiteral("vault.getStatus"), 2));
    delete controller;
    service.stop();
    QTRY_VERIFY(!client.isConnected());
}

void TestVaultController::livesWithoutAClient()
{
    auto *client = new IpcClient(QStringLiteral("gone"));
    VaultController orphan(client);
    delete client;
    VaultController bare(nullptr);
    for (VaultController *controller : {&orphan, &bare}) {
        QSignalSpy errors(controller, &VaultController::operationError);
        controller->connectToVaultDaemon();
        QVERIFY(!controller->isConnected());
        controller->refreshStatus();
        QCOMPARE(errors, (QList<QVariantList>{
                             {QStringLiteral("getStatus"), QStringLiteral("IPC 客户端不可用")}}));
    }
}

QTEST_GUILESS_MAIN(TestVaultController)
#include "tst_vaultcontroller.moc"
