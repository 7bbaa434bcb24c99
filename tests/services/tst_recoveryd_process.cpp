#include "support/diskimages.h"
#include "support/recoveryharness.h"

#include <QDirIterator>
#include <QProcess>
#include <QTest>

#include <csignal>

using namespace diskimages;
using testsupport::RecoveryClient;

namespace {

/// In order, hidden ones as well.
QStringList filesBelow(const QString &dir)
{
    QStringList files;
    QDirIterator it(dir, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        files.append(it.next());
    files.sort();
    return files;
}

} // namespace

/// The program itself, as another process, over a real image.
class TestRecoverydProcess : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void refusesToStart_data();
    void refusesToStart();
    void bringsDeletedFilesBack();
    void leavesNoHalfFileWhenKilled();
    void endsWithItsParent();

private:
    bool start();
    bool kill();
    QString startRecovery(const QString &session, const QJsonArray &ids, const QString &out);

    std::unique_ptr<QTemporaryDir> m_dir;
    QStringList m_images;
    std::unique_ptr<QProcess> m_process;
    std::unique_ptr<RecoveryClient> m_client;
};

void TestRecoverydProcess::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_images = QStringList{m_dir->filePath(QStringLiteral("image"))};
}

void TestRecoverydProcess::cleanup()
{
    m_client.reset();
    if (m_process)
        QVERIFY(kill());
    m_process.reset();
}

QString TestRecoverydProcess::startRecovery(const QString &session, const QJsonArray &ids,
                                            const QString &out)
{
    return m_client
        ->request(QStringLiteral("recovery.start"),
                  {{QStringLiteral("sessionId"), session},
                   {QStringLiteral("fileIds"), ids},
                   {QStringLiteral("outputDir"), out},
                   {QStringLiteral("conflictPolicy"), QStringLiteral("rename")}})
        .data.value(QLatin1String("recoveryId"))
        .toString();
}

bool TestRecoverydProcess::start()
{
    QStringList arguments = {QStringLiteral("--state"), m_dir->filePath(QStringLiteral("state")),
                             QStringLiteral("--socket"), m_dir->filePath(QStringLiteral("s"))};
    for (const QString &image : qAsConst(m_images))
        arguments += {QStringLiteral("--image"), image};
    m_process = std::make_unique<QProcess>();
    m_process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process->start(QStringLiteral(MORVANE_RECOVERYD), arguments);
    return QTest::qWaitFor(
        [this] {
            m_client = std::make_unique<RecoveryClient>(m_dir->filePath(QStringLiteral("s")));
            return m_client->connectNow();
        },
        10000);
}

bool TestRecoverydProcess::kill()
{
    return ::kill(pid_t(m_process->processId()), SIGKILL) == 0 && m_process->waitForFinished(10000);
}

void TestRecoverydProcess::refusesToStart_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("no image") << QStringList();
    QTest::newRow("no such image")
        << QStringList{QStringLiteral("--image"), QStringLiteral("/none")};
    QTest::newRow("a folder") << QStringList{QStringLiteral("--image"), QStringLiteral("/tmp")};
    QTest::newRow("unknown option") << QStringList{QStringLiteral("--write")};
}

void TestRecoverydProcess::refusesToStart()
{
    QFETCH(QStringList, arguments);
    QProcess process;
    process.start(QStringLiteral(MORVANE_RECOVERYD), arguments);
    QVERIFY(process.waitForFinished(10000));
    QCOMPARE(process.exitCode(), 1);
    QVERIFY(!process.readAllStandardError().isEmpty());
}

void TestRecoverydProcess::bringsDeletedFilesBack()
{
    QHash<QString, QByteArray> contents;
    const QString source = m_dir->filePath(QStringLiteral("source"));
    QVERIFY(QDir().mkpath(source));
    for (const char *kind : {"docx", "ods", "zip"})
        contents.insert(QLatin1String(kind), container(QLatin1String(kind), 30000));
    contents.insert(QStringLiteral("png"), png(100000));
    contents.insert(QStringLiteral("jpg"), jpeg(100000));
    contents.insert(QStringLiteral("gif"), gif(30000));
    contents.insert(QStringLiteral("pdf"), updatedPdf(30000));
    for (auto it = contents.cbegin(); it != contents.cend(); ++it)
        QVERIFY(write(source + QStringLiteral("/a.") + it.key(), it.value()));
    QString error;
    QVERIFY2(makeExt(m_images.first(), source, 16384,
                     {QStringLiteral("-t"), QStringLiteral("ext4")}, &error),
             qPrintable(error));
    for (const QString &kind : contents.keys())
        QVERIFY(debugfs(m_images.first(), QStringLiteral("rm /a.") + kind, &error));
    const QByteArray imageBefore = readAll(m_images.first());

    QVERIFY(start());
    const QString device = QStringLiteral("/dev/image0");
    QCOMPARE(m_client
                 ->request(QStringLiteral("disk.prepareForScan"),
                           {{QStringLiteral("devicePath"), device}})
                 .data.value(QLatin1String("action"))
                 .toString(),
             QStringLiteral("ready"));
    const QString session = m_client->scan({{QStringLiteral("devicePath"), device},
                                            {QStringLiteral("scanMode"), QStringLiteral("deep")}});
    const QJsonArray files = m_client->filesFound(session);
    QCOMPARE(files.size(), contents.size());

    // After a kill the session is there, and the recovery goes out of what was kept.
    QVERIFY(kill());
    QVERIFY(start());
    QJsonArray ids;
    for (const QJsonValue &file : files)
        ids.append(file.toObject().value(QLatin1String("fileId")));
    const QString out = m_dir->filePath(QStringLiteral("out"));
    const QString recovery = startRecovery(session, ids, out);
    QCOMPARE(m_client
                 ->waitFor(recovery,
                           {QStringLiteral("recovery.completed"), QStringLiteral("recovery.error")})
                 .name,
             QStringLiteral("recovery.completed"));
    const QStringList written = filesBelow(out);
    QCOMPARE(written.size(), contents.size());
    for (const QString &file : written)
        QVERIFY2(readAll(file) == contents.value(QFileInfo(file).suffix()), qPrintable(file));
    QVERIFY(readAll(m_images.first()) == imageBefore);
}

void TestRecoverydProcess::leavesNoHalfFileWhenKilled()
{
    // Twenty large pictures; the service is killed at different places in mid-recovery.
    const QByteArray picture = jpeg(4 * 1024 * 1024);
    QByteArray bytes;
    for (int i = 0; i < 20; ++i)
        bytes += picture + QByteArray(512 - picture.size() % 512, '\0');
    QVERIFY(write(m_images.first(), bytes));
    QVERIFY(start());
    const QString session =
        m_client->scan({{QStringLiteral("devicePath"), QStringLiteral("/dev/image0")},
                        {QStringLiteral("scanMode"), QStringLiteral("deep")}});
    QJsonArray ids;
    for (const QJsonValue &file : m_client->filesFound(session))
        ids.append(file.toObject().value(QLatin1String("fileId")));
    QCOMPARE(ids.size(), 20);

    bool wasInTheMiddle = false;
    for (const int eventsBefore : {1, 2, 5, 12}) {
        const QString out = m_dir->filePath(QStringLiteral("out%1").arg(eventsBefore));
        const QString recovery = startRecovery(session, ids, out);
        for (int i = 0; i < eventsBefore; ++i)
            m_client->waitFor(recovery, {QStringLiteral("recovery.fileStatus"),
                                         QStringLiteral("recovery.progress")});
        QVERIFY(kill());
        QStringList named = filesBelow(out);
        named.erase(std::remove_if(named.begin(), named.end(),
                                   [](const QString &file) {
                                       return QFileInfo(file).fileName().startsWith(
                                           QLatin1Char('.'));
                                   }),
                    named.end());
        wasInTheMiddle = wasInTheMiddle || named.size() < 20;
        for (const QString &file : qAsConst(named))
            QVERIFY2(readAll(file) == picture, qPrintable(file));

        // The next start takes the leftovers away and closes the task, before its first answer.
        QVERIFY(start());
        const QJsonObject detail = m_client
                                       ->request(QStringLiteral("recovery.getDetail"),
                                                 {{QStringLiteral("recoveryId"), recovery}})
                                       .data;
        QVERIFY(detail.value(QLatin1String("status")).toString() != QLatin1String("running"));
        QCOMPARE(filesBelow(out), named);
    }
    QVERIFY(wasInTheMiddle);
}

void TestRecoverydProcess::endsWithItsParent()
{
    QVERIFY(write(m_images.first(), QByteArray(1024 * 1024, '\0')));
    const QString socket = m_dir->filePath(QStringLiteral("s"));
    const auto answers = [&socket] {
        return RecoveryClient(socket).connectNow();
    };
    QProcess shell;
    shell.start(QStringLiteral("/bin/sh"),
                {QStringLiteral("-c"), QStringLiteral("\"$0\" \"$@\" & wait"),
                 QStringLiteral(MORVANE_RECOVERYD), QStringLiteral("--exit-with-parent"),
                 QStringLiteral("--image"), m_images.first(), QStringLiteral("--state"),
                 m_dir->filePath(QStringLiteral("state")), QStringLiteral("--socket"), socket});
    QVERIFY(QTest::qWaitFor(answers, 10000));
    QCOMPARE(::kill(pid_t(shell.processId()), SIGKILL), 0);
    QVERIFY(shell.waitForFinished(10000));
    QVERIFY(QTest::qWaitFor([&answers] { return !answers(); }, 10000));
}

QTEST_GUILESS_MAIN(TestRecoverydProcess)
#include "tst_recoveryd_process.moc"
