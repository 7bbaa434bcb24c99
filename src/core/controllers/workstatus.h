#pragma once

#include <QJsonObject>

namespace core::controllers {

/// How a scan or a recovery stands, by the record that the service keeps of it.
enum class WorkStatus {
    Running,
    Paused,
    Completed, ///< Also with errors in single files.
    Stopped,   ///< On request.
    Failed,
    Interrupted ///< The service ended before the work did.
};

/// Reads the `status` of a session or of a recovery task. A record without a known word counts as
/// completed if it holds the summary of a scan, otherwise as running.
WorkStatus workStatusOf(const QJsonObject &record);

} // namespace core::controllers
