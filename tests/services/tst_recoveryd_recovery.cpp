#include "common/outputfile.h"
#include "support/diskimages.h"
#include "support/recoveryharness.h"

#include <QDirIterator>
#include <QTest>

#include <csignal>
#include <sys/resource.h>
#include <unistd.h>

using namespace diskimages;
using services::numberedName;
using services::plainName;
using testsupport::RecoveryClient;
using testsupport::RecoveryHarness;

namespace {

QString text(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toString();
}

int number(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toInt(-1);
}

/// Paths below the directory, in order.
QStringList allFiles(const QString &dir)
{
    QStringList files;
    QDirIterator it(dir, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        files.append(QDir(dir).relativeFilePath(it.next()));
    files.sort();
    return files;
}

} // namespace

class TestRecoverydRecovery : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void writesTheSameBytes();
    void givesFilesToTheFoldersOwner();
    void keepsWhatIsThere();
    void refusesWithoutSpace();
    void goesOnWhenAFileCannotBeWritten();
    void stopsInMidFile();
    void tellsUnreadableParts();
    void findsItsImageAgain();
    void closesWhatWasInterrupted();
    void namesFilesPlainly_data();
    void namesFilesPlainly();

private:
    RecoveryClient::Event recover(const QStringList &ids, const char *policy = "rename");
    QJsonObject startParams(const QStringList &ids, const char *policy) const;
    QJsonObject detailOf(const RecoveryClient::Event &event);

    QTemporaryDir m_dir;
    std::unique_ptr<RecoveryHarness> m_harness;
    QString m_image;
    QString m_out;
    QString m_sessionId;
    QVector<QByteArray> m_contents; ///< Of the files with the ids f000001 and so on.
};

void TestRecoverydRecovery::initTestCase()
{
    m_contents = {png(70000), pdf(3), jpeg(40 * 1024 * 1024),
                  container(QStringLiteral("ods"), 900)};
}

void TestRecoverydRecovery::init()
{
    QByteArray bytes(4096, '\0');
    for (const QByteArray &content : qAsConst(m_contents))
        bytes += content + QByteArray(512 - content.size() % 512, '\0');
    m_harness = std::make_unique<RecoveryHarness>();
    m_image = m_harness->path(QStringLiteral("image"));
    m_out = m_harness->path(QStringLiteral("out/深/here"));
    QVERIFY(write(m_image, bytes));
    QVERIFY(m_harness->start({m_image}));
    m_sessionId =
        m_harness->client().scan({{QStringLiteral("devicePath"), QStringLiteral("/dev/image0")},
                                  {QStringLiteral("scanMode"), QStringLiteral("deep")}});
    QCOMPARE(m_harness->client().filesFound(m_sessionId).size(), m_contents.size());
}

QJsonObject TestRecoverydRecovery::startParams(const QStringList &ids, const char *policy) const
{
    return {{QStringLiteral("sessionId"), m_sessionId},
            {QStringLiteral("fileIds"), QJsonArray::fromStringList(ids)},
            {QStringLiteral("outputDir"), m_out},
            {QStringLiteral("conflictPolicy"), QLatin1String(policy)}};
}

/// Recovers to the end; gives the last event.
RecoveryClient::Event TestRecoverydRecovery::recover(const QStringList &ids, const char *policy)
{
    RecoveryClient &client = m_harness->client();
    const QString id =
        text(client.request(QStringLiteral("recovery.start"), startParams(ids, policy)).data,
             "recoveryId");
    return client.waitFor(id,
                          {QStringLiteral("recovery.completed"), QStringLiteral("recovery.error")});
}

QJsonObject TestRecoverydRecovery::detailOf(const RecoveryClient::Event &event)
{
    return m_harness->client()
        .request(QStringLiteral("recovery.getDetail"),
                 {{QStringLiteral("recoveryId"), text(event.data, "recoveryId")}})
        .data;
}

void TestRecoverydRecovery::writesTheSameBytes()
{
    const RecoveryClient::Event end =
        recover({QStringLiteral("f000001"), QStringLiteral("f000002"), QStringLiteral("f000003"),
                 QStringLiteral("f000004"), QStringLiteral("f000001"), QStringLiteral("none")});
    QCOMPARE(end.name, QStringLiteral("recovery.completed"));
    const QJsonObject summary = end.data.value(QLatin1String("summary")).toObject();
    QCOMPARE(number(summary, "succeeded"), 4);
    QCOMPARE(number(summary, "failed"), 1);
    QCOMPARE(number(summary, "partial"), 0);

    qint64 total = 0;
    QHash<QString, QStringList> statuses;
    int lastProcessed = 0;
    for (const RecoveryClient::Event &event : m_harness->client().events()) {
        if (event.name == QLatin1String("recovery.fileStatus"))
            statuses[text(event.data, "fileId")].append(text(event.data, "status"));
        if (event.name == QLatin1String("recovery.progress"))
            lastProcessed = number(event.data, "processed");
    }
    QCOMPARE(lastProcessed, 5);
    QCOMPARE(statuses.value(QStringLiteral("none")).join(QLatin1Char(' ')),
             QStringLiteral("failed"));
    const QJsonArray files = m_harness->client().filesFound(m_sessionId);
    for (int i = 0; i < m_contents.size(); ++i) {
        const QJsonObject file = files.at(i).toObject();
        QVERIFY(readAll(m_out + text(file, "path")) == m_contents.at(i));
        QCOMPARE(statuses.value(text(file, "fileId")).join(QLatin1Char(' ')),
                 QStringLiteral("running success"));
        total += m_contents.at(i).size();
    }
    QCOMPARE(qint64(summary.value(QLatin1String("totalBytesWritten")).toDouble()), total);
    QCOMPARE(allFiles(m_out).size(), 4); // no temporary file

    // The task is kept, in brief with the session and in full by itself.
    QVERIFY(m_harness->restart());
    const QJsonObject detail = detailOf(end);
    QCOMPARE(text(detail, "status"), QStringLiteral("completed_with_errors"));
    QCOMPARE(text(detail, "outputDir"), m_out);
    QCOMPARE(detail.value(QLatin1String("fileStatuses")).toArray().size(), 5);
    const QJsonArray tasks = m_harness->client()
                                 .request(QStringLiteral("session.getDetail"),
                                          {{QStringLiteral("sessionId"), m_sessionId}})
                                 .data.value(QLatin1String("recoveryTasks"))
                                 .toArray();
    QCOMPARE(tasks.size(), 1);
    QCOMPARE(number(tasks.first().toObject(), "succeeded"), 4);
    QVERIFY(!tasks.first().toObject().contains(QLatin1String("fileStatuses")));
}

void TestRecoverydRecovery::givesFilesToTheFoldersOwner()
{
    constexpr uint kOwner = 12345;
    const QString top = m_harness->path(QStringLiteral("out"));
    QVERIFY(QDir().mkpath(top));
    if (::geteuid() != 0 || ::chown(QFile::encodeName(top).constData(), kOwner, kOwner) != 0)
        QSKIP("needs the rights of root");
    recover({QStringLiteral("f000001"), QStringLiteral("f000002")});
    QCOMPARE(allFiles(m_out).size(), 2);
    QDirIterator it(top, QDir::AllEntries | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        QCOMPARE(it.fileInfo().ownerId(), kOwner);
        QCOMPARE(it.fileInfo().groupId(), kOwner);
    }
}

void TestRecoverydRecovery::keepsWhatIsThere()
{
    const QString name =
        text(m_harness->client().filesFound(m_sessionId).first().toObject(), "path");
    QVERIFY(QDir().mkpath(QFileInfo(m_out + name).path()));
    QVERIFY(write(m_out + name, "mine"));
    const QString second =
        QString(name).replace(QStringLiteral(".png"), QStringLiteral(" (1).png"));
    QVERIFY(QFile::link(QStringLiteral("/nowhere"), m_out + second));

    const RecoveryClient::Event skipped = recover({QStringLiteral("f000001")}, "skip");
    QCOMPARE(number(skipped.data.value(QLatin1String("summary")).toObject(), "succeeded"), 0);
    QCOMPARE(
        text(detailOf(skipped).value(QLatin1String("fileStatuses")).toArray().first().toObject(),
             "status"),
        QStringLiteral("skipped"));

    const RecoveryClient::Event end = recover({QStringLiteral("f000001")});
    QCOMPARE(number(end.data.value(QLatin1String("summary")).toObject(), "succeeded"), 1);
    QCOMPARE(readAll(m_out + name), QByteArrayLiteral("mine"));
    QVERIFY(readAll(m_out +
                    QString(name).replace(QStringLiteral(".png"), QStringLiteral(" (2).png"))) ==
            m_contents.first());
}

void TestRecoverydRecovery::refusesWithoutSpace()
{
    const auto start = [this] {
        return m_harness->client().request(
            QStringLiteral("recovery.start"),
            startParams({QStringLiteral("f000001"), QStringLiteral("f000002")}, "rename"));
    };
    m_harness->freeBytes = 1024 * 1024 + m_contents.at(0).size();
    const RecoveryClient::Answer answer = start();
    QCOMPARE(answer.errorCode, 1006);
    QVERIFY(!QFileInfo::exists(m_out));
    m_harness->freeBytes += m_contents.at(1).size();
    QVERIFY(start().success);
}

/// A target that takes no more in the middle of a file.
void TestRecoverydRecovery::goesOnWhenAFileCannotBeWritten()
{
    rlimit before = {};
    QCOMPARE(::getrlimit(RLIMIT_FSIZE, &before), 0);
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit small = {1024 * 1024, before.rlim_max};
    QCOMPARE(::setrlimit(RLIMIT_FSIZE, &small), 0);
    const RecoveryClient::Event end =
        recover({QStringLiteral("f000003"), QStringLiteral("f000001"), QStringLiteral("f000002"),
                 QStringLiteral("f000004")});
    QCOMPARE(::setrlimit(RLIMIT_FSIZE, &before), 0);
    const QJsonObject summary = end.data.value(QLatin1String("summary")).toObject();
    QCOMPARE(number(summary, "succeeded"), 3);
    QCOMPARE(number(summary, "failed"), 1);
    const QJsonObject tooLarge =
        detailOf(end).value(QLatin1String("fileStatuses")).toArray().first().toObject();
    QCOMPARE(text(tooLarge, "status"), QStringLiteral("failed"));
    QVERIFY(!text(tooLarge, "detail").isEmpty() && text(tooLarge, "outputPath").isEmpty());
    // The others are whole, and nothing is left of the one.
    const QJsonArray files = m_harness->client().filesFound(m_sessionId);
    for (int i : {0, 1, 3})
        QVERIFY(readAll(m_out + text(files.at(i).toObject(), "path")) == m_contents.at(i));
    QCOMPARE(allFiles(m_out).size(), 3);
}

void TestRecoverydRecovery::stopsInMidFile()
{
    RecoveryClient &client = m_harness->client();
    const QString id = text(
        client
            .request(QStringLiteral("recovery.start"),
                     startParams({QStringLiteral("f000003"), QStringLiteral("f000001")}, "rename"))
            .data,
        "recoveryId");
    client.waitFor(id, {QStringLiteral("recovery.fileStatus")});
    const bool isStopped =
        client.request(QStringLiteral("recovery.stop"), {{QStringLiteral("recoveryId"), id}})
            .success;
    const RecoveryClient::Event end = client.waitFor(
        id, {QStringLiteral("recovery.completed"), QStringLiteral("recovery.error")});
    // 40 MiB are written, synced and read back after the first event; a stop comes before that.
    QVERIFY(isStopped);
    QCOMPARE(end.name, QStringLiteral("recovery.error"));
    QCOMPARE(number(end.data.value(QLatin1String("error")).toObject(), "code"), 1002);
    QVERIFY(!client.request(QStringLiteral("recovery.stop"), {{QStringLiteral("recoveryId"), id}})
                 .success);
    for (const QString &name : allFiles(m_out))
        QVERIFY(!name.startsWith(QLatin1Char('.')));
}

void TestRecoverydRecovery::tellsUnreadableParts()
{
    // The image has become shorter: of the last two files one is cut and one is gone.
    QVERIFY(QFile::resize(m_image, 4096 + 70000 + 20 * 1024 * 1024));
    const RecoveryClient::Event end =
        recover({QStringLiteral("f000001"), QStringLiteral("f000003"), QStringLiteral("f000004")});
    const QJsonObject summary = end.data.value(QLatin1String("summary")).toObject();
    QCOMPARE(number(summary, "succeeded"), 1);
    QCOMPARE(number(summary, "partial"), 1);
    QCOMPARE(number(summary, "failed"), 1);
    QCOMPARE(allFiles(m_out).size(), 2);
    const QJsonObject cut =
        detailOf(end).value(QLatin1String("fileStatuses")).toArray().at(1).toObject();
    QVERIFY(!text(cut, "detail").isEmpty());
    const QByteArray written = readAll(text(cut, "outputPath"));
    QCOMPARE(written.size(), m_contents.at(2).size());
    QVERIFY(written.startsWith(m_contents.at(2).left(19 * 1024 * 1024)));
    QVERIFY(written.endsWith(QByteArray(1024 * 1024, '\0')));
}

void TestRecoverydRecovery::findsItsImageAgain()
{
    // After a restart with another image in front, the session's device is still the right one.
    const QString other = m_harness->path(QStringLiteral("other"));
    QVERIFY(write(other, noise(100000, 3)));
    QVERIFY(m_harness->start({other, m_image}));
    QCOMPARE(recover({QStringLiteral("f000002")}).name, QStringLiteral("recovery.completed"));
    QVERIFY(readAll(m_out + QLatin1Char('/') + allFiles(m_out).first()) == m_contents.at(1));

    QVERIFY(m_harness->start({other}));
    QVERIFY(!m_harness->client()
                 .request(QStringLiteral("recovery.start"),
                          startParams({QStringLiteral("f000002")}, "rename"))
                 .success);
}

void TestRecoverydRecovery::closesWhatWasInterrupted()
{
    const RecoveryClient::Event end = recover({QStringLiteral("f000002")});
    const QString id = text(end.data, "recoveryId");
    // As a killed service leaves it.
    const QString record =
        m_harness->path(QStringLiteral("state/sessions/%1/recovery-%2.json").arg(m_sessionId, id));
    QVERIFY(write(record, readAll(record).replace("\"completed\"", "\"running\"")));
    QVERIFY(write(m_out + QStringLiteral("/.morvane-%1-3").arg(id), "half"));
    QVERIFY(write(m_out + QStringLiteral("/.morvane-other"), "of somebody else"));
    QVERIFY(m_harness->restart());
    QCOMPARE(text(detailOf(end), "status"), QStringLiteral("failed"));
    const QStringList left = allFiles(m_out);
    QCOMPARE(left.size(), 2);
    QVERIFY(left.contains(QStringLiteral(".morvane-other")));
}

void TestRecoverydRecovery::namesFilesPlainly_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("plain");
    QTest::addColumn<QString>("third");
    QTest::newRow("usual") << "a.b.txt"
                           << "a.b.txt"
                           << "a.b (3).txt";
    QTest::newRow("no suffix") << "Makefile"
                               << "Makefile"
                               << "Makefile (3)";
    QTest::newRow("path") << "../../etc/passwd"
                          << "_._.._etc_passwd"
                          << "_._. (3)._etc_passwd";
    QTest::newRow("hidden") << ".bashrc"
                            << "_bashrc"
                            << "_bashrc (3)";
    QTest::newRow("control") << "a\nb\x7F.c"
                             << "a_b_.c"
                             << "a_b_ (3).c";
    QTest::newRow("nothing") << ""
                             << "recovered"
                             << "recovered (3)";
    QTest::newRow("long") << QString(300, QChar(0x6570)) + QLatin1String(".pdf")
                          << QString(65, QChar(0x6570)) + QLatin1String(".pdf")
                          << QString(65, QChar(0x6570)) + QLatin1String(" (3).pdf");
}

void TestRecoverydRecovery::namesFilesPlainly()
{
    QFETCH(QString, name);
    QFETCH(QString, plain);
    QCOMPARE(plainName(name), plain);
    QTEST(numberedName(plain, 3), "third");
    QCOMPARE(numberedName(plain, 0), plain);
}

QTEST_GUILESS_MAIN(TestRecoverydRecovery)
#include "tst_recoveryd_recovery.moc"
