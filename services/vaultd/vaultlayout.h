#pragma once

#include "vault/vaultrecord.h"
#include "vaultd/keep/vaultdir.h"
#include "vaultd/vaultfile.h"

#include <QStringList>

#include <memory>
#include <unistd.h>

namespace services {
namespace vaultd {

/// Where a vault keeps what: <parent>/.morvane_vault/ with <id>.dat for the contents and
/// .meta/<id>.json for the records. Both folders are for their owner only. Copies are of one vault.
///
/// A service of root that keeps a vault for somebody else trusts nothing in its parent: from
/// prepare() on, content(), record() and path() lead through folders that are held open, whatever
/// their names are by then.
class VaultLayout
{
public:
    explicit VaultLayout(const QString &parent, uid_t owner = ::geteuid());
    /// The vault of all users at the top of another file system.
    static VaultLayout ofMount(const QByteArray &mountPoint);

    /// The vault's place by its name, for comparing and showing.
    QString root() const { return m_root; }
    /// The vault's folder, for opening.
    QString folder() const;
    QString meta() const { return path(QLatin1String(vault::kMetaDir)); }
    QString content(const QString &id) const { return path(contentName(id)); }
    QString record(const QString &id) const { return meta() + QLatin1Char('/') + recordName(id); }
    QString path(const QString &name) const { return folder() + QLatin1Char('/') + name; }
    /// A descriptor of the folder, for the caller to close; -1 with errno.
    int openFolder() const;
    /// The same of a content, for reading.
    int openContent(const QString &id) const;
    /// Whose vault it is; -1: of all users.
    uid_t owner() const { return m_owner; }
    /// Null for a vault of the process's own user.
    VaultDir *dir() const { return m_dir.get(); }

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

    /// Makes the folders if need be, and finds out whether they are still in place. Fails if either
    /// is a symbolic link or no folder; in somebody else's parent those are put aside.
    [[nodiscard]] bool prepare(QString *error) const;
    /// Only opens what is there.
    [[nodiscard]] bool prepareExisting(QString *error) const;

private:
    VaultLayout() = default;

    QString m_root;
    uid_t m_owner = uid_t(-1);
    std::shared_ptr<VaultDir> m_dir;
};

/// Holds the vault for one piece of work that may take names out of it; whoever else works on it,
/// in this process or another, waits. What a dead process has left is final once the vault is held.
class VaultLock
{
public:
    explicit VaultLock(const VaultLayout &layout);
    ~VaultLock();
    VaultLock(const VaultLock &) = delete;
    VaultLock &operator=(const VaultLock &) = delete;

    [[nodiscard]] bool isHeld(QString *error) const;

private:
    VaultDir::Change m_change;
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

/// The same without waiting for the medium, in place of a record that is there already. Returns 0
/// or an errno value.
[[nodiscard]] int putRecord(const VaultLayout &layout, const VaultFile &file);

/// lstat(2); false if there is nothing under the name.
bool look(const QString &path, struct stat *info);
bool isPlainFile(const QString &path);

} // namespace vaultd
} // namespace services
