#include "ui/pages/wechatcleanpage/cleanrecords.h"

#include "core/descriptor.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <limits>

namespace wechatclean {

namespace {

/// Some hundred thousand paths; a larger file was not written by a clean.
constexpr qint64 kMostBytes = 64 * 1024 * 1024;
const QString kSuffix = QStringLiteral(".json");

qint64 decimal(const QJsonValue &value)
{
    // Written as text; 0 for anything else.
    return qMax<qint64>(0, value.toString().toLongLong());
}

QStringList stringList(const QJsonObject &object, const char *key)
{
    QStringList list;
    const QJsonArray values = object.value(QLatin1String(key)).toArray();
    for (const QJsonValue &value : values) {
        if (!value.toString().isEmpty())
            list.append(value.toString());
    }
    return list;
}

QVariantMap actionOf(const QJsonObject &object)
{
    return {{QStringLiteral("keepPath"), object.value(QStringLiteral("keepPath")).toString()},
            {QStringLiteral("size"), decimal(object.value(QStringLiteral("size")))},
            {QStringLiteral("hash"), object.value(QStringLiteral("hash")).toString()},
            {QStringLiteral("mergedPaths"), stringList(object, "mergedPaths")},
            {QStringLiteral("restoredPaths"), stringList(object, "restoredPaths")}};
}

int countOfAction(const QVariantMap &action)
{
    return qMax(0, action.value(QStringLiteral("mergedPaths")).toStringList().size() -
                       action.value(QStringLiteral("restoredPaths")).toStringList().size());
}

bool isNewer(const QVariant &first, const QVariant &second)
{
    const QVariantMap a = first.toMap();
    const QVariantMap b = second.toMap();
    const QDateTime timeA = a.value(QStringLiteral("createdAt")).toDateTime();
    const QDateTime timeB = b.value(QStringLiteral("createdAt")).toDateTime();
    if (timeA.isValid() != timeB.isValid())
        return timeA.isValid();
    if (timeA.isValid() && timeA != timeB)
        return timeA > timeB;
    return a.value(QStringLiteral("sessionId")).toString() >
           b.value(QStringLiteral("sessionId")).toString();
}

} // namespace

QVariantMap recordFileToMap(const QString &path)
{
    // Opening a pipe would wait for its writer.
    const QFileInfo info(path);
    if (!info.isFile() || info.size() > kMostBytes)
        return QVariantMap();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QVariantMap();
    const QJsonDocument document = QJsonDocument::fromJson(file.read(kMostBytes));
    const QJsonObject object = document.object();
    const QString sessionId = object.value(QStringLiteral("sessionId")).toString();
    if (sessionId.isEmpty() || sessionId + kSuffix != info.fileName())
        return QVariantMap();

    QVariantList actions;
    const QJsonArray stored = object.value(QStringLiteral("actions")).toArray();
    for (const QJsonValue &action : stored) {
        if (action.isObject())
            actions.append(actionOf(action.toObject()));
    }
    const QString createdAt = object.value(QStringLiteral("createdAt")).toString();
    return {
        {QStringLiteral("sessionId"), sessionId},
        {QStringLiteral("createdAt"), QDateTime::fromString(createdAt, Qt::ISODate)},
        {QStringLiteral("groupCount"), qMax(0, object.value(QStringLiteral("groupCount")).toInt())},
        {QStringLiteral("reclaimedBytes"), decimal(object.value(QStringLiteral("reclaimedBytes")))},
        {QStringLiteral("status"), object.value(QStringLiteral("status")).toString()},
        {QStringLiteral("actions"), actions}};
}

QVariantMap loadOperationRecord(const QString &folder, const QString &sessionId)
{
    if (sessionId.isEmpty() || sessionId.contains(QLatin1Char('/')))
        return QVariantMap();
    return recordFileToMap(folder + QLatin1Char('/') + sessionId + kSuffix);
}

QVariantList loadOperationRecords(const QString &folder, int *refused)
{
    const core::Descriptor there(
        ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!there.isOpen()) {
        if (refused)
            *refused = errno == ENOENT ? 0 : kUnreadableFolder;
        return QVariantList();
    }
    // Not by the filter of plain files: what only looks like a record is to be counted.
    const QDir dir(folder);
    const QStringList names =
        dir.entryList({QLatin1Char('*') + kSuffix}, QDir::AllEntries | QDir::System, QDir::Name);
    QVariantList records;
    for (const QString &name : names) {
        const QVariantMap record = recordFileToMap(dir.filePath(name));
        if (!record.isEmpty())
            records.append(record);
    }
    if (refused)
        *refused = names.size() - records.size();
    std::sort(records.begin(), records.end(), isNewer);
    return records;
}

int countToRestore(const QVariantMap &record)
{
    int count = 0;
    const QVariantList actions = record.value(QStringLiteral("actions")).toList();
    for (const QVariant &action : actions)
        count += countOfAction(action.toMap());
    return count;
}

qint64 bytesToRestore(const QVariantMap &record)
{
    // A damaged record may claim any size.
    constexpr qint64 kMost = std::numeric_limits<qint64>::max();
    qint64 bytes = 0;
    const QVariantList actions = record.value(QStringLiteral("actions")).toList();
    for (const QVariant &entry : actions) {
        const QVariantMap action = entry.toMap();
        const qint64 size = action.value(QStringLiteral("size")).toLongLong();
        const int paths = countOfAction(action);
        if (paths > 0 && size > (kMost - bytes) / paths)
            return kMost;
        bytes += size * paths;
    }
    return bytes;
}

} // namespace wechatclean
