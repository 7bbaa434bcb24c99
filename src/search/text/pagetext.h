#pragma once

#include <QString>

namespace search::text {

/// The words of a sheet's header or footer, without the codes for fonts, places and fields.
QString headerFooterText(const QString &code);

} // namespace search::text
