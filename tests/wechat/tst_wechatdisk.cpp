#include "wechat/cleansupport.h"
#include "wechat/spacereserve.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <cerrno>

using Work = std::function<void(CleanBench &)>;
Q_DECLARE_METATYPE(Work)

namespace {

const QByteArray kText = "the same text";
const QString kNoSpace = "（磁盘空间不足）"_u;

/// Kills a clean in the middle of its `merge`th merge, so that a file is under its backup name.
void killDuringMerge(CleanBench &bench, const QVariantList &actions, int merge)
{
    const QMap<QString, QByteArray> before = bench.snapshot();
    const auto countLinks = [&] {
        int links = 0;
        for (const char *name : {"msg/copy", "msg/another name", "other/two names"})
            links += linked(bench.path("msg/keep"), bench.path(name)) ? 1 : 0;
        return links;
    };
    for (int step = 1; step < kMaxSteps; ++step) {
        if (!killedAt(step, bench, [&] { bench.clean(actions); }))
            break;
        if (bench.snapshot() != before && countLinks() == merge - 1)
            return;
        // Not there yet: from the start again.
        bench.recover();
        for (const QString &name :
             QDir(bench.folders.operations).entryList(QDir::Files, QDir::Name))
            bench.undo(QFileInfo(name).completeBaseName());
        bench.tree.remove("home/.config/morvane/wechat_clean");
    }
    qFatal("no such merge");
}

} // namespace

/// Cleans, undos and repairs with a disk that is full, away or does not answer.
class TestWechatDisk : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void journalWaitsForTheDisk_data();
    void journalWaitsForTheDisk();
    void unreadableJournalsAreReported();
    void reserveServesAFullDisk_data();
    void reserveServesAFullDisk();
    void mergesFirstWithoutAReserve_data();
    void mergesFirstWithoutAReserve();
    void reserveIsMadeOnceAndRefilled();
    void undoGoesOnWhenItCan_data();
    void undoGoesOnWhenItCan();
    void undoKeepsTheJournalUntilTheNamesAreFlushed();
    void failureIsNotAbsence();
};

void TestWechatDisk::initTestCase()
{
    if (QFileInfo("/dev/shm"_u).isWritable())
        qputenv("TMPDIR", "/dev/shm");
}

void TestWechatDisk::journalWaitsForTheDisk_data()
{
    QTest::addColumn<Work>("start");
    QTest::addColumn<Work>("away");
    QTest::addColumn<Work>("back");
    const Work nothing = [](CleanBench &) {
    };
    const Work unmount = [](CleanBench &b) {
        b.tree.move("files", "elsewhere");
        b.operations.otherDevice.clear();
    };
    QTest::newRow("folder is gone")
        << nothing << unmount << Work([](CleanBench &b) { b.tree.move("elsewhere", "files"); });
    QTest::newRow("one file cannot be looked at")
        << nothing << Work([](CleanBench &b) { b.operations.unreadable = "/msg/copy"_u; })
        << Work([](CleanBench &b) { b.operations.unreadable.clear(); });
    QTest::newRow("kept file cannot be looked at")
        << nothing << Work([](CleanBench &b) { b.operations.unreadable = "/msg/keep"_u; })
        << Work([](CleanBench &b) { b.operations.unreadable.clear(); });
    // The folders of the files are there, but empty, as below a mount point.
    QTest::newRow("mount point without its disk") << Work([](CleanBench &b) {
        b.operations.otherDevice = "/files"_u;
    }) << Work([unmount](CleanBench &b) {
        unmount(b);
        for (const char *name : {"files/msg", "files/other", "files/many"})
            b.tree.dir(name);
    }) << Work([](CleanBench &b) {
        b.tree.remove("files");
        b.tree.move("elsewhere", "files");
        b.operations.otherDevice = "/files"_u;
    });
}

void TestWechatDisk::journalWaitsForTheDisk()
{
    QFETCH(Work, start);
    QFETCH(Work, away);
    QFETCH(Work, back);
    for (int merge = 1; merge <= 2; ++merge) {
        CleanBench bench;
        const QVariantList actions = bench.fill();
        const QMap<QString, QByteArray> before = bench.snapshot();
        start(bench);
        killDuringMerge(bench, actions, merge);
        const QStringList journals = bench.journals();
        QCOMPARE(journals.size(), 1);

        away(bench);
        const wechat::RecoveryOutcome waiting = bench.recover();
        QVERIFY(!waiting.unavailable.isEmpty());
        QVERIFY(waiting.unavailable.at(0).startsWith(bench.tree.path("files")));
        QCOMPARE(waiting.errors, QStringList());
        QCOMPARE(bench.journals(), journals);
        QCOMPARE(bench.mergedPaths(), QStringList());

        back(bench);
        const wechat::RecoveryOutcome outcome = bench.recover();
        QCOMPARE(outcome.unavailable + outcome.errors, QStringList());
        QCOMPARE(bench.snapshot(), before);
        QCOMPARE(bench.journals(), QStringList());
        for (const char *name : {"msg/copy", "msg/another name", "other/two names", "many/0"})
            QCOMPARE(bench.mergedPaths().contains(bench.path(name)),
                     linked(bench.path("msg/keep"), bench.path(name)));
    }
}

void TestWechatDisk::unreadableJournalsAreReported()
{
    CleanBench bench;
    bench.tree.file("home/.config/morvane/wechat_clean/journal/20240101-000000-000.journal", "bad");
    bench.operations.hook = [&](const QString &call, const QString &path) {
        return call == "open"_u && path == bench.folders.journal ? EIO : 0;
    };
    QCOMPARE(bench.recover().errors, QStringList("无法读取清理日志："_u + bench.folders.journal));
    QCOMPARE(bench.journals().size(), 1);
}

void TestWechatDisk::reserveServesAFullDisk_data()
{
    QTest::addColumn<QString>("call"); // That finds no room as long as the reserve is whole.
    QTest::newRow("journal cannot be made") << "open"_u;
    QTest::newRow("journal cannot be written") << "write"_u;
    QTest::newRow("journal cannot be flushed") << "fsync"_u;
}

void TestWechatDisk::reserveServesAFullDisk()
{
    QFETCH(QString, call);
    CleanBench bench;
    const QVariantList actions = bench.fill();
    const QMap<QString, QByteArray> before = bench.snapshot();
    wechat::SpaceReserve(bench.operations, bench.folders).fill();
    const qint64 whole = QFileInfo(bench.folders.reserve).size();
    QCOMPARE(whole, wechat::SpaceReserve::kBytes);
    bench.operations.hook = [&](const QString &name, const QString &path) {
        const bool isOurs = name != "open"_u || path.endsWith(".journal.new"_u);
        const bool isFull = QFileInfo(bench.folders.reserve).size() == whole;
        return name == call && isOurs && isFull ? ENOSPC : 0;
    };
    const wechat::CleanOutcome outcome = bench.clean(actions);
    QCOMPARE(bench.snapshot(), before);
    QCOMPARE(bench.journals(), QStringList());
    QCOMPARE(outcome.errors, QStringList());
    QCOMPARE(outcome.mergedCount, 7);
    QCOMPARE(bench.status(outcome.sessionId), "active"_u);
    // The clean has made room for the next time.
    QCOMPARE(QFileInfo(bench.folders.reserve).size(), whole);
}

void TestWechatDisk::mergesFirstWithoutAReserve_data()
{
    QTest::addColumn<Work>("change");
    QTest::addColumn<int>("merged");
    QTest::addColumn<int>("errors");
    QTest::newRow("enough") << Work([](CleanBench &) {}) << 7 << 0;
    QTest::newRow("home on another disk")
        << Work([](CleanBench &b) { b.operations.otherDevice = "/files/"_u; }) << 0 << 1;
    QTest::newRow("largest copy has changed")
        << Work([](CleanBench &b) { b.file("msg/copy", QByteArray(10000, 'b')); }) << 6 << 1;
    QTest::newRow("never enough") << Work([](CleanBench &b) {
        b.operations.hook = [](const QString &call, const QString &) {
            return call == "write"_u ? EDQUOT : 0;
        };
    }) << 3 << 2;
    // Another program takes the name between the check and the swap.
    QTest::newRow("copy is replaced meanwhile") << Work([](CleanBench &b) {
        const auto full = b.operations.hook;
        b.operations.hook = [&b, full, n = 0](const QString &call, const QString &path) mutable {
            if (call == "exchange"_u && path.contains("msg/copy"_u) && ++n == 1)
                b.file("msg/copy", QByteArray(10000, 'n'));
            return full(call, path);
        };
    }) << 6 << 1;
}

void TestWechatDisk::mergesFirstWithoutAReserve()
{
    QFETCH(Work, change);
    QFETCH(int, merged);
    QFETCH(int, errors);
    CleanBench bench;
    const QVariantList actions = bench.fill();
    // Nothing can be written until some copy has gone.
    bench.operations.hook = [&](const QString &call, const QString &) {
        const bool isFull =
            !linked(bench.path("msg/keep"), bench.path("msg/copy")) &&
            !linked(bench.path("many/keep"), bench.path("many/0")) &&
            !linked(bench.path("msg/2024-03/图片.jpg"), bench.path("msg/2024-04/ 换\n行\"'$(x) "));
        return call == "write"_u && isFull ? ENOSPC : 0;
    };
    change(bench);
    const wechat::CleanOutcome outcome = bench.clean(actions);
    QCOMPARE(outcome.errors.size(), errors);
    QCOMPARE(outcome.mergedCount, merged);
    const QString reason = merged == 3 ? "（磁盘配额已用完）"_u : kNoSpace;
    if (merged == 0 || merged == 3)
        QVERIFY(outcome.errors.at(0).startsWith("无法写入清理记录："_u) &&
                outcome.errors.at(0).endsWith(reason));
    else
        QCOMPARE(bench.mergedPaths().size(), merged);
    const QMap<QString, QByteArray> after = bench.snapshot();
    QCOMPARE(after.size(), 11);
    QCOMPARE(after.keys().filter(".morvane"_u), QStringList());
    QCOMPARE(bench.journals(), QStringList());
}

void TestWechatDisk::reserveIsMadeOnceAndRefilled()
{
    CleanBench bench;
    wechat::SpaceReserve reserve(bench.operations, bench.folders);
    reserve.refill();
    QVERIFY(!QFileInfo::exists(bench.folders.reserve));
    // A disk with little room gets a small one, and nothing is taken that does not fit.
    int calls = 0;
    bench.operations.hook = [&](const QString &call, const QString &) {
        return call == "allocate"_u && ++calls < 3 ? ENOSPC : 0;
    };
    reserve.fill();
    QCOMPARE(QFileInfo(bench.folders.reserve).size(), wechat::SpaceReserve::kBytes / 16);
    reserve.refill();
    QCOMPARE(QFileInfo(bench.folders.reserve).size(), wechat::SpaceReserve::kBytes);
    // Once for each time that there is no room, down to nothing.
    int runs = 0;
    const auto fails = [&runs] {
        ++runs;
        return EDQUOT;
    };
    QCOMPARE(reserve.use(wechat::SpaceReserve::kBytes / 2, fails), EDQUOT);
    const qint64 half = QFileInfo(bench.folders.reserve).size();
    QVERIFY(half > 0 && half < wechat::SpaceReserve::kBytes / 2);
    QCOMPARE(reserve.use(wechat::SpaceReserve::kBytes, fails), EDQUOT);
    QCOMPARE(QFileInfo(bench.folders.reserve).size(), qint64(0));
    QCOMPARE(reserve.use(1, fails), EDQUOT);
    QCOMPARE(runs, 5);
    QVERIFY(QFileInfo(bench.folders.journal).isDir() &&
            QFileInfo(bench.folders.operations).isDir());
}

void TestWechatDisk::undoGoesOnWhenItCan_data()
{
    QTest::addColumn<Work>("away");
    QTest::addColumn<int>("restored");
    QTest::addColumn<QString>("error"); // That all begin with.
    const auto fullAfter = [](int copies) {
        return Work([copies](CleanBench &b) {
            b.operations.hook = [n = 0, copies](const QString &call, const QString &path) mutable {
                n += call == "open"_u && path.endsWith(".morvane_restore_tmp"_u) &&
                             !QFileInfo::exists(path)
                         ? 1
                         : 0;
                return call == "open"_u && path.endsWith(".morvane_restore_tmp"_u) && n > copies
                           ? ENOSPC
                           : 0;
            };
        });
    };
    QTest::newRow("no room at all") << fullAfter(0) << 0 << "恢复独立副本失败："_u;
    QTest::newRow("room for three") << fullAfter(3) << 3 << "恢复独立副本失败："_u;
    QTest::newRow("disk away") << Work([](CleanBench &b) { b.tree.move("files", "elsewhere"); })
                               << 0 << "保留文件现在无法访问（磁盘可能未连接），暂时无法撤销："_u;
    QTest::newRow("empty mount point") << Work([](CleanBench &b) {
        b.tree.move("files", "elsewhere");
        for (const char *name : {"files/msg/2024-03", "files/other", "files/many"})
            b.tree.dir(name);
    }) << 0 << "保留文件现在无法访问（磁盘可能未连接），暂时无法撤销："_u;
    QTest::newRow("files cannot be looked at")
        << Work([](CleanBench &b) { b.operations.unreadable = "/many/"_u; }) << 4
        << "保留文件现在无法访问（磁盘可能未连接），暂时无法撤销："_u;
}

void TestWechatDisk::undoGoesOnWhenItCan()
{
    QFETCH(Work, away);
    QFETCH(int, restored);
    QFETCH(QString, error);
    CleanBench bench;
    bench.operations.otherDevice = "/files"_u;
    const QVariantList actions = bench.fill();
    const QMap<QString, QByteArray> before = bench.snapshot();
    const QString id = bench.clean(actions).sessionId;
    bench.operations.otherDevice.clear();
    away(bench);
    wechat::UndoOutcome outcome = bench.undo(id);
    QCOMPARE(outcome.restoredCount, restored);
    QVERIFY(!outcome.errors.isEmpty());
    for (const QString &line : qAsConst(outcome.errors))
        QVERIFY2(line.startsWith(error) && line.endsWith(kNoSpace) == error.startsWith("恢复"_u),
                 qPrintable(line));
    // It stays offered.
    QCOMPARE(bench.status(id), restored > 0 ? "partial"_u : "active"_u);

    bench.operations.hook = nullptr;
    bench.operations.unreadable.clear();
    if (QFileInfo::exists(bench.tree.path("elsewhere"))) {
        if (QFileInfo::exists(bench.tree.path("files")))
            bench.tree.remove("files");
        bench.tree.move("elsewhere", "files");
    }
    outcome = bench.undo(id);
    QCOMPARE(outcome.errors, QStringList());
    QCOMPARE(outcome.restoredCount, 7 - restored);
    QCOMPARE(bench.status(id), "undone"_u);
    QCOMPARE(bench.snapshot(), before);
    for (const char *name : {"msg/copy", "many/0", "many/1", "many/2"})
        QVERIFY(!linked(bench.path(name), bench.path("many/keep")) &&
                !linked(bench.path(name), bench.path("msg/keep")));
    QCOMPARE(bench.journals(), QStringList());
    QCOMPARE(bench.recover().isEmpty(), true);
}

void TestWechatDisk::undoKeepsTheJournalUntilTheNamesAreFlushed()
{
    CleanBench bench;
    const QVariantList actions = bench.fill();
    const QString id = bench.clean(actions).sessionId;
    QStringList calls;
    bench.operations.hook = [&](const QString &call, const QString &path) {
        if (call == "syncfs"_u || call == "exchange"_u)
            calls.append(call);
        else if (path.endsWith(".journal"_u) || path.endsWith(".json.new"_u))
            calls.append(call + QFileInfo(path).suffix());
        return call == "syncfs"_u ? EIO : 0;
    };
    QCOMPARE(bench.undo(id).restoredCount, 7);
    QCOMPARE(bench.journals().size(), 1);
    // The record must not claim what is not on the disk yet.
    QVERIFY(calls.lastIndexOf("exchange"_u) < calls.indexOf("syncfs"_u));
    QVERIFY(calls.indexOf("syncfs"_u) < calls.indexOf("renamenew"_u));
    QVERIFY(bench.recover().isEmpty());
    QCOMPARE(bench.journals(), QStringList());
    QCOMPARE(bench.status(id), "undone"_u);
}

void TestWechatDisk::failureIsNotAbsence()
{
    CleanBench bench;
    const QVariantList actions = bench.fill();
    bench.operations.unreadable = "/msg/copy"_u;
    QCOMPARE(bench.clean(actions).errors,
             QStringList("无法访问副本文件："_u + bench.path("msg/copy")));
    bench.operations.unreadable = "/many/keep"_u;
    QCOMPARE(bench.clean(actions).errors,
             QStringList("无法读取保留文件："_u + bench.path("many/keep")));
    QVERIFY(linked(bench.path("msg/keep"), bench.path("msg/copy")));
}

QTEST_GUILESS_MAIN(TestWechatDisk)
#include "tst_wechatdisk.moc"
