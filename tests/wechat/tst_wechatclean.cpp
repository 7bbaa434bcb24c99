#include "wechat/cleanlock.h"
#include "wechat/cleansupport.h"
#include "wechat/wechatcleanworker.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

Q_DECLARE_METATYPE(std::function<void(CleanBench &)>)

namespace {

const QByteArray kText = "the same text";

QString status(const QJsonObject &record)
{
    return record.value("status"_u).toString();
}

QStringList strings(const QVariant &value)
{
    return value.toStringList();
}

} // namespace

class TestWechatClean : public QObject
{
    Q_OBJECT

private slots:
    void mergesAndUndoes();
    void refusesWhatIsNotAsItWas_data();
    void refusesWhatIsNotAsItWas();
    void leavesAGroupWithOneBadNameAlone();
    void takesOddActions();
    void refusesANameThatIsTooLong();
    void readsEachFileOnce();
    void tellsWhatAStopLeftDone();
    void touchesNothingWithoutAJournal();
    void leavesOneAtATime();
    void keepsWhatAppearsMeanwhile();
    void noticesWritesDuringTheMerge_data();
    void noticesWritesDuringTheMerge();
    void stopsWhenTheKeptFileIsReplaced_data();
    void stopsWhenTheKeptFileIsReplaced();
    void undoTouchesOnlyLinks_data();
    void undoTouchesOnlyLinks();
    void undoRefusesStrangeIds_data();
    void undoRefusesStrangeIds();
    void undoClearsOnlyItsOwnLeftover();
};

void TestWechatClean::mergesAndUndoes()
{
    CleanBench bench;
    const QVariantList actions = bench.fill();
    const QMap<QString, QByteArray> before = bench.snapshot();
    QVERIFY(QFile::setPermissions(bench.path("msg/keep"),
                                  QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup));
    WechatCleanWorker worker(bench.tree.path("home"));
    QSignalSpy cleaned(&worker, &WechatCleanWorker::cleanFinished);
    QSignalSpy progress(&worker, &WechatCleanWorker::cleanProgressChanged);
    worker.executeClean(actions);
    QCOMPARE(cleaned.size(), 1);
    QCOMPARE(cleaned.at(0).at(0).toBool(), true);
    QCOMPARE(cleaned.at(0).at(1).toInt(), 7);
    // The copy with two names frees its space once.
    const qint64 reclaimed = 2 * 10000 + QByteArray("second 内容").size() + 3 * 5;
    QCOMPARE(cleaned.at(0).at(2).toLongLong(), reclaimed);
    QCOMPARE(strings(cleaned.at(0).at(4)), QStringList());
    QCOMPARE(progress.last(), (QVariantList{7, 7}));
    QCOMPARE(bench.snapshot(), before);
    for (const char *name : {"msg/copy", "msg/another name", "other/two names"})
        QVERIFY(linked(bench.path("msg/keep"), bench.path(name)));

    const QString id = cleaned.at(0).at(3).toString();
    const QJsonObject record = bench.record(id);
    QCOMPARE(record.value("sessionId"_u).toString(), id);
    QVERIFY(wechat::isGeneratedSessionId(id));
    QCOMPARE(status(record), "active"_u);
    QCOMPARE(record.value("groupCount"_u).toInt(), 3);
    QCOMPARE(record.value("reclaimedBytes"_u).toString(), QString::number(reclaimed));
    const QJsonObject first = record.value("actions"_u).toArray().at(0).toObject();
    QCOMPARE(first.value("keepPath"_u).toString(), bench.path("msg/keep"));
    QCOMPARE(first.value("size"_u).toString(), "10000"_u);
    QCOMPARE(first.value("hash"_u), QJsonValue(actions.at(0).toMap().value("hash"_u).toString()));
    QCOMPARE(first.value("mergedPaths"_u).toArray().size(), 3);
    QCOMPARE(bench.journals(), QStringList());

    QSignalSpy undone(&worker, &WechatCleanWorker::undoFinished);
    worker.undoCleanSession(id);
    QCOMPARE(undone.takeFirst(), (QVariantList{true, id, 7, QStringList()}));
    QCOMPARE(bench.snapshot(), before);
    QVERIFY(!linked(bench.path("msg/another name"), bench.path("other/two names")));
    QCOMPARE(QFile::permissions(bench.path("msg/copy")),
             QFile::permissions(bench.path("msg/keep")));
    QCOMPARE(status(bench.record(id)), "undone"_u);

    worker.undoCleanSession(id);
    QCOMPARE(undone.at(0).at(0).toBool(), false);
    QCOMPARE(strings(undone.at(0).at(3)).size(), 7);
    QVERIFY(strings(undone.at(0).at(3)).at(0).startsWith("当前文件状态已变化，无法撤销："_u));
    QCOMPARE(status(bench.record(id)), "invalid"_u);
    QCOMPARE(bench.snapshot(), before);
}

void TestWechatClean::refusesWhatIsNotAsItWas_data()
{
    using Change = std::function<void(CleanBench &)>;
    QTest::addColumn<Change>("change");
    QTest::addColumn<QString>("error");

    QTest::newRow("copy written to")
        << Change([](CleanBench &b) { b.file("copy", "the same tExt"); })
        << "二次校验失败，已跳过：copy"_u;
    QTest::newRow("copy gone") << Change([](CleanBench &b) { b.tree.remove("files/copy"); })
                               << "副本文件不存在：copy"_u;
    QTest::newRow("copy is a directory") << Change([](CleanBench &b) {
        b.tree.remove("files/copy");
        b.tree.dir("files/copy");
    }) << "副本文件不存在：copy"_u;
    QTest::newRow("copy is a link") << Change([](CleanBench &b) {
        b.tree.remove("files/copy");
        b.tree.link("files/copy", b.path("keep"));
    }) << "副本已是软链接，已跳过：copy"_u;
    QTest::newRow("copy cannot be read") << Change([](CleanBench &b) {
        b.operations.hook = [](const QString &call, const QString &path) {
            return call == "hash"_u && path.endsWith("copy"_u) ? EACCES : 0;
        };
    }) << "二次校验失败，已跳过：copy"_u;
    QTest::newRow("copy elsewhere")
        << Change([](CleanBench &b) { b.operations.otherDevice = "/copy"_u; })
        << "当前版本不支持跨分区合并：copy"_u;
    QTest::newRow("copy replaced after the start") << Change([](CleanBench &b) {
        b.operations.hook = [&b](const QString &call, const QString &path) {
            if (call == "hash"_u && path.endsWith("keep"_u)) {
                b.file("new", kText);
                b.tree.move("files/new", "files/copy");
            }
            return 0;
        };
    }) << "二次校验失败，已跳过：copy"_u;
    QTest::newRow("kept gone") << Change([](CleanBench &b) { b.tree.remove("files/keep"); })
                               << "保留文件不存在：keep"_u;
    QTest::newRow("kept written to") << Change([](CleanBench &b) { b.file("keep", "another"); })
                                     << "保留文件内容已发生变化，已跳过：keep"_u;
    QTest::newRow("kept is a link") << Change([](CleanBench &b) {
        b.tree.move("files/keep", "files/moved");
        b.tree.link("files/keep", b.path("moved"));
    }) << "保留文件内容已发生变化，已跳过：keep"_u;
    QTest::newRow("kept cannot be read") << Change([](CleanBench &b) {
        b.operations.hook = [](const QString &call, const QString &) {
            return call == "hash"_u ? EIO : 0;
        };
    }) << "无法读取保留文件：keep"_u;
    QTest::newRow("kept cannot be flushed") << Change([](CleanBench &b) {
        b.operations.hook = [n = 0](const QString &call, const QString &) mutable {
            // After those of the journal and its two folders.
            return call == "syncfs"_u || (call == "fsync"_u && ++n > 3) ? EIO : 0;
        };
    }) << "无法读取保留文件：keep"_u;
}

void TestWechatClean::refusesWhatIsNotAsItWas()
{
    QFETCH(std::function<void(CleanBench &)>, change);
    QFETCH(QString, error);
    CleanBench bench;
    const QString keep = bench.file("keep", kText);
    const QString copy = bench.file("copy", kText);
    const QVariantList actions{action(keep, {{copy}})};
    change(bench);
    const QMap<QString, QByteArray> before = bench.snapshot();
    const wechat::CleanOutcome outcome = bench.clean(actions);
    const int colon = error.indexOf(QChar(0xFF1A));
    QCOMPARE(outcome.errors, QStringList(error.left(colon + 1) + bench.path(error.mid(colon + 1))));
    QCOMPARE(outcome.mergedCount, 0);
    QCOMPARE(outcome.reclaimedBytes, qint64(0));
    QCOMPARE(outcome.sessionId, QString());
    QCOMPARE(bench.progress.last(), qMakePair(1, 1));
    QCOMPARE(bench.snapshot(), before);
    QCOMPARE(bench.mergedPaths(), QStringList());
    QCOMPARE(bench.journals(), QStringList());
}

void TestWechatClean::leavesAGroupWithOneBadNameAlone()
{
    CleanBench bench;
    QVariantList actions = bench.fill();
    bench.tree.remove("files/other/two names");
    const wechat::CleanOutcome outcome = bench.clean(actions);
    QCOMPARE(outcome.errors, QStringList("副本文件不存在："_u + bench.path("other/two names")));
    QVERIFY(!linked(bench.path("msg/keep"), bench.path("msg/another name")));
    QVERIFY(linked(bench.path("msg/keep"), bench.path("msg/copy")));
    QCOMPARE(outcome.mergedCount, 5);
    QCOMPARE(status(bench.record(outcome.sessionId)), "partial"_u);
    QCOMPARE(bench.progress.last(), qMakePair(7, 7));
}

void TestWechatClean::takesOddActions()
{
    CleanBench bench;
    const QString keep = bench.file("dir/keep", kText);
    const QString copy = bench.file("dir/copy", kText);
    bench.tree.link("files/way", bench.path("dir"));
    const QMap<QString, QByteArray> before = bench.snapshot();
    // The kept file among its copies, also by another way; one copy three times over.
    QVariantMap odd = action(
        keep,
        {{keep}, {bench.path("way/keep")}, {copy, copy}, {}, {bench.path("way/copy")}, {copy}});
    wechat::CleanOutcome outcome = bench.clean({odd, QVariant(5), QVariantMap()});
    QCOMPARE(outcome.mergedCount, 1);
    QCOMPARE(outcome.reclaimedBytes, qint64(kText.size()));
    QCOMPARE(bench.snapshot(), before);
    QVERIFY(linked(keep, copy));
    QCOMPARE(bench.mergedPaths(), QStringList(copy));

    // A size that is not the file's is found out when the link is looked at.
    const QString other = bench.file("dir/other", kText);
    QVariantMap wrong = action(keep, {});
    wrong.insert("replacePaths"_u, QStringList(other));
    wrong.insert("size"_u, 4);
    outcome = bench.clean({wrong});
    QCOMPARE(outcome.errors, QStringList("创建硬链接失败："_u + other));
    QVERIFY(!linked(keep, other));
    QCOMPARE(bench.snapshot().size(), before.size() + 1);

    // The representative path is merged also if its aliases do not name it.
    wrong.insert("size"_u, kText.size());
    wrong.insert("replaceGroups"_u, QVariantList{QVariantMap{{"path"_u, other}}});
    QCOMPARE(bench.clean({wrong}).mergedCount, 1);
}

void TestWechatClean::refusesANameThatIsTooLong()
{
    CleanBench bench;
    const QString keep = bench.file("keep", kText);
    const QString copy = bench.file(QString(255, QLatin1Char('n')), kText);
    const QMap<QString, QByteArray> before = bench.snapshot();
    const wechat::CleanOutcome outcome = bench.clean({action(keep, {{copy}})});
    QCOMPARE(outcome.errors, QStringList("无法创建临时备份："_u + copy));
    QCOMPARE(bench.snapshot(), before);
}

void TestWechatClean::readsEachFileOnce()
{
    CleanBench bench;
    const QVariantList actions = bench.fill();
    QCOMPARE(bench.clean(actions).mergedCount, 7);
    // Three kept files and six copies, one of which has two names.
    QCOMPARE(bench.operations.hashed.size(), 9);
    QCOMPARE(bench.operations.hashed.removeDuplicates(), 0);
}

void TestWechatClean::tellsWhatAStopLeftDone()
{
    CleanBench bench;
    const QVariantList actions = bench.fill();
    bool stopped = false;
    int links = 0;
    bench.shouldStop = [&stopped] {
        return stopped;
    };
    bench.operations.hook = [&](const QString &call, const QString &) {
        stopped = stopped || (call == "link"_u && ++links == 2);
        return 0;
    };
    const QMap<QString, QByteArray> before = bench.snapshot();
    const wechat::CleanOutcome outcome = bench.clean(actions);
    QCOMPARE(outcome.errors, QStringList());
    QCOMPARE(outcome.mergedCount, 2);
    QCOMPARE(outcome.reclaimedBytes, qint64(10000)); // One name of two frees nothing.
    QCOMPARE(status(bench.record(outcome.sessionId)), "partial"_u);
    QCOMPARE(bench.mergedPaths(),
             (QStringList{bench.path("msg/another name"), bench.path("msg/copy")}));
    QCOMPARE(bench.snapshot(), before);
}

void TestWechatClean::touchesNothingWithoutAJournal()
{
    CleanBench bench;
    const QVariantList actions = bench.fill();
    bench.tree.file("home/.config/morvane/wechat_clean/journal", "in the way");
    wechat::CleanOutcome outcome = bench.clean(actions);
    QCOMPARE(outcome.errors.size(), 1);
    QVERIFY(outcome.errors.at(0).startsWith("无法写入清理记录："_u));
    QVERIFY(!linked(bench.path("msg/keep"), bench.path("msg/copy")));

    CleanBench unwritable;
    const QVariantList others = unwritable.fill();
    unwritable.tree.file("home/.config/morvane/wechat_clean", "in the way");
    outcome = unwritable.clean(others);
    QCOMPARE(outcome.errors, QStringList("无法写入清理记录："_u + unwritable.folders.top));
    QVERIFY(!linked(unwritable.path("msg/keep"), unwritable.path("msg/copy")));
}

void TestWechatClean::leavesOneAtATime()
{
    CleanBench bench;
    const QVariantList actions = bench.fill();
    wechat::CleanLock other(bench.folders);
    QCOMPARE(other.tryLock(), wechat::CleanLock::Result::Locked);
    bench.tree.file("home/.config/morvane/wechat_clean/journal/20240101-000000-000.journal", "bad");
    bench.shouldStop = [] {
        return true;
    };
    QCOMPARE(bench.clean(actions).errors, QStringList(wechat::CleanLock::busyMessage()));
    bench.shouldStop = [] {
        return false;
    };
    QCOMPARE(bench.recover().errors, QStringList());
    QVERIFY(!linked(bench.path("msg/keep"), bench.path("msg/copy")));
}

void TestWechatClean::keepsWhatAppearsMeanwhile()
{
    CleanBench bench;
    const QString keep = bench.file("keep", kText);
    const QString copy = bench.file("copy", kText);
    const QVariantList actions{action(keep, {{copy}})};
    // The client saves a new file under the name just before the rename.
    bench.operations.hook = [&](const QString &call, const QString &path) {
        if (call == "renameNoReplace"_u && path == copy) {
            bench.tree.remove("files/copy");
            bench.file("copy", "newer words!!");
        }
        return 0;
    };
    QCOMPARE(bench.clean(actions).errors, QStringList("二次校验失败，已跳过："_u + copy));
    QCOMPARE(bench.snapshot().value("copy"_u), QByteArray("newer words!!"));
    QCOMPARE(bench.snapshot().size(), 2);

    // And once more while the old one waits under its backup name.
    bench.file("copy", kText);
    bench.operations.hook = [&](const QString &call, const QString &path) {
        if (call == "link"_u && path == copy)
            bench.file("copy", "newest words");
        return 0;
    };
    const QStringList errors = bench.clean(actions).errors;
    QCOMPARE(errors.size(), 1);
    const QString lead = "创建硬链接失败且自动回滚失败，请手动检查备份文件："_u;
    QVERIFY(errors.at(0).startsWith(lead + copy + ".morvane_tmp_"_u));
    QCOMPARE(bench.snapshot().value("copy"_u), QByteArray("newest words"));
    const QString backup = QFileInfo(errors.at(0).mid(lead.size())).fileName();
    QCOMPARE(bench.snapshot().value(backup), kText);
    // The journal still knows; once the name is free, the file gets it back.
    bench.operations.hook = nullptr;
    QCOMPARE(bench.recover().errors.size(), 1);
    bench.tree.remove("files/copy");
    QCOMPARE(bench.recover().restored, QStringList(copy));
    QCOMPARE(bench.snapshot().value("copy"_u), kText);
    QCOMPARE(bench.journals(), QStringList());

    // During an undo.
    QString id = bench.clean(actions).sessionId;
    bench.operations.hook = [&](const QString &call, const QString &) {
        if (call == "exchange"_u && linked(keep, copy)) {
            bench.tree.remove("files/copy");
            bench.file("copy", "undo words");
        }
        return 0;
    };
    QCOMPARE(bench.undo(id).errors, QStringList("无法替换当前链接文件："_u + copy));
    QCOMPARE(bench.snapshot(),
             (QMap<QString, QByteArray>{{"keep"_u, kText}, {"copy"_u, "undo words"}}));
}

void TestWechatClean::noticesWritesDuringTheMerge_data()
{
    QTest::addColumn<QString>("written");
    QTest::newRow("kept file") << "keep"_u;
    QTest::newRow("copy under its backup name") << "copy.morvane_tmp_*"_u;
}

void TestWechatClean::noticesWritesDuringTheMerge()
{
    QFETCH(QString, written);
    CleanBench bench;
    const QString keep = bench.file("keep", kText);
    const QString copy = bench.file("copy", kText);
    bench.operations.hook = [&](const QString &call, const QString &) {
        if (call == "link"_u) {
            const QStringList names = QDir(bench.tree.path("files")).entryList({written});
            bench.file(names.value(0), "the Same text");
        }
        return 0;
    };
    const wechat::CleanOutcome outcome = bench.clean({action(keep, {{copy}})});
    QCOMPARE(outcome.errors, QStringList("创建硬链接失败："_u + copy));
    const QMap<QString, QByteArray> after = bench.snapshot();
    QCOMPARE(after.size(), 2);
    QCOMPARE(after.values().count("the Same text"), 1);
    QCOMPARE(after.value("keep"_u) == kText, written != "keep"_u);
    QVERIFY(!linked(keep, copy));
}

void TestWechatClean::stopsWhenTheKeptFileIsReplaced_data()
{
    QTest::addColumn<QString>("call"); // Before which the kept file is replaced.
    QTest::addColumn<int>("nth");      // Call of that kind.
    QTest::addColumn<int>("merged");
    QTest::newRow("before the first backup") << "renameNoReplace"_u << 2 << 0;
    QTest::newRow("before the first link") << "link"_u << 1 << 0;
    QTest::newRow("before the second link") << "link"_u << 2 << 1;
}

void TestWechatClean::stopsWhenTheKeptFileIsReplaced()
{
    QFETCH(QString, call);
    QFETCH(int, nth);
    QFETCH(int, merged);
    CleanBench bench;
    const QString keep = bench.file("keep", kText);
    QList<QStringList> copies;
    for (const char *name : {"copy1", "copy2", "copy3"})
        copies.append({bench.file(name, kText)});
    const QString others = bench.file("others", "of another group");
    const QVariantList actions{action(keep, copies),
                               action(others, {{bench.file("other", "of another group")}})};
    // A program saves the kept file by rename: another file of equal length takes its name.
    bench.operations.hook = [&, n = 0](const QString &name, const QString &) mutable {
        if (name == call && ++n == nth) {
            bench.file("saved", "a foreign one");
            bench.tree.move("files/saved", "files/keep");
        }
        return 0;
    };
    const wechat::CleanOutcome outcome = bench.clean(actions);
    // The other group is not concerned.
    QCOMPARE(outcome.mergedCount, merged + 1);
    QVERIFY(linked(bench.path("others"), bench.path("other")));
    const QMap<QString, QByteArray> expected{{"keep"_u, "a foreign one"},
                                             {"copy1"_u, kText},
                                             {"copy2"_u, kText},
                                             {"copy3"_u, kText},
                                             {"others"_u, "of another group"},
                                             {"other"_u, "of another group"}};
    QCOMPARE(bench.snapshot(), expected);
    QVERIFY(!linked(bench.path("copy2"), bench.path("copy3")));
    QCOMPARE(outcome.errors.last(), "保留文件内容已发生变化，已跳过："_u + keep);
    QCOMPARE(bench.journals(), QStringList());
    QCOMPARE(bench.progress.last(), qMakePair(4, 4));
}

void TestWechatClean::undoTouchesOnlyLinks_data()
{
    QTest::addColumn<QByteArray>("record");
    QTest::addColumn<QString>("error");
    QTest::newRow("file that is no link")
        << QByteArray(R"([{"keepPath":"@/keep","mergedPaths":["@/outside"]}])")
        << "当前文件状态已变化，无法撤销：@/outside"_u;
    QTest::newRow("the kept file itself")
        << QByteArray(R"([{"keepPath":"@/keep","mergedPaths":["@/keep"]}])")
        << "当前文件状态已变化，无法撤销：@/keep"_u;
    QTest::newRow("the kept file by another way")
        << QByteArray(R"([{"keepPath":"@/keep","mergedPaths":["@/way/keep"]}])")
        << "当前文件状态已变化，无法撤销：@/way/keep"_u;
    QTest::newRow("symbolic link to the kept file")
        << QByteArray(R"([{"keepPath":"@/keep","mergedPaths":["@/soft"]}])")
        << "当前文件状态已变化，无法撤销：@/soft"_u;
    QTest::newRow("the only name, with a link to it as the kept file")
        << QByteArray(R"([{"keepPath":"@/lone","mergedPaths":["@/outside"]}])")
        << "当前文件状态已变化，无法撤销：@/outside"_u;
    QTest::newRow("directory") << QByteArray(R"([{"keepPath":"@/dir","mergedPaths":["@/dir"]}])")
                               << "当前文件状态已变化，无法撤销：@/dir"_u;
    QTest::newRow("nothing there")
        << QByteArray(R"([{"keepPath":"@/keep","mergedPaths":["@/none"]}])")
        << "目标路径不存在：@/none"_u;
    QTest::newRow("kept file gone")
        << QByteArray(R"([{"keepPath":"@/none","mergedPaths":["@/keep"]}])")
        << "保留文件不存在，无法撤销：@/none"_u;
    QTest::newRow("no strings") << QByteArray(
                                       R"([{"keepPath":"@/keep","mergedPaths":[7,null,{}]}])")
                                << QString();
    QTest::newRow("actions are no list") << QByteArray(R"({"keepPath":"@/keep"})") << QString();
}

void TestWechatClean::undoTouchesOnlyLinks()
{
    QFETCH(QByteArray, record);
    QFETCH(QString, error);
    CleanBench bench;
    bench.file("keep", kText);
    bench.file("outside", kText);
    bench.tree.dir("files/dir");
    bench.tree.link("files/soft", bench.path("keep"));
    bench.tree.link("files/lone", bench.path("outside"));
    bench.tree.link("files/way", bench.tree.path("files"));
    QCOMPARE(::link(QFile::encodeName(bench.path("keep")).constData(),
                    QFile::encodeName(bench.path("second")).constData()),
             0);
    const QString top = bench.tree.path("files");
    bench.tree.file("home/.config/morvane/wechat_clean/operations/s1.json",
                    "{\"other\":1,\"actions\":" + record.replace("@", top.toUtf8()) + "}");
    const QMap<QString, QByteArray> before = bench.snapshot();
    const wechat::UndoOutcome outcome = bench.undo("s1"_u);
    QCOMPARE(outcome.restoredCount, 0);
    if (!error.isEmpty())
        QCOMPARE(outcome.errors, QStringList(error.replace(QLatin1Char('@'), top)));
    QCOMPARE(bench.snapshot(), before);
    QVERIFY(linked(bench.path("keep"), bench.path("second")));
    QCOMPARE(status(bench.record("s1"_u)), "invalid"_u);
    QCOMPARE(bench.record("s1"_u).value("other"_u).toInt(), 1);
    QCOMPARE(bench.journals(), QStringList());
}

void TestWechatClean::undoRefusesStrangeIds_data()
{
    QTest::addColumn<QString>("id");
    for (const char *id : {"", "../secret", "/etc/passwd", "absent", "broken", "list", "folder"})
        QTest::newRow(*id ? id : "empty") << QString::fromLatin1(id);
}

void TestWechatClean::undoRefusesStrangeIds()
{
    QFETCH(QString, id);
    CleanBench bench;
    const QString top = "home/.config/morvane/wechat_clean/"_u;
    bench.tree.file(top + "secret.json"_u, "{}");
    bench.tree.file(top + "operations/broken.json"_u, "{\"actions\":[");
    bench.tree.file(top + "operations/list.json"_u, "[]");
    bench.tree.dir(top + "operations/folder.json"_u);
    const QMap<QString, QByteArray> before = contents(bench.folders.top);
    QCOMPARE(bench.undo(id).errors, QStringList("无法读取清理记录"_u));
    QMap<QString, QByteArray> after = contents(bench.folders.top);
    after.remove("lock"_u);
    QCOMPARE(after, before);
}

void TestWechatClean::undoClearsOnlyItsOwnLeftover()
{
    CleanBench bench;
    const QString keep = bench.file("keep", kText);
    const QString one = bench.file("one", kText);
    const QString two = bench.file("two", kText);
    const QString id = bench.clean({action(keep, {{one}, {two}})}).sessionId;
    bench.file("one.morvane_restore_tmp", kText.left(5));
    bench.file("two.morvane_restore_tmp", "the user's own");
    QCOMPARE(bench.undo(id).restoredCount, 2);
    QVERIFY(!linked(one, keep) && !linked(two, keep));
    const QMap<QString, QByteArray> expected{{"keep"_u, kText},
                                             {"one"_u, kText},
                                             {"two"_u, kText},
                                             {"two.morvane_restore_tmp.1"_u, "the user's own"}};
    QCOMPARE(bench.snapshot(), expected);
}

QTEST_GUILESS_MAIN(TestWechatClean)
#include "tst_wechatclean.moc"
