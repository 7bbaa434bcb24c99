#pragma once

#include "share/sharerecords.h"

#include <QList>
#include <QSqlDatabase>
#include <QString>
#include <QVariantMap>

/// The store of the file shares: sessions, their roots, their access log and the last used
/// defaults. The object and its main connection belong to the thread that made it, the only writer;
/// workers read the same file by the static readers over a ScopedThreadConnection of their own. A
/// failure gives false or an empty result and the database's text in `error`, which may be null.
class FileShareDb
{
public:
    /// An empty path means the user's own file.
    explicit FileShareDb(const QString &path = QString());
    ~FileShareDb();

    FileShareDb(const FileShareDb &) = delete;
    FileShareDb &operator=(const FileShareDb &) = delete;

    [[nodiscard]] bool open(QString *error = nullptr);
    void close();
    QString dbPath() const { return m_path; }
    /// Makes the tables and adds the columns that files of earlier releases lack.
    [[nodiscard]] bool initSchema(QString *error = nullptr);

    [[nodiscard]] bool createSession(const ShareSession &session, const QString &passwordHash,
                                     QString *error = nullptr);
    [[nodiscard]] bool updateSessionStatus(const QString &id, const QString &status,
                                           QString *error = nullptr);
    [[nodiscard]] bool updateSessionPort(const QString &id, int port, QString *error = nullptr);
    [[nodiscard]] bool updateSessionTimes(const QString &id, qint64 createdAt, qint64 expiresAt,
                                          QString *error = nullptr);
    [[nodiscard]] bool updateSessionDownloads(const QString &id, int count,
                                              QString *error = nullptr);
    [[nodiscard]] bool updateSessionUploads(const QString &id, int count, QString *error = nullptr);
    /// Roots and log lines go with it.
    [[nodiscard]] bool removeSession(const QString &id, QString *error = nullptr);
    [[nodiscard]] bool addRoot(const ShareRoot &root, QString *error = nullptr);
    [[nodiscard]] bool removeRootsBySession(const QString &id, QString *error = nullptr);
    [[nodiscard]] bool addAccessLog(const AccessLogEntry &entry, QString *error = nullptr);
    [[nodiscard]] bool saveDefault(const QString &key, const QString &value,
                                   QString *error = nullptr);
    [[nodiscard]] bool beginTransaction(QString *error = nullptr);
    [[nodiscard]] bool commitTransaction(QString *error = nullptr);
    bool rollback(QString *error = nullptr);
    /// Takes the text of deleted records out of the write-ahead log too; the database file itself
    /// is overwritten as they are deleted. Call it outside of a transaction. What a reader still
    /// holds goes with the next call, or when the database is closed.
    void purgeDeleted();

    ShareSession session(const QString &id, QString *error = nullptr) const;
    ShareRoot rootById(const QString &id, QString *error = nullptr) const;
    QList<ShareRoot> rootsForSession(const QString &id, QString *error = nullptr) const;
    QString passwordHash(const QString &id, QString *error = nullptr) const;
    /// Newest first.
    QList<ShareSession> allSessions(QString *error = nullptr) const;
    QList<ShareSession> sessionsByStatus(const QString &status, QString *error = nullptr) const;
    /// Newest first; `page` counts from 0. An empty action means all, "upload" all three outcomes
    /// of an upload.
    QList<AccessLogEntry> accessLog(const QString &sessionId, const QString &action, int page,
                                    int pageSize, QString *error = nullptr) const;
    int accessLogCount(const QString &sessionId, const QString &action,
                       QString *error = nullptr) const;
    /// "port", "duration_min", "max_clients", "access_mode" and whatever else was saved.
    QVariantMap loadDefaults(QString *error = nullptr) const;

    static ShareSession querySession(const QSqlDatabase &database, const QString &id,
                                     QString *error = nullptr);
    static ShareRoot queryRootById(const QSqlDatabase &database, const QString &id,
                                   QString *error = nullptr);
    static QList<ShareRoot> queryRootsForSession(const QSqlDatabase &database, const QString &id,
                                                 QString *error = nullptr);
    static QString queryPasswordHash(const QSqlDatabase &database, const QString &id,
                                     QString *error = nullptr);

    // Any thread: each opens a connection for the one call.
    ShareSession threadSafeSession(const QString &id, QString *error = nullptr) const;
    ShareRoot threadSafeRootById(const QString &id, QString *error = nullptr) const;
    QList<ShareRoot> threadSafeRootsForSession(const QString &id, QString *error = nullptr) const;
    QString threadSafePasswordHash(const QString &id, QString *error = nullptr) const;

    /// Lower-case hexadecimal SHA-256 of the UTF-8 bytes; an empty password stays empty.
    static QString hashPassword(const QString &password);

private:
    /// Not valid while the database is closed.
    QSqlDatabase connection() const;
    bool openConnection(QString *error);

    QString m_path;
    QString m_connectionName;
};
