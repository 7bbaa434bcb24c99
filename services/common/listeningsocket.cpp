#include "common/listeningsocket.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QPointer>
#include <QSocketNotifier>
#include <QTimer>

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace services {

namespace {

constexpr int kBacklog = 128;
// Without free descriptors the pending connection stays pending; trying at once would spin.
constexpr int kRetryAcceptMs = 200;

bool failed(const QString &path, int code, QString *error)
{
    if (error)
        *error =
            QStringLiteral("无法监听 %1：%2").arg(path, QString::fromLocal8Bit(strerror(code)));
    return false;
}

QString fullPath(const QString &name)
{
    return QDir::isAbsolutePath(name) ? name
                                      : QDir::cleanPath(QDir::tempPath()) + QLatin1Char('/') + name;
}

bool toAddress(const QString &path, sockaddr_un *address)
{
    const QByteArray bytes = QFile::encodeName(path);
    if (bytes.size() >= int(sizeof address->sun_path))
        return false;
    std::memset(address, 0, sizeof *address);
    address->sun_family = AF_UNIX;
    std::memcpy(address->sun_path, bytes.constData(), size_t(bytes.size()));
    return true;
}

const sockaddr *raw(const sockaddr_un &address)
{
    return reinterpret_cast<const sockaddr *>(&address);
}

/// A live service accepts at once or lets its callers queue; only a leftover file refuses.
bool isLeftover(const sockaddr_un &address)
{
    struct stat status
    {};
    if (::lstat(address.sun_path, &status) != 0 || !S_ISSOCK(status.st_mode))
        return false;
    const int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (probe < 0)
        return false;
    const bool isRefused =
        ::connect(probe, raw(address), sizeof address) != 0 && errno == ECONNREFUSED;
    ::close(probe);
    return isRefused;
}

mode_t modeFor(SocketAccess access)
{
    switch (access) {
    case SocketAccess::Owner:
        return 0600;
    case SocketAccess::Group:
        return 0660;
    case SocketAccess::Everyone:
        return 0666;
    }
    return 0600;
}

/// Returns the bound and listening socket, or -1 with errno set. The file appears with mode 0600
/// and gets its final rights only then, so there is no moment at which too many may connect.
int bindSocket(const sockaddr_un &address, SocketAccess access, gid_t group)
{
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor < 0)
        return -1;
    bool isBound = false;
    const bool isReady =
        ::fchmod(descriptor, 0600) == 0 &&
        (isBound = ::bind(descriptor, raw(address), sizeof address) == 0) &&
        (access != SocketAccess::Group || group == gid_t(-1) ||
         ::lchown(address.sun_path, uid_t(-1), group) == 0) &&
        (access == SocketAccess::Owner || ::chmod(address.sun_path, modeFor(access)) == 0) &&
        ::listen(descriptor, kBacklog) == 0;
    if (isReady)
        return descriptor;
    const int code = errno;
    if (isBound)
        ::unlink(address.sun_path);
    ::close(descriptor);
    errno = code;
    return -1;
}

} // namespace

ListeningSocket::ListeningSocket(QObject *parent)
    : QObject(parent)
{}

ListeningSocket::~ListeningSocket()
{
    close();
}

bool ListeningSocket::listen(const QString &name, SocketAccess access, gid_t group, QString *error)
{
    const QString path = fullPath(name);
    sockaddr_un address{};
    if (!toAddress(path, &address))
        return failed(path, ENAMETOOLONG, error);
    int descriptor = bindSocket(address, access, group);
    if (descriptor < 0 && errno == EADDRINUSE) {
        if (isLeftover(address) && ::unlink(address.sun_path) == 0)
            descriptor = bindSocket(address, access, group);
        else
            errno = EADDRINUSE;
    }
    if (descriptor < 0)
        return failed(path, errno, error);

    struct stat status
    {};
    m_ownsFile = ::lstat(address.sun_path, &status) == 0;
    m_device = status.st_dev;
    m_inode = status.st_ino;
    m_path = path;
    start(descriptor);
    return true;
}

bool ListeningSocket::adopt(int descriptor, QString *error)
{
    int isListeningSocket = 0;
    socklen_t length = sizeof isListeningSocket;
    sockaddr_un address{};
    socklen_t addressLength = sizeof address;
    if (::getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &isListeningSocket, &length) != 0 ||
        ::getsockname(descriptor, reinterpret_cast<sockaddr *>(&address), &addressLength) != 0)
        return failed(QStringLiteral("LISTEN_FDS"), errno, error);
    if (!isListeningSocket || address.sun_family != AF_UNIX)
        return failed(QStringLiteral("LISTEN_FDS"), EINVAL, error);
    m_ownsFile = false;
    m_path = QFile::decodeName(address.sun_path);
    start(descriptor);
    return true;
}

void ListeningSocket::start(int descriptor)
{
    m_descriptor = descriptor;
    m_notifier = std::make_unique<QSocketNotifier>(descriptor, QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &ListeningSocket::acceptAll);
}

void ListeningSocket::acceptAll()
{
    // A receiver may close this socket.
    while (m_descriptor >= 0) {
        const int client = ::accept4(m_descriptor, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (client >= 0) {
            emit accepted(client);
            continue;
        }
        if (errno == EINTR || errno == ECONNABORTED)
            continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            qWarning() << "[ListeningSocket] cannot accept:" << strerror(errno);
            m_notifier->setEnabled(false);
            QTimer::singleShot(kRetryAcceptMs, m_notifier.get(),
                               [this] { m_notifier->setEnabled(true); });
        }
        return;
    }
}

void ListeningSocket::close()
{
    if (m_descriptor < 0)
        return;
    if (m_notifier) {
        // The notifier may be the sender of the signal that led here.
        m_notifier->setEnabled(false);
        m_notifier.release()->deleteLater();
    }
    struct stat status
    {};
    const QByteArray path = QFile::encodeName(m_path);
    if (m_ownsFile && ::lstat(path.constData(), &status) == 0 && status.st_dev == m_device &&
        status.st_ino == m_inode)
        ::unlink(path.constData());
    ::close(m_descriptor);
    m_descriptor = -1;
    m_path.clear();
}

} // namespace services
