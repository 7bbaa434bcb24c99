#pragma once

#include "tour.h"

/// The vault service and the two pages that show what it holds.
namespace protectionsteps {

/// Moves files that the step makes in `home` into the vault of that directory, as the service does
/// with deleted ones; notes their hashes.
bool fillVault(Tour &tour, const QString &home, QString *error);

/// Normal mode: status, lock, restoring, deleting, settings.
QList<TourStep> normalSteps();
/// Livecd mode, over the vault in the disk image of the recovery.
QList<TourStep> livecdSteps();

} // namespace protectionsteps
