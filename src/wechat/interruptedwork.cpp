#include "wechat/interruptedwork.h"

#include "core/descriptor.h"
#include "wechat/cleanlock.h"
#include "wechat/filecopy.h"
#include "wechat/mergeprotocol.h"
#include "wechat/undorecord.h"
#include "wechat/undorun.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <cerrno>
#include <fcntl.h>

namespace wechat {

InterruptedWork::InterruptedWork(FileOperations &operations, const CleanFolders &folders,
                                 std::function<bool()> shouldStop)
    : m_operations(operations)
    , m_folders(folders)
    , m_shouldStop(std::move(shouldStop))
{}

RecoveryOutcome InterruptedWork::run()
{
    QStringList names;
    if (!listJournals(&names))
        return m_outcome;
    CleanLock lock(m_folders);
    const CleanLock::Result locked = lock.tryLock();
    if (locked == CleanLock::Result::Unavailable)
        m_outcome.errors.append(
            QStringLiteral("无法锁定清理日志，未作任何处理：%1").arg(m_folders.journal));
    if (locked != CleanLock::Result::Locked || !listJournals(&names))
        return m_outcome;
    for (const QString &name : qAsConst(names)) {
        if (m_shouldStop())
            break;
        const QString path = m_folders.journal + QLatin1Char('/') + name;
        // A journal that never got its name: nothing had been touched yet.
        if (name.endsWith(QLatin1String(".new")))
            m_operations.unlink(QFile::encodeName(path));
        else
            settle(path);
    }
    return m_outcome;
}

bool InterruptedWork::listJournals(QStringList *names)
{
    const core::Descriptor folder(
        m_operations.open(QFile::encodeName(m_folders.journal), O_RDONLY | O_DIRECTORY));
    if (!folder.isOpen()) {
        if (errno != ENOENT && errno != ENOTDIR)
            m_outcome.errors.append(QStringLiteral("无法读取清理日志：%1").arg(m_folders.journal));
        return false;
    }
    *names = QDir(m_folders.journal)
                 .entryList({QStringLiteral("*.journal"), QStringLiteral("*.journal.new")},
                            QDir::Files | QDir::Hidden | QDir::System, QDir::Name);
    return !names->isEmpty();
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
    const PathProbe probe(m_operations, content.mountPoints);
    const bool settled = content.kind == JournalContent::Kind::Clean ? settleClean(probe, content)
                                                                     : settleUndo(probe, content);
    if (settled && m_operations.unlink(QFile::encodeName(path)) != 0)
        m_outcome.errors.append(QStringLiteral("无法删除清理日志：%1").arg(path));
}

bool InterruptedWork::settleClean(const PathProbe &probe, const JournalContent &content)
{
    bool settled = true;
    for (const JournalAction &action : content.actions) {
        for (const QList<JournalPath> &group : action.groups) {
            for (const JournalPath &path : group) {
                if (m_shouldStop())
                    return false;
                settled = settleBackup(probe, content, action.keepPath, path) && settled;
            }
        }
    }
    return writeMissingRecord(probe, content) && settled;
}

bool InterruptedWork::settleUndo(const PathProbe &probe, const JournalContent &content)
{
    bool settled = true;
    for (const JournalAction &action : content.actions) {
        for (const JournalPath &path : action.groups.value(0)) {
            if (m_shouldStop())
                return false;
            settled = settleCopy(probe, action.keepPath, path.path) && settled;
        }
    }
    return noteUndo(probe, content) && settled;
}

/// False if something is left for the user to look at, or for the next start.
bool InterruptedWork::settleBackup(const PathProbe &probe, const JournalContent &content,
                                   const QString &keepPath, const JournalPath &path)
{
    const QString backup = backupPath(path.path, content.id);
    FileIdentity found;
    FileIdentity keep;
    FileIdentity present;
    const Presence presence = probe.presence(backup, &found);
    if (presence == Presence::Absent)
        return true;
    if (presence == Presence::Unknown || probe.presence(keepPath, &keep) == Presence::Unknown ||
        probe.presence(path.path, &present) == Presence::Unknown)
        return wait(path.path);
    return repairBackup(path, backup, found, keepPath, keep, present);
}

bool InterruptedWork::repairBackup(const JournalPath &path, const QString &backup,
                                   const FileIdentity &found, const QString &keepPath,
                                   const FileIdentity &keep, const FileIdentity &present)
{
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

/// False if something is left for the user to look at, or for the next start.
bool InterruptedWork::settleCopy(const PathProbe &probe, const QString &keepPath,
                                 const QString &path)
{
    const QString copy = restorePath(path);
    FileIdentity found;
    FileIdentity keep;
    const Presence presence = probe.presence(copy, &found);
    if (presence == Presence::Absent)
        return true;
    const Presence kept = probe.presence(keepPath, &keep);
    const Presence original = probe.presence(path);
    if (presence == Presence::Unknown || kept == Presence::Unknown || original == Presence::Unknown)
        return wait(path);
    if (!keep.regular || copy == keepPath || original == Presence::Absent)
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

/// Notes a folder that cannot be read now. False: the journal has to stay.
bool InterruptedWork::wait(const QString &path)
{
    const QString folder = QFileInfo(path).path();
    if (!m_outcome.unavailable.contains(folder))
        m_outcome.unavailable.append(folder);
    return false;
}

/// The clean can then be undone as far as it got. What it merged shows on the disk: a link to the
/// kept file under a name that had another file at the start.
bool InterruptedWork::writeMissingRecord(const PathProbe &probe, const JournalContent &content)
{
    const QString path = m_folders.recordPath(content.id);
    if (identify(m_operations, path).isValid())
        return true;
    if (errno != ENOENT) {
        m_outcome.errors.append(QStringLiteral("无法读取清理记录：%1").arg(path));
        return false;
    }
    OperationRecord record;
    bool known = true;
    for (const JournalAction &action : content.actions) {
        MergedAction merged;
        known = mergedAction(probe, action, &merged, &record.reclaimedBytes) && known;
        if (!merged.mergedPaths.isEmpty())
            record.actions.append(merged);
    }
    if (!known || record.actions.isEmpty())
        return known;
    record.sessionId = content.id;
    record.createdAt =
        QFileInfo(m_folders.journalPath(content.id)).lastModified().toString(Qt::ISODate);
    record.status = QStringLiteral("partial");
    record.mountPoints = content.mountPoints;
    QString error;
    const bool written = writeRecord(m_operations, m_folders, content.id, record.toJson(), &error);
    if (!written)
        m_outcome.errors.append(error);
    return written;
}

/// False if it cannot be told now which paths have been merged.
bool InterruptedWork::mergedAction(const PathProbe &probe, const JournalAction &action,
                                   MergedAction *merged, qint64 *reclaimed)
{
    merged->keepPath = action.keepPath;
    merged->size = action.size;
    merged->hash = action.hash;
    FileIdentity keep;
    if (!action.groups.isEmpty() && probe.presence(action.keepPath, &keep) == Presence::Unknown)
        return wait(action.keepPath);
    for (const QList<JournalPath> &group : action.groups) {
        int linked = 0;
        for (const JournalPath &path : group) {
            FileIdentity present;
            if (probe.presence(path.path, &present) == Presence::Unknown)
                return wait(path.path);
            if (!keep.regular || path.inode == keep.inode || path.path == action.keepPath ||
                !present.sameFile(keep))
                continue;
            merged->mergedPaths.append(path.path);
            ++linked;
        }
        if (linked > 0 && linked == group.size())
            *reclaimed += action.size;
    }
    return true;
}

/// The next undo of the record then asks only for the rest.
bool InterruptedWork::noteUndo(const PathProbe &probe, const JournalContent &content)
{
    QJsonObject record;
    if (content.session.isEmpty() || !readRecord(m_folders, content.session, &record) ||
        record.value(QStringLiteral("status")).toString() == QLatin1String("undone"))
        return true;
    QSet<QString> restored;
    for (const JournalAction &action : content.actions) {
        for (const JournalPath &path : action.groups.value(0)) {
            if (m_shouldStop())
                return false;
            if (wasRestored(probe, action.keepPath, path.path))
                restored.insert(path.path);
        }
    }
    if (restored.isEmpty())
        return true;
    noteRestored(&record, restored);
    record.insert(QStringLiteral("status"),
                  isUndoComplete(record) ? QStringLiteral("undone") : QStringLiteral("partial"));
    QString error;
    const bool written = writeRecord(m_operations, m_folders, content.session, record, &error);
    if (!written)
        m_outcome.errors.append(error);
    return written;
}

/// A file of its own with the content of the kept one.
bool InterruptedWork::wasRestored(const PathProbe &probe, const QString &keepPath,
                                  const QString &path)
{
    FileIdentity keep;
    FileIdentity present;
    return probe.presence(keepPath, &keep) == Presence::Present &&
           probe.presence(path, &present) == Presence::Present && keep.regular && present.regular &&
           !present.sameFile(keep) && present.size == keep.size && sameContent(path, keepPath);
}

} // namespace wechat
