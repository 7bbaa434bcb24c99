#pragma once

#include "recoveryd/carve/text/textencoding.h"

#include <QByteArray>
#include <QString>

namespace services::recoveryd {

/// The text as far as it can be decoded; signs that are cut off at either end may be wrong.
QString decodedText(const QByteArray &bytes, TextEncoding encoding);

/// The suffix for a text by what its first and last few KiB hold; "txt" if nothing speaks for more.
const char *suffixOfText(const QString &head, const QString &tail);

} // namespace services::recoveryd
