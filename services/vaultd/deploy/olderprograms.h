#pragma once

#include <QByteArray>
#include <QString>

namespace services::vaultd {

/// A moment in the life of this system, to tell processes from before it.
struct Moment
{
    QByteArray boot;   ///< The kernel's name for the time since it was started.
    quint64 ticks = 0; ///< Clock ticks since then, as in /proc/<pid>/stat.

    static Moment now();
};

/// Whether any program still runs that was started before the moment and has not loaded the
/// library: it goes on deleting for good. Threads of the kernel and this process do not count;
/// after a reboot there is none.
bool hasOlderPrograms(const Moment &moment, const QString &library);

} // namespace services::vaultd
