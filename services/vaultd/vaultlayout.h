#pragma once

#include "vault/vaultrecord.h"
#include "vaultd/vaultfile.h"

#include <QStringList>

namespace services {
namespace vaultd {

/// Where a vault keeps what: <parent>/.morvane_vault/ with <id>.dat for the contents and
/// .meta/<id>.json for the records. Both folders are for their owner only.
class VaultLayout
{
public:
    explicit VaultLayout(const QString &parent);

    QString root() const { return m_root; }
    QString meta() const { return path(QLatin1String(vault::kMetaDir)); }
    QString content(const QString &id) const { return path(contentName(id)); }
    QString record(const QString &id) const { return meta() + QLatin1Char('/') + recordName(id); }
    QString path(const QString &name) const { return m_root + QLatin1Char('/') + name; }

    static QString contentName(const QString &id)
    {
        return id + QLatin1String(vault::kContentSuffix);
    }
    static QString recordName(const QString &id)
    {
        return id + QLatin1String(vault::kRecordSuffix);
    }
    // What a process that dies leaves behind: neither looks like a content or a record.
    static QString unfinishedContentName(const QString &id) { return id + QStringLiteral(".part"); }
    static QString unfinishedRecordName(const QString &id) { return id + QStringLiteral(".tmp"); }

    /// Makes the folders if need be. Fails if either is a symbolic link or no folder.
    [[nodiscard]] bool prepare(QString *error) const;

private:
    QString m_root;
};

/// Holds the vault for one piece of work; whoever else works on it, in this process or another,
/// waits. What a dead process has left is final once the vault is held.
class VaultLock
{
public:
    explicit VaultLock(const VaultLayout &layout);
    ~VaultLock();
    VaultLock(const VaultLock &) = delete;
    VaultLock &operator=(const VaultLock &) = delete;

    [[nodiscard]] bool isHeld(QString *error) const;

private:
    int m_fd = -1;
    int m_code = 0;
};

/// The names in a folder; unlike an empty list, a failure to read it is told.
[[nodiscard]] bool listNames(const QString &dir, QStringList *names, QString *error);

/// The id of a name such as "<id>.dat"; empty if it is no such name.
QString idOf(const QString &name, const QString &suffix);

/// Reads and checks a record. Only plain files of a sensible size are opened.
[[nodiscard]] bool readRecord(const VaultLayout &layout, const QString &id, VaultFile *file,
                              QString *error);
/// The record is there as a whole and on the medium, or not at all.
[[nodiscard]] bool writeRecord(const VaultLayout &layout, const VaultFile &file, QString *error);

/// lstat(2); false if there is nothing under the name.
bool look(const QString &path, struct stat *info);
bool isPlainFile(const QString &path);

} // namespace vaultd
} // namespace services
