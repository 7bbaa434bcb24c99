#include "wechat/cleansupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QTest>

#include <cerrno>
#include <csignal>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const QByteArray kText = "the same text";
constexpr int kMaxSteps = 500; // Far more than any run here takes.

QString word(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

/// Runs `work` in a process of its own that is killed before its `step`th call. True if it was.
bool killedAt(int step, CleanBench &bench, const std::function<void()> &work)
{
    const pid_t child = ::fork();
    if (child == 0) {
        bench.operations.hook = [step, n = 0](const QString &, const QString &) mutable {
            if (++n == step)
                ::kill(::getpid(), SIGKILL);
            return 0;
        };
        work();
        ::_exit(0);
    }
    int status = -1;
    if (::waitpid(child, &status, 0) != child || (!WIFSIGNALED(status) && WEXITSTATUS(status) != 0))
        qFatal("the child did not end as it should");
    return WIFSIGNALED(status);
}

/// The name of a file without what a clean or an undo may have put behind it.
QString ownName(const QString &name)
{
    const int clean = name.indexOf(QLatin1String(".morvane_tmp_"));
    const int undo = name.indexOf(QLatin1String(".morvane_restore_tmp"));
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
            return QStringLiteral("lost: ") + it.key();
    }
    for (auto now = after.begin(); now != after.end(); ++now) {
        if (!before.contains(ownName(now.key())))
            return QStringLiteral("new: ") + now.key();
    }
    return QString();
}

/// Every name that was merged is a link now, and no other.
QString mergedAmiss(const CleanBench &bench, const QVariantList &actions)
{
    const QStringList merged = bench.mergedPaths();
    for (const QVariant &value : actions) {
        const QVariantMap map = value.toMap();
        const QStringList paths = map.value(QStringLiteral("replacePaths")).toStringList();
        for (const QString &path : paths) {
            if (linked(path, map.value(QStringLiteral("keepPath")).toString()) !=
                merged.contains(path))
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
    void survivesAKillOfTheRecovery();
    void survivesAKillOfTheUndo();
    void rollsBack_data();
    void rollsBack();
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
    if (QFileInfo(QStringLiteral("/dev/shm")).isWritable())
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
                     .value(QStringLiteral("actions"))
                     .toArray()
                     .at(0)
                     .toObject()
                     .value(QStringLiteral("hash"))
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
        bench.undo(id);
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
    const QString linkError = word("创建硬链接失败：");
    QTest::newRow("rename") << QStringList{QStringLiteral("renameNoReplace")}
                            << word("无法创建临时备份：") << false;
    QTest::newRow("link") << QStringList{QStringLiteral("link")} << linkError << false;
    QTest::newRow("unlink") << QStringList{QStringLiteral("unlink")} << linkError << true;
    QTest::newRow("link and rename back")
        << QStringList{QStringLiteral("link"), QStringLiteral("back")}
        << word("创建硬链接失败且自动回滚失败，请手动检查备份文件：") << true;
    QTest::newRow("unlink and swap back")
        << QStringList{QStringLiteral("unlink"), QStringLiteral("exchange")}
        << word("创建硬链接失败且自动回滚失败，请手动检查备份文件：") << true;
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
        const bool back = call == QLatin1String("renameNoReplace") && path != bad;
        const QString name = back ? QStringLiteral("back") : call;
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

void TestWechatFaults::worksWithoutSwapOfNames()
{
    CleanBench bench;
    const QVariantList actions = bench.fill();
    const QMap<QString, QByteArray> before = bench.snapshot();
    bench.operations.hook = [](const QString &call, const QString &) {
        return call == QLatin1String("exchange") ? EINVAL : 0;
    };
    const wechat::UndoOutcome outcome = bench.undo(bench.clean(actions).sessionId);
    QCOMPARE(outcome.errors, QStringList());
    QCOMPARE(outcome.restoredCount, 7);
    QCOMPARE(bench.snapshot(), before);
    QVERIFY(!linked(bench.path("msg/keep"), bench.path("msg/copy")));

    // A file that appears under the name meanwhile stays here too.
    const QString copy = bench.path("msg/copy");
    bench.operations.hook = [&](const QString &call, const QString &path) {
        if (call == QLatin1String("link") && path == copy)
            bench.file("msg/copy", "newer");
        return call == QLatin1String("exchange") ? EINVAL : 0;
    };
    QCOMPARE(bench.clean(actions).errors.size(), 1);
    QCOMPARE(bench.snapshot().value(QStringLiteral("msg/copy")), QByteArray("newer"));
}

void TestWechatFaults::failsToCopyBack_data()
{
    QTest::addColumn<QString>("call");
    QTest::addColumn<QString>("error");
    const QString copyError = word("恢复独立副本失败：");
    QTest::newRow("open") << QStringLiteral("open") << copyError;
    QTest::newRow("write") << QStringLiteral("write") << copyError;
    QTest::newRow("fsync") << QStringLiteral("fsync") << copyError;
    QTest::newRow("swap") << QStringLiteral("exchange") << word("无法替换当前链接文件：");
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
    QCOMPARE(outcome.errors, QStringList(error + copy));
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
        const bool back = call == QLatin1String("renameNoReplace") &&
                          path.contains(QLatin1String(".morvane_tmp_"));
        return back || call == QLatin1String("link") ? EROFS : 0;
    };
    QCOMPARE(bench.clean(actions).errors.size(), 5);
    bench.operations.hook = nullptr;
    const QStringList journals = bench.journals();
    QCOMPARE(journals.size(), 1);
    const QString suffix =
        QStringLiteral(".morvane_tmp_") + QFileInfo(journals.at(0)).completeBaseName();
    for (const char *name : {"same", "differs"})
        QCOMPARE(
            bench.operations.link(QFile::encodeName(keep), QFile::encodeName(bench.path(name))), 0);
    QFile backup(bench.path(QStringLiteral("differs") + suffix));
    QVERIFY(backup.open(QIODevice::Append) && backup.write(" and more") > 0);
    backup.close();
    bench.file("foreign", "newer");
    bench.tree.remove(QStringLiteral("files/soft") + suffix);
    bench.tree.link(QStringLiteral("files/soft") + suffix, keep);

    const wechat::RecoveryOutcome outcome = bench.recover();
    QCOMPARE(outcome.restored, (QStringList{bench.path("gone"), bench.path("differs")}));
    QCOMPARE(outcome.removed, QStringList(bench.path(QStringLiteral("same") + suffix)));
    const QString lead = word("请手动检查备份文件：");
    QCOMPARE(outcome.errors, (QStringList{lead + bench.path(QStringLiteral("foreign") + suffix),
                                          lead + bench.path(QStringLiteral("soft") + suffix)}));
    const QMap<QString, QByteArray> expected{
        {QStringLiteral("keep"), kText},
        {QStringLiteral("gone"), kText},
        {QStringLiteral("same"), kText},
        {QStringLiteral("differs"), kText + " and more"},
        {QStringLiteral("foreign"), "newer"},
        {QStringLiteral("foreign") + suffix, kText},
        {QStringLiteral("soft") + suffix, "-> " + keep.toUtf8()}};
    QCOMPARE(bench.snapshot(), expected);
    QCOMPARE(bench.mergedPaths(), QStringList(bench.path("same")));
    QCOMPARE(bench.journals(), journals);
}

void TestWechatFaults::recoverySettlesUnfinishedCopies()
{
    CleanBench bench;
    const QString keep = bench.file("keep", kText);
    QStringList names{QStringLiteral("part"), QStringLiteral("whole"), QStringLiteral("other"),
                      QStringLiteral("lonely")};
    const QByteArray left[] = {kText.left(4), kText, "not ours", kText};
    wechat::JournalAction action;
    action.keepPath = keep;
    action.groups.append(QList<wechat::JournalPath>());
    for (int i = 0; i < names.size(); ++i) {
        action.groups[0].append({bench.path(names.at(i)), 0});
        bench.file(wechat::restorePath(names.at(i)), left[i]);
        if (names.at(i) != QLatin1String("lonely"))
            bench.file(names.at(i), kText);
    }
    wechat::JournalContent content;
    content.kind = wechat::JournalContent::Kind::Undo;
    content.id = QStringLiteral("20240101-000000-000");
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
