#pragma once

#include "analyzer/duplicate_scanner.h"

#include <QByteArray>
#include <QHash>
#include <QString>

#include <sys/stat.h>
#include <sys/types.h>

namespace wechat {

/// The system calls by which files are merged, put back and copied, apart so that a test can let
/// each of them fail. Every one is as the call of its name: -1 with errno on failure. Thread-safe.
class FileOperations
{
public:
    virtual ~FileOperations() = default;

    virtual int open(const QByteArray &path, int flags, mode_t mode = 0);
    virtual ssize_t read(int fd, char *data, size_t length);
    virtual ssize_t write(int fd, const char *data, size_t length);
    /// Takes disk space for the first `bytes` of the file, which becomes at least as long.
    virtual int allocate(int fd, off_t bytes);
    virtual int fsync(int fd);
    virtual int syncfs(int fd);
    virtual int stat(const QByteArray &path, struct stat *info);
    virtual int lstat(const QByteArray &path, struct stat *info);
    virtual int link(const QByteArray &from, const QByteArray &to);
    virtual int unlink(const QByteArray &path);
    virtual int rename(const QByteArray &from, const QByteArray &to);
    /// As core::renameNoReplace().
    virtual int renameNoReplace(const QByteArray &from, const QByteArray &to);
    /// Swaps two names in one step. EINVAL or ENOSYS where that is not supported.
    virtual int exchange(const QByteArray &first, const QByteArray &second);
    virtual QByteArray fullHash(const QString &path,
                                const DuplicateScanner::StopFunction &shouldStop);
};

/// Which file a name stands for and in which state, as lstat told.
struct FileIdentity
{
    dev_t device = 0;
    ino_t inode = 0;
    qint64 size = -1;
    struct timespec modified = {};
    nlink_t links = 0;
    bool regular = false;

    bool isValid() const { return inode != 0; }
    bool sameFile(const FileIdentity &other) const;
    /// The same file, not written to since.
    bool unchanged(const FileIdentity &other) const;
};

/// Not valid if there is nothing under the name, or if that cannot be read: errno tells which, and
/// PathProbe whether the name is really gone. Links are not followed.
FileIdentity identify(FileOperations &operations, const QString &path);

/// Both exist, and on the same file system. Links are followed.
bool sameFileSystem(FileOperations &operations, const QString &a, const QString &b);
/// Both names stand for one file. Links are followed.
bool isExpectedLink(FileOperations &operations, const QString &keepPath, const QString &path);

/// Of a failed stat: there is no such file. Any other reason says nothing about that.
bool isGone(int code);
/// The disk, or the user's share of it, is full.
bool isNoSpace(int code);
/// The message, with the reason behind it if it is want of room.
QString withReason(const QString &message, int code);

/// errno tells the reason of a failure.
[[nodiscard]] bool writeAll(FileOperations &operations, int fd, const QByteArray &data);
/// Flushes the names in a directory to the disk.
[[nodiscard]] bool syncDirectory(FileOperations &operations, const QString &directory);

/// Flushes the whole file system of a file to the disk, its names included.
[[nodiscard]] bool flushFileSystem(FileOperations &operations, const QString &file);

/// The file systems on which names were changed. They are flushed before a journal goes that could
/// repair those names.
class TouchedFileSystems
{
public:
    /// `file` has to be there at the flush.
    void note(dev_t device, const QString &file) { m_files.insert(device, file); }
    [[nodiscard]] bool flush(FileOperations &operations) const;

private:
    QHash<dev_t, QString> m_files; ///< One of each.
};

enum class Placement {
    Refused,  ///< Nothing has changed.
    Placed,   ///< The file has the name, and the other name is gone.
    Leftover, ///< The file has the name; the link that had it could not be removed.
};

/// Gives the file under `from` the name `to`, which nothing or a link to `link` may have now. Any
/// other file under that name stays, even if it appears meanwhile: with support by the file system
/// the two names are swapped and what comes out is looked at before it goes. errno tells why it was
/// refused: EEXIST if another file has the name.
Placement putInPlaceOf(FileOperations &operations, const QString &from, const QString &to,
                       const FileIdentity &link);

} // namespace wechat
