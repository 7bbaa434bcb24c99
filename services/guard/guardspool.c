#include "guard/guardspool.h"

#include <fcntl.h>
#include <string.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#define SPOOL_NAME_SIZE (GUARD_SPOOL_ID_SIZE + 8)

static void spoolName(char name[SPOOL_NAME_SIZE], const char *id, const char *suffix)
{
    *guardPutText(guardPutText(name, id), suffix) = '\0';
}

/* Unique among processes, also after a restart: time, thread, and random bits where there are. */
static void makeId(char id[GUARD_SPOOL_ID_SIZE], const struct GuardStat *status)
{
    uint64_t random = status->inode;
    syscall(SYS_getrandom, &random, sizeof(random), GRND_NONBLOCK);
    char *end = guardPutNumber(id, (uint64_t)guardNow(), 16);
    end = guardPutNumber(guardPutText(end, "-"), (uint64_t)syscall(SYS_gettid), 16);
    end = guardPutNumber(guardPutText(end, "-"), random, 16);
    *end = '\0';
}

static int openSpool(const char *path, uint32_t owner, uint64_t device)
{
    const int folder = guardOpen(AT_FDCWD, path, O_PATH | O_DIRECTORY | O_NOFOLLOW);
    struct GuardStat status;
    if (folder >= 0 && (!guardStatAt(folder, "", AT_EMPTY_PATH, &status) || status.uid != owner ||
                        (status.mode & (S_IWGRP | S_IWOTH)) || status.device != device)) {
        guardClose(folder);
        return -1;
    }
    return folder;
}

bool guardSpoolPut(const char *spoolPath, uint32_t owner, int file, const struct GuardStat *status,
                   const char *path, struct GuardSpooled *spooled)
{
    spooled->folder = -1;
    if (status->uid != owner || !S_ISREG(status->mode))
        return false;
    const int folder = openSpool(spoolPath, owner, status->device);
    if (folder < 0)
        return false;
    char name[SPOOL_NAME_SIZE];
    char link[GUARD_FD_PATH_SIZE];
    makeId(spooled->id, status);
    guardFdPath(file, link);
    spoolName(name, spooled->id, GUARD_SPOOL_PATH_SUFFIX);
    if (syscall(SYS_symlinkat, path, folder, name) == 0) {
        char content[SPOOL_NAME_SIZE];
        spoolName(content, spooled->id, GUARD_SPOOL_FILE_SUFFIX);
        if (syscall(SYS_linkat, AT_FDCWD, link, folder, content, AT_SYMLINK_FOLLOW) == 0) {
            spooled->folder = folder;
            return true;
        }
        syscall(SYS_unlinkat, folder, name, 0);
    }
    guardClose(folder);
    return false;
}

void guardSpoolEnd(struct GuardSpooled *spooled, bool isDeleted)
{
    if (spooled->folder < 0)
        return;
    if (!isDeleted) {
        /* The content first: an entry without one is nothing. */
        char name[SPOOL_NAME_SIZE];
        spoolName(name, spooled->id, GUARD_SPOOL_FILE_SUFFIX);
        syscall(SYS_unlinkat, spooled->folder, name, 0);
        spoolName(name, spooled->id, GUARD_SPOOL_PATH_SUFFIX);
        syscall(SYS_unlinkat, spooled->folder, name, 0);
    }
    guardClose(spooled->folder);
    spooled->folder = -1;
}
