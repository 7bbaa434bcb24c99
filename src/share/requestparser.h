#pragma once

#include "share/httprequest.h"

#include <QByteArray>

namespace share {

/// Reads a request line and header lines; what stands behind the empty line is not looked at. Takes
/// whatever comes: a request without sense has an empty method and path. Any thread.
HttpRequest parseRequest(const QByteArray &bytes);

} // namespace share
