#pragma once

#include <QJsonObject>
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
    /// deletedAt, or if that is unknown when the content came to the vault; not in the record.
    qint64 keptSince = 0;

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

} // namespace vaultd
} // namespace services
