// What a hostile user sends to the service, and what the service takes from its users.
#include "core/descriptor.h"
#include "guardharness.h"
#include "rawclient.h"

#include <QDir>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QTest>

#include <atomic>
#include <fcntl.h>
#include <functional>
#include <grp.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace guard_test;

namespace {

constexpr uid_t kOwner = 21001; ///< The user of the vault.
constexpr uid_t kOther = 21002;

int openPath(const QByteArray &path)
{
    return ::open(path.constData(), O_PATH | O_NOFOLLOW | O_CLOEXEC);
}

/// Runs the work in a child process of that user; its result.
int as(uid_t uid, const std::function<int()> &work)
{
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(::setgroups(0, nullptr) == 0 && ::setresgid(uid, uid, uid) == 0 &&
                        ::setresuid(uid, uid, uid) == 0
                    ? work()
                    : 100);
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

class TestGuardAttacks : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_guard.reset(); }
    void refusesMalformedRequests();
    void believesNoName();
    void refusesOtherUsersRequests();
    void takesNoFileThatTheOwnerMayNotHave();
    void observesTheStickyBit();
    void keepsWhatOthersDelete();
    void letsNobodyUseAnothersSocketOrMap();
    void servesOthersWhileOneFloods();
    void distrustsTrashNotes();
    void takesNoForeignFilesFromTheSpool();
    void isNotFooledByAnExchange();

private:
    QByteArray file(const char *name) { return m_guard->documents() + '/' + name; }
    int askFor(const QByteArray &dir, const QByteArray &name)
    {
        const core::Descriptor parent(openPath(dir));
        const core::Descriptor item(openPath(dir + '/' + name));
        return ask(m_guard->runDir(), "0", RawRequest::deletion(name, item.get(), parent.get()));
    }
    int askAs(uid_t uid, const QByteArray &user, const QByteArray &dir, const QByteArray &name)
    {
        return as(uid, [&] {
            const core::Descriptor parent(openPath(dir));
            const core::Descriptor item(openPath(dir + '/' + name));
            return ask(m_guard->runDir(), user,
                       RawRequest::deletion(name, item.get(), parent.get()));
        });
    }

    std::unique_ptr<GuardHarness> m_guard;
};

void TestGuardAttacks::init()
{
    if (::geteuid() != 0)
        QSKIP("Only root can act for several users.");
    m_guard = std::make_unique<GuardHarness>();
    // All below is the owner's; others can reach it.
    QByteArray path;
    for (const QByteArray &part : m_guard->documents().split('/').mid(1)) {
        path += '/' + part;
        if (path.startsWith("/tmp/"))
            QVERIFY(::chmod(path.constData(), 0755) == 0);
    }
    for (const QByteArray &dir : {m_guard->home(), m_guard->documents(), m_guard->elsewhere()})
        QVERIFY(::chown(dir.constData(), kOwner, kOwner) == 0);
    m_guard->protection.uid = kOwner;
    m_guard->protection.gid = kOwner;
    QString error;
    QVERIFY2(m_guard->start(&error), qPrintable(error));
    QVERIFY(m_guard->write(file("a.txt"), "x"));
    QVERIFY(::chown(file("a.txt").constData(), kOwner, kOwner) == 0);
}

void TestGuardAttacks::refusesMalformedRequests()
{
    const core::Descriptor parent(openPath(m_guard->documents()));
    const core::Descriptor item(openPath(file("a.txt")));
    const RawRequest good = RawRequest::deletion("a.txt", item.get(), parent.get());
    std::vector<RawRequest> bad(10, good);
    bad[0].message.magic ^= 1;
    bad[1].message.version += 1;
    bad[2].message.kind = 7;
    bad[3].message.nameLength = GUARD_NAME_SIZE;
    bad[4].messageSize = 100;
    bad[5].descriptors = {};
    bad[6].descriptors = {item.get()};
    bad[7].descriptors = std::vector<int>(100, item.get());
    bad[8].message.nameLength = 0;
    bad[9].descriptors = {parent.get(), item.get()};
    QRandomGenerator random(1); // Over all that is read of the message.
    for (int i = 0; i < 500; ++i) {
        RawRequest noise = good;
        auto *bytes = reinterpret_cast<unsigned char *>(&noise.message);
        for (int j = 0; j < 4; ++j)
            bytes[random.bounded(17)] = static_cast<unsigned char>(1 + random.bounded(255));
        bad.push_back(noise);
    }
    for (const RawRequest &request : bad)
        QVERIFY(ask(m_guard->runDir(), "0", request) != GuardKept);
    QCOMPARE(m_guard->keeper().count(), 0);
    QCOMPARE(ask(m_guard->runDir(), "0", good), int(GuardKept)); // It still answers.
}

void TestGuardAttacks::believesNoName()
{
    QVERIFY(m_guard->write(file("b.txt"), "b") &&
            m_guard->write(m_guard->elsewhere() + "/c.txt", "c"));
    const core::Descriptor documents(openPath(m_guard->documents()));
    const core::Descriptor elsewhere(openPath(m_guard->elsewhere()));
    const core::Descriptor a(openPath(file("a.txt")));
    const core::Descriptor c(openPath(m_guard->elsewhere() + "/c.txt"));
    const auto verdict = [this](const QByteArray &name, int item, int parent) {
        return ask(m_guard->runDir(), "0", RawRequest::deletion(name, item, parent));
    };
    // Another file under the name, a name elsewhere, a name that leads elsewhere.
    QCOMPARE(verdict("b.txt", a.get(), documents.get()), int(GuardNotWanted));
    QCOMPARE(verdict("missing.txt", a.get(), documents.get()), int(GuardNotWanted));
    QCOMPARE(verdict("c.txt", c.get(), documents.get()), int(GuardNotWanted));
    QCOMPARE(verdict("c.txt", c.get(), elsewhere.get()), int(GuardNotWanted));
    QCOMPARE(verdict("../elsewhere/c.txt", c.get(), documents.get()), int(GuardNotWanted));
    QCOMPARE(verdict("..", documents.get(), documents.get()), int(GuardNotWanted));
    QCOMPARE(verdict(QByteArray("a.txt\0x", 7), a.get(), documents.get()), int(GuardNotWanted));
    // What is no file: a link to one, a pipe, a device, a socket, a folder.
    QVERIFY(::symlink("a.txt", file("l.txt").constData()) == 0);
    QVERIFY(::mkfifo(file("p.txt").constData(), 0600) == 0);
    QVERIFY(::mkdir(file("d.txt").constData(), 0700) == 0);
    for (const char *name : {"l.txt", "p.txt", "d.txt"})
        QCOMPARE(askFor(m_guard->documents(), name), int(GuardNotWanted));
    const core::Descriptor socket(connectTo(m_guard->runDir(), "0"));
    QCOMPARE(verdict("a.txt", socket.get(), documents.get()), int(GuardNotWanted));
    QCOMPARE(m_guard->keeper().count(), 0);
}

void TestGuardAttacks::refusesOtherUsersRequests()
{
    // Everyone can open the file and its folder, but not delete from it.
    QCOMPARE(askAs(kOther, "any", m_guard->documents(), "a.txt"), int(GuardNotWanted));
    QCOMPARE(m_guard->keeper().count(), 0);
    QCOMPARE(askAs(kOwner, QByteArray::number(kOwner), m_guard->documents(), "a.txt"),
             int(GuardKept));
}

void TestGuardAttacks::takesNoFileThatTheOwnerMayNotHave()
{
    struct Row
    {
        const char *name;
        uid_t uid;
        mode_t mode;
        GuardVerdict verdict;
    };
    for (const Row &row :
         {Row{"setuid.txt", 0, 04755, GuardNotWanted}, Row{"root.txt", 0, 0644, GuardNotWanted},
          Row{"setuidofother.txt", kOther, 04755, GuardNotWanted},
          Row{"setgidofother.txt", kOther, 02755, GuardNotWanted},
          Row{"privateofother.txt", kOther, 0600, GuardNotWanted},
          Row{"publicofother.txt", kOther, 0644, GuardKept},
          Row{"ownsetuid.txt", kOwner, 04755, GuardKept},
          Row{"own.txt", kOwner, 0000, GuardKept}}) {
        const QByteArray path = file(row.name);
        QVERIFY(m_guard->write(path, "x"));
        QVERIFY(::chown(path.constData(), row.uid, row.uid) == 0 &&
                ::chmod(path.constData(), row.mode) == 0);
        const int verdict =
            askAs(kOwner, QByteArray::number(kOwner), m_guard->documents(), row.name);
        QVERIFY2(verdict == row.verdict, row.name);
    }
}

void TestGuardAttacks::observesTheStickyBit()
{
    QVERIFY(::chmod(m_guard->documents().constData(), 01777) == 0);
    QVERIFY(::chown(m_guard->documents().constData(), 0, 0) == 0);
    QCOMPARE(askAs(kOther, "any", m_guard->documents(), "a.txt"), int(GuardNotWanted));
    QVERIFY(::chmod(m_guard->documents().constData(), 0777) == 0);
    QCOMPARE(askAs(kOther, "any", m_guard->documents(), "a.txt"), int(GuardKept));
}

void TestGuardAttacks::keepsWhatOthersDelete()
{
    // By the library, as the configuration stands in the others' maps.
    QVERIFY(::chmod(m_guard->documents().constData(), 0777) == 0);
    QString error;
    QVERIFY2(m_guard->hook().openFor(m_guard->protection, &error), qPrintable(error));
    QVERIFY(m_guard->write(file("b.txt"), "b"));
    QVERIFY(::chown(file("b.txt").constData(), kOwner, kOwner) == 0);
    QCOMPARE(m_guard->run(QStringLiteral("rm"), {QStringLiteral("a.txt")}), 0);
    const QByteArray library = m_guard->home() + "/guard.so";
    QVERIFY(QFile::copy(QStringLiteral(MORVANE_GUARD_TEST), text(library)));
    QVERIFY(::chmod(library.constData(), 0755) == 0);
    QCOMPARE(m_guard->run(QStringLiteral("setpriv"),
                          {QStringLiteral("--reuid"), QString::number(kOther),
                           QStringLiteral("--clear-groups"), QStringLiteral("env"),
                           QStringLiteral("LD_PRELOAD=") + text(library), QStringLiteral("rm"),
                           QStringLiteral("-f"), QStringLiteral("b.txt")}),
             0);
    QVERIFY2(m_guard->waitForKept(2), m_guard->output().constData());
    QCOMPARE(m_guard->keeper().filesAt(file("a.txt")).value(0).peer, uid_t(0));
    QCOMPARE(m_guard->keeper().filesAt(file("b.txt")).value(0).peer, kOther);
}

void TestGuardAttacks::letsNobodyUseAnothersSocketOrMap()
{
    const QByteArray owner = QByteArray::number(kOwner);
    const auto canRead = [this](const QByteArray &name) {
        const core::Descriptor map(
            ::open((m_guard->runDir() + '/' + name + ".map").constData(), O_RDONLY));
        const core::Descriptor socket(connectTo(m_guard->runDir(), name));
        return (map.isOpen() ? 1 : 0) + (socket.isOpen() ? 2 : 0);
    };
    QCOMPARE(as(kOwner, [&] { return canRead(owner); }), 3);
    QCOMPARE(as(kOther, [&] { return canRead(owner); }), 0);
    QCOMPARE(as(kOther, [&] { return canRead("0"); }), 0);
    QCOMPARE(as(kOther, [&] { return canRead("any"); }), 3);
    // Nor change the own one: other programs of the user may have more rights.
    QCOMPARE(as(kOwner,
                [&] {
                    const QByteArray map = m_guard->runDir() + '/' + owner + ".map";
                    return ::chmod(map.constData(), 0777) != 0 &&
                                   ::open(map.constData(), O_RDWR) < 0 &&
                                   ::truncate(map.constData(), 0) != 0
                               ? 0
                               : 1;
                }),
             0);
    // Folders that others cannot look into are not named to them.
    QVERIFY(::chmod(m_guard->home().constData(), 0700) == 0);
    QString error;
    QVERIFY2(m_guard->hook().openFor(m_guard->protection, &error), qPrintable(error));
    QFile map(text(m_guard->runDir() + "/any.map"));
    QVERIFY(map.open(QIODevice::ReadOnly));
    QVERIFY(!map.readAll().contains(m_guard->home()));
}

void TestGuardAttacks::servesOthersWhileOneFloods()
{
    // The owner's queue is filled with connections that never ask, and one that stays kept.
    std::vector<std::unique_ptr<core::Descriptor>> idle;
    for (int i = 0; i < 300; ++i) {
        idle.push_back(std::make_unique<core::Descriptor>(
            connectTo(m_guard->runDir(), QByteArray::number(kOwner))));
        QVERIFY(idle.back()->isOpen());
    }
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(askFor(m_guard->documents(), "a.txt"), int(GuardKept));
    QVERIFY2(timer.elapsed() < 3000, "another user had to wait");
    // And the owner is served again once the idle ones have been hung up on.
    QCOMPARE(askAs(kOwner, QByteArray::number(kOwner), m_guard->documents(), "a.txt"),
             int(GuardKept));
}

void TestGuardAttacks::distrustsTrashNotes()
{
    // Another user says that a file in his trash came from the owner's folder.
    services::vaultd::UserProtection other = m_guard->protection;
    const QByteArray home = m_guard->home() + "2";
    QVERIFY(::mkdir(home.constData(), 0755) == 0 && ::chown(home.constData(), kOther, kOther) == 0);
    other.uid = kOther;
    other.gid = kOther;
    other.home = home;
    other.directories = {home};
    other.spoolDirs = {};
    const QByteArray trash = home + "/.local/share/Trash";
    QVERIFY(m_guard->write(trash + "/files/a.txt", "forged"));
    QVERIFY(m_guard->write(trash + "/info/a.txt.trashinfo",
                           "[Trash Info]\nPath=" + file("a.txt") + "\n"));
    for (const char *part : {"/files/a.txt", "/files", "/info/a.txt.trashinfo", "/info", ""})
        QVERIFY(::chown((trash + part).constData(), kOther, kOther) == 0);
    QString error;
    QVERIFY2(m_guard->hook().openFor(other, &error), qPrintable(error));
    QCOMPARE(askAs(kOther, QByteArray::number(kOther), trash + "/files", "a.txt"),
             int(GuardNotWanted));
    QCOMPARE(m_guard->keeper().count(), 0);
}

void TestGuardAttacks::takesNoForeignFilesFromTheSpool()
{
    // Hard links to what is not the user's, in the user's spool, while the service is away.
    m_guard->stop();
    const QByteArray spool = m_guard->spool();
    const struct
    {
        uid_t uid;
        mode_t mode;
    } files[] = {{0, 0600}, {0, 04755}, {kOther, 0600}, {kOther, 04755}, {kOwner, 0600}};
    for (const auto &foreign : files) {
        const QByteArray id =
            QByteArray::number(foreign.uid) + '-' + QByteArray::number(foreign.mode, 8);
        const QByteArray source = m_guard->elsewhere() + '/' + id;
        QVERIFY(m_guard->write(source, id));
        QVERIFY(::chown(source.constData(), foreign.uid, foreign.uid) == 0 &&
                ::chmod(source.constData(), foreign.mode) == 0);
        QVERIFY(::link(source.constData(), (spool + '/' + id + ".file").constData()) == 0);
        QVERIFY(::symlink(file("gone.txt").constData(), (spool + '/' + id + ".path").constData()) ==
                0);
    }
    QString error;
    QVERIFY2(m_guard->start(&error), qPrintable(error));
    QVERIFY(m_guard->waitForKept(1));
    QCOMPARE(m_guard->keeper().files().first().content,
             QByteArray::number(kOwner) + '-' + QByteArray("600"));
}

void TestGuardAttacks::isNotFooledByAnExchange()
{
    // One thread exchanges the user's file and one of root's as fast as it can.
    const QByteArray secret = m_guard->elsewhere() + "/secret.txt";
    QVERIFY(m_guard->write(secret, "secret") && ::chmod(secret.constData(), 0600) == 0);
    const QByteArray name = file("a.txt");
    std::atomic<bool> isOver{false};
    std::thread attacker([&] {
        while (!isOver)
            ::syscall(SYS_renameat2, AT_FDCWD, name.constData(), AT_FDCWD, secret.constData(),
                      2 /* RENAME_EXCHANGE */);
    });
    for (int i = 0; i < 1000; ++i)
        askFor(m_guard->documents(), "a.txt");
    isOver = true;
    attacker.join();
    const QVector<KeptFile> files = m_guard->keeper().files();
    for (const KeptFile &kept : files)
        QVERIFY(kept.content != "secret");
}

QTEST_GUILESS_MAIN(TestGuardAttacks)
#include "tst_guard_attacks.moc"
