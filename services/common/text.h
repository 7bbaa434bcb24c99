#pragma once

#include <QDateTime>
#include <QString>

namespace services {

/// "512 B", "42.0 MB", "1.8 TB": units of 1024.
QString sizeText(qint64 bytes);
/// "yyyy-MM-dd HH:mm:ss" in local time.
QString timeText(const QDateTime &time);
/// A fresh id that is also a file name.
QString newId();
/// True for what newId() may have made, so that an id of a request can be used in a path.
bool isId(const QString &text);

} // namespace services
