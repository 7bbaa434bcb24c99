#include "core/jsontext.h"

#include <QJsonDocument>

namespace core {

QByteArray compactJson(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QByteArray compactJson(const QJsonArray &array)
{
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

bool parseJsonObject(const QByteArray &bytes, QJsonObject *object, QString *error)
{
    QJsonParseError parse;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &parse);
    if (document.isObject()) {
        *object = document.object();
        return true;
    }
    if (error)
        *error = parse.error == QJsonParseError::NoError ? QStringLiteral("not a JSON object")
                                                         : parse.errorString();
    return false;
}

} // namespace core
