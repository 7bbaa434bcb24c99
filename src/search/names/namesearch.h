#pragma once

#include "search/names/nameindex.h"
#include "search/names/namescan.h"

#include <QSqlDatabase>
#include <QString>
#include <QVariantList>

namespace search::names {

/// Files whose names or folders answer a search line, and hold every refine keyword: first what
/// the index's own query finds, in its order, then what only folding finds, then pinyin, whose rows
/// have "match" set to "pinyin". At most `limit` rows, as maps like those of SearchIndexDB.
///
/// Without an arena the database answers, without folding and pinyin. `database` is an open
/// connection of the calling thread. A cancelled search returns nothing of use.
QVariantList searchNames(const QSqlDatabase &database, NameIndex *index, const QString &line,
                         int limit, const QString &refine, const Cancelled &cancelled,
                         QString *error);

} // namespace search::names
