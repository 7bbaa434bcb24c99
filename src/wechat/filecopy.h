#pragma once

#include "wechat/fileoperations.h"

namespace wechat {

/// Copies what is under `source`, which must be the file `expected`, into a new file with the same
/// permissions and flushes it to the disk. Returns 0 or an errno value, after which nothing is
/// left: ESTALE if the source is another file or changes meanwhile.
[[nodiscard]] int copyToNewFile(FileOperations &operations, const QString &source,
                                const FileIdentity &expected, const QString &target);

/// True if the content of `path`, a regular file, is how the content of `whole` begins: what an
/// interrupted copy leaves, or a finished one.
bool isBeginningOf(FileOperations &operations, const QString &path, const QString &whole);

} // namespace wechat
