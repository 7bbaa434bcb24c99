#include "share/accesslogqueue.h"

#include "share/filesharedb.h"

#include <QDebug>
#include <QHash>

namespace {

// Lines a transaction.
constexpr int kBatchSize = 500;

void reportFailure(const QString &error)
{
    qWarning().noquote() << "[FileShareController] addAccessLog failed:" << error;
}

struct Transfers
{
    int downloads = 0;
    int uploads = 0;
};

} // namespace

void AccessLogQueue::writeAll()
{
    while (!m_waiting.isEmpty())
        writeBatch();
}

void AccessLogQueue::writeBatch()
{
    if (m_waiting.isEmpty())
        return;
    const QList<AccessLogEntry> batch = m_waiting.mid(0, kBatchSize);
    m_waiting = m_waiting.mid(batch.size());

    QString error;
    bool ok = m_db->beginTransaction(&error);
    if (ok) {
        ok = writeLines(batch, &error);
        if (ok) {
            writeCounters(batch);
            ok = m_db->commitTransaction(&error);
        }
        if (!ok)
            m_db->rollback();
    }
    if (!ok)
        reportFailure(QStringLiteral("%1 (%2 lines)").arg(error).arg(batch.size()));
}

bool AccessLogQueue::writeLines(const QList<AccessLogEntry> &entries, QString *error)
{
    for (const AccessLogEntry &entry : entries) {
        if (!m_db->addAccessLog(entry, error)) {
            // SQLite ends the whole transaction by itself when the disk is full or fails. What
            // follows would then be written, and might fail, line by line.
            if (m_db->beginTransaction())
                return false;
            reportFailure(*error);
        }
        if (!m_updated.contains(entry.sessionId))
            m_updated.append(entry.sessionId);
    }
    return true;
}

void AccessLogQueue::writeCounters(const QList<AccessLogEntry> &entries)
{
    QHash<QString, Transfers> transfers;
    for (const AccessLogEntry &entry : entries) {
        if (entry.action == QLatin1String("download"))
            ++transfers[entry.sessionId].downloads;
        else if (entry.action == QLatin1String("upload_ok"))
            ++transfers[entry.sessionId].uploads;
    }
    for (auto it = transfers.cbegin(); it != transfers.cend(); ++it) {
        QString error;
        const ShareSession session = m_db->session(it.key(), &error);
        const int downloads = it->downloads;
        const int uploads = it->uploads;
        const bool ok =
            error.isEmpty() &&
            (downloads == 0 ||
             m_db->updateSessionDownloads(it.key(), session.totalDownloads + downloads, &error)) &&
            (uploads == 0 ||
             m_db->updateSessionUploads(it.key(), session.totalUploads + uploads, &error));
        if (!ok)
            qWarning().noquote() << "[FileShareController] transfer count not written:" << error;
    }
}

QStringList AccessLogQueue::takeUpdatedSessions()
{
    QStringList sessions;
    sessions.swap(m_updated);
    return sessions;
}
