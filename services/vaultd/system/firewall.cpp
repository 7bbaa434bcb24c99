#include "vaultd/system/firewall.h"

#include "common/jsonfile.h"

#include <QDebug>
#include <QFile>
#include <QJsonArray>

#include <algorithm>

namespace services::vaultd {

namespace {

constexpr int kWatchMs = 30 * 1000;
constexpr int kMaxMisses = 2; ///< A program that starts its server anew is not abandoned.
constexpr int kFirstFreePort = 1024;

const QString kKind = QStringLiteral("kind");
const QString kPorts = QStringLiteral("ports");

FirewallState readState(const QString &path)
{
    QJsonObject object;
    QString error;
    FirewallState state;
    if (!QFile::exists(path) || !readJson(path, &object, &error))
        return state;
    const int kind = object.value(kKind).toInt();
    if (kind >= int(FirewallKind::None) && kind <= int(FirewallKind::Nftables))
        state.kind = FirewallKind(kind);
    const QJsonArray ports = object.value(kPorts).toArray();
    for (const QJsonValue &port : ports)
        state.ports.append(port.toInt());
    return state;
}

bool writeState(const QString &path, FirewallKind kind, const QList<int> &ports, QString *error)
{
    QJsonArray array;
    for (const int port : ports)
        array.append(port);
    return writeJson(path, {{kKind, int(kind)}, {kPorts, array}}, error);
}

/// What may be open is written down first, what is open afterwards.
bool change(const QString &path, const QList<int> &ports, FirewallState *state, QString *error)
{
    *state = readState(path);
    if (state->ports.isEmpty() && !ports.isEmpty())
        state->kind = activeFirewall();
    QList<int> possible = state->ports;
    for (const int port : ports)
        if (!possible.contains(port) && state->kind == FirewallKind::Nftables)
            possible.append(port);
    if (!writeState(path, state->kind, possible, error))
        return false;
    QString trouble;
    const bool isDone = setOpenPorts(ports, state, error);
    return writeState(path, state->kind, state->ports, isDone ? error : &trouble) && isDone;
}

QList<uid_t> listenersAt(int port)
{
    QList<uid_t> users;
    for (const char *name : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        QFile table(QString::fromLatin1(name));
        if (table.open(QIODevice::ReadOnly))
            users += listeners(table.readAll(), port);
    }
    return users;
}

} // namespace

QList<uid_t> listeners(const QByteArray &table, int port)
{
    constexpr int kAddress = 1;
    constexpr int kState = 3;
    constexpr int kUser = 7;
    QList<uid_t> users;
    const QList<QByteArray> lines = table.split('\n');
    for (const QByteArray &line : lines) {
        const QList<QByteArray> fields = line.simplified().split(' ');
        if (fields.size() <= kUser || fields.at(kState) != "0A")
            continue;
        const QByteArray address = fields.at(kAddress);
        if (address.mid(address.lastIndexOf(':') + 1).toInt(nullptr, 16) == port)
            users.append(fields.at(kUser).toUInt());
    }
    return users;
}

Firewall::Firewall(const QString &stateFile)
    : m_stateFile(stateFile)
{
    m_watch.setInterval(kWatchMs);
    connect(&m_watch, &QTimer::timeout, this, &Firewall::closeAbandoned);
}

Firewall::~Firewall()
{
    m_thread.stop();
    QString error;
    if (!closeFirewall(m_stateFile, &error))
        qWarning() << "[Firewall]" << error;
}

void Firewall::start()
{
    m_jobs = new Mailbox;
    m_thread.start(m_jobs, QStringLiteral("firewall"));
    apply([](bool isDone, const QString &message) {
        if (!isDone)
            qWarning() << "[Firewall]" << message;
    });
}

void Firewall::sync(uid_t uid, bool isActive, int port, const Done &done)
{
    const QList<uid_t> users = listenersAt(port);
    const bool isForeign =
        std::any_of(users.begin(), users.end(), [uid](uid_t user) { return user != uid; });
    if (isActive && uid != 0 && (port < kFirstFreePort || isForeign)) {
        done(false, QStringLiteral("端口 %1 不属于当前用户，不能开放").arg(port));
        return;
    }
    m_misses.remove(uid);
    if (isActive)
        m_ports.insert(uid, port);
    else
        m_ports.remove(uid);
    if (m_ports.isEmpty())
        m_watch.stop();
    else
        m_watch.start();
    apply(done);
}

void Firewall::apply(const Done &done)
{
    QList<int> ports;
    for (const int port : qAsConst(m_ports))
        if (!ports.contains(port))
            ports.append(port);
    std::sort(ports.begin(), ports.end());
    m_jobs->post([this, ports, done] {
        FirewallState state;
        QString message;
        const bool isDone = change(m_stateFile, ports, &state, &message);
        if (isDone && !ports.isEmpty())
            message = state.kind == FirewallKind::None
                          ? QStringLiteral("没有启用防火墙，无需开放端口")
                          : QStringLiteral("防火墙已开放共享端口");
        else if (isDone)
            message = QStringLiteral("防火墙规则已移除");
        m_inbox.post([done, isDone, message] { done(isDone, message); });
    });
}

/// A program that has crashed cannot say that it shares nothing any more.
void Firewall::closeAbandoned()
{
    bool hasChanged = false;
    const QList<uid_t> users = m_ports.keys();
    for (const uid_t uid : users) {
        if (listenersAt(m_ports.value(uid)).contains(uid)) {
            m_misses.remove(uid);
        } else if (++m_misses[uid] >= kMaxMisses) {
            m_ports.remove(uid);
            m_misses.remove(uid);
            hasChanged = true;
        }
    }
    if (hasChanged)
        apply([](bool, const QString &) {});
}

bool closeFirewall(const QString &stateFile, QString *error)
{
    FirewallState state;
    return !QFile::exists(stateFile) || change(stateFile, {}, &state, error);
}

} // namespace services::vaultd
