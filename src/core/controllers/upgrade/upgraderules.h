#pragma once

#include "core/controllers/upgrade/upgradestate.h"

#include <QDateTime>
#include <QJsonObject>
#include <QString>

namespace core {
namespace controllers {
namespace upgrade {

/// "amd64", "arm64" and so on, as packages name them; an unknown one trimmed and lower-cased.
QString normalizeArchitecture(const QString &text);

enum class VersionOrder { same = 0, newer = 1, older = -1, unknown = 2 };
/// How `latest` stands to `current`. Numbers between dots; a missing one counts as 0.
VersionOrder compareVersions(const QString &current, const QString &latest);

/// Whether the payload tells anything of versions. Without that it comes from something else, such
/// as the log-in page of a network.
bool isCheckAnswer(const QJsonObject &payload);

/// Takes the update server's answer into the state. The server's word never makes an update of a
/// version that is not newer; two versions that cannot be compared are left to it.
void applyCheckResponse(UpgradeState *state, const QJsonObject &payload);

/// Takes back what the state says of an update if its version is not newer than the current one.
void dropUpdateNotNewer(UpgradeState *state);

/// Less than a day since the last check, or one in the future.
bool isCheckingTooSoon(const UpgradeState &state, const QDateTime &nowUtc);
/// Everything that a mandatory update needs is known.
bool isMandatory(const UpgradeState &state);
/// Absolute path of the package fetched for the latest version; empty if there is none or its file
/// has gone. Does not look into the file.
QString usablePackagePath(const UpgradeState &state);
/// Why the package cannot be fetched, in words for the user; empty if it can.
QString downloadRefusal(const UpgradeState &state, const QString &machineArch);

} // namespace upgrade
} // namespace controllers
} // namespace core
