#include "search/searchfilters.h"

namespace searchfilters {

namespace {

constexpr qint64 kMiB = 1024 * 1024;
constexpr qint64 kMsPerDay = 86400000;

bool sizeMatches(int sizeClass, qint64 bytes)
{
    switch (sizeClass) {
    case BelowOneMiB:
        return bytes < kMiB;
    case OneToHundredMiB:
        return bytes >= kMiB && bytes < 100 * kMiB;
    case HundredMiBOrMore:
        return bytes >= 100 * kMiB;
    default:
        return true;
    }
}

} // namespace

bool accepts(const RowFilter &filter, const QVariantMap &result, qint64 nowMs)
{
    if (!filter.category.isEmpty() &&
        result.value(QStringLiteral("category")).toString() != filter.category)
        return false;
    if (!sizeMatches(filter.sizeClass, result.value(QStringLiteral("size")).toLongLong()))
        return false;
    if (filter.days <= 0)
        return true;
    const qint64 modifiedMs = result.value(QStringLiteral("modifiedMs")).toLongLong();
    return modifiedMs > 0 && nowMs - modifiedMs <= filter.days * kMsPerDay;
}

QVariantList filtered(const QVariantList &results, const RowFilter &filter, qint64 nowMs)
{
    QVariantList kept;
    for (const QVariant &result : results) {
        if (accepts(filter, result.toMap(), nowMs))
            kept.append(result);
    }
    return kept;
}

} // namespace searchfilters
