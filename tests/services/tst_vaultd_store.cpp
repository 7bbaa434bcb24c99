#include "support/temptree.h"
#include "vaultd/expiry.h"
#include "vaultd/filecopy.h"
#include "vaultd/fileindex.h"
#include "vaultd/passwords.h"
#include "vaultd/protect.h"
#include "vaultd/vaultstore.h"
#include "vaultd/vaultthread.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonDocument>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace services::vaultd;

namespace {

const QByteArray kContent = "protected content";

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// A parent with a vault, and a state folder.
struct Bench
{
    Bench()
        : layout(tree.dir("home"))
        , store(layout, tree.dir("state"), stop)
    {}

    bool open()
    {
        QString error;
        return store.open(&error);
    }
    QString protect(const QString &path, qint64 now = 1000)
    {
        VaultFile file;
        QString error;
        return layout.prepare(&error) && protectFile(layout, path, now, &file, &error) ? file.id
                                                                                       : QString();
    }
    VaultFile only() const { return store.files().value(0); }
    /// Contents by path of all files, hidden ones too.
    QMap<QString, QByteArray> snapshot(const TreePath &top = QString()) const
    {
        QMap<QString, QByteArray> files;
        QDirIterator it(tree.path(top), QDir::Files | QDir::System | QDir::Hidden,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            // The index says nothing that the rest does not.
            if (!path.contains(QLatin1String("/state/index.db")))
                files.insert(path, isPlainFile(path) ? readAll(path) : QByteArray("special"));
        }
        return files;
    }
    QString inVault(const char *name) const { return layout.path(text(name)); }

    TempTree tree;
    std::atomic<bool> stop{false};
    VaultLayout layout;
    VaultStore store;
};

} // namespace

class TestVaultdStore : public QObject
{
    Q_OBJECT

private slots:
    void protectsPlainFilesOnly_data();
    void protectsPlainFilesOnly();
    void givesBackWhatWasTaken();
    void namesWithoutOverwriting_data();
    void namesWithoutOverwriting();
    void distrustsRecords_data();
    void distrustsRecords();
    void settlesWhatACrashLeft_data();
    void settlesWhatACrashLeft();
    void distrustsJournals_data();
    void distrustsJournals();
    void refusesFoldersThatLeadOutside();
    void followsOtherProcesses();
    void copiesWhatStaysTheSame();
    void expires_data();
    void expires();
    void asksClockAndDisk();
    void comparesInConstantTime();
};

void TestVaultdStore::protectsPlainFilesOnly_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("isTaken");
    QTest::newRow("file") << QStringLiteral("home/a") << true;
    QTest::newRow("through a link to its folder") << QStringLiteral("link/a") << true;
    QTest::newRow("link") << QStringLiteral("home/soft") << false;
    QTest::newRow("dangling link") << QStringLiteral("home/dangling") << false;
    QTest::newRow("folder") << QStringLiteral("home/dir") << false;
    QTest::newRow("folder with a slash") << QStringLiteral("home/dir/") << false;
    QTest::newRow("steps up") << QStringLiteral("home/dir/..") << false;
    QTest::newRow("pipe") << QStringLiteral("home/pipe") << false;
    QTest::newRow("nothing") << QStringLiteral("home/none") << false;
    QTest::newRow("in the vault") << QStringLiteral("home/.morvane_vault/a") << false;
    QTest::newRow("a record") << QStringLiteral("home/.morvane_vault/.meta/a.json") << false;
    QTest::newRow("in the vault by a link") << QStringLiteral("link/.morvane_vault/a") << false;
}

void TestVaultdStore::protectsPlainFilesOnly()
{
    QFETCH(QString, path);
    QFETCH(bool, isTaken);
    Bench bench;
    for (const char *name : {"home/a", "home/.morvane_vault/a", "home/.morvane_vault/.meta/a.json"})
        bench.tree.file(name, kContent);
    bench.tree.link("link", bench.tree.path("home"));
    bench.tree.link("home/soft", bench.tree.path("home/a"));
    bench.tree.link("home/dangling", bench.tree.path("none"));
    bench.tree.dir("home/dir");
    bench.tree.fifo("home/pipe");
    const QMap<QString, QByteArray> before = bench.snapshot();
    const QString id = bench.protect(bench.tree.path(path));
    QCOMPARE(!id.isEmpty(), isTaken);
    if (!isTaken) {
        QCOMPARE(bench.snapshot(), before);
        return;
    }
    QVERIFY(!QFile::exists(bench.tree.path("home/a")));
    VaultFile file;
    QString error;
    QVERIFY2(readRecord(bench.layout, id, &file, &error), qPrintable(error));
    QCOMPARE(file.originalPath, bench.tree.path("home/a"));
    QCOMPARE(file.deletedAt, qint64(1000));
}

void TestVaultdStore::givesBackWhatWasTaken()
{
    Bench bench;
    const QString path = bench.tree.file(".profile", kContent);
    QVERIFY(QFile::setPermissions(path, QFile::ReadOwner | QFile::ExeOwner));
    struct stat before;
    QVERIFY(look(path, &before));
    const QString id = bench.protect(path);
    QVERIFY(bench.open());
    QCOMPARE(bench.only().fileName, QStringLiteral(".profile"));
    QString placed;
    QString error;
    VaultChanges changes;
    QVERIFY(bench.store.restore(id, bench.tree.path(), &placed, &changes, &error));
    QCOMPARE(placed, path);
    QCOMPARE(changes.removed, QStringList(id));
    QCOMPARE(readAll(path), kContent);
    struct stat after;
    QVERIFY(look(path, &after));
    QCOMPARE(after.st_mode, before.st_mode);
    QCOMPARE(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
    QCOMPARE(after.st_nlink, nlink_t(1));
    QCOMPARE(bench.snapshot().size(), 1);
}

void TestVaultdStore::namesWithoutOverwriting_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("next");
    QTest::newRow("plain") << text("报告.docx") << text("报告 (1).docx");
    QTest::newRow("no suffix") << QStringLiteral("Makefile") << QStringLiteral("Makefile (1)");
    QTest::newRow("hidden") << QStringLiteral(".bashrc") << QStringLiteral(".bashrc (1)");
    const QString longest = QString(251, QLatin1Char('n')) + QStringLiteral(".txt");
    QTest::newRow("longest") << longest
                             << QString(196, QLatin1Char('n')) + QStringLiteral(" (1).txt");
}

void TestVaultdStore::namesWithoutOverwriting()
{
    QFETCH(QString, name);
    QFETCH(QString, next);
    Bench bench;
    const QString id = bench.protect(bench.tree.file(QStringLiteral("home/") + name, kContent));
    // A link that leads nowhere takes the name, too.
    bench.tree.link(QStringLiteral("out/") + name, bench.tree.path("none"));
    QVERIFY(bench.open());
    QString placed;
    QString error;
    VaultChanges changes;
    QVERIFY2(bench.store.restore(id, bench.tree.path("out"), &placed, &changes, &error),
             qPrintable(error));
    QCOMPARE(placed, bench.tree.path(QStringLiteral("out/") + next));
    QCOMPARE(readAll(placed), kContent);
    QVERIFY(!QFile::exists(bench.tree.path("none")));
}

void TestVaultdStore::distrustsRecords_data()
{
    QTest::addColumn<QByteArray>("record"); // "@": the tree. Stands under the id "x".
    QTest::addColumn<bool>("isListed");
    const auto row = [](const char *name, const QByteArray &record, bool isListed = false) {
        QTest::newRow(name) << record << isListed;
    };
    row("as written",
        R"({"id":"x","fileName":"a","originalPath":"/h/a","fileSize":1,"deletedAt":1})", true);
    row("path only", R"({"originalPath":"/h/a"})", true);
    row("name only", R"({"fileName":"a"})", true);
    row("numbers out of range", R"({"fileName":"a","fileSize":-1e300,"deletedAt":1e300})", true);
    row("nothing", "");
    row("noise", "\xff\xfe{");
    row("empty object", "{}");
    row("no name", R"({"id":"x"})");
    row("another id", R"({"id":"y","fileName":"a"})");
    row("id that leads outside", R"({"id":"../../outside","fileName":"a"})");
    row("id that is a number", R"({"id":1,"fileName":"a"})");
    row("name that leads outside", R"({"fileName":"../outside"})");
    row("name that is a step", R"({"fileName":".."})");
    row("name with a null", R"({"fileName":"a\u0000b"})");
    row("name of 300 bytes", "{\"fileName\":\"" + QByteArray(300, 'a') + "\"}");
    row("path that steps up", R"({"fileName":"a","originalPath":"/h/../../outside"})");
    row("relative path", R"({"fileName":"a","originalPath":"h/a"})");
    row("size as text", R"({"fileName":"a","fileSize":"1"})");
    row("state of the original", R"({"fileName":"a","originalState":{}})");
    row("huge", R"({"fileName":"a"})" + QByteArray(2 * 1024 * 1024, ' '));
}

void TestVaultdStore::distrustsRecords()
{
    QFETCH(QByteArray, record);
    QFETCH(bool, isListed);
    Bench bench;
    bench.tree.file("outside", "outside");
    bench.tree.file("home/.morvane_vault/x.dat", kContent);
    bench.tree.file("home/.morvane_vault/.meta/x.json", record);
    const QMap<QString, QByteArray> before = bench.snapshot();
    QVERIFY(bench.open());
    QCOMPARE(bench.store.files().size(), isListed ? 1 : 0);
    QCOMPARE(bench.snapshot(), before);
    if (!isListed)
        return;
    // The size is that of the content, and no time is beyond reach.
    QCOMPARE(bench.only().fileSize, qint64(kContent.size()));
    QVERIFY(bench.only().keptSince > 0);
    QString placed;
    QString error;
    VaultChanges changes;
    QVERIFY(
        bench.store.restore(QStringLiteral("x"), bench.tree.dir("out"), &placed, &changes, &error));
    QCOMPARE(placed, bench.tree.path("out/a"));
}

void TestVaultdStore::settlesWhatACrashLeft_data()
{
    QTest::addColumn<QStringList>("files"); // In the tree, with the same content; "x" is the id.
    QTest::addColumn<QStringList>("gone");
    QTest::addColumn<QString>("listed"); // Names of the files that are listed.
    const QString content = QStringLiteral("home/.morvane_vault/x.dat");
    const QString record = QStringLiteral("home/.morvane_vault/.meta/x.json");
    const QString original = QStringLiteral("home/a");
    QTest::newRow("nothing") << QStringList() << QStringList() << QString();
    QTest::newRow("whole") << QStringList{content, record} << QStringList() << QStringLiteral("a");
    QTest::newRow("content alone") << QStringList{content} << QStringList() << text("恢复的文件-x");
    QTest::newRow("record before its move")
        << QStringList{record, original} << QStringList{record} << QString();
    QTest::newRow("record without either")
        << QStringList{record} << QStringList{record} << QString();
    QTest::newRow("a new file in place of the original")
        << QStringList{content, record, original} << QStringList() << QStringLiteral("a");
    const QStringList unfinished{QStringLiteral("home/.morvane_vault/x.part"),
                                 QStringLiteral("home/.morvane_vault/.meta/x.tmp")};
    QTest::newRow("unfinished") << unfinished << unfinished << QString();
    QTest::newRow("of others") << QStringList{QStringLiteral("home/.morvane_vault/note.txt"),
                                              QStringLiteral("home/.morvane_vault/a b.dat"),
                                              QStringLiteral("home/.morvane_vault/a.b.part"),
                                              QStringLiteral("home/.morvane_vault/.meta/.json")}
                               << QStringList() << QString();
}

void TestVaultdStore::settlesWhatACrashLeft()
{
    QFETCH(QStringList, files);
    QFETCH(QStringList, gone);
    QFETCH(QString, listed);
    Bench bench;
    for (const QString &name : qAsConst(files)) {
        const bool isRecord = name.endsWith(QLatin1String("x.json"));
        const QByteArray record = R"({"originalPath":")" + bench.tree.path("home/a").toUtf8() +
                                  R"(","originalState":"1:2:3:4.5:6.7"})";
        bench.tree.file(name, isRecord ? record : kContent);
    }
    // Twice: what was settled stays settled.
    for (int i = 0; i < 2; ++i) {
        VaultStore store(bench.layout, bench.tree.path("state"), bench.stop);
        QString error;
        QVERIFY(store.open(&error));
        QStringList names;
        for (const VaultFile &file : store.files())
            names.append(file.fileName);
        QCOMPARE(names.join(QLatin1Char(' ')), listed);
        for (const QString &name : qAsConst(files))
            QCOMPARE(QFile::exists(bench.tree.path(name)), !gone.contains(name));
    }
}

void TestVaultdStore::distrustsJournals_data()
{
    QTest::addColumn<QByteArray>("journal"); // "@": the tree; "#": this process's user.
    QTest::addColumn<bool>("isDone");        // The file counts as restored.
    const auto row = [](const char *name, const char *journal, bool isDone = false) {
        QTest::newRow(name) << QByteArray(journal) << isDone;
    };
    row("done", R"({"id":"x","target":"@/out","placed":"same","user":#})", true);
    row("another content", R"({"id":"x","target":"@/out","placed":"other","user":#})");
    row("nothing there", R"({"id":"x","target":"@/out","placed":"none","user":#})");
    row("a link to the content", R"({"id":"x","target":"@/out","placed":"soft","user":#})");
    row("half done", R"({"id":"y","target":"@/out","placed":"same","user":#})");
    row("id that leads outside", R"({"id":"../x","target":"@/out","placed":"same","user":#})");
    row("name that leads outside",
        R"({"id":"x","target":"@/home","placed":"../out/same","user":#})");
    row("relative folder", R"({"id":"x","target":"out","placed":"same","user":#})");
    row("noise", "{{");
}

void TestVaultdStore::distrustsJournals()
{
    QFETCH(QByteArray, journal);
    QFETCH(bool, isDone);
    Bench bench;
    bench.tree.file("home/.morvane_vault/x.dat", kContent);
    bench.tree.file("home/.morvane_vault/.meta/x.json", R"({"fileName":"a"})");
    bench.tree.file("out/same", kContent);
    bench.tree.file("out/other", "protected contenT");
    bench.tree.link("out/soft", bench.inVault("x.dat"));
    bench.tree.file("out/.morvane_restore_y", kContent.left(3));
    bench.tree.file("state/restoring.json", journal.replace("@", bench.tree.path().toUtf8())
                                                .replace("#", QByteArray::number(::geteuid())));
    QMap<QString, QByteArray> expected = bench.snapshot("out");
    if (journal.contains("\"y\""))
        expected.remove(bench.tree.path("out/.morvane_restore_y"));
    QVERIFY(bench.open());
    if (isDone)
        expected.remove(bench.tree.path("out/soft")); // It leads nowhere now.
    QMap<QString, QByteArray> after = bench.snapshot("out");
    if (isDone)
        after.remove(bench.tree.path("out/soft"));
    QCOMPARE(after, expected);
    QCOMPARE(bench.store.files().size(), isDone ? 0 : 1);
    QCOMPARE(QFile::exists(bench.inVault("x.dat")), !isDone);
    QVERIFY(!QFile::exists(bench.tree.path("state/restoring.json")));
}

void TestVaultdStore::refusesFoldersThatLeadOutside()
{
    for (const char *name : {"home/.morvane_vault", "home/.morvane_vault/.meta"}) {
        Bench bench;
        bench.tree.file("elsewhere/x.dat", kContent);
        bench.tree.link(name, bench.tree.dir("elsewhere"));
        QVERIFY(!bench.open());
        QVERIFY(bench.protect(bench.tree.file("home/a", kContent)).isEmpty());
        QVERIFY(QFile::exists(bench.tree.path("home/a")));
    }
    // Single entries that do are not listed and stay what they are.
    Bench bench;
    const QString outside = bench.tree.file("outside", R"({"fileName":"a"})");
    bench.tree.link("home/.morvane_vault/x.dat", outside);
    bench.tree.file("home/.morvane_vault/.meta/x.json", R"({"fileName":"a"})");
    bench.tree.file("home/.morvane_vault/y.dat", kContent);
    bench.tree.link("home/.morvane_vault/.meta/y.json", outside);
    bench.tree.link("home/.morvane_vault/z.dat", outside);
    bench.tree.file("home/.morvane_vault/p.dat", kContent);
    bench.tree.fifo("home/.morvane_vault/.meta/p.json");
    const QMap<QString, QByteArray> before = bench.snapshot();
    QVERIFY(bench.open());
    QVERIFY(bench.store.files().isEmpty());
    QCOMPARE(bench.snapshot(), before);
}

void TestVaultdStore::followsOtherProcesses()
{
    Bench bench;
    QVERIFY(bench.open());
    const QString id = bench.protect(bench.tree.file("home/a", kContent));
    const QString kept = bench.protect(bench.tree.file("home/b", kContent));
    VaultChanges changes;
    QString error;
    QVERIFY(bench.store.refresh(&changes, &error));
    QCOMPARE(changes.added.size(), 2);
    QVERIFY(changes.removed.isEmpty());

    // What is gone is no longer listed, and cannot be asked for.
    QVERIFY(QFile::remove(bench.layout.content(id)));
    changes = VaultChanges();
    QHash<QString, QString> failures;
    bench.store.remove({QStringLiteral("none"), id}, &changes, &failures);
    QCOMPARE(failures.keys(), QStringList(QStringLiteral("none")));
    QVERIFY(bench.store.refresh(&changes, &error));
    QCOMPARE(changes.removed, QStringList(id));
    QCOMPARE(bench.only().id, kept);
    // Even with the whole vault.
    QVERIFY(QDir(bench.layout.root()).removeRecursively());
    QVERIFY(bench.store.refresh(&changes, &error));
    QVERIFY(bench.store.files().isEmpty());
}

void TestVaultdStore::copiesWhatStaysTheSame()
{
    Bench bench;
    const QString source = bench.tree.file("a", QByteArray(3 * 1024 * 1024, 'a'));
    const auto copy = [&bench](const QString &from, const char *name) {
        services::OutputFile output(bench.tree.path(), text(name));
        struct stat info;
        QString error;
        return output.open(&error) && copyInto(from, output, &info, bench.stop, &error) &&
               output.publish(text(name) + QStringLiteral("!"), &error) ==
                   services::OutputFile::Publish::Done;
    };
    QVERIFY(copy(source, "b"));
    QVERIFY(haveSameContent(source, bench.tree.path("b!")));
    bench.tree.file("c", QByteArray(3 * 1024 * 1024 - 1, 'a') + 'b');
    QVERIFY(!haveSameContent(source, bench.tree.path("c")));
    QVERIFY(!haveSameContent(source, bench.tree.path("none")));
    QVERIFY(!haveSameContent(source, bench.tree.link("soft", source)));
    QVERIFY(!copy(bench.tree.path("soft"), "d"));
    QVERIFY(!copy(bench.tree.fifo("pipe"), "d"));
    bench.stop = true;
    QVERIFY(!copy(source, "d"));
    QVERIFY(!QFile::exists(bench.tree.path("d")));
}

void TestVaultdStore::expires_data()
{
    QTest::addColumn<int>("days");
    QTest::addColumn<qint64>("maxSpace");
    QTest::addColumn<qint64>("threshold");
    QTest::addColumn<qint64>("freeBytes");
    QTest::addColumn<QString>("expired"); // Of four files of 10 bytes, each a day old more.
    const qint64 none = 0;
    QTest::newRow("no limit") << 30 << none << none << none << "";
    QTest::newRow("age, to the second") << 3 << none << none << none << "d c";
    QTest::newRow("all too old") << 1 << none << none << none << "d c b a";
    QTest::newRow("space enough") << 30 << qint64(40) << none << none << "";
    QTest::newRow("a byte over") << 30 << qint64(39) << none << none << "d";
    QTest::newRow("space for one") << 30 << qint64(10) << none << none << "d c b";
    QTest::newRow("space for none") << 30 << qint64(9) << none << none << "d c b a";
    QTest::newRow("free enough") << 30 << none << qint64(100) << qint64(100) << "";
    QTest::newRow("emergency") << 30 << none << qint64(100) << qint64(85) << "d c";
    QTest::newRow("emergency without end") << 30 << none << qint64(1000) << none << "d c b a";
    QTest::newRow("free space unknown") << 30 << none << qint64(100) << qint64(-1) << "";
    QTest::newRow("age serves the space too") << 4 << qint64(30) << qint64(10) << none << "d";
}

void TestVaultdStore::expires()
{
    QFETCH(int, days);
    QFETCH(qint64, maxSpace);
    QFETCH(qint64, threshold);
    QFETCH(qint64, freeBytes);
    QFETCH(QString, expired);
    constexpr qint64 kDay = 24 * 60 * 60;
    const qint64 now = 100 * kDay;
    QVector<VaultFile> files;
    for (int i : {2, 0, 3, 1}) {
        VaultFile file;
        file.id = QString(QLatin1Char(char('a' + i)));
        file.fileSize = 10;
        // "c" is three days old to the second.
        file.keptSince = now - (i + 1) * kDay;
        files.append(file);
    }
    VaultConfig limits;
    limits.retentionDays = days;
    limits.maxSpaceBytes = maxSpace;
    limits.emergencyThresholdBytes = threshold;
    QCOMPARE(expiredIds(files, limits, now, freeBytes).join(QLatin1Char(' ')), expired);
    QCOMPARE(isSpaceShort(90, 100), true);
    QCOMPARE(isSpaceShort(89, 100), false);
    QCOMPARE(isSpaceShort(90, 0), false);
}

void TestVaultdStore::asksClockAndDisk()
{
    Bench bench;
    const QString old = bench.protect(bench.tree.file("home/old", kContent), 1000);
    const QString middle = bench.protect(bench.tree.file("home/middle", kContent), 2000);
    const QString young = bench.protect(bench.tree.file("home/young", kContent), 3000);
    std::atomic<qint64> now{3000};
    std::atomic<qint64> freeBytes{1000};
    VaultConfig limits;
    limits.retentionDays = 1;
    limits.emergencyThresholdBytes = 1000;
    VaultChanges seen;
    VaultThread thread(bench.layout, bench.tree.path("state"),
                       {[&now] { return now.load(); },
                        [&freeBytes](const QString &) {
                            return freeBytes.load();
                        }},
                       [&seen](const VaultChanges &changes) { seen.expired += changes.expired; });
    QString error;
    QVERIFY(thread.start(&error));
    FileIndex index;
    QVERIFY(index.open(bench.tree.path("state")));
    QCOMPARE(index.count(), 3);
    now = 1000 + 24 * 60 * 60;
    thread.refresh(limits);
    QTRY_COMPARE(seen.expired, QStringList(old));
    freeBytes = 1000 - 1;
    thread.refresh(limits);
    QTRY_COMPARE(seen.expired, (QStringList{old, middle}));
    QVERIFY(QFile::exists(bench.layout.content(young)));
    QVERIFY(!QFile::exists(bench.layout.content(old)));
}

void TestVaultdStore::comparesInConstantTime()
{
    QVERIFY(equalInConstantTime("abc", "abc"));
    for (const char *other : {"", "ab", "abcd", "abd", "bbc"})
        QVERIFY(!equalInConstantTime("abc", other));
}

QTEST_GUILESS_MAIN(TestVaultdStore)
#include "tst_vaultd_store.moc"
