#pragma once

#include "wechat/cleanactions.h"
#include "wechat/mergejournal.h"
#include "wechat/mergeprotocol.h"

#include <QHash>
#include <QMap>
#include <QSet>
#include <QStringList>

#include <functional>

namespace wechat {

struct CleanOutcome
{
    int mergedCount = 0;
    qint64 reclaimedBytes = 0;
    QString sessionId; ///< Empty if there is no record.
    QStringList errors;
};

/// One clean from the actions to the record. Verifies everything anew, so the actions may be old or
/// wrong. On a disk so full that not even the journal finds room, a few copies are merged first, in
/// a way that needs none. Blocks; use once.
class CleanRun
{
public:
    using StopFunction = std::function<bool()>;
    using ProgressFunction = std::function<void(int done, int total)>; ///< In paths.

    CleanRun(FileOperations &operations, const CleanFolders &folders, StopFunction shouldStop,
             ProgressFunction progress);

    CleanOutcome run(const QList<CleanAction> &actions);

private:
    struct Verified
    {
        FileIdentity identity;
        QByteArray hash;
    };

    struct VerifiedPath
    {
        QString path;
        FileIdentity identity;
    };

    void prepare(const QList<CleanAction> &actions);
    void mergeAll(const QList<CleanAction> &actions);
    bool beginJournal(const QList<CleanAction> &actions);
    bool makeRoom(const QList<CleanAction> &actions, const std::function<bool()> &isEnough);
    bool mergeEarly(int index, const CleanAction &action);
    void flushKeptFiles(const QList<CleanAction> &actions);
    JournalContent describe(const QList<CleanAction> &actions);
    void cleanAction(int index, const CleanAction &action);
    bool verifyKept(int index, const CleanAction &action, KeptFile *keep);
    bool isDurable(int index, const KeptFile &keep);
    bool cleanGroup(const KeptFile &keep, const QStringList &paths, MergedAction *merged);
    bool mergeGroup(const KeptFile &keep, const QList<VerifiedPath> &paths, MergedAction *merged);
    QString verifyPath(const KeptFile &keep, const QString &path, FileIdentity *identity);
    QByteArray contentHash(const QString &path, const FileIdentity &identity);
    void finish();
    void writeRecordOfRun();
    void advance(int paths);

    FileOperations &m_operations;
    CleanFolders m_folders;
    StopFunction m_shouldStop;
    ProgressFunction m_progress;
    MergeJournal m_journal;
    SpaceReleaser m_releaser;
    CleanOutcome m_outcome;
    OperationRecord m_record;
    JournalContent m_content;
    QMap<int, MergedAction> m_early; ///< Merged without a journal, by action; not in m_record yet.
    QList<FileIdentity> m_keptAtStart;
    QSet<dev_t> m_flushedDevices;
    TouchedFileSystems m_touched;
    QHash<QString, quint64> m_inodesAtStart;
    QList<Verified> m_hashed; ///< Files of the group under way, each read once.
    bool m_leftover = false;
    int m_done = 0;
    int m_total = 0;
};

} // namespace wechat
