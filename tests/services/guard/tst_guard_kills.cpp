// The service is killed and started again while many programs delete.
#include "guardharness.h"

#include <QDir>
#include <QHash>
#include <QTest>

#include <unistd.h>

using namespace guard_test;

namespace {

constexpr int kPrograms = 200;
constexpr int kAtOnce = 40;
constexpr int kKills = 5;

/// MORVANE_TEST_FILES for a long run.
int filesEach()
{
    const int files = qEnvironmentVariableIntValue("MORVANE_TEST_FILES");
    return files > 0 ? files : 20;
}

} // namespace

class TestGuardKills : public QObject
{
    Q_OBJECT

private slots:
    void keepsEachFileOnce();

private:
    std::unique_ptr<QProcess> startService(const GuardHarness &guard) const;
};

std::unique_ptr<QProcess> TestGuardKills::startService(const GuardHarness &guard) const
{
    auto service = std::make_unique<QProcess>();
    service->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    service->start(QStringLiteral(GUARD_GUARDD),
                   {text(guard.runDir()), text(guard.vault()), text(guard.home())});
    while (!service->canReadLine() && service->waitForReadyRead()) {
    }
    return service->readLine() == "ready\n" ? std::move(service) : nullptr;
}

void TestGuardKills::keepsEachFileOnce()
{
    const int filesOfEach = filesEach();
    GuardHarness guard;
    for (int i = 0; i < kPrograms; ++i) {
        const QByteArray dir = guard.documents() + '/' + QByteArray::number(i);
        QVERIFY(QDir().mkpath(text(dir)));
        for (int j = 0; j < filesOfEach; ++j)
            QVERIFY(guard.write(dir + '/' + QByteArray::number(j) + ".txt", "x"));
    }
    std::unique_ptr<QProcess> service = startService(guard);
    QVERIFY(service);
    std::vector<std::unique_ptr<QProcess>> running;
    int started = 0;
    int kills = 0;
    while (started < kPrograms || !running.empty()) {
        while (started < kPrograms && int(running.size()) < kAtOnce) {
            running.push_back(std::make_unique<QProcess>());
            running.back()->setProcessEnvironment(guard.environment());
            running.back()->start(QStringLiteral("rm"),
                                  {QStringLiteral("-rf"),
                                   text(guard.documents() + '/' + QByteArray::number(started++))});
        }
        // In the middle of the work, each time further on.
        if (kills < kKills &&
            started - int(running.size()) > kPrograms / (kKills + 2) * (kills + 1)) {
            service->kill();
            QVERIFY(service->waitForFinished());
            service = startService(guard);
            QVERIFY(service);
            ++kills;
        }
        QTest::qWait(1); // Lets processes report their end.
        for (size_t i = 0; i < running.size();) {
            if (running[i]->state() == QProcess::NotRunning) {
                QCOMPARE(running[i]->exitCode(), 0);
                running.erase(running.begin() + long(i));
            } else {
                ++i;
            }
        }
    }
    QCOMPARE(kills, kKills);
    QTRY_COMPARE_WITH_TIMEOUT(guard.spooled(), QByteArray(), 60 * 1000);
    service->kill();
    QVERIFY(service->waitForFinished());

    const LinkKeeper vault(guard.vault());
    QHash<QByteArray, int> counts;
    for (const KeptFile &file : vault.files())
        ++counts[file.path];
    for (int i = 0; i < kPrograms * filesOfEach; ++i) {
        const QByteArray path = guard.documents() + '/' + QByteArray::number(i / filesOfEach) +
                                '/' + QByteArray::number(i % filesOfEach) + ".txt";
        QVERIFY2(!exists(path), path.constData());
        QVERIFY2(
            counts.value(path) == 1,
            (path + " was kept " + QByteArray::number(counts.value(path)) + " times").constData());
    }
}

QTEST_GUILESS_MAIN(TestGuardKills)
#include "tst_guard_kills.moc"
