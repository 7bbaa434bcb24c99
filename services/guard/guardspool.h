/* Keeping a file without the service: a hard link in the user's spool. Async-signal-safe. */
#pragma once

#include "guard/guardcalls.h"
#include "guard/guardprotocol.h"

#include <stdbool.h>
#include <stddef.h>

#define GUARD_SPOOL_ID_SIZE 64

struct GuardSpooled
{
    int folder; /* -1: nothing is spooled. */
    char id[GUARD_SPOOL_ID_SIZE];
};

/* Links the file into the spool with the path that it had (ends in a NUL). The folder's owner must
 * own the file; nothing else is ever linked. */
bool guardSpoolPut(const char *spoolPath, uint32_t owner, int file, const struct GuardStat *status,
                   const char *path, struct GuardSpooled *spooled);
/* Removes the entry again if the deletion has failed, and closes the folder. */
void guardSpoolEnd(struct GuardSpooled *spooled, bool isDeleted);
