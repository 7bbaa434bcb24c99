#pragma once

#include <QString>

namespace search {

/// Category word of a file by its lower-cased suffix without the dot: "document", "image",
/// "video", "audio", "archive", "code", or "other" for every other suffix and for none.
QString categoryForSuffix(const QString &suffix);

} // namespace search
