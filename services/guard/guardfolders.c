#include "guard/guardfolders.h"

#include <stdatomic.h>

#define SLOTS 16
#define TERM_MS 1000

static _Atomic uint64_t s_known[SLOTS];

static uint64_t mix(uint64_t hash, uint64_t number)
{
    hash ^= number;
    hash *= UINT64_C(0x9e3779b97f4a7c15);
    return hash ^ (hash >> 29);
}

/* Of the map, the folder by path and inode, and the term that it is known for. */
static uint64_t keyOf(const struct GuardMapHeader *map, const char *path, size_t length,
                      const struct GuardStat *folder)
{
    uint64_t hash = mix(map->generation, (uint64_t)(uintptr_t)map);
    hash = mix(hash, (uint64_t)(guardNow() / TERM_MS));
    hash = mix(mix(hash, folder->device), folder->inode);
    for (size_t i = 0; i < length; ++i)
        hash = (hash ^ (unsigned char)path[i]) * UINT64_C(0x100000001b3);
    return mix(hash, length) | 1; /* Never that of a free slot. */
}

bool guardKnowsFolder(const struct GuardMapHeader *map, const char *path, size_t length,
                      const struct GuardStat *folder)
{
    const uint64_t key = keyOf(map, path, length, folder);
    return atomic_load_explicit(&s_known[(key >> 32) % SLOTS], memory_order_relaxed) == key;
}

void guardNoteFolder(const struct GuardMapHeader *map, const char *path, size_t length,
                     const struct GuardStat *folder)
{
    const uint64_t key = keyOf(map, path, length, folder);
    atomic_store_explicit(&s_known[(key >> 32) % SLOTS], key, memory_order_relaxed);
}
