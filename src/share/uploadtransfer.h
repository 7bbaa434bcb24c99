#pragma once

#include "share/uploadtarget.h"

#include <QString>

namespace share {

struct ShareExchange;

struct TransferResult
{
    int code = 0; ///< 0: the target is written.
    QString statusText;
    QString message;
};

/// Takes the request's whole body into the file at `path`, by a temporary file beside it that is
/// renamed at the end or removed. What is replaced gives its permissions to the new file.
TransferResult receiveFile(const ShareExchange &exchange, const QString &path,
                           const UploadTarget &target);

} // namespace share
