#pragma once

#include "recoveryd/scan/foundfile.h"

#include <QJsonObject>
#include <QVector>

namespace services {
namespace recoveryd {

/// One scan as it is kept.
struct Session
{
    QString sessionId;
    QString devicePath;
    QString imagePath;      ///< With the start, what the device path stood for: paths are given
    qint64 volumeStart = 0; ///< anew at each start of the service.
    QString fileSystem;
    QString scanMode;
    QString status; ///< "running", "completed", "stopped", "failed", "interrupted"
    QString error;
    qint64 startedMs = 0; ///< Since the epoch.
    qint64 elapsedMs = 0;
    qint64 scannedBytes = 0;
    int filesFound = 0;

    QJsonObject toJson() const;
    static Session fromJson(const QJsonObject &object);
};

/// Scans, their files and their recoveries, in a folder: <state>/sessions/<id>/ with session.json,
/// files.json and recovery-<id>.json. Files are replaced as a whole. One process and one thread.
class SessionStore
{
public:
    /// Makes the folder if need be. What a killed service has left running becomes interrupted;
    /// folders that cannot be read are left alone.
    [[nodiscard]] bool open(const QString &stateDir, QString *error);

    /// Newest first.
    QVector<Session> sessions() const;
    bool contains(const QString &sessionId) const { return m_sessions.contains(sessionId); }
    Session session(const QString &sessionId) const { return m_sessions.value(sessionId); }
    [[nodiscard]] bool save(const Session &session, QString *error);
    [[nodiscard]] bool remove(const QString &sessionId, QString *error);

    [[nodiscard]] bool saveFiles(const QString &sessionId, const QVector<FoundFile> &files,
                                 QString *error);
    /// Nothing, and no error, for a session whose files were never saved.
    [[nodiscard]] bool loadFiles(const QString &sessionId, QVector<FoundFile> *files,
                                 QString *error) const;

    /// Recovery records have the keys of recovery.getDetail.
    [[nodiscard]] bool saveRecovery(const QString &sessionId, const QJsonObject &record,
                                    QString *error);
    /// Oldest first.
    QVector<QJsonObject> recoveries(const QString &sessionId) const;
    /// Empty if there is none.
    QJsonObject recovery(const QString &recoveryId) const;

private:
    QString folder(const QString &sessionId) const;

    QString m_root;
    QHash<QString, Session> m_sessions;
};

} // namespace recoveryd
} // namespace services
