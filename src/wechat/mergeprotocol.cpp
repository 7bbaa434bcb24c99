#include "wechat/mergeprotocol.h"

#include <QFile>

#include <fcntl.h>

namespace wechat {

namespace {

constexpr qint64 kWorthAThread = 256 * 1024;

bool keptIsUnchanged(FileOperations &operations, const KeptFile &keep)
{
    return identify(operations, keep.path).unchanged(keep.identity);
}

/// Only what also has another name may go from under the backup name.
bool clearBackup(FileOperations &operations, const KeptFile &keep, const QString &backup)
{
    const FileIdentity found = identify(operations, backup);
    if (!found.isValid())
        return true;
    return found.sameFile(keep.identity) && backup != keep.path &&
           operations.unlink(QFile::encodeName(backup)) == 0;
}

/// The link stands, the content behind it is the one that was hashed, and the old copy has not been
/// written to under its backup name either.
bool linkStands(FileOperations &operations, const KeptFile &keep, const QString &path,
                const QString &backup, const FileIdentity &verified)
{
    const FileIdentity linked = identify(operations, path);
    return linked.unchanged(keep.identity) && linked.size == keep.size &&
           identify(operations, backup).unchanged(verified);
}

/// Removes the old copy. While it is open its room stays taken, and freeing it can wait.
bool removeBackup(FileOperations &operations, SpaceReleaser &releaser, const QByteArray &backup,
                  qint64 size)
{
    const int fd =
        size >= kWorthAThread ? operations.open(backup, O_RDONLY | O_NOFOLLOW | O_NONBLOCK) : -1;
    const bool removed = operations.unlink(backup) == 0;
    if (fd >= 0)
        releaser.close(fd);
    return removed;
}

QString rollBackError(const QString &backup)
{
    return QStringLiteral("创建硬链接失败且自动回滚失败，请手动检查备份文件：%1").arg(backup);
}

/// The file that may be removed from under `path` to put the backup back: the one that has the kept
/// name now, since it loses nothing with a second name, else the one that was hashed.
FileIdentity replaceableLink(FileOperations &operations, const KeptFile &keep, const QString &path)
{
    const FileIdentity kept = identify(operations, keep.path);
    const FileIdentity linked = identify(operations, path);
    const bool hasKeptName = kept.regular && kept.links >= 2 && linked.sameFile(kept);
    return hasKeptName && path != keep.path ? linked : keep.identity;
}

MergeResult rollBack(FileOperations &operations, const KeptFile &keep, const QString &path,
                     const QString &backup, const QString &reason, QString *error)
{
    const FileIdentity link = replaceableLink(operations, keep, path);
    const Placement placement = putInPlaceOf(operations, backup, path, link);
    *error = reason;
    if (placement == Placement::Placed)
        return keptIsUnchanged(operations, keep) ? MergeResult::Refused : MergeResult::KeptChanged;
    if (placement == Placement::Refused)
        *error = rollBackError(backup);
    return MergeResult::LeftUnderBackup;
}

} // namespace

QString keptChangedError(const QString &keepPath)
{
    return QStringLiteral("保留文件内容已发生变化，已跳过：%1").arg(keepPath);
}

QString backupPath(const QString &path, const QString &sessionId)
{
    return path + QStringLiteral(".morvane_tmp_") + sessionId;
}

MergeResult mergePath(FileOperations &operations, SpaceReleaser &releaser, const KeptFile &keep,
                      const QString &sessionId, const QString &path, const FileIdentity &verified,
                      QString *error)
{
    const QString changed = QStringLiteral("二次校验失败，已跳过：%1").arg(path);
    const FileIdentity now = identify(operations, path);
    if (now.sameFile(keep.identity))
        return MergeResult::AlreadyLinked;
    if (!keptIsUnchanged(operations, keep)) {
        *error = keptChangedError(keep.path);
        return MergeResult::KeptChanged;
    }
    if (!now.unchanged(verified)) {
        *error = changed;
        return MergeResult::Refused;
    }
    const QString backup = backupPath(path, sessionId);
    const QByteArray name = QFile::encodeName(path);
    const QByteArray backupName = QFile::encodeName(backup);
    if (!clearBackup(operations, keep, backup) ||
        operations.renameNoReplace(name, backupName) != 0) {
        *error = QStringLiteral("无法创建临时备份：%1").arg(path);
        return MergeResult::Refused;
    }
    // Another file may have taken the name between the look and the rename.
    if (!identify(operations, backup).unchanged(verified))
        return rollBack(operations, keep, path, backup, changed, error);
    if (operations.link(QFile::encodeName(keep.path), name) == 0 &&
        linkStands(operations, keep, path, backup, verified) &&
        removeBackup(operations, releaser, backupName, keep.size))
        return MergeResult::Merged;
    return rollBack(operations, keep, path, backup, QStringLiteral("创建硬链接失败：%1").arg(path),
                    error);
}

MergeResult swapForLink(FileOperations &operations, const KeptFile &keep, const QString &sessionId,
                        const QString &path, const FileIdentity &verified, QString *error)
{
    const QString backup = backupPath(path, sessionId);
    const QByteArray name = QFile::encodeName(path);
    const QByteArray backupName = QFile::encodeName(backup);
    if (!keptIsUnchanged(operations, keep) || !identify(operations, path).unchanged(verified) ||
        operations.link(QFile::encodeName(keep.path), backupName) != 0)
        return MergeResult::Refused;
    const FileIdentity link = identify(operations, backup);
    if (link.unchanged(keep.identity) && link.size == keep.size &&
        operations.exchange(backupName, name) == 0) {
        if (linkStands(operations, keep, path, backup, verified) &&
            operations.unlink(backupName) == 0)
            return MergeResult::Merged;
        // Whatever was swapped out gets its name back.
        if (!identify(operations, path).sameFile(link) ||
            operations.exchange(backupName, name) != 0) {
            *error = rollBackError(backup);
            return MergeResult::LeftUnderBackup;
        }
    }
    if (identify(operations, backup).sameFile(link))
        operations.unlink(backupName);
    return MergeResult::Refused;
}

} // namespace wechat
