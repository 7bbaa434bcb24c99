#pragma once

#include <QJsonObject>
#include <QMap>
#include <QString>
#include <QUrl>

namespace core {
namespace controllers {
namespace upgrade {

/// Parameters of a request, walked in key order.
using ApiParams = QMap<QString, QString>;

/// Lower-case hexadecimal MD5 over the parameters that are not empty and the secret.
QString signRequest(const ApiParams &params, const QString &secret);
/// `path` against `base`, with the parameters that are not empty as its query.
QUrl requestUrl(const QUrl &base, const QString &path, const ApiParams &params);
/// The parameters fit for a log: those that describe the device are hidden.
ApiParams redacted(ApiParams params);

/// The envelope's "code" as text; empty if there is none.
QString backendCodeString(const QJsonObject &body);
/// The envelope's "data" object, or the whole body where there is none.
QJsonObject unwrapResponseObject(const QJsonObject &body);

} // namespace upgrade
} // namespace controllers
} // namespace core
