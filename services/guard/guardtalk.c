#include "guard/guardtalk.h"

#include "guard/guardcalls.h"
#include "guard/guardprocess.h"

#include <errno.h>
#include <poll.h>
#include <stdbool.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

static int connectTo(uint32_t mapUid)
{
    const int connection = guardLift(
        (int)syscall(SYS_socket, AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (connection < 0)
        return -1;
    struct sockaddr_un address;
    memset(&address, 0, sizeof(address));
    address.sun_family = AF_UNIX;
    char *end = guardPutText(guardPutText(address.sun_path, guardRunDir()), "/");
    end = mapUid == GUARD_ANY_USER ? guardPutText(end, "any") : guardPutNumber(end, mapUid, 10);
    guardPutText(end, ".sock");
    if (syscall(SYS_connect, connection, &address, sizeof(address)) != 0) {
        if (errno == EAGAIN) /* The queue is full. */
            guardNoteSilence();
        guardClose(connection);
        return -1;
    }
    return connection;
}

/* Who listens must be root, and not this process: the service deletes, too. */
static bool isService(int connection, bool *isSelf)
{
    struct ucred peer;
    socklen_t size = sizeof(peer);
    if (syscall(SYS_getsockopt, connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return false;
    *isSelf = peer.pid == (pid_t)syscall(SYS_getpid);
    return guardIsRoot(peer.uid);
}

static bool sendRequest(int connection, const struct GuardRequest *request, int file, int parent)
{
    const int descriptors[2] = {file, parent};
    union {
        struct cmsghdr header;
        char space[CMSG_SPACE(sizeof(descriptors))];
    } control;
    memset(&control, 0, sizeof(control));
    struct iovec part = {(void *)request, sizeof(*request)};
    struct msghdr message;
    memset(&message, 0, sizeof(message));
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = &control;
    message.msg_controllen = sizeof(control.space);
    control.header.cmsg_level = SOL_SOCKET;
    control.header.cmsg_type = SCM_RIGHTS;
    control.header.cmsg_len = CMSG_LEN(sizeof(descriptors));
    memcpy(CMSG_DATA(&control.header), descriptors, sizeof(descriptors));
    return syscall(SYS_sendmsg, connection, &message, MSG_NOSIGNAL | MSG_DONTWAIT) ==
           (long)sizeof(*request);
}

/* True when something can be read, within the time. */
static bool waitForAnswer(int connection)
{
    struct pollfd wanted = {connection, POLLIN, 0};
#ifdef SYS_poll
    return syscall(SYS_poll, &wanted, 1, guardAnswerWait()) == 1;
#else
    /* Architectures without poll have one ppoll, with 64-bit times. */
    const int64_t wait[2] = {0, (int64_t)guardAnswerWait() * 1000000};
    return syscall(SYS_ppoll, &wanted, 1, wait, NULL, 8) == 1;
#endif
}

static enum GuardOutcome answerFrom(int connection)
{
    if (!waitForAnswer(connection)) {
        guardNoteSilence();
        return GuardIsSilent;
    }
    struct GuardAnswer answer;
    if (syscall(SYS_recvfrom, connection, &answer, sizeof(answer), MSG_DONTWAIT, NULL, NULL) !=
        (long)sizeof(answer))
        return GuardIsSilent; /* It has gone in the middle. */
    if (answer.magic != GUARD_ANSWER_MAGIC || answer.version != GUARD_VERSION)
        return GuardGoAhead; /* A newer service: this library is passive. */
    if (answer.verdict == GuardKept)
        return GuardIsKept;
    return answer.verdict == GuardFailed ? GuardIsSilent : GuardGoAhead;
}

enum GuardOutcome guardTalk(uint32_t mapUid, int file, int parent, const char *name, size_t length,
                            enum GuardKind kind, int *connection)
{
    *connection = -1;
    struct GuardRequest request;
    if (length == 0 || length >= sizeof(request.name))
        return GuardGoAhead;
    memset(&request, 0, sizeof(request));
    request.magic = GUARD_REQUEST_MAGIC;
    request.version = GUARD_VERSION;
    request.kind = (uint16_t)kind;
    request.nameLength = (uint32_t)length;
    memcpy(request.name, name, length);

    const int link = connectTo(mapUid);
    if (link < 0)
        return GuardIsSilent;
    bool isSelf = false;
    enum GuardOutcome outcome = GuardGoAhead;
    if (isService(link, &isSelf) && !isSelf)
        outcome = sendRequest(link, &request, file, parent) ? answerFrom(link) : GuardIsSilent;
    if (outcome == GuardIsKept)
        *connection = link;
    else
        guardClose(link);
    return outcome;
}

void guardTalkEnd(int connection, int error)
{
    const struct GuardDone done = {GUARD_DONE_MAGIC, error};
    syscall(SYS_sendto, connection, &done, sizeof(done), MSG_NOSIGNAL | MSG_DONTWAIT, NULL, 0);
    guardClose(connection);
}
