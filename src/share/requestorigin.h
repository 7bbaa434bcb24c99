#pragma once

#include <QHostAddress>
#include <QList>
#include <QString>
#include <QStringList>

struct HttpRequest;

namespace share {

/// What this machine is called by those who are meant to reach it.
struct OwnNames
{
    QList<QHostAddress> addresses;
    QStringList names; ///< In lower case.

    /// Those of all interfaces and of the system's host name. Any thread.
    static OwnNames ofSystem();
};

/// False if the request's `Host` or `Origin` names another host: then a page of another web site
/// made the browser send it, or a name that was moved to our address. A request without both comes
/// from no browser. `local` is the address that the client has connected to; `others` is called
/// only if that does not settle it.
bool isOwnRequest(const HttpRequest &request, const QHostAddress &local,
                  OwnNames (*others)() = &OwnNames::ofSystem);

} // namespace share
