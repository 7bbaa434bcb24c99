#pragma once

#include "search/newestfirstquery.h"
#include "search/query/querylanguage.h"

#include <QString>
#include <QStringList>

namespace search::query {

/// Adds, for each word, that at least one of the columns holds it. Wildcards of LIKE in the words
/// count.
void addWords(RowFilter *filter, const QStringList &words, const QStringList &columns);

/// Adds the terms of a query over `columns`. Wildcards count in a plain word only. `exactOnly`
/// leaves out the wanted terms that folding may match as well.
void addTerms(RowFilter *filter, const Query &query, const QStringList &columns,
              bool exactOnly = false);

/// Adds the conditions on name, folder, size and time.
void addFilters(RowFilter *filter, const Query &query);

} // namespace search::query
