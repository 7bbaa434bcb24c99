#pragma once

#include <QString>

namespace core {

/// The name of a directory entry, or empty if it does not survive the way to a QString and back:
/// such a file cannot be opened by its decoded name. `bytes` ends with a NUL.
QString decodedFileName(const char *bytes);

} // namespace core
