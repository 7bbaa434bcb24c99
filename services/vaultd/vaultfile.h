#pragma once

#include <QJsonObject>
#include <QMap>
#include <QString>

#include <sys/stat.h>

namespace services {
namespace vaultd {

/// One file that the vault holds.
struct VaultFile
{
    QString id;
    QString fileName;
    QString originalPath;  ///< Empty if unknown.
    qint64 fileSize = 0;   ///< Bytes.
    qint64 deletedAt = 0;  ///< Seconds since the epoch; below 1 if unknown.
    QString originalState; ///< stateText() of the file before it was moved in; empty if unknown.
    /// The path as bytes, where a text cannot hold it: `originalPath` is only for showing then.
    QByteArray originalBytes;
    // As the file was before it was kept; below 0 or empty if unknown.
    qint64 ownerUid = -1;
    qint64 ownerGid = -1;
    int mode = -1; ///< The twelve permission bits.
    struct timespec accessed = {};
    struct timespec modified = {};           ///< Both are all zeros if unknown.
    QMap<QByteArray, QByteArray> attributes; ///< Extended ones that the content itself has lost.
    qint64 user = -1; ///< Whose file it is to the vault, where a vault is for all users.
    /// Soon after it had gone there was a file under its path again.
    bool isReplaced = false;
    /// deletedAt, or if that is unknown when the content came to the vault; not in the record.
    qint64 keptSince = 0;
    /// The folder that the vault stands in, if it is not the user's home vault; not in the record.
    QByteArray vaultParent;
    /// The path that the deletion took away, where that is not the original one (from the trash);
    /// not in the record.
    QByteArray deletedFrom;

    /// The path as the file system takes it.
    QByteArray pathBytes() const;
    /// Takes the path and the name from bytes, whatever they are.
    void setPath(const QByteArray &path);
    /// Takes owner, mode and times from a file.
    void setAttributes(const struct stat &info);

    /// As clients see it.
    QJsonObject toJson() const;
    /// As it is kept.
    QJsonObject toRecord() const;
};

/// Reads a record that stands under the name `<id>.json`. False for one that no vault has written:
/// another id, wrong types, names with separators, paths that step up.
[[nodiscard]] bool parseRecord(const QJsonObject &record, const QString &id, VaultFile *file,
                               QString *error);

/// A name that a directory entry can have.
bool isFileName(const QString &name);

/// Which file this is and in which state: equal texts mean the same file, neither written to nor
/// linked, renamed or given other rights in between.
QString stateText(const struct stat &info);

/// The inode in VaultFile::originalState; 0 if unknown.
quint64 originalInodeOf(const VaultFile &file);

} // namespace vaultd
} // namespace services
