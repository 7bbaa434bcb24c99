#include "recoveryd/forensics/snapshotstore.h"

#include "common/jsonfile.h"

#include <QDir>

#include <algorithm>

namespace services {
namespace recoveryd {

namespace {

const QString kSnapshotFile = QStringLiteral("snapshot.json");

QString verificationFile(const QString &verificationId)
{
    return QStringLiteral("verification-%1.json").arg(verificationId);
}

QString text(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toString();
}

} // namespace

void SnapshotStore::setStateDir(const QString &stateDir)
{
    m_root = QDir(stateDir).absoluteFilePath(QStringLiteral("snapshots"));
}

QString SnapshotStore::folder(const QString &snapshotId) const
{
    return m_root + QLatin1Char('/') + snapshotId + QLatin1Char('/');
}

bool SnapshotStore::save(const Snapshot &snapshot, QString *error) const
{
    const QString dir = folder(snapshot.snapshotId);
    QDir().mkpath(dir);
    return writeJson(dir + kSnapshotFile, snapshot.toStored(), error);
}

bool SnapshotStore::load(const QString &snapshotId, Snapshot *snapshot, QString *error) const
{
    QJsonObject object;
    const QString path = folder(snapshotId) + kSnapshotFile;
    if (!QFile::exists(path)) {
        *error = QStringLiteral("没有快照 %1").arg(snapshotId);
        return false;
    }
    if (!readJson(path, &object, error))
        return false;
    if (Snapshot::fromStored(object, snapshot))
        return true;
    *error = QStringLiteral("快照 %1 已损坏").arg(snapshotId);
    return false;
}

QVector<Snapshot> SnapshotStore::list() const
{
    QVector<Snapshot> snapshots;
    const QStringList ids = QDir(m_root).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &id : ids) {
        Snapshot snapshot;
        QString error;
        if (load(id, &snapshot, &error))
            snapshots.append(snapshot);
        else
            qWarning() << "[SnapshotStore]" << error;
    }
    std::sort(snapshots.begin(), snapshots.end(), [](const Snapshot &a, const Snapshot &b) {
        return a.snapshotTime != b.snapshotTime ? a.snapshotTime > b.snapshotTime
                                                : a.snapshotId < b.snapshotId;
    });
    return snapshots;
}

bool SnapshotStore::remove(const QString &snapshotId, QString *error) const
{
    const QString dir = folder(snapshotId);
    if (QDir(dir).exists() && QDir(dir).removeRecursively())
        return true;
    *error = QStringLiteral("无法删除快照 %1").arg(snapshotId);
    return false;
}

bool SnapshotStore::addVerification(const QString &snapshotId, const Verification &verification,
                                    QString *error) const
{
    return writeJson(folder(snapshotId) + verificationFile(verification.verificationId),
                     verification.toJson(), error);
}

QJsonArray SnapshotStore::verifications(const QString &snapshotId) const
{
    QVector<QJsonObject> found;
    const QDir dir(folder(snapshotId));
    const QStringList names = dir.entryList({verificationFile(QStringLiteral("*"))}, QDir::Files,
                                            QDir::Time | QDir::Reversed);
    for (const QString &name : names) {
        QJsonObject object;
        if (!readJson(dir.filePath(name), &object, nullptr))
            continue;
        object.remove(QStringLiteral("blockDetails"));
        found.append(object);
    }
    std::stable_sort(found.begin(), found.end(), [](const QJsonObject &a, const QJsonObject &b) {
        return text(a, "verifyTime") < text(b, "verifyTime");
    });
    QJsonArray array;
    for (const QJsonObject &object : qAsConst(found))
        array.append(object);
    return array;
}

bool SnapshotStore::verification(const QString &verificationId, QJsonObject *object,
                                 QString *error) const
{
    const QStringList ids = QDir(m_root).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &id : ids) {
        const QString path = folder(id) + verificationFile(verificationId);
        if (QFile::exists(path))
            return readJson(path, object, error);
    }
    *error = QStringLiteral("没有校验记录 %1").arg(verificationId);
    return false;
}

} // namespace recoveryd
} // namespace services
