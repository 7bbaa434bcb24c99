#include "vault/vaultrecord.h"

#include "core/jsonnumber.h"

#include <QJsonDocument>

#include <algorithm>

namespace vault {

namespace {

constexpr int kMaxIdBytes = 200;
constexpr int kMaxPathLength = 4096; // what the kernel takes

QString textOf(const QJsonObject &object, const QString &key)
{
    return object.value(key).toString();
}

void copyNumber(const QJsonObject &from, const QString &key, QJsonObject *to)
{
    if (from.value(key).isDouble())
        to->insert(key, qMax(qint64(0), core::toInt64(from.value(key))));
}

} // namespace

bool isVaultId(const QString &id)
{
    return !id.isEmpty() && !id.startsWith(QLatin1Char('.')) && id.toUtf8().size() <= kMaxIdBytes &&
           std::none_of(id.begin(), id.end(), [](QChar c) {
               return c == QLatin1Char('/') || c.unicode() < 0x20 || c.unicode() == 0x7F;
           });
}

bool isRecordFileName(const QByteArray &name)
{
    return name.endsWith(kRecordSuffix) && !name.startsWith('.');
}

QJsonObject recordFrom(const QByteArray &json, const QString &recordFileName)
{
    const QJsonObject object = QJsonDocument::fromJson(json).object();
    if (object.isEmpty())
        return QJsonObject();
    QString id = textOf(object, QStringLiteral("id"));
    if (id.isEmpty())
        id = recordFileName.left(recordFileName.size() - int(qstrlen(kRecordSuffix)));
    const QString path = textOf(object, QStringLiteral("originalPath"));
    QString name = textOf(object, QStringLiteral("fileName"));
    if (name.isEmpty())
        name = path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
    if (!isVaultId(id) || path.size() > kMaxPathLength || name.size() > kMaxPathLength)
        return QJsonObject();
    QJsonObject record{{QStringLiteral("id"), id},
                       {QStringLiteral("fileName"), name},
                       {QStringLiteral("originalPath"), path}};
    copyNumber(object, QStringLiteral("fileSize"), &record);
    copyNumber(object, QStringLiteral("deletedAt"), &record);
    return record;
}

qint64 textSize(const QJsonObject &record)
{
    qint64 size = 0;
    for (const QJsonValue &value : record)
        size += value.toString().size();
    return size;
}

} // namespace vault
