#include "vaultd/system/firewallrules.h"

#include "vaultd/failure.h"
#include "vaultd/system/command.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace services::vaultd {

namespace {

const QString kFirewalld = QStringLiteral("firewall-cmd");
const QString kUfw = QStringLiteral("ufw");
const QString kNft = QStringLiteral("nft");
const char *const kRuleName = "morvane-share";

QString portText(int port)
{
    return QStringLiteral("%1/tcp").arg(port);
}

bool failed(const CommandResult &result, QString *error)
{
    const QString said = QString::fromLocal8Bit(result.output).trimmed();
    return fail(error, QStringLiteral("无法修改防火墙规则：%1")
                           .arg(said.isEmpty() ? QStringLiteral("防火墙程序没有响应") : said));
}

/// Runs on whichever of both takes single ports.
class PortList
{
public:
    explicit PortList(FirewallKind kind)
        : m_isUfw(kind == FirewallKind::Ufw)
    {}

    bool isOpen(int port) const
    {
        if (!m_isUfw)
            return runCommand(kFirewalld, {QStringLiteral("--query-port=") + portText(port)})
                .isSuccess();
        const QList<QByteArray> rules =
            runCommand(kUfw, {QStringLiteral("show"), QStringLiteral("added")}).output.split('\n');
        const QByteArray text = "ufw allow " + portText(port).toLatin1();
        for (const QByteArray &rule : rules)
            if (rule.trimmed() == text || rule.startsWith(text + ' '))
                return true;
        return false;
    }
    CommandResult open(int port) const
    {
        return m_isUfw ? runCommand(kUfw, {QStringLiteral("allow"), portText(port),
                                           QStringLiteral("comment"), QLatin1String(kRuleName)})
                       : runCommand(kFirewalld, {QStringLiteral("--add-port=") + portText(port)});
    }
    CommandResult close(int port) const
    {
        return m_isUfw
                   ? runCommand(kUfw,
                                {QStringLiteral("delete"), QStringLiteral("allow"), portText(port)})
                   : runCommand(kFirewalld, {QStringLiteral("--remove-port=") + portText(port)});
    }

private:
    bool m_isUfw;
};

bool setListedPorts(const QList<int> &ports, FirewallState *state, QString *error)
{
    const PortList list(state->kind);
    const QList<int> former = state->ports;
    for (const int port : former) {
        if (ports.contains(port))
            continue;
        const CommandResult result = list.close(port);
        if (!result.isSuccess())
            return failed(result, error);
        state->ports.removeAll(port);
    }
    for (const int port : ports) {
        // What the administrator has opened stays open afterwards.
        if (state->ports.contains(port) || list.isOpen(port))
            continue;
        const CommandResult result = list.open(port);
        if (!result.isSuccess())
            return failed(result, error);
        state->ports.append(port);
    }
    return true;
}

bool setNftPorts(const QList<int> &ports, FirewallState *state, QString *error)
{
    const CommandResult listed =
        runCommand(kNft, {QStringLiteral("-j"), QStringLiteral("-a"), QStringLiteral("list"),
                          QStringLiteral("ruleset")});
    if (!listed.isSuccess())
        return failed(listed, error);
    bool hasFirewall = false;
    const QByteArray commands = nftCommands(listed.output, ports, &hasFirewall);
    // One transaction: all of it or nothing.
    const CommandResult result =
        commands.isEmpty()
            ? listed
            : runCommand(kNft, {QStringLiteral("-j"), QStringLiteral("-f"), QStringLiteral("-")},
                         commands);
    if (!result.isSuccess())
        return failed(result, error);
    state->ports = hasFirewall ? ports : QList<int>();
    return true;
}

bool isChainOfInput(const QJsonObject &chain)
{
    return chain.value(QLatin1String("hook")).toString() == QLatin1String("input") &&
           chain.value(QLatin1String("type")).toString() == QLatin1String("filter") &&
           QStringList{QStringLiteral("ip"), QStringLiteral("ip6"), QStringLiteral("inet")}
               .contains(chain.value(QLatin1String("family")).toString());
}

QJsonObject asObject(const char *key, const QJsonValue &value)
{
    return {{QLatin1String(key), value}};
}

/// TCP to any of the ports.
QJsonArray acceptPorts(const QJsonArray &ports)
{
    const QJsonObject port{{QStringLiteral("protocol"), QStringLiteral("tcp")},
                           {QStringLiteral("field"), QStringLiteral("dport")}};
    const QJsonObject match{{QStringLiteral("op"), QStringLiteral("==")},
                            {QStringLiteral("left"), asObject("payload", port)},
                            {QStringLiteral("right"), asObject("set", ports)}};
    return {asObject("match", match), asObject("accept", QJsonValue())};
}

} // namespace

FirewallKind activeFirewall()
{
    if (runCommand(kFirewalld, {QStringLiteral("--state")}).isSuccess())
        return FirewallKind::Firewalld;
    if (runCommand(kUfw, {QStringLiteral("status")}).output.contains("Status: active"))
        return FirewallKind::Ufw;
    const CommandResult listed =
        runCommand(kNft, {QStringLiteral("-j"), QStringLiteral("list"), QStringLiteral("ruleset")});
    bool hasFirewall = false;
    if (listed.isSuccess())
        nftCommands(listed.output, {}, &hasFirewall);
    return hasFirewall ? FirewallKind::Nftables : FirewallKind::None;
}

bool setOpenPorts(const QList<int> &ports, FirewallState *state, QString *error)
{
    if (state->ports.isEmpty() && !ports.isEmpty())
        state->kind = activeFirewall();
    switch (state->kind) {
    case FirewallKind::None:
        return true;
    case FirewallKind::Firewalld:
    case FirewallKind::Ufw:
        return setListedPorts(ports, state, error);
    case FirewallKind::Nftables:
        return setNftPorts(ports, state, error);
    }
    return true;
}

// In JSON, too: the other language of nft has no quotes for names.
QByteArray nftCommands(const QByteArray &ruleset, const QList<int> &ports, bool *hasFirewall)
{
    QJsonArray numbers;
    for (const int port : ports)
        numbers.append(port);
    QJsonArray commands;
    *hasFirewall = false;
    const QJsonArray entries =
        QJsonDocument::fromJson(ruleset).object().value(QLatin1String("nftables")).toArray();
    for (const QJsonValue &entry : entries) {
        const QJsonObject rule = entry.toObject().value(QLatin1String("rule")).toObject();
        const QJsonObject chain = entry.toObject().value(QLatin1String("chain")).toObject();
        const QJsonObject &part = chain.isEmpty() ? rule : chain;
        QJsonObject ours{{QStringLiteral("family"), part.value(QLatin1String("family"))},
                         {QStringLiteral("table"), part.value(QLatin1String("table"))}};
        if (rule.value(QLatin1String("comment")).toString() == QLatin1String(kRuleName)) {
            ours.insert(QStringLiteral("chain"), rule.value(QLatin1String("chain")));
            ours.insert(QStringLiteral("handle"), rule.value(QLatin1String("handle")));
            commands.append(asObject("delete", asObject("rule", ours)));
        }
        if (!isChainOfInput(chain))
            continue;
        // A packet has to be let in by every chain: a table of one's own could open nothing.
        *hasFirewall = true;
        if (numbers.isEmpty())
            continue;
        ours.insert(QStringLiteral("chain"), chain.value(QLatin1String("name")));
        ours.insert(QStringLiteral("comment"), QLatin1String(kRuleName));
        ours.insert(QStringLiteral("expr"), acceptPorts(numbers));
        commands.append(asObject("insert", asObject("rule", ours)));
    }
    return commands.isEmpty()
               ? QByteArray()
               : QJsonDocument(asObject("nftables", commands)).toJson(QJsonDocument::Compact);
}

} // namespace services::vaultd
