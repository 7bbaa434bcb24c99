#include "share/sharefirewall.h"

#include "core/ipc/ipcclient.h"

#include <QEventLoop>
#include <QJsonObject>
#include <QPointer>
#include <QTimer>

namespace {

constexpr int kConnectTimeoutMs = 1200;
constexpr int kReplyTimeoutMs = 2500;

struct Answer
{
    bool hasCome = false;
    bool success = false;
    QString message;
};

Answer answerFrom(bool success, const QJsonObject &data, const QJsonObject &failure)
{
    const QJsonObject &source = success ? data : failure;
    Answer answer;
    answer.hasCome = true;
    answer.success = success && data.value(QStringLiteral("success")).toBool(true);
    answer.message = source.value(QStringLiteral("message")).toString();
    return answer;
}

// Uses nothing of `owner` but its end.
bool tellService(const QString &serviceName, const ShareFirewallState &state, QObject *owner,
                 QEventLoop::ProcessEventsFlags flags, QString *error)
{
    Answer answer;
    QEventLoop loop;
    QTimer timeout;
    core::ipc::IpcClient client(serviceName); // ends first, and drops its callback then
    if (!client.ensureConnected(kConnectTimeoutMs)) {
        *error = QStringLiteral("未连接到文件保护服务，无法同步麒麟系统防火墙规则");
        return false;
    }

    client.sendRequest(
        QStringLiteral("vault.syncShareFirewall"),
        {{QStringLiteral("active"), state.isActive}, {QStringLiteral("port"), state.port}},
        [&answer, &loop](bool success, const QJsonObject &data, const QJsonObject &failure) {
            answer = answerFrom(success, data, failure);
            loop.quit();
        });
    if (!answer.hasCome) { // a connection that is lost at once answers inside the call
        QObject::connect(owner, &QObject::destroyed, &loop, &QEventLoop::quit);
        QObject::connect(&timeout, &QTimer::timeout, &loop, &QEventLoop::quit);
        timeout.setSingleShot(true);
        timeout.start(kReplyTimeoutMs);
        loop.exec(flags);
    }

    if (!answer.hasCome)
        *error = QStringLiteral("同步麒麟系统防火墙规则超时");
    else if (!answer.success)
        *error = answer.message.isEmpty() ? QStringLiteral("同步麒麟系统防火墙规则失败")
                                          : answer.message;
    return answer.success;
}

} // namespace

ShareFirewall::ShareFirewall(const QString &serviceName, QObject *owner)
    : m_serviceName(serviceName)
    , m_owner(owner)
{}

bool ShareFirewall::sync(const std::function<ShareFirewallState()> &state, Wait wait,
                         QString *error)
{
    // The end of the owner, which takes no input any more, cannot leave it to the wait around it.
    const bool isLast = wait == Wait::WithoutUserInput;
    if (m_isWaiting && !isLast) {
        m_isStale = true;
        return true;
    }
    const QPointer<QObject> owner(m_owner);
    bool ok = false;
    do {
        m_isWaiting = true;
        m_isStale = false;
        error->clear();
        ok =
            tellService(m_serviceName, state(), m_owner,
                        isLast ? QEventLoop::ExcludeUserInputEvents : QEventLoop::AllEvents, error);
        if (!owner)
            return ok;
        m_isWaiting = false;
    } while (m_isStale && !isLast);
    return ok;
}
