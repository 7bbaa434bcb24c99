#include "vaultd/rights/authenticator.h"

#include "common/params.h"

#include <QDebug>
#include <QPointer>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <pwd.h>

namespace services::vaultd {

namespace {

Reply answer(const QString &message)
{
    return Reply::ok(
        {{QStringLiteral("success"), message.isEmpty()}, {QStringLiteral("message"), message}});
}

QString wrongPassword()
{
    return QStringLiteral("用户名或密码错误");
}

} // namespace

Authenticator::Authenticator(PasswordCheck check, IsOwnAccount isOwn, const Rules &rules)
    : m_check(std::move(check))
    , m_isOwn(std::move(isOwn))
    , m_rules(rules)
{}

void Authenticator::authenticate(const Request &request, const ServiceHost::Respond &respond)
{
    const QJsonValue user = request.params.value(QLatin1String("username"));
    const QJsonValue password = request.params.value(QLatin1String("password"));
    if (!user.isString()) {
        respond(badParam(QStringLiteral("username")));
        return;
    }
    if (!password.isString()) {
        respond(badParam(QStringLiteral("password")));
        return;
    }
    const qint64 started = m_rules.now();
    Record &record = m_records[request.peer.uid];
    if (isLocked(record)) {
        const qint64 left = record.lastFailure + m_rules.lockMs - started;
        respond(answer(QStringLiteral("密码错误次数过多，请 %1 秒后再试").arg(left / 1000 + 1)));
    } else if (record.isChecking) {
        // One at a time: several connections must not guess side by side.
        respond(answer(QStringLiteral("正在验证，请稍后再试")));
    } else {
        record.isChecking = true;
        if (!m_isOwn(user.toString(), request.peer)) {
            qWarning() << "[Authenticator] user" << request.peer.uid << "asked for another account";
            finish(request, respond, started, false);
            return;
        }
        // A check that is under way may outlive this object.
        const QPointer<Authenticator> self(this);
        m_check(user.toString(), password.toString(),
                [self, request, respond, started](bool isRight) {
                    if (self)
                        self->finish(request, respond, started, isRight);
                });
    }
}

void Authenticator::finish(const Request &request, const ServiceHost::Respond &respond,
                           qint64 started, bool isRight)
{
    Record &record = m_records[request.peer.uid];
    const qint64 now = m_rules.now();
    if (isRight) {
        m_records.remove(request.peer.uid);
        for (auto it = m_proofs.begin(); it != m_proofs.end();)
            it = now - it.value() > m_rules.validMs ? m_proofs.erase(it) : std::next(it);
        m_proofs.insert(request.connection, now);
        respond(answer(QString()));
        return;
    }
    if (now - record.lastFailure > m_rules.lockMs)
        record.failures = 0;
    ++record.failures;
    record.lastFailure = now;
    m_proofs.remove(request.connection);
    if (isLocked(record))
        qWarning() << "[Authenticator] user" << request.peer.uid << "is locked out";
    const uid_t uid = request.peer.uid;
    const qint64 delay = std::max<qint64>(0, started + m_rules.failureDelayMs - now);
    QTimer::singleShot(int(delay), this, [this, uid, respond] {
        const auto found = m_records.find(uid);
        if (found != m_records.end())
            found->isChecking = false;
        respond(answer(wrongPassword()));
    });
}

bool Authenticator::isLocked(const Record &record) const
{
    return record.failures >= m_rules.maxFailures &&
           m_rules.now() - record.lastFailure < m_rules.lockMs;
}

bool Authenticator::isAuthenticated(const Request &request) const
{
    const auto proof = m_proofs.constFind(request.connection);
    return proof != m_proofs.constEnd() && m_rules.now() - proof.value() < m_rules.validMs;
}

bool Authenticator::admit(const Request &request, const ServiceHost::Respond &respond) const
{
    if (isAuthenticated(request))
        return true;
    respond(Reply::failure(ServiceHost::kRefusedCode,
                           QStringLiteral("请先验证当前用户的密码（验证后 15 分钟内有效）")));
    return false;
}

qint64 Authenticator::sinceBoot()
{
    struct timespec now;
    ::clock_gettime(CLOCK_BOOTTIME, &now);
    return qint64(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

bool isAccountOf(const QString &user, const Peer &peer)
{
    QByteArray buffer(64 * 1024, '\0');
    struct passwd account;
    struct passwd *found = nullptr;
    return !user.isEmpty() && !user.contains(QChar(QChar::Null)) &&
           ::getpwnam_r(user.toUtf8().constData(), &account, buffer.data(), size_t(buffer.size()),
                        &found) == 0 &&
           found && found->pw_uid == peer.uid;
}

} // namespace services::vaultd
