#pragma once

#include "wechat/fileoperations.h"
#include "wechat/operationrecord.h"

#include <QList>
#include <QString>

namespace wechat {

struct JournalPath
{
    QString path;
    quint64 inode = 0; ///< Of the file before the clean; 0: none, or an undo.
};

struct JournalAction
{
    QString keepPath;
    qint64 size = 0;
    QString hash; ///< Hexadecimal, of the kept file at clean time; may be empty.
    QList<QList<JournalPath>> groups;
};

struct JournalContent
{
    enum class Kind { Clean, Undo };

    Kind kind = Kind::Clean;
    QString id;
    QString session;         ///< Record that an undo works on; empty for a clean.
    QStringList mountPoints; ///< Of the disks that hold the paths.
    QList<JournalAction> actions;
};

/// Tells, after a crash, which paths a clean or an undo was about to touch. It is on the disk
/// before the first of them is touched and goes at the end. It says nothing about how far the work
/// got: that the names on the disk show, so one flush serves a whole clean.
class MergeJournal
{
public:
    MergeJournal(FileOperations &operations, const CleanFolders &folders);
    ~MergeJournal();
    MergeJournal(const MergeJournal &) = delete;
    MergeJournal &operator=(const MergeJournal &) = delete;

    /// On a full disk the room comes from the reserve.
    [[nodiscard]] bool begin(const JournalContent &content);
    /// The errno value with which begin() failed.
    int error() const { return m_error; }
    /// Adds the hash of an action's kept file. Not flushed: it serves the record only.
    void noteHash(int action, const QString &hash);
    /// Removes the journal.
    void clear();

    enum class ReadResult { Ok, Damaged, Unreadable };
    /// Takes nothing on trust: what is not as begin() writes it makes the whole journal damaged.
    static ReadResult read(const QString &path, JournalContent *content);

private:
    int create(const QString &path, const QByteArray &head);
    void closeFile();

    FileOperations &m_operations;
    CleanFolders m_folders;
    QString m_path;
    int m_fd = -1; ///< Open for noteHash().
    int m_error = 0;
};

} // namespace wechat
