#pragma once

class QObject;

namespace core {
namespace controllers {
class RecoveryController;
class ScanController;
} // namespace controllers
} // namespace core

/// Tell the desktop how far scans and recoveries of the recovery service are, and how they end.
/// What is made becomes a child of `parent`.
void followScans(core::controllers::ScanController *scans, QObject *parent);
void followRecoveries(core::controllers::RecoveryController *recoveries, QObject *parent);
