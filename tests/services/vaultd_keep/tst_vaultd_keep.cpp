#include "keepbench.h"
#include "support/privatemounts.h"
#include "vaultd/expiry.h"

#include <QCoreApplication>
#include <QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

using namespace services::vaultd;

namespace {

const QByteArray kContent = "content of a deleted file";

bool canOpen(const QByteArray &path, int flags)
{
    return ::open(path.constData(), flags) >= 0;
}

} // namespace

/// What a deletion leaves in the vault, on real file systems, and what a user can do to it.
class TestVaultdKeep : public QObject
{
    Q_OBJECT

private slots:
    void keepsAllOfAFile_data() { fileSystems(); }
    void keepsAllOfAFile();
    void keepsOddFiles_data() { fileSystems(); }
    void keepsOddFiles();
    void letsGoWhatWasNotDeleted_data() { fileSystems(); }
    void letsGoWhatWasNotDeleted();
    void listsWhatNobodyTold_data() { fileSystems(); }
    void listsWhatNobodyTold();
    void cannotBeSpoiled_data() { fileSystems(); }
    void cannotBeSpoiled();
    void keepsOnAFullDisk_data() { fileSystems(); }
    void keepsOnAFullDisk();
    void usesTheVaultOfTheDisk_data() { fileSystems(); }
    void usesTheVaultOfTheDisk();
    void takesReplacedFilesFirst();
};

void TestVaultdKeep::keepsAllOfAFile()
{
    MORVANE_BENCH(bench);
    const QByteArray path = userFile(bench.home("a.txt"), kContent);
    const struct timespec times[] = {{1000, 5}, {2000, 7}};
    QCOMPARE(::utimensat(AT_FDCWD, path.constData(), times, 0), 0);
    QCOMPARE(::setxattr(path.constData(), "user.note", "x", 1, 0), 0);
    QCOMPARE(::chmod(path.constData(), 0640), 0);
    struct stat before;
    QCOMPARE(::stat(path.constData(), &before), 0);
    QVERIFY(!bench.keeper->holds(before, path));
    const QString id = bench.keep(path);
    QVERIFY(!id.isEmpty());
    QVERIFY(bench.keeper->holds(before, path));
    QCOMPARE(bench.keep(path), id); // of a program that has not heard the answer
    QCOMPARE(::unlink(path.constData()), 0);
    bench.keeper->settle(id, true);
    QTRY_VERIFY(!bench.store->seal() && (bench.round(), bench.store->ids().size() == 1));
    QVERIFY(bench.keeper->holds(before, path));

    VaultFile file;
    QString error;
    QVERIFY2(readRecord(*bench.layout, id, &file, &error), qPrintable(error));
    QCOMPARE(file.pathBytes(), path);
    QCOMPARE(file.ownerUid, qint64(kUser));
    QCOMPARE(file.mode, 0640);
    QCOMPARE(file.modified.tv_sec, time_t(2000));
    QCOMPARE(file.modified.tv_nsec, 7L);
    QCOMPARE(bytesOf(bench.content(id)), kContent);
    char value = 0;
    QCOMPARE(::getxattr(bench.content(id).constData(), "user.note", &value, 1), ssize_t(1));
    struct stat after;
    QCOMPARE(::stat(bench.content(id).constData(), &after), 0);
    QCOMPARE(after.st_mtim.tv_nsec, 7L);
    QCOMPARE(after.st_uid, uid_t(0));
    QCOMPARE(after.st_mode & 07777, mode_t(0600));
    // The record is the user's to read, and nobody else's.
    const QByteArray record = bench.vault(".meta/" + id.toLatin1() + ".json");
    QVERIFY(asUser(kUser, [&] { return canOpen(record, O_RDONLY); }));
    QVERIFY(!asUser(kUser, [&] { return canOpen(record, O_RDWR); }));
    QVERIFY(!asUser(kStranger, [&] { return canOpen(record, O_RDONLY); }));
    QVERIFY(!asUser(kUser, [&] { return canOpen(bench.vault(id.toLatin1() + ".dat"), O_RDONLY); }));
}

void TestVaultdKeep::keepsOddFiles()
{
    MORVANE_BENCH(bench);
    const QByteArray big(3 * 1024 * 1024, 'b');
    QMap<QByteArray, QByteArray> files{
        {"empty", QByteArray()},       {"\xFF\xFE no text.txt", kContent},
        {"line\nbreak", kContent},     {QByteArray(255, 'n'), kContent},
        {"no rights", kContent},       {"two names", kContent},
        {"large with two names", big}, {"sparse", QByteArray()}};
    QHash<QByteArray, QString> ids;
    for (auto it = files.begin(); it != files.end(); ++it) {
        const QByteArray path = userFile(bench.home(it.key()), it.value());
        QVERIFY2(!path.isEmpty(), it.key().constData());
        if (it.key() == "no rights")
            QCOMPARE(::chmod(path.constData(), 0), 0);
        if (it.key().endsWith("two names"))
            QCOMPARE(::link(path.constData(), (path.left(path.size() - 3) + "2").constData()), 0);
        if (it.key() == "sparse") {
            QCOMPARE(::truncate(path.constData(), 1024 * 1024), 0);
            it.value() = QByteArray(1024 * 1024, '\0');
        }
        ids.insert(it.key(), bench.remove(path));
        QVERIFY2(!ids.value(it.key()).isEmpty(), it.key().constData());
    }
    bench.round();
    QCOMPARE(bench.store->ids().size(), files.size());
    for (auto it = files.cbegin(); it != files.cend(); ++it) {
        const QString id = ids.value(it.key());
        QVERIFY2(bytesOf(bench.content(id)) == it.value(), it.key().constData());
        VaultFile file;
        QString error;
        QVERIFY2(readRecord(*bench.layout, id, &file, &error), qPrintable(error));
        QCOMPARE(file.pathBytes(), bench.home(it.key()));
        struct stat info;
        QCOMPARE(::stat(bench.content(id).constData(), &info), 0);
        QVERIFY2(it.key() != "sparse" || info.st_blocks < 8, "the hole was filled");
    }
    // What is left out, and what is in a vault, is not kept.
    QCOMPARE(::mkdir(bench.home(".git").constData(), 0755), 0);
    QVERIFY(bench.keep(userFile(bench.home(".git/index"), kContent)).isEmpty());
    QVERIFY(bench.keep(bench.vault(ids.value("empty").toLatin1() + ".dat")).isEmpty());
}

void TestVaultdKeep::letsGoWhatWasNotDeleted()
{
    MORVANE_BENCH(bench);
    const QByteArray path = userFile(bench.home("a"), kContent);
    struct stat before;
    QCOMPARE(::stat(path.constData(), &before), 0);
    const QString id = bench.keep(path);
    bench.keeper->settle(id, false);
    QVERIFY(!bench.keeper->holds(before, path));
    QVERIFY(!bench.round());
    QVERIFY(bytesOf(bench.content(id)).isEmpty());
    QVERIFY(bench.store->ids().isEmpty());
    struct stat after;
    QCOMPARE(::stat(path.constData(), &after), 0);
    QCOMPARE(after.st_nlink, nlink_t(1));
    QCOMPARE(after.st_uid, kUser);
    QVERIFY(bench.open());
    QVERIFY(bench.store->ids().isEmpty());
}

/// The service, or the program, may end between the answer and the result.
void TestVaultdKeep::listsWhatNobodyTold()
{
    MORVANE_BENCH(bench);
    const QByteArray gone = userFile(bench.home("gone"), kContent);
    const QByteArray exchanged = userFile(bench.home("exchanged"), kContent);
    const QByteArray there = userFile(bench.home("there"), kContent);
    const QStringList ids{bench.keep(gone), bench.keep(exchanged)};
    QVERIFY(!bench.keep(there).isEmpty());
    QCOMPARE(::unlink(gone.constData()), 0);
    QCOMPARE(::unlink(exchanged.constData()), 0);
    userFile(exchanged, "another file");
    QVERIFY(bench.open());
    QTRY_VERIFY_WITH_TIMEOUT((bench.round(), bench.store->ids().size() == 2), 10000);
    for (const QString &id : ids)
        QCOMPARE(bytesOf(bench.content(id)), kContent);
    QCOMPARE(bytesOf(there), kContent);
    // A second start, without the index, finds the same.
    bench.close();
    QVERIFY(QFile::remove(bench.tree.path("state/index.db")));
    QVERIFY(bench.open());
    QCOMPARE(bench.store->ids().size(), 2);
}

void TestVaultdKeep::cannotBeSpoiled()
{
    MORVANE_BENCH(bench);
    const QByteArray open = userFile(bench.home("open"), kContent);
    const QByteArray linked = userFile(bench.home("linked"), kContent);
    const int writer = ::open(open.constData(), O_RDWR);
    const QString openId = bench.keep(open);
    const QString linkedId = bench.keep(linked);
    // A further name, made while the deletion is under way.
    const QByteArray second = bench.home("second name");
    QVERIFY(asUser(kUser, [&] { return ::link(linked.constData(), second.constData()) == 0; }));
    QCOMPARE(::unlink(open.constData()), 0);
    QCOMPARE(::unlink(linked.constData()), 0);
    bench.keeper->settle(openId, true);
    bench.keeper->settle(linkedId, true);
    bench.round();
    const bool hasClones = type != "ext4";
    // Where there are no clones, a writer is waited for.
    QCOMPARE(bench.store->seal(), !hasClones);
    QVERIFY(asUser(kUser, [&] { return ::truncate(second.constData(), 0) == 0; }));
    QCOMPARE(bytesOf(bench.content(linkedId)), kContent);
    if (hasClones) {
        QCOMPARE(::ftruncate(writer, 0), 0);
        QCOMPARE(bytesOf(bench.content(openId)), kContent);
    }
    ::close(writer);
    QVERIFY(!bench.store->seal());
    for (const QString &id : {openId, linkedId}) {
        struct stat info;
        QCOMPARE(::stat(bench.content(id).constData(), &info), 0);
        QCOMPARE(info.st_uid, uid_t(0));
        QCOMPARE(info.st_nlink, nlink_t(1));
        QCOMPARE(bytesOf(bench.content(id)), kContent);
    }
}

void TestVaultdKeep::keepsOnAFullDisk()
{
    MORVANE_BENCH(bench);
    VaultChanges changes;
    QString error;
    const QByteArray path = userFile(bench.home("a"), kContent);
    QVERIFY(bench.store->refresh(&changes, &error)); // takes the reserve
    bench.disk.fill();
    const QString id = bench.remove(path);
    QVERIFY(!id.isEmpty());
    QTRY_VERIFY((bench.round(), bench.store->ids() == QStringList(id)));
    VaultFile file;
    QVERIFY2(readRecord(*bench.layout, id, &file, &error), qPrintable(error));
    QCOMPARE(bytesOf(bench.content(id)), kContent);
    bench.disk.empty();
}

void TestVaultdKeep::usesTheVaultOfTheDisk()
{
    MORVANE_BENCH(bench);
    LoopDisk other(bench.tree, type, "other");
    QVERIFY(other.isMounted());
    const QByteArray top = QFile::encodeName(other.mountPoint());
    const QByteArray path = userFile(top + "/a", kContent);
    const QString id = bench.remove(path);
    bench.round();
    QCOMPARE(bench.store->ids(), QStringList(id));
    const QByteArray record = top + "/.morvane_vault/.meta/" + id.toLatin1() + ".json";
    QCOMPARE(bytesOf(top + "/.morvane_vault/" + id.toLatin1() + ".dat"), kContent);
    QVERIFY(asUser(kUser, [&] { return canOpen(record, O_RDONLY); }));
    QVERIFY(!asUser(kStranger, [&] { return canOpen(record, O_RDONLY); }));
    // It is found again without the index, by this user only.
    bench.close();
    QVERIFY(QFile::remove(bench.tree.path("state/index.db")));
    QVERIFY(bench.open());
    QTRY_VERIFY((bench.round(), bench.store->ids() == QStringList(id)));
    const QString home = bench.disk.path(QStringLiteral("stranger"));
    QVERIFY(QDir().mkpath(home));
    const VaultLayout strangers(home, kStranger);
    VaultStore store(strangers, bench.tree.dir("state2"), bench.stop);
    QString error;
    QVERIFY2(store.open(&error), qPrintable(error));
    QVERIFY(store.ids().isEmpty());
    // It goes like any other.
    VaultChanges changes;
    QHash<QString, QString> failures;
    bench.store->remove({id}, &changes, &failures);
    QVERIFY(failures.isEmpty());
    QVERIFY(bytesOf(record).isEmpty());
}

void TestVaultdKeep::takesReplacedFilesFirst()
{
    VaultConfig limits;
    limits.maxSpaceBytes = 25;
    QVector<VaultFile> files;
    for (const char *name : {"a", "b", "c", "d"}) {
        VaultFile file;
        file.id = QString::fromLatin1(name);
        file.fileSize = 10;
        file.keptSince = 1000 + files.size();
        file.isReplaced = file.id == QLatin1String("c");
        files.append(file);
    }
    QCOMPARE(expiredIds(files, limits, 2000, -1),
             (QStringList{QStringLiteral("c"), QStringLiteral("a")}));
}

int main(int argc, char *argv[])
{
    testsupport::enterPrivateMounts();
    QCoreApplication app(argc, argv);
    TestVaultdKeep test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_vaultd_keep.moc"
