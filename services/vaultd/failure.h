#pragma once

#include <QString>

#include <cstring>

namespace services {
namespace vaultd {

/// Puts the text into *error and returns false.
inline bool fail(QString *error, const QString &why)
{
    *error = why;
    return false;
}

/// The same, with the system's words for an error code behind the text.
inline bool fail(QString *error, const QString &what, int code)
{
    return fail(error,
                QStringLiteral("%1：%2").arg(what, QString::fromLocal8Bit(std::strerror(code))));
}

} // namespace vaultd
} // namespace services
