#pragma once

#include "search/text/formatsection.h"

#include <QString>

namespace search::text {

/// A number without a format, in at most 15 digits.
QString plainNumber(double value);

/// A number by the digit places of a section; a negative one gets a sign.
QString shownDigits(double value, const FormatSection &section);

/// A day count as date and time; outside the years that a sheet knows the plain number.
QString shownDate(double days, const FormatSection &section, bool from1904);

/// A whole number in Chinese digits: in everyday ones, or in those of amounts.
QString chineseNumber(qint64 number, bool ofAmounts);

} // namespace search::text
