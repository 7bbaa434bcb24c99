/*
 * System calls as the library makes them: by syscall(), so that none is a cancellation point and no
 * other preloaded library sees them. All are safe in signal handlers and after vfork(); all change
 * errno.
 */
#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

struct GuardStat
{
    uint64_t device;
    uint64_t inode;
    uint32_t mode;
    uint32_t uid;
    uint64_t links;
    uint64_t size;
};

/* Opens with O_CLOEXEC; the descriptor is 3 or above, even if the process has closed those. */
int guardOpen(int folder, const char *path, int flags);
/* A descriptor that may be one of the first three becomes one above; -1 if there is none free. */
int guardLift(int descriptor);
void guardClose(int descriptor);
bool guardStatAt(int folder, const char *path, int flags, struct GuardStat *status);
uid_t guardEffectiveUid(void);
/* read(2). */
ssize_t guardReadPart(int file, char *buffer, size_t size);
/* Reads at most `size` bytes from the start of a file, as far as they come; -1 on failure. */
ssize_t guardReadFile(const char *path, char *buffer, size_t size);
/* The absolute path that the descriptor was opened by, without a NUL; 0 if it has none. */
size_t guardPathOf(int descriptor, char *buffer, size_t size);

/* The working directory; 0 if it cannot be reached from the process's root. */
size_t guardWorkingDirectory(char *buffer, size_t size);

/* Holds back all signals but those that a fault raises. *former: what to give back. */
bool guardHoldSignals(uint64_t *former);
void guardReleaseSignals(const uint64_t *former);

/* Milliseconds of a clock that only moves forward; costs no system call. */
int64_t guardNow(void);

/* Writes "/proc/self/fd/<descriptor>". */
#define GUARD_FD_PATH_SIZE 32
void guardFdPath(int descriptor, char path[GUARD_FD_PATH_SIZE]);
/* Appends decimal or hexadecimal digits; returns the position behind them. */
char *guardPutNumber(char *to, uint64_t number, unsigned base);
char *guardPutText(char *to, const char *text);
