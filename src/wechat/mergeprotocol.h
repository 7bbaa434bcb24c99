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
    LeftUnderBackup, ///< Something is left under the backup name.
};

/// Where a file waits while its path becomes a link.
QString backupPath(const QString &path, const QString &sessionId);

/// Makes one path a link to the kept file. `verified` is the state of the path in which its content
/// was found to be that of the kept file; a file in any other state is left alone.
///
/// The old file is renamed to its backup name, the link is made and looked at, and only then does
/// the backup go. So at any moment the content has one of the two names, whatever fails and
/// whenever the program ends. The room of a large one becomes free by `releaser`, a little later.
MergeResult mergePath(FileOperations &operations, SpaceReleaser &releaser, const KeptFile &keep,
                      const QString &sessionId, const QString &path, const FileIdentity &verified,
                      QString *error);

} // namespace wechat
