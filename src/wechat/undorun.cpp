#include "wechat/undorun.h"

#include "wechat/cleanlock.h"
#include "wechat/filecopy.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

namespace wechat {

namespace {

constexpr int kMaxAside = 99;

QList<JournalAction> actionsOf(const QJsonObject &record)
{
    QList<JournalAction> result;
    const QJsonArray actions = record.value(QStringLiteral("actions")).toArray();
    for (const QJsonValue &value : actions) {
        const QJsonObject object = value.toObject();
        JournalAction action;
        action.keepPath = object.value(QStringLiteral("keepPath")).toString();
        QList<JournalPath> paths;
        const QJsonArray merged = object.value(QStringLiteral("mergedPaths")).toArray();
        for (const QJsonValue &path : merged)
            paths.append({path.toString(), 0});
        action.groups.append(paths);
        result.append(action);
    }
    return result;
}

/// Only what the journal accepts; the undo itself refuses the rest.
bool isPlain(const QString &path)
{
    return QDir::isAbsolutePath(path) && QDir::cleanPath(path) == path;
}

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
            if (isPlain(path.path))
                paths.append(path);
        }
        entry.groups.append(paths);
        if (isPlain(action.keepPath))
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
    // An undo loses nothing without a journal: what a crash leaves is a copy too many.
    if (!m_journal.begin(journalContent(actions, createSessionId(m_folders))))
        qWarning("[WechatClean] undo without a journal: %s", qPrintable(qt_error_string()));
    for (const JournalAction &action : actions)
        restoreAction(action);
    QString status = QStringLiteral("partial");
    if (m_outcome.restoredCount == 0)
        status = QStringLiteral("invalid");
    else if (m_outcome.errors.isEmpty())
        status = QStringLiteral("undone");
    record.insert(QStringLiteral("status"), status);
    if (!writeRecord(m_operations, m_folders, sessionId, record))
        m_outcome.errors.append(
            recordWriteError(QFileInfo(m_folders.recordPath(sessionId)).fileName()));
    if (!m_leftover)
        m_journal.clear();
}

void UndoRun::restoreAction(const JournalAction &action)
{
    struct stat info;
    if (!QDir::isAbsolutePath(action.keepPath) ||
        m_operations.stat(QFile::encodeName(action.keepPath), &info) != 0) {
        m_outcome.errors.append(
            QStringLiteral("保留文件不存在，无法撤销：%1").arg(action.keepPath));
        return;
    }
    for (const JournalPath &path : action.groups.value(0)) {
        const QString error = restore(action.keepPath, path.path);
        if (error.isEmpty())
            ++m_outcome.restoredCount;
        else
            m_outcome.errors.append(error);
    }
}

QString UndoRun::restore(const QString &keepPath, const QString &path)
{
    const FileIdentity linked = identify(m_operations, path);
    if (!QDir::isAbsolutePath(path) || !linked.isValid())
        return QStringLiteral("目标路径不存在：%1").arg(path);
    if (!linked.regular || linked.links < 2 || isSameEntry(keepPath, path) ||
        !isExpectedLink(m_operations, keepPath, path))
        return QStringLiteral("当前文件状态已变化，无法撤销：%1").arg(path);
    const QString temporary = restorePath(path);
    if (!clearLeftover(keepPath, temporary) ||
        !copyToNewFile(m_operations, keepPath, linked, temporary))
        return QStringLiteral("恢复独立副本失败：%1").arg(path);
    switch (putInPlaceOf(m_operations, temporary, path, linked)) {
    case Placement::Placed:
        return QString();
    case Placement::Leftover:
        m_leftover = true;
        return QString();
    case Placement::Refused:
        break;
    }
    m_operations.unlink(QFile::encodeName(temporary));
    return QStringLiteral("无法替换当前链接文件：%1").arg(path);
}

/// An earlier copy goes. Anything else that has the name is no leftover and moves aside.
bool UndoRun::clearLeftover(const QString &keepPath, const QString &temporary)
{
    if (!identify(m_operations, temporary).isValid())
        return true;
    const QByteArray name = QFile::encodeName(temporary);
    if (isBeginningOf(m_operations, temporary, keepPath))
        return m_operations.unlink(name) == 0;
    for (int counter = 1; counter <= kMaxAside; ++counter) {
        const QByteArray aside = name + '.' + QByteArray::number(counter);
        if (m_operations.renameNoReplace(name, aside) == 0)
            return true;
        if (errno != EEXIST)
            return false;
    }
    return false;
}

} // namespace wechat
