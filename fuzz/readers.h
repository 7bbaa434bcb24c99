#pragma once

#include <QByteArray>
#include <QLoggingCategory>

#include <initializer_list>

namespace fuzz {

using Reader = void (*)(const QByteArray &bytes);

/// The first byte of an input chooses the reader of the rest. Log messages are switched off.
inline int readByOneOf(std::initializer_list<Reader> readers, const uchar *input, size_t length)
{
    static const bool isQuiet = [] {
        QLoggingCategory::setFilterRules(QStringLiteral("*=false"));
        return true;
    }();
    Q_UNUSED(isQuiet)
    if (length > 0) {
        const Reader reader = readers.begin()[input[0] % readers.size()];
        reader(QByteArray(reinterpret_cast<const char *>(input) + 1, int(length) - 1));
    }
    return 0;
}

} // namespace fuzz
