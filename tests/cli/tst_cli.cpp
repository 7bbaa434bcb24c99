#include "support/fakeservice.h"
#include "support/freeport.h"
#include "support/temptree.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QTcpSocket>
#include <QUrl>
#include <QtTest>

#include <csignal>

using testsupport::FakeService;

namespace {

constexpr int slowMs = 60000;

QString u(const char *text)
{
    return QString::fromUtf8(text);
}

struct Outcome
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;

    QStringList lines() const
    {
        return QString::fromUtf8(out).split(QLatin1Char('\n')).mid(0, out.count('\n'));
    }
};

QJsonObject object(const QByteArray &line)
{
    return QJsonDocument::fromJson(line).object();
}

} // namespace

/// Runs the program as people do, in a home of its own.
class TestCli : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void refusesWhatMakesNoSense_data();
    void refusesWhatMakesNoSense();
    void needsAnIndexFirst();
    void findsNamesAndContents();
    void showsSpaceAndDuplicates();
    void sharesUntilItIsStopped();
    void listsAndRestoresVaultFiles();
    void listsScansAndRecovers();
    void tellsThatAServiceIsMissing();
    void linksNoWidgets();

private:
    QProcess *start(const QStringList &arguments);
    Outcome run(const QStringList &arguments);

    QScopedPointer<TempTree> m_tree;
};

void TestCli::init()
{
    m_tree.reset(new TempTree);
    m_tree->dir("home");
}

QProcess *TestCli::start(const QStringList &arguments)
{
    auto *process = new QProcess(this);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), m_tree->path("home"));
    process->setProcessEnvironment(environment);
    process->start(QStringLiteral(MORVANE_CLI), arguments);
    return process;
}

/// The event loop runs meanwhile, for services in this process.
Outcome TestCli::run(const QStringList &arguments)
{
    const QScopedPointer<QProcess> process(start(arguments));
    if (!QTest::qWaitFor([&] { return process->state() == QProcess::NotRunning; }, slowMs))
        qFatal("morvane-cli does not end");
    return {process->exitStatus() == QProcess::NormalExit ? process->exitCode() : -1,
            process->readAllStandardOutput(), process->readAllStandardError()};
}

void TestCli::refusesWhatMakesNoSense_data()
{
    QTest::addColumn<QStringList>("arguments");
    const auto row = [](const char *arguments) {
        QStringList words = u(arguments).split(QLatin1Char(' '));
        words.removeAll(QString());
        QTest::newRow(*arguments ? arguments : "nothing") << words;
    };
    for (const char *arguments : {"",
                                  "fly",
                                  "search",
                                  "search --limit 0 x",
                                  "search --limit x x",
                                  "search --no-such x",
                                  "index /no/such/dir",
                                  "space",
                                  "space /no/such/dir",
                                  "space --files x /",
                                  "dupes",
                                  "dupes --min-size x /",
                                  "share",
                                  "share /no/such/file",
                                  "share --port 99999 /",
                                  "recover",
                                  "recover fly",
                                  "recover scan",
                                  "recover run 1",
                                  "vault",
                                  "vault restore"})
        row(arguments);
}

void TestCli::refusesWhatMakesNoSense()
{
    QFETCH(QStringList, arguments);
    const Outcome outcome = run(arguments);
    QCOMPARE(outcome.exitCode, 2);
    QCOMPARE(outcome.out, QByteArray());
    QVERIFY(!outcome.err.isEmpty());
}

void TestCli::needsAnIndexFirst()
{
    const Outcome outcome = run({u("search"), u("x")});
    QCOMPARE(outcome.exitCode, 3);
    QVERIFY(outcome.err.contains("morvane-cli index"));
}

void TestCli::findsNamesAndContents()
{
    const QString contract = m_tree->file("home/合同.txt", "甲方与乙方签订合同");
    m_tree->file("home/a\nb 合同.txt", "other");
    m_tree->file("home/notes.txt", "nothing");
    QCOMPARE(run({u("index")}).exitCode, 0);

    Outcome outcome = run({u("search"), u("no-file-of-that-name")});
    QCOMPARE(outcome.exitCode, 1);
    QCOMPARE(outcome.out, QByteArray());
    outcome = run({u("search"), u("-0"), u("合同")});
    QCOMPARE(outcome.exitCode, 0);
    QStringList paths;
    for (const QByteArray &path : outcome.out.split('\0'))
        paths.append(QString::fromUtf8(path));
    paths.removeAll(QString());
    paths.sort();
    QCOMPARE(paths, (QStringList{m_tree->path("home/a\nb 合同.txt"), contract}));
    outcome = run({u("search"), u("--json"), u("ht")});
    QCOMPARE(outcome.lines().size(), 2);
    QCOMPARE(object(outcome.out.split('\n').first()).value(u("match")).toString(), u("pinyin"));

    outcome = run({u("grep"), u("甲方"), u("乙方")});
    QCOMPARE(outcome.lines(), QStringList{contract + u(": 甲方与乙方签订合同")});
    QCOMPARE(run({u("grep"), u("absent")}).exitCode, 1);
    m_tree->remove("home/合同.txt");
    QCOMPARE(run({u("grep"), u("甲方")}).exitCode, 1); // gone files are not offered
    QCOMPARE(run({u("search"), u("-n"), u("1"), u("txt")}).lines().size(), 1);
}

void TestCli::showsSpaceAndDuplicates()
{
    m_tree->file("d/big/a", QByteArray(5000, 'x'));
    m_tree->file("d/big/b", QByteArray(5000, 'x'));
    m_tree->file("d/small/c", "y");
    const Outcome space = run({u("space"), u("--json"), u("--files"), u("1"), m_tree->path("d")});
    QCOMPARE(space.exitCode, 0);
    QStringList rows;
    const QStringList lines = space.lines();
    for (const QString &line : lines) {
        const QJsonObject row = object(line.toUtf8());
        rows.append(QStringLiteral("%1 %2 %3")
                        .arg(row.value(u("kind")).toString(),
                             QString::number(row.value(u("size")).toInt()),
                             QFileInfo(row.value(u("path")).toString()).fileName()));
    }
    QCOMPARE(rows.mid(0, 3),
             (QStringList{u("total 10001 d"), u("directory 10000 big"), u("directory 1 small")}));
    QCOMPARE(rows.size(), 4);
    QVERIFY(rows.last().startsWith(u("file 5000 ")));

    const Outcome dupes = run({u("dupes"), m_tree->path("d")});
    QCOMPARE(dupes.exitCode, 0);
    QStringList same = dupes.lines();
    same.sort();
    QCOMPARE(same, (QStringList{QString(), m_tree->path("d/big/a"), m_tree->path("d/big/b")}));
    QCOMPARE(run({u("dupes"), u("--min-size"), u("6000"), m_tree->path("d")}).exitCode, 1);
}

void TestCli::sharesUntilItIsStopped()
{
    m_tree->file("d/report.txt", "shared");
    const QString port = QString::number(freePort());
    const QScopedPointer<QProcess> process(
        start({u("share"), u("--port"), port, m_tree->path("d")}));
    QTRY_VERIFY_WITH_TIMEOUT(process->canReadLine(), slowMs);
    QUrl url(QString::fromUtf8(process->readLine().trimmed()));
    QCOMPARE(QString::number(url.port()), port);
    QTcpSocket client;
    client.connectToHost(QHostAddress::LocalHost, quint16(url.port()));
    QVERIFY(client.waitForConnected(slowMs));
    client.write("GET " + url.path().toLatin1() + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
    QTRY_VERIFY_WITH_TIMEOUT(client.bytesAvailable() > 12, slowMs);
    QCOMPARE(client.read(12), QByteArrayLiteral("HTTP/1.1 200"));
    ::kill(pid_t(process->processId()), SIGTERM);
    QTRY_COMPARE_WITH_TIMEOUT(process->state(), QProcess::NotRunning, slowMs);
    QCOMPARE(process->exitCode(), 0);
}

void TestCli::listsAndRestoresVaultFiles()
{
    FakeService service;
    QVERIFY(service.start());
    service.reply(u("vault.listFiles"),
                  {{u("files"), QJsonArray{QJsonObject{{u("id"), u("7")},
                                                       {u("fileSize"), 2048},
                                                       {u("originalPath"), u("/home/li/a.txt")}}}},
                   {u("totalCount"), 1}});
    service.reply(u("vault.restoreFiles"),
                  {{u("success"), false}, {u("restored"), 1}, {u("failed"), 1}});
    const QStringList socket{u("--socket"), service.name()};
    QCOMPARE(run(QStringList{u("vault"), u("list"), u("a.txt")} + socket).lines(),
             QStringList{u("7\t2.0 KB\t/home/li/a.txt")});
    QCOMPARE(service.lastParams(u("vault.listFiles")).value(u("filter")).toString(), u("a.txt"));
    const Outcome restored =
        run(QStringList{u("vault"), u("restore"), u("7"), u("8"), u("--to"), u("/tmp")} + socket);
    QCOMPARE(restored.exitCode, 3); // one of two is not all
    const QJsonObject params = service.lastParams(u("vault.restoreFiles"));
    QCOMPARE(params.value(u("fileIds")).toArray(), (QJsonArray{u("7"), u("8")}));
    QCOMPARE(params.value(u("targetDir")).toString(), u("/tmp"));
}

void TestCli::listsScansAndRecovers()
{
    FakeService service;
    QVERIFY(service.start());
    const QStringList socket{u("--socket"), service.name()};
    service.reply(u("disk.enumerate"),
                  {{u("groups"), QJsonArray{QJsonObject{
                                     {u("diskTitle"), u("disk")},
                                     {u("partitions"),
                                      QJsonArray{QJsonObject{{u("title"), u("data")},
                                                             {u("pathAndFs"), u("/dev/sda1 ext4")},
                                                             {u("total"), u("1 GB")}}}}}}}});
    QCOMPARE(run(QStringList{u("recover"), u("list"), u("-0")} + socket).out,
             QByteArray("/dev/sda1\0", 10));

    service.reply(u("disk.prepareForScan"), {{u("action"), u("ready")}});
    service.reply(u("scan.start"), {{u("sessionId"), u("s1")}});
    const QJsonObject file{{u("fileId"), u("f000001")}, {u("size"), 5}, {u("path"), u("/a.txt")}};
    const auto sendEvents = [&service](const char *kind, const QJsonObject &data,
                                       const QJsonObject &end) {
        service.broadcast(QLatin1String(kind) + QStringLiteral(".fileFound"), data);
        service.broadcast(QLatin1String(kind) + QStringLiteral(".fileStatus"), data);
        service.broadcast(QLatin1String(kind) + QStringLiteral(".completed"), end);
    };
    QScopedPointer<QProcess> scan(
        start(QStringList{u("recover"), u("scan"), u("--json"), u("/dev/sda1")} + socket));
    QVERIFY(service.waitForRequest(u("scan.start"), 1, slowMs));
    sendEvents("scan", {{u("sessionId"), u("other")}, {u("files"), QJsonArray{file, file}}},
               {{u("sessionId"), u("other")}});
    sendEvents("scan", {{u("sessionId"), u("s1")}, {u("files"), QJsonArray{file}}},
               {{u("sessionId"), u("s1")}});
    QTRY_COMPARE_WITH_TIMEOUT(scan->state(), QProcess::NotRunning, slowMs);
    QCOMPARE(scan->exitCode(), 0);
    QCOMPARE(object(scan->readLine()).value(u("fileId")).toString(), u("f000001"));

    service.reply(u("session.getFiles"), {{u("files"), QJsonArray{file}}, {u("total"), 1}});
    service.reply(u("recovery.start"), {{u("recoveryId"), u("r1")}});
    QScopedPointer<QProcess> recovery(
        start(QStringList{u("recover"), u("run"), u("s1"), m_tree->path("out")} + socket));
    QVERIFY(service.waitForRequest(u("recovery.start"), 1, slowMs));
    const QJsonObject params = service.lastParams(u("recovery.start"));
    QCOMPARE(params.value(u("fileIds")).toArray(), QJsonArray{u("f000001")});
    QCOMPARE(params.value(u("outputDir")).toString(), m_tree->path("out"));
    sendEvents(
        "recovery",
        {{u("recoveryId"), u("r1")}, {u("fileId"), u("f000001")}, {u("status"), u("failed")}},
        {{u("recoveryId"), u("r1")}});
    QTRY_COMPARE_WITH_TIMEOUT(recovery->state(), QProcess::NotRunning, slowMs);
    QCOMPARE(recovery->exitCode(), 3); // a file could not be recovered
}

void TestCli::tellsThatAServiceIsMissing()
{
    for (const char *command : {"vault", "recover"}) {
        const Outcome outcome =
            run({u(command), u("list"), u("--socket"), m_tree->path("no-such-socket")});
        QCOMPARE(outcome.exitCode, 3);
        QVERIFY(!outcome.err.isEmpty());
    }
}

void TestCli::linksNoWidgets()
{
    QProcess ldd;
    ldd.start(QStringLiteral("ldd"), {QStringLiteral(MORVANE_CLI)});
    QVERIFY(ldd.waitForFinished(slowMs));
    const QByteArray libraries = ldd.readAllStandardOutput();
    QVERIFY(libraries.contains("libQt5Core"));
    QVERIFY(!libraries.contains("libQt5Widgets") && !libraries.contains("libQt5Gui"));
}

QTEST_GUILESS_MAIN(TestCli)
#include "tst_cli.moc"
