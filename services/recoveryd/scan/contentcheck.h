#pragma once

#include "recoveryd/content/contentreader.h"
#include "recoveryd/scan/finding.h"

namespace services::recoveryd {

/// Whether checkBySuffix() knows what a file of this suffix looks like. Cheap.
bool isCheckable(const QString &suffix);

/// What a file's bytes say against its suffix (lower case, as by suffixOf()). Reads the first and
/// the last 4 KiB, and of some formats a few more headers. Failed: something else stands there, or
/// the end that every such file has is missing. Passed: nothing spoke against it, which is no proof
/// that all bytes are right. None: the suffix is not known, the file is too small to tell, or its
/// bytes could not be read.
Finding::Check checkBySuffix(const QString &suffix, ContentReader &content, qint64 size);

/// The same for a finding, by the suffix of its name.
Finding::Check checkBySuffix(const MediaReader &media, const Finding &finding);

} // namespace services::recoveryd
