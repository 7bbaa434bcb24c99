#pragma once

#include "wechat/fileoperations.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

namespace wechat {

/// Where the cleaner keeps its own files below a home.
struct CleanFolders
{
    /// An empty home means the user's.
    explicit CleanFolders(const QString &home);

    QString top;        ///< Holds the lock.
    QString operations; ///< Records, "<sessionId>.json".
    QString journal;    ///< Journals of cleans and undos under way, "<id>.journal".
    QString reserve;    ///< File of SpaceReserve.

    QString recordPath(const QString &sessionId) const;
    QString journalPath(const QString &id) const;
};

struct MergedAction
{
    QString keepPath;
    qint64 size = 0;
    QString hash; ///< Hexadecimal.
    QStringList mergedPaths;
};

/// What a clean has done, as it is kept for a look back and for the undo.
struct OperationRecord
{
    QString sessionId;
    QString createdAt; ///< Local time, ISO.
    qint64 reclaimedBytes = 0;
    QString status; ///< "active", "partial", "undone" or "invalid".
    QList<MergedAction> actions;
    QStringList mountPoints; ///< Of the disks that hold the paths.

    QJsonObject toJson() const;
};

/// Absolute and clean: what journals and records may hold.
bool isPlainPath(const QString &path);
/// The plain paths of a JSON array; empty for anything else.
QStringList plainPaths(const QJsonValue &array);

/// A new id from the local time, which no record or journal has yet.
QString createSessionId(const CleanFolders &folders);
/// In the form that createSessionId() gives.
bool isGeneratedSessionId(const QString &id);

/// False if there is no such record or it is no JSON object. The id may come from anywhere.
[[nodiscard]] bool readRecord(const CleanFolders &folders, const QString &sessionId,
                              QJsonObject *record);
/// Makes the folder if needed, replaces the record in one step and flushes it to the disk. On a
/// full disk it takes the room from the reserve.
[[nodiscard]] bool writeRecord(FileOperations &operations, const CleanFolders &folders,
                               const QString &sessionId, const QJsonObject &record, QString *error);
/// The message for a record or journal that cannot be written, with the reason if the disk is full.
QString recordWriteError(const QString &fileName, int code);

} // namespace wechat
