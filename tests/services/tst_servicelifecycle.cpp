#include "support/serviceclient.h"
#include "support/temptree.h"

#include <QFile>
#include <QProcess>
#include <QTest>
#include <QVector>

#include <csignal>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using testsupport::ServiceClient;

namespace {

constexpr int kPatienceMs = 20000;

/// A local socket at a path, as a service manager makes it.
class ManagerSocket
{
public:
    ManagerSocket(const QString &path, int type)
        : m_descriptor(::socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, QFile::encodeName(path).constData(), sizeof address.sun_path);
        m_isReady = ::bind(m_descriptor, reinterpret_cast<const sockaddr *>(&address),
                           sizeof address) == 0 &&
                    (type != SOCK_STREAM || ::listen(m_descriptor, 8) == 0);
    }
    ~ManagerSocket() { ::close(m_descriptor); }
    ManagerSocket(const ManagerSocket &) = delete;
    ManagerSocket &operator=(const ManagerSocket &) = delete;

    bool isReady() const { return m_isReady; }
    int descriptor() const { return m_descriptor; }
    /// The next notification; empty if there is none.
    QByteArray receive()
    {
        char buffer[256];
        const ssize_t length = ::recv(m_descriptor, buffer, sizeof buffer, 0);
        return length > 0 ? QByteArray(buffer, int(length)) : QByteArray();
    }

private:
    int m_descriptor;
    bool m_isReady = false;
};

/// Passes a listening socket on as descriptor 3.
class ActivatedProcess : public QProcess
{
public:
    explicit ActivatedProcess(int socket)
        : m_socket(socket)
    {}

protected:
    void setupChildProcess() override { ::dup2(m_socket, 3); }

private:
    int m_socket;
};

} // namespace

/// Start and end of the services as a service manager sees them.
class TestServiceLifecycle : public QObject
{
    Q_OBJECT

private slots:
    void endsCleanlyOnSignals_data();
    void endsCleanlyOnSignals();
    void usesTheSocketOfTheManager();
};

void TestServiceLifecycle::endsCleanlyOnSignals_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<int>("signal");
    QTest::newRow("vault, SIGTERM") << QStringLiteral(MORVANE_VAULTD) << SIGTERM;
    QTest::newRow("vault, SIGINT") << QStringLiteral(MORVANE_VAULTD) << SIGINT;
    QTest::newRow("recovery, SIGTERM") << QStringLiteral(MORVANE_RECOVERYD) << SIGTERM;
    QTest::newRow("recovery, SIGINT") << QStringLiteral(MORVANE_RECOVERYD) << SIGINT;
}

void TestServiceLifecycle::endsCleanlyOnSignals()
{
    QFETCH(QString, program);
    QFETCH(int, signal);

    TempTree tree;
    const QString socket = tree.path("s");
    QStringList arguments = {QStringLiteral("--socket"), socket, QStringLiteral("--state"),
                             tree.path("state")};
    if (program == QLatin1String(MORVANE_VAULTD))
        arguments += {QStringLiteral("--vault-parent"), tree.dir("home")};
    else
        arguments += {QStringLiteral("--image"), tree.file("image", QByteArray(1 << 20, '\0'))};
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(program, arguments);
    ServiceClient client(socket);
    QVERIFY(QTest::qWaitFor([&] { return client.connectNow(); }, kPatienceMs));
    QVERIFY(QFile::exists(socket));

    QCOMPARE(::kill(pid_t(process.processId()), signal), 0);
    QVERIFY(process.waitForFinished(kPatienceMs));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);
    QVERIFY(!QFile::exists(socket));
}

void TestServiceLifecycle::usesTheSocketOfTheManager()
{
    TempTree tree;
    const QString socket = tree.path("activated");
    ManagerSocket listening(socket, SOCK_STREAM);
    ManagerSocket notifications(tree.path("notify"), SOCK_DGRAM);
    QVERIFY(listening.isReady() && notifications.isReady());
    ServiceClient client(socket);
    QVERIFY(client.connectNow()); // It waits for the service, which is not there yet.

    ActivatedProcess process(listening.descriptor());
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("NOTIFY_SOCKET"), tree.path("notify"));
    environment.insert(QStringLiteral("WATCHDOG_USEC"), QStringLiteral("20000"));
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    // The shell knows the id that the service will have.
    process.start(QStringLiteral("/bin/sh"),
                  {QStringLiteral("-c"),
                   QStringLiteral("LISTEN_PID=$$ LISTEN_FDS=1 exec \"$0\" \"$@\""),
                   QStringLiteral(MORVANE_VAULTD), QStringLiteral("--socket"), tree.path("unused"),
                   QStringLiteral("--state"), tree.path("state"), QStringLiteral("--vault-parent"),
                   tree.dir("home")});
    QVERIFY(client.request(QStringLiteral("vault.getStatus")).success);
    QVERIFY(!QFile::exists(tree.path("unused")));

    QVector<QByteArray> received;
    QVERIFY(QTest::qWaitFor(
        [&] {
            for (QByteArray next; !(next = notifications.receive()).isEmpty();)
                received.append(next);
            return received.size() >= 3;
        },
        kPatienceMs));
    QCOMPARE(received.mid(0, 3),
             (QVector<QByteArray>{QByteArrayLiteral("READY=1"), QByteArrayLiteral("WATCHDOG=1"),
                                  QByteArrayLiteral("WATCHDOG=1")}));

    QCOMPARE(::kill(pid_t(process.processId()), SIGTERM), 0);
    QVERIFY(process.waitForFinished(kPatienceMs));
    QCOMPARE(process.exitCode(), 0);
    QVERIFY(QFile::exists(socket)); // The manager goes on listening there.
}

QTEST_GUILESS_MAIN(TestServiceLifecycle)
#include "tst_servicelifecycle.moc"
