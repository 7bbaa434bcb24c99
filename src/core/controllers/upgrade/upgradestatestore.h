#pragma once

#include "core/controllers/upgrade/upgradestate.h"

#include <QString>

namespace core {
namespace controllers {
namespace upgrade {

/// Keeps an UpgradeState as one JSON file. A file that is missing, damaged or of a later format
/// reads as a new state, which costs one check.
class UpgradeStateStore
{
public:
    /// An empty path means defaultPath().
    explicit UpgradeStateStore(const QString &path = QString());

    QString path() const { return m_path; }
    UpgradeState load() const;
    /// Replaces the file as a whole: after a crash there is the old state or the new one.
    [[nodiscard]] bool save(const UpgradeState &state) const;

    static QString defaultPath();
    /// Where fetched packages lie.
    static QString defaultCacheDir();

private:
    QString m_path;
};

} // namespace upgrade
} // namespace controllers
} // namespace core
