#pragma once

#include "search/extract/indextext.h"

#include <QByteArray>

namespace search {

/// The text of a PDF by its tool, where layout does not part a phrase: lines of a paragraph are
/// joined, paragraphs and columns stay apart.
IndexText readPdf(const QString &path, int maxBytes, const std::atomic_bool *cancel);

/// The same from the tool's list of words with their places.
QString textOfLayout(const QByteArray &xml, int maxChars);

} // namespace search
