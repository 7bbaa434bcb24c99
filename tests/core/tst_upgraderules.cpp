#include "core/controllers/upgrade/devicestrings.h"
#include "core/controllers/upgrade/packageinstall.h"
#include "core/controllers/upgrade/upgraderules.h"
#include "core/controllers/upgrade/upgradestatestore.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/resource.h>

using namespace core::controllers::upgrade;

namespace {

QDateTime utc(const QString &text)
{
    return QDateTime::fromString(text, Qt::ISODate).toUTC();
}

UpgradeState knownUpdate()
{
    UpgradeState state;
    state.currentVersion = QStringLiteral("1.2.0");
    state.latestVersion = QStringLiteral("1.3.0");
    state.arch = QStringLiteral("amd64");
    state.updateAvailable = state.forceUpdate = true;
    state.packageUrl = QStringLiteral("http://x/p.deb");
    state.packageMd5 = QStringLiteral("0123");
    state.pendingMandatoryVersion = QStringLiteral("1.3.0");
    state.lastForcedUpdateFailure = QStringLiteral("失败");
    return state;
}

} // namespace

class TestUpgradeRules : public QObject
{
    Q_OBJECT

private slots:
    void comparesVersions_data();
    void comparesVersions();
    void appliesAnswers_data();
    void appliesAnswers();
    void waitsADayBetweenChecks_data();
    void waitsADayBetweenChecks();
    void namesTheMachine_data();
    void namesTheMachine();
    void refusesPackages();
    void keepsTheState();
    void readsDamagedStatesAsNew_data();
    void readsDamagedStatesAsNew();
    void hidesTheMachineId();
};

void TestUpgradeRules::comparesVersions_data()
{
    QTest::addColumn<QString>("current");
    QTest::addColumn<QString>("latest");
    QTest::addColumn<int>("order");
    QTest::newRow("same") << "1.2"
                          << " 1.2 " << 0;
    QTest::newRow("missing part is zero") << "1.2.0"
                                          << "1.2" << 0;
    QTest::newRow("newer") << "1.9.9"
                           << "1.10" << 1;
    QTest::newRow("older") << "2"
                           << "1.99" << -1;
    QTest::newRow("word") << "1.2.0"
                          << "1.2.beta" << 2;
    QTest::newRow("difference before the word") << "1.2"
                                                << "1.3.beta" << 1;
    QTest::newRow("empty latest") << "1.2"
                                  << "" << 2;
    QTest::newRow("both empty") << ""
                                << "" << 0;
    QTest::newRow("blank parts") << "1. 2"
                                 << "1.2 .0" << 0;
    QTest::newRow("too large a number") << "1.2"
                                        << "1.99999999999" << 2;
}

void TestUpgradeRules::comparesVersions()
{
    QFETCH(QString, current);
    QFETCH(QString, latest);
    QFETCH(int, order);
    QCOMPARE(static_cast<int>(compareVersions(current, latest)), order);
}

void TestUpgradeRules::appliesAnswers_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<bool>("available");
    QTest::addColumn<bool>("forced");
    QTest::addColumn<QString>("latest");
    QTest::addColumn<QString>("package");
    QTest::addColumn<QString>("pending");
    const QString kept = QStringLiteral("http://y/q.deb");
    QTest::newRow("newer, forced")
        << QByteArray(R"({"latestVersion":" 1.4 ","updateAvailable":true,"forceUpdate":true,
                          "packageUrl":" http://y/q.deb ","packageSize":"77"})")
        << true << true << "1.4" << kept << "1.4";
    QTest::newRow("newer, not forced")
        << QByteArray(R"({"latestVersion":"1.4","updateAvailable":true,
                          "packageUrl":"http://y/q.deb","packageSize":77})")
        << true << false << "1.4" << kept << "1.3.0";
    QTest::newRow("not newer, whatever the server says")
        << QByteArray(R"({"latestVersion":"1.2","updateAvailable":true,"forceUpdate":true,
                          "packageUrl":"http://y/q.deb"})")
        << false << false << "1.2"
        << ""
        << "";
    QTest::newRow("no order, the server's word holds")
        << QByteArray(R"({"latestVersion":"1.2.beta","updateAvailable":true,"forceUpdate":true,
                          "packageUrl":"http://y/q.deb","packageSize":77})")
        << true << true << "1.2.beta" << kept << "1.2.beta";
    QTest::newRow("forced without being available")
        << QByteArray(R"({"latestVersion":"1.4","forceUpdate":true})") << false << false << "1.4"
        << ""
        << "";
    QTest::newRow("nothing") << QByteArray("{}") << false << false << "1.2.0"
                             << ""
                             << "";
}

void TestUpgradeRules::appliesAnswers()
{
    QFETCH(QByteArray, payload);
    UpgradeState state = knownUpdate();
    applyCheckResponse(&state, QJsonDocument::fromJson(payload).object());
    QTEST(state.updateAvailable, "available");
    QTEST(state.forceUpdate, "forced");
    QTEST(state.latestVersion, "latest");
    QTEST(state.packageUrl, "package");
    QTEST(state.pendingMandatoryVersion, "pending");
    QCOMPARE(state.packageSize, state.packageUrl.isEmpty() ? qint64(0) : qint64(77));
    QCOMPARE(state.arch, QStringLiteral("amd64"));
}

void TestUpgradeRules::waitsADayBetweenChecks_data()
{
    QTest::addColumn<QDateTime>("last");
    QTest::addColumn<bool>("tooSoon");
    QTest::newRow("never") << QDateTime() << false;
    QTest::newRow("a second short") << utc(QStringLiteral("2026-01-01T00:00:01Z")) << true;
    QTest::newRow("a day") << utc(QStringLiteral("2026-01-01T00:00:00Z")) << false;
    QTest::newRow("in the future") << utc(QStringLiteral("2027-01-01T00:00:00Z")) << true;
}

void TestUpgradeRules::waitsADayBetweenChecks()
{
    QFETCH(QDateTime, last);
    UpgradeState state;
    state.lastCheckAt = last;
    QTEST(isCheckingTooSoon(state, utc(QStringLiteral("2026-01-02T00:00:00Z"))), "tooSoon");
}

void TestUpgradeRules::namesTheMachine_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("name");
    QTest::newRow("intel") << " X86_64"
                           << "amd64";
    QTest::newRow("arm") << "aarch64"
                         << "arm64";
    QTest::newRow("debian's own") << "arm64"
                                  << "arm64";
    QTest::newRow("loongson") << "loongarch64"
                              << "loongarch64";
    QTest::newRow("other") << " RISCV64 "
                           << "riscv64";
}

void TestUpgradeRules::namesTheMachine()
{
    QFETCH(QString, text);
    QTEST(normalizeArchitecture(text), "name");
}

void TestUpgradeRules::refusesPackages()
{
    const QString machine = QStringLiteral("amd64");
    UpgradeState state = knownUpdate();
    QVERIFY(isMandatory(state));
    QCOMPARE(downloadRefusal(state, machine), QString());
    state.arch = QStringLiteral("arm64");
    QCOMPARE(downloadRefusal(state, machine),
             QStringLiteral("服务端返回的更新包架构与当前设备不匹配。"));
    state.latestVersion = QStringLiteral(" ");
    QCOMPARE(downloadRefusal(state, machine), QStringLiteral("服务端未返回目标版本号。"));
    state.packageMd5.clear();
    QCOMPARE(downloadRefusal(state, machine), QStringLiteral("服务端未返回更新包校验值。"));
    QVERIFY(!isMandatory(state));
    state.packageUrl.clear();
    QCOMPARE(downloadRefusal(state, machine), QStringLiteral("服务端未返回有效的更新包地址。"));
    // A version that would lead out of the cache names no file.
    QCOMPARE(packageFileName(QStringLiteral("../../etc/x"), machine), QString());
    QCOMPARE(packageFileName(QStringLiteral("1.3"), machine),
             QStringLiteral("morvane_1.3_amd64.deb"));
}

void TestUpgradeRules::keepsTheState()
{
    const QTemporaryDir dir;
    const UpgradeStateStore store(dir.filePath(QStringLiteral("a/b/state.json")));
    UpgradeState state = knownUpdate();
    state.lastCheckAt = utc(QStringLiteral("2026-01-02T03:04:05Z"));
    state.packageSize = qint64(5) << 33;
    state.downloadedPackage = {QStringLiteral("1.3.0"), QStringLiteral("amd64"),
                               QStringLiteral("/p"), QStringLiteral("0123")};
    QVERIFY(store.save(state));
    QCOMPARE(store.load().toJson(), state.toJson());
    QVERIFY(state.toJson().value(QStringLiteral("publishedAt")).isNull());
    QCOMPARE(utcFromText(QStringLiteral(" 2026-01-02T04:04:05.250+01:00 ")),
             utc(QStringLiteral("2026-01-02T03:04:05Z")).addMSecs(250));
    QVERIFY(!utcFromText(QStringLiteral("gestern")).isValid());

    // A disk that fills up in the middle of the next one leaves the older state whole.
    struct rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    const struct rlimit tight = {64, before.rlim_max};
    signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &tight);
    const bool saved = store.save(UpgradeState());
    setrlimit(RLIMIT_FSIZE, &before);
    QVERIFY(!saved);
    QCOMPARE(store.load().toJson(), state.toJson());
    QCOMPARE(QDir(dir.filePath(QStringLiteral("a/b"))).entryList(QDir::Files).size(), 1);
}

void TestUpgradeRules::readsDamagedStatesAsNew_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("half written") << QByteArray(R"({"latestVersion":"1.3","upd)");
    QTest::newRow("an array") << QByteArray("[]");
    QTest::newRow("from the future") << QByteArray(R"({"version":2,"latestVersion":"1.3"})");
    QTest::newRow("wrong types") << QByteArray(
        R"({"latestVersion":7,"downloadedPackage":"x","lastCheckAt":[],
                          "packageSize":"much"})");
}

void TestUpgradeRules::readsDamagedStatesAsNew()
{
    QFETCH(QByteArray, content);
    const QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("state.json"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content);
    file.close();
    QCOMPARE(UpgradeStateStore(path).load().toJson(), UpgradeState().toJson());
}

void TestUpgradeRules::hidesTheMachineId()
{
    const QByteArray id("0123456789abcdef0123456789abcdef");
    const QString print = fingerprintOf(id + '\n');
    QCOMPARE(print, fingerprintOf(id));
    QCOMPARE(print.size(), 64);
    QVERIFY(!print.contains(QString::fromLatin1(id.left(8))));
    QCOMPARE(fingerprintOf(" \n"), QString());
    QCOMPARE(cpuModelFrom("processor\t: 0\nmodel name\t: A: B\nmodel name\t: C\n"),
             QStringLiteral("A: B"));
    QCOMPARE(cpuModelFrom("processor\t: 0\nHardware\t: Board\n"), QStringLiteral("Board"));
    QCOMPARE(cpuModelFrom(""), QString());
}

QTEST_GUILESS_MAIN(TestUpgradeRules)
#include "tst_upgraderules.moc"
