#pragma once

#include <QString>

namespace share {

class SharedEntry;
struct ShareExchange;

/// Streams a regular file, or the part of it that the request asks for, and logs the download
/// however it ends.
void serveFileDownload(const ShareExchange &exchange, const SharedEntry &entry,
                       const QString &fileName);

} // namespace share
