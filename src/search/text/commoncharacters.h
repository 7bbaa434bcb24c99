#pragma once

#include <QString>

namespace search::text {

/// True for the few hundred characters that most running Chinese text consists of, simplified and
/// traditional.
bool isCommonHan(QChar c);
bool isCommonHangul(QChar c);

} // namespace search::text
