#include "support/temptree.h"
#include "ui/common/theme.h"
#include "ui/pages/wechatcleanpage/cleanrecords.h"
#include "ui/pages/wechatcleanpage/cleanresults.h"
#include "ui/pages/wechatcleanpage/cleantexts.h"
#include "ui/pages/wechatcleanpage/profilerules.h"

#include <QtTest>

using namespace wechatclean;

namespace {

QString operator""_u(const char *utf8, size_t length)
{
    return QString::fromUtf8(utf8, static_cast<int>(length));
}

/// Words of the letters that stand for paths: "a b"_u is /s/a and /s/b.
QStringList paths(const QString &letters)
{
    QStringList list = letters.split(QLatin1Char(' '));
    list.removeAll(QString());
    for (QString &path : list)
        path.prepend(QStringLiteral("/s/"));
    return list;
}

QString letters(const QStringList &paths)
{
    QString text = paths.join(QLatin1Char(' '));
    return text.remove(QStringLiteral("/s/"));
}

/// "a+x b"_u is a group of two files, the first of them with the alias x.
ResultGroup group(const QString &files, qint64 size = 10)
{
    ResultGroup group;
    group.size = size;
    group.hash = QStringLiteral("abc");
    for (const QString &file : files.split(QLatin1Char(' '))) {
        const QStringList names = paths(QString(file).replace(QLatin1Char('+'), QLatin1Char(' ')));
        group.files.append({names.first(), QDateTime(), names.mid(1)});
    }
    return group;
}

QString describe(const CleanResults &results)
{
    QStringList groups;
    for (const ResultGroup &group : results.groups) {
        QStringList files;
        for (int i = 0; i < group.files.size(); ++i)
            files << (i == group.kept ? QStringLiteral("*") : QString()) +
                         letters(group.files.at(i).allPaths())
                             .replace(QLatin1Char(' '), QLatin1Char('+'));
        groups << files.join(QLatin1Char(' '));
    }
    return groups.join(QStringLiteral(" | "));
}

QVariantMap recordAction(const QString &keep, const QString &merged)
{
    return {{QStringLiteral("keepPath"), paths(keep).value(0)},
            {QStringLiteral("size"), Q_INT64_C(10)},
            {QStringLiteral("mergedPaths"), paths(merged)}};
}

QVariantMap recordOf(const QVariantList &actions)
{
    return {{QStringLiteral("actions"), actions}};
}

} // namespace

class TestWechatRules : public QObject
{
    Q_OBJECT

private slots:
    void displayPaths_data();
    void displayPaths();
    void sizes_data();
    void sizes();
    void actions_data();
    void actions();
    void groupsAsTheyCome();
    void afterAClean_data();
    void afterAClean();
    void statuses_data();
    void statuses();
    void recordFiles_data();
    void recordFiles();
    void recordList();
    void damagedSizes();
    void profiles();
    void scanDirs_data();
    void scanDirs();
    void manyLines();
    void whatIsToldBeforeAndAfter();
};

void TestWechatRules::displayPaths_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QStringList>("dirs");
    QTest::addColumn<QString>("shown");
    const QString longName(70, QLatin1Char('n'));
    QTest::newRow("inside") << "/h/w/a/b.txt"_u << QStringList{"/h/w"_u} << "a/b.txt"_u;
    QTest::newRow("innermost") << "/h/w/a/b.txt"_u << QStringList{"/h"_u, "/h/w/a"_u, "/h/w"_u}
                               << "b.txt"_u;
    QTest::newRow("only a prefix") << "/h/ww/a"_u << QStringList{"/h/w"_u} << "/h/ww/a"_u;
    QTest::newRow("elsewhere") << "/x/a"_u << QStringList{"/h/w"_u} << "/x/a"_u;
    QTest::newRow("no directories") << "/x/a"_u << QStringList() << "/x/a"_u;
    QTest::newRow("long") << "/h/w/one/two/three/"_u + longName << QStringList{"/h/w"_u}
                          << ".../two/three/"_u + longName;
    QTest::newRow("long of three")
        << "/h/w/two/three/"_u + longName << QStringList{"/h/w"_u} << "two/three/"_u + longName;
    QTest::newRow("long and elsewhere")
        << "/a/b/c/d/"_u + longName << QStringList() << ".../c/d/"_u + longName;
}

void TestWechatRules::displayPaths()
{
    QFETCH(QString, path);
    QFETCH(QStringList, dirs);
    QTEST(displayPathForFile(path, dirs), "shown");
}

void TestWechatRules::sizes_data()
{
    QTest::addColumn<qint64>("bytes");
    QTest::addColumn<QString>("text");
    QTest::newRow("0") << Q_INT64_C(0) << "0 B"_u;
    QTest::newRow("below KB") << Q_INT64_C(1023) << "1023 B"_u;
    QTest::newRow("KB") << Q_INT64_C(1536) << "1.5 KB"_u;
    QTest::newRow("GB") << (Q_INT64_C(5) << 30) << "5.0 GB"_u;
    QTest::newRow("no unit above TB") << (Q_INT64_C(3) << 50) << "3072.0 TB"_u;
    QTest::newRow("just below") << (Q_INT64_C(1023) << 40) << "1023.0 TB"_u;
    QTest::newRow("rounded up") << (Q_INT64_C(1) << 50) - 1 << "1024.0 TB"_u;
    QTest::newRow("negative") << Q_INT64_C(-5) << "0 B"_u;
}

void TestWechatRules::sizes()
{
    QFETCH(qint64, bytes);
    QTEST(formatSize(bytes), "text");
}

void TestWechatRules::actions_data()
{
    QTest::addColumn<QString>("files");
    QTest::addColumn<int>("kept");
    QTest::addColumn<QString>("keepPath");
    QTest::addColumn<QString>("replacePaths");
    QTest::addColumn<QString>("replaceGroups");
    QTest::newRow("two") << "a b"_u << 0 << "a"_u
                         << "b"_u
                         << "b"_u;
    QTest::newRow("second kept") << "a b c"_u << 1 << "b"_u
                                 << "a c"_u
                                 << "a|c"_u;
    // All names of an inode together free its room; those of the kept one stay.
    QTest::newRow("aliases") << "a+x b+y+z"_u << 0 << "a"_u
                             << "b y z"_u
                             << "b y z"_u;
    QTest::newRow("kept with aliases") << "a+x b"_u << 1 << "b"_u
                                       << "a x"_u
                                       << "a x"_u;
    QTest::newRow("alias that is the path") << "a b+b+y"_u << 0 << "a"_u
                                            << "b y"_u
                                            << "b y"_u;
    QTest::newRow("one file") << "a+x"_u << 0 << ""_u
                              << ""_u
                              << ""_u;
    QTest::newRow("kept out of range") << "a b"_u << 7 << ""_u
                                       << ""_u
                                       << ""_u;
}

void TestWechatRules::actions()
{
    QFETCH(QString, files);
    QFETCH(int, kept);
    QFETCH(QString, keepPath);
    ResultGroup source = group(files);
    source.kept = kept;
    const QVariantMap action = buildAction(source);
    QCOMPARE(action.value("keepPath"_u).toString(), paths(keepPath).value(0));
    QTEST(letters(action.value("replacePaths"_u).toStringList()), "replacePaths");
    QStringList groups;
    for (const QVariant &entry : action.value("replaceGroups"_u).toList()) {
        const QStringList aliases = entry.toMap().value("aliasPaths"_u).toStringList();
        QCOMPARE(entry.toMap().value("path"_u).toString(), aliases.value(0));
        groups << letters(aliases);
    }
    QTEST(groups.join(QLatin1Char('|')), "replaceGroups");
    QCOMPARE(action.isEmpty(), keepPath.isEmpty());

    CleanResults results;
    results.groups = {source, group("p q r"_u, 100)};
    const ActionTotals totals = totalsOf(buildAllActions(results));
    QCOMPARE(totals.groups, keepPath.isEmpty() ? 1 : 2);
    QCOMPARE(totals.copies, 2 + groups.size());
    QCOMPARE(totals.bytes, 200 + 10 * groups.size());
}

void TestWechatRules::groupsAsTheyCome()
{
    const QVariantMap file{{"path"_u, "/s/a"_u}, {"aliasPaths"_u, QStringList{"/s/x"_u}}};
    const QVariantMap other{{"path"_u, "/s/b"_u}};
    const QVariantMap whole{
        {"size"_u, Q_INT64_C(9)}, {"hash"_u, "0f"_u}, {"files"_u, QVariantList{file, other}}};
    const QVariantMap single{{"size"_u, Q_INT64_C(9)}, {"files"_u, QVariantList{file, 5}}};
    const QVariantMap summary{
        {"totalGroups"_u, 7}, {"shownGroups"_u, 1}, {"totalReclaimable"_u, Q_INT64_C(900)}};
    CleanResults results;
    takeGroups({summary, whole, single, 17}, &results);
    QCOMPARE(describe(results), QStringLiteral("*a+x b"));
    QCOMPARE(summaryLine(results.summary), "共发现 7 组重复文件，预计可释放 900 B"_u);
    QCOMPARE(groupLine(results.groups.first()), "2 个文件 · 单文件 9 B · 可释放 9 B"_u);
    QCOMPARE(fileCaption(results.groups.first().files.first()), "修改时间：未知  ·  关联路径：1"_u);
    takeGroups({}, &results);
    QVERIFY(results.groups.isEmpty());
    QCOMPARE(results.summary.totalGroups, 0);
}

void TestWechatRules::afterAClean_data()
{
    QTest::addColumn<QString>("keep");
    QTest::addColumn<QString>("merged");
    QTest::addColumn<QString>("left");
    QTest::addColumn<int>("groupsLeft");
    QTest::addColumn<qint64>("bytes");
    QTest::newRow("whole group") << "a"_u
                                 << "b y c"_u
                                 << "*p q"_u << 1 << Q_INT64_C(10);
    QTest::newRow("one failed") << "a"_u
                                << "b y"_u
                                << "*a+b+y c | *p q"_u << 2 << Q_INT64_C(20);
    // The scan may have met the other name first.
    QTest::newRow("by its alias") << "a"_u
                                  << "y"_u
                                  << "*a+y c | *p q"_u << 2 << Q_INT64_C(20);
    QTest::newRow("another one was kept") << "c"_u
                                          << "a"_u
                                          << "b+y *c+a | *p q"_u << 2 << Q_INT64_C(20);
    QTest::newRow("unknown keeper") << "k"_u
                                    << "b"_u
                                    << "*a b+y c | *p q"_u << 2 << Q_INT64_C(30);
    QTest::newRow("keeper listed as merged") << "a"_u
                                             << "a b y"_u
                                             << "*a+b+y c | *p q"_u << 2 << Q_INT64_C(20);
}

void TestWechatRules::afterAClean()
{
    QFETCH(QString, keep);
    QFETCH(QString, merged);
    CleanResults results;
    results.groups = {group("a b+y c"_u), group("p q"_u)};
    applyRecord(recordOf({recordAction(keep, merged)}), &results);
    QTEST(describe(results), "left");
    QTEST(results.summary.totalGroups, "groupsLeft");
    QCOMPARE(results.summary.shownGroups, results.summary.totalGroups);
    QTEST(results.summary.totalReclaimable, "bytes");
}

void TestWechatRules::statuses_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("undo");
    QTest::newRow("active") << "可撤销"_u << true;
    QTest::newRow("undone") << "已撤销"_u << false;
    QTest::newRow("partial") << "部分可撤销"_u << true;
    QTest::newRow("invalid") << "不可撤销"_u << false;
    QTest::newRow("later") << "可撤销"_u << true;
    QTest::newRow("") << "可撤销"_u << true;
}

void TestWechatRules::statuses()
{
    const QString status = QString::fromLatin1(QTest::currentDataTag());
    QTEST(operationStatusText(status), "text");
    QTEST(mayUndo(status), "undo");
    QSet<QRgb> seen;
    for (const char *name : {"active", "undone", "partial", "invalid"})
        seen << operationStatusColor(QLatin1String(name), ui::common::ThemeColors::light()).rgb();
    QCOMPARE(seen.size(), 4);
}

void TestWechatRules::recordFiles_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<bool>("taken");
    QTest::addColumn<int>("merged");
    QTest::addColumn<qint64>("restored");
    const auto row = [](const char *name, const char *json, bool taken, int merged, qint64 bytes) {
        QTest::newRow(name) << QByteArray(json) << taken << merged << bytes;
    };
    row("whole",
        R"({"sessionId":"r","createdAt":"2026-01-02T03:04:05","groupCount":2,"status":"active",
            "reclaimedBytes":"5000000000","actions":[
            {"keepPath":"/k","size":"4000000000","hash":"0f","mergedPaths":["/a","/b"]},
            {"keepPath":"/l","size":"7","mergedPaths":["/c"]}]})",
        true, 3, Q_INT64_C(8000000007));
    row("half undone",
        R"({"sessionId":"r","actions":[
            {"keepPath":"/k","size":"10","mergedPaths":["/a","/b","/c"],"restoredPaths":["/b"]},
            {"keepPath":"/l","size":"7","mergedPaths":["/d"],"restoredPaths":["/d","/e"]}]})",
        true, 2, 20);
    row("actions are text", R"({"sessionId":"r","actions":"none"})", true, 0, 0);
    row("odd entries", R"({"sessionId":"r","groupCount":-4,"reclaimedBytes":true,"actions":[
            5, null, {"size":"x","mergedPaths":["/a",3,null]}]})",
        true, 1, 0);
    row("of another session", R"({"sessionId":"../r"})", false, 0, 0);
    row("no session", R"({"actions":[]})", false, 0, 0);
    row("an array", "[1,2]", false, 0, 0);
    row("cut off", R"({"sessionId":"r","actio)", false, 0, 0);
    row("empty", "", false, 0, 0);
    row("deep", QByteArray(5000, '[').constData(), false, 0, 0);
}

void TestWechatRules::recordFiles()
{
    QFETCH(QByteArray, json);
    QFETCH(bool, taken);
    TempTree tree;
    const QVariantMap record = recordFileToMap(tree.file("r.json"_u, json));
    QCOMPARE(!record.isEmpty(), taken);
    QTEST(countToRestore(record), "merged");
    QTEST(bytesToRestore(record), "restored");
    QVERIFY(record.value("groupCount"_u).toInt() >= 0);
    QVERIFY(record.value("reclaimedBytes"_u).toLongLong() >= 0);
    QCOMPARE(loadOperationRecord(tree.path(), QStringLiteral("r")), record);
    QVERIFY(loadOperationRecord(tree.path(), QStringLiteral("../r")).isEmpty());
}

void TestWechatRules::recordList()
{
    TempTree tree;
    const auto write = [&tree](const QString &id, const QString &time) {
        tree.file(id + ".json"_u,
                  QStringLiteral(R"({"sessionId":"%1","createdAt":"%2"})").arg(id, time).toUtf8());
    };
    write("b"_u, "2026-03-01T00:00:00"_u);
    write("c"_u, "yesterday"_u);
    write("a"_u, "2026-03-02T00:00:00"_u);
    write("d"_u, ""_u);
    tree.file("broken.json"_u, "{");
    tree.fifo("pipe.json"_u); // Opening it would hang.
    tree.dir("dir.json"_u);
    tree.link("gone.json"_u, "/nowhere"_u);
    tree.file("note.txt"_u, "{}");
    int refused = 0;
    QStringList ids;
    for (const QVariant &record : loadOperationRecords(tree.path(), &refused))
        ids << record.toMap().value("sessionId"_u).toString();
    QCOMPARE(ids, QStringList({"a"_u, "b"_u, "d"_u, "c"_u}));
    QCOMPARE(refused, 4);
    QVERIFY(loadOperationRecords(tree.path("missing"_u), &refused).isEmpty());
    QCOMPARE(refused, 0);
    QVERIFY(loadOperationRecords(tree.path("note.txt"_u), &refused).isEmpty());
    QCOMPARE(refused, kUnreadableFolder);
}

void TestWechatRules::damagedSizes()
{
    QVariantMap huge = recordAction("a"_u, "b c"_u);
    huge.insert("size"_u, std::numeric_limits<qint64>::max() - 1);
    QCOMPARE(bytesToRestore(recordOf({huge})), std::numeric_limits<qint64>::max());
}

void TestWechatRules::profiles()
{
    const QVariantMap manual = manualProfile("/w"_u);
    QCOMPARE(manual.value("type"_u).toString(), QStringLiteral("custom"));
    const QString label = manual.value("typeLabel"_u).toString();
    QCOMPARE(label.toUtf8().toHex(), QByteArray("e98eb5e5acaae5a7a9e990a9ee86bce7b68d"));
    QVariantList list{manual};
    QCOMPARE(addProfiles({manualProfile("/v"_u), manual, manualProfile("/v"_u), 3}, &list), 1);
    QCOMPARE(list.size(), 2);
    QCOMPARE(profilesExcept(list, {"/w"_u}), QVariantList{manualProfile("/v"_u)});
    QCOMPARE(estimatedBytesOf(list), Q_INT64_C(-1));
    QCOMPARE(estimatedBytesOf({QVariantMap{{"estimatedBytes"_u, 5}}}), Q_INT64_C(5));
}

void TestWechatRules::scanDirs_data()
{
    QTest::addColumn<QStringList>("dirs");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("apart") << QStringList{"/a"_u, "/ab"_u} << QStringList{"/a"_u, "/ab"_u};
    QTest::newRow("twice") << QStringList{"/a"_u, "/a"_u} << QStringList{"/a"_u};
    QTest::newRow("inside") << QStringList{"/a/msg/file"_u, "/a"_u} << QStringList{"/a"_u};
    QTest::newRow("none") << QStringList() << QStringList();
}

void TestWechatRules::scanDirs()
{
    QFETCH(QStringList, dirs);
    QVariantList profiles;
    for (const QString &dir : dirs)
        profiles << manualProfile(dir);
    QTEST(scanDirsOf(profiles), "expected");
}

void TestWechatRules::manyLines()
{
    QStringList lines;
    for (int i = 0; i < 200; ++i)
        lines << QString::number(i);
    QCOMPARE(joinedLines(lines).split(QLatin1Char('\n')).size(), 200);
    lines << "200"_u
          << "201"_u;
    const QStringList shown = joinedLines(lines).split(QLatin1Char('\n'));
    QCOMPARE(shown.size(), 201);
    QCOMPARE(shown.last(), "……另有 2 项"_u);
}

void TestWechatRules::whatIsToldBeforeAndAfter()
{
    ActionTotals totals;
    totals.groups = 2;
    totals.copies = 3;
    totals.paths = 4;
    totals.bytes = 2048;
    const QString before = confirmCleanText(totals, {"甲"_u, "乙"_u});
    QVERIFY(before.contains("将按当前选择执行文件合并，确定继续吗？\n\n注意：\n甲\n乙"_u));
    QVERIFY(before.contains("2 组"_u) && before.contains("3 个副本"_u) &&
            before.contains("4 个路径"_u) && before.contains("2.0 KB"_u) &&
            before.contains("硬链接"_u));
    QVERIFY(!confirmCleanText(totals, {}).contains("注意"_u));
    QVERIFY(
        cleanDoneText(3, 2048, false, {"错"_u}).startsWith("成功处理 3 个副本，释放 2.0 KB。"_u));
    QVERIFY(cleanDoneText(3, 2048, false, {"错"_u}).endsWith("\n\n错"_u));
    QVERIFY(cleanDoneText(3, 0, true, {}).contains("停止"_u));
    QVERIFY(confirmUndoText(recordOf({recordAction("a"_u, "b c"_u)})).contains("2 个文件"_u));
    QCOMPARE(recoveryText({}, {}, {}, {}), QString());
    const QString recovered = recoveryText({"/a"_u}, {}, {"坏"_u}, {"/media/x"_u});
    QVERIFY(recovered.contains("/a"_u) && recovered.contains("坏"_u));
    QVERIFY(recovered.contains("1 个文件夹现在无法访问"_u) && recovered.endsWith("/media/x"_u));
    QVERIFY(cleanOutcome(3, 2048, false, 2).text.contains("另有 2 项未处理"_u));
    QCOMPARE(cleanOutcome(3, 0, true, 0).title, "清理已停止"_u);
    QCOMPARE(undoOutcome(3, 1).title, "已撤销一部分"_u);
    QCOMPARE(recordFilesText(recordOf({recordAction("a"_u, "b c"_u), recordAction("d"_u, "e"_u)})),
             "第 1 组\n保留文件：\n/s/a\n已合并文件（2 个）：\n/s/b\n/s/c\n\n"
             "第 2 组\n保留文件：\n/s/d\n已合并文件（1 个）：\n/s/e"_u);
}

QTEST_MAIN(TestWechatRules)
#include "tst_wechatrules.moc"
