#pragma once

#include "wechat/mergejournal.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

namespace wechat {

struct UndoOutcome
{
    int restoredCount = 0;
    QStringList errors;
};

/// Where an independent copy grows before it takes the place of a link.
QString restorePath(const QString &path);

/// Turns the links of one record into independent copies. The record is not trusted: only what is a
/// link to the kept file is touched. Blocks; use once.
class UndoRun
{
public:
    UndoRun(FileOperations &operations, const CleanFolders &folders);

    UndoOutcome run(const QString &sessionId);

private:
    void restoreAll(const QString &sessionId, QJsonObject record);
    void restoreAction(const JournalAction &action);
    /// Returns what went wrong, or nothing.
    QString restore(const QString &keepPath, const QString &path);
    bool clearLeftover(const QString &keepPath, const QString &temporary);

    FileOperations &m_operations;
    CleanFolders m_folders;
    MergeJournal m_journal;
    UndoOutcome m_outcome;
    bool m_leftover = false;
};

} // namespace wechat
