#pragma once

#include <QByteArray>
#include <QString>

#include <atomic>
#include <sys/types.h>

namespace core {

// File input and output by descriptor. All functions return 0 or an errno value, repeat calls that
// a signal interrupted, and may be called on any thread. Paths are as the file system takes them.

[[nodiscard]] int writeAll(int fd, const char *bytes, qint64 length);
[[nodiscard]] int writeAll(int fd, const QByteArray &bytes);

/// Reads to the end of the file. EFBIG if there is more than `limit` bytes, of which none is kept.
[[nodiscard]] int readAll(int fd, qint64 limit, QByteArray *bytes);
/// The same for a regular file at a path; a FIFO or device in its place is EINVAL, a link is ELOOP.
[[nodiscard]] int readFile(const QByteArray &path, qint64 limit, QByteArray *bytes);
/// Fills `length` bytes from a position of the file. ENODATA if the file ends before.
[[nodiscard]] int readAt(int fd, qint64 offset, char *to, qint64 length);

/// Copies to the end of `from`, in the kernel where it can. ECANCELED once `stop` is set.
[[nodiscard]] int copyBytes(int from, int to, const std::atomic<bool> *stop = nullptr);

/// To the medium. File systems that flush by themselves and refuse the call count as flushed.
[[nodiscard]] int syncFile(int fd);
/// Makes the names in a directory durable.
[[nodiscard]] int syncDirectory(const QByteArray &path);

/// Writes a file that takes the place of another in one step, durable when this returns: a crash at
/// any point leaves the old or the new content. The temporary file lies beside it.
[[nodiscard]] int replaceFile(const QByteArray &path, const QByteArray &bytes, mode_t mode);

/// The directory part of a path: "/" for "/a", "." for "a".
QByteArray parentPath(const QByteArray &path);

/// "subject：reason" with the system's words for the errno value.
QString systemError(const QString &subject, int code);

} // namespace core
