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

} // namespace services::recoveryd
