#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QMap>
#include <QString>

/// The answers that are made whole before they are written. What cannot be written is lost: the
/// connection closes after each.
namespace share {

class PeerSocket;

using HeaderMap = QMap<QString, QString>;

QString htmlContentType();

/// The extra headers come last, in the order of their keys.
void sendResponse(PeerSocket *socket, int code, const QString &statusText, const QByteArray &body,
                  const QString &contentType = htmlContentType(),
                  const HeaderMap &extraHeaders = HeaderMap());
void sendJson(PeerSocket *socket, int code, const QString &statusText, const QJsonObject &object,
              const HeaderMap &extraHeaders = HeaderMap());
/// The form of every failure that a script sees: "ok" is false, "message" is for the user.
void sendJsonFailure(PeerSocket *socket, int code, const QString &statusText,
                     const QString &message, const HeaderMap &extraHeaders = HeaderMap());
/// A page that says what is wrong and looks by itself whether it still is. The title is the status
/// text too, where only Latin-1 survives.
void sendError(PeerSocket *socket, int code, const QString &title, const QString &message);

} // namespace share
