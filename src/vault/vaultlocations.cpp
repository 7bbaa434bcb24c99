#include "vault/vaultlocations.h"

#include "core/filename.h"
#include "core/pathutil.h"
#include "vault/vaultreader.h"
#include "vault/vaultrecord.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QStringList>

#include <algorithm>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <utility>

namespace vault {

namespace {

const QLatin1String kRootHome("root");
const QLatin1String kHomes("home");

QString joined(const QString &dir, const QString &name)
{
    return dir.endsWith(QLatin1Char('/')) ? dir + name : dir + QLatin1Char('/') + name;
}

bool leadsOut(const QString &path, const QString &mountPoint)
{
    return !core::isInside(QFileInfo(path).canonicalFilePath(),
                           QFileInfo(mountPoint).canonicalFilePath());
}

bool isDirectory(int dirFd, const dirent &entry)
{
    if (entry.d_type != DT_UNKNOWN)
        return entry.d_type == DT_DIR;
    struct stat info = {};
    return ::fstatat(dirFd, entry.d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(info.st_mode);
}

/// Sorted.
QStringList directoriesIn(const QString &path)
{
    QStringList names;
    DIR *const dir = ::opendir(QFile::encodeName(path).constData());
    if (!dir)
        return names;
    while (const dirent *entry = ::readdir(dir)) {
        const QString name = core::decodedFileName(entry->d_name);
        const bool isSelf = name == QLatin1String(".") || name == QLatin1String("..");
        if (!name.isEmpty() && !isSelf && isDirectory(::dirfd(dir), *entry))
            names.append(name);
    }
    ::closedir(dir);
    names.sort();
    return names;
}

/// The vault's device and inode.
std::pair<quint64, quint64> identityOf(const QString &parent)
{
    struct stat info = {};
    ::lstat(QFile::encodeName(joined(parent, QLatin1String(kVaultDir))).constData(), &info);
    return {quint64(info.st_dev), quint64(info.st_ino)};
}

bool isWithoutDisk(const QByteArray &fileSystem)
{
    return fileSystem == "tmpfs" || fileSystem == "devtmpfs" || fileSystem == "sysfs" ||
           fileSystem == "proc";
}

} // namespace

QJsonObject VaultLocation::toJson() const
{
    return {{QStringLiteral("vaultParentDir"), vaultParentDir},
            {QStringLiteral("devicePath"), devicePath},
            {QStringLiteral("partMountPoint"), partMountPoint},
            {QStringLiteral("userName"), userName},
            {QStringLiteral("files"), files}};
}

VaultLocation VaultLocation::fromJson(const QJsonObject &object)
{
    const auto text = [&object](const char *key) {
        return object.value(QLatin1String(key)).toString();
    };
    return {text("vaultParentDir"), text("devicePath"), text("partMountPoint"), text("userName"),
            object.value(QLatin1String("files")).toArray()};
}

QString decodeMountPath(const QString &field)
{
    QString path = field;
    // Backslashes last, so that none of them begins an escape.
    path.replace(QLatin1String("\\040"), QLatin1String(" "));
    path.replace(QLatin1String("\\011"), QLatin1String("\t"));
    path.replace(QLatin1String("\\012"), QLatin1String("\n"));
    path.replace(QLatin1String("\\134"), QLatin1String("\\"));
    return path;
}

QVector<MountedPartition> parseMounts(const QByteArray &text)
{
    QVector<MountedPartition> partitions;
    const QList<QByteArray> lines = text.split('\n');
    for (const QByteArray &line : lines) {
        const QList<QByteArray> fields = line.split(' ');
        if (fields.size() < 3 || isWithoutDisk(fields.at(2)))
            continue;
        const QString device = decodeMountPath(QFile::decodeName(fields.at(0)));
        const QString mountPoint =
            QDir::cleanPath(decodeMountPath(QFile::decodeName(fields.at(1))));
        if (!device.startsWith(QLatin1Char('/')) || !mountPoint.startsWith(QLatin1Char('/')))
            continue;
        const auto known = std::find_if(
            partitions.begin(), partitions.end(),
            [&mountPoint](const MountedPartition &it) { return it.mountPoint == mountPoint; });
        if (known != partitions.end())
            known->devicePath = device;
        else
            partitions.append({device, mountPoint});
    }
    return partitions;
}

QVector<VaultLocation> vaultsOn(const MountedPartition &partition)
{
    QVector<VaultLocation> vaults;
    const auto probe = [&](const QString &parent, const QString &user) {
        if (hasVault(parent))
            vaults.append({parent, partition.devicePath, partition.mountPoint, user, {}});
    };
    probe(partition.mountPoint, QString());
    const QString rootHome = joined(partition.mountPoint, kRootHome);
    if (!leadsOut(rootHome, partition.mountPoint))
        probe(rootHome, kRootHome);
    const QString homes = joined(partition.mountPoint, kHomes);
    if (leadsOut(homes, partition.mountPoint))
        return vaults;
    const QStringList users = directoriesIn(homes);
    for (const QString &user : users)
        probe(joined(homes, user), user);
    return vaults;
}

QVector<VaultLocation> findVaultLocations(const QString &mountsFile)
{
    QVector<VaultLocation> vaults;
    QFile file(mountsFile);
    if (!file.open(QIODevice::ReadOnly))
        return vaults;
    QSet<std::pair<quint64, quint64>> seen;
    const QVector<MountedPartition> partitions = parseMounts(file.readAll());
    for (const MountedPartition &partition : partitions) {
        const QVector<VaultLocation> found = vaultsOn(partition);
        for (const VaultLocation &location : found) {
            const auto identity = identityOf(location.vaultParentDir);
            if (!seen.contains(identity))
                vaults.append(location);
            seen.insert(identity);
        }
    }
    return vaults;
}

} // namespace vault
