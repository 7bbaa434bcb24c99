#include "wechat/interruptedwork.h"

#include "wechat/cleanlock.h"
#include "wechat/filecopy.h"
#include "wechat/mergeprotocol.h"
#include "wechat/undorun.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace wechat {

InterruptedWork::InterruptedWork(FileOperations &operations, const CleanFolders &folders,
                                 std::function<bool()> shouldStop)
    : m_operations(operations)
    , m_folders(folders)
    , m_shouldStop(std::move(shouldStop))
{}

RecoveryOutcome InterruptedWork::run()
{
    const QStringList filters{QStringLiteral("*.journal"), QStringLiteral("*.journal.new")};
    const QDir directory(m_folders.journal);
    const QDir::Filters kinds = QDir::Files | QDir::Hidden | QDir::System;
    if (directory.entryList(filters, kinds).isEmpty())
        return m_outcome;
    CleanLock lock(m_folders);
    if (lock.tryLock() != CleanLock::Result::Locked)
        return m_outcome;
    const QStringList names = directory.entryList(filters, kinds, QDir::Name);
    for (const QString &name : names) {
        if (m_shouldStop())
            break;
        const QString path = directory.absoluteFilePath(name);
        // A journal that never got its name: nothing had been touched yet.
        if (name.endsWith(QLatin1String(".new")))
            m_operations.unlink(QFile::encodeName(path));
        else
            settle(path);
    }
    return m_outcome;
}

void InterruptedWork::settle(const QString &path)
{
    JournalContent content;
    const MergeJournal::ReadResult result = MergeJournal::read(path, &content);
    if (result == MergeJournal::ReadResult::Unreadable) {
        m_outcome.errors.append(QStringLiteral("无法读取清理日志：%1").arg(path));
        return;
    }
    if (result == MergeJournal::ReadResult::Damaged) {
        m_outcome.errors.append(QStringLiteral("清理日志已损坏，未作任何处理：%1").arg(path));
        // Told once.
        m_operations.renameNoReplace(QFile::encodeName(path),
                                     QFile::encodeName(path + QStringLiteral(".damaged")));
        return;
    }
    const bool settled =
        content.kind == JournalContent::Kind::Clean ? settleClean(content) : settleUndo(content);
    if (settled && m_operations.unlink(QFile::encodeName(path)) != 0)
        m_outcome.errors.append(QStringLiteral("无法删除清理日志：%1").arg(path));
}

bool InterruptedWork::settleClean(const JournalContent &content)
{
    bool settled = true;
    for (const JournalAction &action : content.actions) {
        for (const QList<JournalPath> &group : action.groups) {
            for (const JournalPath &path : group) {
                if (m_shouldStop())
                    return false;
                settled = settleBackup(content, action.keepPath, path) && settled;
            }
        }
    }
    return writeMissingRecord(content) && settled;
}

bool InterruptedWork::settleUndo(const JournalContent &content)
{
    bool settled = true;
    for (const JournalAction &action : content.actions) {
        for (const JournalPath &path : action.groups.value(0)) {
            if (m_shouldStop())
                return false;
            settled = settleCopy(action.keepPath, path.path) && settled;
        }
    }
    return settled;
}

/// False if something is left for the user to look at.
bool InterruptedWork::settleBackup(const JournalContent &content, const QString &keepPath,
                                   const JournalPath &path)
{
    const QString backup = backupPath(path.path, content.id);
    const FileIdentity found = identify(m_operations, backup);
    if (!found.isValid())
        return true;
    const FileIdentity keep = identify(m_operations, keepPath);
    const FileIdentity present = identify(m_operations, path.path);
    const bool keptIsElsewhere = keep.regular && backup != keepPath;
    // A second name of a file that has its own: nothing depends on it.
    if (found.regular && (found.sameFile(present) || (keptIsElsewhere && found.sameFile(keep))))
        return remove(backup);
    // Device numbers change from one start of the machine to the next, inode numbers do not.
    if (!found.regular || path.inode == 0 || found.inode != path.inode)
        return leave(backup);
    if (!present.isValid())
        return restore(backup, path.path, FileIdentity());
    if (!keptIsElsewhere || keepPath == path.path || !present.sameFile(keep))
        return leave(backup);
    // The link stands. If the old copy says the same, the clean was about to remove it.
    if (sameContent(backup, path.path))
        return remove(backup);
    return !m_shouldStop() && restore(backup, path.path, keep);
}

/// False if something is left for the user to look at.
bool InterruptedWork::settleCopy(const QString &keepPath, const QString &path)
{
    const QString copy = restorePath(path);
    const FileIdentity found = identify(m_operations, copy);
    if (!found.isValid())
        return true;
    const FileIdentity keep = identify(m_operations, keepPath);
    if (!keep.regular || copy == keepPath || !identify(m_operations, path).isValid())
        return leave(copy);
    if (found.sameFile(keep) || isBeginningOf(m_operations, copy, keepPath))
        return remove(copy);
    return leave(copy);
}

bool InterruptedWork::sameContent(const QString &a, const QString &b)
{
    const QByteArray first = m_operations.fullHash(a, m_shouldStop);
    return !first.isEmpty() && first == m_operations.fullHash(b, m_shouldStop);
}

bool InterruptedWork::restore(const QString &backup, const QString &path, const FileIdentity &link)
{
    switch (putInPlaceOf(m_operations, backup, path, link)) {
    case Placement::Placed:
        m_outcome.restored.append(path);
        return flushNames(path);
    case Placement::Leftover:
        m_outcome.restored.append(path);
        return false;
    case Placement::Refused:
        break;
    }
    return leave(backup);
}

bool InterruptedWork::remove(const QString &leftover)
{
    if (m_operations.unlink(QFile::encodeName(leftover)) != 0)
        return leave(leftover);
    m_outcome.removed.append(leftover);
    return flushNames(leftover);
}

/// Before the journal goes. Where that cannot be, it stays for one more start.
bool InterruptedWork::flushNames(const QString &path)
{
    return syncDirectory(m_operations, QFileInfo(path).absolutePath());
}

bool InterruptedWork::leave(const QString &leftover)
{
    m_outcome.errors.append(QStringLiteral("请手动检查备份文件：%1").arg(leftover));
    return false;
}

/// The clean can then be undone as far as it got. What it merged shows on the disk: a link to the
/// kept file under a name that had another file at the start.
bool InterruptedWork::writeMissingRecord(const JournalContent &content)
{
    const QString path = m_folders.recordPath(content.id);
    if (QFileInfo::exists(path))
        return true;
    OperationRecord record;
    for (const JournalAction &action : content.actions) {
        const MergedAction merged = mergedAction(action, &record.reclaimedBytes);
        if (!merged.mergedPaths.isEmpty())
            record.actions.append(merged);
    }
    if (record.actions.isEmpty())
        return true;
    record.sessionId = content.id;
    record.createdAt =
        QFileInfo(m_folders.journalPath(content.id)).lastModified().toString(Qt::ISODate);
    record.status = QStringLiteral("partial");
    if (writeRecord(m_operations, m_folders, content.id, record.toJson()))
        return true;
    m_outcome.errors.append(recordWriteError(QFileInfo(path).fileName()));
    return false;
}

MergedAction InterruptedWork::mergedAction(const JournalAction &action, qint64 *reclaimed)
{
    MergedAction merged;
    merged.keepPath = action.keepPath;
    merged.size = action.size;
    merged.hash = action.hash;
    const FileIdentity keep = identify(m_operations, action.keepPath);
    for (const QList<JournalPath> &group : action.groups) {
        int linked = 0;
        for (const JournalPath &path : group) {
            if (!keep.regular || path.inode == keep.inode || path.path == action.keepPath ||
                !identify(m_operations, path.path).sameFile(keep))
                continue;
            merged.mergedPaths.append(path.path);
            ++linked;
        }
        if (linked > 0 && linked == group.size())
            *reclaimed += action.size;
    }
    return merged;
}

} // namespace wechat
