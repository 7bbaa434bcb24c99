#include "privatesystem.h"

#include <QCryptographicHash>
#include <QFile>
#include <QJsonDocument>
#include <QStandardPaths>
#include <QTest>

using namespace private_system;

/// What the service changes in the system for its users.
class TestVaultdChanges : public Test
{
    Q_OBJECT

private slots:
    void opensAndClosesThePort();
    void leavesNoRuleInNftables();
    void installsWhatWasAllowed();
    void installsByTheRealManager();
};

void TestVaultdChanges::opensAndClosesThePort()
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

/// By the real nft, in a network of the test's own.
void TestVaultdChanges::leavesNoRuleInNftables()
{
    if (!run(QStringLiteral(
            "nft -f - <<'EOF'\nflush ruleset\ntable inet house {\n"
            "chain in { type filter hook input priority 0; policy drop; }\n}\n"
            "table ip old {\nchain in { type filter hook input priority 5; }\n}\nEOF")))
        QSKIP("nft is not installed, or knows no rules here");
    const auto sync = [](bool isActive, int port) {
        return ask("syncShareFirewall",
                   {{QStringLiteral("active"), isActive}, {QStringLiteral("port"), port}});
    };
    const auto rules = [] {
        return outputOf(QStringLiteral("nft list ruleset"));
    };
    const QByteArray before = rules();
    QVERIFY(start());
    QVERIFY(isTrue(askAs(kAlice, {sync(true, 9800)}).at(0), "success"));
    QCOMPARE(rules().count("tcp dport 9800 accept comment \"morvane-share\""), 2);
    QVERIFY(isTrue(askAs(kAlice, {sync(false, 9800)}).at(0), "success"));
    QCOMPARE(rules(), before);
    // An end, and a crash that the unit's last command cleans up after.
    QVERIFY(isTrue(askAs(kAlice, {sync(true, 9801)}).at(0), "success"));
    m_service->terminate();
    QVERIFY(m_service->waitForFinished(kPatienceMs));
    QCOMPARE(rules(), before);
    QVERIFY(start());
    QVERIFY(isTrue(askAs(kAlice, {sync(true, 9802)}).at(0), "success"));
    m_service->kill();
    QVERIFY(m_service->waitForFinished(kPatienceMs));
    QVERIFY(rules().contains("9802"));
    QVERIFY(command(QStringLiteral("--close-firewall")));
    QCOMPARE(rules(), before);
}

void TestVaultdChanges::installsWhatWasAllowed()
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

/// dpkg unpacks a package into a tree of its own.
void TestVaultdChanges::installsByTheRealManager()
{
    if (QStandardPaths::findExecutable(QStringLiteral("dpkg-deb")).isEmpty())
        QSKIP("dpkg is not installed");
    QVERIFY(writeFile(QStringLiteral("/run/bin/pkcheck"), "#!/bin/sh\nexit 0\n", 0755));
    QVERIFY(writeFile(QStringLiteral("/run/bin/apt-get"),
                      "#!/bin/sh\nfor package; do :; done\nexport PATH=$PATH:/usr/sbin:/sbin\n"
                      "exec dpkg --root=/run/state/tree --force-architecture -i \"$package\"\n",
                      0755));
    QVERIFY(start());
    QVERIFY(run(QStringLiteral("cd /run/state && mkdir -p tree/var/lib/dpkg/info "
                               "tree/var/lib/dpkg/updates && touch tree/var/lib/dpkg/status && "
                               "mkdir -p p/DEBIAN p/opt && echo content >p/opt/sample && "
                               "printf 'Package: sample\\nVersion: 1\\nArchitecture: all\\n"
                               "Maintainer: nobody <n@localhost>\\nDescription: sample\\n' "
                               ">p/DEBIAN/control && dpkg-deb -b p /home/alice/sample.deb && "
                               "chown 4001:4001 /home/alice/sample.deb")));
    const QJsonObject done =
        askAs(kAlice, {ask("installPackage", {{QStringLiteral("packagePath"),
                                               QStringLiteral("/home/alice/sample.deb")},
                                              {QStringLiteral("arch"), QStringLiteral("all")},
                                              {QStringLiteral("launchEnv"), QJsonObject()}})})
            .at(0);
    QVERIFY2(isTrue(done, "success"), QJsonDocument(done).toJson().constData());
    QCOMPARE(contentOf(QStringLiteral("/run/state/tree/opt/sample")), QByteArray("content\n"));
    QVERIFY(contentOf(QStringLiteral("/run/state/tree/var/lib/dpkg/status"))
                .contains("Status: install ok installed"));
    // What is no package is refused by the manager, in its words.
    QVERIFY(run(QStringLiteral("echo no package >~alice/n.deb"), kAlice));
    const QJsonObject failed =
        askAs(kAlice, {ask("installPackage",
                           {{QStringLiteral("packagePath"), QStringLiteral("/home/alice/n.deb")},
                            {QStringLiteral("arch"), QStringLiteral("all")},
                            {QStringLiteral("launchEnv"), QJsonObject()}})})
            .at(0);
    QVERIFY(!isTrue(failed, "success"));
    QVERIFY(!failed.value(QLatin1String("message")).toString().isEmpty());
}

int main(int argc, char *argv[])
{
    TestVaultdChanges test;
    return execute(argc, argv, &test);
}

#include "tst_vaultd_changes.moc"
