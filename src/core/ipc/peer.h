#pragma once

#include <QString>
#include <QVector>

#include <sys/types.h>

namespace core::ipc {

/// The process at the other end of a local socket, as it was when the connection was made. The
/// kernel vouches for these values; the process cannot choose them.
struct Peer
{
    uid_t uid = uid_t(-1);
    gid_t gid = gid_t(-1);
    pid_t pid = 0;
    QVector<gid_t> groups; ///< Supplementary groups; empty on kernels before 4.13.

    bool isInGroup(gid_t group) const { return gid == group || groups.contains(group); }
};

/// Reads the peer of a connected local socket.
[[nodiscard]] bool readPeer(qintptr descriptor, Peer *peer, QString *error = nullptr);

/// Whether a client may trust a service that runs as this user: root or the client's own user.
bool isTrustedService(const Peer &peer, uid_t ownUid);

} // namespace core::ipc
