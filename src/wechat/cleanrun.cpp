#include "wechat/cleanrun.h"

#include "wechat/cleanlock.h"
#include "wechat/pathprobe.h"
#include "wechat/spacereserve.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace wechat {

namespace {

constexpr int kMostEarly = 16; // Actions; the largest ones, so one is mostly enough.

/// Of the directory, or of the first one above it that exists.
dev_t deviceOf(FileOperations &operations, QString directory)
{
    struct stat info;
    while (operations.stat(QFile::encodeName(directory), &info) != 0) {
        if (directory.size() <= 1)
            return 0;
        directory = QFileInfo(directory).path();
    }
    return info.st_dev;
}

QString unreadableKept()
{
    return QStringLiteral("无法读取保留文件：%1");
}

} // namespace

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
    CleanLock::Result locked = lock.lock(m_shouldStop);
    if (locked == CleanLock::Result::Unavailable && isNoSpace(lock.error()))
        makeRoom(actions, [&] {
            locked = lock.lock(m_shouldStop);
            return locked != CleanLock::Result::Unavailable;
        });
    if (locked == CleanLock::Result::Locked) {
        mergeAll(actions);
        return m_outcome;
    }
    m_outcome.errors.append(locked == CleanLock::Result::Busy
                                ? CleanLock::busyMessage()
                                : recordWriteError(m_folders.top, lock.error()));
    writeRecordOfRun();
    return m_outcome;
}

void CleanRun::prepare(const QList<CleanAction> &actions)
{
    if (!m_record.sessionId.isEmpty())
        return;
    m_record.sessionId = createSessionId(m_folders);
    for (const CleanAction &action : actions)
        m_total += action.pathCount();
    m_content = describe(actions);
    flushKeptFiles(actions);
}

void CleanRun::mergeAll(const QList<CleanAction> &actions)
{
    prepare(actions);
    // Without a journal a crash could leave a file under its backup name for good.
    if (!beginJournal(actions)) {
        m_outcome.errors.append(recordWriteError(
            QFileInfo(m_folders.recordPath(m_content.id)).fileName(), m_journal.error()));
        writeRecordOfRun();
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

bool CleanRun::beginJournal(const QList<CleanAction> &actions)
{
    return m_journal.begin(m_content) || (isNoSpace(m_journal.error()) && makeRoom(actions, [this] {
                                              return m_journal.begin(m_content);
                                          }));
}

/// Merges the largest copies on the file system of the journal one by one until there is enough
/// room.
bool CleanRun::makeRoom(const QList<CleanAction> &actions, const std::function<bool()> &isEnough)
{
    prepare(actions);
    QList<int> bySize;
    for (int index = 0; index < actions.size(); ++index)
        bySize.append(index);
    std::stable_sort(bySize.begin(), bySize.end(),
                     [&actions](int a, int b) { return actions.at(a).size > actions.at(b).size; });
    for (int index : QList<int>(bySize.mid(0, kMostEarly))) {
        if (m_shouldStop())
            break;
        if (!m_early.contains(index) && mergeEarly(index, actions.at(index)) && isEnough())
            return true;
    }
    return false;
}

/// What speaks against the files of the action is reported when its turn comes.
bool CleanRun::mergeEarly(int index, const CleanAction &action)
{
    KeptFile keep;
    const QStringList errors = m_outcome.errors;
    const bool isKept = verifyKept(index, action, &keep) &&
                        keep.identity.device == deviceOf(m_operations, m_folders.top);
    m_outcome.errors = errors;
    m_hashed.clear();
    for (int i = 0; isKept && i < action.groups.size() && !m_shouldStop(); ++i) {
        // A file with further names would free nothing.
        const QString path = action.groups.at(i).value(0);
        FileIdentity identity;
        if (action.groups.at(i).size() != 1 || !verifyPath(keep, path, &identity).isEmpty() ||
            identity.sameFile(keep.identity) || identity.links != 1)
            continue;
        QString error;
        const MergeResult result =
            swapForLink(m_operations, keep, m_record.sessionId, path, identity, &error);
        if (result == MergeResult::LeftUnderBackup)
            m_outcome.errors.append(error);
        if (result != MergeResult::Merged)
            continue;
        m_touched.note(keep.identity.device, keep.path);
        MergedAction merged;
        merged.keepPath = action.keepPath;
        merged.size = action.size;
        merged.hash = QString::fromLatin1(keep.hash.toHex());
        merged.mergedPaths.append(path);
        m_early.insert(index, merged);
        ++m_outcome.mergedCount;
        m_outcome.reclaimedBytes += keep.size;
        return true;
    }
    return false;
}

JournalContent CleanRun::describe(const QList<CleanAction> &actions)
{
    JournalContent content;
    content.id = m_record.sessionId;
    QStringList all;
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
                all.append(path);
                if (found.isValid() && !found.sameFile(kept))
                    paths.append({path, found.inode});
            }
            if (!paths.isEmpty())
                entry.groups.append(paths);
        }
        all.append(entry.keepPath);
        content.actions.append(entry);
    }
    content.mountPoints = mountPointsOf(m_operations, all);
    m_record.mountPoints = content.mountPoints;
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
    MergedAction merged = m_early.take(index);
    merged.keepPath = action.keepPath;
    merged.size = action.size;
    merged.hash = QString::fromLatin1(keep.hash.toHex());
    m_journal.noteHash(index, merged.hash);
    const QString changed = keptChangedError(action.keepPath);
    for (int i = 0; i < action.groups.size() && !m_shouldStop(); ++i) {
        const QStringList &group = action.groups.at(i);
        if (group.isEmpty() || cleanGroup(keep, group, &merged))
            continue;
        // Reported unless it is the message of the last copy already.
        if (i + 1 < action.groups.size() && m_outcome.errors.last() != changed)
            m_outcome.errors.append(changed);
        break;
    }
    if (!merged.mergedPaths.isEmpty())
        m_record.actions.append(merged);
}

bool CleanRun::verifyKept(int index, const CleanAction &action, KeptFile *keep)
{
    struct stat info;
    if (m_operations.stat(QFile::encodeName(action.keepPath), &info) != 0) {
        const QString reason =
            isGone(errno) ? QStringLiteral("保留文件不存在：%1") : unreadableKept();
        m_outcome.errors.append(reason.arg(action.keepPath));
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
        m_outcome.errors.append(unreadableKept().arg(action.keepPath));
        return false;
    }
    if (changed)
        m_outcome.errors.append(keptChangedError(action.keepPath));
    return !changed;
}

/// False once the kept file has changed: nothing may be linked to it any more.
bool CleanRun::cleanGroup(const KeptFile &keep, const QStringList &paths, MergedAction *merged)
{
    QList<VerifiedPath> verified;
    m_hashed.clear();
    for (const QString &path : paths) {
        FileIdentity identity;
        const QString error = verifyPath(keep, path, &identity);
        if (m_shouldStop())
            return true;
        if (!error.isEmpty()) {
            m_outcome.errors.append(error);
            advance(paths.size());
            return true;
        }
        verified.append({path, identity});
    }
    return mergeGroup(keep, verified, merged);
}

bool CleanRun::mergeGroup(const KeptFile &keep, const QList<VerifiedPath> &paths,
                          MergedAction *merged)
{
    int settled = 0;
    int mergedHere = 0;
    bool keptChanged = false;
    for (const VerifiedPath &entry : paths) {
        if (m_shouldStop() || keptChanged)
            break;
        QString error;
        const MergeResult result = mergePath(m_operations, m_releaser, keep, m_record.sessionId,
                                             entry.path, entry.identity, &error);
        if (result == MergeResult::Merged) {
            merged->mergedPaths.append(entry.path);
            ++m_outcome.mergedCount;
            ++mergedHere;
        } else if (result != MergeResult::AlreadyLinked) {
            m_outcome.errors.append(error);
        }
        if (result == MergeResult::Merged || result == MergeResult::AlreadyLinked)
            ++settled;
        if (result != MergeResult::AlreadyLinked)
            m_touched.note(keep.identity.device, keep.path);
        m_leftover = m_leftover || result == MergeResult::LeftUnderBackup;
        keptChanged = result == MergeResult::KeptChanged;
        advance(1);
    }
    if (settled == paths.size() && mergedHere > 0)
        m_outcome.reclaimedBytes += keep.size;
    return !keptChanged;
}

/// Returns what speaks against the path, or nothing.
QString CleanRun::verifyPath(const KeptFile &keep, const QString &path, FileIdentity *identity)
{
    struct stat info;
    const bool isFound = m_operations.stat(QFile::encodeName(path), &info) == 0;
    if (!isFound && !isGone(errno))
        return QStringLiteral("无法访问副本文件：%1").arg(path);
    if (!isFound || !S_ISREG(info.st_mode))
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
    const int errors = m_outcome.errors.size();
    writeRecordOfRun();
    const bool recordLost = m_outcome.errors.size() > errors;
    // A journal that still has something to repair stays for the next start. Until the names are
    // on the disk, that may be any of them.
    if (!m_leftover && !recordLost && m_touched.flush(m_operations))
        m_journal.clear();
    SpaceReserve(m_operations, m_folders).refill();
}

void CleanRun::writeRecordOfRun()
{
    // Those whose turn has not come.
    m_record.actions += m_early.values();
    m_early.clear();
    if (m_record.actions.isEmpty())
        return;
    const bool whole = m_outcome.errors.isEmpty() && !m_shouldStop();
    m_record.status = whole ? QStringLiteral("active") : QStringLiteral("partial");
    m_record.createdAt = QDateTime::currentDateTime().toString(Qt::ISODate);
    m_record.reclaimedBytes = m_outcome.reclaimedBytes;
    m_outcome.sessionId = m_record.sessionId;
    QString error;
    if (!writeRecord(m_operations, m_folders, m_record.sessionId, m_record.toJson(), &error))
        m_outcome.errors.append(error);
}

void CleanRun::advance(int paths)
{
    if (paths <= 0)
        return;
    m_done += paths;
    m_progress(m_done, m_total);
}

} // namespace wechat
