#pragma once

#include "core/descriptor.h"

#include <QByteArray>
#include <QString>

#include <mutex>
#include <sys/types.h>

namespace services::vaultd {

/// Whose vault it is, and who may read its records.
struct VaultOwner
{
    uid_t uid = uid_t(-1); ///< -1: of all users, as on a removable disk; each record is for one.

    bool isShared() const { return uid == uid_t(-1); }
};

/// The folders of one vault, held open from its parent down. The parent may belong to the user
/// whose files are kept: nothing in it is followed or trusted, the folders are root's, and who
/// moves them away finds them put back. Needs root. The descriptors stay valid until destruction;
/// the functions may be called on any thread.
class VaultDir
{
public:
    VaultDir(const QByteArray &parent, const VaultOwner &owner);
    VaultDir(const VaultDir &) = delete;
    VaultDir &operator=(const VaultDir &) = delete;

    /// Makes the folders, or takes over those of an earlier version. What the user had put in their
    /// place is renamed to "<name>.aside", or its next free stand-in. Once open, checks that the
    /// vault is still in its place, and puts it back.
    [[nodiscard]] bool open(QString *error);
    /// As open(), but fails where there is no vault of ours yet.
    [[nodiscard]] bool openExisting(QString *error);

    bool isOpen() const { return m_meta.isOpen(); }
    int root() const { return m_root.get(); }
    int meta() const { return m_meta.get(); }
    const QByteArray &parentPath() const { return m_parentPath; }
    const VaultOwner &owner() const { return m_owner; }
    /// A path that leads to the folder itself, wherever it is now: for this process only.
    QString path() const;
    /// The folder that open() has put aside, for the caller to look through and close; -1 the next
    /// time, and if there was none.
    int takeAside();

    /// Names can be taken out of the vault while one of these lives. At other times the folder only
    /// takes new ones, where the file system can do that, and cannot itself be moved.
    class Change
    {
    public:
        explicit Change(VaultDir *dir);
        ~Change();
        Change(const Change &) = delete;
        Change &operator=(const Change &) = delete;

    private:
        VaultDir *m_dir;
    };

private:
    bool openParent(QString *error);
    bool take(bool mayMake, QString *error);
    bool isFit(int fd, bool mayTakeOver) const;
    bool make(QString *error);
    bool putBack(QString *error);
    bool renameBack(const QByteArray &moved, QString *error);
    bool putAside(QString *error);
    bool findMoved(QByteArray *name) const;
    bool secure(QString *error);
    bool isInPlace() const;
    void setAppendOnly(bool isSet) const;

    QByteArray m_parentPath;
    VaultOwner m_owner;
    QByteArray m_aside;
    core::Descriptor m_parent{-1};
    core::Descriptor m_root{-1};
    core::Descriptor m_meta{-1};
    std::mutex m_mutex; ///< Of the two folders and the count.
    int m_changes = 0;
};

/// Lets one user read a file or folder of root, besides root: "r" for a file, "rx" for a folder.
/// Where the file system has no access lists, nobody but root can.
void allowReading(int fd, uid_t uid, bool isFolder);

} // namespace services::vaultd
