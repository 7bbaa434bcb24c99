#pragma once

#include "wechat/mergejournal.h"
#include "wechat/pathprobe.h"
#include "wechat/undorecord.h"

#include <QJsonObject>
#include <QSet>
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
/// link to the kept file is touched. What fails for want of room or because a disk is away can be
/// restored by another undo of the same record. Blocks; use once.
class UndoRun
{
public:
    UndoRun(FileOperations &operations, const CleanFolders &folders);

    UndoOutcome run(const QString &sessionId);

private:
    void restoreAll(const QString &sessionId, QJsonObject record);
    void restoreAction(const PathProbe &probe, const JournalAction &action);
    /// False with the message if the kept file cannot be copied from.
    bool checkKept(const PathProbe &probe, const JournalAction &action);
    bool restore(const PathProbe &probe, const QString &keepPath, const QString &path);
    bool copyBack(const QString &keepPath, const QString &path, const FileIdentity &linked);
    /// Returns 0 or an errno value.
    int clearLeftover(const QString &keepPath, const QString &temporary);
    bool refuse(const QString &message);
    bool postpone(const QString &message, int code = 0);

    FileOperations &m_operations;
    CleanFolders m_folders;
    MergeJournal m_journal;
    UndoOutcome m_outcome;
    UndoTally m_tally;
    QSet<QString> m_restored;
    TouchedFileSystems m_touched;
    bool m_leftover = false;
};

} // namespace wechat
