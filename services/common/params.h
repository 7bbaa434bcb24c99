#pragma once

#include "common/errorcodes.h"
#include "common/servicehost.h"
#include "common/text.h"

#include <cmath>

namespace services {

inline Reply badParam(const QString &key)
{
    return Reply::failure(kBadParamsCode, QStringLiteral("参数 %1 缺失或类型不对").arg(key));
}

/// A non-empty string parameter; empty if it is missing or of another type.
inline QString textParam(const QJsonObject &params, const QString &key)
{
    return params.value(key).toString();
}

/// An id parameter; empty if it is missing or cannot be an id.
inline QString idParam(const QJsonObject &params, const QString &key)
{
    const QString id = textParam(params, key);
    return isId(id) ? id : QString();
}

/// A whole number from 0 to 10^9; the fallback if it is missing, -1 if it is anything else.
inline int countParam(const QJsonObject &params, const QString &key, int fallback)
{
    const QJsonValue value = params.value(key);
    if (value.isUndefined())
        return fallback;
    const double number = value.toDouble(-1.0);
    return number >= 0 && number <= 1e9 && std::floor(number) == number ? int(number) : -1;
}

} // namespace services
