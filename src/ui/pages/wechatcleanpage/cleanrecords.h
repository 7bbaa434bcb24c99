#pragma once

#include <QString>
#include <QVariantList>
#include <QVariantMap>

namespace wechatclean {

/// Reading of the cleaner's operation records. All of it touches the disk: not for the GUI thread.
///
/// A record is a map of "sessionId", "createdAt" (QDateTime, may be invalid), "groupCount" (int),
/// "reclaimedBytes" (qint64), "status" and "actions": maps of "keepPath", "size" (qint64), "hash"
/// "mergedPaths" and "restoredPaths" (string lists). Files that are no record are refused: too
/// large, no regular file, no JSON object, or of another session than their name says, since an
/// undo goes by name.

/// The record in this file; empty if it is refused.
QVariantMap recordFileToMap(const QString &path);
/// The record of this session; empty without one.
QVariantMap loadOperationRecord(const QString &folder, const QString &sessionId);
constexpr int kUnreadableFolder = -1;
/// All records of the folder, newest first, those without a valid time last. `refused` counts the
/// files that are none, or is kUnreadableFolder if the folder is there and cannot be listed; may be
/// null.
QVariantList loadOperationRecords(const QString &folder, int *refused = nullptr);

/// Merged paths that an undo has still to restore, and the bytes that copies of them take.
int countToRestore(const QVariantMap &record);
qint64 bytesToRestore(const QVariantMap &record);

} // namespace wechatclean
