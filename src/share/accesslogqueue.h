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
    /// Writes a batch in one transaction, the oldest lines first; small enough not to hold up the
    /// event loop. A line that cannot be written, for a share that has gone, is reported in the
    /// program's log and left out; so is the batch if the whole database fails. Not inside a
    /// transaction.
    void writeBatch();
    void writeAll();
    /// The sessions written for since the last call, each once.
    QStringList takeUpdatedSessions();
    void forgetUpdated(const QString &sessionId) { m_updated.removeAll(sessionId); }

private:
    /// False, with the database's text, if the transaction is lost.
    bool writeLines(const QList<AccessLogEntry> &entries, QString *error);
    void writeCounters(const QList<AccessLogEntry> &entries);

    FileShareDb *m_db;
    QList<AccessLogEntry> m_waiting;
    QStringList m_updated;
};
