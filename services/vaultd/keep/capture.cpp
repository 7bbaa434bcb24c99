#include "vaultd/keep/capture.h"

#include "core/descriptor.h"
#include "core/posixfile.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <linux/fs.h>
#include <mutex>
#include <set>
#include <sys/ioctl.h>
#include <sys/vfs.h>
#include <sys/xattr.h>
#include <tuple>
#include <unistd.h>

namespace services::vaultd {

namespace {

constexpr int kMaxAttributes = 64 * 1024; // bytes, of all names or of one value
constexpr int kMaxHandle = 128;           // bytes; the kernel's MAX_HANDLE_SZ
constexpr char kUserAttributes[] = "user.";

QByteArray throughProc(int fd)
{
    return "/proc/self/fd/" + QByteArray::number(fd);
}

int openForReading(int file)
{
    return ::open(throughProc(file).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
}

int linkTo(int file, int dir, const QByteArray &name)
{
    // Root needs no way through /proc.
    if (::linkat(file, "", dir, name.constData(), AT_EMPTY_PATH) == 0)
        return 0;
    if (errno != ENOENT)
        return errno;
    return ::linkat(AT_FDCWD, throughProc(file).constData(), dir, name.constData(),
                    AT_SYMLINK_FOLLOW) == 0
               ? 0
               : errno;
}

/// A nameless file in the folder: whatever ends this process ends it, too.
int openNameless(int dir)
{
    return ::openat(dir, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
}

/// The user's own attributes and the times. What belongs to the rights of the file is recorded.
void copyAttributes(int from, int to, const struct stat &info)
{
    QByteArray names(kMaxAttributes, Qt::Uninitialized);
    const ssize_t length = ::flistxattr(from, names.data(), size_t(names.size()));
    names.truncate(int(length > 0 ? length : 0));
    for (int at = 0; at < names.size(); at += int(qstrlen(names.constData() + at)) + 1) {
        const char *const name = names.constData() + at;
        if (qstrncmp(name, kUserAttributes, sizeof kUserAttributes - 1) != 0)
            continue;
        QByteArray value(kMaxAttributes, Qt::Uninitialized);
        const ssize_t size = ::fgetxattr(from, name, value.data(), size_t(value.size()));
        if (size >= 0)
            ::fsetxattr(to, name, value.constData(), size_t(size), 0);
    }
    const struct timespec times[] = {info.st_atim, info.st_mtim};
    ::futimens(to, times);
}

/// Data as data, holes as holes. The file may grow meanwhile: what it had at first counts.
int copyData(int from, int to, qint64 size)
{
    if (::ftruncate(to, off_t(size)) != 0)
        return errno;
    for (off_t at = 0; at < size;) {
        const off_t data = ::lseek(from, at, SEEK_DATA);
        if (data < 0 && errno == ENXIO)
            break;
        const off_t start = data < 0 ? at : data;
        const off_t hole = data < 0 ? off_t(-1) : ::lseek(from, start, SEEK_HOLE);
        const off_t end = qMin(off_t(size), hole < 0 ? off_t(size) : hole);
        off_t in = start;
        off_t out = start;
        while (in < end) {
            ssize_t done = ::copy_file_range(from, &in, to, &out, size_t(end - in), 0);
            if (done < 0 && errno == EINTR)
                continue;
            if (done <= 0) {
                char bytes[64 * 1024];
                done = ::pread(from, bytes, qMin(sizeof bytes, size_t(end - in)), in);
                if (done <= 0)
                    return done < 0 ? errno : 0; // It has become shorter.
                const ssize_t written = ::pwrite(to, bytes, size_t(done), out);
                if (written < 0)
                    return errno;
                in += written;
                out += written;
            }
        }
        at = end;
    }
    return 0;
}

int copyTo(int from, const struct stat &info, int to, qint64 limit)
{
    if (info.st_size > limit)
        return EFBIG;
    const int code = copyData(from, to, qint64(info.st_size));
    if (code == 0)
        copyAttributes(from, to, info);
    return code;
}

/// A named file, where the file system knows no nameless ones (FAT); removed if it stays
/// unfinished.
int copyByName(int from, const struct stat &info, int dir, const QByteArray &name, qint64 limit)
{
    const QByteArray unfinished = QByteArray(name).replace(".dat", ".part");
    const core::Descriptor to(::openat(dir, unfinished.constData(),
                                       O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!to.isOpen())
        return errno;
    int code = copyTo(from, info, to.get(), limit);
    if (code == 0 && ::renameat(dir, unfinished.constData(), dir, name.constData()) != 0)
        code = errno;
    if (code != 0)
        ::unlinkat(dir, unfinished.constData(), 0);
    return code;
}

int copyFrom(int from, const struct stat &info, int dir, const QByteArray &name, qint64 limit)
{
    if (info.st_size > limit)
        return EFBIG;
    const core::Descriptor to(openNameless(dir));
    if (!to.isOpen())
        return errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL
                   ? copyByName(from, info, dir, name, limit)
                   : errno;
    const int code = copyTo(from, info, to.get(), limit);
    return code == 0 ? linkTo(to.get(), dir, name) : code;
}

int cloneFrom(int from, const struct stat &info, int dir, const QByteArray &name)
{
    const core::Descriptor to(openNameless(dir));
    if (!to.isOpen() || ::ioctl(to.get(), FICLONE, from) != 0)
        return errno;
    copyAttributes(from, to.get(), info);
    return linkTo(to.get(), dir, name);
}

/// File systems on which cloning was found to be unknown, so that each file need not try.
class CloneMemory
{
public:
    /// By type and id: a device number is given again.
    using Key = std::tuple<long, int, int>;

    static Key keyOf(int dir)
    {
        struct statfs info = {};
        ::fstatfs(dir, &info);
        return {long(info.f_type), info.f_fsid.__val[0], info.f_fsid.__val[1]};
    }
    bool isUnknownOn(const Key &key)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_keys.count(key) > 0;
    }
    void noteUnknownOn(const Key &key)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_keys.insert(key);
    }

private:
    std::mutex m_mutex;
    std::set<Key> m_keys;
};

CloneMemory &cloneMemory()
{
    static CloneMemory memory;
    return memory;
}

/// The same file through the mount that the folder is on: links and clones do not go from one mount
/// of a file system to another.
int reopenOn(int dir, int file)
{
    union {
        struct file_handle handle;
        char space[sizeof(struct file_handle) + kMaxHandle];
    } buffer;
    buffer.handle.handle_bytes = kMaxHandle;
    int mount = 0;
    if (::name_to_handle_at(file, "", &buffer.handle, &mount, AT_EMPTY_PATH) != 0)
        return -1;
    return ::open_by_handle_at(dir, &buffer.handle, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
}

bool isUnknownHere(int code)
{
    return code == EOPNOTSUPP || code == ENOTTY || code == EINVAL || code == ENOSYS;
}

} // namespace

int takeIn(int file, const struct stat &info, int dir, const QByteArray &name, qint64 copyLimit,
           Means *means)
{
    const CloneMemory::Key fileSystem = CloneMemory::keyOf(dir);
    const bool isWithoutClones = cloneMemory().isUnknownOn(fileSystem);
    if (isWithoutClones && info.st_nlink == 1 && linkTo(file, dir, name) == 0) {
        *means = Means::Link; // Nothing had to be read.
        return 0;
    }
    core::Descriptor from(openForReading(file));
    struct stat folder;
    if (!from.isOpen() || ::fstat(dir, &folder) != 0)
        return errno;
    int code = isWithoutClones ? EOPNOTSUPP : cloneFrom(from.get(), info, dir, name);
    // EINVAL may be said of this file alone.
    if (code == EOPNOTSUPP || code == ENOTTY)
        cloneMemory().noteUnknownOn(fileSystem);
    if (code == EXDEV && folder.st_dev == info.st_dev) {
        from.reset(reopenOn(dir, file));
        if (!from.isOpen())
            return EXDEV;
        code = cloneFrom(from.get(), info, dir, name);
    }
    *means = Means::Clone;
    if (code == 0 || (code != EXDEV && !isUnknownHere(code)))
        return code;
    *means = Means::Copy;
    if (info.st_nlink > 1 && folder.st_dev == info.st_dev && info.st_size <= copyLimit)
        return copyFrom(from.get(), info, dir, name, copyLimit);
    code = linkTo(from.get(), dir, name);
    if (code == EXDEV && folder.st_dev == info.st_dev) {
        const core::Descriptor here(reopenOn(dir, file));
        code = here.isOpen() ? linkTo(here.get(), dir, name) : EXDEV;
    }
    *means = Means::Link;
    if (code != EPERM && code != EMLINK && !isUnknownHere(code))
        return code;
    *means = Means::Copy;
    return copyFrom(from.get(), info, dir, name, copyLimit);
}

int copyIn(int file, const struct stat &info, int dir, const QByteArray &name, qint64 copyLimit)
{
    const core::Descriptor from(openForReading(file));
    return from.isOpen() ? copyFrom(from.get(), info, dir, name, copyLimit) : errno;
}

bool hasClones(int dir)
{
    const core::Descriptor from(openNameless(dir));
    const core::Descriptor to(openNameless(dir));
    return from.isOpen() && to.isOpen() && ::ioctl(to.get(), FICLONE, from.get()) == 0;
}

Seal seal(int dir, const QByteArray &name)
{
    const core::Descriptor file(
        ::openat(dir, name.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info;
    if (!file.isOpen() || ::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode))
        return Seal::Failed;
    if (info.st_nlink > 1)
        return Seal::Shared;
    // Who breaks a lease sends a signal; one that is ignored unless it is asked for.
    ::fcntl(file.get(), F_SETSIG, SIGURG);
    // A lease is refused while the file is open for writing, or mapped so.
    if (::fcntl(file.get(), F_SETLEASE, F_RDLCK) != 0)
        return errno == EAGAIN ? Seal::Busy : Seal::Failed;
    const bool isSet =
        ::fchown(file.get(), ::geteuid(), ::getegid()) == 0 && ::fchmod(file.get(), 0600) == 0;
    // Who came between the look at the rights and the lease shows now: none can come any more.
    ::fcntl(file.get(), F_SETLEASE, F_UNLCK);
    const bool isQuiet = ::fcntl(file.get(), F_SETLEASE, F_RDLCK) == 0;
    ::fcntl(file.get(), F_SETLEASE, F_UNLCK);
    return !isSet ? Seal::Failed : isQuiet ? Seal::Done : Seal::Busy;
}

int unshare(int dir, const QByteArray &name, const QByteArray &temporary, qint64 copyLimit)
{
    const core::Descriptor file(
        ::openat(dir, name.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info;
    if (!file.isOpen() || ::fstat(file.get(), &info) != 0)
        return errno;
    ::unlinkat(dir, temporary.constData(), 0);
    const int code = copyFrom(file.get(), info, dir, temporary, copyLimit);
    if (code != 0)
        return code;
    return ::renameat(dir, temporary.constData(), dir, name.constData()) == 0 ? 0 : errno;
}

QByteArray accessListOf(int file)
{
    char list[4096];
    const QByteArray path = throughProc(file);
    const ssize_t length =
        ::getxattr(path.constData(), "system.posix_acl_access", list, sizeof list);
    return length > 0 ? QByteArray(list, int(length)) : QByteArray();
}

} // namespace services::vaultd
