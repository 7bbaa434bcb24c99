#include "wechat/undorecord.h"

#include <QJsonArray>

namespace wechat {

namespace {

const QString kActions = QStringLiteral("actions");
const QString kMerged = QStringLiteral("mergedPaths");
const QString kRestored = QStringLiteral("restoredPaths");
const QString kStatus = QStringLiteral("status");
const QString kUndone = QStringLiteral("undone");

QSet<QString> stringSet(const QJsonValue &array)
{
    QSet<QString> result;
    const QJsonArray values = array.toArray();
    for (const QJsonValue &value : values)
        result.insert(value.toString());
    return result;
}

} // namespace

QStringList pathsToRestore(const QJsonObject &record, const QJsonObject &action)
{
    // After a complete undo another one starts from the beginning, and finds that nothing is
    // linked any more.
    const bool isUndone = record.value(kStatus).toString() == kUndone;
    const QSet<QString> restored = isUndone ? QSet<QString>() : stringSet(action.value(kRestored));
    QStringList result;
    const QJsonArray merged = action.value(kMerged).toArray();
    for (const QJsonValue &path : merged) {
        if (!restored.contains(path.toString()))
            result.append(path.toString());
    }
    return result;
}

void noteRestored(QJsonObject *record, const QSet<QString> &restored)
{
    QJsonArray noted;
    const QJsonArray actions = record->value(kActions).toArray();
    for (const QJsonValue &value : actions) {
        QJsonObject action = value.toObject();
        const QSet<QString> earlier = stringSet(action.value(kRestored));
        QJsonArray all;
        const QJsonArray merged = action.value(kMerged).toArray();
        for (const QJsonValue &path : merged) {
            if (earlier.contains(path.toString()) || restored.contains(path.toString()))
                all.append(path);
        }
        if (!all.isEmpty())
            action.insert(kRestored, all);
        noted.append(all.isEmpty() ? value : QJsonValue(action));
    }
    // What is not a list of actions stays as it is.
    if (!noted.isEmpty())
        record->insert(kActions, noted);
}

bool isUndoComplete(const QJsonObject &record)
{
    int merged = 0;
    const QJsonArray actions = record.value(kActions).toArray();
    for (const QJsonValue &value : actions) {
        const QJsonObject action = value.toObject();
        const QJsonArray paths = action.value(kMerged).toArray();
        const QSet<QString> restored = stringSet(action.value(kRestored));
        merged += paths.size();
        for (const QJsonValue &path : paths) {
            if (!restored.contains(path.toString()))
                return false;
        }
    }
    return merged > 0;
}

QString statusAfterUndo(const QJsonObject &record, const UndoTally &tally)
{
    const bool failed = tally.pending + tally.refused > 0;
    if (!failed && (tally.restored > 0 || isUndoComplete(record)))
        return kUndone;
    if (tally.restored > 0)
        return QStringLiteral("partial");
    // The undo can be tried again, as it could before.
    if (tally.pending > 0)
        return record.value(kStatus).toString();
    return QStringLiteral("invalid");
}

} // namespace wechat
