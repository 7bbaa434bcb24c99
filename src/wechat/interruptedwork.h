#pragma once

#include "wechat/mergejournal.h"

#include <QStringList>

#include <functional>

namespace wechat {

struct RecoveryOutcome
{
    QStringList restored; ///< Paths that have their name back.
    QStringList removed;  ///< Backups and unfinished copies that were not needed any more.
    QStringList errors;
};

/// Puts right what cleans and undos left behind that did not come to their end, by their journals,
/// and writes the record that an interrupted clean still owes. A journal only tells where to look:
/// a file moves only under our own suffix and if it is the one that the clean took, and goes only
/// if the same content stands under another name. Blocks; use once.
class InterruptedWork
{
public:
    InterruptedWork(FileOperations &operations, const CleanFolders &folders,
                    std::function<bool()> shouldStop);

    /// Does nothing while a clean or undo is under way, whose journal is none of our business.
    RecoveryOutcome run();

private:
    void settle(const QString &path);
    bool settleClean(const JournalContent &content);
    bool settleUndo(const JournalContent &content);
    bool settleBackup(const JournalContent &content, const QString &keepPath,
                      const JournalPath &path);
    bool settleCopy(const QString &keepPath, const QString &path);
    bool sameContent(const QString &a, const QString &b);
    bool restore(const QString &backup, const QString &path, const FileIdentity &link);
    bool remove(const QString &leftover);
    bool flushNames(const QString &path);
    bool leave(const QString &leftover);
    bool writeMissingRecord(const JournalContent &content);
    MergedAction mergedAction(const JournalAction &action, qint64 *reclaimed);

    FileOperations &m_operations;
    CleanFolders m_folders;
    std::function<bool()> m_shouldStop;
    RecoveryOutcome m_outcome;
};

} // namespace wechat
