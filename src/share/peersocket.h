#pragma once

#include "share/fileshareservercontext.h"

#include <QByteArray>
#include <QHostAddress>
#include <QString>
#include <QTcpSocket>

namespace share {

/// The blocking end of one connection, on a pool thread. The socket object owns the descriptor;
/// bytes move straight through the descriptor, so nothing is held back in a buffer of ours: a block
/// that was written is with the system, and a reader that stalls has no more than one block queued.
///
/// While bytes move the connection holds its slot of the global thread pool. While it waits for a
/// silent client it gives the slot back, as long as no more than the context's `maxWaiters` do;
/// beyond them it waits for moments only, so that no crowd of silent clients stops the server.
class PeerSocket
{
public:
    enum class Outcome {
        Done,
        TimedOut,
        Closed,      ///< By the client, or broken.
        Stopped,     ///< The server is shutting down.
        Refused,     ///< Too many wait already.
        Unsupported, ///< The file cannot be sent this way; nothing was.
    };
    /// What a wait gives way to.
    enum class Waiting {
        Plain,       ///< Nothing: answers are brought to their end.
        Stoppable,   ///< The server's shutdown, and after a moment too many that wait already.
        FirstHeader, ///< The shutdown, and at once too many that wait already.
    };

    explicit PeerSocket(const ShareContextPtr &context);
    PeerSocket(const PeerSocket &) = delete;
    PeerSocket &operator=(const PeerSocket &) = delete;

    /// False if the descriptor is none of a connected socket; it is closed then.
    [[nodiscard]] bool adopt(qintptr descriptor);
    /// An IPv4 address in its own notation, although the listener speaks IPv6.
    QString peerAddress() const;
    /// The address of this machine that the client has connected to.
    QHostAddress localAddress() const { return m_socket.localAddress(); }
    /// All bytes that read() has given out so far.
    qint64 received() const { return m_received; }

    /// Takes what there is, at most `size` bytes; waits up to `timeoutMs` for the first of them.
    Outcome read(char *buffer, int size, int timeoutMs, Waiting waiting, int *count);
    /// Gives all of `data` to the system, waiting up to `stallMs` whenever it takes no more; below
    /// 0 without end. `more`: the next write follows at once.
    Outcome write(const char *data, qint64 size, int stallMs, Waiting waiting, bool more = false);
    bool writeResponse(const QByteArray &data);
    /// Gives at most `most` bytes of an open file, from its position on, to the system without
    /// copying them through this program, and tells how many; 0 at the end of the file. Waits as
    /// write() does.
    Outcome sendFile(int file, qint64 most, int stallMs, Waiting waiting, qint64 *sent);

    /// Ends the connection. While a client is still sending what nobody reads, closing would
    /// reset the connection and could take the answer with it: so say that no more comes, and throw
    /// away what arrives, for a moment.
    void finish(bool requestUnread);

private:
    Outcome waitFor(short events, int timeoutMs, Waiting waiting);
    Outcome pollOnce(short events, int timeoutMs, bool stoppable);
    void discardIncoming();

    ShareContextPtr m_context;
    QTcpSocket m_socket;
    int m_descriptor = -1;
    qint64 m_received = 0;
};

} // namespace share
