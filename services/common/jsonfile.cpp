#include "common/jsonfile.h"

#include <QFile>
#include <QJsonDocument>
#include <QSaveFile>

namespace services {

bool readJson(const QString &path, QJsonObject *object, QString *error)
{
    QFile file(path);
    QString problem;
    if (!file.open(QIODevice::ReadOnly)) {
        problem = file.errorString();
    } else {
        QJsonParseError parse;
        const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parse);
        if (document.isObject()) {
            *object = document.object();
            return true;
        }
        problem = parse.errorString();
    }
    if (error)
        *error = QStringLiteral("无法读取 %1：%2").arg(path, problem);
    return false;
}

bool writeJson(const QString &path, const QJsonObject &object, QString *error)
{
    QSaveFile file(path);
    const QByteArray bytes = QJsonDocument(object).toJson(QJsonDocument::Compact);
    if (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush() &&
        file.commit())
        return true;
    if (error)
        *error = QStringLiteral("无法写入 %1：%2").arg(path, file.errorString());
    return false;
}

} // namespace services
