#pragma once

#include "vaultd/hook/hookservice.h"
#include "vaultd/hook/protections.h"
#include "vaultd/hook/trashindex.h"

namespace services::vaultd {

/// The spools of one user: what programs have put there while the service was silent goes into the
/// user's vault. One thread; everything in a spool is done with the rights of the user.
class Spool
{
public:
    Spool(const UserIdentity &user, const TrashIndex &trash, const FilesInHand &inHand,
          const HookService::KeeperOf &keeperOf);

    /// Makes the folder, for its user alone. *device: of its file system.
    [[nodiscard]] static bool prepare(const UserIdentity &user, const QByteArray &dir,
                                      quint64 *device, QString *error);
    /// Takes what is there. False if something has to be tried again later: a deletion that has
    /// not happened yet, or a vault that cannot take the file now.
    [[nodiscard]] bool adopt(const QByteArray &dir);

private:
    struct Entry;
    enum class Result { Done, Later };

    Result adoptEntry(const Entry &entry);
    bool read(Entry *entry) const;
    bool isStillThere(const Entry &entry) const;
    void drop(const Entry &entry) const;

    UserIdentity m_user;
    const TrashIndex &m_trash;
    const FilesInHand &m_inHand;
    HookService::KeeperOf m_keeperOf;
};

} // namespace services::vaultd
