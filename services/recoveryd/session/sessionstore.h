#pragma once

#include "recoveryd/devices/deviceidentity.h"

#include <QHash>
#include <QJsonObject>
#include <QStringList>
#include <QVector>

namespace services {
namespace recoveryd {

class ResultLog;

/// One scan as it is kept.
struct Session
{
    QString sessionId;
    QString devicePath;
    QString imagePath;      ///< With the start, what the device path stood for: paths are given
    qint64 volumeStart = 0; ///< anew at each start of the service.
    QJsonObject identity;   ///< See identityOf(); empty for sessions of old versions.
    QString fileSystem;
    QString scanMode;
    QJsonObject request; ///< The params of scan.start.
    QString status;      ///< "running", "completed", "stopped", "failed", "interrupted"
    QString error;
    QStringList notes;
    qint64 startedMs = 0; ///< Since the epoch.
    qint64 elapsedMs = 0;
    qint64 scannedBytes = 0;
    qint64 unreadableBytes = 0;
    int filesFound = 0;

    bool canResume() const
    {
        return !request.isEmpty() && status != QLatin1String("completed") &&
               status != QLatin1String("running");
    }
    DeviceMark deviceMark() const { return {devicePath, imagePath, volumeStart, identity}; }
    QJsonObject toJson() const;
    static Session fromJson(const QJsonObject &object);
};

/// Scans, their files and their recoveries, in a folder: <state>/sessions/<id>/ with session.json,
/// results.log (see ResultLog) and recovery-<id>.json. JSON files are replaced as a whole. One
/// process and one thread.
class SessionStore
{
public:
    /// Makes the folder if need be. What a killed service has left running becomes interrupted,
    /// with the files it had found; folders that cannot be read are left alone.
    [[nodiscard]] bool open(const QString &stateDir, QString *error);

    /// Newest first.
    QVector<Session> sessions() const;
    bool contains(const QString &sessionId) const { return m_sessions.contains(sessionId); }
    Session session(const QString &sessionId) const { return m_sessions.value(sessionId); }
    [[nodiscard]] bool save(const Session &session, QString *error);
    [[nodiscard]] bool remove(const QString &sessionId, QString *error);

    /// Where the session's ResultLog is, or will be.
    QString resultsPath(const QString &sessionId) const;

    /// Recovery records have the keys of recovery.getDetail, without its fileStatuses.
    [[nodiscard]] bool saveRecovery(const QString &sessionId, const QJsonObject &record,
                                    QString *error);
    /// Oldest first.
    QVector<QJsonObject> recoveries(const QString &sessionId) const;
    /// Empty if there is none; otherwise also its session.
    QJsonObject recovery(const QString &recoveryId, QString *sessionId) const;
    /// Where the RecoveryLog of a recovery is.
    QString recoveryLogPath(const QString &sessionId, const QString &recoveryId) const;

private:
    void closeInterrupted(Session *session);
    QString folder(const QString &sessionId) const;

    QString m_root;
    QHash<QString, Session> m_sessions;
};

/// Opens a session's results for reading. The list of an old version is converted first; a session
/// that has none, since it found nothing, gives an empty log that is not open. Any thread.
[[nodiscard]] bool openResults(const QString &path, ResultLog *log, QString *error);

} // namespace recoveryd
} // namespace services
