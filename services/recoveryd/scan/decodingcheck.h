#pragma once

#include "recoveryd/devices/mediareader.h"
#include "recoveryd/scan/finding.h"

#include <functional>

namespace services::recoveryd {

/// Decodes the contents of a found file, by the format that its first bytes tell. Passed: they end
/// where the file does, and decode without an error or fit the format's own checksums. Failed: they
/// begin as a format that can be decoded, and break. None: anything else. Reads all of the file, or
/// as much as `mayGoOn` allows.
Finding::Check checkByDecoding(const MediaReader &media, const Finding &finding,
                               const std::function<bool()> &mayGoOn);

/// Completes a file whose blocks are known, but not its size: `finding->content` reaches to the end
/// of its last block, of `blockSize` bytes. True if a format's structure or a text that begins with
/// the file ends in that block, which shows that the blocks are the file's. Then size, kind and
/// source are set, and the check is Passed if the contents were decoded as well. Otherwise the
/// check is Failed if a format that can be decoded begins there, and breaks.
[[nodiscard]] bool completeByContents(const MediaReader &media, qint64 blockSize,
                                      const std::function<bool()> &mayGoOn, Finding *finding);

} // namespace services::recoveryd
