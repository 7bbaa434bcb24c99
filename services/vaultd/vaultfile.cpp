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
constexpr qint64 kMaxId = 0xFFFFFFFE; // The highest id of a user or group.

bool isPath(const QString &path)
{
    return path.startsWith(QLatin1Char('/')) && path.size() < kMaxPath &&
           !path.contains(QChar(QChar::Null)) && QDir::cleanPath(path) == path;
}

QString timeText(const struct timespec &time)
{
    return QStringLiteral("%1.%2").arg(qint64(time.tv_sec)).arg(qint64(time.tv_nsec));
}

/// As timeText() writes it; all zeros for anything else.
struct timespec timeOf(const QJsonValue &value)
{
    const QStringList parts = value.toString().split(QLatin1Char('.'));
    bool isNumber[] = {false, false};
    struct timespec time = {};
    if (parts.size() != 2)
        return time;
    time.tv_sec = time_t(parts.at(0).toLongLong(&isNumber[0]));
    time.tv_nsec = long(parts.at(1).toLongLong(&isNumber[1]));
    const bool isFit =
        isNumber[0] && isNumber[1] && time.tv_nsec >= 0 && time.tv_nsec < 1000 * 1000 * 1000;
    return isFit ? time : timespec{};
}

qint64 numberOf(const QJsonObject &record, const char *key)
{
    const QJsonValue value = record.value(QLatin1String(key));
    const qint64 number = core::toInt64(value);
    return value.isDouble() && number >= 0 && number <= kMaxId ? number : -1;
}

bool isSet(const struct timespec &time)
{
    return time.tv_sec != 0 || time.tv_nsec != 0;
}

QString base64(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.toBase64());
}

/// What an earlier version did not record; none of it makes a record unfit.
void readAttributes(const QJsonObject &record, VaultFile *file)
{
    file->ownerUid = numberOf(record, "uid");
    file->ownerGid = numberOf(record, "gid");
    const qint64 mode = numberOf(record, "mode");
    file->mode = mode > 07777 ? -1 : int(mode);
    file->accessed = timeOf(record.value(QLatin1String("atime")));
    file->modified = timeOf(record.value(QLatin1String("mtime")));
    file->user = numberOf(record, "user");
    file->isReplaced = record.value(QLatin1String("replaced")).toBool();
    const QJsonObject attributes = record.value(QLatin1String("xattrs")).toObject();
    for (auto it = attributes.begin(); it != attributes.end(); ++it)
        file->attributes.insert(it.key().toUtf8(),
                                QByteArray::fromBase64(it.value().toString().toLatin1()));
}

/// Absolute, and nothing in it steps up or ends it early.
bool isPathOfBytes(const QByteArray &path)
{
    return path.startsWith('/') && path.size() < kMaxPath && !path.contains('\0') &&
           !(path + '/').contains("/../") && !(path + '/').contains("/./") &&
           !path.contains("//") && !path.endsWith('/');
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
    if (!originalBytes.isEmpty())
        record.insert(QStringLiteral("originalBytes"), base64(originalBytes));
    if (ownerUid >= 0)
        record.insert(QStringLiteral("uid"), ownerUid);
    if (ownerGid >= 0)
        record.insert(QStringLiteral("gid"), ownerGid);
    if (mode >= 0)
        record.insert(QStringLiteral("mode"), mode);
    if (isSet(accessed))
        record.insert(QStringLiteral("atime"), timeText(accessed));
    if (isSet(modified))
        record.insert(QStringLiteral("mtime"), timeText(modified));
    if (user >= 0)
        record.insert(QStringLiteral("user"), user);
    if (isReplaced)
        record.insert(QStringLiteral("replaced"), true);
    QJsonObject texts;
    for (auto it = attributes.cbegin(); it != attributes.cend(); ++it)
        texts.insert(QString::fromUtf8(it.key()), base64(it.value()));
    if (!texts.isEmpty())
        record.insert(QStringLiteral("xattrs"), texts);
    return record;
}

QByteArray VaultFile::pathBytes() const
{
    return originalBytes.isEmpty() ? originalPath.toUtf8() : originalBytes;
}

void VaultFile::setPath(const QByteArray &path)
{
    originalPath = QString::fromUtf8(path);
    fileName = originalPath.section(QLatin1Char('/'), -1);
    originalBytes = originalPath.toUtf8() == path ? QByteArray() : path;
}

void VaultFile::setAttributes(const struct stat &info)
{
    ownerUid = info.st_uid;
    ownerGid = info.st_gid;
    mode = int(info.st_mode & 07777);
    accessed = info.st_atim;
    modified = info.st_mtim;
}

bool parseRecord(const QJsonObject &record, const QString &id, VaultFile *file, QString *error)
{
    if (record.isEmpty())
        return fail(error, QStringLiteral("记录为空"));
    for (const char *key : {"id", "fileName", "originalPath", "originalState", "originalBytes"})
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
    read.originalBytes =
        QByteArray::fromBase64(record.value(QLatin1String("originalBytes")).toString().toLatin1());
    if (!read.originalBytes.isEmpty() && !isPathOfBytes(read.originalBytes))
        return fail(error, QStringLiteral("原始路径无效"));
    read.fileName = record.value(QLatin1String("fileName"))
                        .toString(read.originalPath.section(QLatin1Char('/'), -1));
    if (!isFileName(read.fileName))
        return fail(error, QStringLiteral("文件名无效"));
    read.fileSize = core::toInt64(record.value(QLatin1String("fileSize")));
    read.deletedAt = core::toInt64(record.value(QLatin1String("deletedAt")));
    read.originalState = record.value(QLatin1String("originalState")).toString();
    readAttributes(record, &read);
    *file = read;
    return true;
}

bool isFileName(const QString &name)
{
    return !name.isEmpty() && name != QLatin1String(".") && name != QLatin1String("..") &&
           !name.contains(QLatin1Char('/')) && !name.contains(QChar(QChar::Null)) &&
           QFile::encodeName(name).size() <= kMaxNameBytes;
}

quint64 originalInodeOf(const VaultFile &file)
{
    return file.originalState.section(QLatin1Char(':'), 1, 1).toULongLong();
}

QString stateText(const struct stat &info)
{
    return QStringLiteral("%1:%2:%3:%4:%5")
        .arg(quint64(info.st_dev))
        .arg(quint64(info.st_ino))
        .arg(qint64(info.st_size))
        .arg(timeText(info.st_mtim), timeText(info.st_ctim));
}

} // namespace vaultd
} // namespace services
