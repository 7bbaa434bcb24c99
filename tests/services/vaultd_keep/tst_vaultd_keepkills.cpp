#include "keepbench.h"
#include "support/privatemounts.h"

#include <QCoreApplication>
#include <QProcess>

using namespace services::vaultd;

/// A fault before any of the steps by which a file is kept.
class TestVaultdKeepKills : public QObject
{
    Q_OBJECT

private slots:
    void losesNothing_data();
    void losesNothing();
};

void TestVaultdKeepKills::losesNothing_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QString>("fault");
    for (const char *type : {"ext4", "xfs", "btrfs"}) {
        QTest::addRow("killed on %s", type)
            << QByteArray(type) << QStringLiteral("MORVANE_TEST_DIE_AT");
        QTest::addRow("full disk on %s", type)
            << QByteArray(type) << QStringLiteral("MORVANE_TEST_FULL_AT");
    }
}

void TestVaultdKeepKills::losesNothing()
{
    MORVANE_BENCH(bench);
    QFETCH(QString, fault);
    constexpr int kMaxSteps = 80; // Far more than any run takes.
    const bool isKill = fault.endsWith(QLatin1String("DIE_AT"));
    bool wasKilled = true;
    int step = 0;
    for (int whole = 0; whole < (isKill ? 1 : kMaxSteps / 2); whole += wasKilled ? 0 : 1) {
        QVERIFY(++step < kMaxSteps);
        const QByteArray content = "content " + QByteArray::number(step);
        const QByteArray path = userFile(bench.home(QByteArray::number(step) + ".txt"), content);
        bench.close();
        QProcess runner;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(fault, QString::number(step));
        runner.setProcessEnvironment(environment);
        runner.start(
            QStringLiteral(MORVANE_KEEP_RUNNER),
            {QString::fromUtf8(bench.home("")), bench.tree.path("state"), QString::fromUtf8(path)});
        QVERIFY(runner.waitForFinished());
        wasKilled = runner.exitStatus() == QProcess::CrashExit;
        QVERIFY2(wasKilled || runner.exitCode() == 0 || runner.exitCode() == 3 ||
                     (!isKill && runner.exitCode() == 2),
                 qPrintable(QStringLiteral("step %1: %2").arg(step).arg(runner.exitCode())));
        // The next start finds the file in its place, whole, or in the vault under its path.
        const bool isInPlace = bytesOf(path) == content;
        QVERIFY2(bench.open(), qPrintable(QString::number(step)));
        const auto isListed = [&] {
            bench.round();
            const QVector<VaultFile> files = bench.store->files();
            return std::count_if(files.begin(), files.end(), [&](const VaultFile &file) {
                return file.originalPath == QString::fromUtf8(path) &&
                       bytesOf(bench.content(file.id)) == content;
            });
        };
        if (isInPlace)
            QCOMPARE(int(isListed()), 0);
        else
            QTRY_VERIFY2(isListed() == 1, qPrintable(QString::number(step)));
        // Nothing is listed without its name, whatever was cut short.
        const QVector<VaultFile> files = bench.store->files();
        for (const VaultFile &file : files)
            QVERIFY2(!file.originalPath.isEmpty(), qPrintable(QString::number(step)));
    }
    QVERIFY2(step > 12, qPrintable(QString::number(step)));
}

int main(int argc, char *argv[])
{
    testsupport::enterPrivateMounts();
    QCoreApplication app(argc, argv);
    TestVaultdKeepKills test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_vaultd_keepkills.moc"
