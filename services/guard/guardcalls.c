#include "guard/guardcalls.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

/* Size of the kernel's signal set on all architectures but MIPS. */
#define KERNEL_SIGSET_SIZE 8

int guardLift(int descriptor)
{
    if (descriptor < 0 || descriptor > 2)
        return descriptor;
    const long lifted = syscall(SYS_fcntl, descriptor, F_DUPFD_CLOEXEC, 3);
    guardClose(descriptor);
    return (int)lifted;
}

int guardOpen(int folder, const char *path, int flags)
{
#if defined(__ILP32__) && defined(O_LARGEFILE)
    flags |= O_LARGEFILE;
#endif
    return guardLift((int)syscall(SYS_openat, folder, path, flags | O_CLOEXEC, 0));
}

void guardClose(int descriptor)
{
    if (descriptor >= 0)
        syscall(SYS_close, descriptor);
}

bool guardStatAt(int folder, const char *path, int flags, struct GuardStat *status)
{
#ifdef SYS_newfstatat
    struct stat found;
    if (syscall(SYS_newfstatat, folder, path, &found, flags) != 0)
        return false;
#else
    /* 32 bit: the C library's stat64 is the kernel's. */
    struct stat64 found;
    if (syscall(SYS_fstatat64, folder, path, &found, flags) != 0)
        return false;
#endif
    status->device = found.st_dev;
    status->inode = found.st_ino;
    status->mode = found.st_mode;
    status->uid = found.st_uid;
    status->links = found.st_nlink;
    status->size = (uint64_t)found.st_size;
    return true;
}

uid_t guardEffectiveUid(void)
{
#ifdef SYS_geteuid32
    return (uid_t)syscall(SYS_geteuid32);
#else
    return (uid_t)syscall(SYS_geteuid);
#endif
}

ssize_t guardReadPart(int file, char *buffer, size_t size)
{
    return (ssize_t)syscall(SYS_read, file, buffer, size);
}

ssize_t guardReadFile(const char *path, char *buffer, size_t size)
{
    const int file = guardOpen(AT_FDCWD, path, O_RDONLY | O_NOCTTY);
    if (file < 0)
        return -1;
    size_t length = 0;
    while (length < size) {
        const ssize_t part = guardReadPart(file, buffer + length, size - length);
        if (part <= 0)
            break;
        length += (size_t)part;
    }
    guardClose(file);
    return (ssize_t)length;
}

size_t guardPathOf(int descriptor, char *buffer, size_t size)
{
    char link[GUARD_FD_PATH_SIZE];
    guardFdPath(descriptor, link);
    const long length = syscall(SYS_readlinkat, AT_FDCWD, link, buffer, size);
    /* A text that fills the buffer may have been cut. */
    if (length <= 0 || (size_t)length >= size || buffer[0] != '/')
        return 0;
    return (size_t)length;
}

size_t guardWorkingDirectory(char *buffer, size_t size)
{
    const long length = syscall(SYS_getcwd, buffer, size); /* With the NUL. */
    return length > 1 && buffer[0] == '/' ? (size_t)length - 1 : 0;
}

bool guardHoldSignals(uint64_t *former)
{
    uint64_t all = ~UINT64_C(0);
    static const int faults[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGTRAP, SIGSYS, SIGABRT};
    for (size_t i = 0; i < sizeof(faults) / sizeof(faults[0]); ++i)
        all &= ~(UINT64_C(1) << (faults[i] - 1));
    return syscall(SYS_rt_sigprocmask, SIG_BLOCK, &all, former, KERNEL_SIGSET_SIZE) == 0;
}

void guardReleaseSignals(const uint64_t *former)
{
    syscall(SYS_rt_sigprocmask, SIG_SETMASK, former, NULL, KERNEL_SIGSET_SIZE);
}

int64_t guardNow(void)
{
    struct timespec now = {0, 0};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return (int64_t)now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

char *guardPutNumber(char *to, uint64_t number, unsigned base)
{
    char digits[20];
    size_t count = 0;
    do {
        digits[count++] = "0123456789abcdef"[number % base];
        number /= base;
    } while (number != 0);
    while (count > 0)
        *to++ = digits[--count];
    return to;
}

char *guardPutText(char *to, const char *text)
{
    const size_t length = strlen(text);
    memcpy(to, text, length);
    return to + length;
}

void guardFdPath(int descriptor, char path[GUARD_FD_PATH_SIZE])
{
    char *end = guardPutText(path, "/proc/self/fd/");
    end = guardPutNumber(end, (uint64_t)descriptor, 10);
    *end = '\0';
}
