#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>

namespace recoveryresult {

/// How the recovery of one file went, as far as it is known.
struct FileResult
{
    QString fileId;
    QString name;
    QString status; ///< The service's word; empty before the service has spoken of the file.
    QString detail;
    QStringList timeline;

    /// One element of a task's `fileStatuses`.
    static FileResult fromJson(const QJsonObject &object);
};

/// What a status word says about the file.
enum class Outcome {
    Pending, ///< Still being handled: no word, or one that is none of the final ones.
    Success,
    Failure, ///< Also a file that was written in part only.
    Skipped,
};

Outcome outcomeOf(const QString &status);

/// The status in one Chinese word. `isRunning` tells whether the task goes on, since a file that it
/// has left behind is not waiting any more.
QString statusText(const QString &status, bool isRunning);

/// What became of the file: its own detail, or a sentence for its status.
QString conclusion(const FileResult &result);

} // namespace recoveryresult
