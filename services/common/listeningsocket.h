#pragma once

#include <QObject>
#include <QString>

#include <memory>
#include <sys/types.h>

class QSocketNotifier;

namespace services {

/// Who may connect to a service's socket. What a client may then do is the service's decision.
enum class SocketAccess {
    Owner,   ///< The service's own user and root.
    Group,   ///< Also the members of a group.
    Everyone ///< Every local user.
};

/// A listening local stream socket. Unlike QLocalServer it sets the access rights before the socket
/// can be found, accepts a socket of the service manager, and removes only its own socket file.
/// Lives on one thread with an event loop.
class ListeningSocket : public QObject
{
    Q_OBJECT

public:
    explicit ListeningSocket(QObject *parent = nullptr);
    ~ListeningSocket() override;

    /// Listens at `name`, a path or the name of a file in the temporary folder. Replaces a socket
    /// file whose service has died; fails if a live one answers there. `group` counts only with
    /// SocketAccess::Group; gid_t(-1) keeps the group of the process.
    [[nodiscard]] bool listen(const QString &name, SocketAccess access, gid_t group,
                              QString *error);
    /// Takes over a socket that listens already. Its file is not removed at the end.
    [[nodiscard]] bool adopt(int descriptor, QString *error);
    bool isListening() const { return m_descriptor >= 0; }
    QString path() const { return m_path; }
    /// Stops listening and removes the socket file, if it is still the own one.
    void close();

signals:
    /// A client has connected; the receiver owns the descriptor.
    void accepted(int descriptor);

private:
    void start(int descriptor);
    void acceptAll();

    int m_descriptor = -1;
    std::unique_ptr<QSocketNotifier> m_notifier;
    QString m_path;
    bool m_ownsFile = false;
    dev_t m_device = 0; ///< Identity of the socket file, so that no other one is removed.
    ino_t m_inode = 0;
};

} // namespace services
