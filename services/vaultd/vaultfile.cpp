#include "vaultd/vaultfile.h"

#include "core/jsonnumber.h"
#include "vaultd/failure.h"

#include <QDir>
#include <QFile>

namespace services {
namespace vaultd {

namespace {

constexpr int kMaxNameBytes = 255;
constexpr int kMaxPath = 4096;

bool isPath(const QString &path)
{
    return path.startsWith(QLatin1Char('/')) && path.size() < kMaxPath &&
           !path.contains(QChar(QChar::Null)) && QDir::cleanPath(path) == path;
}

/// True if the key is missing or of the type.
bool hasType(const QJsonObject &record, const char *key, QJsonValue::Type type)
{
    const QJsonValue value = record.value(QLatin1String(key));
    return value.isUndefined() || value.type() == type;
}

} // namespace

QJsonObject VaultFile::toJson() const
{
    return {{QStringLiteral("id"), id},
            {QStringLiteral("fileName"), fileName},
            {QStringLiteral("originalPath"), originalPath},
            {QStringLiteral("fileSize"), fileSize},
            {QStringLiteral("deletedAt"), deletedAt}};
}

QJsonObject VaultFile::toRecord() const
{
    QJsonObject record = toJson();
    if (!originalState.isEmpty())
        record.insert(QStringLiteral("originalState"), originalState);
    return record;
}

bool parseRecord(const QJsonObject &record, const QString &id, VaultFile *file, QString *error)
{
    if (record.isEmpty())
        return fail(error, QStringLiteral("记录为空"));
    for (const char *key : {"id", "fileName", "originalPath", "originalState"})
        if (!hasType(record, key, QJsonValue::String))
            return fail(error, QStringLiteral("%1 不是文本").arg(QLatin1String(key)));
    for (const char *key : {"fileSize", "deletedAt"})
        if (!hasType(record, key, QJsonValue::Double))
            return fail(error, QStringLiteral("%1 不是数字").arg(QLatin1String(key)));

    VaultFile read;
    read.id = record.value(QLatin1String("id")).toString(id);
    if (read.id != id)
        return fail(error, QStringLiteral("标识与文件名不符"));
    read.originalPath = record.value(QLatin1String("originalPath")).toString();
    if (!read.originalPath.isEmpty() && !isPath(read.originalPath))
        return fail(error, QStringLiteral("原始路径无效"));
    read.fileName = record.value(QLatin1String("fileName"))
                        .toString(read.originalPath.section(QLatin1Char('/'), -1));
    if (!isFileName(read.fileName))
        return fail(error, QStringLiteral("文件名无效"));
    read.fileSize = core::toInt64(record.value(QLatin1String("fileSize")));
    read.deletedAt = core::toInt64(record.value(QLatin1String("deletedAt")));
    read.originalState = record.value(QLatin1String("originalState")).toString();
    *file = read;
    return true;
}

bool isFileName(const QString &name)
{
    return !name.isEmpty() && name != QLatin1String(".") && name != QLatin1String("..") &&
           !name.contains(QLatin1Char('/')) && !name.contains(QChar(QChar::Null)) &&
           QFile::encodeName(name).size() <= kMaxNameBytes;
}

QString stateText(const struct stat &info)
{
    const auto time = [](const struct timespec &when) {
        return QStringLiteral("%1.%2").arg(qint64(when.tv_sec)).arg(qint64(when.tv_nsec));
    };
    return QStringLiteral("%1:%2:%3:%4:%5")
        .arg(quint64(info.st_dev))
        .arg(quint64(info.st_ino))
        .arg(qint64(info.st_size))
        .arg(time(info.st_mtim), time(info.st_ctim));
}

} // namespace vaultd
} // namespace services
