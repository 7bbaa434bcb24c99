#include "common/exitwithparent.h"

#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

namespace services {

bool exitWithParent(pid_t parent)
{
    return ::prctl(PR_SET_PDEATHSIG, SIGTERM) == 0 && ::getppid() == parent;
}

} // namespace services
