#pragma once

#include <QByteArray>
#include <QSet>
#include <QString>

namespace search::text {

class TextSink;

/// What the elements of an XML dialect mean to a reader, by their names without prefix.
struct XmlRules
{
    QSet<QString> textElements; ///< Text counts only inside these; empty: everywhere.
    QSet<QString> paragraphs;
    QSet<QString> cells;
    QSet<QString> softBreaks;
    QSet<QString> blanks;
    QSet<QString> skipped; ///< With all that is in them.
    /// Content that stands apart from the line it is anchored in; it follows behind the line's
    /// part, so that it does not part a phrase.
    QSet<QString> asides;
};

/// A set of names that are separated by blanks.
QSet<QString> nameSet(const char *names);

/// Writes the text of one document. Malformed XML gives what stands before the error.
void readXml(const QByteArray &xml, const XmlRules &rules, TextSink *sink);

/// Dialects of office documents.
const XmlRules &wordRules();
/// Slides, charts, diagrams, drawings and comments.
const XmlRules &drawingRules();
const XmlRules &openDocumentRules();
const XmlRules &pageRules(); ///< Of OFD pages, whose lines consist of several objects.

/// A document that is one XML file: of Word or Excel 2003, or flat OpenDocument.
void readOfficeXml(const QByteArray &xml, TextSink *sink);

} // namespace search::text
