// System calls with a fault in front of them. The linker puts these in place of the real ones in
// everything that is linked into a program statically (--wrap), so that a test can kill it between
// any two steps or make two folders of it stand on different disks.
//
//   MORVANE_TEST_DIE_AT=N       the process kills itself before its Nth call that changes something
//   MORVANE_TEST_FULL_AT=N      from the Nth such call on, for three calls, the disk is full
//   MORVANE_TEST_OTHER_DEVICE=1 no file can be renamed or linked from one folder into another
//   MORVANE_TEST_NAMES_UNSYNCED=1 no folder can be flushed to the medium

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

int numberIn(const char *variable)
{
    const char *const text = std::getenv(variable);
    return text ? std::atoi(text) : 0;
}

/// True, with errno, if the call has to fail for want of space.
bool isFull(bool needsSpace)
{
    static const int dieAt = numberIn("MORVANE_TEST_DIE_AT");
    static const int fullAt = numberIn("MORVANE_TEST_FULL_AT");
    static std::atomic<int> count{0};
    const int now = ++count;
    if (now == dieAt)
        ::kill(::getpid(), SIGKILL);
    if (!needsSpace || fullAt == 0 || now < fullAt || now >= fullAt + 3)
        return false;
    errno = ENOSPC;
    return true;
}

bool crossesDevices(const char *from, const char *to)
{
    const char *const a = std::strrchr(from, '/');
    const char *const b = std::strrchr(to, '/');
    return std::getenv("MORVANE_TEST_OTHER_DEVICE") &&
           (!a || !b || a - from != b - to || std::strncmp(from, to, size_t(a - from)) != 0);
}

} // namespace

extern "C" {

int __real_open(const char *path, int flags, mode_t mode);
ssize_t __real_write(int fd, const void *bytes, size_t length);
int __real_fsync(int fd);
int __real_mkdir(const char *path, mode_t mode);
int __real_unlink(const char *path);
int __real_link(const char *from, const char *to);
int __real_rename(const char *from, const char *to);
int __real_renameat2(int fromFd, const char *from, int toFd, const char *to, unsigned flags);

int __wrap_open(const char *path, int flags, ...)
{
    mode_t mode = 0;
    if (flags & O_CREAT) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
        if (isFull(true))
            return -1;
    }
    return __real_open(path, flags, mode);
}

ssize_t __wrap_write(int fd, const void *bytes, size_t length)
{
    return isFull(true) ? -1 : __real_write(fd, bytes, length);
}

int __wrap_fsync(int fd)
{
    isFull(false);
    struct stat info;
    if (std::getenv("MORVANE_TEST_NAMES_UNSYNCED") && ::fstat(fd, &info) == 0 &&
        S_ISDIR(info.st_mode)) {
        errno = EIO;
        return -1;
    }
    return __real_fsync(fd);
}

int __wrap_mkdir(const char *path, mode_t mode)
{
    return isFull(true) ? -1 : __real_mkdir(path, mode);
}

int __wrap_unlink(const char *path)
{
    isFull(false);
    return __real_unlink(path);
}

int __wrap_link(const char *from, const char *to)
{
    if (isFull(true))
        return -1;
    errno = EXDEV;
    return crossesDevices(from, to) ? -1 : __real_link(from, to);
}

int __wrap_rename(const char *from, const char *to)
{
    if (isFull(true))
        return -1;
    errno = EXDEV;
    return crossesDevices(from, to) ? -1 : __real_rename(from, to);
}

int __wrap_renameat2(int fromFd, const char *from, int toFd, const char *to, unsigned flags)
{
    return isFull(true) ? -1 : __real_renameat2(fromFd, from, toFd, to, flags);
}

} // extern "C"
