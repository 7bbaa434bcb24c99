#include "share/shareserverhost.h"

#include "core/shareport.h"
#include "share/filesharecontroller.h"
#include "share/filesharedb.h"
#include "share/fileshareserver.h"

#include <QCoreApplication>

namespace {

constexpr int kLastTransfersMs = 5000;
constexpr int kEndTimeoutMs = 3000;
constexpr int kReplaceTimeoutMs = 2000;

} // namespace

ShareServerHost::ShareServerHost(FileShareDb *db, FileShareController *controller)
    : m_db(db)
    , m_controller(controller)
{}

int ShareServerHost::port() const
{
    return m_server && m_server->isListening() ? m_server->serverPort() : 0;
}

bool ShareServerHost::ensureRunning(int port, QString *error)
{
    const int portInUse = this->port();
    if (portInUse > 0 && portInUse == port)
        return true;
    if (portInUse > 0 && !m_db->sessionsByStatus(QStringLiteral("active")).isEmpty()) {
        *error = QStringLiteral("端口 %1 上仍有活跃共享，请先停止后再更换端口").arg(portInUse);
        return false;
    }
    shutdownSync(kReplaceTimeoutMs);

    m_server = new FileShareServer(m_db, m_controller, m_controller);
    if (port <= core::kMostSharePort && m_server->startListening(port))
        return true;
    *error = QStringLiteral("端口 %1 监听失败: %2").arg(port).arg(m_server->errorString());
    shutdownSync(kReplaceTimeoutMs);
    return false;
}

void ShareServerHost::serve(const QString &sessionId)
{
    if (m_server)
        m_server->addActiveSession(sessionId);
}

void ShareServerHost::stopServing(const QString &sessionId)
{
    if (!m_server)
        return;
    m_server->removeActiveSession(sessionId);
    m_server->invalidateSessionAuth(sessionId);
}

void ShareServerHost::purgeCounters()
{
    if (m_server)
        m_server->purgeInactiveSessionCounters();
}

void ShareServerHost::shutdownAsync()
{
    if (!m_server || m_server->isShuttingDown())
        return;
    FileShareServer *server = m_server;
    m_server = nullptr;
    QObject::connect(server, &FileShareServer::shutdownComplete, server, &QObject::deleteLater);
    server->shutdownAsync(kLastTransfersMs);
}

void ShareServerHost::shutdownSync(int timeoutMs)
{
    if (m_server)
        end(m_server, timeoutMs);
}

void ShareServerHost::endAll()
{
    const QList<FileShareServer *> servers =
        m_controller->findChildren<FileShareServer *>(QString(), Qt::FindDirectChildrenOnly);
    for (FileShareServer *server : servers)
        end(server, kEndTimeoutMs);
}

void ShareServerHost::end(FileShareServer *server, int timeoutMs)
{
    if (server == m_server)
        m_server = nullptr;
    server->shutdownSync(timeoutMs);
    delete server; // nothing is reported from here on
    QCoreApplication::sendPostedEvents(m_controller, QEvent::MetaCall);
}
