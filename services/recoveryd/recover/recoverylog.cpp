#include "recoveryd/recover/recoverylog.h"

#include <QFile>
#include <QJsonDocument>

namespace services::recoveryd {

void RecoveryLog::Counts::add(const QString &status, qint64 bytes)
{
    if (status == QLatin1String("success"))
        ++succeeded;
    else if (status == QLatin1String("partial"))
        ++partial;
    else if (status == QLatin1String("skipped"))
        ++skipped;
    else
        ++failed;
    if (status == QLatin1String("success") || status == QLatin1String("partial"))
        writtenBytes += bytes;
}

void RecoveryLog::append(const FileResult &result)
{
    m_counts.add(result.status, result.writtenBytes);
    m_log.append(QJsonDocument(result.toJson()).toJson(QJsonDocument::Compact));
}

bool RecoveryLog::read(const QString &path, int offset, int limit, qint64 maxBytes, Page *page,
                       QString *error)
{
    *page = Page();
    if (!QFile::exists(path))
        return true;
    RecordLog log;
    qint64 bytes = 0;
    bool isFull = false;
    return log.openForReading(path, error) &&
           log.scan(
               [&](qint64, const QByteArray &record) {
                   const QJsonObject status = QJsonDocument::fromJson(record).object();
                   page->counts.add(status.value(QLatin1String("status")).toString(),
                                    qint64(status.value(QLatin1String("writtenBytes")).toDouble()));
                   const int index = page->total++;
                   isFull = isFull || (bytes + record.size() > maxBytes && bytes > 0);
                   if (index < offset || page->statuses.size() >= limit || isFull)
                       return;
                   bytes += record.size();
                   page->statuses.append(status);
               },
               error);
}

} // namespace services::recoveryd
