#include "guard/guardconfig.h"

#include "guard/guardcalls.h"
#include "guard/guardmap.h"
#include "guard/guardprocess.h"

#include <fcntl.h>
#include <stdatomic.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

/* Users that a process acts for, and maps that it keeps in all; both are enough for any program
 * that is not a server with many users. */
#define SLOTS 8
#define MAX_KEPT_MAPS 64
#define ABSENT_RETRY_MS 1000

struct Slot
{
    _Atomic uint64_t key; /* uid + 1; 0 while free. Never changes once set. */
    _Atomic(const struct GuardMapHeader *) map;
    _Atomic int64_t nextTry; /* While there is no map; guardNow() time. */
};

static struct Slot s_slots[SLOTS];
static _Atomic int s_keptMaps;

static struct Slot *slotOf(uint32_t uid)
{
    const uint64_t key = (uint64_t)uid + 1;
    for (int i = 0; i < SLOTS; ++i) {
        uint64_t found = atomic_load_explicit(&s_slots[i].key, memory_order_relaxed);
        if (found == 0 && atomic_compare_exchange_strong(&s_slots[i].key, &found, key))
            return &s_slots[i];
        if (found == key)
            return &s_slots[i];
    }
    return NULL;
}

static int openMapFile(const char *path)
{
    return guardOpen(AT_FDCWD, path, O_RDONLY | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK);
}

/* *uid: the one that the file should be for. */
static int openMap(uint32_t *uid)
{
    char path[128];
    char *name = guardPutText(guardPutText(path, guardRunDir()), "/");
    *guardPutText(guardPutNumber(name, *uid, 10), ".map") = '\0';
    int file = openMapFile(path);
    bool isMapped = false;
    if (file < 0 && (*uid = guardOuterUid(*uid, &isMapped), isMapped)) {
        *guardPutText(guardPutNumber(name, *uid, 10), ".map") = '\0';
        file = openMapFile(path);
    }
    if (file >= 0)
        return file;
    *guardPutText(name, "any.map") = '\0';
    return openMapFile(path);
}

static void *mapPages(int file, size_t size)
{
#ifdef SYS_mmap2
    const long start = syscall(SYS_mmap2, NULL, size, PROT_READ, MAP_SHARED, file, 0L);
#else
    const long start = syscall(SYS_mmap, NULL, size, PROT_READ, MAP_SHARED, file, 0L);
#endif
    return start == -1 ? NULL : (void *)start;
}

/* Maps the file of that user if it is root's, is nobody else's to write, and is a valid map. */
static const struct GuardMapHeader *mapFor(uint32_t uid)
{
    const int file = openMap(&uid);
    if (file < 0)
        return NULL;
    const struct GuardMapHeader *map = NULL;
    struct GuardStat status;
    if (guardStatAt(file, "", AT_EMPTY_PATH, &status) && S_ISREG(status.mode) &&
        guardIsRoot(status.uid) && !(status.mode & (S_IWGRP | S_IWOTH)) &&
        status.size >= sizeof(*map) && status.size <= GUARD_MAX_MAP_SIZE)
        map = mapPages(file, (size_t)status.size);
    guardClose(file);
    if (map && (!guardMapIsValid(map, (size_t)status.size) ||
                (map->uid != uid && map->uid != GUARD_ANY_USER))) {
        syscall(SYS_munmap, map, (size_t)status.size);
        map = NULL;
    }
    return map;
}

static bool isReplaced(const struct GuardMapHeader *map)
{
    /* The writer sets this in the file, hence in the shared pages. */
    return __atomic_load_n(&map->isReplaced, __ATOMIC_ACQUIRE) != 0;
}

/* Publishes the map in the slot, or leases it for one deletion if enough are kept. */
static struct GuardLease publish(struct Slot *slot, const struct GuardMapHeader *former,
                                 const struct GuardMapHeader *map)
{
    struct GuardLease lease = {map, map->size};
    if (!slot || atomic_load(&s_keptMaps) >= MAX_KEPT_MAPS)
        return lease;
    if (atomic_compare_exchange_strong(&slot->map, &former, map)) {
        atomic_fetch_add(&s_keptMaps, 1);
        lease.unmapSize = 0;
    }
    return lease;
}

struct GuardLease guardLeaseMap(uint32_t uid)
{
    struct GuardLease lease = {NULL, 0};
    struct Slot *slot = slotOf(uid);
    const struct GuardMapHeader *former = slot ? atomic_load(&slot->map) : NULL;
    if (former && !isReplaced(former)) {
        lease.map = former;
        return lease;
    }
    if (slot && guardNow() < atomic_load_explicit(&slot->nextTry, memory_order_relaxed))
        return lease;
    const struct GuardMapHeader *map = mapFor(uid);
    if (map)
        return publish(slot, former, map);
    if (slot)
        atomic_store_explicit(&slot->nextTry, guardNow() + ABSENT_RETRY_MS, memory_order_relaxed);
    return lease;
}

void guardEndLease(const struct GuardLease *lease)
{
    if (lease->unmapSize != 0)
        syscall(SYS_munmap, lease->map, lease->unmapSize);
}
