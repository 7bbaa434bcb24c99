#pragma once

#include "share/sharerecords.h"

#include <QString>

namespace share {

struct ShareExchange;

/// The page of a session's roots.
void serveRootList(const ShareExchange &exchange, const ShareSession &session);
/// The page of a directory, or a file's content. `relativePath` has been percent-decoded once.
void serveBrowse(const ShareExchange &exchange, const ShareSession &session, const QString &rootId,
                 const QString &relativePath);

/// "HH:MM:SS" until `expiresAt`, or empty if that is 0 or past. Milliseconds since the epoch.
QString remainingText(qint64 expiresAt, qint64 now);

} // namespace share
