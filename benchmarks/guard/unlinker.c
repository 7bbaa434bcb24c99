/* Times deletions from the inside: unlinker FOLDER EXTENSION COUNT path|name prints the median
 * in nanoseconds, which other programs on the machine hardly move. Files are named by their
 * absolute path, or by their name in the working directory. */
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#define MAX_COUNT 100000

static long long now(void)
{
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * 1000000000LL + time.tv_nsec;
}

static int compare(const void *a, const void *b)
{
    const long long difference = *(const long long *)a - *(const long long *)b;
    return difference < 0 ? -1 : difference > 0;
}

int main(int argc, char *argv[])
{
    static long long taken[MAX_COUNT];
    const int count = argc == 5 ? atoi(argv[3]) : 0;
    if (count < 1 || count > MAX_COUNT || chdir(argv[1]) != 0)
        return 2;
    const char *prefix = strcmp(argv[4], "path") == 0 ? argv[1] : "";
    const char *slash = *prefix ? "/" : "";
    char path[4096];
    for (int i = -1; i < count; ++i) {
        snprintf(path, sizeof(path), "%s%s%d.%s", prefix, slash, i, argv[2]);
        const int file = open(path, O_WRONLY | O_CREAT, 0600);
        if (file < 0 || close(file) != 0)
            return 1;
    }
    for (int i = -1; i < count; ++i) {
        snprintf(path, sizeof(path), "%s%s%d.%s", prefix, slash, i, argv[2]);
        const long long start = now();
        if (unlink(path) != 0)
            return 1;
        /* The first one maps the file of what is protected. */
        if (i >= 0)
            taken[i] = now() - start;
    }
    qsort(taken, (size_t)count, sizeof(*taken), compare);
    printf("%lld\n", taken[count / 2]);
    return 0;
}
