#include "guard/guardmap.h"

#include <string.h>

/* More owners than this for one path are not told apart; the service decides anyway. */
#define MAX_LEFT_OUT 8

static const void *at(const struct GuardMapHeader *map, uint32_t offset)
{
    return (const char *)map + offset;
}

static bool fits(const struct GuardMapHeader *map, struct GuardTable table, size_t elementSize)
{
    return table.offset % 8 == 0 && table.offset >= sizeof(*map) && table.offset <= map->size &&
           table.count <= (map->size - table.offset) / elementSize;
}

static bool textFits(const struct GuardMapHeader *map, struct GuardText text)
{
    return text.offset <= map->size && text.length <= map->size - text.offset;
}

static bool extensionsFit(const struct GuardMapHeader *map, struct GuardTable table)
{
    return fits(map, table, sizeof(struct GuardExtension));
}

static bool ownersAreValid(const struct GuardMapHeader *map)
{
    for (uint32_t i = 0; i < map->owners.count; ++i) {
        const struct GuardOwner *owner = guardOwnerAt(map, i);
        if (!extensionsFit(map, owner->extensions) ||
            !fits(map, owner->names, sizeof(struct GuardText)))
            return false;
        const struct GuardText *names = at(map, owner->names.offset);
        for (uint32_t j = 0; j < owner->names.count; ++j) {
            if (!textFits(map, names[j]))
                return false;
        }
    }
    return true;
}

static bool foldersAreValid(const struct GuardMapHeader *map)
{
    const struct GuardFolder *folders = at(map, map->folders.offset);
    for (uint32_t i = 0; i < map->folders.count; ++i) {
        if (!textFits(map, folders[i].path) || folders[i].owner >= map->owners.count)
            return false;
    }
    const struct GuardTrash *trashes = at(map, map->trashes.offset);
    for (uint32_t i = 0; i < map->trashes.count; ++i) {
        if (!textFits(map, trashes[i].path))
            return false;
    }
    const struct GuardSpool *spools = at(map, map->spools.offset);
    for (uint32_t i = 0; i < map->spools.count; ++i) {
        if (!textFits(map, spools[i].path))
            return false;
    }
    return true;
}

bool guardMapIsValid(const void *data, size_t size)
{
    const struct GuardMapHeader *map = data;
    return size >= sizeof(*map) && size <= GUARD_MAX_MAP_SIZE && map->magic == GUARD_MAP_MAGIC &&
           map->version == GUARD_VERSION && map->size == size &&
           extensionsFit(map, map->extensions) &&
           fits(map, map->owners, sizeof(struct GuardOwner)) &&
           fits(map, map->folders, sizeof(struct GuardFolder)) &&
           fits(map, map->trashes, sizeof(struct GuardTrash)) &&
           fits(map, map->spools, sizeof(struct GuardSpool)) && ownersAreValid(map) &&
           foldersAreValid(map);
}

const struct GuardOwner *guardOwnerAt(const struct GuardMapHeader *map, uint32_t index)
{
    return (const struct GuardOwner *)at(map, map->owners.offset) + index;
}

const char *guardText(const struct GuardMapHeader *map, struct GuardText text)
{
    return at(map, text.offset);
}

const char *guardNameIn(const char *path, size_t length)
{
    while (length > 0 && path[length - 1] != '/')
        --length;
    return path + length;
}

static bool isListed(const struct GuardMapHeader *map, struct GuardTable table,
                     const struct GuardExtension *wanted)
{
    const struct GuardExtension *extensions = at(map, table.offset);
    uint32_t low = 0;
    uint32_t high = table.count;
    while (low < high) {
        const uint32_t middle = low + (high - low) / 2;
        const int order = memcmp(extensions[middle].text, wanted->text, GUARD_EXTENSION_SIZE);
        if (order == 0)
            return true;
        if (order < 0)
            low = middle + 1;
        else
            high = middle;
    }
    return false;
}

bool guardHasExtension(const struct GuardMapHeader *map, struct GuardTable extensions,
                       const char *name, size_t length)
{
    /* A dot in front makes a hidden file, not an extension. */
    for (size_t tail = 1; tail < length && tail <= GUARD_EXTENSION_SIZE; ++tail) {
        if (name[length - tail] != '.' || tail == 1)
            continue;
        struct GuardExtension wanted;
        memset(&wanted, 0, sizeof(wanted));
        for (size_t i = 0; i + 1 < tail; ++i) {
            const char c = name[length - tail + 1 + i];
            wanted.text[i] = c >= 'A' && c <= 'Z' ? (char)(c - 'A' + 'a') : c;
        }
        if (isListed(map, extensions, &wanted))
            return true;
    }
    return false;
}

static int comparePaths(const char *a, size_t aLength, const char *b, size_t bLength)
{
    const int order = memcmp(a, b, aLength < bLength ? aLength : bLength);
    if (order != 0)
        return order;
    return aLength < bLength ? -1 : aLength > bLength;
}

/* The index of the first folder with this path; the count if there is none. */
static uint32_t findFolder(const struct GuardMapHeader *map, const char *path, size_t length)
{
    const struct GuardFolder *folders = at(map, map->folders.offset);
    uint32_t low = 0;
    uint32_t high = map->folders.count;
    while (low < high) {
        const uint32_t middle = low + (high - low) / 2;
        const struct GuardText text = folders[middle].path;
        if (comparePaths(guardText(map, text), text.length, path, length) < 0)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

static bool isPath(const struct GuardMapHeader *map, struct GuardText text, const char *path,
                   size_t length)
{
    return text.length == length && memcmp(guardText(map, text), path, length) == 0;
}

/* Whether a folder between the prefix and the file name has one of the owner's left-out names. */
static bool hasLeftOutName(const struct GuardMapHeader *map, const struct GuardOwner *owner,
                           const char *path, size_t prefix, size_t length)
{
    const struct GuardText *names = at(map, owner->names.offset);
    size_t start = prefix + 1;
    for (size_t i = start; i < length; ++i) {
        if (path[i] != '/')
            continue;
        for (uint32_t j = 0; j < owner->names.count; ++j) {
            if (isPath(map, names[j], path + start, i - start))
                return true;
        }
        start = i + 1;
    }
    return false;
}

static bool wants(const struct GuardMapHeader *map, const struct GuardOwner *owner,
                  const char *path, size_t prefix, size_t length, enum GuardKind kind)
{
    if (kind == GuardReplacement && !(owner->flags & GuardMapReplacements))
        return false;
    const char *name = guardNameIn(path, length);
    return guardHasExtension(map, owner->extensions, name, (size_t)(path + length - name)) &&
           !hasLeftOutName(map, owner, path, prefix, length);
}

int guardOwnerOf(const struct GuardMapHeader *map, const char *path, size_t length,
                 enum GuardKind kind, uint32_t preferredUid)
{
    if (length == 0 || path[0] != '/')
        return -1;
    const struct GuardFolder *folders = at(map, map->folders.offset);
    uint32_t decided[MAX_LEFT_OUT]; /* Owners whose longest folder leaves the path out. */
    uint32_t decidedCount = 0;
    int found = -1;
    for (size_t prefix = length; prefix-- > 0;) {
        if (path[prefix] != '/')
            continue;
        for (uint32_t i = findFolder(map, path, prefix);
             i < map->folders.count && isPath(map, folders[i].path, path, prefix); ++i) {
            bool isDecided = false;
            for (uint32_t j = 0; j < decidedCount; ++j)
                isDecided = isDecided || decided[j] == folders[i].owner;
            if (isDecided)
                continue;
            const struct GuardOwner *owner = guardOwnerAt(map, folders[i].owner);
            if (folders[i].kind == GuardLeftOut) {
                if (decidedCount < MAX_LEFT_OUT)
                    decided[decidedCount++] = folders[i].owner;
            } else if (wants(map, owner, path, prefix, length, kind)) {
                if (owner->uid == preferredUid)
                    return (int)folders[i].owner;
                if (found < 0)
                    found = (int)folders[i].owner;
            }
        }
    }
    return found;
}

bool guardConcernsFolder(const struct GuardMapHeader *map, const char *folder, size_t length)
{
    const struct GuardFolder *folders = at(map, map->folders.offset);
    for (size_t prefix = length;; --prefix) {
        if (prefix == length || prefix == 0 || folder[prefix] == '/') {
            for (uint32_t i = findFolder(map, folder, prefix);
                 i < map->folders.count && isPath(map, folders[i].path, folder, prefix); ++i) {
                if (folders[i].kind == GuardProtected)
                    return true;
            }
        }
        if (prefix == 0)
            break;
    }
    const struct GuardTrash *trashes = at(map, map->trashes.offset);
    for (uint32_t i = 0; i < map->trashes.count; ++i) {
        if (isPath(map, trashes[i].path, folder, length))
            return true;
    }
    return guardIsBelowTrash(map, folder, length);
}

bool guardIsBelowTrash(const struct GuardMapHeader *map, const char *path, size_t length)
{
    const struct GuardTrash *trashes = at(map, map->trashes.offset);
    for (uint32_t i = 0; i < map->trashes.count; ++i) {
        const struct GuardText text = trashes[i].path;
        if (length > text.length && path[text.length] == '/' &&
            memcmp(guardText(map, text), path, text.length) == 0)
            return true;
    }
    return false;
}

bool guardIsTrashFolder(const struct GuardMapHeader *map, uint64_t device, uint64_t inode)
{
    const struct GuardTrash *trashes = at(map, map->trashes.offset);
    for (uint32_t i = 0; i < map->trashes.count; ++i) {
        if (trashes[i].inode == inode && trashes[i].device == device && inode != 0)
            return true;
    }
    return false;
}

const struct GuardSpool *guardSpoolFor(const struct GuardMapHeader *map, uint64_t device,
                                       uint32_t uid)
{
    const struct GuardSpool *spools = at(map, map->spools.offset);
    for (uint32_t i = 0; i < map->spools.count; ++i) {
        if (spools[i].device == device && spools[i].uid == uid)
            return spools + i;
    }
    return NULL;
}
