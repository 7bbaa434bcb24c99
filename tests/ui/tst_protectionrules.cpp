#include "ui/common/emptystate.h"
#include "ui/common/protectedfiletree.h"
#include "ui/pages/realtimeprotectionpage/statusrules.h"

#include <QHeaderView>
#include <QJsonArray>
#include <QSignalSpy>
#include <QtTest>

#include <limits>

using namespace protectedfiles;
using namespace realtimeprotection;
using ui::common::ProtectedFileTree;

namespace {

QString operator""_u(const char *utf8, size_t length)
{
    return QString::fromUtf8(utf8, static_cast<int>(length));
}

/// A status of these letters: e(nabled), r(unning), h(ook), f(ile of the hook), b(oot needed).
ServiceStatus statusOf(const QString &flags)
{
    return ServiceStatus::fromJson({{"enabled"_u, flags.contains(QLatin1Char('e'))},
                                    {"running"_u, flags.contains(QLatin1Char('r'))},
                                    {"preloadActive"_u, flags.contains(QLatin1Char('h'))},
                                    {"soFileExists"_u, flags.contains(QLatin1Char('f'))},
                                    {"needReboot"_u, flags.contains(QLatin1Char('b'))},
                                    {"protectedFileCount"_u, 7},
                                    {"usedSpaceBytes"_u, 5368709120.0},
                                    {"deployMode"_u, "global"_u}});
}

ProtectedFile fileAt(const QString &path, qint64 size = 1)
{
    ProtectedFile file;
    file.originalPath = path;
    file.fileName = path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
    file.id = "id-"_u + file.fileName;
    file.fileSize = size;
    return file;
}

QStringList directoriesOf(const QVector<DirectoryGroup> &groups)
{
    QStringList names;
    for (const DirectoryGroup &group : groups)
        names.append(group.directory);
    return names;
}

} // namespace

class TestProtectionRules : public QObject
{
    Q_OBJECT

private slots:
    void status_data();
    void status();
    void deployMode();
    void warnings_data();
    void warnings();
    void sizes();
    void times();
    void directories();
    void groups();
    void hostileRecords();
    void treeShowsGroups();
    void treeTicks();
    void spaceTicks();
    void manyFiles_data();
    void manyFiles();
};

void TestProtectionRules::status_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("dot");
    QTest::addColumn<QString>("toggle");
    QTest::addColumn<QString>("service");
    const auto row = [](const char *flags, const QString &text, const char *dot, bool isOn,
                        bool isRunning) {
        QTest::newRow(flags) << text << QString::fromLatin1(dot)
                             << (isOn ? "关闭保护"_u : "启用保护"_u)
                             << (isRunning ? "● 运行中"_u : "○ 未运行"_u);
    };
    row("", "保护未启用"_u, "#666666", false, false);
    row("r", "保护未启用"_u, "#666666", false, true);
    row("rhfb", "保护未启用"_u, "#666666", false, true);
    row("ehf", "保护未启用"_u, "#666666", false, false);
    row("erhf", "保护已启用"_u, "#22c55e", true, true);
    row("erhfb", "待重启生效"_u, "#f59e0b", true, true);
    row("erh", "保护异常"_u, "#ef4444", true, true);
    row("erf", "保护异常"_u, "#ef4444", true, true);
    row("erhb", "保护异常"_u, "#ef4444", true, true);
}

void TestProtectionRules::status()
{
    const StatusView view = viewOf(statusOf(QString::fromLatin1(QTest::currentDataTag())));
    QTEST(view.text, "text");
    QTEST(dotColor(view.health).name(), "dot");
    QTEST(view.toggleText, "toggle");
    QTEST(view.service, "service");
    QCOMPARE(view.fileCount, "7"_u);
    QCOMPARE(view.usedSpace, "5.0 GB"_u);
    QCOMPARE(view.deployMode, "全局模式"_u); // whatever the flags say
}

void TestProtectionRules::deployMode()
{
    QStringList texts;
    for (const char *mode : {"global", "pending_reboot", "degraded", "", "Global"}) {
        const StatusView view =
            viewOf(ServiceStatus::fromJson({{"deployMode"_u, QString::fromLatin1(mode)}}));
        texts.append(view.deployMode);
        QCOMPARE(view.fileCount + view.usedSpace + view.text, "00 B保护未启用"_u);
    }
    QCOMPARE(texts.join(QLatin1Char('|')), "全局模式|待重启|异常|未启用|未启用"_u);
}

void TestProtectionRules::warnings_data()
{
    QTest::addColumn<QString>("states"); // of statusOf(), separated by blanks
    QTest::addColumn<QString>("warned"); // which of them warn, and of what
    const auto row = [](const char *name, const char *states, const char *warned) {
        QTest::newRow(name) << QString::fromLatin1(states) << QString::fromLatin1(warned);
    };
    row("no file", "erh", "f");
    row("both: the file", "er", "f");
    row("once a spell", "erf erf erh", "h--");
    row("a stop in between", "erf e erf", "h--");
    row("mended in between", "erf erhf erh", "h-f");
    row("off in between", "erf r erf", "h-h");
    row("off and stopped in between", "erf hf erf", "h-h");
    row("reboot in between", "erf erhfb erf", "h-h");
    row("a stop does not begin one", "e erf", "-h");
}

void TestProtectionRules::warnings()
{
    QFETCH(QString, states);
    QString warned;
    BreakageWatch watch;
    for (const QString &flags : states.split(QLatin1Char(' '))) {
        const QString text = watch.warningFor(statusOf(flags));
        if (text == "预加载库文件缺失，请重新启用保护。"_u)
            warned += QLatin1Char('f');
        else if (text == "预加载未注册到系统，请重新启用保护。"_u)
            warned += QLatin1Char('h');
        else
            warned += text.isEmpty() ? "-"_u : text;
    }
    QTEST(warned, "warned");
}

void TestProtectionRules::sizes()
{
    constexpr qint64 kTerabyte = Q_INT64_C(1) << 40;
    const QVector<qint64> bytes{-5,     0,      1,       1023,    1024,      1536,
                                102400, 102401, 1048575, 1048576, kTerabyte, 5000 * kTerabyte};
    QStringList texts;
    for (const qint64 size : bytes)
        texts.append(byteText(size));
    QCOMPARE(texts.join(QLatin1Char('|')), "0 B|0 B|1 B|1023 B|1.0 KB|1.5 KB|100.0 KB|100 KB|"
                                           "1024 KB|1.0 MB|1.0 TB|5000 TB"_u);
}

void TestProtectionRules::times()
{
    const QDateTime time(QDate(2026, 3, 4), QTime(5, 6, 59));
    QCOMPARE(deletedText(time.toSecsSinceEpoch()), "2026-03-04 05:06"_u);
    for (const qint64 none : {Q_INT64_C(0), Q_INT64_C(-1), std::numeric_limits<qint64>::min(),
                              std::numeric_limits<qint64>::max()})
        QCOMPARE(deletedText(none), "-"_u);
    QVERIFY(deletedText(1) != "-"_u);
}

void TestProtectionRules::directories()
{
    QStringList directories;
    for (const char *path : {"/home/a/文件.txt", "/x", "x", "", "a/x", "/home/a/"})
        directories.append(directoryOf(QString::fromUtf8(path)));
    QCOMPARE(directories.join(QLatin1Char('|')), "/home/a|/|/|/|a|/home/a"_u);
}

void TestProtectionRules::groups()
{
    constexpr qint64 kMax = std::numeric_limits<qint64>::max();
    const QVector<DirectoryGroup> groups =
        groupByDirectory({fileAt("/b/2"_u, 10), fileAt("/a/9"_u, kMax), fileAt("/b/1"_u, 20),
                          fileAt("loose"_u), fileAt("/a/8"_u, 5)});
    QCOMPARE(directoriesOf(groups), (QStringList{"/"_u, "/a"_u, "/b"_u}));
    QCOMPARE(groups.at(2).files.first().fileName, "2"_u); // not sorted within
    QCOMPARE(groups.at(2).totalSize, Q_INT64_C(30));
    QCOMPARE(groups.at(1).totalSize, kMax);
    QCOMPARE(groupText(groups.at(1)), "/a - 2 个文件"_u);
    QCOMPARE(groupText({"/%2"_u, {}, 0}), "/%2 - 0 个文件"_u);
}

void TestProtectionRules::hostileRecords()
{
    const QVector<ProtectedFile> files =
        fromJson({QJsonObject{{"id"_u, 5},
                              {"fileName"_u, QJsonArray()},
                              {"originalPath"_u, QJsonValue()},
                              {"fileSize"_u, "9"_u},
                              {"deletedAt"_u, true}},
                  QJsonObject{{"id"_u, "x"_u}, {"fileSize"_u, -1e300}, {"deletedAt"_u, 1e300}},
                  QJsonObject{{"fileSize"_u, 1e300}}, "no object"_u, QJsonValue()});
    QCOMPARE(files.size(), 3);
    QVERIFY(files.at(0).id.isEmpty() && files.at(0).fileName.isEmpty());
    QCOMPARE(files.at(0).fileSize + files.at(0).deletedAt, Q_INT64_C(0));
    QCOMPARE(files.at(1).fileSize, Q_INT64_C(0));
    QCOMPARE(deletedText(files.at(1).deletedAt), "-"_u);
    QCOMPARE(files.at(2).fileSize, std::numeric_limits<qint64>::max());

    // A file without a name for the service is shown but never handed back to it.
    ProtectedFileTree tree("删除时间"_u);
    tree.populate(files);
    tree.topLevelItem(0)->setCheckState(0, Qt::Checked);
    QCOMPARE(tree.checkedIds(), QStringList{"x"_u});
}

void TestProtectionRules::treeShowsGroups()
{
    ProtectedFileTree tree("保护时间"_u);
    tree.resize(700, 300);
    tree.show();
    QVERIFY(tree.emptyState()->isVisible());
    QStringList headings;
    for (int column = 0; column < tree.columnCount(); ++column)
        headings << tree.headerItem()->text(column);
    QCOMPARE(headings, (QStringList{"文件名"_u, "大小"_u, "保护时间"_u, "原始路径"_u}));
    QCOMPARE(tree.columnWidth(1), 80);
    QCOMPARE(tree.columnWidth(2), 140);
    QCOMPARE(tree.header()->sectionResizeMode(0), QHeaderView::Stretch);
    QVERIFY(tree.header()->stretchLastSection());

    tree.populate({fileAt("/b/<b>x"_u, 1536), fileAt("/a/y"_u)});
    QVERIFY(!tree.emptyState()->isVisible());
    QCOMPARE(tree.topLevelItemCount(), 2);
    const QTreeWidgetItem *group = tree.topLevelItem(1);
    QCOMPARE(group->text(0) + group->text(1), "/b - 1 个文件1.5 KB"_u);
    QCOMPARE(group->data(0, Qt::UserRole).toString(), "__dir__"_u);
    QVERIFY(group->isExpanded() && group->font(0).bold());
    QCOMPARE(group->font(0).pixelSize(), 12);
    QVERIFY(!group->icon(0).pixmap(16, 16).isNull());
    const QTreeWidgetItem *file = group->child(0);
    QCOMPARE(file->text(0) + file->text(1) + file->text(2) + file->text(3), "<b>x1.5 KB-/b/<b>x"_u);
    QCOMPARE(file->data(0, Qt::UserRole).toString(), "id-<b>x"_u);
    tree.populate({});
    QVERIFY(tree.emptyState()->isVisible());
}

void TestProtectionRules::treeTicks()
{
    ProtectedFileTree tree("删除时间"_u);
    tree.populate({fileAt("/a/1"_u), fileAt("/a/2"_u), fileAt("/b/3"_u)});
    QSignalSpy counts(&tree, &ProtectedFileTree::checkedCountChanged);
    QTreeWidgetItem *group = tree.topLevelItem(0);
    group->setCheckState(0, Qt::Checked);
    QCOMPARE(tree.checkedIds(), (QStringList{"id-1"_u, "id-2"_u}));
    group->child(0)->setCheckState(0, Qt::Unchecked);
    QCOMPARE(group->checkState(0), Qt::PartiallyChecked);
    QCOMPARE(tree.checkedIds(), QStringList{"id-2"_u});
    group->setCheckState(0, Qt::PartiallyChecked); // nothing to pass on
    QCOMPARE(tree.checkedIds(), QStringList{"id-2"_u});
    group->child(1)->setCheckState(0, Qt::Unchecked);
    QCOMPARE(group->checkState(0), Qt::Unchecked);
    group->child(0)->setCheckState(0, Qt::Checked);
    group->child(1)->setCheckState(0, Qt::Checked);
    QCOMPARE(group->checkState(0), Qt::Checked);
    QCOMPARE(tree.topLevelItem(1)->checkState(0), Qt::Unchecked);
    QCOMPARE(counts.last().first().toInt(), 2);
    group->setText(2, "other column"_u);
    QCOMPARE(counts.size(), 5);
    tree.populate({fileAt("/a/1"_u)});
    QVERIFY(tree.checkedIds().isEmpty());
    QCOMPARE(counts.last().first().toInt(), 0);
}

void TestProtectionRules::spaceTicks()
{
    ProtectedFileTree tree("删除时间"_u);
    tree.populate({fileAt("/a/1"_u), fileAt("/a/2"_u)});
    tree.resize(700, 300);
    tree.show();
    QTreeWidgetItem *group = tree.topLevelItem(0);
    tree.setCurrentItem(group->child(1), 3); // any column
    QTest::keyClick(&tree, Qt::Key_Space);
    QCOMPARE(tree.checkedIds(), QStringList{"id-2"_u});
    tree.setCurrentItem(group);
    QTest::keyClick(&tree, Qt::Key_Space); // from partial to all
    QCOMPARE(tree.checkedIds().size(), 2);
    QTest::keyClick(&tree, Qt::Key_Space);
    QVERIFY(tree.checkedIds().isEmpty());
}

void TestProtectionRules::manyFiles_data()
{
    QTest::addColumn<int>("perDirectory");
    QTest::newRow("one directory") << 20000;
    QTest::newRow("a hundred") << 200;
    QTest::newRow("one each") << 1;
}

void TestProtectionRules::manyFiles()
{
    QFETCH(int, perDirectory);
    QVector<ProtectedFile> files;
    for (int i = 0; i < 20000; ++i)
        files.append(fileAt("/home/用户/%1/%2.docx"_u.arg(i / perDirectory).arg(i), i));
    ProtectedFileTree tree("删除时间"_u);
    tree.resize(900, 500);
    tree.show();
    QVERIFY(QTest::qWaitForWindowExposed(&tree));
    QElapsedTimer clock;
    const auto took = [&clock, &tree](const std::function<void()> &work) {
        clock.start();
        work();
        tree.viewport()->repaint();
        return clock.elapsed();
    };
    const qint64 filledMs = took([&] { tree.populate(files); });
    const qint64 refilledMs = took([&] { tree.populate(files); });
    const qint64 tickedMs = took([&] { tree.topLevelItem(0)->setCheckState(0, Qt::Checked); });
    qInfo() << "ms to fill:" << filledMs << "again:" << refilledMs << "to tick:" << tickedMs;
    QCOMPARE(tree.checkedIds().size(), perDirectory);
    QVERIFY2(filledMs < 5000 && refilledMs < 5000 && tickedMs < 5000,
             "far beyond a slow machine's excuse");
}

QTEST_MAIN(TestProtectionRules)
#include "tst_protectionrules.moc"
