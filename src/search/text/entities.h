#pragma once

#include <QString>

namespace search::text {

/// The character of a named or numbered entity ("amp", "#20013", "#x4e2d"); empty if it is none.
QString entityText(const QString &name);

} // namespace search::text
