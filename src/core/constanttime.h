#pragma once

#include <QByteArray>

namespace core {

/// Compares secrets in a time that depends on their lengths only, not on where they differ.
inline bool equalInConstantTime(const QByteArray &a, const QByteArray &b)
{
    // Volatile, so that the loop is not cut short.
    volatile unsigned char difference = a.size() == b.size() ? 0 : 1;
    const int common = qMin(a.size(), b.size());
    for (int i = 0; i < common; ++i)
        difference =
            static_cast<unsigned char>(difference | static_cast<unsigned char>(a.at(i) ^ b.at(i)));
    return difference == 0;
}

} // namespace core
