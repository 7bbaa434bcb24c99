#pragma once

#include "share/sharerecords.h"

#include <QList>
#include <QString>
#include <QStringList>

class FileShareDb;

/// Collects lines of the access log and writes many in one transaction, with the counters of
/// downloads and uploads that they stand for. Same thread as the database.
class AccessLogQueue
{
public:
    explicit AccessLogQueue(FileShareDb *db)
        : m_db(db)
    {}

    void append(const AccessLogEntry &entry) { m_waiting.append(entry); }
    bool isEmpty() const { return m_waiting.isEmpty(); }
    /// Writes at most `limit` lines, the oldest first. A line that cannot be written is reported
    /// in the program's log and left out. Not inside a transaction.
    void write(int limit);
    void writeAll() { write(m_waiting.size()); }
    /// The sessions written for since the last call, each once.
    QStringList takeUpdatedSessions();
    void forgetUpdated(const QString &sessionId) { m_updated.removeAll(sessionId); }

private:
    void writeLines(const QList<AccessLogEntry> &entries);
    void writeCounters(const QList<AccessLogEntry> &entries);

    FileShareDb *m_db;
    QList<AccessLogEntry> m_waiting;
    QStringList m_updated;
};
