#pragma once

#include <QString>
#include <QStringList>

/// One share: what is offered under one link. Times are milliseconds since the epoch.
struct ShareSession
{
    bool isActive() const { return status == QLatin1String("active"); }
    bool takesUploads() const { return accessMode == QLatin1String("upload"); }

    QString id; ///< Empty in a record that was not found.
    int port = 0;
    bool hasPassword = false; ///< The hash itself stays in the database.
    int durationMin = 0;      ///< 0: no expiry.
    int maxClients = 10;      ///< Requests in progress at once.
    qint64 createdAt = 0;
    qint64 expiresAt = 0; ///< 0: no expiry.
    QString status;       ///< "active", "stopped" or "expired".
    QString accessMode;   ///< "download" or "upload".
    int totalDownloads = 0;
    int totalUploads = 0;
    QStringList rootNames; ///< Display names of the roots.
};

/// A shared file or directory of a session.
struct ShareRoot
{
    QString id;
    QString sessionId;
    QString localPath;
    QString displayName;
};

/// One line of a session's access log.
struct AccessLogEntry
{
    int id = 0;
    QString sessionId;
    QString clientIp;
    QString action;
    QString filePath;
    qint64 timestamp = 0; ///< Milliseconds since the epoch.
};
