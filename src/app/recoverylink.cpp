#include "app/recoverylink.h"

#include "core/controllers/diskinfoprovider.h"
#include "core/ipc/ipcclient.h"
#include "ui/pages/partitionselectpage.h"

#include <QDebug>
#include <QTimer>

using core::controllers::DiskInfoProvider;
using core::ipc::IpcClient;
using ui::common::models::DiskGroup;

namespace {
constexpr int kReconnectMs = 3000;
} // namespace

RecoveryLink::RecoveryLink(IpcClient *client, DiskInfoProvider *disks, PartitionSelectPage *page,
                           QObject *parent)
    : QObject(parent)
    , m_client(client)
    , m_disks(disks)
    , m_page(page)
    , m_timer(new QTimer(this))
{
    m_timer->setObjectName(QStringLiteral("RecoveryReconnectTimer"));
    m_timer->setInterval(kReconnectMs);
    connect(m_timer, &QTimer::timeout, this, &RecoveryLink::onTimeout);
    connect(m_client, &IpcClient::connected, this, &RecoveryLink::onConnected);
    connect(m_client, &IpcClient::connectionError, this, [this](const QString &reason) {
        qWarning() << "[MainWindow] morvane-recoveryd connection error:" << reason;
        startRetrying();
        showSamples(m_client->refusal());
    });
    connect(m_client, &IpcClient::disconnected, this, [this] {
        qWarning("[MainWindow] morvane-recoveryd disconnected");
        startRetrying();
    });
    connect(m_disks, &DiskInfoProvider::diskGroupsReady, this, &RecoveryLink::onDisksReady);
    connect(m_disks, &DiskInfoProvider::loadFailed, this, [this](const QString &reason) {
        qWarning() << "[MainWindow] disk groups failed:" << reason;
        // The link's own end is told already, in words for the user.
        showSamples(m_client->isConnected() ? reason : m_client->refusal());
        startRetrying();
    });
    connect(m_page, &PartitionSelectPage::requestRefresh, this, &RecoveryLink::refresh);
}

void RecoveryLink::onConnected()
{
    qInfo("[MainWindow] morvane-recoveryd connected");
    m_timer->stop();
    m_disks->refresh();
    emit serviceConnected();
}

void RecoveryLink::onDisksReady(const QVector<DiskGroup> &groups)
{
    qInfo() << "[MainWindow] disk groups received:" << groups.size();
    if (m_client->isConnected())
        m_timer->stop();
    m_hasRealDisks = true;
    m_page->setDiskGroups(groups);
}

void RecoveryLink::refresh()
{
    if (m_client->isConnected() && !m_hasRealDisks) {
        // The service asks for an administrator once a connection: who was refused may try again.
        m_client->disconnectFromService();
        m_client->connectToService();
        return;
    }
    m_disks->refresh();
}

void RecoveryLink::onTimeout()
{
    if (m_client->isConnected()) {
        // The service is there, but could not name the disks the last time.
        m_disks->refresh();
        return;
    }
    qInfo("[MainWindow] retry connecting morvane-recoveryd...");
    m_client->connectToService();
}

void RecoveryLink::startRetrying()
{
    if (!m_timer->isActive())
        m_timer->start();
}

void RecoveryLink::showSamples(const QString &reason)
{
    m_hasRealDisks = false;
    m_page->showSampleGroups(reason);
}
