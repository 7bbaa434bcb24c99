#include "support/serviceclient.h"
#include "support/temptree.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonDocument>
#include <QProcess>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using testsupport::ServiceClient;

namespace {

const QByteArray kContent = QByteArray("content of the one file ").repeated(5000);
constexpr int kMaxSteps = 60; // Far more than any run here takes.

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

QJsonObject json(const char *utf8)
{
    return QJsonDocument::fromJson(utf8).object();
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

/// The program itself, as another process.
class TestVaultdProcess : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void refusesToStart_data();
    void refusesToStart();
    void refusesConfigurations_data();
    void refusesConfigurations();
    void keepsItsSettings();
    void refusesRequests_data();
    void refusesRequests();
    void protectsListsAndRemoves();
    void restoresWithoutOverwriting();
    void answersDuringLongWork();
    void expiresWhatExceedsTheLimits();
    void authenticates();
    void recordsRequestsToTheSystem();
    void losesNothingWhenKilled_data();
    void losesNothingWhenKilled();
    void endsWithItsParent();

private:
    using Environment = QHash<QString, QString>;

    QStringList arguments() const;
    bool start(const Environment &faults = Environment());
    void stop();
    QStringList protect(const QStringList &paths, const Environment &faults = Environment());
    ServiceClient::Answer ask(const char *method, const QJsonObject &params = QJsonObject())
    {
        return m_client->request(QLatin1String(method), params);
    }
    QJsonArray list(const char *params = "{}")
    {
        return ask("vault.listFiles", json(params)).data.value(QLatin1String("files")).toArray();
    }
    bool waitForEvent(const char *name, const QJsonObject &data);
    int eventCount(const char *name) const;
    QJsonObject config(const QJsonObject &changes = QJsonObject());
    QString amissInTree(const QString &operation);

    std::unique_ptr<TempTree> m_tree;
    QStringList m_extraArguments;
    std::unique_ptr<QProcess> m_process;
    std::unique_ptr<ServiceClient> m_client;
};

void TestVaultdProcess::init()
{
    m_tree = std::make_unique<TempTree>();
    m_tree->dir("home");
    m_extraArguments.clear();
}

void TestVaultdProcess::cleanup()
{
    stop();
    m_tree.reset();
}

QStringList TestVaultdProcess::arguments() const
{
    return QStringList{QStringLiteral("--vault-parent"), m_tree->path("home"),
                       QStringLiteral("--state"),        m_tree->path("state"),
                       QStringLiteral("--socket"),       m_tree->path("s")} +
           m_extraArguments;
}

/// False if it does not come up, or dies at once of its faults.
bool TestVaultdProcess::start(const Environment &faults)
{
    stop();
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (auto it = faults.cbegin(); it != faults.cend(); ++it)
        environment.insert(it.key(), it.value());
    m_process = std::make_unique<QProcess>();
    m_process->setProcessEnvironment(environment);
    m_process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process->start(faults.isEmpty() ? QStringLiteral(MORVANE_VAULTD)
                                      : QStringLiteral(MORVANE_VAULTD_FAULTY),
                     arguments());
    const bool isUp = QTest::qWaitFor(
        [this] {
            m_client = std::make_unique<ServiceClient>(m_tree->path("s"));
            return m_process->state() == QProcess::NotRunning || m_client->connectNow();
        },
        20000);
    return isUp && m_client->isConnected() && ask("vault.getStatus").success;
}

void TestVaultdProcess::stop()
{
    m_client.reset();
    if (m_process && m_process->state() != QProcess::NotRunning) {
        ::kill(pid_t(m_process->processId()), SIGKILL);
        m_process->waitForFinished(10000);
    }
    m_process.reset();
}

/// The ids that the command prints; empty if it fails.
QStringList TestVaultdProcess::protect(const QStringList &paths, const Environment &faults)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (auto it = faults.cbegin(); it != faults.cend(); ++it)
        environment.insert(it.key(), it.value());
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(faults.isEmpty() ? QStringLiteral(MORVANE_VAULTD)
                                   : QStringLiteral(MORVANE_VAULTD_FAULTY),
                  arguments() + QStringList{QStringLiteral("--protect")} + paths);
    if (!process.waitForFinished(20000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0)
        return QStringList();
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed().split(QLatin1Char('\n'));
}

bool TestVaultdProcess::waitForEvent(const char *name, const QJsonObject &data)
{
    return QTest::qWaitFor(
        [&] {
            for (const ServiceClient::Event &event : m_client->events())
                if (event.name == QLatin1String(name) && event.data == data)
                    return true;
            return false;
        },
        20000);
}

int TestVaultdProcess::eventCount(const char *name) const
{
    int count = 0;
    for (const ServiceClient::Event &event : m_client->events())
        count += event.name == QLatin1String(name) ? 1 : 0;
    return count;
}

/// A good configuration with changes to it; a null takes the key away.
QJsonObject TestVaultdProcess::config(const QJsonObject &changes)
{
    QJsonObject config =
        json(R"({"protectedDirs":["/home/a"],"protectedExtensions":["txt","tar.gz"],
        "retentionDays":7,"maxSpaceBytes":0,"emergencyThresholdBytes":0})");
    for (auto it = changes.begin(); it != changes.end(); ++it) {
        if (it.value().isNull())
            config.remove(it.key());
        else
            config.insert(it.key(), it.value());
    }
    return config;
}

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
    process.setWorkingDirectory(m_tree->path());
    process.start(QStringLiteral(MORVANE_VAULTD), arguments);
    process.closeWriteChannel();
    QVERIFY(process.waitForFinished(20000));
    QCOMPARE(process.exitCode(), 1);
    QVERIFY(!process.readAllStandardError().isEmpty());
}

void TestVaultdProcess::refusesConfigurations_data()
{
    QTest::addColumn<QByteArray>("changes");
    QTest::addColumn<QString>("word"); // In the message.
    const auto row = [](const char *name, const QByteArray &changes, const char *word) {
        QTest::newRow(name) << changes << text(word);
    };
    for (const char *key : {"protectedDirs", "protectedExtensions", "retentionDays",
                            "maxSpaceBytes", "emergencyThresholdBytes"}) {
        row(qPrintable(QStringLiteral("no ") + QLatin1String(key)),
            "{\"" + QByteArray(key) + "\":null}", key);
        row(qPrintable(QStringLiteral("text as ") + QLatin1String(key)),
            "{\"" + QByteArray(key) + "\":\"7\"}", key);
    }
    row("relative folder", R"({"protectedDirs":["/home","home/a"]})", "home/a");
    row("folder with steps up", R"({"protectedDirs":["/home/../etc"]})", "保护目录");
    row("folder in the vault", R"({"protectedDirs":["/home/.morvane_vault/x"]})", "保护目录");
    row("number as a folder", R"({"protectedDirs":[7]})", "保护目录");
    row("upper case", R"({"protectedExtensions":["txt","TXT"]})", "TXT");
    row("with its dot", R"({"protectedExtensions":[".txt"]})", "保护类型");
    row("empty extension", R"({"protectedExtensions":[""]})", "保护类型");
    row("path as an extension", R"({"protectedExtensions":["a/b"]})", "保护类型");
    row("no days", R"({"retentionDays":0})", "1 到 3650");
    row("half a day", R"({"retentionDays":1.5})", "保留天数");
    row("too many days", R"({"retentionDays":3651})", "保留天数");
    row("negative space", R"({"maxSpaceBytes":-1})", "空间上限");
    row("more than exact", R"({"maxSpaceBytes":1e17})", "空间上限");
    row("negative threshold", R"({"emergencyThresholdBytes":-1})", "紧急释放阈值");
}

void TestVaultdProcess::refusesConfigurations()
{
    QFETCH(QByteArray, changes);
    QFETCH(QString, word);
    QVERIFY(start());
    const QJsonObject before = ask("vault.getConfig").data;
    const ServiceClient::Answer answer = ask("vault.setConfig", config(json(changes.constData())));
    QVERIFY(!answer.success);
    QVERIFY2(answer.errorMessage.contains(word), qPrintable(answer.errorMessage));
    QCOMPARE(ask("vault.getConfig").data, before);
    QVERIFY(!QFile::exists(m_tree->path("state/config.json")));
}

void TestVaultdProcess::keepsItsSettings()
{
    QVERIFY(start());
    QCOMPARE(ask("vault.getStatus").data,
             json(R"({"running":true,"enabled":false,"preloadActive":false,"soFileExists":false,
                  "needReboot":false,"protectedFileCount":0,"usedSpaceBytes":0,"deployMode":""})"));
    QCOMPARE(ask("vault.getConfig").data.size(), 5);
    QVERIFY(ask("vault.setConfig", config(json(R"({"protectedDirs":["/home/a/","/home/a","/b"]})")))
                .success);
    for (const char *method : {"vault.enable", "vault.enableGlobal"})
        QCOMPARE(ask(method).data,
                 json(R"({"success":true,"deployMode":"degraded","needReboot":false})"));

    QVERIFY(start());
    QCOMPARE(ask("vault.getConfig").data, config(json(R"({"protectedDirs":["/home/a","/b"]})")));
    QVERIFY(ask("vault.getStatus").data.value(QLatin1String("enabled")).toBool());
    QCOMPARE(ask("vault.getDeployMode").data, json(R"({"deployMode":"degraded"})"));
    QVERIFY(ask("vault.disable").success);
    // What is kept may be anything; the service starts all the same.
    m_tree->file("state/config.json", R"({"retentionDays":"x"})");
    QVERIFY(start());
    QCOMPARE(ask("vault.getConfig").data.value(QLatin1String("retentionDays")).toInt(), 30);
    QCOMPARE(ask("vault.getDeployMode").data, json(R"({"deployMode":""})"));
}

void TestVaultdProcess::refusesRequests_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QByteArray>("params"); // "@" stands for the tree.
    const auto row = [](const char *name, const char *method, const char *params) {
        QTest::newRow(name) << QByteArray("vault.") + method << QByteArray(params);
    };
    row("unknown", "format", "{}");
    row("limit", "listFiles", R"({"limit":-1})");
    row("offset", "listFiles", R"({"offset":"0"})");
    row("filter", "listFiles", R"({"filter":3})");
    row("no ids", "deleteFiles", "{}");
    row("empty ids", "deleteFiles", R"({"fileIds":[]})");
    row("id that steps up", "deleteFiles", R"({"fileIds":["../../file"]})");
    row("id with a dot", "deleteFiles", R"({"fileIds":["a.b"]})");
    row("id that is a number", "deleteFiles", R"({"fileIds":[1]})");
    row("hostile id to restore", "restoreFiles", R"({"fileIds":["a/b"],"targetDir":"@/home"})");
    row("no target", "restoreFiles", R"({"fileIds":["a"]})");
    row("relative target", "restoreFiles", R"({"fileIds":["a"],"targetDir":"home"})");
    row("missing target", "restoreFiles", R"({"fileIds":["a"],"targetDir":"@/none"})");
    row("file as target", "restoreFiles", R"({"fileIds":["a"],"targetDir":"@/file"})");
    row("vault as target", "restoreFiles",
        R"({"fileIds":["a"],"targetDir":"@/home/.morvane_vault/.meta"})");
    row("name that is none", "authenticate", R"({"username":1,"password":"x"})");
    row("password that is none", "authenticate", R"({"username":"x"})");
    row("no package", "installPackage", R"({"packagePath":"@/none","arch":"a","launchEnv":{}})");
    row("no arch", "installPackage", R"({"packagePath":"@/file","launchEnv":{}})");
    row("variables", "installPackage",
        R"({"packagePath":"@/file","arch":"a","launchEnv":{"DISPLAY":1}})");
    row("port", "syncShareFirewall", R"({"active":true,"port":65536})");
    row("active", "syncShareFirewall", R"({"active":1,"port":9800})");
}

void TestVaultdProcess::refusesRequests()
{
    QFETCH(QByteArray, method);
    QFETCH(QByteArray, params);
    m_tree->file("file");
    QVERIFY(start());
    params.replace("@", m_tree->path().toUtf8());
    const ServiceClient::Answer answer = ask(method.constData(), json(params.constData()));
    QVERIFY(!answer.success);
    QVERIFY(answer.errorCode != 0);
    QVERIFY(!answer.errorMessage.isEmpty());
    QVERIFY(QFile::exists(m_tree->path("file")));
}

void TestVaultdProcess::protectsListsAndRemoves()
{
    QVERIFY(start());
    const QString report = m_tree->file("home/报告 A.txt", kContent);
    const QString photo = m_tree->file("home/Pictures/photo.jpg", "pixels");
    const QStringList ids = protect({report, photo});
    QCOMPARE(ids.size(), 2);
    QVERIFY(!QFile::exists(report) && !QFile::exists(photo));
    QTRY_COMPARE_WITH_TIMEOUT(eventCount("vault.fileProtected"), 2, 20000);
    for (const QJsonValue &file : list())
        QVERIFY(waitForEvent("vault.fileProtected", {{QStringLiteral("file"), file}}));
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
    QCOMPARE(ask("vault.listFiles", json(R"({"limit":1,"offset":2})")).data,
             json(R"({"files":[],"totalCount":2})"));
    QCOMPARE(ask("vault.getStatus").data.value(QLatin1String("usedSpaceBytes")).toInt(),
             kContent.size() + 6);

    // One is there and goes; the other is not there, and makes it a partial success.
    const ServiceClient::Answer answer =
        ask("vault.deleteFiles",
            {{QStringLiteral("fileIds"), QJsonArray{ids.at(0), QStringLiteral("gone")}}});
    QVERIFY(answer.success && !answer.data.value(QLatin1String("success")).toBool(true));
    QCOMPARE(list().size(), 1);
    QVERIFY(ask("vault.clearAll").data.value(QLatin1String("success")).toBool());
    QCOMPARE(list().size(), 0);
    QVERIFY(QDir(m_tree->path("home/.morvane_vault")).entryList(QDir::Files).isEmpty());
    QVERIFY(QDir(m_tree->path("home/.morvane_vault/.meta")).entryList(QDir::Files).isEmpty());
}

void TestVaultdProcess::restoresWithoutOverwriting()
{
    const QString name = QStringLiteral("home/a.txt");
    const QStringList ids = protect({m_tree->file(name, kContent)});
    m_tree->file("out/a.txt", "another");
    m_tree->file("out/a (1).txt", "a third");
    QVERIFY(start());
    const QJsonObject params{{QStringLiteral("fileIds"), QJsonArray::fromStringList(ids)},
                             {QStringLiteral("targetDir"), m_tree->path("out")}};
    const QJsonObject data = ask("vault.restoreFiles", params).data;
    QVERIFY(data.value(QLatin1String("success")).toBool());
    QCOMPARE(data.value(QLatin1String("restored"))
                 .toArray()
                 .at(0)
                 .toObject()
                 .value(QLatin1String("path")),
             QJsonValue(m_tree->path("out/a (2).txt")));
    QCOMPARE(readAll(m_tree->path("out/a.txt")), QByteArray("another"));
    QCOMPARE(readAll(m_tree->path("out/a (1).txt")), QByteArray("a third"));
    QCOMPARE(readAll(m_tree->path("out/a (2).txt")), kContent);
    QCOMPARE(QDir(m_tree->path("out")).entryList(QDir::Files | QDir::Hidden).size(), 3);
    QCOMPARE(list().size(), 0);
    QVERIFY(!ask("vault.restoreFiles", params).data.value(QLatin1String("success")).toBool(true));
}

void TestVaultdProcess::answersDuringLongWork()
{
    const QStringList ids = protect({m_tree->file("home/a.txt", kContent)});
    QVERIFY(start());
    // Whoever holds the vault keeps its thread waiting.
    const int fd = ::open(QFile::encodeName(m_tree->path("home/.morvane_vault")).constData(),
                          O_RDONLY | O_DIRECTORY);
    QVERIFY(fd >= 0 && ::flock(fd, LOCK_EX) == 0);
    bool isDone = false;
    core::ipc::IpcClient other(m_tree->path("s"));
    QVERIFY(other.ensureConnected(3000));
    other.sendRequest(QStringLiteral("vault.clearAll"), QJsonObject(),
                      [&isDone](bool success, const QJsonObject &data, const QJsonObject &) {
                          isDone = success && data.value(QLatin1String("success")).toBool();
                      });
    for (int i = 0; i < 3; ++i)
        QCOMPARE(list().size(), 1);
    QVERIFY(!isDone);
    QVERIFY(
        QFile::exists(m_tree->path(QStringLiteral("home/.morvane_vault/%1.dat").arg(ids.at(0)))));
    ::close(fd);
    QTRY_VERIFY_WITH_TIMEOUT(isDone, 20000);
    QCOMPARE(list().size(), 0);
}

void TestVaultdProcess::expiresWhatExceedsTheLimits()
{
    QVERIFY(start());
    QVERIFY(ask("vault.setConfig", config(json(R"({"maxSpaceBytes":1000})"))).success);
    const QString first = protect({m_tree->file("home/1", QByteArray(600, 'a'))}).value(0);
    QTRY_COMPARE_WITH_TIMEOUT(list().size(), 1, 20000);
    QCOMPARE(eventCount("vault.spaceWarning"), 0);
    // The next one leaves less than a tenth; the third makes the oldest go.
    protect({m_tree->file("home/2", QByteArray(300, 'b'))});
    QVERIFY(waitForEvent("vault.spaceWarning", json(R"({"usedBytes":900,"maxBytes":1000})")));
    QTest::qWait(1100); // The age of files counts in seconds.
    protect({m_tree->file("home/3", QByteArray(300, 'c'))});
    QTRY_COMPARE_WITH_TIMEOUT(eventCount("vault.fileExpired"), 1, 20000);
    QTRY_COMPARE_WITH_TIMEOUT(eventCount("vault.fileProtected"), 3, 20000);
    // The first two may be of one second, and then either is the oldest.
    QVERIFY(list().size() <= 2);
    QVERIFY(ask("vault.setConfig", config(json(R"({"maxSpaceBytes":1})"))).success);
    QVERIFY(waitForEvent("vault.fileExpired", {{QStringLiteral("fileId"), first}}));
    QTRY_COMPARE_WITH_TIMEOUT(list().size(), 0, 20000);
}

void TestVaultdProcess::authenticates()
{
    const auto enter = [this](const char *user, const char *password) {
        const ServiceClient::Answer answer =
            ask("vault.authenticate", {{QStringLiteral("username"), text(user)},
                                       {QStringLiteral("password"), text(password)}});
        // A refusal is a plain answer with a message, an admission has none.
        const bool isIn = answer.data.value(QLatin1String("success")).toBool();
        const QString message = answer.data.value(QLatin1String("message")).toString();
        return answer.success && isIn == message.isEmpty() && isIn;
    };
    QVERIFY(start());
    QVERIFY(!enter("me", "secret"));

    m_extraArguments = QStringList{QStringLiteral("--password-file"), m_tree->path("passwords")};
    const auto setPassword = [this](const char *user, const char *password) {
        QProcess process;
        process.start(QStringLiteral(MORVANE_VAULTD),
                      m_extraArguments + QStringList{QStringLiteral("--set-password"), text(user)});
        process.write(password);
        process.closeWriteChannel();
        return process.waitForFinished(20000) && process.exitCode() == 0;
    };
    QVERIFY(setPassword("me", "old\n"));
    QVERIFY(setPassword("you", "密码\n"));
    QVERIFY(setPassword("me", "secret"));
    QVERIFY(!setPassword("me", "\n"));
    QVERIFY(!setPassword("a:b", "secret\n"));
    struct stat info;
    QCOMPARE(::stat(QFile::encodeName(m_tree->path("passwords")).constData(), &info), 0);
    QCOMPARE(info.st_mode & 07777, mode_t(0600));
    QVERIFY(!readAll(m_tree->path("passwords")).contains("secret"));

    QVERIFY(start());
    QVERIFY(enter("me", "secret"));
    QVERIFY(enter("you", "密码"));
    for (const char *password : {"", "old", "Secret", "secret ", "密码"})
        QVERIFY(!enter("me", password));
    QVERIFY(!enter("", "secret") && !enter("me:", "secret") && !enter("nobody", "secret"));
    QVERIFY(QFile::setPermissions(m_tree->path("passwords"),
                                  QFile::ReadOwner | QFile::WriteOwner | QFile::WriteOther));
    QVERIFY(!enter("me", "secret"));
}

void TestVaultdProcess::recordsRequestsToTheSystem()
{
    const QString package = m_tree->file("p.deb");
    QVERIFY(start());
    const QJsonObject install{
        {QStringLiteral("packagePath"), package},
        {QStringLiteral("arch"), QStringLiteral("amd64")},
        {QStringLiteral("launchEnv"), json(R"({"DISPLAY":":0","LANG":"zh_CN.UTF-8"})")}};
    const QJsonObject firewall = json(R"({"active":true,"port":9800})");
    const auto recorded = [this](const char *name) {
        QJsonObject object = json(readAll(m_tree->path(name)).constData());
        object.remove(QStringLiteral("requestedAt"));
        return object;
    };
    for (const auto &answer :
         {ask("vault.installPackage", install), ask("vault.syncShareFirewall", firewall)}) {
        QVERIFY(answer.success && answer.data.value(QLatin1String("success")).toBool());
        QVERIFY(!answer.data.value(QLatin1String("message")).toString().isEmpty());
    }
    QCOMPARE(recorded("state/install.json"), install);
    QCOMPARE(recorded("state/firewall.json"), firewall);
}

/// Where a file that was to be moved by the operation is now: once and whole, with nothing half
/// done beside it. What speaks against that, or nothing.
QString TestVaultdProcess::amissInTree(const QString &operation)
{
    QStringList holders;
    QDirIterator it(m_tree->path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        if (readAll(path) == kContent)
            holders.append(path);
        else if (path.endsWith(QLatin1String(".part")) || path.endsWith(QLatin1String(".tmp")) ||
                 path.contains(QLatin1String(".morvane_restore_")) ||
                 path.endsWith(QLatin1String("restoring.json")))
            return QStringLiteral("left behind: ") + path;
    }
    const QJsonArray files = list();
    const QString source = m_tree->path("home/a.txt");
    if (readAll(m_tree->path("out/a.txt")) != "another")
        return QStringLiteral("overwritten");
    if (operation == QLatin1String("vault.deleteFiles") && holders.isEmpty())
        return files.isEmpty() ? QString() : QStringLiteral("listed without content");
    if (holders.size() != 1)
        return QStringLiteral("held by: ") + holders.join(QLatin1Char(' '));
    const QString home =
        operation == QLatin1String("protect") ? source : m_tree->path("out/a (1).txt");
    if (holders.at(0) == home)
        return files.isEmpty() ? QString() : QStringLiteral("listed, though it is outside");
    const QJsonObject file = files.at(0).toObject();
    const QString content = m_tree->path(QStringLiteral("home/.morvane_vault/%1.dat")
                                             .arg(file.value(QLatin1String("id")).toString()));
    return files.size() == 1 && holders.at(0) == content &&
                   file.value(QLatin1String("originalPath")).toString() == source
               ? QString()
               : QStringLiteral("not to be found: ") + holders.at(0);
}

void TestVaultdProcess::losesNothingWhenKilled_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<bool>("isOtherDevice");
    QTest::addColumn<int>("stepCount"); // At least.
    const QString restore = QStringLiteral("vault.restoreFiles");
    QTest::newRow("protect") << QStringLiteral("protect") << false << 9;
    QTest::newRow("protect from another disk") << QStringLiteral("protect") << true << 14;
    QTest::newRow("restore") << restore << false << 12;
    QTest::newRow("restore to another disk") << restore << true << 14;
    QTest::newRow("delete") << QStringLiteral("vault.deleteFiles") << false << 8;
}

void TestVaultdProcess::losesNothingWhenKilled()
{
    QFETCH(QString, operation);
    QFETCH(bool, isOtherDevice);
    QFETCH(int, stepCount);
    const QString dieAt = QStringLiteral("MORVANE_TEST_DIE_AT");
    bool wasKilled = true;
    int step = 0;
    while (wasKilled) {
        QVERIFY(++step < kMaxSteps);
        stop();
        init();
        const QString source = m_tree->file("home/a.txt", kContent);
        m_tree->file("out/a.txt", "another");
        Environment faults{{dieAt, QString::number(step)}};
        if (isOtherDevice)
            faults.insert(QStringLiteral("MORVANE_TEST_OTHER_DEVICE"), QStringLiteral("1"));
        if (operation == QLatin1String("protect")) {
            wasKilled = protect({source}, faults).isEmpty();
        } else {
            const QStringList ids = protect({source});
            QCOMPARE(ids.size(), 1);
            const QJsonObject params{{QStringLiteral("fileIds"), QJsonArray::fromStringList(ids)},
                                     {QStringLiteral("targetDir"), m_tree->path("out")}};
            wasKilled = !start(faults) || !m_client->request(operation, params).success;
        }
        // The repair may be killed too, sooner or later in it.
        start({{dieAt, QString::number(3 + step % 7)}});
        QVERIFY(start());
        QVERIFY2(amissInTree(operation).isEmpty(),
                 qPrintable(QStringLiteral("step %1: ").arg(step) + amissInTree(operation)));
    }
    QVERIFY2(step > stepCount, qPrintable(QString::number(step)));
    // In the end it is done.
    QCOMPARE(list().size(), operation == QLatin1String("protect") ? 1 : 0);
}

void TestVaultdProcess::endsWithItsParent()
{
    const auto answers = [this] {
        return ServiceClient(m_tree->path("s")).connectNow();
    };
    QProcess shell;
    shell.start(QStringLiteral("/bin/sh"),
                QStringList{QStringLiteral("-c"), QStringLiteral("\"$0\" \"$@\" & wait"),
                            QStringLiteral(MORVANE_VAULTD), QStringLiteral("--exit-with-parent")} +
                    arguments());
    QVERIFY(QTest::qWaitFor(answers, 20000));
    QCOMPARE(::kill(pid_t(shell.processId()), SIGKILL), 0);
    QVERIFY(shell.waitForFinished(10000));
    QVERIFY(QTest::qWaitFor([&answers] { return !answers(); }, 20000));
}

QTEST_GUILESS_MAIN(TestVaultdProcess)
#include "tst_vaultd_process.moc"
