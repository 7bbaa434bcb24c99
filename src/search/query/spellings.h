#pragma once

#include <QString>

namespace search::query {

/// True if `word` may stand in a text in other characters that read the same: Han characters with
/// variants, or characters of full width. Case does not count; LIKE sees to it.
bool hasOtherSpellings(const QString &word);

/// The pattern of SQLite's GLOB for texts that hold `word` in any spelling and case.
QString spellingGlob(const QString &word);

/// `word` as `text` first writes it; empty if it does not.
QString spellingIn(const QString &text, const QString &word);

} // namespace search::query
