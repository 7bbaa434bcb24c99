#pragma once

#include <QString>
#include <QStringList>

namespace core {

/// Where the program runs. Chosen once at start and passed by value.
enum class AppMode {
    normal = 0, ///< The user's installed desktop session.
    livecd = 1, ///< Booted from a recovery medium on a damaged machine.
};

/// What the boot probes look at; tests point these elsewhere.
struct BootProbes
{
    QString liveDirectory = QStringLiteral("/run/live");
    QString rootDirectory = QStringLiteral("/");
    QString kernelCommandLine = QStringLiteral("/proc/cmdline");
};

class AppModeDetector
{
public:
    /// Decides the run mode: an explicit `--mode` argument beats every probe. `arguments` includes
    /// the program name. Never fails; in doubt the mode is normal.
    static AppMode detect(const QStringList &arguments, const BootProbes &probes = BootProbes());

    /// "normal" or "livecd"; part of lock and socket names.
    static QString toString(AppMode mode);
};

} // namespace core
