/*
 * The map of the user that the process acts for. No locks: maps are published by one atomic
 * exchange and never unmapped while others may read them, so signal handlers, forked and vforked
 * children and other threads can use them at any time. A process keeps a limited number of maps;
 * beyond that each deletion maps the file for itself.
 */
#pragma once

#include "guard/guardprotocol.h"

#include <stddef.h>
#include <stdint.h>

struct GuardLease
{
    const struct GuardMapHeader *map; /* Null: nothing is protected. */
    size_t unmapSize;                 /* Not 0: to be unmapped at the end. */
};

/* The current map for that uid: one atomic read if it has not changed. */
struct GuardLease guardLeaseMap(uint32_t uid);
void guardEndLease(const struct GuardLease *lease);
