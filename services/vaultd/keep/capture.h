#pragma once

#include <QByteArray>

#include <sys/stat.h>

namespace services::vaultd {

/// How the content of a file came into a vault.
enum class Means {
    Clone, ///< Shares its blocks, and nobody else can write to it.
    Link,  ///< The file itself under a second name; to be sealed once it has no other name.
    Copy,
};

/// Takes a regular file into the folder `dir` under `name`, where it appears as a whole or not at
/// all: a clone where the file system has them, a link if the file has no name but the one it is
/// about to lose, else a copy, with the file's times and attributes. `file` may be open with O_PATH
/// only. Files above `copyLimit` bytes are not copied; with more names they are linked all the
/// same. Returns 0 or an errno value: EXDEV if the folder is on another file system and no copy was
/// asked for, EFBIG for a copy above the limit. Any thread.
int takeIn(int file, const struct stat &info, int dir, const QByteArray &name, qint64 copyLimit,
           Means *means);

/// The same by copying, wherever the file is.
int copyIn(int file, const struct stat &info, int dir, const QByteArray &name, qint64 copyLimit);

/// Whether files in the folder can be cloned: Btrfs, XFS.
bool hasClones(int dir);

/// What happened to a link that was to become root's alone.
enum class Seal {
    Done,
    Busy,   ///< Somebody can still write to it; to be tried again.
    Shared, ///< It has further names.
    Failed,
};

/// Gives a link's file to root with mode 0600, if it has only this name and no writer.
Seal seal(int dir, const QByteArray &name);

/// Puts a copy in the place of a link that is shared; the name is never without content.
int unshare(int dir, const QByteArray &name, const QByteArray &temporary, qint64 copyLimit);

/// The access list of a file as the kernel gives it; empty if it has none.
QByteArray accessListOf(int file);

} // namespace services::vaultd
