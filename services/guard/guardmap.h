/*
 * Reading a map file: checking it and matching names and paths against it. Pure functions, no
 * system calls; used by the library and by the service, so that both decide alike.
 */
#pragma once

#include "guard/guardprotocol.h"

#include <stdbool.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Whether the `size` bytes at `data` are a map that the functions below can read safely. */
bool guardMapIsValid(const void *data, size_t size);

/* Whether the file name ends in one of the extensions, as "a.tar.gz" in "tar.gz" or "gz". */
bool guardHasExtension(const struct GuardMapHeader *map, struct GuardTable extensions,
                       const char *name, size_t length);

/* The index of an owner for whom the path (absolute, canonical) is protected, -1 if there is none.
 * Among several, `preferredUid` comes first. */
int guardOwnerOf(const struct GuardMapHeader *map, const char *path, size_t length,
                 enum GuardKind kind, uint32_t preferredUid);

/* Whether a file directly in the folder can be protected, for any owner and whatever its name.
 * `folder`: absolute, canonical, no '/' at the end. */
bool guardConcernsFolder(const struct GuardMapHeader *map, const char *folder, size_t length);

/* Whether the path is below a trash; by text, without resolving links. */
bool guardIsBelowTrash(const struct GuardMapHeader *map, const char *path, size_t length);
bool guardIsTrashFolder(const struct GuardMapHeader *map, uint64_t device, uint64_t inode);

/* The spool for that user's files on that file system, or null. */
const struct GuardSpool *guardSpoolFor(const struct GuardMapHeader *map, uint64_t device,
                                       uint32_t uid);

const struct GuardOwner *guardOwnerAt(const struct GuardMapHeader *map, uint32_t index);
const char *guardText(const struct GuardMapHeader *map, struct GuardText text);

/* The last component of a path: its start; it may be empty. */
const char *guardNameIn(const char *path, size_t length);

#ifdef __cplusplus
}
#endif
