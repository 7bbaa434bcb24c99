#include "core/controllers/upgrade/upgradeapi.h"

#include "core/jsonnumber.h"

#include <QCryptographicHash>
#include <QUrlQuery>

namespace core {
namespace controllers {
namespace upgrade {

QString signRequest(const ApiParams &params, const QString &secret)
{
    QString text;
    for (auto it = params.cbegin(); it != params.cend(); ++it) {
        if (!it.value().isEmpty())
            text += it.key() + QLatin1Char('=') + it.value() + QLatin1Char('&');
    }
    text += QStringLiteral("secret=") + secret;
    return QString::fromLatin1(
        QCryptographicHash::hash(text.toUtf8(), QCryptographicHash::Md5).toHex());
}

QUrl requestUrl(const QUrl &base, const QString &path, const ApiParams &params)
{
    QUrlQuery query;
    for (auto it = params.cbegin(); it != params.cend(); ++it) {
        // QUrlQuery takes "%41" for a letter and leaves "+", which servers read as a blank.
        if (!it.value().isEmpty())
            query.addQueryItem(it.key(), QString::fromLatin1(QUrl::toPercentEncoding(it.value())));
    }
    QUrl url = base.resolved(QUrl(path));
    url.setQuery(query);
    return url;
}

ApiParams redacted(ApiParams params)
{
    for (const QString &key : {QStringLiteral("cpuModel"), QStringLiteral("osInfo")}) {
        if (!params.value(key).isEmpty())
            params.insert(key, QStringLiteral("<redacted>"));
    }
    return params;
}

QString backendCodeString(const QJsonObject &body)
{
    const QJsonValue code = body.value(QLatin1String("code"));
    if (code.isString())
        return code.toString().trimmed();
    if (code.isDouble())
        return QString::number(toInt64(code));
    if (code.isBool())
        return code.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    return QString();
}

QJsonObject unwrapResponseObject(const QJsonObject &body)
{
    const QJsonValue data = body.value(QLatin1String("data"));
    return data.isObject() ? data.toObject() : body;
}

} // namespace upgrade
} // namespace controllers
} // namespace core
