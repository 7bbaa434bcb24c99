#pragma once

#include <QString>
#include <QStringList>

namespace search {

/// Snippets show a hit inside its text, the match between `<b>` and `</b>`. All searches ignore
/// case, all lengths are UTF-16 units, and an empty result means that nothing was found.

/// One line without tabs, control characters and surplus blanks.
QString simplifySnippetLine(const QString &line);

/// The first line that holds `needle`, cut to 120 units around it; if no single line does, the
/// needle with 50 units on either side.
QString makeSnippetAround(const QString &content, const QString &needle);

/// Around the needle that comes first in `content`, the one listed first on a tie.
QString makeSnippetAroundAny(const QString &content, const QStringList &needles);

/// Around the keyword, or failing that around the first of its words if it has several.
QString makePrimarySnippet(const QString &content, const QString &keyword);

/// Around the first match with 40 units on either side, the text as it is, line breaks included.
QString makeSubstringSnippet(const QString &content, const QString &keyword);

} // namespace search
