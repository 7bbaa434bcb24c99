/*
 * What happens around one deletion. guardBefore() never fails: whatever goes wrong, the deletion
 * is not kept. Async-signal-safe, cancellation-safe, no heap, no locks; together below 16 KiB of
 * stack. Both change errno.
 */
#pragma once

#include "guard/guardprotocol.h"
#include "guard/guardspool.h"

#include <stdbool.h>
#include <stdint.h>

struct GuardedDeletion
{
    bool isKept; /* guardAfter() is due; signals are held back until then. */
    int connection;
    struct GuardSpooled spooled;
    uint64_t formerSignals;
};

/* `folder` and `path` as for unlinkat(2). */
void guardBefore(struct GuardedDeletion *deletion, int folder, const char *path,
                 enum GuardKind kind);
/* `error`: the real call's errno, 0 for success. */
void guardAfter(struct GuardedDeletion *deletion, int error);
