#include "keepbench.h"
#include "support/privatemounts.h"

#include <QCoreApplication>

using namespace services::vaultd;

namespace {

const QByteArray kContent = "content";

bool renames(uid_t uid, const QByteArray &from, const QByteArray &to)
{
    return asUser(uid, [&] { return ::rename(from.constData(), to.constData()) == 0; });
}

} // namespace

/// The vault's folder, in a home that belongs to somebody who wants something else.
class TestVaultdFolder : public QObject
{
    Q_OBJECT

private slots:
    void cannotBeMoved_data() { fileSystems(); }
    void cannotBeMoved();
    void isPutBack_data() { fileSystems(); }
    void isPutBack();
    void trustsNothingInItsPlace_data();
    void trustsNothingInItsPlace();
    void takesOverVaultsOfRoot();
    void takesOverVaultsOfTheUser();
};

void TestVaultdFolder::cannotBeMoved()
{
    MORVANE_BENCH(bench);
    const QByteArray vault = bench.home(".morvane_vault");
    QVERIFY(!renames(kUser, vault, bench.home("stolen")));
    QVERIFY(!asUser(kUser, [&] { return ::rmdir(vault.constData()) == 0; }));
    QVERIFY(!asUser(kUser, [&] { return ::open((vault + "/x").constData(), O_CREAT, 0600) >= 0; }));
    QVERIFY(!asUser(kStranger, [&] { return ::open(vault.constData(), O_RDONLY) >= 0; }));
    // Work on the vault leaves it so.
    const QString id = bench.remove(userFile(bench.home("a"), kContent));
    bench.round();
    VaultChanges changes;
    QHash<QString, QString> failures;
    bench.store->remove({id}, &changes, &failures);
    QVERIFY(failures.isEmpty());
    QVERIFY(!renames(kUser, vault, bench.home("stolen")));
}

void TestVaultdFolder::isPutBack()
{
    MORVANE_BENCH(bench);
    const QByteArray vault = bench.home(".morvane_vault");
    const QByteArray path = userFile(bench.home("a"), kContent);
    QString error;
    {
        // While names are taken out it can be moved; what is kept meanwhile gets into it.
        const VaultLock lock(*bench.layout);
        QVERIFY(renames(kUser, vault, bench.home("stolen")));
        QVERIFY(asUser(kUser, [&] { return ::mkdir(vault.constData(), 0700) == 0; }));
        QVERIFY(!bench.remove(path).isEmpty());
    }
    QVERIFY2(bench.layout->prepare(&error), qPrintable(error));
    bench.round();
    QCOMPARE(bench.store->ids().size(), 1);
    QCOMPARE(bytesOf(bench.vault(bench.store->ids().first().toLatin1() + ".dat")), kContent);
    struct stat info;
    QVERIFY(::stat(bench.home("stolen").constData(), &info) != 0);
    // The same when the service was away in between.
    {
        const VaultLock lock(*bench.layout);
        QVERIFY(renames(kUser, vault, bench.home("stolen")));
    }
    QVERIFY(bench.open());
    QCOMPARE(bench.store->ids().size(), 1);
    QCOMPARE(bytesOf(bench.vault(bench.store->ids().first().toLatin1() + ".dat")), kContent);
}

void TestVaultdFolder::trustsNothingInItsPlace_data()
{
    QTest::addColumn<QByteArray>("kind");
    for (const char *kind : {"link", "dangling link", "folder", "file", "folder with a link"})
        QTest::newRow(kind) << QByteArray(kind);
}

void TestVaultdFolder::trustsNothingInItsPlace()
{
    QFETCH(QByteArray, kind);
    KeepBench bench("ext4");
    if (!bench.disk.isMounted())
        QSKIP("No rights to mount an image, or no tools to make one");
    const QByteArray vault = bench.home(".morvane_vault");
    const QByteArray target = QFile::encodeName(bench.tree.dir("target"));
    QVERIFY(asUser(kUser, [&] {
        if (kind == "link")
            return ::symlink(target.constData(), vault.constData()) == 0;
        if (kind == "dangling link")
            return ::symlink("/none", vault.constData()) == 0;
        if (kind == "file")
            return ::open(vault.constData(), O_CREAT, 0600) >= 0;
        return ::mkdir(vault.constData(), 0777) == 0 &&
               (kind == "folder" ||
                ::symlink(target.constData(), (vault + "/.meta").constData()) == 0);
    }));
    QVERIFY(bench.open());
    QVERIFY(!bench.remove(userFile(bench.home("a"), kContent)).isEmpty());
    bench.round();
    QCOMPARE(bench.store->ids().size(), 1);
    struct stat info;
    QCOMPARE(::lstat(vault.constData(), &info), 0);
    QVERIFY(S_ISDIR(info.st_mode));
    QCOMPARE(info.st_uid, uid_t(0));
    QVERIFY(QDir(QString::fromUtf8(target)).isEmpty());
    // What was there is the user's still.
    QCOMPARE(::lstat((vault + ".aside").constData(), &info), 0);
}

/// As the present version makes them when it runs as root.
void TestVaultdFolder::takesOverVaultsOfRoot()
{
    KeepBench bench("ext4");
    if (!bench.disk.isMounted())
        QSKIP("No rights to mount an image, or no tools to make one");
    const QByteArray vault = bench.home(".morvane_vault");
    QCOMPARE(::mkdir(vault.constData(), 0700), 0);
    QCOMPARE(::mkdir((vault + "/.meta").constData(), 0700), 0);
    userFile(vault + "/x.dat", kContent);
    userFile(vault + "/.meta/x.json", R"({"id":"x","originalPath":"/home/a","fileName":"a"})");
    QCOMPARE(::chmod((vault + "/x.dat").constData(), 0640), 0);
    QVERIFY(bench.open());
    QCOMPARE(bench.store->ids(), QStringList(QStringLiteral("x")));
    QVERIFY(!bench.store->seal());
    struct stat info;
    QCOMPARE(::stat((vault + "/x.dat").constData(), &info), 0);
    QCOMPARE(info.st_uid, uid_t(0));
    VaultFile file;
    QString error;
    QVERIFY(readRecord(*bench.layout, QStringLiteral("x"), &file, &error));
    QCOMPARE(file.ownerUid, qint64(kUser));
    QCOMPARE(file.mode, 0640);
}

/// And when it runs as the user.
void TestVaultdFolder::takesOverVaultsOfTheUser()
{
    KeepBench bench("ext4");
    if (!bench.disk.isMounted())
        QSKIP("No rights to mount an image, or no tools to make one");
    const QByteArray vault = bench.home(".morvane_vault");
    QVERIFY(asUser(kUser, [&] {
        return ::mkdir(vault.constData(), 0700) == 0 &&
               ::mkdir((vault + "/.meta").constData(), 0700) == 0 &&
               ::symlink("/etc/hostname", (vault + "/y.dat").constData()) == 0;
    }));
    userFile(vault + "/x.dat", kContent);
    userFile(vault + "/.meta/x.json", R"({"originalPath":"/home/a","fileName":"a","deletedAt":5})");
    userFile(vault + "/.meta/y.json", R"({"originalPath":"/home/b","fileName":"b"})");
    // Somebody else's file that the user only gave a name to.
    const QByteArray foreign = vault + "/z.dat";
    userFile(foreign, kContent);
    QCOMPARE(::chown(foreign.constData(), 0, 0), 0);
    userFile(vault + "/.meta/z.json", R"({"originalPath":"/home/c","fileName":"c"})");
    QVERIFY(bench.open());
    QCOMPARE(bench.store->ids(), QStringList(QStringLiteral("x")));
    QCOMPARE(bytesOf(bench.vault("x.dat")), kContent);
    QVERIFY(!bench.store->seal());
    struct stat info;
    QCOMPARE(::stat(bench.vault("x.dat").constData(), &info), 0);
    QCOMPARE(info.st_uid, uid_t(0));
    QCOMPARE(info.st_nlink, nlink_t(1));
}

int main(int argc, char *argv[])
{
    testsupport::enterPrivateMounts();
    QCoreApplication app(argc, argv);
    TestVaultdFolder test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_vaultd_folder.moc"
