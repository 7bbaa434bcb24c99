#pragma once

#include <QString>

namespace services {

/// Makes SIGTERM and SIGINT end the event loop of the application, so that destructors run: work
/// stops at a safe place and the socket file is removed. A second signal ends the process at once.
/// Call it once, after the application object is made; also for signals that come before exec().
[[nodiscard]] bool quitOnTerminationSignals(QString *error);

} // namespace services
