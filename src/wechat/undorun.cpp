#include "wechat/undorun.h"

#include "wechat/cleanlock.h"
#include "wechat/filecopy.h"
#include "wechat/spacereserve.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

#include <cerrno>

namespace wechat {

namespace {

constexpr int kMaxAside = 99;

/// What is left to restore.
QList<JournalAction> actionsOf(const QJsonObject &record)
{
    QList<JournalAction> result;
    const QJsonArray actions = record.value(QStringLiteral("actions")).toArray();
    for (const QJsonValue &value : actions) {
        const QJsonObject object = value.toObject();
        JournalAction action;
        action.keepPath = object.value(QStringLiteral("keepPath")).toString();
        QList<JournalPath> paths;
        const QStringList left = pathsToRestore(record, object);
        if (left.isEmpty() && !object.value(QStringLiteral("mergedPaths")).toArray().isEmpty())
            continue;
        for (const QString &path : left)
            paths.append({path, 0});
        action.groups.append(paths);
        result.append(action);
    }
    return result;
}

/// Only what the journal accepts; the undo itself refuses the rest.
JournalContent journalContent(const QList<JournalAction> &actions, const QString &id)
{
    JournalContent content;
    content.kind = JournalContent::Kind::Undo;
    content.id = id;
    for (const JournalAction &action : actions) {
        JournalAction entry;
        entry.keepPath = action.keepPath;
        QList<JournalPath> paths;
        for (const JournalPath &path : action.groups.value(0)) {
            if (isPlainPath(path.path))
                paths.append(path);
        }
        entry.groups.append(paths);
        if (isPlainPath(action.keepPath))
            content.actions.append(entry);
    }
    return content;
}

/// One directory entry under two spellings is no pair of links.
bool isSameEntry(const QString &a, const QString &b)
{
    const QFileInfo first(a);
    const QFileInfo second(b);
    return first.fileName() == second.fileName() &&
           QFileInfo(first.path()).canonicalFilePath() ==
               QFileInfo(second.path()).canonicalFilePath();
}

} // namespace

QString restorePath(const QString &path)
{
    return path + QStringLiteral(".morvane_restore_tmp");
}

UndoRun::UndoRun(FileOperations &operations, const CleanFolders &folders)
    : m_operations(operations)
    , m_folders(folders)
    , m_journal(operations, folders)
{}

UndoOutcome UndoRun::run(const QString &sessionId)
{
    CleanLock lock(m_folders);
    QJsonObject record;
    // Where no lock can be had, nobody can clean either.
    if (lock.lock([] { return false; }) == CleanLock::Result::Busy)
        m_outcome.errors.append(CleanLock::busyMessage());
    else if (!readRecord(m_folders, sessionId, &record))
        m_outcome.errors.append(QStringLiteral("无法读取清理记录"));
    else
        restoreAll(sessionId, record);
    return m_outcome;
}

void UndoRun::restoreAll(const QString &sessionId, QJsonObject record)
{
    const QList<JournalAction> actions = actionsOf(record);
    const QStringList mountPoints = plainPaths(record.value(QStringLiteral("mountPoints")));
    JournalContent content = journalContent(actions, createSessionId(m_folders));
    content.session = sessionId;
    content.mountPoints = mountPoints;
    // An undo loses nothing without a journal: what a crash leaves is a copy too many.
    if (!m_journal.begin(content))
        qWarning("[WechatClean] undo without a journal: %s",
                 qPrintable(qt_error_string(m_journal.error())));
    const PathProbe probe(m_operations, mountPoints);
    for (const JournalAction &action : actions)
        restoreAction(probe, action);
    // What the record calls restored has to be on the disk.
    const bool flushed = m_touched.flush(m_operations);
    m_outcome.restoredCount = m_tally.restored;
    const QJsonObject before = record;
    noteRestored(&record, m_restored);
    record.insert(QStringLiteral("status"), statusAfterUndo(record, m_tally));
    QString error;
    const bool recorded =
        record == before || writeRecord(m_operations, m_folders, sessionId, record, &error);
    if (!recorded)
        m_outcome.errors.append(error);
    if (!m_leftover && flushed && recorded)
        m_journal.clear();
    SpaceReserve(m_operations, m_folders).refill();
}

void UndoRun::restoreAction(const PathProbe &probe, const JournalAction &action)
{
    if (!checkKept(probe, action))
        return;
    for (const JournalPath &path : action.groups.value(0)) {
        if (!restore(probe, action.keepPath, path.path))
            continue;
        ++m_tally.restored;
        m_restored.insert(path.path);
    }
}

bool UndoRun::checkKept(const PathProbe &probe, const JournalAction &action)
{
    const int paths = qMax(1, action.groups.value(0).size());
    struct stat info;
    const bool isPath = QDir::isAbsolutePath(action.keepPath);
    if (isPath && m_operations.stat(QFile::encodeName(action.keepPath), &info) == 0)
        return true;
    // A link that leads nowhere has taken the place of the kept file.
    const int code = errno;
    const Presence presence = isPath ? probe.presence(action.keepPath) : Presence::Absent;
    if (presence == Presence::Absent || (presence == Presence::Present && code == ENOENT)) {
        m_tally.refused += paths;
        m_outcome.errors.append(
            QStringLiteral("保留文件不存在，无法撤销：%1").arg(action.keepPath));
    } else {
        m_tally.pending += paths;
        m_outcome.errors.append(
            QStringLiteral("保留文件现在无法访问（磁盘可能未连接），暂时无法撤销：%1")
                .arg(action.keepPath));
    }
    return false;
}

bool UndoRun::refuse(const QString &message)
{
    ++m_tally.refused;
    m_outcome.errors.append(message);
    return false;
}

bool UndoRun::postpone(const QString &message, int code)
{
    ++m_tally.pending;
    m_outcome.errors.append(withReason(message, code));
    return false;
}

bool UndoRun::restore(const PathProbe &probe, const QString &keepPath, const QString &path)
{
    FileIdentity linked;
    const Presence presence =
        QDir::isAbsolutePath(path) ? probe.presence(path, &linked) : Presence::Absent;
    if (presence == Presence::Unknown)
        return postpone(
            QStringLiteral("目标路径现在无法访问（磁盘可能未连接），暂时无法撤销：%1").arg(path));
    if (presence == Presence::Absent)
        return refuse(QStringLiteral("目标路径不存在：%1").arg(path));
    struct stat kept;
    if (m_operations.stat(QFile::encodeName(keepPath), &kept) != 0)
        return postpone(QStringLiteral("恢复独立副本失败：%1").arg(path));
    if (!linked.regular || linked.links < 2 || isSameEntry(keepPath, path) ||
        !isExpectedLink(m_operations, keepPath, path))
        return refuse(QStringLiteral("当前文件状态已变化，无法撤销：%1").arg(path));
    return copyBack(keepPath, path, linked);
}

/// The link stands after a failure, so that another undo can succeed.
bool UndoRun::copyBack(const QString &keepPath, const QString &path, const FileIdentity &linked)
{
    const QString temporary = restorePath(path);
    int code = clearLeftover(keepPath, temporary);
    if (code == 0)
        code = copyToNewFile(m_operations, keepPath, linked, temporary);
    if (code != 0)
        return postpone(QStringLiteral("恢复独立副本失败：%1").arg(path), code);
    const Placement placement = putInPlaceOf(m_operations, temporary, path, linked);
    code = errno;
    m_leftover = m_leftover || placement == Placement::Leftover;
    if (placement != Placement::Refused) {
        m_touched.note(linked.device, path);
        return true;
    }
    m_operations.unlink(QFile::encodeName(temporary));
    const QString message = QStringLiteral("无法替换当前链接文件：%1").arg(path);
    return code == EEXIST ? refuse(message) : postpone(message, code);
}

/// An earlier copy goes. Anything else that has the name is no leftover and moves aside.
int UndoRun::clearLeftover(const QString &keepPath, const QString &temporary)
{
    if (!identify(m_operations, temporary).isValid())
        return errno == ENOENT ? 0 : errno;
    const QByteArray name = QFile::encodeName(temporary);
    if (isBeginningOf(m_operations, temporary, keepPath))
        return m_operations.unlink(name) == 0 ? 0 : errno;
    for (int counter = 1; counter <= kMaxAside; ++counter) {
        const QByteArray aside = name + '.' + QByteArray::number(counter);
        if (m_operations.renameNoReplace(name, aside) == 0)
            return 0;
        if (errno != EEXIST)
            return errno;
    }
    return EEXIST;
}

} // namespace wechat
