#include "support/freeport.h"
#include "support/shareharness.h"

#include <QSqlDatabase>
#include <QThreadPool>
#include <QTimer>
#include <QtTest>

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

#if defined(__SANITIZE_THREAD__)
constexpr int kClients = 50;
#else
constexpr int kClients = 200;
#endif

namespace {

constexpr int kHeaderMs = 3000;
constexpr int kDripMs = 100;
constexpr int kFileSize = 1 << 20;
constexpr int kUploadSize = 300000;
constexpr int kUploadNames = 5;
constexpr int kPoolExpiryMs = 500;
constexpr int kPatienceMs = 20000;

enum State { Idle, Dripping, Downloading, Stalled, Uploading, Aborted, StateCount };

QFileInfoList entriesOf(const char *directory)
{
    return QDir(QLatin1String(directory))
        .entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

/// Without those of the database: while one connection of a process holds a lock, SQLite keeps the
/// descriptors of closed ones for the next to come. Connections that are open show by their names.
int openDescriptors()
{
    const QFileInfoList all = entriesOf("/proc/self/fd");
    return int(std::count_if(all.begin(), all.end(), [](const QFileInfo &entry) {
        return !entry.symLinkTarget().endsWith(QLatin1String("/share.db"));
    }));
}

/// Threads of pools, which the toolkit gives a name.
int pooledThreads()
{
    int count = 0;
    for (const QFileInfo &thread : entriesOf("/proc/self/task")) {
        QFile name(thread.filePath() + QStringLiteral("/comm"));
        count +=
            name.open(QIODevice::ReadOnly) && name.readAll().startsWith("Thread (pool") ? 1 : 0;
    }
    return count;
}

/// What a share may use for a while but has to give back.
struct Held
{
    int threads = 0;
    int descriptors = 0;
    QStringList connections;

    static Held now()
    {
        Held held;
        held.threads = entriesOf("/proc/self/task").size();
        held.descriptors = openDescriptors();
        held.connections = QSqlDatabase::connectionNames();
        held.connections.sort();
        return held;
    }
    bool operator==(const Held &other) const
    {
        return threads == other.threads && descriptors == other.descriptors &&
               connections == other.connections;
    }
    QByteArray text() const
    {
        return QStringLiteral("%1 threads, %2 descriptors, connections %3")
            .arg(threads)
            .arg(descriptors)
            .arg(connections.join(QLatin1Char(' ')))
            .toUtf8();
    }
};

/// Clients in every state at once. Which state a client is in follows from its number.
class Crowd
{
public:
    Crowd(int port, const QByteArray &session, const QByteArray &root)
        : m_port(port)
        , m_prefix("/s/" + session + '/')
        , m_root(root)
    {
        QObject::connect(&m_drip, &QTimer::timeout, [this] { each(Dripping, drip); });
    }

    void come(int count)
    {
        for (int i = 0; i < count; ++i) {
            const State state = State(i % StateCount);
            m_clients[state].push_back(std::make_unique<ShareClient>(m_port));
            start(m_clients[state].back().get(), state);
            QCoreApplication::processEvents(); // or the listener's queue is full
        }
        m_drip.start(kDripMs);
    }
    int size(State state) const { return int(m_clients[state].size()); }
    template <typename Function>
    void each(State state, Function function)
    {
        for (const auto &client : m_clients[state])
            function(client.get());
    }
    QByteArray file(const char *name) const { return m_prefix + m_root + '/' + name; }
    static QByteArray uploadBody(int number) { return {kUploadSize, char('a' + number % 26)}; }

private:
    static void drip(ShareClient *client) { client->send("x"); }

    void start(ShareClient *client, State state)
    {
        const int number = size(state) - 1;
        switch (state) {
        case Dripping:
            client->send("GET ");
            break;
        case Downloading:
            client->send("GET " + file("file") + " HTTP/1.1\r\n\r\n");
            break;
        case Stalled:
            client->socket().setReadBufferSize(1000);
            client->send("GET " + file("huge") + " HTTP/1.1\r\n\r\n");
            break;
        case Uploading:
            client->send(putHead("up" + QByteArray::number(number % kUploadNames)) + "\r\n" +
                         uploadBody(number).left(kUploadSize / 2));
            break;
        case Aborted:
            if (number % 2 == 0)
                client->send("GET " + file("huge") + " HTTP/1.1\r\n\r\n");
            else
                client->send(putHead("broken") + "Expect: 100-continue\r\n\r\n");
            client->waitForBytes(1); // so that it is in the hands of a handler
            client->socket().abort();
            break;
        default:
            break;
        }
    }
    QByteArray putHead(const QByteArray &name) const
    {
        return "PUT " + m_prefix + "upload/" + m_root + " HTTP/1.1\r\nX-Overwrite: 1\r\n" +
               "X-File-Name: " + name + "\r\nContent-Length: " + QByteArray::number(kUploadSize) +
               "\r\n";
    }

    int m_port;
    QByteArray m_prefix;
    QByteArray m_root;
    QTimer m_drip;
    std::array<std::vector<std::unique_ptr<ShareClient>>, StateCount> m_clients;
};

} // namespace

class TestShareStress : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void givesAllBack_data();
    void givesAllBack();

private:
    FileShareServerContext *serve();
    void finishAll(Crowd *crowd, FileShareServerContext *context);

    TempTree m_tree;
    QByteArray m_content;
    std::unique_ptr<FileShareController> m_controller;
    QString m_id;
};

void TestShareStress::initTestCase()
{
    QThreadPool::globalInstance()->setExpiryTimeout(kPoolExpiryMs);
    for (int i = 0; i < kFileSize / 4; ++i) {
        const quint32 word = quint32(i) * 2654435761u;
        m_content.append(reinterpret_cast<const char *>(&word), sizeof word);
    }
    m_tree.file("d/file", m_content);
    QFile huge(m_tree.path("d/huge"));
    QVERIFY(huge.open(QIODevice::WriteOnly) && huge.resize(64 << 20));

    m_controller.reset(
        new FileShareController(nullptr, m_tree.path("share.db"), m_tree.path("no-such-service")));
    QString error;
    QVERIFY2(m_controller->setSharePort(freePort(), &error), qPrintable(error));
    // What the libraries set up once and keep is no leak.
    QVERIFY(serve());
    ShareClient client(m_controller->sharePort());
    client.send("GET /s/" + m_id.toLatin1() + "/ HTTP/1.1\r\n\r\n");
    QCOMPARE(client.reply().status, 200);
    client.waitForClose(kPatienceMs);
    m_controller->stopAllShares();
    QTRY_COMPARE(QThreadPool::globalInstance()->activeThreadCount(), 0);
    // Idle threads of the pool end after a while; until then they would count as held.
    QTRY_COMPARE_WITH_TIMEOUT(pooledThreads(), 0, kPatienceMs);
}

/// Starts a share that lets everyone in. Its time limit for a header is shortened.
FileShareServerContext *TestShareStress::serve()
{
    m_id = m_controller->createShare({m_tree.path("d")}, QString(), 0, 10 * kClients,
                                     QStringLiteral("upload"));
    auto *server = m_controller->findChild<FileShareServer *>();
    if (m_id.isEmpty() || !server)
        return nullptr;
    server->context()->limits.headerMs = kHeaderMs;
    return server->context().data();
}

void TestShareStress::givesAllBack_data()
{
    QTest::addColumn<bool>("serverStops");
    QTest::newRow("clients come to their end") << false;
    QTest::newRow("server stops in the middle") << true;
}

void TestShareStress::givesAllBack()
{
    QFETCH(bool, serverStops);
    const Held before = Held::now();
    FileShareServerContext *context = serve();
    QVERIFY(context);
    {
        Crowd crowd(m_controller->sharePort(), m_id.toLatin1(),
                    m_controller->sessionRoots(m_id).first().id.toLatin1());
        crowd.come(kClients);
        // All that can wait does so, without a thread of the pool.
        QTRY_VERIFY_WITH_TIMEOUT(context->waiters.loadAcquire() >=
                                     crowd.size(Stalled) + crowd.size(Uploading),
                                 kPatienceMs);
        QElapsedTimer clock;
        clock.start();
        ShareClient guest(m_controller->sharePort());
        guest.send("GET /s/" + m_id.toLatin1() + "/ HTTP/1.1\r\n\r\n");
        QCOMPARE(guest.reply().status, 200);
        QVERIFY2(clock.elapsed() < 5000, QByteArray::number(clock.elapsed()).constData());

        if (serverStops) {
            clock.restart();
            m_controller->stopAllShares();
            QVERIFY2(clock.elapsed() < 3000, QByteArray::number(clock.elapsed()).constData());
        } else {
            finishAll(&crowd, context);
        }
        // One line for each that reached a handler, whatever became of it.
        const int brokenDownloads = (crowd.size(Aborted) + 1) / 2;
        QTRY_COMPARE_WITH_TIMEOUT(m_controller->accessLogCount(m_id, QStringLiteral("download")),
                                  crowd.size(Downloading) + crowd.size(Stalled) + brokenDownloads,
                                  kPatienceMs);
        const ShareSession session = m_controller->sessionInfo(m_id);
        QCOMPARE(session.totalDownloads,
                 m_controller->accessLogCount(m_id, QStringLiteral("download")));
        QCOMPARE(session.totalUploads, serverStops ? 0 : crowd.size(Uploading));
        QTRY_COMPARE_WITH_TIMEOUT(
            m_controller->accessLogCount(m_id, QStringLiteral("upload_fail")),
            (serverStops ? crowd.size(Uploading) : 0) + crowd.size(Aborted) / 2, kPatienceMs);
        m_controller->stopAllShares();
    }
    // Of a broken upload nothing stays.
    QStringList left = QDir(m_tree.path("d")).entryList(QDir::Files | QDir::Hidden);
    for (int i = 0; i < kUploadNames; ++i)
        left.removeOne(QStringLiteral("up%1").arg(i));
    left.sort();
    QCOMPARE(left, (QStringList{QStringLiteral("file"), QStringLiteral("huge")}));
    QTRY_VERIFY2_WITH_TIMEOUT(Held::now() == before,
                              (Held::now().text() + " instead of " + before.text()).constData(),
                              kPatienceMs);
}

/// Everyone comes to the end that its state leads to.
void TestShareStress::finishAll(Crowd *crowd, FileShareServerContext *context)
{
    int number = 0;
    crowd->each(Uploading, [&](ShareClient *client) {
        client->send(Crowd::uploadBody(number++).mid(kUploadSize / 2));
    });
    crowd->each(Uploading, [](ShareClient *client) {
        const int status = client->reply(kPatienceMs).status;
        QVERIFY2(status == 200 || status == 201, QByteArray::number(status).constData());
    });
    for (int i = 0; i < kUploadNames; ++i) {
        QFile file(m_tree.path(QStringLiteral("d/up%1").arg(i)));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray got = file.readAll();
        QCOMPARE(got.size(), kUploadSize);
        QCOMPARE(got.count(got.at(0)), kUploadSize); // one of them, whole
    }
    crowd->each(Downloading, [this](ShareClient *client) {
        QVERIFY(client->reply(kPatienceMs).body == m_content);
    });
    for (const State state : {Idle, Dripping})
        crowd->each(state, [](ShareClient *client) {
            QVERIFY(client->waitForClose(kHeaderMs + kPatienceMs));
            QCOMPARE(client->reply(0).status, 0);
        });
    crowd->each(Stalled, [](ShareClient *client) { client->socket().abort(); });
    QTRY_VERIFY_WITH_TIMEOUT(context->isIdle(), kPatienceMs);
    QCOMPARE(context->waiters.loadAcquire(), 0);
    QMutexLocker lock(&context->sessionCountersMutex);
    QCOMPARE(context->sessionCounters.value(m_id)->loadAcquire(), 0);
}

QTEST_GUILESS_MAIN(TestShareStress)
#include "tst_sharestress.moc"
