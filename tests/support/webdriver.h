#pragma once

#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QProcess>
#include <QSize>
#include <QString>

/// A headless Chromium, driven by its WebDriver service. Every call runs the event loop until the
/// browser has answered, so a server in this process can serve it. What the browser refuses ends
/// up in error(), and the call gives nothing.
class WebDriver
{
public:
    WebDriver();
    ~WebDriver();

    static bool isInstalled();
    /// `home` takes the browser's profile, `downloads` what it saves.
    bool start(const QString &home, const QString &downloads);
    QString error() const { return m_error; }

    void open(const QString &url);
    /// What a function of this body returns.
    QJsonValue run(const QString &script);
    /// By CSS selector; each needs the element to be there.
    void click(const char *selector);
    void type(const char *selector, const QString &text);
    QString text(const char *selector);
    bool has(const char *selector);
    /// The text of the open question, null if there is none.
    QString question();
    void answer(bool yes);

    void resize(const QSize &size);
    void preferDark(bool dark);
    bool save(const QString &path);

private:
    QJsonValue call(const QByteArray &method, const QString &path, const QJsonObject &body = {});
    QJsonValue inSession(const QByteArray &method, const QString &path,
                         const QJsonObject &body = {});
    void devTools(const char *command, const QJsonObject &parameters);
    QString element(const char *selector);
    QString functionOf(const char *selector, const char *body) const;

    QProcess m_service;
    QNetworkAccessManager m_network;
    QString m_base;
    QString m_session;
    QString m_error;
};
