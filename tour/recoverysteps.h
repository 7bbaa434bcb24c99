#pragma once

#include "tour.h"

/// Documents on a disk image are deleted, found by the recovery service and brought back through
/// the main window, which the last step leaves open.
QList<TourStep> recoverySteps();
