#pragma once

#include "share/uploadtarget.h"

#include <QByteArray>
#include <QString>

namespace share {

struct ShareExchange;

struct TransferResult
{
    int code = 0; ///< 0: the target is written.
    QString statusText;
    QString message;
};

/// Takes the request's whole body into a new file in the open directory, which gets the name at the
/// end or is gone. What is replaced gives its permissions to the new file.
TransferResult receiveFile(const ShareExchange &exchange, int directory, const QByteArray &name,
                           const UploadTarget &target);

} // namespace share
