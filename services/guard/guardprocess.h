/* What is true of this process: read without locks, safe in signal handlers and after vfork(). */
#pragma once

#include <stdbool.h>
#include <stdint.h>

/* Once, in the library's constructor. */
void guardProcessInit(void);

/* The folder of maps and sockets. */
const char *guardRunDir(void);
/* Milliseconds that a deletion waits for the service at most. */
int guardAnswerWait(void);
/* The program runs with more rights than whoever started it. */
bool guardIsSecureExecution(void);
/* Whether the uid that the kernel shows is root's: in a user name space root appears as the
 * overflow user. */
bool guardIsRoot(uint32_t uid);
/* The uid outside of the process's user name space, the same if there is none. *isMapped: there is
 * one. */
uint32_t guardOuterUid(uint32_t uid, bool *isMapped);
/* Whether a seccomp filter watches this thread; it might kill for a call that it does not know.
 * True if that cannot be found out. */
bool guardIsFiltered(void);

/* After a time-out of the service: nobody waits for it again for some seconds. */
bool guardServiceIsSilent(void);
void guardNoteSilence(void);
