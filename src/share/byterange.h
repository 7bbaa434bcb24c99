#pragma once

#include <QString>

namespace share {

/// What part of a file answers a request.
struct ByteRange
{
    bool isPartial = false; ///< 206, else 200.
    qint64 start = 0;       ///< Where reading begins; may lie outside the file.
    qint64 end = -1;        ///< The last byte of a partial answer.
    qint64 length = 0;      ///< What the header announces.
};

/// From the value of a `Range` header and the file's size. A range that makes sense as numbers but
/// not for this file is answered with 200 and the whole length, yet read from its start: the client
/// sees a transfer that is too short.
ByteRange rangeFor(const QString &header, qint64 total);

} // namespace share
