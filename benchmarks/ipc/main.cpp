// Events of the recovery service through IpcClient, against the mere parsing of the same bodies;
// and the cost of a frame as more of them are waiting. The service runs on a thread of its own and
// has all frames in its hands before the clock starts, so that its own work is not measured.

#include "common/servicehost.h"
#include "core/ipc/ipcclient.h"
#include "search/report.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSemaphore>
#include <QThread>
#include <QTimer>

#include <functional>

using core::ipc::IpcClient;

namespace {

constexpr int kRounds = 7;
constexpr int kTimeoutMs = 60000;
constexpr double kFailed = -1.0;

/// A service on a thread of its own, which sends what it is told.
class ServiceThread : public QThread
{
public:
    explicit ServiceThread(const QString &name)
        : m_name(name)
    {
        start();
        m_ready.acquire();
    }
    ~ServiceThread() override
    {
        quit();
        wait();
    }

    bool isListening() const { return m_listening; }

    /// Returns once the service has handed all of them to its socket.
    void broadcast(const QString &event, const QVector<QJsonObject> &payloads)
    {
        QMetaObject::invokeMethod(
            m_host,
            [this, event, payloads] {
                for (const QJsonObject &data : payloads)
                    m_host->broadcast(event, data);
            },
            Qt::BlockingQueuedConnection);
    }

protected:
    void run() override
    {
        services::ServiceHost host;
        m_host = &host;
        m_listening = host.listen(m_name);
        m_ready.release();
        exec();
    }

private:
    QString m_name;
    services::ServiceHost *m_host = nullptr;
    QSemaphore m_ready;
    bool m_listening = false;
};

QJsonObject progress(int number)
{
    return {{QStringLiteral("sessionId"), QStringLiteral("6f1b6c1e-0d5e-4a53-9f0a-2f9d4f0a7c11")},
            {QStringLiteral("progress"), number % 1000 / 10.0},
            {QStringLiteral("filesFound"), number},
            {QStringLiteral("elapsed"), 120 * number},
            {QStringLiteral("phaseText"), QStringLiteral("正在扫描未分配空间")}};
}

/// One batch of found files, as a scan sends them.
QJsonObject foundFiles(int batch, int count)
{
    QJsonArray files;
    for (int i = 0; i < count; ++i) {
        const int number = batch * count + i;
        files.append(QJsonObject{
            {QStringLiteral("fileId"), QStringLiteral("inode-%1").arg(number)},
            {QStringLiteral("name"), QStringLiteral("照片_%1.jpg").arg(number)},
            {QStringLiteral("path"), QStringLiteral("/home/user/图片/%1").arg(number % 97)},
            {QStringLiteral("size"), 4096 * number},
            {QStringLiteral("modified"), QStringLiteral("2024-03-01 12:00:00")},
            {QStringLiteral("confidence"), number % 101}});
    }
    return {{QStringLiteral("sessionId"), QStringLiteral("6f1b6c1e-0d5e-4a53-9f0a-2f9d4f0a7c11")},
            {QStringLiteral("files"), files}};
}

/// Milliseconds until the client has delivered all of them; kFailed if it does not.
double throughClient(const QString &event, const QVector<QJsonObject> &payloads)
{
    const QString name =
        QStringLiteral("morvane-bench-ipc-%1").arg(QCoreApplication::applicationPid());
    ServiceThread service(name);
    IpcClient client(name);
    if (!service.isListening() || !client.ensureConnected(2000))
        return kFailed;
    int delivered = 0;
    QEventLoop loop;
    QObject::connect(&client, &IpcClient::eventReceived, &loop,
                     [&](const QString &, const QJsonObject &) {
                         if (++delivered == payloads.size())
                             loop.quit();
                     });
    // The service may not have accepted yet; one event shows that it has.
    while (delivered == 0) {
        service.broadcast(event, {payloads.first()});
        QTimer::singleShot(20, &loop, &QEventLoop::quit);
        loop.exec();
    }
    QTimer::singleShot(20, &loop, &QEventLoop::quit); // Whatever is left of that.
    loop.exec();
    delivered = 0;

    service.broadcast(event, payloads);
    QTimer::singleShot(kTimeoutMs, &loop, &QEventLoop::quit);
    QElapsedTimer clock;
    clock.start();
    loop.exec();
    const double elapsed = double(clock.nsecsElapsed()) / 1e6;
    return delivered == payloads.size() ? elapsed : kFailed;
}

/// Milliseconds to parse the same bodies, one after the other.
double merelyParsed(const QString &event, const QVector<QJsonObject> &payloads)
{
    QVector<QByteArray> bodies;
    for (const QJsonObject &data : payloads)
        bodies.append(QJsonDocument(QJsonObject{{QStringLiteral("type"), QStringLiteral("event")},
                                                {QStringLiteral("event"), event},
                                                {QStringLiteral("data"), data}})
                          .toJson(QJsonDocument::Compact));
    int objects = 0;
    QElapsedTimer clock;
    clock.start();
    for (const QByteArray &body : qAsConst(bodies))
        objects += QJsonDocument::fromJson(body).isObject() ? 1 : 0;
    const double elapsed = double(clock.nsecsElapsed()) / 1e6;
    return objects == payloads.size() ? elapsed : kFailed;
}

/// Median of the rounds; kFailed if one of them failed.
double repeated(const std::function<double()> &measure)
{
    QVector<double> values;
    for (int round = 0; round < kRounds; ++round) {
        const double value = measure();
        if (value < 0)
            return kFailed;
        values.append(value);
    }
    return median(values);
}

ReportRow rateRow(const QString &subject, const QString &event,
                  const QVector<QJsonObject> &payloads)
{
    const double ours = repeated([&] { return throughClient(event, payloads); });
    const double parse = repeated([&] { return merelyParsed(event, payloads); });
    return {subject, milliseconds(ours), milliseconds(parse),
            ours > 0 && parse > 0 ? parse / ours : 0.0, QStringLiteral(">= 0.5 of the rate")};
}

QVector<QJsonObject> progressEvents(int count)
{
    QVector<QJsonObject> payloads;
    for (int i = 0; i < count; ++i)
        payloads.append(progress(i));
    return payloads;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});

    QVector<QJsonObject> batches;
    for (int batch = 0; batch < 100; ++batch)
        batches.append(foundFiles(batch, 500));
    printReport(QStringLiteral("Events through the client, against parsing alone"),
                {rateRow(QStringLiteral("20,000 scan.progress"), QStringLiteral("scan.progress"),
                         progressEvents(20000)),
                 rateRow(QStringLiteral("100 scan.fileFound of 500 files"),
                         QStringLiteral("scan.fileFound"), batches)});

    QVector<ReportRow> growth;
    double first = 0;
    for (const int count : {5000, 10000, 20000, 40000, 80000}) {
        const QVector<QJsonObject> payloads = progressEvents(count);
        const double total =
            repeated([&] { return throughClient(QStringLiteral("scan.progress"), payloads); });
        const double each = total / count;
        if (growth.isEmpty())
            first = each;
        growth.append({QStringLiteral("%1 frames waiting").arg(count), milliseconds(total),
                       QStringLiteral("%1 us each").arg(each * 1000, 0, 'f', 2),
                       first > 0 ? each / first : 0.0,
                       growth.isEmpty() ? QString() : QStringLiteral("<= 1.5 of the first")});
    }
    printReport(QStringLiteral("Cost of a frame as more are waiting"), growth);
    return 0;
}
