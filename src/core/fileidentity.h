#pragma once

#include <QtGlobal>

struct stat;

namespace core {

/// Which regular file a name stands for, and in which state.
struct FileIdentity
{
    quint64 device = 0;
    quint64 inode = 0;      ///< 0 if there is no such file, or none that is known.
    qint64 size = -1;       ///< Bytes.
    quint64 modifiedNs = 0; ///< Nanoseconds since the epoch, modulo 2^64.

    bool isValid() const { return inode != 0; }
    /// The same file, whatever happened to its content.
    bool isSameFile(const FileIdentity &other) const
    {
        return isValid() && device == other.device && inode == other.inode;
    }
    /// Equal size and modification time. Says nothing about the file being the same one.
    bool isSameState(const FileIdentity &other) const
    {
        return size == other.size && modifiedNs == other.modifiedNs;
    }
    /// The same file, not written to since.
    bool isUnchanged(const FileIdentity &other) const
    {
        return isSameFile(other) && isSameState(other);
    }
};

/// Not valid unless `info` describes a regular file.
FileIdentity identityOf(const struct stat &info);
/// The entry of an open directory. Not valid if it is absent, a link or no regular file; errno
/// tells why the entry could not be read, 0 otherwise.
FileIdentity identityAt(int dirFd, const char *name);

/// Whether `now` is the file that was `before` a while ago, not written to since. `fd` is open
/// anywhere on the file system of `now`: FAT has no inode numbers, the kernel invents them and may
/// forget them any time, so there device, size and time have to do.
bool isStillUnchanged(const FileIdentity &before, const FileIdentity &now, int fd);

} // namespace core
