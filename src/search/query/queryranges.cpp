#include "search/query/folding.h"
#include "search/query/querylanguage.h"

#include <QDate>
#include <QDateTime>
#include <QRegularExpression>

#include <cmath>
#include <limits>

namespace search::query {
namespace {

constexpr qint64 lowest = std::numeric_limits<qint64>::min();
constexpr qint64 highest = std::numeric_limits<qint64>::max();

/// Reads one value as the span it covers.
using ValueReader = bool (*)(const QString &text, Range *span);

bool readSize(const QString &text, Range *span)
{
    static const QRegularExpression form(
        QStringLiteral("^([0-9]+(?:\\.[0-9]+)?)(?:([kmgt])(?:i?b)?|b)?$"));
    const QRegularExpressionMatch match = form.match(text);
    if (!match.hasMatch())
        return false;
    const QString unit = match.captured(2);
    const int power = unit.isEmpty() ? 0 : 1 + QStringLiteral("kmgt").indexOf(unit);
    const double bytes = match.captured(1).toDouble() * std::pow(1024.0, power);
    // Beyond what a double holds exactly, no file is that large either.
    if (bytes > 9e15)
        return false;
    const qint64 whole = qRound64(bytes);
    *span = {whole, whole};
    return true;
}

qint64 startOfDay(const QDate &day)
{
    // Where clocks are put forward at midnight the day begins an hour later.
    QDateTime start(day, QTime(0, 0));
    if (!start.isValid())
        start = QDateTime(day, QTime(1, 0));
    return start.toMSecsSinceEpoch();
}

bool readDate(const QString &text, Range *span)
{
    static const QRegularExpression form(
        QStringLiteral("^([0-9]{4})(?:[-/.]([0-9]{1,2})(?:[-/.]([0-9]{1,2}))?)?$"));
    const QRegularExpressionMatch match = form.match(text);
    if (!match.hasMatch())
        return false;
    const bool hasMonth = match.capturedLength(2) > 0;
    const bool hasDay = match.capturedLength(3) > 0;
    const QDate first(match.captured(1).toInt(), hasMonth ? match.captured(2).toInt() : 1,
                      hasDay ? match.captured(3).toInt() : 1);
    if (!first.isValid())
        return false;
    QDate next = first.addYears(1);
    if (hasDay)
        next = first.addDays(1);
    else if (hasMonth)
        next = first.addMonths(1);
    *span = {startOfDay(first), startOfDay(next) - 1};
    return true;
}

bool readRange(const QString &text, ValueReader read, Range *range)
{
    const QString value = folded(text);
    Range span = Range::unlimited();
    const int dots = value.indexOf(QLatin1String(".."));
    if (dots >= 0) {
        const QString from = value.left(dots);
        const QString to = value.mid(dots + 2);
        Range first = Range::unlimited();
        Range last = Range::unlimited();
        if ((from.isEmpty() && to.isEmpty()) || (!from.isEmpty() && !read(from, &first)) ||
            (!to.isEmpty() && !read(to, &last)))
            return false;
        *range = {first.least, last.most};
        return true;
    }
    const int signs =
        value.startsWith(QLatin1String(">=")) || value.startsWith(QLatin1String("<="))
            ? 2
            : int(value.startsWith(QLatin1Char('>')) || value.startsWith(QLatin1Char('<')));
    if (!read(value.mid(signs), &span))
        return false;
    if (signs > 0 && value.at(0) == QLatin1Char('>'))
        span = {signs == 2 ? span.least : span.most + 1, highest};
    else if (signs > 0)
        span = {lowest, signs == 2 ? span.most : span.least - 1};
    *range = span;
    return true;
}

} // namespace

bool Range::isUnlimited() const
{
    return least == lowest && most == highest;
}

Range Range::unlimited()
{
    return {lowest, highest};
}

bool parseSizes(const QString &text, Range *range)
{
    return readRange(text, readSize, range);
}

bool parseDates(const QString &text, Range *range)
{
    return readRange(text, readDate, range);
}

} // namespace search::query
