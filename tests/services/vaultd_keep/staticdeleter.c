/* Deletes the files that it is given. Linked statically: no library can be loaded into it. */
#include <unistd.h>

int main(int argc, char *argv[])
{
    for (int i = 1; i < argc; ++i)
        if (unlink(argv[i]) != 0)
            return 1;
    return 0;
}
