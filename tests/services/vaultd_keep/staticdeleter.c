/* Makes files and deletes them 5 ms later. Linked statically: no library can be loaded into it. */
#include <stdio.h>
#include <time.h>
#include <unistd.h>

int main(int argc, char *argv[])
{
    for (int i = 0; argc == 2 && i < 300; ++i) {
        char path[4096];
        snprintf(path, sizeof path, "%s/%d.txt", argv[1], i);
        FILE *file = fopen(path, "w");
        if (!file || fprintf(file, "content %d\n", i) < 0 || fclose(file) != 0)
            return 1;
        const struct timespec pause = {0, 5 * 1000 * 1000};
        nanosleep(&pause, NULL);
        if (unlink(path) != 0)
            return 1;
    }
    return argc == 2 ? 0 : 1;
}
