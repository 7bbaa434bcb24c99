#include "privatesystem.h"

#include "support/serviceclient.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QTest>

#include <cstdio>
#include <grp.h>
#include <unistd.h>

namespace private_system {

namespace {

/// The other end: asks as another user, over one connection, what stands in the standard input.
int runClient(uid_t uid)
{
    if (::setgroups(0, nullptr) != 0 || ::setgid(uid) != 0 || ::setuid(uid) != 0)
        return 1;
    QFile input;
    if (!input.open(stdin, QIODevice::ReadOnly))
        return 1;
    testsupport::ServiceClient client(kSocket);
    if (!QTest::qWaitFor([&client] { return client.connectNow(); }, kPatienceMs))
        return 1;
    QJsonArray answers;
    const QJsonArray requests = QJsonDocument::fromJson(input.readAll()).array();
    for (const QJsonValue &value : requests) {
        const QJsonObject request = value.toObject();
        const auto answer = client.request(QStringLiteral("vault.") +
                                               request.value(QLatin1String("method")).toString(),
                                           request.value(QLatin1String("params")).toObject());
        QJsonObject data = answer.data;
        if (!answer.success)
            data = {{QStringLiteral("code"), answer.errorCode},
                    {QStringLiteral("message"), answer.errorMessage}};
        answers.append(data);
    }
    std::fputs(QJsonDocument(answers).toJson(QJsonDocument::Compact).constData(), stdout);
    return 0;
}

/// A Qt program that deletes as another user.
int runRemover(uid_t uid, const QString &path)
{
    return ::setgroups(0, nullptr) == 0 && ::setgid(uid) == 0 && ::setuid(uid) == 0 &&
                   QFile::remove(path)
               ? 0
               : 1;
}

} // namespace

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString &path, const QByteArray &bytes, mode_t mode)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush() &&
           ::fchmod(file.handle(), mode) == 0;
}

bool run(const QString &command, uid_t uid)
{
    return QProcess::execute(
               QStringLiteral("/usr/bin/setpriv"),
               {QStringLiteral("--reuid=%1").arg(uid), QStringLiteral("--regid=%1").arg(uid),
                QStringLiteral("--clear-groups"), QStringLiteral("--"), QStringLiteral("env"),
                QStringLiteral("-u"), QStringLiteral("XDG_DATA_HOME"),
                uid == kAlice ? QStringLiteral("HOME=/home/alice") : QStringLiteral("USER=user"),
                QStringLiteral("/bin/sh"), QStringLiteral("-c"), command}) == 0;
}

QByteArray outputOf(const QString &command)
{
    QProcess process;
    process.start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), command});
    process.waitForFinished(kPatienceMs);
    return process.readAllStandardOutput();
}

QJsonObject ask(const char *method, const QJsonObject &params)
{
    return {{QStringLiteral("method"), QLatin1String(method)}, {QStringLiteral("params"), params}};
}

QJsonObject login(const char *user, const char *password)
{
    return ask("authenticate", {{QStringLiteral("username"), QLatin1String(user)},
                                {QStringLiteral("password"), QLatin1String(password)}});
}

QVector<QJsonObject> askAs(uid_t uid, const QJsonArray &requests)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QCoreApplication::applicationFilePath(),
                  {QStringLiteral("--client"), QString::number(uid)});
    process.write(QJsonDocument(requests).toJson());
    process.closeWriteChannel();
    process.waitForFinished(2 * kPatienceMs);
    QVector<QJsonObject> answers;
    const QJsonArray array = QJsonDocument::fromJson(process.readAllStandardOutput()).array();
    for (const QJsonValue &answer : array)
        answers.append(answer.toObject());
    answers.resize(requests.size());
    return answers;
}

bool isTrue(const QJsonObject &answer, const char *key)
{
    return answer.value(QLatin1String(key)).toBool();
}

void Test::initTestCase()
{
    if (qEnvironmentVariableIsEmpty("MORVANE_PRIVATE_SYSTEM"))
        QSKIP("needs root, for a private /etc, /run and /home");
    // Programs that stand in for those of the system.
    QVERIFY(QDir().mkpath(QStringLiteral("/run/bin")) && QDir().mkpath(QStringLiteral("/run/lib")));
    qputenv("PATH", "/run/bin:" + qgetenv("PATH"));
    QVERIFY(QFile::copy(QStringLiteral(VAULTD_STATIC_DELETER), QStringLiteral("/run/lib/deleter")));
    QVERIFY(run(QStringLiteral("install -m 4755 \"$(command -v rm)\" /run/lib/setuid-rm")));
}

void Test::init()
{
    QFile::remove(kLibrary);
    QVERIFY(QFile::copy(QStringLiteral(MORVANE_GUARD), kLibrary));
}

void Test::cleanup()
{
    if (m_service) {
        m_service->terminate();
        QVERIFY(m_service->state() == QProcess::NotRunning ||
                m_service->waitForFinished(kPatienceMs));
        m_service.reset();
    }
    QFile::remove(kList);
    QVERIFY(
        run(QStringLiteral("rm -rf /run/state /run/bin/*; chattr -R -a -i /home/*/.morvane_vault "
                           "2>/dev/null; rm -rf /home/*/* /home/*/.morvane*")));
}

bool Test::start()
{
    m_service = std::make_unique<QProcess>();
    m_service->setProcessChannelMode(QProcess::ForwardedChannels);
    m_service->start(QStringLiteral(MORVANE_VAULTD),
                     {QStringLiteral("--system"), QStringLiteral("--state"), kState,
                      QStringLiteral("--hook-library"), kLibrary});
    return QTest::qWaitFor([] { return QFile::exists(kSocket); }, kPatienceMs);
}

bool Test::command(const QString &option)
{
    return QProcess::execute(QStringLiteral(MORVANE_VAULTD),
                             {option, QStringLiteral("--state"), kState,
                              QStringLiteral("--hook-library"), kLibrary}) == 0;
}

int execute(int argc, char *argv[], QObject *test)
{
    // The system's files are changed only where a private copy of them is.
    if (qEnvironmentVariableIsEmpty("MORVANE_PRIVATE_SYSTEM") && ::geteuid() == 0) {
        QVector<char *> arguments{const_cast<char *>(MORVANE_SYSTEM_SCRIPT)};
        for (int i = 0; i < argc; ++i)
            arguments.append(argv[i]);
        arguments.append(nullptr);
        ::execv(MORVANE_SYSTEM_SCRIPT, arguments.data());
    }
    QCoreApplication app(argc, argv);
    if (argc == 3 && qstrcmp(argv[1], "--client") == 0)
        return runClient(uid_t(std::atoi(argv[2])));
    if (argc == 4 && qstrcmp(argv[1], "--remove") == 0)
        return runRemover(uid_t(std::atoi(argv[2])), QFile::decodeName(argv[3]));
    return QTest::qExec(test, argc, argv);
}

} // namespace private_system
