#pragma once

#include "common/servicehost.h"
#include "recoveryd/errorcodes.h"
#include "recoveryd/text.h"

namespace services {
namespace recoveryd {

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

} // namespace recoveryd
} // namespace services
