// Deletions while the service is silent, and their adoption.
#include "guard/guardprotocol.h"
#include "guardharness.h"

#include <QDir>
#include <QElapsedTimer>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace guard_test;

class TestGuardSpool : public QObject
{
    Q_OBJECT

private slots:
    void spoolsWithoutService();
    void waitsForASlowServiceOnce();
    void takesNothingTwice();
    void leavesForeignEntriesAlone();
    void dropsWhatWasNotDeleted();
    void usesNoUnsafeSpool();
    void endsWhatIsNotOpenedAgain();
};

void TestGuardSpool::spoolsWithoutService()
{
    GuardHarness guard;
    QString error;
    QVERIFY2(guard.start(&error), qPrintable(error));
    guard.stop();
    const QByteArray path = guard.documents() + "/\xff\n.txt";
    QVERIFY(guard.write(guard.documents() + "/b.bin", "not protected"));
    QVERIFY(guard.run(QStringLiteral("sh"),
                      {QStringLiteral("-c"),
                       QStringLiteral("printf content > \"$(printf '\\377\\n.txt')\"")}) == 0);
    QVERIFY(exists(path));
    QCOMPARE(guard.run(QStringLiteral("find"), {QStringLiteral("."), QStringLiteral("-type"),
                                                QStringLiteral("f"), QStringLiteral("-delete")}),
             0);
    QVERIFY(!exists(path));
    QCOMPARE(guard.spooled().split(' ').size(), 2);
    QVERIFY2(guard.start(&error), qPrintable(error));
    QVERIFY(guard.waitForKept(1));
    QCOMPARE(guard.keeper().filesAt(path).value(0).content, QByteArray("content"));
    QTRY_COMPARE(guard.spooled(), QByteArray());
    QCOMPARE(guard.output(), QByteArray());
}

/// A user who has switched off since the last run, and one who has not.
void TestGuardSpool::endsWhatIsNotOpenedAgain()
{
    GuardHarness guard;
    QString error;
    const QStringList rm{QStringLiteral("a.txt")};
    QVERIFY2(guard.start(&error), qPrintable(error));
    guard.stop();
    for (const bool isOpened : {false, true}) {
        services::vaultd::HookService next(guard.runDir(),
                                           [&guard](uid_t) { return &guard.keeper(); });
        QVERIFY2(next.start(&error), qPrintable(error));
        next.beginOpening();
        if (isOpened)
            QVERIFY2(next.openFor(guard.protection, &error), qPrintable(error));
        QVERIFY2(next.finishOpening(&error), qPrintable(error));
        QVERIFY(guard.write(guard.documents() + "/a.txt", "a"));
        QCOMPARE(guard.run(QStringLiteral("rm"), rm), 0);
        if (isOpened)
            QVERIFY(guard.waitForKept(1));
        else
            QCOMPARE(guard.spooled(), QByteArray());
        QCOMPARE(guard.keeper().files().size(), isOpened ? 1 : 0);
    }
}

void TestGuardSpool::waitsForASlowServiceOnce()
{
    GuardHarness guard;
    QString error;
    QVERIFY2(guard.start(&error), qPrintable(error));
    guard.answerWaitMs = GUARD_ANSWER_WAIT_MS;
    guard.keeper().setDelayMs(1000);
    for (int i = 0; i < 50; ++i)
        QVERIFY(guard.write(guard.documents() + '/' + QByteArray::number(i) + ".txt", "x"));
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(guard.run(QStringLiteral("rm"), {QStringLiteral("-r"), text(guard.documents())}), 0);
    // 50 time-outs of 200 ms would be 10 s.
    QVERIFY2(timer.elapsed() < 5000, "the process has waited more than once");
    guard.keeper().setDelayMs(0);
    // The first one was kept as well as spooled: it counts once.
    QVERIFY(guard.waitForKept(50));
    QTRY_COMPARE(guard.spooled(), QByteArray());
}

void TestGuardSpool::takesNothingTwice()
{
    GuardHarness guard;
    QString error;
    QVERIFY2(guard.start(&error), qPrintable(error));
    const QByteArray path = guard.documents() + "/a.txt";
    QVERIFY(guard.write(path, "x"));
    guard.keeper().refuse(true); // As on a full disk.
    QCOMPARE(guard.run(QStringLiteral("rm"), {text(path)}), 0);
    QVERIFY(!exists(path) && !guard.spooled().isEmpty());
    guard.keeper().refuse(false);
    QVERIFY(guard.waitForKept(1)); // Tried again by itself.
    QTRY_COMPARE(guard.spooled(), QByteArray());
}

void TestGuardSpool::leavesForeignEntriesAlone()
{
    GuardHarness guard;
    QString error;
    QVERIFY2(guard.start(&error), qPrintable(error));
    guard.stop();
    const auto plant = [&guard](const char *id, const QByteArray &path, const QByteArray &target) {
        return ::symlink(path.constData(), (guard.spool() + '/' + id + ".path").constData()) == 0 &&
               (target.isEmpty() ||
                ::symlink(target.constData(), (guard.spool() + '/' + id + ".file").constData()) ==
                    0);
    };
    QVERIFY(plant("link", guard.documents() + "/a.txt", "/etc/shadow"));
    QVERIFY(plant("relative", "a.txt", "x"));
    QVERIFY(plant("lonely", guard.documents() + "/b.txt", QByteArray()));
    QVERIFY(guard.write(guard.spool() + "/other.file", "no path"));
    QVERIFY(QDir().mkpath(text(guard.spool() + "/folder.file")));
    QVERIFY(::symlink("/x/y.txt", (guard.spool() + "/folder.path").constData()) == 0);
    QVERIFY(guard.write(guard.documents() + "/last.txt", "x"));
    QCOMPARE(guard.run(QStringLiteral("rm"), {QStringLiteral("last.txt")}), 0);
    QVERIFY2(guard.start(&error), qPrintable(error));
    QVERIFY(guard.waitForKept(1));
    QCOMPARE(guard.keeper().files().first().path, guard.documents() + "/last.txt");
    QVERIFY(exists(guard.spool() + "/link.file") && exists("/etc/shadow"));
}

void TestGuardSpool::dropsWhatWasNotDeleted()
{
    GuardHarness guard;
    QString error;
    QVERIFY2(guard.start(&error), qPrintable(error));
    guard.stop();
    // As a process leaves it that was killed between the link and the deletion.
    const QByteArray path = guard.documents() + "/a.txt";
    QVERIFY(guard.write(path, "x"));
    QVERIFY(::symlink(path.constData(), (guard.spool() + "/1.path").constData()) == 0);
    QVERIFY(::link(path.constData(), (guard.spool() + "/1.file").constData()) == 0);
    QVERIFY2(guard.start(&error), qPrintable(error));
    QTRY_COMPARE_WITH_TIMEOUT(guard.spooled(), QByteArray(), 30 * 1000);
    QVERIFY(exists(path));
    QCOMPARE(guard.keeper().count(), 0);
}

void TestGuardSpool::usesNoUnsafeSpool()
{
    GuardHarness guard;
    QString error;
    QVERIFY2(guard.start(&error), qPrintable(error));
    guard.stop();
    QVERIFY(::chmod(guard.spool().constData(), 0777) == 0);
    QVERIFY(guard.write(guard.documents() + "/a.txt", "x") &&
            guard.write(guard.documents() + "/b.txt", "x"));
    QCOMPARE(guard.run(QStringLiteral("rm"), {QStringLiteral("a.txt")}), 0);
    QCOMPARE(guard.spooled(), QByteArray());
    QVERIFY(QFile::rename(text(guard.spool()), text(guard.spool() + "2")));
    QVERIFY(::symlink((guard.spool() + "2").constData(), guard.spool().constData()) == 0);
    QCOMPARE(guard.run(QStringLiteral("rm"), {QStringLiteral("b.txt")}), 0);
    QCOMPARE(guard.spooled(), QByteArray());
    QVERIFY(!exists(guard.documents() + "/a.txt") && !exists(guard.documents() + "/b.txt"));
}

QTEST_GUILESS_MAIN(TestGuardSpool)
#include "tst_guard_spool.moc"
