#pragma once

#include <QString>

namespace core {

// Files and directories that hold private text: readable by their owner only, whatever the umask.
// A process of root gives what it creates to the owner of the directory that it is created in, so
// that the state in a user's home stays the user's. All functions may be called on any thread.

/// Makes a directory (mode 0700) with all missing parents, or takes the rights of group and others
/// from an existing one. Shared directories with the sticky bit keep theirs. False if there is no
/// directory afterwards.
[[nodiscard]] bool makePrivateDirectory(const QString &path);

/// Makes an empty file (mode 0600), or takes the rights of group and others from an existing
/// regular file; a link is left alone. The file is never opened: closing any descriptor of a
/// database would drop the locks that this process holds on it. A failure shows when it is opened.
void makePrivateFile(const QString &path);

/// The same for a file that may be missing, which then stays missing.
void restrictFile(const QString &path);

} // namespace core
