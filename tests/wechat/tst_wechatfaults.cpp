#include "wechat/cleansupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QTest>

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QByteArray kText = "the same text";

/// The name of a file without what a clean or an undo may have put behind it.
QString ownName(const QString &name)
{
    const int clean = name.indexOf(".morvane_tmp_"_u);
    const int undo = name.indexOf(".morvane_restore_tmp"_u);
    return name.left(clean >= 0 ? clean : undo);
}

bool isOurs(const QString &name)
{
    return ownName(name) != name;
}

/// What speaks against a crash at this point: a content that is under none of its names.
QString lost(const QMap<QString, QByteArray> &before, const QMap<QString, QByteArray> &after)
{
    for (auto it = before.begin(); it != before.end(); ++it) {
        bool found = after.value(it.key()) == it.value();
        for (auto now = after.begin(); now != after.end() && !found; ++now)
            found = ownName(now.key()) == it.key() && now.value() == it.value();
        if (!found)
            return "lost: "_u + it.key();
    }
    for (auto now = after.begin(); now != after.end(); ++now) {
        if (!before.contains(ownName(now.key())))
            return "new: "_u + now.key();
    }
    return QString();
}

/// Every name that was merged is a link now, and no other.
QString mergedAmiss(const CleanBench &bench, const QVariantList &actions)
{
    const QStringList merged = bench.mergedPaths();
    for (const QVariant &value : actions) {
        const QVariantMap map = value.toMap();
        const QStringList paths = map.value("replacePaths"_u).toStringList();
        for (const QString &path : paths) {
            if (linked(path, map.value("keepPath"_u).toString()) != merged.contains(path))
                return path;
        }
    }
    return QString();
}

} // namespace

class TestWechatFaults : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void survivesAKillAnywhere();
    void survivesAKillOnAFullDisk();
    void survivesAKillOfTheRecovery();
    void survivesAKillOfTheUndo();
    void rollsBack_data();
    void rollsBack();
    void keepsTheJournalUntilTheNamesAreFlushed();
    void worksWithoutSwapOfNames();
    void failsToCopyBack_data();
    void failsToCopyBack();
    void recoveryTrustsNothing_data();
    void recoveryTrustsNothing();
    void recoveryJudgesBackups();
    void recoverySettlesUnfinishedCopies();
};

void TestWechatFaults::initTestCase()
{
    // Hundreds of records are flushed here; in memory that takes no minute.
    if (QFileInfo("/dev/shm"_u).isWritable())
        qputenv("TMPDIR", "/dev/shm");
}

void TestWechatFaults::survivesAKillAnywhere()
{
    int step = 1;
    int interrupted = 0;
    for (bool killed = true; killed; ++step) {
        QVERIFY(step < kMaxSteps);
        CleanBench bench;
        const QVariantList actions = bench.fill();
        const QMap<QString, QByteArray> before = bench.snapshot();
        killed = killedAt(step, bench, [&] { bench.clean(actions); });
        const QMap<QString, QByteArray> after = bench.snapshot();
        QCOMPARE(lost(before, after), QString());
        interrupted += before != after ? 1 : 0;

        const wechat::RecoveryOutcome outcome = bench.recover();
        QCOMPARE(outcome.errors, QStringList());
        QCOMPARE(outcome.restored.size() + outcome.removed.size(), before != after ? 1 : 0);
        QCOMPARE(bench.snapshot(), before);
        QCOMPARE(bench.journals(), QStringList());
        // What was merged is on record and can be undone.
        QCOMPARE(mergedAmiss(bench, actions), QString());
        const QStringList merged = bench.mergedPaths();
        const QStringList records = QDir(bench.folders.operations).entryList(QDir::Files);
        QCOMPARE(records.size(), merged.isEmpty() ? 0 : 1);
        if (merged.isEmpty())
            continue;
        const QString id = QFileInfo(records.at(0)).completeBaseName();
        QCOMPARE(bench.record(id)
                     .value("actions"_u)
                     .toArray()
                     .at(0)
                     .toObject()
                     .value("hash"_u)
                     .toString()
                     .size(),
                 32);
        const wechat::UndoOutcome undone = bench.undo(id);
        QCOMPARE(undone.errors, QStringList());
        QCOMPARE(undone.restoredCount, merged.size());
        QCOMPARE(bench.snapshot(), before);
        QCOMPARE(bench.clean(actions).mergedCount, 7);
    }
    // Two of the three steps of each of the seven merges leave a backup.
    QCOMPARE(interrupted, 14);
}

void TestWechatFaults::survivesAKillOnAFullDisk()
{
    int step = 1;
    for (bool killed = true; killed; ++step) {
        QVERIFY(step < kMaxSteps);
        CleanBench bench;
        const QVariantList actions = bench.fill();
        const QMap<QString, QByteArray> before = bench.snapshot();
        // Nothing can be written until the first copy has gone.
        bench.operations.hook = [&](const QString &call, const QString &) {
            return call == "write"_u && !linked(bench.path("msg/keep"), bench.path("msg/copy"))
                       ? ENOSPC
                       : 0;
        };
        killed = killedAt(step, bench, [&] { bench.clean(actions); });
        bench.operations.hook = nullptr;
        QCOMPARE(lost(before, bench.snapshot()), QString());
        QCOMPARE(bench.recover().errors, QStringList());
        // A name is never without its file, and what may be left is one additional one.
        QMap<QString, QByteArray> after = bench.snapshot();
        QVERIFY(after.size() <= before.size() + 1);
        for (auto it = after.begin(); it != after.end();)
            it = isOurs(it.key()) ? after.erase(it) : ++it;
        QCOMPARE(after, before);
        if (killed)
            continue;
        QCOMPARE(mergedAmiss(bench, actions), QString());
        QCOMPARE(bench.mergedPaths().size(), 7);
        QCOMPARE(bench.snapshot(), before);
    }
}

void TestWechatFaults::survivesAKillOfTheRecovery()
{
    int recoveryStep = 1;
    for (bool killed = true; killed; ++recoveryStep) {
        QVERIFY(recoveryStep < kMaxSteps);
        bool any = false;
        int step = 1;
        for (bool cleanKilled = true; cleanKilled; ++step) {
            CleanBench bench;
            const QVariantList actions = bench.fill();
            const QMap<QString, QByteArray> before = bench.snapshot();
            cleanKilled = killedAt(step, bench, [&] { bench.clean(actions); });
            // Of the runs that left all names as they were, a few will do.
            if (bench.snapshot() == before && step % 8 != 0)
                continue;
            any = killedAt(recoveryStep, bench, [&] { bench.recover(); }) || any;
            QCOMPARE(lost(before, bench.snapshot()), QString());
            QCOMPARE(bench.recover().errors, QStringList());
            QCOMPARE(bench.snapshot(), before);
            QCOMPARE(bench.journals(), QStringList());
            QCOMPARE(mergedAmiss(bench, actions), QString());
        }
        killed = any;
    }
    QVERIFY(recoveryStep > 3);
}

void TestWechatFaults::survivesAKillOfTheUndo()
{
    int step = 1;
    for (bool killed = true; killed; ++step) {
        QVERIFY(step < kMaxSteps);
        CleanBench bench;
        const QVariantList actions = bench.fill();
        const QMap<QString, QByteArray> before = bench.snapshot();
        const QString id = bench.clean(actions).sessionId;
        killed = killedAt(step, bench, [&] { bench.undo(id); });
        // Here every name has its content all the time.
        QMap<QString, QByteArray> after = bench.snapshot();
        QVERIFY(after.size() <= before.size() + 1);
        for (auto it = after.begin(); it != after.end();)
            it = isOurs(it.key()) ? after.erase(it) : ++it;
        QCOMPARE(after, before);
        QCOMPARE(bench.recover().errors, QStringList());
        QCOMPARE(bench.snapshot(), before);
        QCOMPARE(bench.journals(), QStringList());
        // What the first go restored is no failure of the second one.
        if (bench.status(id) != "undone"_u)
            QCOMPARE(bench.undo(id).errors, QStringList());
        QCOMPARE(bench.status(id), "undone"_u);
        QVERIFY(!linked(bench.path("many/keep"), bench.path("many/2")));
        QCOMPARE(bench.snapshot(), before);
    }
    QVERIFY(step > 40);
}

void TestWechatFaults::rollsBack_data()
{
    QTest::addColumn<QStringList>("calls"); // That fail for the copy, its backup and the link.
    QTest::addColumn<QString>("error");
    QTest::addColumn<bool>("leftover");
    const QString linkError = "创建硬链接失败："_u;
    QTest::newRow("rename") << QStringList{"renameNoReplace"_u} << "无法创建临时备份："_u << false;
    QTest::newRow("link") << QStringList{"link"_u} << linkError << false;
    QTest::newRow("unlink") << QStringList{"unlink"_u} << linkError << true;
    QTest::newRow("link and rename back")
        << QStringList{"link"_u, "back"_u} << "创建硬链接失败且自动回滚失败，请手动检查备份文件："_u
        << true;
    QTest::newRow("unlink and swap back")
        << QStringList{"unlink"_u, "exchange"_u}
        << "创建硬链接失败且自动回滚失败，请手动检查备份文件："_u << true;
}

void TestWechatFaults::rollsBack()
{
    QFETCH(QStringList, calls);
    QFETCH(QString, error);
    QFETCH(bool, leftover);
    CleanBench bench;
    const QString keep = bench.file("keep", kText);
    const QString bad = bench.file("bad", kText);
    const QString good = bench.file("good", kText);
    const QMap<QString, QByteArray> before = bench.snapshot();
    bench.operations.hook = [&](const QString &call, const QString &path) {
        const bool back = call == "renameNoReplace"_u && path != bad;
        const QString name = back ? "back"_u : call;
        return path.startsWith(bad) && calls.contains(name) ? ENOSPC : 0;
    };
    const wechat::CleanOutcome outcome = bench.clean({action(keep, {{bad}, {good}})});
    QCOMPARE(outcome.errors.size(), 1);
    QVERIFY2(outcome.errors.at(0).startsWith(error + bad), qPrintable(outcome.errors.at(0)));
    // The next one goes on, and only that one counts.
    QCOMPARE(outcome.mergedCount, 1);
    QVERIFY(linked(keep, good));
    QCOMPARE(lost(before, bench.snapshot()), QString());
    QCOMPARE(bench.snapshot() != before, leftover);
    // The next start puts the rest right.
    QCOMPARE(bench.journals().size(), leftover ? 1 : 0);
    bench.operations.hook = nullptr;
    QCOMPARE(bench.recover().errors, QStringList());
    QCOMPARE(bench.snapshot(), before);
    QCOMPARE(bench.journals(), QStringList());
    QCOMPARE(bench.mergedPaths(), QStringList(good));
}

void TestWechatFaults::keepsTheJournalUntilTheNamesAreFlushed()
{
    CleanBench bench;
    const QVariantList actions = bench.fill();
    bench.operations.hook = [n = 0](const QString &call, const QString &) mutable {
        // The first is for the kept files.
        return call == "syncfs"_u && ++n > 1 ? EIO : 0;
    };
    const wechat::CleanOutcome outcome = bench.clean(actions);
    QCOMPARE(outcome.errors, QStringList());
    QCOMPARE(outcome.mergedCount, 7);
    QCOMPARE(bench.journals().size(), 1);
    // There is nothing to put right, and nothing to tell.
    const wechat::RecoveryOutcome recovered = bench.recover();
    QCOMPARE(recovered.errors + recovered.restored + recovered.removed, QStringList());
    QCOMPARE(bench.journals(), QStringList());
    QCOMPARE(bench.mergedPaths().size(), 7);
}

void TestWechatFaults::worksWithoutSwapOfNames()
{
    CleanBench bench;
    const QVariantList actions = bench.fill();
    const QMap<QString, QByteArray> before = bench.snapshot();
    bench.operations.hook = [](const QString &call, const QString &) {
        return call == "exchange"_u ? EINVAL : 0;
    };
    const wechat::UndoOutcome outcome = bench.undo(bench.clean(actions).sessionId);
    QCOMPARE(outcome.errors, QStringList());
    QCOMPARE(outcome.restoredCount, 7);
    QCOMPARE(bench.snapshot(), before);
    QVERIFY(!linked(bench.path("msg/keep"), bench.path("msg/copy")));

    // A file that appears under the name meanwhile stays here too.
    const QString copy = bench.path("msg/copy");
    bench.operations.hook = [&](const QString &call, const QString &path) {
        if (call == "link"_u && path == copy)
            bench.file("msg/copy", "newer");
        return call == "exchange"_u ? EINVAL : 0;
    };
    QCOMPARE(bench.clean(actions).errors.size(), 1);
    QCOMPARE(bench.snapshot().value("msg/copy"_u), QByteArray("newer"));
}

void TestWechatFaults::failsToCopyBack_data()
{
    QTest::addColumn<QString>("call");
    QTest::addColumn<QString>("error");
    const QString copyError = "恢复独立副本失败："_u;
    QTest::newRow("open") << "open"_u << copyError;
    QTest::newRow("write") << "write"_u << copyError;
    QTest::newRow("fsync") << "fsync"_u << copyError;
    QTest::newRow("swap") << "exchange"_u
                          << "无法替换当前链接文件："_u;
}

void TestWechatFaults::failsToCopyBack()
{
    QFETCH(QString, call);
    QFETCH(QString, error);
    CleanBench bench;
    const QString keep = bench.file("keep", kText);
    const QString copy = bench.file("copy", kText);
    const QMap<QString, QByteArray> before = bench.snapshot();
    const QString id = bench.clean({action(keep, {{copy}})}).sessionId;
    bool copying = false;
    bool failed = false;
    bench.operations.hook = [&](const QString &name, const QString &path) {
        copying = copying || path == wechat::restorePath(copy);
        const bool fails = copying && !failed && name == call;
        failed = failed || fails;
        return fails ? ENOSPC : 0;
    };
    const wechat::UndoOutcome outcome = bench.undo(id);
    QCOMPARE(outcome.errors, QStringList(error + copy + "（磁盘空间不足）"_u));
    QCOMPARE(outcome.restoredCount, 0);
    QCOMPARE(bench.snapshot(), before);
    QVERIFY(linked(keep, copy));
}

void TestWechatFaults::recoveryTrustsNothing_data()
{
    QTest::addColumn<QByteArray>("journal");
    QTest::addColumn<bool>("told");
    const QByteArray head = R"({"version":1,"kind":"clean","id":"20240101-000000-000","actions":)";
    const auto path = [&head](const QByteArray &keep, const QByteArray &name,
                              const QByteArray &inode) {
        return head + R"([{"keepPath":")" + keep +
               R"(","size":"13","hash":"","groups":[[{"path":")" + name + R"(","inode":")" + inode +
               "\"}]]}]}\n";
    };
    QTest::newRow("empty") << QByteArray() << true;
    QTest::newRow("noise") << QByteArray("\xff\x00{]\n", 5) << true;
    QTest::newRow("cut off") << path("@/keep", "@/copy", "7").left(90) << true;
    QTest::newRow("another version")
        << path("@/keep", "@/copy", "7").replace(R"("version":1)", R"("version":2)") << true;
    QTest::newRow("another id")
        << path("@/keep", "@/copy", "7").replace("20240101-000000-000", "x/../../y") << true;
    QTest::newRow("another kind") << path("@/keep", "@/copy", "7").replace("clean", "other")
                                  << true;
    QTest::newRow("steps up") << path("@/keep", "@/dir/../copy", "7") << true;
    QTest::newRow("relative") << path("@/keep", "copy", "7") << true;
    QTest::newRow("no number") << path("@/keep", "@/copy", "x") << true;
    QTest::newRow("another file's number") << path("@/keep", "@/copy", "7") << true;
    QTest::newRow("no file at the start") << path("@/keep", "@/copy", "0") << true;
    QTest::newRow("a name without a backup") << path("@/keep", "@/keep", "7") << false;
    QTest::newRow("a backup as the kept file")
        << path("@/copy.morvane_tmp_20240101-000000-000", "@/copy", "7") << true;
}

void TestWechatFaults::recoveryTrustsNothing()
{
    QFETCH(QByteArray, journal);
    QFETCH(bool, told);
    CleanBench bench;
    bench.file("keep", kText);
    bench.file("copy.morvane_tmp_20240101-000000-000", kText);
    const QMap<QString, QByteArray> before = bench.snapshot();
    bench.tree.file("home/.config/morvane/wechat_clean/journal/20240101-000000-000.journal",
                    journal.replace("@", bench.tree.path("files").toUtf8()));
    const wechat::RecoveryOutcome outcome = bench.recover();
    QCOMPARE(outcome.errors.size(), told ? 1 : 0);
    QCOMPARE(outcome.restored + outcome.removed, QStringList());
    QCOMPARE(bench.snapshot(), before);
    QCOMPARE(bench.mergedPaths(), QStringList());
}

void TestWechatFaults::recoveryJudgesBackups()
{
    CleanBench bench;
    const QString keep = bench.file("keep", kText);
    QList<QStringList> groups;
    for (const char *name : {"gone", "same", "differs", "foreign", "soft"})
        groups.append({bench.file(name, kText)});
    const QVariantList actions{action(keep, groups)};
    // The whole disk goes read-only, so to speak, after the first of three steps of every merge.
    bench.operations.hook = [](const QString &call, const QString &path) {
        const bool back = call == "renameNoReplace"_u && path.contains(".morvane_tmp_"_u);
        return back || call == "link"_u ? EROFS : 0;
    };
    QCOMPARE(bench.clean(actions).errors.size(), 5);
    bench.operations.hook = nullptr;
    const QStringList journals = bench.journals();
    QCOMPARE(journals.size(), 1);
    const QString suffix = ".morvane_tmp_"_u + QFileInfo(journals.at(0)).completeBaseName();
    for (const char *name : {"same", "differs"})
        QCOMPARE(
            bench.operations.link(QFile::encodeName(keep), QFile::encodeName(bench.path(name))), 0);
    QFile backup(bench.path("differs"_u + suffix));
    QVERIFY(backup.open(QIODevice::Append) && backup.write(" and more") > 0);
    backup.close();
    bench.file("foreign", "newer");
    bench.tree.remove("files/soft"_u + suffix);
    bench.tree.link("files/soft"_u + suffix, keep);

    const wechat::RecoveryOutcome outcome = bench.recover();
    QCOMPARE(outcome.restored, (QStringList{bench.path("gone"), bench.path("differs")}));
    QCOMPARE(outcome.removed, QStringList(bench.path("same"_u + suffix)));
    const QString lead = "请手动检查备份文件："_u;
    QCOMPARE(outcome.errors, (QStringList{lead + bench.path("foreign"_u + suffix),
                                          lead + bench.path("soft"_u + suffix)}));
    const QMap<QString, QByteArray> expected{{"keep"_u, kText},
                                             {"gone"_u, kText},
                                             {"same"_u, kText},
                                             {"differs"_u, kText + " and more"},
                                             {"foreign"_u, "newer"},
                                             {"foreign"_u + suffix, kText},
                                             {"soft"_u + suffix, "-> " + keep.toUtf8()}};
    QCOMPARE(bench.snapshot(), expected);
    QCOMPARE(bench.mergedPaths(), QStringList(bench.path("same")));
    QCOMPARE(bench.journals(), journals);
}

void TestWechatFaults::recoverySettlesUnfinishedCopies()
{
    CleanBench bench;
    const QString keep = bench.file("keep", kText);
    QStringList names{"part"_u, "whole"_u, "other"_u, "lonely"_u};
    const QByteArray left[] = {kText.left(4), kText, "not ours", kText};
    wechat::JournalAction action;
    action.keepPath = keep;
    action.groups.append(QList<wechat::JournalPath>());
    for (int i = 0; i < names.size(); ++i) {
        action.groups[0].append({bench.path(names.at(i)), 0});
        bench.file(wechat::restorePath(names.at(i)), left[i]);
        if (names.at(i) != "lonely"_u)
            bench.file(names.at(i), kText);
    }
    wechat::JournalContent content;
    content.kind = wechat::JournalContent::Kind::Undo;
    content.id = "20240101-000000-000"_u;
    content.actions.append(action);
    {
        wechat::MergeJournal journal(bench.operations, bench.folders);
        QVERIFY(journal.begin(content));
    }
    const wechat::RecoveryOutcome outcome = bench.recover();
    QCOMPARE(outcome.removed, (QStringList{wechat::restorePath(bench.path("part")),
                                           wechat::restorePath(bench.path("whole"))}));
    QCOMPARE(outcome.errors.size(), 2);
    QCOMPARE(bench.snapshot().size(), 6);
}

QTEST_GUILESS_MAIN(TestWechatFaults)
#include "tst_wechatfaults.moc"
