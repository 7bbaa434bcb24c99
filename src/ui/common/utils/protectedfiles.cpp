#include "ui/common/utils/protectedfiles.h"

#include "core/jsonnumber.h"
#include "ui/common/utils/formatutils.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QMap>

#include <limits>

namespace protectedfiles {

namespace {

constexpr qint64 kLastSecond = 253402300799; // the end of year 9999, the last that "yyyy" holds
constexpr qint64 kMsPerSecond = 1000;

QString unknownTime()
{
    return QStringLiteral("-");
}

qint64 saturatingSum(qint64 first, qint64 second)
{
    const qint64 room = std::numeric_limits<qint64>::max() - first;
    return first + qMin(second, room);
}

ProtectedFile fileOf(const QJsonObject &record)
{
    ProtectedFile file;
    file.id = record.value(QLatin1String("id")).toString();
    file.fileName = record.value(QLatin1String("fileName")).toString();
    file.originalPath = record.value(QLatin1String("originalPath")).toString();
    file.fileSize = qMax<qint64>(0, core::toInt64(record.value(QLatin1String("fileSize"))));
    file.deletedAt = core::toInt64(record.value(QLatin1String("deletedAt")));
    return file;
}

} // namespace

QVector<ProtectedFile> fromJson(const QJsonArray &records)
{
    QVector<ProtectedFile> files;
    files.reserve(records.size());
    for (const QJsonValue &record : records) {
        if (record.isObject())
            files.append(fileOf(record.toObject()));
    }
    return files;
}

QString directoryOf(const QString &originalPath)
{
    const int slash = originalPath.lastIndexOf(QLatin1Char('/'));
    return slash > 0 ? originalPath.left(slash) : QStringLiteral("/");
}

QVector<DirectoryGroup> groupByDirectory(const QVector<ProtectedFile> &files)
{
    QMap<QString, DirectoryGroup> groups;
    for (const ProtectedFile &file : files) {
        const QString directory = directoryOf(file.originalPath);
        DirectoryGroup &group = groups[directory];
        group.directory = directory;
        group.files.append(file);
        group.totalSize = saturatingSum(group.totalSize, file.fileSize);
    }
    return groups.values().toVector();
}

QString groupText(const DirectoryGroup &group)
{
    // In one go: a directory may hold a place holder of its own.
    return QStringLiteral("%1 - %2 个文件")
        .arg(group.directory, QString::number(group.files.size()));
}

QString byteText(qint64 bytes)
{
    if (bytes < 1)
        return QStringLiteral("0 B");
    static const char *const kUnits[] = {"B", "KB", "MB", "GB", "TB"};
    constexpr int kLastUnit = 4;
    double value = static_cast<double>(bytes);
    int unit = 0;
    while (value >= 1024.0 && unit < kLastUnit) {
        value /= 1024.0;
        ++unit;
    }
    const int decimals = unit > 0 && value <= 100.0 ? 1 : 0;
    return QStringLiteral("%1 %2").arg(value, 0, 'f', decimals).arg(QLatin1String(kUnits[unit]));
}

QString deletedText(qint64 seconds)
{
    if (seconds > kLastSecond)
        return unknownTime();
    return ui::common::utils::formatTimestamp(qMax<qint64>(0, seconds) * kMsPerSecond,
                                              unknownTime());
}

} // namespace protectedfiles
