#include "vaultdprocess.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QByteArray kContent("content of the one file");

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

/// A good configuration with changes to it; a null takes the key away.
QJsonObject config(const QByteArray &changes = "{}")
{
    QJsonObject config =
        json(R"({"protectedDirs":["/home/a"],"protectedExtensions":["txt","tar.gz"],
        "retentionDays":7,"maxSpaceBytes":0,"emergencyThresholdBytes":0})");
    const QJsonObject values = json(changes);
    for (auto it = values.begin(); it != values.end(); ++it) {
        if (it.value().isNull())
            config.remove(it.key());
        else
            config.insert(it.key(), it.value());
    }
    return config;
}

} // namespace

/// The program itself, as another process.
class TestVaultdProcess : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_vaultd = std::make_unique<VaultdProcess>(); }
    void cleanup() { m_vaultd.reset(); }
    void refusesToStart_data();
    void refusesToStart();
    void refusesConfigurations();
    void keepsItsSettings();
    void refusesRequests();
    void protectsListsAndRemoves();
    void restoresWithoutOverwriting();
    void answersDuringLongWork();
    void expiresWhatExceedsTheLimits();
    void authenticates();
    void endsWithItsParent();

private:
    VaultdProcess::Answer ask(const char *method, const QJsonObject &params = QJsonObject())
    {
        return m_vaultd->ask(method, params);
    }
    QJsonArray list(const char *params = "{}") { return m_vaultd->list(params); }
    QString path(const char *relative) const { return m_vaultd->tree.path(relative); }

    std::unique_ptr<VaultdProcess> m_vaultd;
};

void TestVaultdProcess::refusesToStart_data()
{
    QTest::addColumn<QStringList>("arguments");
    const QString parent = QStringLiteral("--vault-parent");
    QTest::newRow("no vault") << QStringList();
    QTest::newRow("no such parent") << QStringList{parent, QStringLiteral("/none")};
    QTest::newRow("nothing to protect")
        << QStringList{parent, QStringLiteral("."), QStringLiteral("--protect")};
    QTest::newRow("no password file")
        << QStringList{QStringLiteral("--set-password"), QStringLiteral("me")};
    QTest::newRow("unknown option") << QStringList{QStringLiteral("--write")};
}

void TestVaultdProcess::refusesToStart()
{
    QFETCH(QStringList, arguments);
    QProcess process;
    process.setWorkingDirectory(m_vaultd->tree.path());
    process.start(QStringLiteral(MORVANE_VAULTD), arguments);
    process.closeWriteChannel();
    QVERIFY(process.waitForFinished(20000));
    QCOMPARE(process.exitCode(), 1);
    QVERIFY(!process.readAllStandardError().isEmpty());
}

void TestVaultdProcess::refusesConfigurations()
{
    const struct
    {
        QByteArray changes;
        const char *word; // In the message.
    } rows[] = {
        {R"({"protectedDirs":null})", "protectedDirs"},
        {R"({"protectedExtensions":"txt"})", "protectedExtensions"},
        {R"({"retentionDays":null})", "retentionDays"},
        {R"({"maxSpaceBytes":"7"})", "maxSpaceBytes"},
        {R"({"emergencyThresholdBytes":null})", "emergencyThresholdBytes"},
        {R"({"protectedDirs":["/home","home/a"]})", "home/a"},
        {R"({"protectedDirs":["/home/../etc"]})", "保护目录"},
        {R"({"protectedDirs":["/home/.morvane_vault/x"]})", "保护目录"},
        {R"({"protectedDirs":[7]})", "保护目录"},
        {R"({"protectedExtensions":["txt","TXT"]})", "TXT"},
        {R"({"protectedExtensions":[".txt"]})", "保护类型"},
        {R"({"protectedExtensions":[""]})", "保护类型"},
        {R"({"protectedExtensions":["a/b"]})", "保护类型"},
        {R"({"retentionDays":0})", "1 到 3650"},
        {R"({"retentionDays":1.5})", "保留天数"},
        {R"({"retentionDays":3651})", "保留天数"},
        {R"({"maxSpaceBytes":-1})", "空间上限"},
        {R"({"maxSpaceBytes":1e17})", "空间上限"},
        {R"({"emergencyThresholdBytes":-1})", "紧急释放阈值"},
    };
    QVERIFY(m_vaultd->start());
    const QJsonObject before = ask("getConfig").data;
    for (const auto &row : rows) {
        const VaultdProcess::Answer answer = ask("setConfig", config(row.changes));
        QVERIFY2(!answer.success, row.changes.constData());
        QVERIFY2(answer.errorMessage.contains(text(row.word)), qPrintable(answer.errorMessage));
    }
    QCOMPARE(ask("getConfig").data, before);
    QVERIFY(!QFile::exists(path("state/config.json")));
}

void TestVaultdProcess::keepsItsSettings()
{
    QVERIFY(m_vaultd->start());
    QCOMPARE(ask("getStatus").data,
             json(R"({"running":true,"enabled":false,"preloadActive":false,"soFileExists":false,
                  "needReboot":false,"protectedFileCount":0,"usedSpaceBytes":0,"deployMode":""})"));
    QCOMPARE(ask("getConfig").data.size(), 5);
    QVERIFY(ask("setConfig", config(R"({"protectedDirs":["/home/a/","/home/a","/b"]})")).success);
    for (const char *method : {"enable", "enableGlobal"})
        QCOMPARE(ask(method).data,
                 json(R"({"success":true,"deployMode":"degraded","needReboot":false})"));

    QVERIFY(m_vaultd->start());
    QCOMPARE(ask("getConfig").data, config(R"({"protectedDirs":["/home/a","/b"]})"));
    QVERIFY(ask("getStatus").data.value(QLatin1String("enabled")).toBool());
    QCOMPARE(ask("getDeployMode").data, json(R"({"deployMode":"degraded"})"));
    QVERIFY(ask("disable").success);
    // What is kept may be anything; the service starts all the same.
    m_vaultd->tree.file("state/config.json", R"({"retentionDays":"x"})");
    QVERIFY(m_vaultd->start());
    QCOMPARE(ask("getConfig").data.value(QLatin1String("retentionDays")).toInt(), 30);
    QCOMPARE(ask("getDeployMode").data, json(R"({"deployMode":""})"));
}

void TestVaultdProcess::refusesRequests()
{
    const struct
    {
        const char *method;
        QByteArray params; // "@" stands for the tree.
    } rows[] = {
        {"format", "{}"},
        {"listFiles", R"({"limit":-1})"},
        {"listFiles", R"({"offset":"0"})"},
        {"listFiles", R"({"filter":3})"},
        {"deleteFiles", "{}"},
        {"deleteFiles", R"({"fileIds":[]})"},
        {"deleteFiles", R"({"fileIds":["../../file"]})"},
        {"deleteFiles", R"({"fileIds":["a.b"]})"},
        {"deleteFiles", R"({"fileIds":[1]})"},
        {"restoreFiles", R"({"fileIds":["a/b"],"targetDir":"@/home"})"},
        {"restoreFiles", R"({"fileIds":["a"]})"},
        {"restoreFiles", R"({"fileIds":["a"],"targetDir":"home"})"},
        {"restoreFiles", R"({"fileIds":["a"],"targetDir":"@/none"})"},
        {"restoreFiles", R"({"fileIds":["a"],"targetDir":"@/file"})"},
        {"restoreFiles", R"({"fileIds":["a"],"targetDir":"@/home/.morvane_vault/.meta"})"},
        {"authenticate", R"({"username":1,"password":"x"})"},
        {"authenticate", R"({"username":"x"})"},
        {"installPackage", R"({"packagePath":"@/none","arch":"a","launchEnv":{}})"},
        {"installPackage", R"({"packagePath":"@/home","arch":"a","launchEnv":{}})"},
        {"installPackage", R"({"packagePath":"@/file","launchEnv":{}})"},
        {"installPackage", R"({"packagePath":"@/file","arch":"a","launchEnv":{"DISPLAY":1}})"},
        {"syncShareFirewall", R"({"active":true,"port":65536})"},
        {"syncShareFirewall", R"({"active":1,"port":9800})"},
    };
    m_vaultd->tree.file("file");
    QVERIFY(m_vaultd->start() && m_vaultd->authenticate());
    for (const auto &row : rows) {
        QByteArray params = row.params;
        params.replace("@", m_vaultd->tree.path().toUtf8());
        const VaultdProcess::Answer answer = ask(row.method, json(params));
        QVERIFY2(!answer.success && answer.errorCode != 0 && !answer.errorMessage.isEmpty(),
                 row.params.constData());
    }
    QVERIFY(QFile::exists(path("file")));
}

void TestVaultdProcess::protectsListsAndRemoves()
{
    QVERIFY(m_vaultd->start());
    const QString report = m_vaultd->tree.file("home/报告 A.txt", kContent);
    const QString photo = m_vaultd->tree.file("home/Pictures/photo.jpg", "pixels");
    const QStringList ids = m_vaultd->protect({report, photo});
    QCOMPARE(ids.size(), 2);
    QVERIFY(!QFile::exists(report) && !QFile::exists(photo));
    QTRY_COMPARE_WITH_TIMEOUT(m_vaultd->eventCount("vault.fileProtected"), 2, 20000);
    for (const QJsonValue &file : list())
        QVERIFY(m_vaultd->waitForEvent("vault.fileProtected", {{QStringLiteral("file"), file}}));
    const QJsonObject file = list(R"({"filter":"a.TXT"})").at(0).toObject();
    QCOMPARE(file.value(QLatin1String("id")).toString(), ids.at(0));
    QCOMPARE(file.value(QLatin1String("fileName")).toString(), text("报告 A.txt"));
    QCOMPARE(file.value(QLatin1String("originalPath")).toString(), report);
    QCOMPARE(file.value(QLatin1String("fileSize")).toInt(), kContent.size());
    QVERIFY(qAbs(QDateTime::currentSecsSinceEpoch() -
                 qint64(file.value(QLatin1String("deletedAt")).toDouble())) < 60);

    QCOMPARE(list(R"({"filter":"PICTURES"})").size(), 1);
    QCOMPARE(list(R"({"filter":"nothing"})").size(), 0);
    QCOMPARE(list(R"({"limit":1,"offset":1})").size(), 1);
    QCOMPARE(ask("listFiles", json(R"({"limit":1,"offset":2})")).data,
             json(R"({"files":[],"totalCount":2})"));
    QCOMPARE(ask("getStatus").data.value(QLatin1String("usedSpaceBytes")).toInt(),
             kContent.size() + 6);

    QVERIFY(m_vaultd->authenticate());
    // One is there and goes; the other is not there, and makes it a partial success.
    const VaultdProcess::Answer answer =
        ask("deleteFiles",
            {{QStringLiteral("fileIds"), QJsonArray{ids.at(0), QStringLiteral("gone")}}});
    QVERIFY(answer.success && !answer.data.value(QLatin1String("success")).toBool(true));
    QCOMPARE(list().size(), 1);
    QVERIFY(ask("clearAll").data.value(QLatin1String("success")).toBool());
    QCOMPARE(list().size(), 0);
    QVERIFY(QDir(path("home/.morvane_vault")).entryList(QDir::Files).isEmpty());
    QVERIFY(QDir(path("home/.morvane_vault/.meta")).entryList(QDir::Files).isEmpty());
}

void TestVaultdProcess::restoresWithoutOverwriting()
{
    const QString name = QStringLiteral("home/a.txt");
    const QStringList ids = m_vaultd->protect({m_vaultd->tree.file(name, kContent)});
    m_vaultd->tree.file("out/a.txt", "another");
    m_vaultd->tree.file("out/a (1).txt", "a third");
    QVERIFY(m_vaultd->start());
    const QJsonObject params{{QStringLiteral("fileIds"), QJsonArray::fromStringList(ids)},
                             {QStringLiteral("targetDir"), path("out")}};
    const QJsonObject data = ask("restoreFiles", params).data;
    QVERIFY(data.value(QLatin1String("success")).toBool());
    QCOMPARE(data.value(QLatin1String("restored"))
                 .toArray()
                 .at(0)
                 .toObject()
                 .value(QLatin1String("path")),
             QJsonValue(path("out/a (2).txt")));
    QCOMPARE(contentOf(path("out/a.txt")), QByteArray("another"));
    QCOMPARE(contentOf(path("out/a (1).txt")), QByteArray("a third"));
    QCOMPARE(contentOf(path("out/a (2).txt")), kContent);
    QCOMPARE(QDir(path("out")).entryList(QDir::Files | QDir::Hidden).size(), 3);
    QCOMPARE(list().size(), 0);
    QVERIFY(!ask("restoreFiles", params).data.value(QLatin1String("success")).toBool(true));
}

void TestVaultdProcess::answersDuringLongWork()
{
    const QStringList ids = m_vaultd->protect({m_vaultd->tree.file("home/a.txt", kContent)});
    QVERIFY(m_vaultd->start());
    // Whoever holds the vault keeps its thread waiting.
    const int fd =
        ::open(QFile::encodeName(path("home/.morvane_vault")).constData(), O_RDONLY | O_DIRECTORY);
    QVERIFY(fd >= 0 && ::flock(fd, LOCK_EX) == 0);
    bool isDone = false;
    QVERIFY(m_vaultd->setPassword("me", "secret"));
    core::ipc::IpcClient other(path("s"));
    QVERIFY(other.ensureConnected(3000));
    other.sendRequest(QStringLiteral("vault.authenticate"),
                      json(R"({"username":"me","password":"secret"})"));
    other.sendRequest(QStringLiteral("vault.clearAll"), QJsonObject(),
                      [&isDone](bool success, const QJsonObject &data, const QJsonObject &) {
                          isDone = success && data.value(QLatin1String("success")).toBool();
                      });
    for (int i = 0; i < 3; ++i)
        QCOMPARE(list().size(), 1);
    QVERIFY(!isDone);
    QVERIFY(QFile::exists(
        m_vaultd->tree.path(QStringLiteral("home/.morvane_vault/%1.dat").arg(ids.at(0)))));
    ::close(fd);
    QTRY_VERIFY_WITH_TIMEOUT(isDone, 20000);
    QCOMPARE(list().size(), 0);
}

void TestVaultdProcess::expiresWhatExceedsTheLimits()
{
    QVERIFY(m_vaultd->start());
    QVERIFY(ask("setConfig", config(R"({"maxSpaceBytes":1000})")).success);
    const QString first =
        m_vaultd->protect({m_vaultd->tree.file("home/1", QByteArray(600, 'a'))}).value(0);
    QTRY_COMPARE_WITH_TIMEOUT(list().size(), 1, 20000);
    QCOMPARE(m_vaultd->eventCount("vault.spaceWarning"), 0);
    // The next one leaves less than a tenth; the third makes the oldest go.
    m_vaultd->protect({m_vaultd->tree.file("home/2", QByteArray(300, 'b'))});
    QVERIFY(
        m_vaultd->waitForEvent("vault.spaceWarning", json(R"({"usedBytes":900,"maxBytes":1000})")));
    // The age of files counts in seconds.
    const qint64 second = QDateTime::currentSecsSinceEpoch();
    QTRY_VERIFY(QDateTime::currentSecsSinceEpoch() > second);
    m_vaultd->protect({m_vaultd->tree.file("home/3", QByteArray(300, 'c'))});
    QTRY_COMPARE_WITH_TIMEOUT(m_vaultd->eventCount("vault.fileExpired"), 1, 20000);
    QTRY_COMPARE_WITH_TIMEOUT(m_vaultd->eventCount("vault.fileProtected"), 3, 20000);
    // The first two may be of one second, and then either is the oldest.
    QVERIFY(list().size() <= 2);
    QVERIFY(ask("setConfig", config(R"({"maxSpaceBytes":1})")).success);
    QVERIFY(m_vaultd->waitForEvent("vault.fileExpired", {{QStringLiteral("fileId"), first}}));
    QTRY_COMPARE_WITH_TIMEOUT(list().size(), 0, 20000);
}

void TestVaultdProcess::authenticates()
{
    QVERIFY(m_vaultd->setPassword("me", "old\n"));
    QVERIFY(m_vaultd->setPassword("you", "密码\n"));
    QVERIFY(m_vaultd->setPassword("me", "secret"));
    QVERIFY(!m_vaultd->setPassword("me", "\n"));
    QVERIFY(!m_vaultd->setPassword("a:b", "secret\n"));
    struct stat info;
    QCOMPARE(::stat(QFile::encodeName(path("passwords")).constData(), &info), 0);
    QCOMPARE(info.st_mode & 07777, mode_t(0600));
    QVERIFY(!contentOf(path("passwords")).contains("secret"));

    QVERIFY(m_vaultd->start());
    const QStringList ids = m_vaultd->protect({m_vaultd->tree.file("home/a.txt", kContent)});
    QTRY_COMPARE_WITH_TIMEOUT(list().size(), 1, 20000);
    const QJsonObject files{{QStringLiteral("fileIds"), QJsonArray::fromStringList(ids)}};
    const auto isRefused = [this, &files] {
        return ask("deleteFiles", files).errorCode == 403 && ask("clearAll").errorCode == 403;
    };
    QVERIFY(isRefused());
    QVERIFY(!m_vaultd->enter("me", "old"));
    QVERIFY(isRefused());
    QVERIFY(m_vaultd->enter("you", "密码"));
    QVERIFY(m_vaultd->enter("me", "secret"));
    QVERIFY(ask("deleteFiles", files).data.value(QLatin1String("success")).toBool());
    // A failure ends what an earlier success has given.
    QVERIFY(!m_vaultd->enter("me", "Secret"));
    QVERIFY(isRefused());
    QVERIFY(m_vaultd->enter("me", "secret"));
    QVERIFY(ask("clearAll").success);
    QVERIFY(QFile::setPermissions(path("passwords"),
                                  QFile::ReadOwner | QFile::WriteOwner | QFile::WriteOther));
    QVERIFY(!m_vaultd->enter("me", "secret"));
}

void TestVaultdProcess::endsWithItsParent()
{
    const auto answers = [this] {
        return testsupport::ServiceClient(path("s")).connectNow();
    };
    QProcess shell;
    shell.start(QStringLiteral("/bin/sh"),
                QStringList{QStringLiteral("-c"), QStringLiteral("\"$0\" \"$@\" & wait"),
                            QStringLiteral(MORVANE_VAULTD), QStringLiteral("--exit-with-parent")} +
                    m_vaultd->arguments());
    QVERIFY(QTest::qWaitFor(answers, 20000));
    QCOMPARE(::kill(pid_t(shell.processId()), SIGKILL), 0);
    QVERIFY(shell.waitForFinished(10000));
    QVERIFY(QTest::qWaitFor([&answers] { return !answers(); }, 20000));
}

QTEST_GUILESS_MAIN(TestVaultdProcess)
#include "tst_vaultd_process.moc"
