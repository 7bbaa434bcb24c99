#pragma once

#include <QByteArray>

namespace core {

// Renames that never replace anything. The paths are as the file system takes them. All return 0,
// or an errno value: EEXIST if the new name is taken, even by a dangling link. Any thread.

/// One step where the file system knows such a rename, else a link and an unlink, so that for a
/// moment both names are there. Where links are unknown too, the error of the link.
int renameNoReplace(const QByteArray &from, const QByteArray &to);

/// The same, but where links are unknown the name is first taken with an empty file of our own. A
/// program that is killed between the two leaves that file. Not for directories there.
int renameToFree(const QByteArray &from, const QByteArray &to);

/// renameToFree() between names relative to open directories, as renameat(2) takes them.
int renameToFreeAt(int fromDir, const QByteArray &from, int toDir, const QByteArray &to);

/// The last resort of renameToFree().
int renameByReservation(const QByteArray &from, const QByteArray &to);

} // namespace core
