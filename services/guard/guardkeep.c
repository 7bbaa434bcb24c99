#include "guard/guardkeep.h"

#include "guard/guardcalls.h"
#include "guard/guardconfig.h"
#include "guard/guardfolders.h"
#include "guard/guardmap.h"
#include "guard/guardprocess.h"
#include "guard/guardtalk.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#define PATH_SIZE 4096

/* A deletion as the program asked for it. */
struct Call
{
    int folder;
    const char *path;
    size_t length;
    const char *name; /* Last component of the path. */
    size_t nameLength;
    enum GuardKind kind;
};

/* Fails for pointers that the real call will refuse, and for what names no file. */
static bool describe(struct Call *call, int folder, const char *path, enum GuardKind kind)
{
    /* The first page is never mapped; volatile since the compiler takes the path as not null. */
    const volatile uintptr_t address = (uintptr_t)path;
    if (address < PATH_SIZE)
        return false;
    call->folder = folder;
    call->path = path;
    call->length = strnlen(path, PATH_SIZE);
    call->name = guardNameIn(path, call->length);
    call->nameLength = (size_t)(path + call->length - call->name);
    call->kind = kind;
    return call->length < PATH_SIZE && call->nameLength > 0 && call->nameLength < GUARD_NAME_SIZE;
}

/* Copies the path of the parent folder; *text is then "." or the part before the name. */
static bool parentOf(const struct Call *call, char *text, size_t size)
{
    size_t length = (size_t)(call->name - call->path);
    if (length == 0) {
        text[0] = '.';
        text[1] = '\0';
        return true;
    }
    if (length >= size)
        return false;
    memcpy(text, call->path, length);
    text[length] = '\0';
    return true;
}

/* Whether the file may be an item of a trash under a name that says nothing about it. Cheap: no
 * system call if the path is absolute or there is no trash. */
static bool mayBeInTrash(const struct GuardMapHeader *map, const struct Call *call)
{
    if (map->trashes.count == 0 || call->kind != GuardDeletion)
        return false;
    if (call->path[0] == '/')
        return guardIsBelowTrash(map, call->path, call->length);
    char parent[GUARD_NAME_SIZE] = "";
    struct GuardStat status;
    /* The folder itself is quicker to look at than its ".". */
    if (call->name != call->path && !parentOf(call, parent, sizeof(parent)))
        return false;
    return guardStatAt(call->folder, parent, AT_EMPTY_PATH, &status) &&
           guardIsTrashFolder(map, status.device, status.inode);
}

static bool isWanted(const struct GuardMapHeader *map, const struct Call *call)
{
    if (!(map->flags & GuardMapEnabled) ||
        (call->kind == GuardReplacement && !(map->flags & GuardMapReplacements)))
        return false;
    return guardHasExtension(map, map->extensions, call->name, call->nameLength) ||
           mayBeInTrash(map, call);
}

static __attribute__((noinline)) int openParent(const struct Call *call)
{
    char parent[PATH_SIZE];
    return parentOf(call, parent, sizeof(parent))
               ? guardOpen(call->folder, parent, O_PATH | O_DIRECTORY)
               : -1;
}

static __attribute__((noinline)) void spool(struct GuardedDeletion *deletion,
                                            const struct GuardMapHeader *map, uint32_t uid,
                                            int file, const struct GuardStat *status,
                                            const char *path)
{
    /* Root spools for the file's owner, everybody else for themselves. */
    if (guardIsSecureExecution() || (uid != 0 && uid != status->uid))
        return;
    const struct GuardSpool *place = guardSpoolFor(map, status->device, status->uid);
    if (!place || place->path.length >= PATH_SIZE)
        return;
    char folder[PATH_SIZE];
    memcpy(folder, guardText(map, place->path), place->path.length);
    folder[place->path.length] = '\0';
    deletion->isKept = guardSpoolPut(folder, place->uid, file, status, path, &deletion->spooled);
}

static __attribute__((noinline)) enum GuardOutcome talk(struct GuardedDeletion *deletion,
                                                        const struct GuardMapHeader *map,
                                                        const struct Call *call, int file)
{
    if (guardServiceIsSilent())
        return GuardIsSilent;
    /* The service opens the folder again for itself; the program's own descriptor names it as well.
     */
    const bool isOpen = call->name == call->path && call->folder >= 0;
    const int parent = isOpen ? call->folder : openParent(call);
    if (parent < 0)
        return GuardGoAhead;
    const enum GuardOutcome outcome = guardTalk(
        map->uid, file, parent, call->name, call->nameLength, call->kind, &deletion->connection);
    if (!isOpen)
        guardClose(parent);
    return outcome;
}

/* The path of a file that is named without its folder: found without opening anything. */
static size_t pathByFolder(const struct Call *call, char path[PATH_SIZE])
{
    if (call->name != call->path)
        return 0;
    size_t length = call->folder == AT_FDCWD ? guardWorkingDirectory(path, PATH_SIZE)
                                             : guardPathOf(call->folder, path, PATH_SIZE);
    if (length == 0 || length + 1 + call->nameLength >= PATH_SIZE)
        return 0;
    if (path[length - 1] != '/')
        path[length++] = '/';
    memcpy(path + length, call->name, call->nameLength);
    return length + call->nameLength;
}

static bool isProtected(const struct GuardMapHeader *map, const struct Call *call, const char *path,
                        size_t length, uint32_t uid)
{
    return guardOwnerOf(map, path, length, call->kind, uid) >= 0 ||
           (call->kind == GuardDeletion && guardIsBelowTrash(map, path, length));
}

/* `path` ends in a NUL. */
static void keepFile(struct GuardedDeletion *deletion, const struct GuardMapHeader *map,
                     const struct Call *call, uint32_t uid, int file, const char *path)
{
    struct GuardStat status;
    if (!guardStatAt(file, "", AT_EMPTY_PATH, &status) || !S_ISREG(status.mode) ||
        status.links == 0 || guardIsFiltered())
        return;
    /* A handler that jumps away would leave descriptors open and a deletion half reported. */
    if (!guardHoldSignals(&deletion->formerSignals))
        return;
    const enum GuardOutcome outcome = talk(deletion, map, call, file);
    if (outcome == GuardIsKept)
        deletion->isKept = true;
    else if (outcome == GuardIsSilent)
        spool(deletion, map, uid, file, &status, path);
    if (!deletion->isKept)
        guardReleaseSignals(&deletion->formerSignals);
}

/* The folder of an absolute path: looked at without opening it. The length of its path, 0 if it
 * cannot be told. */
static __attribute__((noinline)) size_t lookAtFolder(const struct Call *call,
                                                     struct GuardStat *folder)
{
    const size_t length = (size_t)(call->name - call->path);
    char parent[PATH_SIZE];
    return call->path[0] == '/' && length > 1 && parentOf(call, parent, sizeof(parent)) &&
                   guardStatAt(AT_FDCWD, parent, 0, folder)
               ? length - 1
               : 0;
}

/* Remembers the folder if nothing in it can be protected and the program names it canonically. */
static void noteFolder(const struct GuardMapHeader *map, const struct Call *call, const char *path,
                       size_t length, const struct GuardStat *folder)
{
    const size_t folderLength = (size_t)(call->name - call->path) - 1;
    if (length == call->length && memcmp(path, call->path, length) == 0 &&
        !guardConcernsFolder(map, path, folderLength))
        guardNoteFolder(map, path, folderLength, folder);
}

static __attribute__((noinline)) void keep(struct GuardedDeletion *deletion,
                                           const struct GuardMapHeader *map,
                                           const struct Call *call, uint32_t uid)
{
    struct GuardStat folder;
    const size_t folderLength = lookAtFolder(call, &folder);
    if (folderLength != 0 && guardKnowsFolder(map, call->path, folderLength, &folder))
        return;
    char path[PATH_SIZE];
    size_t length = pathByFolder(call, path);
    if (length != 0 && !isProtected(map, call, path, length, uid))
        return;
    const int file = guardOpen(call->folder, call->path, O_PATH | O_NOFOLLOW);
    if (file < 0)
        return;
    if (length == 0)
        length = guardPathOf(file, path, sizeof(path));
    if (length != 0 && isProtected(map, call, path, length, uid)) {
        path[length] = '\0';
        keepFile(deletion, map, call, uid, file, path);
    } else if (length != 0 && folderLength != 0) {
        noteFolder(map, call, path, length, &folder);
    }
    guardClose(file);
}

void guardBefore(struct GuardedDeletion *deletion, int folder, const char *path,
                 enum GuardKind kind)
{
    deletion->isKept = false;
    deletion->connection = -1;
    deletion->spooled.folder = -1;
    struct Call call;
    if (!describe(&call, folder, path, kind))
        return;
    const uint32_t uid = guardEffectiveUid();
    const struct GuardLease lease = guardLeaseMap(uid);
    if (lease.map && isWanted(lease.map, &call))
        keep(deletion, lease.map, &call, uid);
    guardEndLease(&lease);
}

void guardAfter(struct GuardedDeletion *deletion, int error)
{
    if (!deletion->isKept)
        return;
    if (deletion->connection >= 0)
        guardTalkEnd(deletion->connection, error);
    guardSpoolEnd(&deletion->spooled, error == 0);
    guardReleaseSignals(&deletion->formerSignals);
}
