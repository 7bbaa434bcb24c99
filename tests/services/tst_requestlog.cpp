#include "common/requestlog.h"
#include "core/ipc/ipcclient.h"

#include <QTest>

#include <unistd.h>

using core::ipc::IpcClient;
using services::AnsweredRequest;
using services::Reply;
using services::ServiceHost;

class TestRequestLog : public QObject
{
    Q_OBJECT

private slots:
    void tellsWhatBecameOfEachRequest();
    void keepsAClientFromWritingLines();
};

void TestRequestLog::tellsWhatBecameOfEachRequest()
{
    ServiceHost host;
    host.handle(QStringLiteral("vault.authenticate"),
                [](const QJsonObject &) { return Reply::ok(); });
    host.handle(QStringLiteral("scan.start"), [](const QJsonObject &) {
        return Reply::failure(1002, QStringLiteral("设备\n忙"));
    });
    QStringList lines;
    connect(&host, &ServiceHost::requestAnswered, this,
            [&lines](const AnsweredRequest &request, qint64 elapsedMs) {
                QVERIFY(elapsedMs >= 0);
                lines.append(QString::fromUtf8(services::requestLogLine(request, 7)));
            });
    QVERIFY(host.listen(QStringLiteral("requestlog")));
    IpcClient client(QStringLiteral("requestlog"));
    QVERIFY(client.ensureConnected(1000));

    QStringList ids;
    connect(&host, &ServiceHost::requestReceived, this,
            [&ids](const QString &, const QJsonObject &, const QString &id) { ids.append(id); });
    for (const char *method : {"vault.authenticate", "scan.start"})
        client.sendRequest(QLatin1String(method),
                           {{QStringLiteral("password"), QStringLiteral("secret")}});
    QTRY_COMPARE(lines.size(), 2);
    const QString who = QStringLiteral(" uid %1 pid %2: ").arg(::getuid()).arg(::getpid());
    QCOMPARE(lines.at(0),
             QStringLiteral("<7>request %1 vault.authenticate%2done, 7 ms\n").arg(ids.at(0), who));
    QCOMPARE(lines.at(1), QStringLiteral("<5>request %1 scan.start%2failed, 1002 设备 忙, 7 ms\n")
                              .arg(ids.at(1), who));
}

void TestRequestLog::keepsAClientFromWritingLines()
{
    AnsweredRequest request;
    request.requestId = QStringLiteral("a\n<0>b 密") + QString(200, QLatin1Char('x'));
    request.method = QStringLiteral("m\r\x1b[2J");
    const QByteArray line = services::requestLogLine(request, 0);
    QCOMPARE(line.count('\n'), 1);
    QVERIFY(line.startsWith("<7>request a?<0>b??xxx"));
    QVERIFY(line.contains(" m??[2J uid "));
    QVERIFY(line.size() < 160);
    request.reply = Reply::failure(1, QStringLiteral("密\n") + QString(100000, QLatin1Char('x')));
    const QByteArray failed = services::requestLogLine(request, 0);
    QVERIFY(failed.count('\n') == 1 && failed.size() < 400);
}

QTEST_GUILESS_MAIN(TestRequestLog)
#include "tst_requestlog.moc"
