#pragma once

#include <QByteArray>
#include <QString>

/// Text of others on its way into a page, a link or a header: each place has its own rules, and
/// each function is used at the last moment before the text goes there.
namespace share {

/// UTF-8 for element content and for attributes in quotes of either kind.
QByteArray htmlEscaped(const QString &text);
/// The same for a text that is UTF-8 already.
QByteArray htmlEscaped(const QByteArray &utf8);
/// A path for a link: percent-encoded UTF-8, slashes left as they are. The server decodes the paths
/// of requests twice, so a percent sign is encoded twice.
QString encodedPath(const QString &path);
/// The same for a path in UTF-8. What it gives needs no escaping in HTML.
QByteArray encodedPath(const QByteArray &utf8);
/// A value for one header line: no control character, hence no end of the line.
QString headerText(const QString &text);
/// A file's name for a quoted string of a header, which neither a quote nor a backslash at its end
/// may close or leave open.
QString headerFileName(const QString &name);

} // namespace share
