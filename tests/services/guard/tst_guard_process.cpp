// Processes in unusual circumstances must not notice the library.
#include "guardharness.h"

#include <QFile>
#include <QTest>

#include <unistd.h>

using namespace guard_test;

namespace {

constexpr int kThreads = 8;
constexpr int kFilesEach = 50;

} // namespace

class TestGuardProcess : public QObject
{
    Q_OBJECT

private slots:
    void survives_data();
    void survives();
    void callsTheNextLibrary();
    void saysNothingOfItself();
};

// `kept`: how many of the files the vault has in the end.
void TestGuardProcess::survives_data()
{
    QTest::addColumn<QString>("circumstance");
    QTest::addColumn<bool>("hasMany");
    QTest::addColumn<int>("kept");
    QTest::newRow("errno and bad arguments") << QStringLiteral("errno") << false << 1;
    QTest::newRow("threads") << QStringLiteral("threads") << true << kThreads * kFilesEach;
    QTest::newRow("signals") << QStringLiteral("signals") << true << kThreads * kFilesEach;
    QTest::newRow("fork") << QStringLiteral("fork") << true << kThreads * kFilesEach;
    QTest::newRow("vfork") << QStringLiteral("vfork") << false << 1;
    QTest::newRow("pending cancellation") << QStringLiteral("cancel") << false << 1;
    QTest::newRow("closed standard streams") << QStringLiteral("closed") << false << 1;
    QTest::newRow("no descriptors left") << QStringLiteral("limit") << false << 0;
    QTest::newRow("stack") << QStringLiteral("stack") << false << 1;
    QTest::newRow("seccomp filter") << QStringLiteral("sandbox") << false << 0;
    QTest::newRow("chroot") << QStringLiteral("chroot") << false << 0;
    QTest::newRow("user name space") << QStringLiteral("usernamespace") << false << 1;
    QTest::newRow("mount name space") << QStringLiteral("mountnamespace") << false << 1;
    if (::geteuid() == 0)
        QTest::newRow("changing users") << QStringLiteral("switching") << true << kFilesEach;
}

void TestGuardProcess::survives()
{
    QFETCH(QString, circumstance);
    QFETCH(bool, hasMany);
    QFETCH(int, kept);
    GuardHarness guard;
    QString error;
    QVERIFY2(guard.start(&error), qPrintable(error));
    QByteArray path = guard.documents() + "/x.txt";
    if (hasMany) {
        path = guard.documents() + "/x";
        for (int i = 0; i < kThreads * kFilesEach; ++i)
            QVERIFY(guard.write(path + '-' + QByteArray::number(i / kFilesEach) + '-' +
                                    QByteArray::number(i % kFilesEach) + ".txt",
                                "x"));
    } else {
        QVERIFY(guard.write(path, "x"));
    }
    const int code = guard.run(QStringLiteral(GUARD_ODDCALLS), {circumstance, text(path)});
    QVERIFY2(code == 0, guard.output().constData());
    QVERIFY(hasMany || !exists(path));
    QVERIFY(guard.waitForKept(kept));
    QCOMPARE(guard.keeper().forgottenCount(), 0);
    QCOMPARE(guard.spooled(), QByteArray());
}

void TestGuardProcess::callsTheNextLibrary()
{
    GuardHarness guard;
    QString error;
    QVERIFY2(guard.start(&error), qPrintable(error));
    const QByteArray path = guard.documents() + "/busy.txt";
    QVERIFY(guard.write(path, "x"));
    guard.preload = QStringLiteral(GUARD_FAILINGCALLS);
    QCOMPARE(guard.run(QStringLiteral("rm"), {QStringLiteral("busy.txt")}), 1);
    QVERIFY2(guard.output().contains("busy"), guard.output().constData());
    // Kept before, forgotten since it is still there.
    QTRY_COMPARE(guard.keeper().forgottenCount(), 1);
    QVERIFY(guard.waitForKept(0));
    // The same by way of the spool.
    guard.stop();
    QCOMPARE(guard.run(QStringLiteral("rm"), {QStringLiteral("busy.txt")}), 1);
    QCOMPARE(guard.spooled(), QByteArray());
    QVERIFY(exists(path));
}

void TestGuardProcess::saysNothingOfItself()
{
    // The library that is deployed cannot be pointed elsewhere.
    QFile library(QStringLiteral(MORVANE_GUARD));
    QVERIFY(library.open(QIODevice::ReadOnly));
    const QByteArray bytes = library.readAll();
    QVERIFY(bytes.contains("/run/morvane-guard"));
    QVERIFY(!bytes.contains("MORVANE_GUARD_"));
}

QTEST_GUILESS_MAIN(TestGuardProcess)
#include "tst_guard_process.moc"
