#pragma once

#include <QByteArray>
#include <QString>

namespace services::recoveryd {

/// What the setting fileScope tells apart.
enum class FileCategory : quint8 { Other, Document, Media, Code };

/// The suffix of a file name in lower case, without its dot; empty if it has none that looks like
/// one (ASCII letters and digits, at most 10).
QString suffixOf(const QByteArray &name);

/// Category of a suffix or of an upper-case type word such as "PDF".
FileCategory categoryOf(const QString &type);

} // namespace services::recoveryd
