/* The conversation with the service about one deletion. Async-signal-safe, no locks, no heap. */
#pragma once

#include "guard/guardprotocol.h"

#include <stddef.h>
#include <stdint.h>

enum GuardOutcome {
    GuardIsKept,   /* *connection is open until guardTalkEnd(). */
    GuardGoAhead,  /* Not protected; nothing is left open. */
    GuardIsSilent, /* No answer in time, nobody there, queue full, or the vault cannot take it. */
};

/* Hands the two descriptors over and waits guardAnswerWait() at most for the answer. `mapUid`
 * names the socket. */
enum GuardOutcome guardTalk(uint32_t mapUid, int file, int parent, const char *name, size_t length,
                            enum GuardKind kind, int *connection);
/* Reports the real call's errno, 0 for success, and hangs up. */
void guardTalkEnd(int connection, int error);
