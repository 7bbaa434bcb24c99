#include "rawclient.h"

#include "core/descriptor.h"

#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace guard_test {

RawRequest RawRequest::deletion(const QByteArray &name, int file, int parent)
{
    RawRequest request;
    request.message.magic = GUARD_REQUEST_MAGIC;
    request.message.version = GUARD_VERSION;
    request.message.kind = GuardDeletion;
    request.message.nameLength = quint32(name.size());
    std::memcpy(request.message.name, name.constData(),
                std::min(size_t(name.size()), sizeof request.message.name));
    request.descriptors = {file, parent};
    return request;
}

int connectTo(const QByteArray &runDir, const QByteArray &user)
{
    const QByteArray path = runDir + '/' + user + ".sock";
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.constData(), size_t(path.size()));
    core::Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (::connect(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return -1;
    return socket.release();
}

bool send(int socket, const RawRequest &request)
{
    std::vector<char> control(CMSG_SPACE(request.descriptors.size() * sizeof(int)));
    iovec part = {const_cast<GuardRequest *>(&request.message), size_t(request.messageSize)};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (!request.descriptors.empty()) {
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        cmsghdr *header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(request.descriptors.size() * sizeof(int));
        std::memcpy(CMSG_DATA(header), request.descriptors.data(),
                    request.descriptors.size() * sizeof(int));
    }
    return ::sendmsg(socket, &message, MSG_NOSIGNAL) == request.messageSize;
}

int answerOf(int socket)
{
    GuardAnswer answer = {};
    return ::recv(socket, &answer, sizeof answer, 0) == ssize_t(sizeof answer) ? answer.verdict : 0;
}

int ask(const QByteArray &runDir, const QByteArray &user, const RawRequest &request)
{
    const core::Descriptor socket(connectTo(runDir, user));
    return socket.isOpen() && send(socket.get(), request) ? answerOf(socket.get()) : 0;
}

} // namespace guard_test
