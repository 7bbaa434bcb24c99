#pragma once

#include "share/sharerecords.h"

#include <QList>
#include <QString>
#include <QStringList>

/// What a person sets for a share.
struct ShareDefinition
{
    QStringList paths;
    QString password; ///< Empty: none.
    int durationMin = 0;
    int maxClients = 10;
    QString accessMode; ///< Empty: "download".
};

/// A new id for the link of a share: 12 characters of a UUID.
QString newShareId();
/// End of a share that starts at `startMs`; 0, for none, with a duration below 1.
qint64 shareExpiry(qint64 startMs, int durationMin);
/// The record of an active share, without transfers so far.
ShareSession shareSessionFor(const QString &id, const ShareDefinition &definition, int port,
                             qint64 startMs);
/// Its roots in the order of the paths, with new ids.
QList<ShareRoot> shareRootsFor(const QString &id, const QStringList &paths);

/// What becomes of the active shares of an earlier run. All listen on one port, that of the newest
/// one which has not expired.
struct ShareRestorePlan
{
    int port = 0;
    QList<ShareSession> expired;
    QList<ShareSession> restorable;  ///< On the port, newest first.
    QList<ShareSession> conflicting; ///< On other ports; only with restorable ones.
};

/// `sessions` newest first.
ShareRestorePlan planShareRestore(const QList<ShareSession> &sessions, qint64 nowMs);
