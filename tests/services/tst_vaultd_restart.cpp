#include "keepbench.h"
#include "support/privatemounts.h"

#include <QCoreApplication>

using namespace services::vaultd;

/// What a new process of the service knows of deletions that were under way in the former one.
class TestVaultdRestart : public QObject
{
    Q_OBJECT

private slots:
    void holdsWhatNobodyTold_data() { fileSystems(); }
    void holdsWhatNobodyTold();
};

/// Killed between record and answer, the program puts the file into the spool as well; killed
/// before the content was there, the spool has the only one.
void TestVaultdRestart::holdsWhatNobodyTold()
{
    MORVANE_BENCH(bench);
    const QByteArray taken = userFile(bench.home("taken"), "a");
    const QByteArray noted = userFile(bench.home("noted"), "b");
    struct stat takenFile;
    struct stat notedFile;
    QVERIFY(::stat(taken.constData(), &takenFile) == 0);
    QVERIFY(::stat(noted.constData(), &notedFile) == 0);
    const QString takenId = bench.keep(taken);
    const QString notedId = bench.keep(noted);
    QVERIFY(!takenId.isEmpty() && !notedId.isEmpty());
    {
        const VaultDir::Change change(bench.layout->dir());
        QCOMPARE(::unlink(bench.content(notedId).constData()), 0);
    }

    QVERIFY(bench.open());
    QVERIFY(bench.keeper->holds(takenFile, taken));
    QVERIFY(!bench.keeper->holds(takenFile, noted));
    QVERIFY(!bench.keeper->holds(notedFile, noted));
    // The program that has the answer may be about to delete.
    QVERIFY(bench.round());
    QVERIFY(::access(bench.content(takenId).constData(), F_OK) == 0);
    QCOMPARE(bench.keep(taken), takenId);
    QCOMPARE(::unlink(taken.constData()), 0);
    bench.keeper->settle(takenId, true);
    bench.round();
    QCOMPARE(bench.store->ids(), QStringList{takenId});
}

int main(int argc, char *argv[])
{
    testsupport::enterPrivateMounts();
    QCoreApplication app(argc, argv);
    TestVaultdRestart test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_vaultd_restart.moc"
