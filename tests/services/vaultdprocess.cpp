#include "vaultdprocess.h"

#include <QFile>
#include <QJsonDocument>
#include <QTest>

#include <algorithm>
#include <csignal>

using testsupport::ServiceClient;

namespace {

constexpr int kPatienceMs = 20000;

void launch(QProcess *process, const QStringList &arguments, const VaultdProcess::Faults &faults)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (auto it = faults.cbegin(); it != faults.cend(); ++it)
        environment.insert(it.key(), it.value());
    process->setProcessEnvironment(environment);
    process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process->start(faults.isEmpty() ? QStringLiteral(MORVANE_VAULTD)
                                    : QStringLiteral(MORVANE_VAULTD_FAULTY),
                   arguments);
}

} // namespace

VaultdProcess::VaultdProcess()
{
    tree.dir("home");
}

QStringList VaultdProcess::arguments() const
{
    return QStringList{QStringLiteral("--vault-parent"),  tree.path("home"),
                       QStringLiteral("--state"),         tree.path("state"),
                       QStringLiteral("--socket"),        tree.path("s"),
                       QStringLiteral("--password-file"), tree.path("passwords")} +
           extraArguments;
}

bool VaultdProcess::start(const Faults &faults)
{
    stop();
    m_process = std::make_unique<QProcess>();
    launch(m_process.get(), arguments(), faults);
    const bool isUp = QTest::qWaitFor(
        [this] {
            m_client = std::make_unique<ServiceClient>(tree.path("s"));
            return m_process->state() == QProcess::NotRunning || m_client->connectNow();
        },
        kPatienceMs);
    return isUp && m_client->isConnected() && ask("getStatus").success;
}

bool VaultdProcess::setPassword(const char *user, const QByteArray &password)
{
    QProcess process;
    process.start(QStringLiteral(MORVANE_VAULTD),
                  {QStringLiteral("--password-file"), tree.path("passwords"),
                   QStringLiteral("--set-password"), QString::fromUtf8(user)});
    process.write(password);
    process.closeWriteChannel();
    return process.waitForFinished(kPatienceMs) && process.exitCode() == 0;
}

bool VaultdProcess::enter(const char *user, const char *password)
{
    const Answer answer =
        ask("authenticate", {{QStringLiteral("username"), QString::fromUtf8(user)},
                             {QStringLiteral("password"), QString::fromUtf8(password)}});
    // A refusal is a plain answer with a message, an admission has none.
    const bool isIn = answer.data.value(QLatin1String("success")).toBool();
    const QString message = answer.data.value(QLatin1String("message")).toString();
    return answer.success && isIn == message.isEmpty() && isIn;
}

bool VaultdProcess::authenticate()
{
    return setPassword("tester", "right") && enter("tester", "right");
}

void VaultdProcess::stop()
{
    m_client.reset();
    if (m_process && m_process->state() != QProcess::NotRunning) {
        ::kill(pid_t(m_process->processId()), SIGKILL);
        m_process->waitForFinished(kPatienceMs);
    }
    m_process.reset();
}

QStringList VaultdProcess::protect(const QStringList &paths, const Faults &faults)
{
    QProcess process;
    launch(&process, arguments() + QStringList{QStringLiteral("--protect")} + paths, faults);
    if (!process.waitForFinished(kPatienceMs) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0)
        return QStringList();
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed().split(QLatin1Char('\n'));
}

VaultdProcess::Answer VaultdProcess::ask(const char *method, const QJsonObject &params)
{
    return m_client->request(QStringLiteral("vault.") + QLatin1String(method), params);
}

QJsonArray VaultdProcess::list(const char *params)
{
    return ask("listFiles", json(params)).data.value(QLatin1String("files")).toArray();
}

bool VaultdProcess::waitForEvent(const char *name, const QJsonObject &data)
{
    const auto isIt = [name, &data](const ServiceClient::Event &event) {
        return event.name == QLatin1String(name) && event.data == data;
    };
    return QTest::qWaitFor(
        [&] { return std::any_of(m_client->events().begin(), m_client->events().end(), isIt); },
        kPatienceMs);
}

int VaultdProcess::eventCount(const char *name) const
{
    return int(std::count_if(
        m_client->events().begin(), m_client->events().end(),
        [name](const ServiceClient::Event &event) { return event.name == QLatin1String(name); }));
}

QJsonObject json(const QByteArray &utf8)
{
    return QJsonDocument::fromJson(utf8).object();
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
