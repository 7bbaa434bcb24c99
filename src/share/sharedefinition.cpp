#include "share/sharedefinition.h"

#include <QFileInfo>
#include <QUuid>

namespace {

constexpr int kSessionIdLength = 12;
constexpr int kRootIdLength = 8;

QString newId(int length)
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).left(length);
}

} // namespace

QString newShareId()
{
    return newId(kSessionIdLength);
}

qint64 shareExpiry(qint64 startMs, int durationMin)
{
    return durationMin < 1 ? 0 : startMs + qint64(durationMin) * 60000;
}

ShareSession shareSessionFor(const QString &id, const ShareDefinition &definition, int port,
                             qint64 startMs)
{
    ShareSession session;
    session.id = id;
    session.port = port;
    session.hasPassword = !definition.password.isEmpty();
    session.durationMin = definition.durationMin;
    session.maxClients = definition.maxClients;
    session.createdAt = startMs;
    session.expiresAt = shareExpiry(startMs, definition.durationMin);
    session.status = QStringLiteral("active");
    session.accessMode =
        definition.accessMode.isEmpty() ? QStringLiteral("download") : definition.accessMode;
    return session;
}

QList<ShareRoot> shareRootsFor(const QString &id, const QStringList &paths)
{
    QList<ShareRoot> roots;
    for (const QString &path : paths) {
        ShareRoot root;
        root.id = newId(kRootIdLength);
        root.sessionId = id;
        root.localPath = path;
        root.displayName = QFileInfo(path).fileName();
        if (root.displayName.isEmpty())
            root.displayName = path;
        roots.append(root);
    }
    return roots;
}

ShareRestorePlan planShareRestore(const QList<ShareSession> &sessions, qint64 nowMs)
{
    ShareRestorePlan plan;
    for (const ShareSession &session : sessions) {
        if (session.expiresAt > 0 && session.expiresAt < nowMs) {
            plan.expired.append(session);
            continue;
        }
        if (plan.restorable.isEmpty())
            plan.port = session.port;
        (session.port == plan.port ? plan.restorable : plan.conflicting).append(session);
    }
    return plan;
}
