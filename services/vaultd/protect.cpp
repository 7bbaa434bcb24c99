#include "vaultd/protect.h"

#include "common/text.h"
#include "core/pathutil.h"
#include "vaultd/failure.h"
#include "vaultd/filecopy.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <unistd.h>

namespace services {
namespace vaultd {

namespace {

/// Across file systems. The original goes only if it is still what was copied.
bool copyIn(const VaultLayout &layout, const VaultFile &file, QString *error)
{
    static const std::atomic<bool> never{false};
    const QString changed = QStringLiteral("文件在保护过程中被修改");
    OutputFile output(layout.folder(), VaultLayout::unfinishedContentName(file.id));
    struct stat info;
    if (!output.open(error, 0600) || !copyInto(file.originalPath, output, &info, never, error))
        return false;
    if (stateText(info) != file.originalState)
        return fail(error, changed);
    if (output.publish(VaultLayout::contentName(file.id), error) != OutputFile::Publish::Done)
        return false;
    // As short as can be between the last look at the original and its end.
    const bool isSynced = syncDirectory(layout.folder());
    struct stat now;
    const bool isThere = look(file.originalPath, &now);
    if (!isSynced)
        fail(error, QStringLiteral("保护区未能写入磁盘"));
    else if (isThere && stateText(now) != file.originalState)
        fail(error, changed);
    else if (!isThere || ::unlink(QFile::encodeName(file.originalPath).constData()) == 0)
        return true;
    else
        fail(error, QStringLiteral("无法移走原文件"), errno);
    ::unlink(QFile::encodeName(layout.content(file.id)).constData());
    return false;
}

bool moveIn(const VaultLayout &layout, const VaultFile &file, QString *error)
{
    const QByteArray original = QFile::encodeName(file.originalPath);
    const QByteArray content = QFile::encodeName(layout.content(file.id));
    if (::rename(original.constData(), content.constData()) == 0) {
        if (isPlainFile(layout.content(file.id)))
            return true;
        // Something else took the name between the look and the move.
        renameToFree(content, original);
        return fail(error, QStringLiteral("只能保护普通文件：%1").arg(file.originalPath));
    }
    if (errno == EXDEV)
        return copyIn(layout, file, error);
    return fail(error, QStringLiteral("无法移入保护区"), errno);
}

} // namespace

bool protectFile(const VaultLayout &layout, const QString &path, qint64 now, VaultFile *file,
                 QString *error)
{
    struct stat info;
    const QFileInfo named(path);
    const QString folder = QFileInfo(named.absolutePath()).canonicalFilePath();
    if (folder.isEmpty() || !isFileName(named.fileName()) || !look(path, &info))
        return fail(error, QStringLiteral("无法保护 %1").arg(path), ENOENT);
    if (!S_ISREG(info.st_mode))
        return fail(error, QStringLiteral("只能保护普通文件：%1").arg(path));
    if (core::isInside(folder, layout.root()))
        return fail(error, QStringLiteral("文件已在保护区中：%1").arg(path));

    VaultFile taken;
    taken.id = newId();
    taken.fileName = named.fileName();
    taken.originalPath = folder +
                         (folder.endsWith(QLatin1Char('/')) ? QString() : QStringLiteral("/")) +
                         taken.fileName;
    taken.fileSize = qint64(info.st_size);
    taken.deletedAt = now;
    taken.keptSince = now;
    taken.originalState = stateText(info);

    const VaultLock lock(layout);
    if (!lock.isHeld(error) || !writeRecord(layout, taken, error))
        return false;
    if (!moveIn(layout, taken, error)) {
        ::unlink(QFile::encodeName(layout.record(taken.id)).constData());
        return false;
    }
    syncDirectory(layout.folder());
    syncDirectory(folder);
    *file = taken;
    return true;
}

} // namespace vaultd
} // namespace services
