#pragma once

#include <sys/types.h>

namespace services {

/// Ends this process when the one that started it does, however that comes about. `parent` is what
/// getppid() said at the start; false if that process has gone already.
[[nodiscard]] bool exitWithParent(pid_t parent);

} // namespace services
