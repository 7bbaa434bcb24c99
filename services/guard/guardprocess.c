#include "guard/guardprocess.h"

#include "guard/guardcalls.h"
#include "guard/guardprotocol.h"

#include <fcntl.h>
#include <stdatomic.h>
#include <stdlib.h>
#include <string.h>
#include <sys/auxv.h>
#include <unistd.h>

/* The name of a user without a mapping in the name space (/proc/sys/kernel/overflowuid). */
#define OVERFLOW_UID 65534u

static bool s_isSecure = true;
static const char *s_runDir = GUARD_RUN_DIR;
static int s_answerWait = GUARD_ANSWER_WAIT_MS;
static _Atomic int64_t s_silentUntil; /* In guardNow() time. */

void guardProcessInit(void)
{
    s_isSecure = getauxval(AT_SECURE) != 0;
#ifdef GUARD_TEST_VARIANT
    /* Only the library that tests load can be pointed elsewhere. */
    const char *runDir = s_isSecure ? NULL : getenv("MORVANE_GUARD_RUN_DIR");
    if (runDir && strlen(runDir) < 64)
        s_runDir = runDir;
    /* On a busy machine a test of what is kept must not depend on how soon. */
    const char *wait = s_isSecure ? NULL : getenv("MORVANE_GUARD_WAIT_MS");
    if (wait && atoi(wait) > 0)
        s_answerWait = atoi(wait);
#endif
}

const char *guardRunDir(void)
{
    return s_runDir;
}

int guardAnswerWait(void)
{
    return s_answerWait;
}

bool guardIsSecureExecution(void)
{
    return s_isSecure;
}

/* One line of /proc/self/uid_map: `count` users from `inside` on appear as those from `outside`. */
struct UidRange
{
    uint64_t inside;
    uint64_t outside;
    uint64_t count;
};

/* Reads a line of three numbers; returns the position behind it, or null. */
static const char *readRange(const char *at, const char *end, struct UidRange *range)
{
    uint64_t numbers[3] = {0, 0, 0};
    for (int i = 0; i < 3; ++i) {
        while (at < end && *at == ' ')
            ++at;
        if (at == end || *at < '0' || *at > '9')
            return NULL;
        for (; at < end && *at >= '0' && *at <= '9'; ++at)
            numbers[i] = numbers[i] * 10 + (uint64_t)(*at - '0');
    }
    range->inside = numbers[0];
    range->outside = numbers[1];
    range->count = numbers[2];
    return at < end && *at == '\n' ? at + 1 : NULL;
}

uint32_t guardOuterUid(uint32_t uid, bool *isMapped)
{
    char text[512];
    const ssize_t length = guardReadFile("/proc/self/uid_map", text, sizeof(text));
    struct UidRange range;
    const char *at = text;
    *isMapped = false;
    while (length > 0 && (at = readRange(at, text + length, &range)) != NULL) {
        /* The first name space maps every uid to itself. */
        *isMapped = *isMapped || range.count != UINT32_MAX;
        if (uid >= range.inside && uid - range.inside < range.count)
            return (uint32_t)(range.outside + (uid - range.inside));
    }
    return uid;
}

bool guardIsRoot(uint32_t uid)
{
#ifdef GUARD_TEST_VARIANT
    /* Tests need not run as root; their service has the user's own uid. */
    if (uid == guardEffectiveUid())
        return true;
#endif
    bool isMapped = false;
    if (uid == OVERFLOW_UID)
        guardOuterUid(uid, &isMapped);
    return uid == 0 || isMapped;
}

bool guardIsFiltered(void)
{
    /* The line stands behind some lines of variable length, so the text is read in parts; the part
     * kept from the last round lets a label be found across the border. */
    static const char label[] = "\nSeccomp:";
    char text[2048]; /* Mostly all of it. */
    size_t kept = 0;
    const int file = guardOpen(AT_FDCWD, "/proc/thread-self/status", O_RDONLY);
    if (file < 0)
        return true;
    bool isFiltered = true;
    for (;;) {
        const ssize_t part = guardReadPart(file, text + kept, sizeof(text) - kept);
        if (part <= 0)
            break;
        const size_t length = kept + (size_t)part;
        const char *line = memmem(text, length, label, sizeof(label) - 1);
        const char *end = line ? memchr(line + 1, '\n', (size_t)(text + length - line - 1)) : NULL;
        if (end) {
            isFiltered = end[-1] != '0';
            break;
        }
        kept = length < 64 ? length : 64;
        memmove(text, text + length - kept, kept);
    }
    guardClose(file);
    return isFiltered;
}

bool guardServiceIsSilent(void)
{
    return guardNow() < atomic_load_explicit(&s_silentUntil, memory_order_relaxed);
}

void guardNoteSilence(void)
{
    atomic_store_explicit(&s_silentUntil, guardNow() + GUARD_SILENCE_MS, memory_order_relaxed);
}
