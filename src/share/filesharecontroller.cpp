#include "share/filesharecontroller.h"

#include "core/shareport.h"
#include "share/accesslogqueue.h"
#include "share/sharedefinition.h"
#include "share/sharefirewall.h"
#include "share/shareserverhost.h"
#include "share/sharestore.h"

#include <QDateTime>
#include <QDebug>
#include <QNetworkInterface>
#include <QPointer>
#include <QTimer>

namespace {

constexpr int kExpiryCheckMs = 30000;
constexpr int kStopAllTimeoutMs = 3000;
// Lines of the access log that come within this time are written, and told of, together.
constexpr int kAccessLogDelayMs = 20;

const char kActive[] = "active";
const char kStopped[] = "stopped";
const char kExpired[] = "expired";

qint64 nowMs()
{
    return QDateTime::currentMSecsSinceEpoch();
}

void warn(const char *message, const QString &text)
{
    qWarning().noquote() << message << text;
}

} // namespace

FileShareController::FileShareController(QObject *parent, const QString &dbPath,
                                         const QString &vaultService)
    : QObject(parent)
    , m_db(dbPath)
    , m_firewall(new ShareFirewall(vaultService, this))
    , m_servers(new ShareServerHost(&m_db, this))
    , m_accessLog(new AccessLogQueue(&m_db))
    , m_expiryTimer(new QTimer(this))
    , m_accessLogTimer(new QTimer(this))
{
    QString error;
    if (!m_db.open(&error))
        warn("[FileShareController] DB open failed:", error);
    m_expiryTimer->setInterval(kExpiryCheckMs);
    connect(m_expiryTimer, &QTimer::timeout, this, &FileShareController::onExpiryCheck);
    m_accessLogTimer->setSingleShot(true);
    m_accessLogTimer->setInterval(kAccessLogDelayMs);
    connect(m_accessLogTimer, &QTimer::timeout, this, &FileShareController::writeAccessLog);

    restorePersistedShares();
    syncFirewallAfterChange("[FileShareController] initial share firewall sync failed:");
}

FileShareController::~FileShareController()
{
    m_isEnding = true;
    stopAllShares(false);
    m_servers->endAll(); // delivers what the workers reported last
    m_accessLog->writeAll();
}

// --- Shares

QString FileShareController::createShare(const QStringList &paths, const QString &password,
                                         int durationMin, int maxClients, const QString &accessMode)
{
    const int port = sharePort();
    if (paths.isEmpty() || !ensureServerForShare(port))
        return QString();
    const ShareDefinition definition{paths, password, durationMin, maxClients, accessMode};
    const ShareSession session = shareSessionFor(newShareId(), definition, port, nowMs());
    if (!store(session, definition, false))
        return QString();

    serve(session.id);
    saveLastUsedDefaults(durationMin, maxClients, accessMode);
    if (syncFirewallAfterChange(
            "[FileShareController] syncShareFirewallState failed after createShare:"))
        announceStart(session.id);
    return session.id;
}

void FileShareController::stopShare(const QString &id)
{
    QString error;
    if (!m_db.updateSessionStatus(id, QLatin1String(kStopped), &error)) {
        warn("[FileShareController] updateSessionStatus failed:", error);
        return;
    }
    stopServing(id);
    stopServerIfNoActiveSessions();
    if (!syncFirewallAfterChange(
            "[FileShareController] syncShareFirewallState failed after stopShare:"))
        return;
    emit shareStopped(id);
    emit sessionListChanged();
}

void FileShareController::removeSession(const QString &id)
{
    if (m_db.session(id).isActive()) {
        const QPointer<FileShareController> self(this);
        stopShare(id);
        if (!self)
            return;
    }
    // Also without a stop: its lines are written while there is a session for them to belong to.
    stopServing(id);
    QString error;
    if (!m_db.removeSession(id, &error))
        warn("[FileShareController] removeSession failed:", error);
    m_db.purgeDeleted();
    m_accessLog->forgetUpdated(id);
    stopServerIfNoActiveSessions();
    emit sessionListChanged();
}

bool FileShareController::restartShare(const QString &id)
{
    const ShareSession session = m_db.session(id);
    const int port = sharePort();
    if (session.id.isEmpty() || session.isActive() || !ensureServerForShare(port))
        return false;

    const qint64 start = nowMs();
    QString error;
    if (!m_db.updateSessionPort(id, port, &error) ||
        !m_db.updateSessionStatus(id, QLatin1String(kActive), &error)) {
        warn("[FileShareController] restart failed:", error);
        stopServerIfNoActiveSessions();
        return false;
    }
    if (!m_db.updateSessionTimes(id, start, shareExpiry(start, session.durationMin), &error))
        warn("[FileShareController] updateSessionTimes failed:", error);
    serve(id);
    if (syncFirewallAfterChange(
            "[FileShareController] syncShareFirewallState failed after restartShare:"))
        announceStart(id);
    return true;
}

bool FileShareController::updateAndRestartShare(const QString &id, const QStringList &paths,
                                                const QString &password, int durationMin,
                                                int maxClients, const QString &accessMode)
{
    ShareSession old = sessionInfo(id);
    if (paths.isEmpty() || old.id.isEmpty())
        return false;
    if (old.isActive()) {
        const QPointer<FileShareController> self(this);
        stopShare(id);
        if (!self)
            return false;
        old = sessionInfo(id);
        if (old.id.isEmpty() || old.isActive()) // also if it was removed during the wait
            return false;
    }
    const int port = sharePort();
    if (!ensureServerForShare(port))
        return false;

    const ShareDefinition definition{paths, password, durationMin, maxClients, accessMode};
    ShareSession session = shareSessionFor(id, definition, port, nowMs());
    session.totalDownloads = old.totalDownloads;
    session.totalUploads = old.totalUploads;
    if (!store(session, definition, true))
        return false;

    serve(id);
    saveLastUsedDefaults(durationMin, maxClients, accessMode);
    if (syncFirewallAfterChange(
            "[FileShareController] syncShareFirewallState failed after updateAndRestartShare:"))
        announceStart(id);
    return true;
}

void FileShareController::stopAllShares(bool notify)
{
    const QList<ShareSession> sessions = activeSessions();
    for (const ShareSession &session : sessions) {
        QString error;
        if (!m_db.updateSessionStatus(session.id, QLatin1String(kStopped), &error))
            warn("[FileShareController] updateSessionStatus failed:", error);
        stopServing(session.id);
    }
    m_servers->shutdownSync(kStopAllTimeoutMs);
    m_expiryTimer->stop();
    if (syncFirewallAfterChange(
            "[FileShareController] syncShareFirewallState failed after stopAllShares:") &&
        notify)
        emit sessionListChanged();
}

bool FileShareController::store(const ShareSession &session, const ShareDefinition &definition,
                                bool replacesOld)
{
    m_accessLog->writeAll(); // in a transaction of its own
    QString error;
    const char *failure = storeShare(&m_db, session, definition, replacesOld, &error);
    if (!failure) {
        if (replacesOld)
            m_db.purgeDeleted();
        return true;
    }
    warn(failure, error);
    stopServerIfNoActiveSessions();
    return false;
}

// --- Reads

QList<ShareSession> FileShareController::allSessions() const
{
    m_accessLog->writeAll();
    return m_db.allSessions();
}

QList<ShareSession> FileShareController::activeSessions() const
{
    m_accessLog->writeAll();
    return m_db.sessionsByStatus(QLatin1String(kActive));
}

ShareSession FileShareController::sessionInfo(const QString &id) const
{
    m_accessLog->writeAll();
    return m_db.session(id);
}

QList<ShareRoot> FileShareController::sessionRoots(const QString &id) const
{
    return m_db.rootsForSession(id);
}

QList<AccessLogEntry> FileShareController::accessLog(const QString &id, const QString &action,
                                                     int page, int pageSize) const
{
    m_accessLog->writeAll();
    return m_db.accessLog(id, action, page, pageSize);
}

int FileShareController::accessLogCount(const QString &id, const QString &action) const
{
    m_accessLog->writeAll();
    return m_db.accessLogCount(id, action);
}

bool FileShareController::hasActiveShares() const
{
    return !m_db.sessionsByStatus(QLatin1String(kActive)).isEmpty();
}

bool FileShareController::canChangeSharePort() const
{
    return !hasActiveShares();
}

// --- Port, defaults, addresses

int FileShareController::sharePort() const
{
    if (const int portInUse = m_servers->port())
        return portInUse;
    const int port = m_db.loadDefaults().value(QStringLiteral("port")).toInt();
    return port < 1 ? core::kDefaultSharePort : port;
}

bool FileShareController::setSharePort(int port, QString *error)
{
    QString unused;
    QString *text = error ? error : &unused;
    if (port < core::kLeastSharePort || port > core::kMostSharePort) {
        *text = QStringLiteral("端口范围必须在 1024 到 65535 之间");
        return false;
    }
    const int oldPort = sharePort();
    if (port != oldPort && hasActiveShares()) {
        *text = QStringLiteral("当前仍有共享正在运行，请先停止所有共享后再修改端口");
        return false;
    }
    if (!m_db.saveDefault(QStringLiteral("port"), QString::number(port), text))
        return false;

    const QPointer<FileShareController> self(this);
    QString failure;
    if (!syncShareFirewallState(&failure) && !failure.isEmpty())
        qWarning().noquote()
            << "[FileShareController] syncShareFirewallState failed after setSharePort:" << oldPort
            << port << failure;
    if (self)
        emit sessionListChanged();
    return true;
}

QVariantMap FileShareController::lastUsedDefaults() const
{
    return m_db.loadDefaults();
}

void FileShareController::saveLastUsedDefaults(int durationMin, int maxClients,
                                               const QString &accessMode)
{
    // Only a convenience for the next share: the result does not matter.
    const QString mode = accessMode.isEmpty() ? QStringLiteral("download") : accessMode;
    (void)m_db.saveDefault(QStringLiteral("duration_min"), QString::number(durationMin));
    (void)m_db.saveDefault(QStringLiteral("max_clients"), QString::number(maxClients));
    (void)m_db.saveDefault(QStringLiteral("access_mode"), mode);
}

QStringList FileShareController::localIpAddresses()
{
    QStringList addresses;
    const QList<QNetworkInterface> interfaces = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface &interface : interfaces) {
        const QNetworkInterface::InterfaceFlags flags = interface.flags();
        if (flags.testFlag(QNetworkInterface::IsLoopBack) ||
            !flags.testFlag(QNetworkInterface::IsUp) ||
            !flags.testFlag(QNetworkInterface::IsRunning))
            continue;
        const QList<QNetworkAddressEntry> entries = interface.addressEntries();
        for (const QNetworkAddressEntry &entry : entries) {
            if (entry.ip().protocol() == QAbstractSocket::IPv4Protocol)
                addresses.append(entry.ip().toString());
        }
    }
    return addresses;
}

QStringList FileShareController::shareUrls(const QString &id) const
{
    QStringList urls;
    if (m_db.session(id).id.isEmpty())
        return urls;
    const QStringList addresses = localIpAddresses();
    for (const QString &address : addresses)
        urls.append(QStringLiteral("http://%1:%2/s/%3/").arg(address).arg(sharePort()).arg(id));
    return urls;
}

// --- What workers report

void FileShareController::onAccessLoggedFromWorker(const QString &sessionId,
                                                   const QString &clientIp, const QString &action,
                                                   const QString &filePath)
{
    AccessLogEntry entry;
    entry.sessionId = sessionId;
    entry.clientIp = clientIp;
    entry.action = action;
    entry.filePath = filePath;
    entry.timestamp = nowMs();
    m_accessLog->append(entry);
    if (!m_accessLogTimer->isActive())
        m_accessLogTimer->start();
}

void FileShareController::writeAccessLog()
{
    m_accessLog->writeBatch();
    if (!m_accessLog->isEmpty())
        m_accessLogTimer->start();
    const QStringList sessions = m_accessLog->takeUpdatedSessions();
    for (const QString &id : sessions)
        emit accessLogUpdated(id);
}

void FileShareController::onSessionExpiredFromWorker(const QString &sessionId)
{
    const ShareSession session = m_db.session(sessionId);
    if (session.isActive())
        expire({session});
}

// --- Expiry

void FileShareController::onExpiryCheck()
{
    QList<ShareSession> due;
    const qint64 now = nowMs();
    const QList<ShareSession> sessions = m_db.sessionsByStatus(QLatin1String(kActive));
    for (const ShareSession &session : sessions) {
        if (session.expiresAt > 0 && session.expiresAt < now)
            due.append(session);
    }
    const QPointer<FileShareController> self(this);
    expire(due);
    if (!self)
        return;
    m_servers->purgeCounters();
    if (!hasActiveShares())
        m_expiryTimer->stop();
}

void FileShareController::expire(const QList<ShareSession> &sessions)
{
    bool hasChanged = false;
    for (const ShareSession &session : sessions) {
        QString error;
        if (!m_db.updateSessionStatus(session.id, QLatin1String(kExpired), &error)) {
            warn("[FileShareController] expire update failed:", error);
            continue;
        }
        stopServing(session.id);
        hasChanged = true;
        emit shareExpired(session.id);
    }
    if (!hasChanged)
        return;
    stopServerIfNoActiveSessions();
    if (syncFirewallAfterChange(
            "[FileShareController] syncShareFirewallState failed after expiry:"))
        emit sessionListChanged();
}

// --- Start-up

void FileShareController::restorePersistedShares()
{
    const ShareRestorePlan plan =
        planShareRestore(m_db.sessionsByStatus(QLatin1String(kActive)), nowMs());
    setPersistedStatus(plan.expired, kExpired,
                       "[FileShareController] failed to mark expired session on startup:");
    if (plan.restorable.isEmpty())
        return;

    QString error;
    if (!m_db.saveDefault(QStringLiteral("port"), QString::number(plan.port), &error))
        warn("[FileShareController] failed to persist restored share port:", error);
    if (!m_servers->ensureRunning(plan.port, &error)) {
        warn("[FileShareController] auto-restore listen failed:", error);
        setPersistedStatus(plan.restorable + plan.conflicting, kStopped,
                           "[FileShareController] failed to stop unrestorable session on startup:");
        return;
    }

    for (const ShareSession &session : plan.conflicting)
        qWarning().noquote()
            << "[FileShareController] skip auto-restore for session with conflicting port:"
            << session.id << session.port;
    setPersistedStatus(plan.conflicting, kStopped,
                       "[FileShareController] failed to stop conflicting-port session on startup:");
    for (const ShareSession &session : plan.restorable)
        serve(session.id);
    qInfo() << "[FileShareController] restored persisted shares:" << plan.restorable.size();
    syncFirewallAfterChange(
        "[FileShareController] syncShareFirewallState failed after restorePersistedShares:");
}

void FileShareController::setPersistedStatus(const QList<ShareSession> &sessions,
                                             const char *status, const char *failure)
{
    for (const ShareSession &session : sessions) {
        QString error;
        if (!m_db.updateSessionStatus(session.id, QLatin1String(status), &error))
            warn(failure, error);
    }
}

// --- The server

bool FileShareController::ensureServerForShare(int port)
{
    QString error = QStringLiteral("ending");
    if (!m_isEnding && m_servers->ensureRunning(port, &error))
        return true;
    warn("[FileShareController] ensureServerRunning failed:", error);
    return false;
}

void FileShareController::stopServerIfNoActiveSessions()
{
    if (hasActiveShares())
        return;
    m_expiryTimer->stop();
    m_servers->shutdownAsync();
}

void FileShareController::serve(const QString &id)
{
    m_servers->serve(id);
    if (!m_expiryTimer->isActive())
        m_expiryTimer->start();
}

void FileShareController::stopServing(const QString &id)
{
    m_accessLog->writeAll();
    m_servers->stopServing(id);
}

// A share may have been stopped or removed during the wait for the firewall.
void FileShareController::announceStart(const QString &id)
{
    if (m_db.session(id).isActive())
        emit shareCreated(id);
    emit sessionListChanged();
}

// --- Firewall

bool FileShareController::syncShareFirewallState(QString *error)
{
    // Nobody should be able to press a button of what is just being taken down.
    return m_firewall->sync(
        [this] {
            return ShareFirewallState{hasActiveShares(), sharePort()};
        },
        m_isEnding ? ShareFirewall::Wait::WithoutUserInput : ShareFirewall::Wait::AllEvents, error);
}

// False if this object has ended meanwhile. A failure changes nothing but the log.
bool FileShareController::syncFirewallAfterChange(const char *failure)
{
    const QPointer<FileShareController> self(this);
    QString error;
    if (!syncShareFirewallState(&error) && !error.isEmpty() && self)
        warn(failure, error);
    return !self.isNull();
}
