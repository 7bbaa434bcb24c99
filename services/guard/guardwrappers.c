/*
 * The functions that programs call in place of the C library's. Each does what it has to around the
 * next function of that name, leaves errno as that one does, and returns what it returns.
 */
#include "guard/guardkeep.h"
#include "guard/guardprocess.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/syscall.h>
#include <unistd.h>

#define EXPORTED __attribute__((visibility("default")))

#ifndef RENAME_NOREPLACE
#define RENAME_NOREPLACE 1u
#endif

/* Found once, before main(). Null in other libraries' constructors that run earlier, and for what
 * an older C library does not have: then the system call is made. */
static int (*s_unlink)(const char *);
static int (*s_unlinkat)(int, const char *, int);
static int (*s_remove)(const char *);
static int (*s_rename)(const char *, const char *);
static int (*s_renameat)(int, const char *, int, const char *);
static int (*s_renameat2)(int, const char *, int, const char *, unsigned);

/* ISO C has no cast from an object pointer to a function pointer; POSIX has this one. */
#define FIND_NEXT(function, name) (*(void **)&(function) = dlsym(RTLD_NEXT, name))

__attribute__((constructor)) static void start(void)
{
    const int saved = errno;
    guardProcessInit();
    FIND_NEXT(s_unlink, "unlink");
    FIND_NEXT(s_unlinkat, "unlinkat");
    FIND_NEXT(s_remove, "remove");
    FIND_NEXT(s_rename, "rename");
    FIND_NEXT(s_renameat, "renameat");
    FIND_NEXT(s_renameat2, "renameat2");
    errno = saved;
}

static int callUnlinkat(int folder, const char *path, int flags)
{
    return s_unlinkat ? s_unlinkat(folder, path, flags)
                      : (int)syscall(SYS_unlinkat, folder, path, flags);
}

static int callUnlink(const char *path)
{
    return s_unlink ? s_unlink(path) : (int)syscall(SYS_unlinkat, AT_FDCWD, path, 0);
}

static int callRemove(const char *path)
{
    if (s_remove)
        return s_remove(path);
    const int result = (int)syscall(SYS_unlinkat, AT_FDCWD, path, 0);
    return result == 0 || errno != EISDIR
               ? result
               : (int)syscall(SYS_unlinkat, AT_FDCWD, path, AT_REMOVEDIR);
}

static int callRenameat2(int from, const char *fromPath, int to, const char *toPath, unsigned flags)
{
    return s_renameat2 ? s_renameat2(from, fromPath, to, toPath, flags)
                       : (int)syscall(SYS_renameat2, from, fromPath, to, toPath, flags);
}

static int callRenameat(int from, const char *fromPath, int to, const char *toPath)
{
    return s_renameat ? s_renameat(from, fromPath, to, toPath)
                      : callRenameat2(from, fromPath, to, toPath, 0);
}

static int callRename(const char *from, const char *to)
{
    return s_rename ? s_rename(from, to) : callRenameat2(AT_FDCWD, from, AT_FDCWD, to, 0);
}

/* Runs the real call between the two halves, with the errno of the caller before it and its own
 * after it. */
#define GUARDED(folder, path, kind, call)                                                          \
    do {                                                                                           \
        struct GuardedDeletion deletion;                                                           \
        int saved = errno;                                                                         \
        guardBefore(&deletion, folder, path, kind);                                                \
        errno = saved;                                                                             \
        const int result = call;                                                                   \
        if (deletion.isKept) {                                                                     \
            saved = errno;                                                                         \
            guardAfter(&deletion, result == 0 ? 0 : saved);                                        \
            errno = saved;                                                                         \
        }                                                                                          \
        return result;                                                                             \
    } while (0)

EXPORTED int unlink(const char *path)
{
    GUARDED(AT_FDCWD, path, GuardDeletion, callUnlink(path));
}

EXPORTED int unlinkat(int folder, const char *path, int flags)
{
    if (flags != 0) /* A folder. */
        return callUnlinkat(folder, path, flags);
    GUARDED(folder, path, GuardDeletion, callUnlinkat(folder, path, flags));
}

EXPORTED int remove(const char *path)
{
    GUARDED(AT_FDCWD, path, GuardDeletion, callRemove(path));
}

EXPORTED int rename(const char *from, const char *to)
{
    GUARDED(AT_FDCWD, to, GuardReplacement, callRename(from, to));
}

EXPORTED int renameat(int from, const char *fromPath, int to, const char *toPath)
{
    GUARDED(to, toPath, GuardReplacement, callRenameat(from, fromPath, to, toPath));
}

EXPORTED int renameat2(int from, const char *fromPath, int to, const char *toPath, unsigned flags)
{
    if (flags != 0) /* Replaces nothing, or exchanges the two. */
        return callRenameat2(from, fromPath, to, toPath, flags);
    GUARDED(to, toPath, GuardReplacement, callRenameat2(from, fromPath, to, toPath, flags));
}
