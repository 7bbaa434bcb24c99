#include "support/shareharness.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QProcess>
#include <QtTest>

#include <memory>

/// The server with the client that most scripts use.
class TestShareCurl : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void answers_data();
    void answers();
    void resumesABrokenDownload();
    void logsIn();
    void uploads();

private:
    struct Run
    {
        int code = -1;
        QByteArray head; ///< Status and header lines of all answers.
        QByteArray body;
    };
    Run curl(const char *path, const QStringList &options = {});
    QString url(const char *path) const
    {
        return QStringLiteral("http://127.0.0.1:%1%2")
            .arg(m_share->port())
            .arg(QLatin1String(path));
    }

    QByteArray m_content;
    std::unique_ptr<ShareHarness> m_share;
};

namespace {

constexpr int kSize = 1000000;
constexpr int kCutShort = 18;

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(none)");
}

} // namespace

void TestShareCurl::init()
{
    m_share = std::make_unique<ShareHarness>();
    m_content.resize(kSize);
    for (int i = 0; i < kSize; ++i)
        m_content[i] = char(i * 31 / 7);
    TempTree &tree = m_share->tree();
    tree.file("d/data.bin", m_content);
    ShareSession session = ShareHarness::session(QStringLiteral("s"));
    session.accessMode = QStringLiteral("upload");
    m_share->add(session);
    m_share->addRoot(session.id, QStringLiteral("d"), tree.path("d"));
    session.id = QStringLiteral("pw");
    m_share->add(session, QStringLiteral("secret"));
}

TestShareCurl::Run TestShareCurl::curl(const char *path, const QStringList &options)
{
    const QString headFile = m_share->tree().path("head");
    QProcess process;
    QEventLoop loop; // the server lives in it
    connect(&process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), &loop,
            &QEventLoop::quit);
    connect(&process, &QProcess::errorOccurred, &loop, &QEventLoop::quit);
    process.start(QStringLiteral("curl"),
                  QStringList{QStringLiteral("-q"), QStringLiteral("-s"),
                              QStringLiteral("--noproxy"), QStringLiteral("*"),
                              QStringLiteral("-D"), headFile} +
                      options + QStringList{url(path)});
    loop.exec();
    Run run;
    run.code = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.head = contentOf(headFile);
    run.body = process.readAllStandardOutput();
    return run;
}

void TestShareCurl::answers_data()
{
    QTest::addColumn<QString>("options");
    QTest::addColumn<int>("code");
    QTest::addColumn<QByteArray>("status");
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("count");

    const auto row = [](const char *options, int code, const char *status, const char *line,
                        int from, int count) {
        QTest::newRow(options) << QString::fromLatin1(options) << code << QByteArray(status)
                               << QByteArray(line) << from << count;
    };
    row("", 0, "200 OK", "Content-Length: 1000000", 0, kSize);
    row("-r 0-0", 0, "206 Partial Content", "Content-Range: bytes 0-0/1000000", 0, 1);
    row("-r 65535-65536", 0, "206 Partial Content", "Content-Range: bytes 65535-65536/1000000",
        65535, 2);
    row("-r -3", 0, "206 Partial Content", "Content-Range: bytes 999997-999999/1000000", 999997, 3);
    row("-r 999990-", 0, "206 Partial Content", "Content-Length: 10", 999990, 10);
    // Several ranges are the whole file; one that reaches too far is cut short.
    row("-r 0-1,4-5", 0, "200 OK", "Content-Length: 1000000", 0, kSize);
    row("-r 999000-1000000", kCutShort, "200 OK", "Content-Length: 1000000", 999000, 1000);
    // No validators: a condition on the range changes nothing.
    row("-r 5-9 -H If-Range:\"x\"", 0, "206 Partial Content", "Content-Range: bytes 5-9/1000000", 5,
        5);
    row("-I", 0, "200 OK", "Accept-Ranges: bytes", 0, 0);
    row("-I -r 0-9", 0, "206 Partial Content", "Content-Length: 10", 0, 0);
    row("-X DELETE", 0, "200 OK", "Connection: close", 0, kSize);
}

void TestShareCurl::answers()
{
    QFETCH(QString, options);
    QFETCH(QByteArray, status);
    QFETCH(QByteArray, line);
    QFETCH(int, from);
    QFETCH(int, count);
    QStringList list = options.split(QLatin1Char(' '));
    list.removeAll(QString());
    Run run = curl("/s/s/d/data.bin", list);
    QTEST(run.code, "code");
    QVERIFY2(run.head.startsWith("HTTP/1.1 " + status + "\r\n"), run.head.constData());
    QVERIFY2(run.head.contains("\r\n" + line + "\r\n"), run.head.constData());
    if (count == 0) // of a HEAD, curl shows the header as the body
        run.body.remove(0, run.head.size());
    QCOMPARE(run.body.size(), count);
    QVERIFY(run.body == m_content.mid(from, count));
}

void TestShareCurl::resumesABrokenDownload()
{
    const QString path = m_share->tree().path("got");
    const QStringList resume{QStringLiteral("-C"), QStringLiteral("-"), QStringLiteral("-o"), path};
    m_share->tree().file("got", m_content.left(300001));
    Run run = curl("/s/s/d/data.bin", resume);
    QCOMPARE(run.code, 0);
    QVERIFY2(run.head.startsWith("HTTP/1.1 206 "), run.head.constData());
    QVERIFY(contentOf(path) == m_content);
    // There is nothing left: not an answer of 416, but neither a second copy.
    run = curl("/s/s/d/data.bin", resume);
    QVERIFY2(run.head.startsWith("HTTP/1.1 200 "), run.head.constData());
    QVERIFY(contentOf(path) == m_content);
    // Each request counts.
    QTRY_COMPARE(m_share->log(QStringLiteral("s")).count(QStringLiteral("download data.bin")), 2);
}

void TestShareCurl::logsIn()
{
    const QString jar = m_share->tree().path("jar");
    QVERIFY(curl("/s/pw/").body.contains("此共享需要密码才能访问"));
    const Run run =
        curl("/s/pw/auth", {QStringLiteral("-L"), QStringLiteral("-c"), jar,
                            QStringLiteral("--data-urlencode"), QStringLiteral("password=secret")});
    QVERIFY2(run.head.startsWith("HTTP/1.1 302 Found\r\n"), run.head.constData());
    QVERIFY(run.body.contains("共享文件"));
    QVERIFY(curl("/s/pw/", {QStringLiteral("-b"), jar}).body.contains("共享文件"));
}

/// A large body is held back until the server asks for it.
void TestShareCurl::uploads()
{
    const QString source = m_share->tree().file("source", m_content + m_content);
    const QStringList options{QStringLiteral("-T"),
                              source,
                              QStringLiteral("-H"),
                              QStringLiteral("X-File-Name: %E6%96%B0.bin"),
                              QStringLiteral("-H"),
                              QStringLiteral("Expect: 100-continue"),
                              QStringLiteral("--expect100-timeout"),
                              QStringLiteral("15")};
    QElapsedTimer clock;
    clock.start();
    Run run = curl("/s/s/upload/d", options);
    QVERIFY2(clock.elapsed() < 10000, QByteArray::number(clock.elapsed()).constData());
    QVERIFY2(run.head.startsWith("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 201 Created\r\n"),
             run.head.constData());
    QVERIFY(contentOf(m_share->tree().path("d/新.bin")) == m_content + m_content);
    // What is refused is refused at once, and not asked for.
    run = curl("/s/s/upload/d", options);
    QVERIFY2(run.head.startsWith("HTTP/1.1 409 Conflict\r\n"), run.head.constData());
    QVERIFY(run.body.contains("当前目录已存在同名文件，请确认是否覆盖。"));
}

QTEST_GUILESS_MAIN(TestShareCurl)
#include "tst_sharecurl.moc"
