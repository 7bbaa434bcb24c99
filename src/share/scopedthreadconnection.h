#pragma once

#include <QSqlDatabase>
#include <QString>

/// A connection to the share database for the length of a scope, for reading on a worker's thread.
/// No two objects share a name.
class ScopedThreadConnection
{
public:
    explicit ScopedThreadConnection(const QString &dbPath);
    ~ScopedThreadConnection();

    ScopedThreadConnection(const ScopedThreadConnection &) = delete;
    ScopedThreadConnection &operator=(const ScopedThreadConnection &) = delete;

    bool isValid() const { return m_valid; }
    /// Let go of the handle before this object ends.
    QSqlDatabase database() const;

private:
    QString m_connectionName;
    bool m_valid = false;
};
