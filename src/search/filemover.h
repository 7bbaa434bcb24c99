#pragma once

#include <QString>

/// Moves single files so that a crash at any point leaves the source or the finished copy intact.
/// Nothing is ever overwritten, and a symbolic link moves as a link. Blocks on the disk: any thread
/// but the GUI's.
namespace filemover {

/// `directory`/`fileName`, or the first free "base_1.suffix" … "base_999.suffix" when the name is
/// taken; empty when all are. A dangling link takes its name too.
QString uniqueTargetPath(const QString &directory, const QString &fileName);

/// Moves a file or link into `directory` under a free name, which comes back in `newPath`. A file
/// that lies there already stays and counts as moved. Renames where possible; across file systems
/// it copies and then removes.
[[nodiscard]] bool moveInto(const QString &source, const QString &directory, QString *newPath,
                            QString *error = nullptr);

/// The second way of moveInto(): copies to a temporary name beside `target`, flushes it to the
/// disk, puts it in place and removes the source. Permissions and times are kept, the owner where
/// that is allowed. When the source cannot be removed, the copy is.
[[nodiscard]] bool moveByCopy(const QString &source, const QString &target,
                              QString *error = nullptr);

} // namespace filemover
