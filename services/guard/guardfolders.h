/*
 * Folders in which nothing is protected, remembered for a second: deletions in a row need not find
 * the path of each file. No locks; a folder is one number, written and read at once.
 */
#pragma once

#include "guard/guardcalls.h"
#include "guard/guardprotocol.h"

#include <stdbool.h>
#include <stddef.h>

/* Whether the folder, by the path that the program uses for it and as it is now, was found to hold
 * nothing that is protected by this map. */
bool guardKnowsFolder(const struct GuardMapHeader *map, const char *path, size_t length,
                      const struct GuardStat *folder);
/* Remembers it. `path` must be canonical: no symbolic link may lead elsewhere in the meantime. */
void guardNoteFolder(const struct GuardMapHeader *map, const char *path, size_t length,
                     const struct GuardStat *folder);
