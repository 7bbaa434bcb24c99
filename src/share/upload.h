#pragma once

#include "share/sharerecords.h"

#include <QByteArray>
#include <QString>

/// Files that browsers send into the directories of a session whose access mode is "upload".
namespace share {

struct ShareExchange;

/// How the sub-paths of the two requests begin.
QString uploadCheckPrefix();
QString uploadPrefix();

/// Tells whether a name is taken. Never logged.
void handleUploadCheck(const ShareExchange &exchange, const ShareSession &session);

/// Streams the body into a temporary file, which replaces the target only when the body has come
/// whole; whatever fails leaves the target as it was and no temporary file. Logs every end but that
/// of a wrong method.
void handleUploadPut(const ShareExchange &exchange, const ShareSession &session);

/// The card of a directory's page: a button, a status line and the script that talks to the two
/// handlers. `relativePath` is decoded, `localPath` the directory that is shown.
QByteArray uploadCard(const QString &sessionId, const QString &rootId, const QString &relativePath,
                      const QString &localPath);

} // namespace share
