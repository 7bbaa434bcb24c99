#pragma once

#include "tour.h"

/// Help, about, settings and updates, against an update server on loopback. Brings windows of its
/// own and leaves none open, so it goes last.
QList<TourStep> settingsSteps();
