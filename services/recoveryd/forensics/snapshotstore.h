#pragma once

#include "recoveryd/forensics/blockcheck.h"
#include "recoveryd/forensics/snapshot.h"

namespace services {
namespace recoveryd {

/// Snapshots and their verifications, in <state>/snapshots/<id>/: snapshot.json and
/// verification-<id>.json. Nothing is held in memory. One thread at a time.
class SnapshotStore
{
public:
    void setStateDir(const QString &stateDir);

    [[nodiscard]] bool save(const Snapshot &snapshot, QString *error) const;
    [[nodiscard]] bool load(const QString &snapshotId, Snapshot *snapshot, QString *error) const;
    /// Newest first; what cannot be read is left out.
    QVector<Snapshot> list() const;
    [[nodiscard]] bool remove(const QString &snapshotId, QString *error) const;

    [[nodiscard]] bool addVerification(const QString &snapshotId, const Verification &verification,
                                       QString *error) const;
    /// Oldest first, without their block details.
    QJsonArray verifications(const QString &snapshotId) const;
    /// With block details.
    [[nodiscard]] bool verification(const QString &verificationId, QJsonObject *object,
                                    QString *error) const;

private:
    QString folder(const QString &snapshotId) const;

    QString m_root;
};

} // namespace recoveryd
} // namespace services
