#include "core/ipc/peer.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>

// Missing from the libc headers of older systems; the kernel defines it as 59 on x86 and ARM.
#ifndef SO_PEERGROUPS
#define SO_PEERGROUPS 59
#endif

namespace core::ipc {

namespace {

QVector<gid_t> readGroups(int descriptor)
{
    socklen_t length = 0;
    // A call without room fails and reports the room that is needed.
    if (::getsockopt(descriptor, SOL_SOCKET, SO_PEERGROUPS, nullptr, &length) == 0 ||
        errno != ERANGE)
        return {};
    QVector<gid_t> groups(int(length / sizeof(gid_t)));
    if (::getsockopt(descriptor, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &length) != 0)
        return {};
    groups.resize(int(length / sizeof(gid_t)));
    return groups;
}

} // namespace

bool readPeer(qintptr descriptor, Peer *peer, QString *error)
{
    ucred credentials{};
    socklen_t length = sizeof credentials;
    if (::getsockopt(int(descriptor), SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0) {
        if (error)
            *error =
                QStringLiteral("无法确认对方身份：%1").arg(QString::fromLocal8Bit(strerror(errno)));
        return false;
    }
    *peer = {credentials.uid, credentials.gid, credentials.pid, readGroups(int(descriptor))};
    return true;
}

bool isTrustedService(const Peer &peer, uid_t ownUid)
{
    return peer.uid == 0 || peer.uid == ownUid;
}

} // namespace core::ipc
