#pragma once

#include "wechat/mergejournal.h"
#include "wechat/pathprobe.h"

#include <QStringList>

#include <functional>

namespace wechat {

struct RecoveryOutcome
{
    QStringList restored; ///< Paths that have their name back.
    QStringList removed;  ///< Backups and unfinished copies that were not needed any more.
    QStringList errors;
    /// Folders that cannot be read now, as on a disk that is not mounted. Their journals wait.
    QStringList unavailable;

    bool isEmpty() const
    {
        return restored.isEmpty() && removed.isEmpty() && errors.isEmpty() && unavailable.isEmpty();
    }
};

/// Repairs what interrupted cleans and undos left behind, by their journals, writes the record that
/// an interrupted clean still owes, and notes in the record how far an interrupted undo got. A
/// journal only tells where to look: a file moves only under our own suffix and if it is the one
/// that the clean took, and goes only if the same content stands under another name.
///
/// A path is settled only where its folder is there and the file system says that there is nothing
/// to repair. As long as a disk is away or does not answer, the journal stays. Blocks; use once.
class InterruptedWork
{
public:
    InterruptedWork(FileOperations &operations, const CleanFolders &folders,
                    std::function<bool()> shouldStop);

    /// Does nothing while a clean or undo is under way, whose journal is none of our business.
    RecoveryOutcome run();

private:
    /// False if there are none, or if they cannot be listed, which is reported.
    bool listJournals(QStringList *names);
    void settle(const QString &path);
    bool settleClean(const PathProbe &probe, const JournalContent &content);
    bool settleUndo(const PathProbe &probe, const JournalContent &content);
    bool settleBackup(const PathProbe &probe, const JournalContent &content,
                      const QString &keepPath, const JournalPath &path);
    bool repairBackup(const JournalPath &path, const QString &backup, const FileIdentity &found,
                      const QString &keepPath, const FileIdentity &keep,
                      const FileIdentity &present);
    bool settleCopy(const PathProbe &probe, const QString &keepPath, const QString &path);
    bool sameContent(const QString &a, const QString &b);
    bool restore(const QString &backup, const QString &path, const FileIdentity &link);
    bool remove(const QString &leftover);
    bool flushNames(const QString &path);
    bool leave(const QString &leftover);
    bool wait(const QString &path);
    bool writeMissingRecord(const PathProbe &probe, const JournalContent &content);
    bool mergedAction(const PathProbe &probe, const JournalAction &action, MergedAction *merged,
                      qint64 *reclaimed);
    bool noteUndo(const PathProbe &probe, const JournalContent &content);
    bool wasRestored(const PathProbe &probe, const QString &keepPath, const QString &path);

    FileOperations &m_operations;
    CleanFolders m_folders;
    std::function<bool()> m_shouldStop;
    RecoveryOutcome m_outcome;
};

} // namespace wechat
