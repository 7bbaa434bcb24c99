#pragma once

#include <QHostAddress>
#include <QTcpServer>

/// A TCP port that nobody listens on now; 0 if there is none.
inline int freePort()
{
    QTcpServer probe;
    return probe.listen(QHostAddress::Any) ? probe.serverPort() : 0;
}
