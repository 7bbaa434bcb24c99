#pragma once

#include "ui/common/utils/scanfilerules.h"

#include <QDateTime>
#include <QVector>

namespace ui {
namespace common {
namespace utils {

/// What a scan log holds: the state of the scan when it was taken, and its files as the table
/// showed them.
struct ScanLog
{
    struct Entry
    {
        QString name;
        QString path;
        QString size;
        QString type;
        QString deletionTime;
        QString source;
        QString integrityLabel;
        QString integrityReason;
    };

    QString sessionId;
    QString device;
    QString fileSystem;
    QString filesFound;
    QString progress;
    QString elapsed;
    QDateTime exportedAt;
    QVector<Entry> entries;
};

/// "scan_log_<first 8 characters of the session>_<time>.txt"; never a path.
QString scanLogFileName(const ScanLog &log);
/// The log as text. Control characters in names and paths are written as "\n", "\t" or "\xNN", so
/// that a name cannot pass for lines of the log.
QString scanLogText(const ScanLog &log);

} // namespace utils
} // namespace common
} // namespace ui
