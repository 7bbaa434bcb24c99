#pragma once

#include "wechat/fileoperations.h"
#include "wechat/spacereleaser.h"

#include <QString>

namespace wechat {

/// The file that stays, with the content that the merge relies on.
struct KeptFile
{
    QString path;
    FileIdentity identity; ///< When it was hashed.
    QByteArray hash;       ///< Raw MD5.
    qint64 size = 0;       ///< Bytes, as the scan saw it.
};

enum class MergeResult {
    Merged,          ///< The path is a link to the kept file.
    AlreadyLinked,   ///< It was one before.
    Refused,         ///< The path is as it was.
    KeptChanged,     ///< As Refused, and the kept file is no longer the one that was hashed.
    LeftUnderBackup, ///< Something is left under the backup name.
};

/// Error message for a group whose kept file is no longer what the scan or the clean has hashed.
QString keptChangedError(const QString &keepPath);

/// Where a file waits while its path becomes a link.
QString backupPath(const QString &path, const QString &sessionId);

/// Makes one path a link to the kept file. `verified` is the state of the path in which its content
/// was found to be that of the kept file; a file in any other state is left alone.
///
/// The old file is renamed to its backup name, the link is made and looked at, and only then does
/// the backup go. So at any moment the content has one of the two names, whatever fails and
/// whenever the program ends. The room of a large one becomes free by `releaser`, a little later.
///
/// A program that saves by rename may give the kept name to another file at any moment. A link that
/// was made to that one is removed, as long as the kept path still holds the same file.
MergeResult mergePath(FileOperations &operations, SpaceReleaser &releaser, const KeptFile &keep,
                      const QString &sessionId, const QString &path, const FileIdentity &verified,
                      QString *error);

/// The same without a moment in which the path has no file: for use without a journal. The link is
/// made under the backup name and swapped with the old file. A program that is killed in the middle
/// leaves an additional file under the backup name, which nothing depends on. Only where the file
/// system swaps names. The room is free at the return. `error` is set for LeftUnderBackup only.
MergeResult swapForLink(FileOperations &operations, const KeptFile &keep, const QString &sessionId,
                        const QString &path, const FileIdentity &verified, QString *error);

} // namespace wechat
