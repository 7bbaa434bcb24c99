#pragma once

#include "share/filesharedb.h"
#include "share/sharerecords.h"

#include <QList>
#include <QObject>
#include <QScopedPointer>
#include <QString>
#include <QStringList>
#include <QVariantMap>

class AccessLogQueue;
class QTimer;
class ShareFirewall;
class ShareServerHost;
struct ShareDefinition;

/// Owns the share database and the one server: makes, stops, restarts and edits shares, ends those
/// that expire, keeps the defaults, and tells the vault service to open or close the port in the
/// system's firewall. GUI thread only. All shares listen on one port.
///
/// Each change of the shares may wait for the vault service in a nested event loop, for at most a
/// few seconds; it never fails for its sake. Causes of failures go to the log.
class FileShareController : public QObject
{
    Q_OBJECT

public:
    /// Opens the database (an empty path means the user's own) and takes up the shares that were
    /// active when the program last ended.
    explicit FileShareController(QObject *parent = nullptr, const QString &dbPath = QString(),
                                 const QString &vaultService = QStringLiteral("morvane-vault-v1"));
    /// Stops all shares without notification.
    ~FileShareController() override;

    /// Id of the new share; empty on failure. `durationMin` below 1 means no expiry. An empty
    /// password means none. The paths are not looked at.
    QString createShare(const QStringList &paths, const QString &password, int durationMin,
                        int maxClients, const QString &accessMode);
    void stopShare(const QString &id);
    /// Stops it if need be and deletes its record, roots and log.
    void removeSession(const QString &id);
    /// Same link, new times. False for an unknown or active share, or if the port is taken.
    [[nodiscard]] bool restartShare(const QString &id);
    /// The link and the counters stay, the log goes. An empty password means none, whatever there
    /// was before.
    [[nodiscard]] bool updateAndRestartShare(const QString &id, const QStringList &paths,
                                             const QString &password, int durationMin,
                                             int maxClients, const QString &accessMode);
    void stopAllShares(bool notify = true);

    /// Newest first.
    QList<ShareSession> allSessions() const;
    QList<ShareSession> activeSessions() const;
    /// An empty id in the result: no such share.
    ShareSession sessionInfo(const QString &id) const;
    QList<ShareRoot> sessionRoots(const QString &id) const;
    QList<AccessLogEntry> accessLog(const QString &id, const QString &action, int page,
                                    int pageSize) const;
    int accessLogCount(const QString &id, const QString &action) const;

    bool hasActiveShares() const;
    /// False while shares are active.
    bool canChangeSharePort() const;
    /// The port in use, or the one the next share will use.
    int sharePort() const;
    [[nodiscard]] bool setSharePort(int port, QString *error);

    /// "port", "duration_min", "max_clients", "access_mode".
    QVariantMap lastUsedDefaults() const;
    void saveLastUsedDefaults(int durationMin, int maxClients, const QString &accessMode);

    /// IPv4 addresses of the running interfaces other than loopback.
    static QStringList localIpAddresses();
    /// The links of a share, one an address; empty for an unknown one.
    QStringList shareUrls(const QString &id) const;

public slots:
    // Called queued by the server's workers.
    void onAccessLoggedFromWorker(const QString &sessionId, const QString &clientIp,
                                  const QString &action, const QString &filePath);
    void onSessionExpiredFromWorker(const QString &sessionId);

signals:
    void shareCreated(const QString &sessionId);
    void shareStopped(const QString &sessionId);
    void shareExpired(const QString &sessionId);
    void sessionListChanged();
    void accessLogUpdated(const QString &sessionId);

private:
    void restorePersistedShares();
    void setPersistedStatus(const QList<ShareSession> &sessions, const char *status,
                            const char *failure);
    void onExpiryCheck();
    void expire(const QList<ShareSession> &sessions);
    void writeAccessLog();

    bool ensureServerForShare(int port);
    void stopServerIfNoActiveSessions();
    bool store(const ShareSession &session, const ShareDefinition &definition, bool replacesOld);
    void serve(const QString &id);
    void stopServing(const QString &id);
    bool syncShareFirewallState(QString *error);
    bool syncFirewallAfterChange(const char *failure);
    void announceStart(const QString &id);

    FileShareDb m_db;
    QScopedPointer<ShareFirewall> m_firewall;
    QScopedPointer<ShareServerHost> m_servers;
    QScopedPointer<AccessLogQueue> m_accessLog;
    QTimer *m_expiryTimer;
    QTimer *m_accessLogTimer;
    bool m_isEnding = false;
};
