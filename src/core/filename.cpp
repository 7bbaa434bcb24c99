#include "core/filename.h"

#include <QFile>

#include <algorithm>
#include <cstring>

namespace core {

QString decodedFileName(const char *bytes)
{
    const int length = int(std::strlen(bytes));
    const bool ascii =
        std::none_of(bytes, bytes + length, [](char byte) { return (byte & 0x80) != 0; });
    if (ascii)
        return QString::fromLatin1(bytes, length);
    const QByteArray raw = QByteArray::fromRawData(bytes, length);
    const QString name = QFile::decodeName(raw);
    return QFile::encodeName(name) == raw ? name : QString();
}

} // namespace core
