#include "support/faketools.h"
#include "wechat/cleansupport.h"
#include "wechat/duplicatewalk.h"
#include "wechat/nativewechatdetector.h"
#include "wechat/wechatcleanworker.h"

#include <QFile>
#include <QSignalSpy>
#include <QTest>

#include <algorithm>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QStringList sorted(QStringList list)
{
    list.sort();
    return list;
}

} // namespace

class TestWechatScan : public QObject
{
    Q_OBJECT

private slots:
    void detectsProfiles_data();
    void detectsProfiles();
    void ordersProfiles();
    void triesAFolderUnderEachRule();
    void namesMonths_data();
    void namesMonths();
    void findsDuplicates();
    void refusesNoDirectory();
    void stops();
    void tellsPercents();
    void checksActions();
    void looksForTheClient_data();
    void looksForTheClient();
};

void TestWechatScan::detectsProfiles_data()
{
    QTest::addColumn<QString>("file");        // The only file of the home.
    QTest::addColumn<QStringList>("profile"); // Path, type, id, confidence, markers; or nothing.
    QTest::newRow("account") << ".config/WeChat/wxid_ab/msg/file/x.pdf"_u
                             << QStringList{".config/WeChat/wxid_ab"_u, "wechat"_u, "wxid_ab"_u,
                                            "83"_u, "file,msg/file"_u};
    QTest::newRow("account with months")
        << "Documents/xwechat_files/uid_1/msg/file/2024-03/x.pdf"_u
        << QStringList{"Documents/xwechat_files/uid_1"_u, "wechat"_u, "uid_1"_u, "90"_u,
                       "file,msg/file"_u};
    QTest::newRow("account in the root itself")
        << ".local/share/WeChat/msg/file/x.pdf"_u
        << QStringList{".local/share/WeChat"_u, "wechat"_u, QString(), "83"_u, "file,msg/file"_u};
    QTest::newRow("hidden account") << ".config/WeChat/.WXID_ab/msg/file/.x"_u
                                    << QStringList{".config/WeChat/.WXID_ab"_u, "wechat"_u,
                                                   QString(), "83"_u, "file,msg/file"_u};
    QTest::newRow("company") << "Documents/WXWork/wx_1/Cache/File/2024-3/x"_u
                             << QStringList{"Documents/WXWork/wx_1"_u, "wxwork"_u, QString(),
                                            "90"_u, "Cache/File,File"_u};
    QTest::newRow("content, no account") << ".config/WeChat/Files/msg/file/x"_u << QStringList();
    QTest::newRow("other place") << ".config/Weixin/wxid_ab/msg/file/x"_u << QStringList();
    QTest::newRow("other folder") << ".config/WeChat/wxid_ab/msg/files/x"_u << QStringList();
    QTest::newRow("no folder") << ".config/WeChat/wxid_ab/msg/file"_u << QStringList();
}

void TestWechatScan::detectsProfiles()
{
    QFETCH(QString, file);
    QFETCH(QStringList, profile);
    TempTree home;
    home.file(file);
    // An empty folder is no profile.
    home.dir(".config/WeChat/wxid_empty/msg/file");
    const QList<WechatProfile> found = NativeWechatDetector(home.path()).detect();
    QCOMPARE(found.size(), profile.isEmpty() ? 0 : 1);
    if (profile.isEmpty())
        return;
    const WechatProfile &first = found.at(0);
    const QStringList facts{first.profilePath, first.type, first.wxId,
                            QString::number(first.confidence),
                            sorted(first.matchedMarkers).join(QLatin1Char(','))};
    profile[0] = home.path(profile.at(0));
    QCOMPARE(facts, profile);
    const QString marker = first.type == "wechat"_u ? "/msg/file"_u : "/Cache/File"_u;
    QCOMPARE(first.scanDirs, QStringList(first.profilePath + marker));
    QCOMPARE(first.estimatedBytes, qint64(-1));
}

void TestWechatScan::ordersProfiles()
{
    TempTree home;
    home.file(".config/WeChat/wxid_b/msg/file/x");
    home.file(".config/WeChat/wxid_A/msg/file/x");
    home.file("Documents/WXWork/1/Cache/File/2024-12/x");
    WechatCleanWorker worker(home.path());
    QSignalSpy detected(&worker, &WechatCleanWorker::detectFinished);
    QSignalSpy progress(&worker, &WechatCleanWorker::progressChanged);
    worker.detectWechatDirs();
    QStringList order;
    const QVariantList profiles = detected.at(0).at(0).toList();
    for (const QVariant &value : profiles)
        order.append(value.toMap().value("typeLabel"_u).toString() +
                     value.toMap().value("profilePath"_u).toString().right(2));
    QCOMPARE(order, (QStringList{"企业微信/1"_u, "原生微信_A"_u, "原生微信_b"_u}));
    QCOMPARE(progress.at(0), (QVariantList{10, "正在检测微信目录..."_u}));
    QCOMPARE(progress.at(1), (QVariantList{100, "目录检测完成"_u}));
    WechatProfile custom;
    custom.type = "custom"_u;
    QCOMPARE(WechatCleanWorker::profileToVariantMap(custom).value("typeLabel"_u).toString(),
             "手动目录"_u);
}

void TestWechatScan::triesAFolderUnderEachRule()
{
    TempTree tree;
    tree.file("picked/wxid_1/msg/file/x");
    tree.file("picked/2/Cache/File/x");
    tree.file("picked/3/other/x");
    const NativeWechatDetector detector(tree.path());
    QStringList found;
    for (const WechatProfile &profile :
         detector.detectInRoot(tree.path("picked") + QLatin1Char('/')))
        found.append(profile.type + QLatin1Char(' ') + profile.profilePath);
    QCOMPARE(found, (QStringList{"wechat "_u + tree.path("picked/wxid_1"),
                                 "wxwork "_u + tree.path("picked/2")}));
    // The file folder itself may be picked.
    const QList<WechatProfile> direct = detector.detectInRoot(tree.path("picked/wxid_1/msg/file"));
    QCOMPARE(direct.size(), 1);
    QCOMPARE(direct.at(0).scanDirs, QStringList(tree.path("picked/wxid_1/msg/file")));
    QVERIFY(detector.detectInRoot(tree.path("absent")).isEmpty());
    QVERIFY(detector.detectInRoot(tree.path("picked/3/other/x")).isEmpty());
}

void TestWechatScan::namesMonths_data()
{
    QTest::addColumn<bool>("month");
    for (const char *name : {"2024-3", "2024-03", "2000-1", "2100-12"})
        QTest::newRow(name) << true;
    for (const char *name : {"1999-12", "2024-13", "2024-0", "2101-01", "2024_03", "2024-003",
                             "24-03", "abcd-03", "2024-x"})
        QTest::newRow(name) << false;
}

void TestWechatScan::namesMonths()
{
    QFETCH(bool, month);
    TempTree home;
    home.dir(".config/WeChat/a/msg/file/"_u + QString::fromLatin1(QTest::currentDataTag()));
    const QList<WechatProfile> found = NativeWechatDetector(home.path()).detect();
    QCOMPARE(found.size(), 1);
    QCOMPARE(found.at(0).confidence, month ? 90 : 83);
}

void TestWechatScan::findsDuplicates()
{
    CleanBench bench;
    bench.fill();
    bench.file(".hidden/copy", QByteArray(10000, 'a'));
    bench.file("small/1", "s");
    bench.file("small/2", "s");
    bench.file("empty/1", "");
    bench.file("empty/2", "");
    bench.tree.link("files/soft", bench.path("msg/keep"));
    bench.tree.fifo("files/fifo");
    bench.tree.rawFile("files/many", QByteArrayLiteral("bad\xff name"));
    for (int i = 0; i < 200; ++i)
        bench.file("plenty/%1"_u.arg(i), QByteArray::number(1000 + i));

    WechatCleanWorker worker(bench.tree.path("home"));
    QSignalSpy groups(&worker, &WechatCleanWorker::duplicateGroupsReady);
    QSignalSpy finished(&worker, &WechatCleanWorker::scanFinished);
    QSignalSpy progress(&worker, &WechatCleanWorker::progressChanged);
    const QString top = bench.tree.path("files");
    // A directory twice and one within it add nothing.
    worker.startScan({top, bench.path("msg"), top + "/"_u}, 5, 0);
    QCOMPARE(finished.at(0), (QVariantList{true, "扫描完成，共发现 3 组重复文件"_u, 3}));
    const QVariantList list = groups.at(0).at(0).toList();
    QCOMPARE(list.size(), 4);
    const qint64 reclaimable = 3 * 10000 + QByteArray("second 内容").size() + 3 * 5;
    const QVariantMap summary{
        {"totalGroups"_u, 3}, {"totalReclaimable"_u, reclaimable}, {"shownGroups"_u, 3}};
    for (auto it = summary.begin(); it != summary.end(); ++it)
        QCOMPARE(list.at(0).toMap().value(it.key()).toLongLong(), it.value().toLongLong());
    const QVariantMap largest = list.at(1).toMap();
    QCOMPARE(largest.value("size"_u).toLongLong(), qint64(10000));
    const QVariantList files = largest.value("files"_u).toList();
    QCOMPARE(files.size(), 4);
    int aliases = 0;
    for (const QVariant &file : files)
        aliases += file.toMap().value("aliasPaths"_u).toStringList().size();
    QCOMPARE(aliases, 1);

    QStringList texts;
    int last = 0;
    for (const QVariantList &step : qAsConst(progress)) {
        QVERIFY(step.at(0).toInt() >= last);
        last = step.at(0).toInt();
        texts.append(step.at(1).toString());
    }
    QCOMPARE(last, 100);
    QCOMPARE(texts.first(), "正在扫描微信文件：已扫描 200 个文件"_u);
    QVERIFY(texts.contains("正在分析重复文件..."_u));
    QCOMPARE(texts.last(), "扫描完成"_u);
}

void TestWechatScan::refusesNoDirectory()
{
    WechatCleanWorker worker;
    QSignalSpy groups(&worker, &WechatCleanWorker::duplicateGroupsReady);
    QSignalSpy finished(&worker, &WechatCleanWorker::scanFinished);
    worker.startScan({QString()}, 1, 0);
    QCOMPARE(groups.at(0).at(0).toList().size(), 0);
    QCOMPARE(finished.at(0), (QVariantList{false, "未选择可扫描的微信目录"_u, 0}));
    // One that is gone holds nothing.
    worker.startScan({"/nowhere/at/all"_u}, 1, 0);
    QCOMPARE(finished.at(1), (QVariantList{true, "扫描完成，共发现 0 组重复文件"_u, 0}));
}

void TestWechatScan::stops()
{
    CleanBench bench;
    bench.fill();
    WechatCleanWorker worker(bench.tree.path("home"));
    QSignalSpy groups(&worker, &WechatCleanWorker::duplicateGroupsReady);
    QSignalSpy finished(&worker, &WechatCleanWorker::scanFinished);
    // In the middle, between the walk and the comparison.
    connect(&worker, &WechatCleanWorker::progressChanged, &worker,
            [&worker](int percent, const QString &) {
                if (percent == 60)
                    worker.requestStop();
            });
    worker.startScan({bench.tree.path("files")}, 1, 0);
    QCOMPARE(finished.at(0), (QVariantList{false, "用户取消"_u, 0}));
    QCOMPARE(groups.size(), 0);
    worker.startScan({bench.tree.path("files")}, 1, 0);
    QCOMPARE(finished.at(1), (QVariantList{false, "用户取消"_u, 0}));
}

void TestWechatScan::tellsPercents()
{
    wechat::WalkProgress progress;
    progress.files = 1800;
    progress.bytes = 500;
    QCOMPARE(wechat::walkPercent(progress, 1000), 30);
    QCOMPARE(wechat::walkPercent(progress, 100), 60);
    QCOMPARE(wechat::walkPercent(progress, -1), 18);
    progress.files = 1000000;
    QCOMPARE(wechat::walkPercent(progress, 0), 60);
    QCOMPARE(wechat::comparePercent(0, 0), 60);
    QCOMPARE(wechat::comparePercent(1, 4), 70);
    QCOMPARE(wechat::comparePercent(4, 4), 100);
}

void TestWechatScan::checksActions()
{
    FakeTools tools;
    QString error;
    QVERIFY2(tools.add("ps"_u, FakeTools::prints("COMMAND COMMAND\nbash bash\n"), &error),
             qPrintable(error));
    const QByteArray path = tools.prependToPath();
    CleanBench bench;
    const QString keep = bench.file("keep", "text");
    const QString copy = bench.file("copy", "text");
    const QString soft = bench.tree.link("files/soft", copy);
    const QString gone = bench.path("gone");
    const QMap<QString, QByteArray> before = bench.snapshot();
    WechatCleanWorker worker(bench.tree.path("home"));
    QSignalSpy checked(&worker, &WechatCleanWorker::preflightFinished);
    const QString onlyWarning = "已跳过现有软链接："_u + soft;
    worker.runPreflightCheck({action(keep, {{copy}, {soft}})});
    QCOMPARE(checked.at(0), (QVariantList{true, QStringList(onlyWarning), QStringList()}));
    worker.runPreflightCheck({action(keep, {{gone}}), action(gone, {{copy}})});
    QCOMPARE(checked.at(1),
             (QVariantList{false, QStringList(),
                           QStringList{"副本文件不存在："_u + gone, "保留文件不存在："_u + gone}}));
    // /proc is a file system of its own on any machine.
    worker.runPreflightCheck({action(keep, {{"/proc/version"_u}})});
    QCOMPARE(
        checked.at(2).at(2).toStringList(),
        QStringList("以下文件与保留文件不在同一分区，当前版本不支持跨分区合并：/proc/version"_u));
    // What is left without such copies can be merged, unless there is more against it.
    QSignalSpy mergeable(&worker, &WechatCleanWorker::mergeableActionsReady);
    const QString other = bench.file("other", "text");
    const QVariantMap mixed = action(keep, {{copy}, {"/proc/version"_u, "/proc/uptime"_u}});
    worker.runPreflightCheck({mixed, action(keep, {{"/proc/version"_u}}), action(keep, {{other}})});
    QCOMPARE(checked.at(3).at(0).toBool(), false);
    QCOMPARE(mergeable.size(), 1);
    QCOMPARE(mergeable.at(0).at(0).toList(),
             (QVariantList{action(keep, {{copy}}), action(keep, {{other}})}));
    QCOMPARE(mergeable.at(0).at(1).toStringList(),
             (QStringList{"/proc/version"_u, "/proc/uptime"_u, "/proc/version"_u}));
    worker.runPreflightCheck({mixed, action(keep, {{gone}})});
    worker.runPreflightCheck({action(keep, {{"/proc/version"_u}})});
    QCOMPARE(mergeable.size(), 1);
    bench.tree.remove("files/other");
    QCOMPARE(bench.snapshot(), before);
    qputenv("PATH", path);
}

void TestWechatScan::looksForTheClient_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QStringList>("processes");
    QTest::newRow("running") << FakeTools::prints("COMMAND COMMAND\n  WeChatAppEx /opt/x \n"
                                                  "bash bash\npython /usr/WXWork/run\n\n")
                             << QStringList{"WeChatAppEx /opt/x"_u, "python /usr/WXWork/run"_u};
    QTest::newRow("other names") << FakeTools::prints("weixin a\nb wecom\nwe chat\n")
                                 << QStringList{"weixin a"_u, "b wecom"_u};
    QTest::newRow("failed") << FakeTools::prints("wechat wechat\n", 1) << QStringList();
    QTest::newRow("crashed") << QByteArray("echo wechat; kill -9 $$") << QStringList();
    QTest::newRow("hangs") << QByteArray("echo wechat; exec sleep 60") << QStringList();
}

void TestWechatScan::looksForTheClient()
{
    QFETCH(QByteArray, script);
    QFETCH(QStringList, processes);
    FakeTools tools;
    QString error;
    QVERIFY2(tools.add("ps"_u, script, &error), qPrintable(error));
    const QByteArray path = tools.prependToPath();
    WechatCleanWorker worker;
    QSignalSpy checked(&worker, &WechatCleanWorker::preflightFinished);
    worker.runPreflightCheck(QVariantList());
    qputenv("PATH", path);
    QStringList issues;
    if (!processes.isEmpty())
        issues.append("检测到微信仍在运行，请先退出微信后再清理。\n"_u +
                      processes.join(QLatin1Char('\n')));
    QCOMPARE(checked.at(0), (QVariantList{processes.isEmpty(), QStringList(), issues}));
    QCOMPARE(tools.calls(), QList<QStringList>{(QStringList{"ps"_u, "-eo"_u, "comm,args"_u})});
}

QTEST_GUILESS_MAIN(TestWechatScan)
#include "tst_wechatscan.moc"
