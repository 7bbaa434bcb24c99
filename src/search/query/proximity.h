#pragma once

#include <QString>
#include <QStringList>

namespace search::query {

/// The length of the shortest part of `text` that holds all words, without regard to case; 0 for
/// one word or none, and a large number where one is not there as it is written. Looks at the first
/// places of each word only.
int wordSpan(const QString &text, const QStringList &words);

} // namespace search::query
