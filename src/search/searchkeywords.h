#pragma once

#include <QString>
#include <QStringList>

namespace search {

/// The keywords of a list joined by line breaks, commas or semicolons: trimmed, without empty ones,
/// and of those that differ only in case the first.
QStringList splitKeywords(const QString &text);

/// `keyword` as one quoted FTS5 phrase with a prefix mark, so that what a user typed never acts as
/// query syntax. Empty if nothing but special characters was typed.
QString buildFtsMatchExpr(const QString &keyword);

/// The LIKE pattern for "contains". Wildcards that the user typed keep their meaning.
QString likePattern(const QString &keyword);

} // namespace search
