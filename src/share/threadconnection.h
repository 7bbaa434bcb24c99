#pragma once

#include "share/scopedthreadconnection.h"

#include <QHash>
#include <QSqlQuery>
#include <QString>

/// The connection of a worker's thread to the share database. The thread's first request opens it;
/// it stays for the next ones with its prepared statements, and closes before the thread ends.
/// Between two requests no statement is active, so it holds neither a lock nor an old state of the
/// file.
class ThreadConnection
{
public:
    /// For the length of one request. Takes the connection that the thread has kept, unless another
    /// file stands at the path meanwhile.
    class Use
    {
    public:
        explicit Use(const QString &dbPath);
        ~Use();
        Use(const Use &) = delete;
        Use &operator=(const Use &) = delete;

        bool isValid() const;
        /// Let go of the handle before this object ends.
        QSqlDatabase database() const;
    };

    /// The kept statement of the calling thread's own connection, or null for any other connection.
    /// It may need to be prepared; whoever runs it finishes it.
    static QSqlQuery *statement(const QSqlDatabase &database, const QString &sql);

    ~ThreadConnection();
    ThreadConnection(const ThreadConnection &) = delete;
    ThreadConnection &operator=(const ThreadConnection &) = delete;

private:
    /// Which file a path leads to; all zero if there is none.
    struct FileKey
    {
        quint64 device = 0;
        quint64 inode = 0;
    };

    explicit ThreadConnection(const QString &dbPath);
    static FileKey keyOf(const QString &dbPath);
    bool isFor(const QString &dbPath) const;

    const QString m_path;
    const ScopedThreadConnection m_connection;
    const FileKey m_file;
    const QString m_name;
    QHash<QString, QSqlQuery> m_statements; // below the connection, so that they go before it
};
