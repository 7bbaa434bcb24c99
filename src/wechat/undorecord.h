#pragma once

#include <QJsonObject>
#include <QSet>
#include <QString>
#include <QStringList>

namespace wechat {

// How far the undo of a clean has got, as its record keeps it. An undo may take several goes: what
// the disk had no room for, or what was on a disk that is away, stays to be undone.

/// Merged paths of one action of the record that an undo has still to restore.
QStringList pathsToRestore(const QJsonObject &record, const QJsonObject &action);

/// Adds restored paths to the record. `restored` may hold others than those of the record.
void noteRestored(QJsonObject *record, const QSet<QString> &restored);

/// Every merged path of the record has been restored, and there is at least one.
bool isUndoComplete(const QJsonObject &record);

/// What became of one go.
struct UndoTally
{
    int restored = 0;
    int pending = 0; ///< Not restored for a reason that may pass.
    int refused = 0; ///< Not restored, and never going to be.
};

/// The status that a record has after it, with what was restored noted already.
QString statusAfterUndo(const QJsonObject &record, const UndoTally &tally);

} // namespace wechat
