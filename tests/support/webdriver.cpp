#include "support/webdriver.h"

#include <QEventLoop>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QStandardPaths>

namespace {

constexpr int kStartMs = 20000;
constexpr int kEndMs = 5000;
const char kService[] = "chromedriver";
const char kBrowser[] = "chromium";

QString found(const char *program)
{
    return QStandardPaths::findExecutable(QLatin1String(program));
}

} // namespace

WebDriver::WebDriver()
{
    m_network.setProxy(QNetworkProxy::NoProxy);
}

WebDriver::~WebDriver()
{
    if (!m_session.isEmpty())
        inSession("DELETE", QString());
    m_service.terminate();
    if (!m_service.waitForFinished(kEndMs))
        m_service.kill();
    m_service.waitForFinished(kEndMs);
}

bool WebDriver::isInstalled()
{
    return !found(kService).isEmpty() && !found(kBrowser).isEmpty();
}

bool WebDriver::start(const QString &home, const QString &downloads)
{
    m_service.start(found(kService), {QStringLiteral("--port=0")});
    const QRegularExpression place(QStringLiteral("on port (\\d+)\\."));
    QByteArray said;
    while (m_base.isEmpty() && m_service.waitForReadyRead(kStartMs)) {
        said += m_service.readAllStandardOutput();
        const QRegularExpressionMatch match = place.match(QString::fromLocal8Bit(said));
        if (match.hasMatch())
            m_base = QStringLiteral("http://127.0.0.1:") + match.captured(1);
    }
    const QJsonObject options{
        {QStringLiteral("binary"), found(kBrowser)},
        {QStringLiteral("args"),
         QJsonArray{QStringLiteral("--headless=new"), QStringLiteral("--no-sandbox"),
                    QStringLiteral("--no-proxy-server"), QStringLiteral("--disable-gpu"),
                    QStringLiteral("--disable-dev-shm-usage"), QStringLiteral("--no-first-run"),
                    QStringLiteral("--hide-scrollbars"), QStringLiteral("--lang=zh-CN"),
                    QStringLiteral("--user-data-dir=") + home}}};
    const QJsonObject wanted{{QStringLiteral("goog:chromeOptions"), options},
                             {QStringLiteral("unhandledPromptBehavior"), QStringLiteral("ignore")}};
    const QJsonValue session = call(
        "POST", QStringLiteral("/session"),
        {{QStringLiteral("capabilities"), QJsonObject{{QStringLiteral("alwaysMatch"), wanted}}}});
    m_session = session.toObject().value(QStringLiteral("sessionId")).toString();
    if (m_session.isEmpty())
        return false;
    devTools("Browser.setDownloadBehavior", {{QStringLiteral("behavior"), QStringLiteral("allow")},
                                             {QStringLiteral("downloadPath"), downloads}});
    return m_error.isEmpty();
}

QJsonValue WebDriver::call(const QByteArray &method, const QString &path, const QJsonObject &body)
{
    QNetworkRequest request(QUrl(m_base + path));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    QScopedPointer<QNetworkReply> reply(m_network.sendCustomRequest(
        request, method, method == "POST" ? QJsonDocument(body).toJson() : QByteArray()));
    QEventLoop loop;
    QObject::connect(reply.data(), &QNetworkReply::finished, &loop, &QEventLoop::quit);
    loop.exec();
    const QByteArray bytes = reply->readAll();
    const QJsonValue value = QJsonDocument::fromJson(bytes).object().value(QStringLiteral("value"));
    m_error.clear();
    if (reply->error() == QNetworkReply::NoError)
        return value;
    m_error = QString::fromLatin1(method) + QLatin1Char(' ') + path + QLatin1String(": ") +
              value.toObject().value(QStringLiteral("message")).toString(reply->errorString());
    return QJsonValue();
}

QJsonValue WebDriver::inSession(const QByteArray &method, const QString &path,
                                const QJsonObject &body)
{
    return call(method, QStringLiteral("/session/") + m_session + path, body);
}

void WebDriver::devTools(const char *command, const QJsonObject &parameters)
{
    inSession(
        "POST", QStringLiteral("/goog/cdp/execute"),
        {{QStringLiteral("cmd"), QLatin1String(command)}, {QStringLiteral("params"), parameters}});
}

void WebDriver::open(const QString &url)
{
    inSession("POST", QStringLiteral("/url"), {{QStringLiteral("url"), url}});
}

QJsonValue WebDriver::run(const QString &script)
{
    return inSession("POST", QStringLiteral("/execute/sync"),
                     {{QStringLiteral("script"), script}, {QStringLiteral("args"), QJsonArray()}});
}

QString WebDriver::element(const char *selector)
{
    const QJsonObject object = inSession("POST", QStringLiteral("/element"),
                                         {{QStringLiteral("using"), QStringLiteral("css selector")},
                                          {QStringLiteral("value"), QLatin1String(selector)}})
                                   .toObject();
    return object.isEmpty() ? QString()
                            : QStringLiteral("/element/") + object.begin().value().toString();
}

void WebDriver::click(const char *selector)
{
    const QString place = element(selector);
    if (!place.isEmpty())
        inSession("POST", place + QStringLiteral("/click"));
}

void WebDriver::type(const char *selector, const QString &text)
{
    const QString place = element(selector);
    if (!place.isEmpty())
        inSession("POST", place + QStringLiteral("/value"), {{QStringLiteral("text"), text}});
}

QString WebDriver::functionOf(const char *selector, const char *body) const
{
    const QByteArray list = QJsonDocument(QJsonArray{QLatin1String(selector)}).toJson();
    return QStringLiteral("var e = document.querySelector(%1[0]); return %2;")
        .arg(QString::fromUtf8(list.trimmed()), QLatin1String(body));
}

QString WebDriver::text(const char *selector)
{
    return run(functionOf(selector, "e ? e.innerText : null")).toString();
}

bool WebDriver::has(const char *selector)
{
    return run(functionOf(selector, "e !== null")).toBool();
}

QString WebDriver::question()
{
    return inSession("GET", QStringLiteral("/alert/text")).toString();
}

void WebDriver::answer(bool yes)
{
    inSession("POST", yes ? QStringLiteral("/alert/accept") : QStringLiteral("/alert/dismiss"));
}

void WebDriver::resize(const QSize &size)
{
    devTools("Emulation.setDeviceMetricsOverride",
             {{QStringLiteral("width"), size.width()},
              {QStringLiteral("height"), size.height()},
              {QStringLiteral("deviceScaleFactor"), 1},
              {QStringLiteral("mobile"), size.width() < size.height()}});
}

void WebDriver::preferDark(bool dark)
{
    const QJsonObject feature{
        {QStringLiteral("name"), QStringLiteral("prefers-color-scheme")},
        {QStringLiteral("value"), dark ? QStringLiteral("dark") : QStringLiteral("light")}};
    devTools("Emulation.setEmulatedMedia", {{QStringLiteral("features"), QJsonArray{feature}}});
}

bool WebDriver::save(const QString &path)
{
    QFile file(path);
    const QByteArray png = QByteArray::fromBase64(
        inSession("GET", QStringLiteral("/screenshot")).toString().toLatin1());
    return !png.isEmpty() && file.open(QIODevice::WriteOnly) && file.write(png) == png.size();
}
