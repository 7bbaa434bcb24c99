#pragma once

#include <QString>

namespace search::text {

/// The code of a number format that workbooks name by number only; empty for a plain number.
QString builtinNumberFormat(int id);

/// A number as a cell with that format code shows it. With `from1904` dates count from 1904 on.
/// Colours and the width of the cell do not matter; what the code leaves open is written in 15
/// digits.
QString shownNumber(double value, const QString &code, bool from1904 = false);

/// A text in a cell with that format code, which may put words around it.
QString shownText(const QString &text, const QString &code);

} // namespace search::text
