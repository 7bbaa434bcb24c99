#include "wechat/operationrecord.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSaveFile>
#include <QThread>

namespace wechat {

namespace {

constexpr qint64 kMaxRecordBytes = 256 * 1024 * 1024;

/// An id names a file of the folder and nothing else.
bool namesAFile(const QString &sessionId)
{
    return !sessionId.isEmpty() && !sessionId.contains(QLatin1Char('/')) &&
           !sessionId.contains(QChar(0));
}

} // namespace

CleanFolders::CleanFolders(const QString &home)
    : top((home.isEmpty() ? QDir::homePath() : home) +
          QStringLiteral("/.config/morvane/wechat_clean"))
    , operations(top + QStringLiteral("/operations"))
    , journal(top + QStringLiteral("/journal"))
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
    return record;
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
                 const QJsonObject &record)
{
    if (!namesAFile(sessionId) || !QDir().mkpath(folders.operations))
        return false;
    const QByteArray bytes = QJsonDocument(record).toJson(QJsonDocument::Indented);
    QSaveFile file(folders.recordPath(sessionId));
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.flush() ||
        operations.fsync(file.handle()) != 0 || !file.commit())
        return false;
    return syncDirectory(operations, folders.operations);
}

QString recordWriteError(const QString &fileName)
{
    return QStringLiteral("无法写入清理记录：%1").arg(fileName);
}

} // namespace wechat
