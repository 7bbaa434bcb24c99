#pragma once

#include <QString>

namespace services {
namespace vaultd {

/// Whether what catches deletions of other programs is in place.
struct HookState
{
    bool soFileExists = false;  ///< The library is there.
    bool preloadActive = false; ///< And the system loads it into every program.

    /// "global", or "degraded" while protection is on but nothing catches deletions; empty while it
    /// is off.
    QString deployMode(bool isEnabled) const;
};

/// Looks the library up and in the system's list of preloaded libraries. There is no such library
/// yet, and nothing here installs one: files come in by protectFile(), which it will call too.
HookState hookState(const QString &library, const QString &preloadList);

} // namespace vaultd
} // namespace services
