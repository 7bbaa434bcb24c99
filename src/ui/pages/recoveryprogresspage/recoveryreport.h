#pragma once

#include "ui/pages/recoverydetaildialog/fileresult.h"

#include <QByteArray>
#include <QJsonObject>
#include <QVector>

namespace recoveryprogress {

/// What the report of a recovery tells of one file.
struct ReportRow
{
    QString name;
    QString originalPath; ///< Where it was found.
    QString outputPath;   ///< Empty if nothing was written.
    QString result;
    QString conclusion;
    QString writtenBytes;
    QString sha256; ///< Of the bytes read back from the target, as the service tells it.
};

/// The files in their order, with what the service's record of the task (`fileStatuses`) adds.
QVector<ReportRow> reportRows(const QVector<recoveryresult::FileResult> &files,
                              const QJsonObject &taskDetail, bool isRunning);
/// Comma-separated values by RFC 4180 in UTF-8 with a byte order mark, a line of titles first.
QByteArray reportCsv(const QVector<ReportRow> &rows);
/// Writes all or nothing. Returns the error, or an empty text. Blocks on the disk.
QString writeReport(const QString &path, const QByteArray &csv);

} // namespace recoveryprogress
