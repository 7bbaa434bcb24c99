#include "support/serviceclient.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QTest>

#include <csignal>
#include <cstdio>
#include <grp.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kPatienceMs = 30000;
constexpr uid_t kAlice = 4001;
constexpr uid_t kBob = 4002;

const QString kSocket = QStringLiteral("/run/morvane/morvane-vault-v1");
const QString kList = QStringLiteral("/etc/ld.so.preload");
const QString kLibrary = QStringLiteral("/run/lib/libmorvane-guard.so");
const QString kPython = QStringLiteral("/usr/bin/python3"); // A user cannot start every other one.
const QString kState = QStringLiteral("/run/state");

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString &path, const QByteArray &bytes, mode_t mode = 0644)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush() &&
           ::fchmod(file.handle(), mode) == 0;
}

bool run(const QString &command, uid_t uid = 0)
{
    return QProcess::execute(QStringLiteral("/usr/bin/setpriv"),
                             {QStringLiteral("--reuid=%1").arg(uid),
                              QStringLiteral("--regid=%1").arg(uid),
                              QStringLiteral("--clear-groups"), QStringLiteral("/bin/sh"),
                              QStringLiteral("-c"), command}) == 0;
}

/// For a shell of root's: runs the command as alice.
QString asAlice(const QString &command)
{
    return QStringLiteral("setpriv --reuid=%1 --regid=%1 --clear-groups ").arg(kAlice) + command;
}

QByteArray outputOf(const QString &command)
{
    QProcess process;
    process.start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), command});
    process.waitForFinished(kPatienceMs);
    return process.readAllStandardOutput();
}

QJsonObject ask(const char *method, const QJsonObject &params = QJsonObject())
{
    return {{QStringLiteral("method"), QLatin1String(method)}, {QStringLiteral("params"), params}};
}

QJsonObject login(const char *user, const char *password)
{
    return ask("authenticate", {{QStringLiteral("username"), QLatin1String(user)},
                                {QStringLiteral("password"), QLatin1String(password)}});
}

/// The other end: asks as another user, over one connection, what stands in the standard input.
int runClient(uid_t uid)
{
    if (::setgroups(0, nullptr) != 0 || ::setgid(uid) != 0 || ::setuid(uid) != 0)
        return 1;
    QFile input;
    if (!input.open(stdin, QIODevice::ReadOnly))
        return 1;
    testsupport::ServiceClient client(kSocket);
    if (!QTest::qWaitFor([&client] { return client.connectNow(); }, kPatienceMs))
        return 1;
    QJsonArray answers;
    const QJsonArray requests = QJsonDocument::fromJson(input.readAll()).array();
    for (const QJsonValue &value : requests) {
        const QJsonObject request = value.toObject();
        const auto answer = client.request(QStringLiteral("vault.") +
                                               request.value(QLatin1String("method")).toString(),
                                           request.value(QLatin1String("params")).toObject());
        QJsonObject data = answer.data;
        if (!answer.success)
            data = {{QStringLiteral("code"), answer.errorCode},
                    {QStringLiteral("message"), answer.errorMessage}};
        answers.append(data);
    }
    std::fputs(QJsonDocument(answers).toJson(QJsonDocument::Compact).constData(), stdout);
    return 0;
}

/// A Qt program that deletes as another user.
int runRemover(uid_t uid, const QString &path)
{
    return ::setgroups(0, nullptr) == 0 && ::setgid(uid) == 0 && ::setuid(uid) == 0 &&
                   QFile::remove(path)
               ? 0
               : 1;
}

QVector<QJsonObject> askAs(uid_t uid, const QJsonArray &requests)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QCoreApplication::applicationFilePath(),
                  {QStringLiteral("--client"), QString::number(uid)});
    process.write(QJsonDocument(requests).toJson());
    process.closeWriteChannel();
    process.waitForFinished(2 * kPatienceMs);
    QVector<QJsonObject> answers;
    const QJsonArray array = QJsonDocument::fromJson(process.readAllStandardOutput()).array();
    for (const QJsonValue &answer : array)
        answers.append(answer.toObject());
    answers.resize(requests.size());
    return answers;
}

bool isTrue(const QJsonObject &answer, const char *key)
{
    return answer.value(QLatin1String(key)).toBool();
}

} // namespace

/// The service for all users, in a system of its own.
class TestVaultdSystem : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void servesEachUserAlone();
    void letsInByPam();
    void provesDeploysAndGivesBack();
    void bringsBackWhatProgramsDelete_data();
    void bringsBackWhatProgramsDelete();
    void takesBackWhatDoesNotWork_data();
    void takesBackWhatDoesNotWork();
    void repairsAndRemovesTheList();
    void opensAndClosesThePort();
    void installsWhatWasAllowed();

private:
    bool start();
    bool command(const QString &option);

    std::unique_ptr<QProcess> m_service;
};

void TestVaultdSystem::initTestCase()
{
    if (qEnvironmentVariableIsEmpty("MORVANE_PRIVATE_SYSTEM"))
        QSKIP("needs root, for a private /etc, /run and /home");
    // Programs that stand in for those of the system.
    QVERIFY(QDir().mkpath(QStringLiteral("/run/bin")) && QDir().mkpath(QStringLiteral("/run/lib")));
    qputenv("PATH", "/run/bin:" + qgetenv("PATH"));
}

void TestVaultdSystem::init()
{
    QFile::remove(kLibrary);
    QVERIFY(QFile::copy(QStringLiteral(MORVANE_GUARD), kLibrary));
}

void TestVaultdSystem::cleanup()
{
    if (m_service) {
        m_service->terminate();
        QVERIFY(m_service->state() == QProcess::NotRunning ||
                m_service->waitForFinished(kPatienceMs));
        m_service.reset();
    }
    QFile::remove(kList);
    QVERIFY(
        run(QStringLiteral("rm -rf /run/state /run/bin/*; chattr -R -a -i /home/*/.morvane_vault "
                           "2>/dev/null; rm -rf /home/*/* /home/*/.morvane*")));
}

bool TestVaultdSystem::start()
{
    m_service = std::make_unique<QProcess>();
    m_service->setProcessChannelMode(QProcess::ForwardedChannels);
    m_service->start(QStringLiteral(MORVANE_VAULTD),
                     {QStringLiteral("--system"), QStringLiteral("--state"), kState,
                      QStringLiteral("--hook-library"), kLibrary});
    return QTest::qWaitFor([] { return QFile::exists(kSocket); }, kPatienceMs);
}

bool TestVaultdSystem::command(const QString &option)
{
    return QProcess::execute(QStringLiteral(MORVANE_VAULTD),
                             {option, QStringLiteral("--state"), kState,
                              QStringLiteral("--hook-library"), kLibrary}) == 0;
}

void TestVaultdSystem::servesEachUserAlone()
{
    // Who has taken the former name does not keep the service from starting.
    QVERIFY(run(QStringLiteral("touch /run/tmp/morvane-vault-v1"), kBob));
    QVERIFY(start());
    struct stat folder;
    struct stat socket;
    QCOMPARE(::stat("/run/morvane", &folder), 0);
    QCOMPARE(::stat("/run/morvane/morvane-vault-v1", &socket), 0);
    QVERIFY(folder.st_uid == 0 && (folder.st_mode & 0777) == 0755);
    QVERIFY(socket.st_uid == 0 && (socket.st_mode & 0777) == 0666);

    const QJsonObject config{
        {QStringLiteral("protectedDirs"), QJsonArray{QStringLiteral("/home/alice/w")}},
        {QStringLiteral("protectedExtensions"), QJsonArray{QStringLiteral("odt")}},
        {QStringLiteral("retentionDays"), 7},
        {QStringLiteral("maxSpaceBytes"), 0},
        {QStringLiteral("emergencyThresholdBytes"), 0}};
    QCOMPARE(askAs(kAlice, {ask("setConfig", config), ask("getConfig")}).at(1), config);
    const QJsonObject bobs = askAs(kBob, {ask("getConfig")}).at(0);
    QCOMPARE(bobs.value(QLatin1String("protectedDirs")).toArray(),
             QJsonArray{QStringLiteral("/home/bob")});
    QVERIFY(!run(QStringLiteral("ls /run/state"), kBob));
    // An account without a home has no vault, and is told so.
    QVERIFY(!askAs(65534, {ask("getStatus")}).at(0).value(QLatin1String("message")).isUndefined());
}

void TestVaultdSystem::letsInByPam()
{
    QVERIFY(start());
    const auto answers =
        askAs(kAlice, {ask("clearAll"), login("alice", "secret-bob"), login("bob", "secret-bob"),
                       ask("clearAll"), login("alice", "secret-alice"), ask("clearAll")});
    QCOMPARE(answers.at(0).value(QLatin1String("code")).toInt(), 403);
    QVERIFY(!isTrue(answers.at(1), "success") && !isTrue(answers.at(2), "success"));
    QCOMPARE(answers.at(3).value(QLatin1String("code")).toInt(), 403);
    QVERIFY(isTrue(answers.at(4), "success") && isTrue(answers.at(5), "success"));
    // Of this connection alone.
    QCOMPARE(askAs(kAlice, {ask("clearAll")}).at(0).value(QLatin1String("code")).toInt(), 403);
}

void TestVaultdSystem::provesDeploysAndGivesBack()
{
    QVERIFY(start());
    QVERIFY(writeFile(kList, "# kept\n", 0664));
    const auto enabled = askAs(kAlice, {ask("enable"), ask("getStatus"), ask("listFiles")});
    QVERIFY2(isTrue(enabled.at(0), "success"), QJsonDocument(enabled.at(0)).toJson().constData());
    QCOMPARE(contentOf(kList), "# kept\n" + QFile::encodeName(kLibrary) + '\n');
    struct stat list;
    QVERIFY(::stat(QFile::encodeName(kList).constData(), &list) == 0 &&
            (list.st_mode & 0777) == 0664);
    QCOMPARE(contentOf(kState + QStringLiteral("/ld.so.preload.before")), QByteArray("# kept\n"));
    QVERIFY(isTrue(enabled.at(1), "preloadActive") && isTrue(enabled.at(1), "soFileExists"));
    // This program is older than the deployment.
    QVERIFY(isTrue(enabled.at(1), "needReboot"));
    QCOMPARE(enabled.at(1).value(QLatin1String("deployMode")).toString(),
             QStringLiteral("pending_reboot"));

    // Deleted by a fresh program, with its folder.
    const QString file = QStringLiteral("/home/alice/d/a.txt");
    QVERIFY(run(QStringLiteral("mkdir -m 750 ~alice/d && cd ~alice/d && echo content >a.txt && "
                               "chmod 640 a.txt && setfacl -m u:4002:r a.txt && "
                               "setfattr -n user.tag -v x a.txt && touch -d @2000 a.txt"),
                kAlice));
    const QString look = QStringLiteral("stat -c '%a %u %g %Y' ") + file +
                         QStringLiteral("; getfacl -cp ") + file + QStringLiteral("; cat ") + file;
    const QByteArray before = outputOf(look);
    QVERIFY(before.contains("user:4002:r--") || before.contains("user:bob:r--"));
    QVERIFY(run(QStringLiteral("rm -r ~alice/d"), kAlice));
    QJsonArray files;
    QVERIFY(QTest::qWaitFor(
        [&files] {
            files = askAs(kAlice, {ask("listFiles")}).at(0).value(QLatin1String("files")).toArray();
            return files.size() == 1;
        },
        kPatienceMs));
    QCOMPARE(files.at(0).toObject().value(QLatin1String("originalPath")).toString(), file);
    QVERIFY(
        askAs(kBob, {ask("listFiles")}).at(0).value(QLatin1String("files")).toArray().isEmpty());
    const QJsonObject back{
        {QStringLiteral("fileIds"), QJsonArray{files.at(0).toObject().value(QLatin1String("id"))}},
        {QStringLiteral("targetDir"), QString()}};
    QJsonObject elsewhere = back;
    elsewhere.insert(QStringLiteral("targetDir"), QStringLiteral("/home/bob"));
    const auto restored =
        askAs(kAlice, {ask("restoreFiles", elsewhere), ask("restoreFiles", back)});
    QVERIFY(restored.at(0).contains(QLatin1String("code")));
    QVERIFY(isTrue(restored.at(1), "success"));
    QCOMPARE(outputOf(look), before);

    QVERIFY(isTrue(askAs(kAlice, {ask("disable")}).at(0), "success"));
    QCOMPARE(contentOf(kList), QByteArray("# kept\n"));
}

void TestVaultdSystem::bringsBackWhatProgramsDelete_data()
{
    QTest::addColumn<QString>("command"); // %f is the file, to be deleted by alice.
    QTest::newRow("rm") << asAlice(QStringLiteral("rm '%f'"));
    QTest::newRow("python3") << asAlice(kPython +
                                        QStringLiteral(" -c \"import os; os.remove('%f')\""));
    QTest::newRow("QFile::remove") << QStringLiteral("'%1' --remove %2 '%f'")
                                          .arg(QCoreApplication::applicationFilePath())
                                          .arg(kAlice);
}

/// By the system's own preload list, and back by the requests of the page.
void TestVaultdSystem::bringsBackWhatProgramsDelete()
{
    QFETCH(QString, command);
    if (command.contains(QLatin1String("python3")) && !QFile::exists(kPython))
        QSKIP("python3 is not installed for all users");
    QVERIFY(start());
    QVERIFY(isTrue(askAs(kAlice, {ask("enable")}).at(0), "success"));
    const QString file = QStringLiteral("/home/alice/年度 报告.txt");
    QVERIFY(run(QStringLiteral("head -c 300000 /dev/urandom >'%1' && chmod 604 '%1' && "
                               "setfattr -n user.tag -v value '%1' && "
                               "touch -d '2001-02-03 04:05:06.123456789' '%1'")
                    .arg(file),
                kAlice));
    const QString look = QStringLiteral("stat -c '%n %a %u %g %s %x %y' '") + file +
                         QStringLiteral("'; getfattr -d --absolute-names '") + file +
                         QStringLiteral("'; sha256sum '") + file + QLatin1Char('\'');
    const QByteArray before = outputOf(look);
    QVERIFY(before.contains("user.tag=\"value\"") && before.contains(".123456789"));
    // What looked at it has read it.
    QVERIFY(run(QStringLiteral("touch -a -d '2001-02-03 04:05:06.5' '%1'").arg(file), kAlice));
    const QString times = QStringLiteral("stat -c '%x %y' '") + file + QLatin1Char('\'');
    const QByteArray timesBefore = outputOf(times);

    QCOMPARE(QProcess::execute(QStringLiteral("/bin/sh"),
                               {QStringLiteral("-c"), command.replace(QStringLiteral("%f"), file)}),
             0);
    QVERIFY(!QFile::exists(file));
    QJsonObject listed;
    QVERIFY(QTest::qWaitFor(
        [&listed] {
            listed = askAs(kAlice, {ask("listFiles")})
                         .at(0)
                         .value(QLatin1String("files"))
                         .toArray()
                         .at(0)
                         .toObject();
            return !listed.isEmpty();
        },
        kPatienceMs));
    QCOMPARE(listed.value(QLatin1String("originalPath")).toString(), file);
    const QJsonObject back{
        {QStringLiteral("fileIds"), QJsonArray{listed.value(QLatin1String("id"))}},
        {QStringLiteral("targetDir"), QString()}};
    QVERIFY(isTrue(askAs(kAlice, {ask("restoreFiles", back)}).at(0), "success"));
    QCOMPARE(outputOf(times), timesBefore);
    QVERIFY(
        run(QStringLiteral("touch -a -d '2001-02-03 04:05:06.123456789' '%1'").arg(file), kAlice));
    QCOMPARE(outputOf(look), before);
    QVERIFY(isTrue(askAs(kAlice, {ask("disable")}).at(0), "success"));
}

void TestVaultdSystem::takesBackWhatDoesNotWork_data()
{
    QTest::addColumn<QString>("library");
    QTest::newRow("empty") << QStringLiteral("/dev/null");
    QTest::newRow("garbage") << QStringLiteral("/etc/passwd");
    QTest::newRow("without the functions") << QStringLiteral("/lib/x86_64-linux-gnu/libm.so.6");
}

void TestVaultdSystem::takesBackWhatDoesNotWork()
{
    QFETCH(QString, library);
    if (!QFile::exists(library))
        QSKIP("no such library on this machine");
    QVERIFY(writeFile(kLibrary, contentOf(library), 0644));
    const QByteArray former("# mine");
    QVERIFY(writeFile(kList, former));
    QVERIFY(start());
    const auto answers = askAs(kAlice, {ask("enable"), ask("getStatus")});
    QVERIFY(answers.at(0).contains(QLatin1String("code")));
    QVERIFY(!isTrue(answers.at(1), "enabled"));
    QCOMPARE(contentOf(kList), former);
    QVERIFY(QDir(QStringLiteral("/home/alice"))
                .entryList({QStringLiteral(".morvane-probe*")}, QDir::Files | QDir::Hidden)
                .isEmpty());
}

void TestVaultdSystem::repairsAndRemovesTheList()
{
    const QByteArray entry = QFile::encodeName(kLibrary);
    const QByteArray list = "/none/other.so\n" + entry + '\n';
    QVERIFY(writeFile(kList, entry + '\n'));
    QVERIFY(command(QStringLiteral("--check-hook")));
    QCOMPARE(contentOf(kList), entry + '\n');
    QVERIFY(writeFile(kLibrary, "broken"));
    QVERIFY(writeFile(kList, list));
    QVERIFY(command(QStringLiteral("--check-hook")));
    QCOMPARE(contentOf(kList), QByteArray("/none/other.so\n"));
    QVERIFY(writeFile(kList, list) && QFile::remove(kLibrary));
    QVERIFY(command(QStringLiteral("--remove-hook")));
    QCOMPARE(contentOf(kList), QByteArray("/none/other.so\n"));
}

void TestVaultdSystem::opensAndClosesThePort()
{
    QVERIFY(writeFile(QStringLiteral("/run/bin/ufw"),
                      "#!/bin/sh\necho \"$@\" >>/run/state/ufw.log\n"
                      "[ \"$1\" = status ] && echo 'Status: active'\n"
                      "[ \"$2\" = added ] && echo 'ufw allow 9900/tcp'\nexit 0\n",
                      0755));
    const auto sync = [](bool isActive, int port) {
        return ask("syncShareFirewall",
                   {{QStringLiteral("active"), isActive}, {QStringLiteral("port"), port}});
    };
    const auto log = [] {
        return contentOf(QStringLiteral("/run/state/ufw.log"));
    };
    QVERIFY(start());
    const auto answers = askAs(kAlice, {sync(true, 9800), sync(true, 22), sync(true, 9801),
                                        sync(false, 9801), sync(true, 9900), sync(true, 9802)});
    QVERIFY(isTrue(answers.at(0), "success") && !isTrue(answers.at(1), "success"));
    QVERIFY(isTrue(answers.at(5), "success"));
    QCOMPARE(log().count("allow 9800/tcp comment morvane-share\n"), 1);
    QCOMPARE(log().count("delete allow 9800/tcp\n"), 1);
    QCOMPARE(log().count("delete allow 9801/tcp\n"), 1);
    QVERIFY(!log().contains("allow 9900/tcp comment")); // The administrator's.
    QVERIFY(!log().contains("delete allow 9802/tcp"));
    // After a crash by the next start; after that by the end.
    m_service->kill();
    QVERIFY(m_service->waitForFinished(kPatienceMs));
    QVERIFY(start());
    QTRY_COMPARE_WITH_TIMEOUT(log().count("delete allow 9802/tcp\n"), 1, kPatienceMs);
    QVERIFY(isTrue(askAs(kBob, {sync(true, 9803)}).at(0), "success"));
    m_service->terminate();
    QVERIFY(m_service->waitForFinished(kPatienceMs));
    QCOMPARE(log().count("delete allow 9803/tcp\n"), 1);
}

void TestVaultdSystem::installsWhatWasAllowed()
{
    QVERIFY(writeFile(QStringLiteral("/run/bin/apt-get"),
                      "#!/bin/sh\nfor package; do :; done\ncp \"$package\" /run/state/installed\n"
                      "echo pmstatus:morvane:50:Unpacking\necho Setting up\n"
                      "echo 'All done'; exit $(cat /run/state/exit 2>/dev/null || echo 0)\n",
                      0755));
    QVERIFY(writeFile(QStringLiteral("/run/bin/pkcheck"),
                      "#!/bin/sh\necho \"$@\" >/run/state/pkcheck.log\ntest -e /run/state/allow\n",
                      0755));
    QVERIFY(start());
    QVERIFY(run(QStringLiteral("cd ~alice && umask 022 && echo bytes >p.deb && echo x >o.deb && "
                               "chmod 666 o.deb"),
                kAlice));
    const auto install = [](const char *path) {
        return ask("installPackage", {{QStringLiteral("packagePath"), QLatin1String(path)},
                                      {QStringLiteral("arch"), QStringLiteral("amd64")},
                                      {QStringLiteral("launchEnv"), QJsonObject()}});
    };
    const auto refused = askAs(kAlice, {install("/home/alice/p.deb"), install("/home/alice/o.deb"),
                                        install("/etc/shadow"), install("/home/bob/none.deb")});
    for (const QJsonObject &answer : refused)
        QVERIFY(answer.value(QLatin1String("code")).toInt() != 0);
    QVERIFY(!QFile::exists(QStringLiteral("/run/state/installed")));
    const QByteArray asked = contentOf(QStringLiteral("/run/state/pkcheck.log"));
    QVERIFY(asked.contains("org.example.morvane.install-package") && asked.contains(",4001 "));

    QVERIFY(writeFile(QStringLiteral("/run/state/allow"), ""));
    const QJsonObject done = askAs(kAlice, {install("/home/alice/p.deb")}).at(0);
    QVERIFY2(isTrue(done, "success"), QJsonDocument(done).toJson().constData());
    QCOMPARE(done.value(QLatin1String("message")).toString(), QStringLiteral("All done"));
    QCOMPARE(done.value(QLatin1String("sha256")).toString().toLatin1(),
             QCryptographicHash::hash("bytes\n", QCryptographicHash::Sha256).toHex());
    QCOMPARE(contentOf(QStringLiteral("/run/state/installed")), QByteArray("bytes\n"));
    QVERIFY(writeFile(QStringLiteral("/run/state/exit"), "100"));
    QCOMPARE(askAs(kAlice, {install("/home/alice/p.deb")})
                 .at(0)
                 .value(QLatin1String("message"))
                 .toString(),
             QStringLiteral("All done"));
}

int main(int argc, char *argv[])
{
    // The system's files are changed only where a private copy of them is.
    if (qEnvironmentVariableIsEmpty("MORVANE_PRIVATE_SYSTEM") && ::geteuid() == 0) {
        QVector<char *> arguments{const_cast<char *>(MORVANE_SYSTEM_SCRIPT)};
        for (int i = 0; i < argc; ++i)
            arguments.append(argv[i]);
        arguments.append(nullptr);
        ::execv(MORVANE_SYSTEM_SCRIPT, arguments.data());
    }
    QCoreApplication app(argc, argv);
    if (argc == 3 && qstrcmp(argv[1], "--client") == 0)
        return runClient(uid_t(std::atoi(argv[2])));
    if (argc == 4 && qstrcmp(argv[1], "--remove") == 0)
        return runRemover(uid_t(std::atoi(argv[2])), QFile::decodeName(argv[3]));
    TestVaultdSystem test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_vaultd_system.moc"
