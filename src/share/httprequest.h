#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

/// One request as a browser sent it. Nothing of the target is percent-decoded but the query's
/// items.
struct HttpRequest
{
    QString method;
    QString rawTarget;
    QString path;        ///< `rawTarget` up to the first question mark.
    QString queryString; ///< What follows it.
    QMap<QString, QString> queryParams;
    QMap<QString, QString> headers; ///< Keys in lower case.
    QByteArray body;                ///< What has been read of it.
    qint64 contentLength = -1;      ///< Bytes; -1: absent or no number.
};
