#include "ui/pages/recentscanspage/sessionrules.h"

#include "core/jsonnumber.h"
#include "ui/common/utils/timetext.h"

using ui::common::CellTableModel;

namespace recentscans {

QString translateScanMode(const QString &mode)
{
    if (mode == QLatin1String("quick"))
        return QStringLiteral("快速扫描");
    if (mode == QLatin1String("deep"))
        return QStringLiteral("深度扫描");
    return mode;
}

QVector<CellTableModel::Row> sessionRows(const QJsonArray &sessions)
{
    QVector<CellTableModel::Row> rows;
    rows.reserve(sessions.size());
    for (const QJsonValue &value : sessions) {
        const QJsonObject session = value.toObject();
        CellTableModel::Row row;
        row.id = session.value(QLatin1String("sessionId")).toString();
        row.cells = {
            row.id,
            session.value(QLatin1String("devicePath")).toString(),
            ui::common::utils::timeText(session.value(QLatin1String("scanTime"))),
            QString::number(core::toInt64(session.value(QLatin1String("filesFound")))),
            translateScanMode(session.value(QLatin1String("scanMode")).toString()),
        };
        rows.append(row);
    }
    return rows;
}

QJsonObject summaryOf(const QJsonObject &sessionDetail)
{
    const QJsonObject summary = sessionDetail.value(QLatin1String("scanSummary")).toObject();
    if (!summary.isEmpty())
        return summary;
    return {{QStringLiteral("filesFound"), sessionDetail.value(QLatin1String("filesFound"))},
            {QStringLiteral("elapsedMs"), sessionDetail.value(QLatin1String("elapsedMs"))}};
}

void PendingSession::begin(const QString &sessionId)
{
    clear();
    m_sessionId = sessionId;
}

void PendingSession::clear()
{
    *this = PendingSession();
}

bool PendingSession::isFor(const QString &sessionId) const
{
    return !m_sessionId.isEmpty() && m_sessionId == sessionId;
}

bool PendingSession::takeDetail(const QString &sessionId, const QJsonObject &detail)
{
    if (!isFor(sessionId))
        return false;
    m_detail = detail;
    m_hasDetail = true;
    return true;
}

bool PendingSession::takeFiles(const QString &sessionId, const QJsonArray &files)
{
    if (!isFor(sessionId))
        return false;
    m_files = files;
    m_hasFiles = true;
    return true;
}

} // namespace recentscans
