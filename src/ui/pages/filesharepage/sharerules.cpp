#include "ui/pages/filesharepage/sharerules.h"

namespace fileshare {

namespace {

const QString kListTimeFormat = QStringLiteral("MM-dd HH:mm");

} // namespace

SessionRow sessionRow(const ShareSession &session, const QList<ShareRoot> &roots)
{
    SessionRow row;
    row.id = session.id;
    row.state = session.status;
    row.content = session.rootNames.join(QStringLiteral("、"));
    for (const ShareRoot &root : roots)
        row.paths.append(root.localPath);
    row.path = row.paths.join(QStringLiteral("；"));
    row.port = session.port;
    row.permission = permissionText(session.accessMode);
    row.status = statusText(session.status);
    row.time = timeText(session.createdAt, kListTimeFormat);
    row.downloads = session.totalDownloads;
    return row;
}

} // namespace fileshare
