#include "support/shareharness.h"

#include <QDir>
#include <QThread>
#include <QtTest>

#include <atomic>
#include <cstdio>
#include <fcntl.h>
#include <linux/fs.h>
#include <memory>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

/// A program of this machine that exchanges what is shared for links while visitors are served.
namespace {

#if defined(__SANITIZE_THREAD__)
constexpr int kRequests = 200;
#else
constexpr int kRequests = 1000;
#endif
constexpr int kClients = 2;
constexpr int kPatienceMs = 10000;

const QByteArray kSecret("secret");

/// Exchanges two names as fast as it can until its end.
class Swapper
{
public:
    Swapper(const QString &first, const QString &second)
        : m_first(QFile::encodeName(first))
        , m_second(QFile::encodeName(second))
        , m_thread([this] { run(); })
    {}
    ~Swapper()
    {
        m_stop = true;
        m_thread.join();
    }
    Swapper(const Swapper &) = delete;
    Swapper &operator=(const Swapper &) = delete;

private:
    void run()
    {
        while (!m_stop) {
            if (::syscall(SYS_renameat2, AT_FDCWD, m_first.constData(), AT_FDCWD,
                          m_second.constData(), RENAME_EXCHANGE) != 0)
                qFatal("names cannot be exchanged here");
            std::this_thread::yield();
        }
    }

    QByteArray m_first;
    QByteArray m_second;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

/// Blocking, for a thread of its own: the server's listener needs that of the test.
QByteArray answerTo(const QByteArray &request, int port)
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress(QHostAddress::LocalHost), static_cast<quint16>(port));
    if (!socket.waitForConnected(kPatienceMs))
        return QByteArray();
    socket.write(request);
    QByteArray answer;
    while (socket.state() == QAbstractSocket::ConnectedState || socket.bytesAvailable() > 0) {
        answer += socket.readAll();
        if (!socket.waitForReadyRead(kPatienceMs))
            break;
    }
    return answer + socket.readAll();
}

} // namespace

class TestShareSwap : public QObject
{
    Q_OBJECT

private slots:
    void neverLeadsOut_data();
    void neverLeadsOut();
};

void TestShareSwap::neverLeadsOut_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QByteArray>("expected"); // in the answers that are not refused
    QTest::addColumn<QByteArray>("forbidden");

    const auto get = [](const char *target) {
        return QByteArray("GET ") + target + " HTTP/1.1\r\n\r\n";
    };
    QTest::newRow("file in a directory")
        << get("/s/up/d/sub/a.txt") << QByteArray("inside") << kSecret;
    QTest::newRow("file") << get("/s/up/d/file") << QByteArray("inside") << kSecret;
    QTest::newRow("page") << get("/s/up/d/sub/") << QByteArray("a.txt") << kSecret;
    QTest::newRow("check") << get("/s/up/api/upload-check/d/sub?name=new")
                           << QByteArray("\"exists\":false") << QByteArray("\"exists\":true");
    QTest::newRow("upload") << QByteArray("PUT /s/up/upload/d/sub HTTP/1.1\r\nX-File-Name: up\r\n"
                                          "X-Overwrite: 1\r\nContent-Length: 6\r\n\r\nupload")
                            << QByteArray("\"ok\":true") << kSecret;
}

void TestShareSwap::neverLeadsOut()
{
    QFETCH(QByteArray, request);
    QFETCH(QByteArray, expected);
    QFETCH(QByteArray, forbidden);
    ShareHarness share;
    TempTree &tree = share.tree();
    tree.file("d/sub/a.txt", "inside");
    tree.file("d/file", "inside");
    tree.file("outside/a.txt", kSecret);
    tree.file("outside/secret-name");
    tree.file("outside/new", kSecret);
    tree.link("d/sub-link", tree.path("outside"));
    tree.link("d/file-link", tree.path("outside/a.txt"));
    ShareSession session = ShareHarness::session(QStringLiteral("up"));
    session.accessMode = QStringLiteral("upload");
    share.add(session);
    share.addRoot(session.id, QStringLiteral("d"), tree.path("d"));

    std::atomic<int> left{kRequests};
    std::atomic<int> served{0};
    std::atomic<int> leaked{0};
    std::atomic<int> running{kClients};
    std::vector<std::unique_ptr<QThread>> clients;
    {
        const Swapper directories(tree.path("d/sub"), tree.path("d/sub-link"));
        const Swapper files(tree.path("d/file"), tree.path("d/file-link"));
        for (int i = 0; i < kClients; ++i) {
            clients.emplace_back(QThread::create([&, port = share.port()] {
                while (left-- > 0) {
                    const QByteArray answer = answerTo(request, port);
                    served += answer.contains(expected) ? 1 : 0;
                    leaked += answer.contains(forbidden) ? 1 : 0;
                }
                --running;
            }));
            clients.back()->start();
        }
        QTRY_COMPARE_WITH_TIMEOUT(running.load(), 0, 120000);
        for (const auto &client : clients)
            client->wait();
    }
    QCOMPARE(leaked.load(), 0);
    QVERIFY2(served > 0, "everything was refused");
    QTRY_COMPARE(share.server().activeConnectionCount(), 0);
    QCOMPARE(QDir(tree.path("outside"))
                 .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             (QStringList{QStringLiteral("a.txt"), QStringLiteral("new"),
                          QStringLiteral("secret-name")}));
}

QTEST_GUILESS_MAIN(TestShareSwap)
#include "tst_shareswap.moc"
