#pragma once

#include <QString>
#include <QStringList>

namespace search::grams {

/// `text` as texts are compared when spelling does not count: folded, and without the single blank
/// that some programs put between a Han character and a Latin letter or digit.
QString comparable(const QString &text);

/// `text` without such blanks, and nothing else changed but the case of ASCII letters.
QString withoutBorderBlanks(const QString &text);

/// The grams of a text, each once, parted by blanks: every character that is not ASCII, every pair
/// with such a character in it, every three ASCII letters or digits in a row, and the last two of
/// such a row. Works on the comparable text, so that a part of a text has no gram that the text has
/// not, except for grams at its ends that begin one of the text.
QString gramsOf(const QString &text);

/// A full text expression over grams for all texts that may hold every one of `words`: those that
/// do are among its matches, and few others. `_` and `%` part a word. Empty if the words have no
/// grams, as single letters have none.
QString gramExpression(const QStringList &words);

} // namespace search::grams
