#pragma once

#include "tour.h"

/// The cleaner of WeChat files: from no account to a scan, a merge through the page and its undo,
/// with the files on the disk looked at each time.
QList<TourStep> wechatSteps();
