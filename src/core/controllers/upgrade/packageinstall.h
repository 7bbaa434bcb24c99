#pragma once

#include <QJsonObject>
#include <QString>

namespace core {
namespace controllers {
namespace upgrade {

/// Name of a package in the cache; empty for a version or an architecture that cannot be part of a
/// file name.
QString packageFileName(const QString &version, const QString &arch);

/// Parameters of "vault.installPackage": the package, and what of this session's environment the
/// installer needs to show itself and to start the program again.
QJsonObject installParams(const QString &packagePath, const QString &arch);
void logInstallRequest(const QJsonObject &params);

} // namespace upgrade
} // namespace controllers
} // namespace core
