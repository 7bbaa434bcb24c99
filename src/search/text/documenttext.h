#pragma once

#include <QString>

namespace search::text {

/// Counts the changes of the readers after which texts are worth reading anew.
constexpr int readerVersion = 2;

/// The text of one file.
struct DocumentText
{
    QString text;
    bool isCut = false; ///< The document goes on behind the text.
};

/// Reads a file of whatever format, told by its content first and by its suffix second; empty if it
/// is of no known kind. `maxChars` limits the result, `maxPlainBytes` what is read of a plain text.
/// May be called from any thread; damaged files give what could be read.
DocumentText readDocument(const QString &path, int maxPlainBytes, int maxChars);

} // namespace search::text
