#pragma once

#include "tour.h"

/// A tree that the tour makes is scanned, looked through and tidied on the page for space. Wants
/// the main window of normal mode and leaves it open.
QList<TourStep> spaceSteps();
