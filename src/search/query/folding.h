#pragma once

#include <QString>

namespace search::query {

/// `text` with all spellings of a character made one: case, accents, full and half width,
/// traditional and simplified Han characters. Works character by character, so that a part of a
/// text folds to a part of the folded text. May be called from any thread.
QString folded(const QString &text);

/// `text` with ASCII letters in lower case, as SQLite's LIKE compares them.
QString asciiLower(const QString &text);

/// All Han characters that fold as `character` does, itself among them.
QString hanSpellings(QChar character);

} // namespace search::query
