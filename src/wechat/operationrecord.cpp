#include "wechat/operationrecord.h"

#include "core/descriptor.h"
#include "wechat/spacereserve.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QThread>

#include <cerrno>
#include <fcntl.h>

namespace wechat {

namespace {

constexpr qint64 kMaxRecordBytes = 256 * 1024 * 1024;

/// An id names a file of the folder and nothing else.
bool namesAFile(const QString &sessionId)
{
    return !sessionId.isEmpty() && !sessionId.contains(QLatin1Char('/')) &&
           !sessionId.contains(QChar(0));
}

/// Returns 0 or an errno value. The caller holds the lock, so that the temporary name is ours.
int replaceRecord(FileOperations &operations, const CleanFolders &folders, const QString &path,
                  const QByteArray &bytes)
{
    if (!QDir().mkpath(folders.operations))
        return errno;
    const QByteArray temporary = QFile::encodeName(path + QStringLiteral(".new"));
    const core::Descriptor file(
        operations.open(temporary, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK, 0600));
    if (!file.isOpen())
        return errno;
    if (writeAll(operations, file.get(), bytes) && operations.fsync(file.get()) == 0 &&
        operations.rename(temporary, QFile::encodeName(path)) == 0)
        return syncDirectory(operations, folders.operations) ? 0 : errno;
    const int code = errno;
    operations.unlink(temporary);
    return code;
}

} // namespace

CleanFolders::CleanFolders(const QString &home)
    : top((home.isEmpty() ? QDir::homePath() : home) +
          QStringLiteral("/.config/morvane/wechat_clean"))
    , operations(top + QStringLiteral("/operations"))
    , journal(top + QStringLiteral("/journal"))
    , reserve(top + QStringLiteral("/reserve"))
{}

QString CleanFolders::recordPath(const QString &sessionId) const
{
    return operations + QLatin1Char('/') + sessionId + QStringLiteral(".json");
}

QString CleanFolders::journalPath(const QString &id) const
{
    return journal + QLatin1Char('/') + id + QStringLiteral(".journal");
}

QJsonObject OperationRecord::toJson() const
{
    QJsonArray list;
    for (const MergedAction &action : actions) {
        QJsonObject entry;
        entry.insert(QStringLiteral("keepPath"), action.keepPath);
        entry.insert(QStringLiteral("size"), QString::number(action.size));
        entry.insert(QStringLiteral("hash"), action.hash);
        entry.insert(QStringLiteral("mergedPaths"), QJsonArray::fromStringList(action.mergedPaths));
        list.append(entry);
    }
    QJsonObject record;
    record.insert(QStringLiteral("sessionId"), sessionId);
    record.insert(QStringLiteral("createdAt"), createdAt);
    record.insert(QStringLiteral("groupCount"), list.size());
    record.insert(QStringLiteral("reclaimedBytes"), QString::number(reclaimedBytes));
    record.insert(QStringLiteral("status"), status);
    record.insert(QStringLiteral("actions"), list);
    if (!mountPoints.isEmpty())
        record.insert(QStringLiteral("mountPoints"), QJsonArray::fromStringList(mountPoints));
    return record;
}

bool isPlainPath(const QString &path)
{
    return path.startsWith(QLatin1Char('/')) && !path.contains(QChar(0)) &&
           QDir::cleanPath(path) == path;
}

QStringList plainPaths(const QJsonValue &array)
{
    QStringList result;
    const QJsonArray values = array.toArray();
    for (const QJsonValue &value : values) {
        if (isPlainPath(value.toString()))
            result.append(value.toString());
    }
    return result;
}

QString createSessionId(const CleanFolders &folders)
{
    for (;;) {
        const QString id =
            QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss-zzz"));
        if (!QFileInfo::exists(folders.recordPath(id)) &&
            !QFileInfo::exists(folders.journalPath(id)))
            return id;
        QThread::msleep(1);
    }
}

bool isGeneratedSessionId(const QString &id)
{
    static const QRegularExpression form(QStringLiteral("\\A[0-9]{8}-[0-9]{6}-[0-9]{3}\\z"));
    return form.match(id).hasMatch();
}

bool readRecord(const CleanFolders &folders, const QString &sessionId, QJsonObject *record)
{
    if (!namesAFile(sessionId))
        return false;
    const QString path = folders.recordPath(sessionId);
    const QFileInfo info(path);
    QFile file(path);
    if (!info.isFile() || info.size() > kMaxRecordBytes || !file.open(QIODevice::ReadOnly))
        return false;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll());
    if (!document.isObject())
        return false;
    *record = document.object();
    return true;
}

bool writeRecord(FileOperations &operations, const CleanFolders &folders, const QString &sessionId,
                 const QJsonObject &record, QString *error)
{
    const QByteArray bytes = QJsonDocument(record).toJson(QJsonDocument::Indented);
    int code = EINVAL;
    if (namesAFile(sessionId))
        code = SpaceReserve(operations, folders).use(bytes.size(), [&] {
            return replaceRecord(operations, folders, folders.recordPath(sessionId), bytes);
        });
    if (code != 0)
        *error = recordWriteError(QFileInfo(folders.recordPath(sessionId)).fileName(), code);
    return code == 0;
}

QString recordWriteError(const QString &fileName, int code)
{
    return withReason(QStringLiteral("无法写入清理记录：%1").arg(fileName), code);
}

} // namespace wechat
