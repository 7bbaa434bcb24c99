#include "share/accesslogqueue.h"

#include "share/filesharedb.h"

#include <QDebug>
#include <QHash>

namespace {

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

void AccessLogQueue::write(int limit)
{
    if (m_waiting.isEmpty())
        return;
    const QList<AccessLogEntry> batch = m_waiting.mid(0, limit);
    m_waiting = m_waiting.mid(batch.size());

    // Without a transaction each line stands for itself.
    QString error;
    const bool isOneTransaction = m_db->beginTransaction(&error);
    if (!isOneTransaction)
        reportFailure(error);
    writeLines(batch);
    writeCounters(batch);
    if (isOneTransaction && !m_db->commitTransaction(&error)) {
        reportFailure(QStringLiteral("%1 (%2 lines)").arg(error).arg(batch.size()));
        m_db->rollback();
    }
}

void AccessLogQueue::writeLines(const QList<AccessLogEntry> &entries)
{
    for (const AccessLogEntry &entry : entries) {
        QString error;
        if (!m_db->addAccessLog(entry, &error))
            reportFailure(error);
        if (!m_updated.contains(entry.sessionId))
            m_updated.append(entry.sessionId);
    }
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
