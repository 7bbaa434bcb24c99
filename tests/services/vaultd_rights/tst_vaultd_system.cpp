#include "privatesystem.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QStandardPaths>
#include <QTest>

#include <csignal>

using namespace private_system;

/// The service for all users.
class TestVaultdSystem : public Test
{
    Q_OBJECT

private slots:
    void servesEachUserAlone();
    void letsInByPam();
    void provesDeploysAndGivesBack();
    void bringsBackWhatProgramsDelete_data();
    void bringsBackWhatProgramsDelete();
    void takesBackWhatDoesNotWork_data();
    void takesBackWhatDoesNotWork();
    void repairsAndRemovesTheList();
};

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
    // Without clones, the second net is off by default.
    QVERIFY(!enabled.at(1).value(QLatin1String("secondNetReason")).toString().isEmpty());

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
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("command"); // %f is the file, %d its folder.
    const auto row = [](const char *name, const char *program, const char *command) {
        QTest::newRow(name) << QString::fromLatin1(program) << QString::fromLatin1(command);
    };
    row("rm", "rm", "rm '%f'");
    row("rm -rf", "rm", "rm -rf '%d'");
    row("find -delete", "find", "find '%d' -delete");
    row("unlink", "unlink", "cd '%d' && unlink '%n'");
    row("perl", "perl", "perl -e 'unlink($ARGV[0]) or die' '%f'");
    row("python3", "/usr/bin/python3", "/usr/bin/python3 -c \"import os; os.remove('%f')\"");
    row("rsync --delete", "rsync", "mkdir ~/empty && rsync -r --delete ~/empty/ '%d/'");
    row("git clean", "git", "cd '%d' && git init -q . && git clean -q -fdx");
    row("a setuid program", "/run/lib/setuid-rm", "/run/lib/setuid-rm '%f'");
    row("gio remove", "gio", "gio remove '%f'");
    row("rm in the trash", "gio", "gio trash '%f' && rm -r ~/.local/share/Trash/files");
    // The last request only begins it; the session must not end before it has.
    row("emptying the trash", "/usr/libexec/gvfsd-trash",
        "dbus-run-session sh -c \"gio trash '%f' && gio trash --empty && cd ~/.local/share/Trash "
        "&& "
        "while find files expunged -type f | grep -q .; do sleep 0.1; done\"");
    row("busybox, by the second net", "busybox", "busybox rm '%f'");
    row("static program, by the second net", "/run/lib/deleter", "/run/lib/deleter '%f'");
    QTest::newRow("QFile::remove") << QString()
                                   << QStringLiteral("'%1' --remove %2 '%f'")
                                          .arg(QCoreApplication::applicationFilePath())
                                          .arg(kAlice);
}

/// By the system's own preload list, and back by the requests of the page.
void TestVaultdSystem::bringsBackWhatProgramsDelete()
{
    QFETCH(QString, program);
    QFETCH(QString, command);
    if (!program.isEmpty() && QStandardPaths::findExecutable(program).isEmpty())
        QSKIP("the program is not installed for all users");
    const bool isSecondNet = QByteArray(QTest::currentDataTag()).contains("second net");
    if (isSecondNet) {
        const QString state = kState + QStringLiteral("/users/%1").arg(kAlice);
        QVERIFY(QDir().mkpath(state) &&
                writeFile(state + QStringLiteral("/config.json"),
                          R"({"protectedDirs":["/home/alice"],"protectedExtensions":["txt"],)"
                          R"("retentionDays":30,"maxSpaceBytes":0,"emergencyThresholdBytes":0,)"
                          R"("secondNet":"always"})",
                          0600));
    }
    QVERIFY(start());
    QVERIFY(isTrue(askAs(kAlice, {ask("enable")}).at(0), "success"));
    const QString name = QStringLiteral("年度 报告.txt");
    const QString folder = QStringLiteral("/home/alice/工作");
    const QString file = folder + QLatin1Char('/') + name;
    QVERIFY(run(QStringLiteral("mkdir -m 750 '%2' && head -c 300000 /dev/urandom >'%1' && "
                               "chmod 604 '%1' && setfattr -n user.tag -v value '%1' && "
                               "touch -d '2001-02-03 04:05:06.123456789' '%1'")
                    .arg(file, folder),
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

    command.replace(QStringLiteral("%f"), file).replace(QStringLiteral("%d"), folder);
    command.replace(QStringLiteral("%n"), name);
    // The second net has a shadow, which root can see as a link, once it has read of the file.
    struct stat info;
    QVERIFY(!isSecondNet || QTest::qWaitFor(
                                [&] {
                                    return ::stat(QFile::encodeName(file).constData(), &info) ==
                                               0 &&
                                           info.st_nlink == 2;
                                },
                                kPatienceMs));
    // Only root can start programs of the build tree.
    QVERIFY(run(command, program.isEmpty() ? 0 : kAlice));
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

int main(int argc, char *argv[])
{
    TestVaultdSystem test;
    return execute(argc, argv, &test);
}

#include "tst_vaultd_system.moc"
