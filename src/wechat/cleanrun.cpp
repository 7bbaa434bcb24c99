#include "wechat/cleanrun.h"

#include "wechat/cleanlock.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#include <fcntl.h>
#include <unistd.h>

namespace wechat {

CleanRun::CleanRun(FileOperations &operations, const CleanFolders &folders, StopFunction shouldStop,
                   ProgressFunction progress)
    : m_operations(operations)
    , m_folders(folders)
    , m_shouldStop(std::move(shouldStop))
    , m_progress(std::move(progress))
    , m_journal(operations, folders)
{}

CleanOutcome CleanRun::run(const QList<CleanAction> &actions)
{
    CleanLock lock(m_folders);
    const CleanLock::Result locked = lock.lock(m_shouldStop);
    if (locked == CleanLock::Result::Locked)
        mergeAll(actions);
    else if (locked == CleanLock::Result::Busy)
        m_outcome.errors.append(CleanLock::busyMessage());
    else
        m_outcome.errors.append(recordWriteError(m_folders.top));
    return m_outcome;
}

void CleanRun::mergeAll(const QList<CleanAction> &actions)
{
    m_record.sessionId = createSessionId(m_folders);
    for (const CleanAction &action : actions)
        m_total += action.pathCount();
    const JournalContent content = journalContent(actions);
    flushKeptFiles(actions);
    // Without a journal a crash could leave a file under its backup name for good.
    if (!m_journal.begin(content)) {
        m_outcome.errors.append(
            recordWriteError(QFileInfo(m_folders.recordPath(content.id)).fileName()));
        return;
    }
    for (int index = 0; index < actions.size() && !m_shouldStop(); ++index) {
        const int before = m_done;
        cleanAction(index, actions.at(index));
        if (!m_shouldStop())
            advance(before + actions.at(index).pathCount() - m_done);
    }
    finish();
}

JournalContent CleanRun::journalContent(const QList<CleanAction> &actions)
{
    JournalContent content;
    content.id = m_record.sessionId;
    for (const CleanAction &action : actions) {
        JournalAction entry;
        entry.keepPath = cleanedPaths({action.keepPath}).value(0, QStringLiteral("/"));
        entry.size = action.size;
        entry.hash = action.hash;
        const FileIdentity kept = identify(m_operations, action.keepPath);
        m_keptAtStart.append(kept);
        for (const QStringList &group : action.groups) {
            QList<JournalPath> paths;
            for (const QString &path : group) {
                const FileIdentity found = identify(m_operations, path);
                m_inodesAtStart.insert(path, found.inode);
                if (found.isValid() && !found.sameFile(kept))
                    paths.append({path, found.inode});
            }
            if (!paths.isEmpty())
                entry.groups.append(paths);
        }
        content.actions.append(entry);
    }
    return content;
}

/// A copy goes for the sake of the kept file, so that one must have reached the disk. One flush a
/// file system is cheaper than one a file.
void CleanRun::flushKeptFiles(const QList<CleanAction> &actions)
{
    QSet<dev_t> tried;
    for (int index = 0; index < actions.size() && !m_shouldStop(); ++index) {
        const FileIdentity &kept = m_keptAtStart.at(index);
        if (!kept.regular || tried.contains(kept.device))
            continue;
        tried.insert(kept.device);
        if (flushFileSystem(m_operations, actions.at(index).keepPath))
            m_flushedDevices.insert(kept.device);
    }
}

/// The names must be on the disk before the journal goes that could put them right.
bool CleanRun::flushNames()
{
    bool ok = true;
    for (const QString &kept : qAsConst(m_keptOfTouched))
        ok = flushFileSystem(m_operations, kept) && ok;
    return ok;
}

bool CleanRun::isDurable(int index, const KeptFile &keep)
{
    if (keep.identity.unchanged(m_keptAtStart.at(index)) &&
        m_flushedDevices.contains(keep.identity.device))
        return true;
    const int fd =
        m_operations.open(QFile::encodeName(keep.path), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0)
        return false;
    const bool ok = m_operations.fsync(fd) == 0;
    ::close(fd);
    return ok;
}

void CleanRun::cleanAction(int index, const CleanAction &action)
{
    KeptFile keep;
    if (!verifyKept(index, action, &keep))
        return;
    MergedAction merged;
    merged.keepPath = action.keepPath;
    merged.size = action.size;
    merged.hash = QString::fromLatin1(keep.hash.toHex());
    m_journal.noteHash(index, merged.hash);
    for (const QStringList &group : action.groups) {
        if (m_shouldStop())
            break;
        if (!group.isEmpty())
            cleanGroup(keep, group, &merged);
    }
    if (!merged.mergedPaths.isEmpty())
        m_record.actions.append(merged);
}

bool CleanRun::verifyKept(int index, const CleanAction &action, KeptFile *keep)
{
    struct stat info;
    if (m_operations.stat(QFile::encodeName(action.keepPath), &info) != 0) {
        m_outcome.errors.append(QStringLiteral("保留文件不存在：%1").arg(action.keepPath));
        return false;
    }
    keep->path = action.keepPath;
    keep->size = action.size;
    keep->identity = identify(m_operations, action.keepPath);
    const bool regular = keep->identity.regular;
    if (regular)
        keep->hash = m_operations.fullHash(action.keepPath, m_shouldStop);
    if (regular && keep->hash.isEmpty() && m_shouldStop())
        return false;
    // What is no regular file has taken the place of the one that the scan saw.
    const QByteArray expected = action.hash.toLatin1();
    const bool changed = !regular || (!expected.isEmpty() && keep->hash.toHex() != expected) ||
                         !identify(m_operations, action.keepPath).unchanged(keep->identity);
    if (regular && (keep->hash.isEmpty() || (!changed && !isDurable(index, *keep)))) {
        m_outcome.errors.append(QStringLiteral("无法读取保留文件：%1").arg(action.keepPath));
        return false;
    }
    if (changed)
        m_outcome.errors.append(
            QStringLiteral("保留文件内容已发生变化，已跳过：%1").arg(action.keepPath));
    return !changed;
}

void CleanRun::cleanGroup(const KeptFile &keep, const QStringList &paths, MergedAction *merged)
{
    const int before = m_done;
    QList<QPair<QString, FileIdentity>> verified;
    m_hashed.clear();
    for (const QString &path : paths) {
        FileIdentity identity;
        const QString error = verifyPath(keep, path, &identity);
        if (m_shouldStop())
            return;
        if (!error.isEmpty()) {
            m_outcome.errors.append(error);
            advance(paths.size());
            return;
        }
        verified.append({path, identity});
    }
    int failed = 0;
    int mergedHere = 0;
    for (const auto &entry : qAsConst(verified)) {
        if (m_shouldStop())
            break;
        QString error;
        const MergeResult result = mergePath(m_operations, m_releaser, keep, m_record.sessionId,
                                             entry.first, entry.second, &error);
        if (result == MergeResult::Merged) {
            merged->mergedPaths.append(entry.first);
            ++m_outcome.mergedCount;
            ++mergedHere;
        } else if (result != MergeResult::AlreadyLinked) {
            m_outcome.errors.append(error);
            ++failed;
        }
        if (result != MergeResult::AlreadyLinked)
            m_keptOfTouched.insert(keep.identity.device, keep.path);
        m_leftover = m_leftover || result == MergeResult::LeftUnderBackup;
        advance(1);
    }
    const bool complete = m_done - before == paths.size() && failed == 0;
    if (complete && mergedHere > 0)
        m_outcome.reclaimedBytes += keep.size;
}

/// Returns what speaks against the path, or nothing.
QString CleanRun::verifyPath(const KeptFile &keep, const QString &path, FileIdentity *identity)
{
    struct stat info;
    if (m_operations.stat(QFile::encodeName(path), &info) != 0 || !S_ISREG(info.st_mode))
        return QStringLiteral("副本文件不存在：%1").arg(path);
    *identity = identify(m_operations, path);
    if (!identity->regular)
        return QStringLiteral("副本已是软链接，已跳过：%1").arg(path);
    // A link to the kept file needs no change.
    if (identity->sameFile(keep.identity))
        return QString();
    // The journal knows the file that had the name at the start, and only that one is put back.
    if (identity->inode != m_inodesAtStart.value(path) ||
        contentHash(path, *identity) != keep.hash ||
        !identify(m_operations, path).unchanged(*identity))
        return QStringLiteral("二次校验失败，已跳过：%1").arg(path);
    if (!sameFileSystem(m_operations, keep.path, path))
        return QStringLiteral("当前版本不支持跨分区合并：%1").arg(path);
    return QString();
}

/// Several names of one file need one read.
QByteArray CleanRun::contentHash(const QString &path, const FileIdentity &identity)
{
    for (const Verified &known : qAsConst(m_hashed)) {
        if (known.identity.unchanged(identity))
            return known.hash;
    }
    const QByteArray hash = m_operations.fullHash(path, m_shouldStop);
    m_hashed.append({identity, hash});
    return hash;
}

void CleanRun::finish()
{
    m_releaser.wait();
    bool recordLost = false;
    if (!m_record.actions.isEmpty()) {
        const bool whole = m_outcome.errors.isEmpty() && !m_shouldStop();
        m_record.status = whole ? QStringLiteral("active") : QStringLiteral("partial");
        m_record.createdAt = QDateTime::currentDateTime().toString(Qt::ISODate);
        m_record.reclaimedBytes = m_outcome.reclaimedBytes;
        m_outcome.sessionId = m_record.sessionId;
        recordLost = !writeRecord(m_operations, m_folders, m_record.sessionId, m_record.toJson());
        if (recordLost)
            m_outcome.errors.append(
                recordWriteError(QFileInfo(m_folders.recordPath(m_record.sessionId)).fileName()));
    }
    // A journal that still has something to tell stays for the next start.
    if (!m_leftover && !recordLost && flushNames())
        m_journal.clear();
}

void CleanRun::advance(int paths)
{
    if (paths <= 0)
        return;
    m_done += paths;
    m_progress(m_done, m_total);
}

} // namespace wechat
