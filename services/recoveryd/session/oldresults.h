#pragma once

#include <QString>

namespace services::recoveryd {

/// Earlier versions kept a session's files in one JSON file, "files.json" beside `resultsPath`.
/// Writes it as a ResultLog and removes it; does nothing if there is none. Survives a crash at any
/// point: the old file goes last.
[[nodiscard]] bool convertOldResults(const QString &resultsPath, QString *error);

} // namespace services::recoveryd
