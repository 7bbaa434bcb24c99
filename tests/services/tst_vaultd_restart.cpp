#include "keepbench.h"
#include "support/privatemounts.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <deque>
#include <sys/resource.h>

using namespace services::vaultd;

/// What a new process of the service knows of deletions that were under way in the former one.
class TestVaultdRestart : public QObject
{
    Q_OBJECT

private slots:
    void holdsWhatNobodyTold_data() { fileSystems(); }
    void holdsWhatNobodyTold();
    void endsLongWorkOnAStop();
    void sealsPastFilesInUse();

private:
    /// The number of contents that somebody else than root could still write to.
    static int unsealedIn(const KeepBench &bench, const QStringList &ids);
};

int TestVaultdRestart::unsealedIn(const KeepBench &bench, const QStringList &ids)
{
    int count = 0;
    for (const QString &id : ids) {
        struct stat info;
        count += ::stat(bench.content(id).constData(), &info) != 0 || info.st_uid != 0 ? 1 : 0;
    }
    return count;
}

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

/// MORVANE_TEST_FILES for a long run, which tells the time of each part.
void TestVaultdRestart::endsLongWorkOnAStop()
{
    const QByteArray type("ext4"); // Without clones, so that there is something to seal.
    const int asked = qEnvironmentVariableIntValue("MORVANE_TEST_FILES");
    const int fileCount = asked > 0 ? asked : 2500; // More than one group of each kind.
    KeepBench bench(type);
    if (!bench.disk.isMounted())
        QSKIP("No rights to mount an image, or no tools to make one");
    QVERIFY(bench.open());
    QStringList ids;
    for (int i = 0; i < fileCount; ++i)
        ids.append(bench.remove(userFile(bench.home(QByteArray::number(i)), "x")));
    QVERIFY(!ids.contains(QString()));

    bench.stop = true;
    bench.round();
    QVERIFY(bench.store->ids().isEmpty());
    bench.stop = false;
    VaultChanges changes;
    QElapsedTimer clock;
    clock.start();
    bench.store->recordKept(&changes);
    if (asked > 0)
        qInfo("recorded in %lld ms", clock.elapsed());
    QCOMPARE(changes.added.size(), fileCount);
    QCOMPARE(unsealedIn(bench, ids), fileCount);
    QVERIFY(bench.store->seal());
    const int left = unsealedIn(bench, ids);
    QVERIFY(left > 0 && left < fileCount);
    bench.stop = true;
    QVERIFY(bench.store->seal());
    QCOMPARE(unsealedIn(bench, ids), left);

    // The next process does the rest.
    bench.stop = false;
    QVERIFY(bench.open());
    QCOMPARE(bench.store->ids().size(), fileCount);
    clock.start();
    do
        bench.store->seal();
    while (bench.store->isAmidSeals());
    if (asked > 0)
        qInfo("sealed in %lld ms", clock.elapsed());
    QCOMPARE(unsealedIn(bench, ids), 0);
}

/// A program that keeps many of its deleted files open does not leave those of others open to
/// change.
void TestVaultdRestart::sealsPastFilesInUse()
{
    constexpr int kInUse = 1100; // More than are looked at in one go.
    const QByteArray type("ext4");
    KeepBench bench(type);
    if (!bench.disk.isMounted())
        QSKIP("No rights to mount an image, or no tools to make one");
    struct rlimit limit = {4 * kInUse, 4 * kInUse};
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
        QSKIP("No rights to open that many files");
    QVERIFY(bench.open());
    std::deque<core::Descriptor> writers;
    for (int i = 0; i < kInUse; ++i) {
        const QByteArray path = userFile(bench.home(QByteArray::number(i)), "x");
        writers.emplace_back(::open(path.constData(), O_WRONLY | O_CLOEXEC));
        QVERIFY(writers.back().isOpen());
        QVERIFY(!bench.remove(path).isEmpty());
    }
    bench.round();
    const QString quiet = bench.remove(userFile(bench.home("quiet"), "y"));
    do
        QVERIFY(bench.round());
    while (bench.store->isAmidSeals());
    QCOMPARE(unsealedIn(bench, {quiet}), 0);
    writers.clear();
    QTRY_VERIFY(!bench.round() || !bench.store->seal());
}

int main(int argc, char *argv[])
{
    testsupport::enterPrivateMounts();
    QCoreApplication app(argc, argv);
    TestVaultdRestart test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_vaultd_restart.moc"
