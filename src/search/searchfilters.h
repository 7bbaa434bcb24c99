#pragma once

#include <QString>
#include <QVariantList>
#include <QVariantMap>

/// Filters on the answers of the last search; none of them asks the index again.
namespace searchfilters {

/// Item data of the filter combos.
enum SizeClass { AnySize = 0, BelowOneMiB = 1, OneToHundredMiB = 2, HundredMiBOrMore = 3 };

struct RowFilter
{
    QString category; ///< Category word; empty takes all.
    int sizeClass = AnySize;
    int days = 0; ///< Greatest age; 0 takes all.
};

/// `nowMs` is the present in milliseconds since the epoch.
bool accepts(const RowFilter &filter, const QVariantMap &result, qint64 nowMs);
QVariantList filtered(const QVariantList &results, const RowFilter &filter, qint64 nowMs);

} // namespace searchfilters
