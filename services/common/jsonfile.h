#pragma once

#include <QJsonObject>
#include <QString>

namespace services {

/// Reads a file that holds one JSON object.
[[nodiscard]] bool readJson(const QString &path, QJsonObject *object, QString *error);
/// Replaces the file as a whole: after a crash there is the old content or the new one.
[[nodiscard]] bool writeJson(const QString &path, const QJsonObject &object, QString *error);

} // namespace services
