#include "keepbench.h"
#include "support/privatemounts.h"
#include "vaultd/shadow/shadownet.h"

#include <QCoreApplication>
#include <QProcess>
#include <QStandardPaths>

using namespace services::vaultd;

namespace {
constexpr int kFiles = 300;
} // namespace

/// Files that are deleted past the hook.
class TestVaultdShadow : public QObject
{
    Q_OBJECT

private slots:
    void catchesEveryDeletion_data();
    void catchesEveryDeletion();
    void followsFolders_data();
    void followsFolders();
    void leavesAloneWhatIsNotDeleted_data();
    void leavesAloneWhatIsNotDeleted();
    void isOffByDefaultWithoutClones();
    void looksAgainWhenEventsWereLost();

private:
    static bool start(KeepBench &bench, ShadowNet &net,
                      VaultConfig::SecondNet mode = VaultConfig::SecondNet::Auto);
    static QStringList listedPaths(KeepBench &bench);
    static bool hasShadow(const KeepBench &bench, const QByteArray &content);
};

bool TestVaultdShadow::hasShadow(const KeepBench &bench, const QByteArray &content)
{
    const QDir shadows(QString::fromUtf8(bench.vault(".shadow")));
    const QStringList names = shadows.entryList(QDir::Files);
    return std::any_of(names.begin(), names.end(), [&](const QString &name) {
        return bytesOf(QFile::encodeName(shadows.filePath(name))) == content;
    });
}

bool TestVaultdShadow::start(KeepBench &bench, ShadowNet &net, VaultConfig::SecondNet mode)
{
    VaultConfig config;
    config.protectedDirs = QStringList{QString::fromUtf8(bench.home(""))};
    config.protectedExtensions = QStringList{QStringLiteral("txt")};
    config.secondNet = mode;
    QString error;
    return net.restart(config, true, &error) &&
           QTest::qWaitFor([&net] { return net.isComplete(); }, 60000);
}

QStringList TestVaultdShadow::listedPaths(KeepBench &bench)
{
    bench.round();
    QStringList paths;
    const QVector<VaultFile> files = bench.store->files();
    for (const VaultFile &file : files)
        paths.append(file.originalPath.mid(bench.home("").size() + 1));
    paths.sort();
    return paths;
}

void TestVaultdShadow::catchesEveryDeletion_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QStringList>("command"); // The files follow.
    const QString busybox = QStandardPaths::findExecutable(QStringLiteral("busybox"));
    for (const char *type : {"xfs", "btrfs"}) {
        QTest::addRow("static program on %s", type)
            << QByteArray(type) << QStringList{QStringLiteral(MORVANE_STATIC_DELETER)};
        if (!busybox.isEmpty())
            QTest::addRow("busybox on %s", type)
                << QByteArray(type) << QStringList{busybox, QStringLiteral("rm")};
    }
}

void TestVaultdShadow::catchesEveryDeletion()
{
    MORVANE_BENCH(bench);
    QFETCH(QStringList, command);
    ShadowNet net(*bench.layout, kUser, *bench.keeper);
    QVERIFY(start(bench, net));
    QStringList paths;
    for (int i = 0; i < kFiles; ++i)
        paths.append(QString::fromUtf8(userFile(bench.home(QByteArray::number(i) + ".txt"),
                                                "content " + QByteArray::number(i))));
    const QDir shadows(QString::fromUtf8(bench.vault(".shadow")));
    QTRY_COMPARE_WITH_TIMEOUT(shadows.entryList(QDir::Files).size(), kFiles, 60000);
    QVERIFY(asUser(
        kUser, [&] { return QProcess::execute(command.first(), command.mid(1) + paths) == 0; }));
    QTRY_COMPARE_WITH_TIMEOUT(listedPaths(bench).size(), kFiles, 60000);
    const QVector<VaultFile> files = bench.store->files();
    for (const VaultFile &file : files) {
        const QByteArray number = file.fileName.section(QLatin1Char('.'), 0, 0).toLatin1();
        QCOMPARE(bytesOf(bench.content(file.id)), "content " + number);
    }
}

void TestVaultdShadow::followsFolders_data()
{
    fileSystems();
}

void TestVaultdShadow::followsFolders()
{
    MORVANE_BENCH(bench);
    ShadowNet net(*bench.layout, kUser, *bench.keeper);
    ::mkdir(bench.home("old").constData(), 0755);
    userFile(bench.home("old/before.txt"), "a");
    userFile(bench.home("old/other.bin"), "a");
    ::mkdir(bench.home("old/.git").constData(), 0755);
    userFile(bench.home("old/.git/left out.txt"), "a");
    QVERIFY(start(bench, net, VaultConfig::SecondNet::Always));
    // A tree that comes at once, a folder that changes its name, and the end of both.
    ::mkdir(bench.home("new").constData(), 0755);
    ::mkdir(bench.home("new/deep").constData(), 0755);
    userFile(bench.home("new/deep/inside.txt"), "b");
    QCOMPARE(::rename(bench.home("old").constData(), bench.home("renamed").constData()), 0);
    // The net has read all that came before the file that it knows.
    userFile(bench.home("renamed/after.txt"), "marker");
    QTRY_VERIFY_WITH_TIMEOUT(hasShadow(bench, "marker"), 60000);
    QCOMPARE(QProcess::execute(QStringLiteral("rm"),
                               {QStringLiteral("-r"), QString::fromUtf8(bench.home("new")),
                                QString::fromUtf8(bench.home("renamed"))}),
             0);
    QTRY_COMPARE_WITH_TIMEOUT(
        listedPaths(bench),
        (QStringList{QStringLiteral("new/deep/inside.txt"), QStringLiteral("renamed/after.txt"),
                     QStringLiteral("renamed/before.txt")}),
        60000);
}

void TestVaultdShadow::leavesAloneWhatIsNotDeleted_data()
{
    fileSystems();
}

void TestVaultdShadow::leavesAloneWhatIsNotDeleted()
{
    MORVANE_BENCH(bench);
    ShadowNet net(*bench.layout, kUser, *bench.keeper);
    const QByteArray reported = userFile(bench.home("reported.txt"), "a");
    const QByteArray renamed = userFile(bench.home("renamed.txt"), "b");
    const QByteArray over = userFile(bench.home("over.txt"), "c");
    const QByteArray changed = userFile(bench.home("changed.txt"), "d");
    QVERIFY(start(bench, net, VaultConfig::SecondNet::Always));
    QVERIFY(!bench.remove(reported).isEmpty());
    QCOMPARE(::rename(renamed.constData(), bench.home("other.txt").constData()), 0);
    QCOMPARE(::rename(userFile(bench.home("new.txt"), "C").constData(), over.constData()), 0);
    userFile(changed, "D");
    QCOMPARE(::chmod(changed.constData(), 0600), 0);
    userFile(bench.home("marker.txt"), "marker");
    // What is read after all that is told before it.
    QTRY_VERIFY_WITH_TIMEOUT(hasShadow(bench, "marker"), 60000);
    // Deleted past the hook, later than the others: once it is listed, so would they be.
    QCOMPARE(::unlink(changed.constData()), 0);
    QTRY_VERIFY_WITH_TIMEOUT(listedPaths(bench).contains(QStringLiteral("changed.txt")), 60000);
    QCOMPARE(listedPaths(bench),
             (QStringList{QStringLiteral("changed.txt"), QStringLiteral("reported.txt")}));
    const QVector<VaultFile> files = bench.store->files();
    for (const VaultFile &file : files) {
        VaultFile record;
        QString error;
        if (file.fileName != QLatin1String("changed.txt"))
            continue;
        QVERIFY(readRecord(*bench.layout, file.id, &record, &error));
        QCOMPARE(bytesOf(bench.content(file.id)), QByteArray("D"));
        QCOMPARE(record.mode, 0600);
    }
}

void TestVaultdShadow::isOffByDefaultWithoutClones()
{
    KeepBench bench("ext4");
    if (!bench.disk.isMounted())
        QSKIP("No rights to mount an image, or no tools to make one");
    QVERIFY(bench.open());
    ShadowNet net(*bench.layout, kUser, *bench.keeper);
    const QByteArray path = userFile(bench.home("a.txt"), "a");
    QVERIFY(!start(bench, net));
    QVERIFY(!net.isRunning());
    struct stat info;
    QCOMPARE(::stat(path.constData(), &info), 0);
    QCOMPARE(info.st_nlink, nlink_t(1));
}

void TestVaultdShadow::looksAgainWhenEventsWereLost()
{
    KeepBench bench("btrfs");
    if (!bench.disk.isMounted())
        QSKIP("No rights to mount an image, or no tools to make one");
    QVERIFY(bench.open());
    ShadowNet net(*bench.layout, kUser, *bench.keeper);
    QVERIFY(start(bench, net));
    // More at once than the kernel's queue holds, 16384 events.
    constexpr int kMany = 20000;
    for (int i = 0; i < kMany; ++i)
        userFile(bench.home(QByteArray::number(i) + ".txt"), "x");
    const QString last = QString::fromUtf8(bench.vault(".shadow"));
    QTRY_COMPARE_WITH_TIMEOUT(QDir(last).entryList(QDir::Files).size(), kMany, 300000);
    QCOMPARE(::unlink(bench.home("19999.txt").constData()), 0);
    QTRY_COMPARE_WITH_TIMEOUT(listedPaths(bench), QStringList{QStringLiteral("19999.txt")}, 60000);
}

int main(int argc, char *argv[])
{
    testsupport::enterPrivateMounts();
    QCoreApplication app(argc, argv);
    TestVaultdShadow test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_vaultd_shadow.moc"
