// System calls with a fault in front of them, put in place of the real ones by the linker (--wrap).
//
//   MORVANE_TEST_DIE_AT=N   the process kills itself before its Nth call that changes something
//   MORVANE_TEST_FULL_AT=N  from the Nth such call on, for three calls, the disk is full

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

int numberIn(const char *variable)
{
    const char *const text = std::getenv(variable);
    return text ? std::atoi(text) : 0;
}

/// True if the call has to fail for want of space.
bool step(bool needsSpace)
{
    static const int dieAt = numberIn("MORVANE_TEST_DIE_AT");
    static const int fullAt = numberIn("MORVANE_TEST_FULL_AT");
    static std::atomic<int> count{0};
    const int now = ++count;
    if (now == dieAt)
        ::kill(::getpid(), SIGKILL);
    const bool isFull = fullAt > 0 && now >= fullAt && now < fullAt + 3;
    if (needsSpace && isFull)
        errno = ENOSPC;
    return needsSpace && isFull;
}

} // namespace

extern "C" {

#define MORVANE_WRAP(type, name, needsSpace, parameters, arguments)                                \
    type __real_##name parameters;                                                                 \
    type __wrap_##name parameters                                                                  \
    {                                                                                              \
        return step(needsSpace) ? -1 : __real_##name arguments;                                    \
    }

MORVANE_WRAP(ssize_t, write, true, (int fd, const void *bytes, size_t length), (fd, bytes, length))
MORVANE_WRAP(int, linkat, true, (int from, const char *name, int to, const char *other, int flags),
             (from, name, to, other, flags))
MORVANE_WRAP(int, rename, false, (const char *from, const char *to), (from, to))
MORVANE_WRAP(int, renameat, false, (int from, const char *name, int to, const char *other),
             (from, name, to, other))
MORVANE_WRAP(int, unlink, false, (const char *path), (path))
MORVANE_WRAP(int, unlinkat, false, (int dir, const char *name, int flags), (dir, name, flags))
MORVANE_WRAP(int, fchown, false, (int fd, uid_t uid, gid_t gid), (fd, uid, gid))
MORVANE_WRAP(int, fchmod, false, (int fd, mode_t mode), (fd, mode))
MORVANE_WRAP(int, fdatasync, false, (int fd), (fd))

int __real_open(const char *path, int flags, mode_t mode);
int __real_openat(int dir, const char *path, int flags, mode_t mode);

int __wrap_open(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = flags & (O_CREAT | O_TMPFILE) ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return (flags & O_CREAT) && step(true) ? -1 : __real_open(path, flags, mode);
}

int __wrap_openat(int dir, const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = flags & (O_CREAT | O_TMPFILE) ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    const bool makes = (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE;
    return makes && step(true) ? -1 : __real_openat(dir, path, flags, mode);
}

} // extern "C"
