#include "share/requestorigin.h"

#include "share/httprequest.h"

#include <QHostInfo>
#include <QNetworkInterface>
#include <QUrl>

namespace share {

namespace {

/// Without the zone of a link-local address and without the IPv6 form of an IPv4 one, neither of
/// which browsers send.
QHostAddress plainAddress(const QHostAddress &address)
{
    bool isIpv4 = false;
    const quint32 ipv4 = address.toIPv4Address(&isIpv4);
    if (isIpv4)
        return QHostAddress(ipv4);
    QHostAddress plain = address;
    plain.setScopeId(QString());
    return plain;
}

/// The host that a URL begins with, in lower case; empty if it is none.
QString hostOf(const QString &url)
{
    const QUrl parsed(url, QUrl::StrictMode);
    if (!parsed.isValid() || !parsed.userInfo().isEmpty())
        return QString();
    const QString host = parsed.host();
    return host.endsWith(QLatin1Char('.')) ? host.left(host.size() - 1) : host;
}

bool isOwnHost(const QString &host, const QHostAddress &local, OwnNames (*others)())
{
    if (host.isEmpty())
        return false;
    if (host == QLatin1String("localhost"))
        return true;
    QHostAddress address;
    const bool isAddress = address.setAddress(host);
    address = plainAddress(address);
    if (isAddress && address == plainAddress(local))
        return true;
    const OwnNames own = others();
    if (!isAddress)
        return own.names.contains(host);
    for (const QHostAddress &candidate : own.addresses) {
        if (plainAddress(candidate) == address)
            return true;
    }
    return false;
}

} // namespace

OwnNames OwnNames::ofSystem()
{
    OwnNames own;
    own.addresses = QNetworkInterface::allAddresses();
    const QString name = QHostInfo::localHostName().toLower();
    if (name.isEmpty())
        return own;
    const QString first = name.section(QLatin1Char('.'), 0, 0);
    // ".local" is what the names of neighbours end with where no server knows them.
    own.names = QStringList{name, first, first + QLatin1String(".local")};
    const QString domain = QHostInfo::localDomainName().toLower();
    if (!domain.isEmpty())
        own.names.append(first + QLatin1Char('.') + domain);
    return own;
}

bool isOwnRequest(const HttpRequest &request, const QHostAddress &local, OwnNames (*others)())
{
    const auto host = request.headers.constFind(QStringLiteral("host"));
    const auto origin = request.headers.constFind(QStringLiteral("origin"));
    const auto end = request.headers.constEnd();
    return (host == end || isOwnHost(hostOf(QStringLiteral("http://") + *host), local, others)) &&
           (origin == end || isOwnHost(hostOf(*origin), local, others));
}

} // namespace share
