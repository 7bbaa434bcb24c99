#include "support/temptree.h"
#include "vaultd/attributes.h"
#include "vaultd/deploy/hookfile.h"
#include "vaultd/deploy/olderprograms.h"
#include "vaultd/deploy/preloadlist.h"
#include "vaultd/rights/authenticator.h"
#include "vaultd/system/firewall.h"
#include "vaultd/system/packagefile.h"
#include "vaultd/system/packageinstaller.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace services;
using namespace services::vaultd;

namespace {

const QByteArray kEntry("/usr/$LIB/libmorvane-guard.so");

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

/// The rules by themselves, without a service.
class TestVaultdRights : public QObject
{
    Q_OBJECT

private slots:
    void locksOutWhoGuesses();
    void forgetsAProofInTime();
    void editsThePreloadList_data();
    void editsThePreloadList();
    void replacesThePreloadListAsAWhole();
    void refusesLibraries();
    void tellsOlderPrograms();
    void writesNftCommands();
    void tellsListeners();
    void refusesPackages();
    void readsStatusLines();
};

namespace {

/// An authenticator at a clock of its own; "right" is everybody's password.
struct Gate
{
    qint64 now = 1000000;
    int checks = 0;
    Authenticator authenticator;

    Gate()
        : authenticator(
              [this](const QString &, const QString &password,
                     const std::function<void(bool)> &done) {
                  ++checks;
                  done(password == QLatin1String("right"));
              },
              [](const QString &user, const Peer &) { return user == QLatin1String("me"); },
              rules())
    {}
    Authenticator::Rules rules()
    {
        Authenticator::Rules rules;
        rules.failureDelayMs = 0;
        rules.now = [this] {
            return now;
        };
        return rules;
    }
    Request request(quint64 connection, uid_t uid = 4001) const
    {
        Request request;
        request.peer.uid = uid;
        request.connection = connection;
        return request;
    }
    bool enter(const char *password, quint64 connection = 1, const char *user = "me",
               uid_t uid = 4001)
    {
        Request asked = request(connection, uid);
        asked.params = {{QStringLiteral("username"), QLatin1String(user)},
                        {QStringLiteral("password"), QLatin1String(password)}};
        bool hasCome = false;
        bool isIn = false;
        authenticator.authenticate(asked, [&hasCome, &isIn](const Reply &reply) {
            hasCome = true;
            isIn = reply.data.value(QLatin1String("success")).toBool();
        });
        return QTest::qWaitFor([&hasCome] { return hasCome; }, 20000) && isIn;
    }
};

} // namespace

void TestVaultdRights::locksOutWhoGuesses()
{
    Gate gate;
    QVERIFY(!gate.enter("right", 1, "root")); // Another account is a failure, and is not asked for.
    QCOMPARE(gate.checks, 0);
    for (int i = 0; i < 4; ++i)
        QVERIFY(!gate.enter("wrong", quint64(i)));
    QCOMPARE(gate.checks, 4);
    // Neither another connection nor the right password helps; other users are not concerned.
    QVERIFY(!gate.enter("right", 7));
    QCOMPARE(gate.checks, 4);
    QVERIFY(gate.enter("right", 8, "me", 4002));
    gate.now += 5 * 60 * 1000;
    QVERIFY(gate.enter("right", 7));
    // A success ends the count.
    for (int i = 0; i < 4; ++i)
        QVERIFY(!gate.enter("wrong"));
    QVERIFY(gate.enter("right"));
    QVERIFY(!gate.enter("wrong"));
    QVERIFY(gate.enter("right"));
}

void TestVaultdRights::forgetsAProofInTime()
{
    Gate gate;
    QVERIFY(!gate.authenticator.isAuthenticated(gate.request(1)));
    QVERIFY(gate.enter("right", 1));
    QVERIFY(gate.authenticator.isAuthenticated(gate.request(1)));
    QVERIFY(!gate.authenticator.isAuthenticated(gate.request(2)));
    gate.now += 15 * 60 * 1000 - 1;
    QVERIFY(gate.authenticator.isAuthenticated(gate.request(1)));
    gate.now += 1;
    QVERIFY(!gate.authenticator.isAuthenticated(gate.request(1)));
    int code = 0;
    QVERIFY(!gate.authenticator.admit(gate.request(1),
                                      [&code](const Reply &reply) { code = reply.errorCode; }));
    QCOMPARE(code, ServiceHost::kRefusedCode);
}

void TestVaultdRights::editsThePreloadList_data()
{
    QTest::addColumn<QByteArray>("without");
    QTest::addColumn<QByteArray>("with");
    QTest::newRow("none") << QByteArray() << kEntry + '\n';
    QTest::newRow("a line") << QByteArray("/lib/a.so\n") << "/lib/a.so\n" + kEntry + '\n';
    QTest::newRow("comment") << QByteArray("# mine\n\n") << "# mine\n\n" + kEntry + '\n';
    QTest::newRow("no UTF-8") << QByteArray("/l/\xff.so:/b.so\n")
                              << "/l/\xff.so:/b.so\n" + kEntry + '\n';
    // What others have made of it.
    QTest::newRow("same line") << QByteArray("/a.so /b.so # c\n")
                               << "/a.so " + kEntry + ":/b.so # c\n";
    QTest::newRow("other folder") << QByteArray("/a.so\n")
                                  << QByteArray("/old/libmorvane-guard.so\n/a.so\n");
    QTest::newRow("twice") << QByteArray("\t/a.so\n") << kEntry + "\n\t/a.so\n" + kEntry + '\n';
}

void TestVaultdRights::editsThePreloadList()
{
    QFETCH(QByteArray, without);
    QFETCH(QByteArray, with);
    QVERIFY(listsEntry(with, kEntry));
    QVERIFY(!listsEntry(without, kEntry));
    QVERIFY(!listsEntry(without + '#' + kEntry, kEntry));
    QCOMPARE(withoutEntry(with, kEntry), without);
    QCOMPARE(withoutEntry(withEntry(without, kEntry), kEntry), without);
}

void TestVaultdRights::replacesThePreloadListAsAWhole()
{
    TempTree tree;
    const QString path = tree.path("list");
    const PreloadList fresh(path);
    QString error;
    QVERIFY2(fresh.add(kEntry, &error), qPrintable(error));
    struct stat info;
    QCOMPARE(::stat(QFile::encodeName(path).constData(), &info), 0);
    QCOMPARE(info.st_mode & 07777, mode_t(0644));
    QVERIFY(fresh.remove(kEntry, &error));
    QVERIFY(!QFile::exists(path));

    // Behind a link, with rights and owner of its own.
    const QString real = tree.file("real", "/a.so\n");
    QVERIFY(QFile::link(real, path));
    QCOMPARE(::chmod(QFile::encodeName(real).constData(), 0640), 0);
    if (::geteuid() == 0)
        QCOMPARE(::chown(QFile::encodeName(real).constData(), 0, 4001), 0);
    const PreloadList list(path);
    PreloadList::Content former;
    QVERIFY(list.read(&former, &error));
    QVERIFY(list.add(kEntry, &error) && list.add(kEntry, &error));
    QVERIFY(list.contains(kEntry) && QFileInfo(path).isSymLink());
    QCOMPARE(contentOf(real), "/a.so\n" + kEntry + '\n');
    QVERIFY(list.restore(former, &error));
    QCOMPARE(contentOf(real), QByteArray("/a.so\n"));
    QCOMPARE(::stat(QFile::encodeName(real).constData(), &info), 0);
    QCOMPARE(info.st_mode & 07777, mode_t(0640));
    QCOMPARE(info.st_gid, ::geteuid() == 0 ? gid_t(4001) : ::getegid());
    // Not what is no list.
    const PreloadList folder(tree.dir("folder"));
    QVERIFY(!folder.add(kEntry, &error) && !error.isEmpty());
}

void TestVaultdRights::refusesLibraries()
{
    TempTree tree;
    QString error;
    const QString self = QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
    QVERIFY2(checkLibrary(self, &error), qPrintable(error));
    QVERIFY(!checkLibrary(tree.path("none"), &error));
    QVERIFY(!checkLibrary(tree.file("empty", ""), &error));
    QVERIFY(!checkLibrary(tree.file("garbage", "garbage garbage garbage"), &error));
    const QString open = tree.file("open", contentOf(self).left(4096));
    QVERIFY(checkLibrary(open, &error));
    QCOMPARE(::chmod(QFile::encodeName(open).constData(), 0666), 0);
    QVERIFY(!checkLibrary(open, &error));
    QVERIFY(QFileInfo(libraryOf("/usr/$LIB/libc.so.6")).exists() ||
            QFileInfo(libraryOf("/$LIB/libc.so.6")).exists());
}

void TestVaultdRights::tellsOlderPrograms()
{
    QProcess older;
    older.start(QStringLiteral("/bin/sleep"), {QStringLiteral("1000")});
    QVERIFY(older.waitForStarted());
    Moment later = Moment::now();
    later.ticks += 100000;
    QVERIFY(hasOlderPrograms(later, QStringLiteral("/none/libmorvane-none.so")));
    QVERIFY(!hasOlderPrograms({later.boot, 0}, QStringLiteral("/none/libmorvane-none.so")));
    // Every moment of another boot has passed with all its programs.
    QVERIFY(!hasOlderPrograms({"another", later.ticks}, QStringLiteral("/x.so")));
    older.kill();
    QVERIFY(older.waitForFinished());
}

void TestVaultdRights::writesNftCommands()
{
    const QByteArray ruleset = R"({"nftables":[{"metainfo":{"version":"1.0.6"}},
        {"table":{"family":"inet","name":"filter","handle":1}},
        {"chain":{"family":"inet","table":"filter","name":"input","handle":1,"type":"filter",
                  "hook":"input","prio":0,"policy":"drop"}},
        {"chain":{"family":"inet","table":"filter","name":"output","handle":2,"type":"filter",
                  "hook":"output","prio":0,"policy":"accept"}},
        {"chain":{"family":"ip","table":"nat","name":"in","handle":3,"type":"nat","hook":"input"}},
        {"rule":{"family":"inet","table":"filter","chain":"input","handle":4,"expr":[]}},
        {"rule":{"family":"inet","table":"filter","chain":"input","handle":9,
                 "comment":"morvane-share","expr":[]}}]})";
    bool hasFirewall = false;
    const QByteArray removal =
        R"({"delete":{"rule":{"chain":"input","family":"inet","handle":9,"table":"filter"}}})";
    QCOMPARE(nftCommands(ruleset, {}, &hasFirewall), R"({"nftables":[)" + removal + "]}");
    QVERIFY(hasFirewall);
    QCOMPARE(nftCommands(ruleset, {9800, 9801}, &hasFirewall),
             R"({"nftables":[{"insert":{"rule":{"chain":"input","comment":"morvane-share","expr":[)"
             R"({"match":{"left":{"payload":{"field":"dport","protocol":"tcp"}},"op":"==",)"
             R"("right":{"set":[9800,9801]}}},{"accept":null}],"family":"inet",)"
             R"("table":"filter"}}},)" +
                 removal + "]}");
    for (const char *other : {"", "{}", R"({"nftables":[7,{"chain":[]}]})"}) {
        QCOMPARE(nftCommands(other, {9800}, &hasFirewall), QByteArray());
        QVERIFY(!hasFirewall);
    }
}

void TestVaultdRights::tellsListeners()
{
    const QByteArray table =
        "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid\n"
        "   0: 0100007F:2648 00000000:0000 0A 00000000:00000000 00:00000000 00000000  4001 0 1\n"
        "   1: 0100007F:2648 0100007F:9999 01 00000000:00000000 00:00000000 00000000  4002 0 1\n"
        "   2: 00000000:0016 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0 0 1\n";
    QCOMPARE(listeners(table, 9800), QList<uid_t>{4001});
    QCOMPARE(listeners(table, 22), QList<uid_t>{0});
    QVERIFY(listeners(table, 80).isEmpty() && listeners("rubbish", 80).isEmpty());
}

void TestVaultdRights::refusesPackages()
{
    TempTree tree;
    const UserIdentity user = UserIdentity::ofProcess();
    const std::atomic<bool> never{false};
    const QString good = tree.file("good.deb", "package");
    QString error;
    const auto isRefused = [&user, &error](const QString &path) {
        error.clear();
        return openPackage(path, user, &error) < 0 && !error.isEmpty();
    };
    QVERIFY(isRefused(tree.path("none")) && isRefused(tree.path()));
    QVERIFY(isRefused(tree.file("empty", "")));
    QVERIFY(QFile::link(good, tree.path("link")) && isRefused(tree.path("link")));
    QCOMPARE(::mkfifo(QFile::encodeName(tree.path("pipe")).constData(), 0600), 0);
    QVERIFY(isRefused(tree.path("pipe")));
    const QString open = tree.file("open.deb", "package");
    QCOMPARE(::chmod(QFile::encodeName(open).constData(), 0664), 0);
    QVERIFY(isRefused(open));

    const int fd = openPackage(good, user, &error);
    QVERIFY(fd >= 0);
    // What takes the name afterwards is not what was opened.
    QVERIFY(QFile::rename(good, tree.path("away")) && !tree.file("good.deb", "evil").isEmpty());
    QString sha256;
    QVERIFY(copyPackage(fd, tree.path("copy"), never, &sha256, &error));
    QCOMPARE(contentOf(tree.path("copy")), QByteArray("package"));
    QCOMPARE(sha256, QString::fromLatin1(
                         QCryptographicHash::hash("package", QCryptographicHash::Sha256).toHex()));
    QVERIFY(!copyPackage(fd, tree.path("copy"), never, &sha256, &error));
    ::close(fd);
}

void TestVaultdRights::readsStatusLines()
{
    int percent = 0;
    QString text;
    QVERIFY(parseStatusLine("pmstatus:morvane:40.9:Unpacking: morvane", &percent, &text));
    QCOMPARE(percent, 40);
    QCOMPARE(text, QStringLiteral("Unpacking: morvane"));
    QVERIFY(parseStatusLine("dlstatus:1:250:x", &percent, &text) && percent == 100);
    for (const char *line : {"", "Setting up morvane (1.0) ...", "pmstatus:a:b:c", "pmstatus:"})
        QVERIFY(!parseStatusLine(line, &percent, &text));
}

QTEST_GUILESS_MAIN(TestVaultdRights)
#include "tst_vaultd_rights.moc"
