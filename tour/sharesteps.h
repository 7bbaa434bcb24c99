#pragma once

#include "tour.h"

/// A folder is shared behind a password on the page for it, walked, downloaded from and uploaded to
/// over HTTP, looked at in its details and stopped. Wants the main window of normal mode and leaves
/// it open.
QList<TourStep> shareSteps();
