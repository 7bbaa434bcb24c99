#include "vaultdprocess.h"

#include <QDirIterator>
#include <QTest>

namespace {

const QByteArray kContent = QByteArray("content of the one file ").repeated(5000);
constexpr int kMaxSteps = 60;  // Far more than any run here takes.
constexpr int kFullSteps = 24; // As many as the longest of them.

} // namespace

/// Kills the program between any two of its steps.
class TestVaultdKills : public QObject
{
    Q_OBJECT

private slots:
    void losesNothing_data();
    void losesNothing();
    void losesNothingOnAFullDisk_data();
    void losesNothingOnAFullDisk();
    void keepsWhatMayBeTheOnlyOne();

private:
    static QString amissIn(VaultdProcess &vaultd, const QByteArray &operation);
};

/// Where a file that was to be moved by the operation is now: once and whole, with nothing half
/// done beside it. What speaks against that, or nothing.
QString TestVaultdKills::amissIn(VaultdProcess &vaultd, const QByteArray &operation)
{
    QStringList holders;
    QDirIterator it(vaultd.tree.path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        if (contentOf(path) == kContent)
            holders.append(path);
        else if (path.endsWith(QLatin1String(".part")) || path.endsWith(QLatin1String(".tmp")) ||
                 path.contains(QLatin1String(".morvane_restore_")) ||
                 path.endsWith(QLatin1String("restoring.json")))
            return QStringLiteral("left behind: ") + path;
    }
    const QJsonArray files = vaultd.list();
    const QString source = vaultd.tree.path("home/a.txt");
    if (contentOf(vaultd.tree.path("out/a.txt")) != "another")
        return QStringLiteral("overwritten");
    if (operation == "deleteFiles" && holders.isEmpty())
        return files.isEmpty() ? QString() : QStringLiteral("listed without content");
    if (holders.size() != 1)
        return QStringLiteral("held by: ") + holders.join(QLatin1Char(' '));
    const QString outside = operation == "protect" ? source : vaultd.tree.path("out/a (1).txt");
    if (holders.at(0) == outside)
        return files.isEmpty() ? QString() : QStringLiteral("listed, though it is outside");
    const QJsonObject file = files.at(0).toObject();
    const QString content = vaultd.tree.path(QStringLiteral("home/.morvane_vault/%1.dat")
                                                 .arg(file.value(QLatin1String("id")).toString()));
    return files.size() == 1 && holders.at(0) == content &&
                   file.value(QLatin1String("originalPath")).toString() == source
               ? QString()
               : QStringLiteral("not to be found: ") + holders.at(0);
}

void TestVaultdKills::losesNothing_data()
{
    QTest::addColumn<QByteArray>("operation");
    QTest::addColumn<bool>("isOtherDevice");
    QTest::addColumn<int>("stepCount"); // At least.
    const QByteArray protect("protect");
    const QByteArray restore("restoreFiles");
    QTest::newRow("protect") << protect << false << 9;
    QTest::newRow("protect from another disk") << protect << true << 14;
    QTest::newRow("restore") << restore << false << 12;
    QTest::newRow("restore to another disk") << restore << true << 14;
    QTest::newRow("delete") << QByteArray("deleteFiles") << false << 8;
}

void TestVaultdKills::losesNothing()
{
    QFETCH(QByteArray, operation);
    QFETCH(bool, isOtherDevice);
    QFETCH(int, stepCount);
    const bool isProtect = operation == "protect";
    const QString dieAt = QStringLiteral("MORVANE_TEST_DIE_AT");
    bool wasKilled = true;
    int step = 0;
    while (wasKilled) {
        QVERIFY(++step < kMaxSteps);
        VaultdProcess vaultd;
        const QString source = vaultd.tree.file("home/a.txt", kContent);
        vaultd.tree.file("out/a.txt", "another");
        VaultdProcess::Faults faults{{dieAt, QString::number(step)}};
        if (isOtherDevice)
            faults.insert(QStringLiteral("MORVANE_TEST_OTHER_DEVICE"), QStringLiteral("1"));
        if (isProtect) {
            wasKilled = vaultd.protect({source}, faults).isEmpty();
        } else {
            const QStringList ids = vaultd.protect({source});
            QCOMPARE(ids.size(), 1);
            const QJsonObject params{{QStringLiteral("fileIds"), QJsonArray::fromStringList(ids)},
                                     {QStringLiteral("targetDir"), vaultd.tree.path("out")}};
            wasKilled = !vaultd.start(faults) || !vaultd.authenticate() ||
                        !vaultd.ask(operation.constData(), params).success;
        }
        // The repair may be killed too, sooner or later in it.
        vaultd.start({{dieAt, QString::number(3 + step % 7)}});
        QVERIFY(vaultd.start());
        const QString amiss = amissIn(vaultd, operation);
        QVERIFY2(amiss.isEmpty(), qPrintable(QStringLiteral("step %1: %2").arg(step).arg(amiss)));
        // In the end it is done.
        QVERIFY(wasKilled || vaultd.list().size() == (isProtect ? 1 : 0));
    }
    QVERIFY2(step > stepCount, qPrintable(QString::number(step)));
}

void TestVaultdKills::losesNothingOnAFullDisk_data()
{
    QTest::addColumn<QByteArray>("operation");
    QTest::addColumn<bool>("isOtherDevice");
    QTest::newRow("protect from another disk") << QByteArray("protect") << true;
    QTest::newRow("restore") << QByteArray("restoreFiles") << false;
    QTest::newRow("restore to another disk") << QByteArray("restoreFiles") << true;
    QTest::newRow("delete") << QByteArray("deleteFiles") << false;
}

/// Full for as long as three steps, from each second one on.
void TestVaultdKills::losesNothingOnAFullDisk()
{
    QFETCH(QByteArray, operation);
    QFETCH(bool, isOtherDevice);
    const bool isProtect = operation == "protect";
    int failures = 0;
    for (int step = 1; step < kFullSteps; step += 2) {
        VaultdProcess vaultd;
        const QString source = vaultd.tree.file("home/a.txt", kContent);
        vaultd.tree.file("out/a.txt", "another");
        VaultdProcess::Faults faults{
            {QStringLiteral("MORVANE_TEST_FULL_AT"), QString::number(step)}};
        if (isOtherDevice)
            faults.insert(QStringLiteral("MORVANE_TEST_OTHER_DEVICE"), QStringLiteral("1"));
        bool isDone = false;
        if (isProtect) {
            isDone = !vaultd.protect({source}, faults).isEmpty();
        } else {
            const QStringList ids = vaultd.protect({source});
            QCOMPARE(ids.size(), 1);
            const QJsonObject params{{QStringLiteral("fileIds"), QJsonArray::fromStringList(ids)},
                                     {QStringLiteral("targetDir"), vaultd.tree.path("out")}};
            isDone = vaultd.start(faults) && vaultd.authenticate() &&
                     vaultd.ask(operation.constData(), params)
                         .data.value(QLatin1String("success"))
                         .toBool();
        }
        failures += isDone ? 0 : 1;
        QVERIFY(vaultd.start());
        const QString amiss = amissIn(vaultd, operation);
        QVERIFY2(amiss.isEmpty(), qPrintable(QStringLiteral("step %1: %2").arg(step).arg(amiss)));
    }
    QVERIFY(failures > 0);
}

/// A name that may not be on the medium yet is not relied upon.
void TestVaultdKills::keepsWhatMayBeTheOnlyOne()
{
    const QString one = QStringLiteral("1");
    const VaultdProcess::Faults faults{{QStringLiteral("MORVANE_TEST_NAMES_UNSYNCED"), one},
                                       {QStringLiteral("MORVANE_TEST_OTHER_DEVICE"), one}};
    VaultdProcess vaultd;
    const QString source = vaultd.tree.file("home/a.txt", kContent);
    QVERIFY(vaultd.protect({source}, faults).isEmpty());
    QCOMPARE(contentOf(source), kContent);

    const QStringList ids = vaultd.protect({source});
    QCOMPARE(ids.size(), 1);
    QVERIFY(vaultd.start(faults));
    const QJsonObject params{{QStringLiteral("fileIds"), QJsonArray::fromStringList(ids)},
                             {QStringLiteral("targetDir"), vaultd.tree.dir("out")}};
    const QJsonObject data = vaultd.ask("restoreFiles", params).data;
    QVERIFY(!data.value(QLatin1String("success")).toBool(true));
    QCOMPARE(vaultd.list().size(), 1);
    QCOMPARE(contentOf(vaultd.tree.path("out/a.txt")), kContent);
    // The next start completes it.
    QVERIFY(vaultd.start());
    QCOMPARE(vaultd.list().size(), 0);
    QCOMPARE(contentOf(vaultd.tree.path("out/a.txt")), kContent);
}

QTEST_GUILESS_MAIN(TestVaultdKills)
#include "tst_vaultd_kills.moc"
