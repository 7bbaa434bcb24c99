#pragma once

#include <QJsonObject>
#include <QString>

#include <optional>

/// A warning for the user.
struct StartupNotice
{
    QString title;
    QString text;
};

/// What the user should hear at start about a status object of the vault service: nothing while
/// protection is off or healthy, a warning while it waits for a reboot or is degraded.
std::optional<StartupNotice> vaultStartupNotice(const QJsonObject &status);
