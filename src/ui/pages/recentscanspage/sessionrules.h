#pragma once

#include "ui/common/celltablemodel.h"

#include <QJsonArray>
#include <QJsonObject>

namespace recentscans {

/// "quick" and "deep" in Chinese; anything else as it stands.
QString translateScanMode(const QString &mode);

/// Rows of the session table in the service's order, each with its session id.
QVector<ui::common::CellTableModel::Row> sessionRows(const QJsonArray &sessions);

/// The summary with which a stored scan is shown as finished: its own, or one of the session's
/// numbers.
QJsonObject summaryOf(const QJsonObject &sessionDetail);

/// The session that is to be opened. It takes two answers of the service, in either order; answers
/// for any other session are refused.
class PendingSession
{
public:
    /// Forgets the session before it.
    void begin(const QString &sessionId);
    void clear();
    QString sessionId() const { return m_sessionId; }

    /// True if the answer was for this session.
    bool takeDetail(const QString &sessionId, const QJsonObject &detail);
    bool takeFiles(const QString &sessionId, const QJsonArray &files);
    /// Whether both have come.
    bool isComplete() const { return m_hasDetail && m_hasFiles; }

    const QJsonObject &detail() const { return m_detail; }
    const QJsonArray &files() const { return m_files; }

private:
    bool isFor(const QString &sessionId) const;

    QString m_sessionId; ///< Empty while nothing is to be opened.
    QJsonObject m_detail;
    QJsonArray m_files;
    bool m_hasDetail = false;
    bool m_hasFiles = false;
};

} // namespace recentscans
