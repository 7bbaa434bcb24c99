#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>

namespace core {

/// UTF-8 without blanks or a line end.
QByteArray compactJson(const QJsonObject &object);
QByteArray compactJson(const QJsonArray &array);

/// False, with the parser's message, for anything that is not one JSON object.
[[nodiscard]] bool parseJsonObject(const QByteArray &bytes, QJsonObject *object,
                                   QString *error = nullptr);

} // namespace core
