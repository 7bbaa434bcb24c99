#pragma once

#include "support/temptree.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <sys/stat.h>

namespace support {

/// Leaves two equal files of a home as a clean does that is killed after it has renamed the copy to
/// its backup name: with the journal, and nothing under the copy's name. Returns the backup.
inline QString interruptClean(TempTree &home, const QString &kept, const QString &copy)
{
    const QString id = QStringLiteral("20260102-030405-678");
    const QString path = home.path(copy);
    struct stat info = {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        qFatal("there is no copy");
    home.move(copy, copy + QStringLiteral(".morvane_tmp_") + id);
    const QJsonObject entry{
        {QStringLiteral("path"), path},
        {QStringLiteral("inode"), QString::number(static_cast<qulonglong>(info.st_ino))}};
    const QJsonObject action{
        {QStringLiteral("keepPath"), home.path(kept)},
        {QStringLiteral("size"), QString::number(static_cast<qlonglong>(info.st_size))},
        {QStringLiteral("hash"), QString()},
        {QStringLiteral("groups"), QJsonArray{QJsonArray{entry}}}};
    const QJsonObject journal{{QStringLiteral("version"), 1},
                              {QStringLiteral("kind"), QStringLiteral("clean")},
                              {QStringLiteral("id"), id},
                              {QStringLiteral("actions"), QJsonArray{action}}};
    home.file(QStringLiteral(".config/morvane/wechat_clean/journal/") + id +
                  QStringLiteral(".journal"),
              QJsonDocument(journal).toJson(QJsonDocument::Compact) + '\n');
    return home.path(copy + QStringLiteral(".morvane_tmp_") + id);
}

} // namespace support
