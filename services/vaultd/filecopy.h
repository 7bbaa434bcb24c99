#pragma once

#include "common/outputfile.h"

#include <atomic>

namespace services {
namespace vaultd {

/// Copies a plain file with its attributes into an opened output, to the medium, and reads it back.
/// Fails if what is read back differs, or the file changed meanwhile, or `stop` was set.
/// *info: the source as it was copied.
[[nodiscard]] bool copyInto(const QString &source, OutputFile &output, struct stat *info,
                            const std::atomic<bool> &stop, QString *error);

/// Both are plain files with the same bytes. False also if either cannot be read.
[[nodiscard]] bool haveSameContent(const QString &a, const QString &b);

} // namespace vaultd
} // namespace services
