// The service's side of the hook as a process of its own, to be killed: guardd RUNDIR VAULT HOME.
#include "guardharness.h"

#include <cstdio>
#include <unistd.h>

using namespace guard_test;

int main(int argc, char *argv[])
{
    if (argc != 4)
        return 2;
    LinkKeeper keeper(argv[2]);
    services::vaultd::HookService hook(argv[1], [&keeper](uid_t) { return &keeper; });
    QString error;
    if (!hook.start(&error) || !hook.openFor(protectionIn(argv[3]), &error)) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    std::puts("ready");
    std::fflush(stdout);
    for (;;)
        ::pause();
}
