#include "ui/scanresultsfixture.h"

#include <QScrollBar>

namespace {

using Fixture = ScanResultsFixture;

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

} // namespace

/// The list of found files as a person works with it: order, ticks, filters, directories.
class TestScanResultsTable : public QObject
{
    Q_OBJECT

private slots:
    void cells();
    void unreadableValues();
    void batchesGoByChance();
    void sortsByHeader_data();
    void sortsByHeader();
    void ticksByMouseAndKeys();
    void selectAllKeepsToTheList();
    void filters_data();
    void filters();
    void hiddenTicksAreTold();
    void clearsFilters();
    void directories();
    void placeSurvives();
    void replaceKeepsWhatOneDid();
};

void TestScanResultsTable::cells()
{
    Fixture f;
    f.startScan();
    f.page()->addFiles(
        {Fixture::file(QStringLiteral("id"), QStringLiteral("/a/报告.pdf"), 50,
                       {{QStringLiteral("size"), QStringLiteral("12.4 MB")},
                        {QStringLiteral("sizeBytes"), 13002342},
                        {QStringLiteral("source"), QStringLiteral("carving")},
                        {QStringLiteral("probability"), text("一般")},
                        {QStringLiteral("boundaryVerified"), true},
                        {QStringLiteral("deletionTime"), QStringLiteral("2024-05-06 01:02:03")}})});
    const QAbstractItemModel *model = f.table()->model();
    const char *const headers[] = {"",         "名称", "",     "大小",   "类型",
                                   "删除时间", "路径", "来源", "完整性", "恢复几率"};
    const char *const cells[] = {
        "",         "报告.pdf",   "",    "12.4 MB", "PDF", "2024-05-06 01:02:03", "/a/报告.pdf",
        "特征扫描", "边界已验证", "一般"};
    for (int column = 0; column < 10; ++column) {
        QCOMPARE(model->headerData(column, Qt::Horizontal).toString(), text(headers[column]));
        QCOMPARE(f.text(0, column), text(cells[column]));
    }
    const QModelIndex name = model->index(0, Fixture::Name);
    QCOMPARE(name.data(Qt::UserRole).toString(), QStringLiteral("id"));
    QCOMPARE(name.data(Qt::UserRole + 1).toLongLong(), Q_INT64_C(13002342));
    QCOMPARE(name.data(Qt::UserRole + 2).toString(), QStringLiteral("carving"));
    QCOMPARE(name.data(Qt::UserRole + 3).toString(), text("边界已验证"));
    const QString reason = text("已检测到可靠的文件结尾或长度边界，完整性较好");
    QCOMPARE(name.data(Qt::UserRole + 4).toString(), reason);
    QCOMPARE(model->index(0, Fixture::Integrity).data(Qt::ToolTipRole).toString(), reason);
    QCOMPARE(model->index(0, Fixture::Detail).data(Qt::ToolTipRole).toString(), text("查看详情"));
    QCOMPARE(f.table()->rowHeight(0), 40);
}

void TestScanResultsTable::unreadableValues()
{
    Fixture f;
    f.startScan();
    f.page()->addFiles({QJsonObject(), 12});
    QCOMPARE(f.table()->model()->rowCount(), 2);
    QCOMPARE(f.text(0, Fixture::Time), text("未知"));
    QCOMPARE(f.text(0, Fixture::Source), text("未知"));
    QCOMPARE(f.text(0, Fixture::Size), QStringLiteral("0"));
    // What has no id cannot be asked for, so it cannot be ticked.
    f.clickCell(0, Fixture::Check);
    f.clickHeader(Fixture::Check);
    QVERIFY(!f.isTicked(0));
    QVERIFY(f.page()->checkedFileIds().isEmpty());
}

void TestScanResultsTable::batchesGoByChance()
{
    Fixture f;
    f.startScan();
    f.page()->addFiles({Fixture::file(QStringLiteral("1"), QStringLiteral("/a/mid.txt"), 50),
                        Fixture::file(QStringLiteral("2"), QStringLiteral("/a/low.txt"), 10)});
    QCOMPARE(f.label("ScanFoundLabel"), text("已发现 2"));
    // Equal rows keep the order in which they came.
    f.page()->addFiles({Fixture::file(QStringLiteral("3"), QStringLiteral("/a/mid2.txt"), 50),
                        Fixture::file(QStringLiteral("4"), QStringLiteral("/a/top.txt"), 90),
                        Fixture::file(QStringLiteral("5"), QStringLiteral("/a/least.txt"), 1)});
    QCOMPARE(f.names().join(QLatin1Char(' ')),
             QStringLiteral("top.txt mid.txt mid2.txt low.txt least.txt"));
    QCOMPARE(f.label("ScanFoundLabel"), text("已发现 5"));
    QCOMPARE(f.label("ListCountLabel"), text("列表显示了 5 个文件（共 5 个）"));
    // A batch brings back the order by chance, and its arrow.
    f.clickHeader(Fixture::Name);
    QCOMPARE(f.names().first(), QStringLiteral("least.txt"));
    f.page()->addFiles({Fixture::file(QStringLiteral("6"), QStringLiteral("/a/zero.txt"), 0)});
    QCOMPARE(f.names().join(QLatin1Char(' ')),
             QStringLiteral("top.txt mid.txt mid2.txt low.txt least.txt zero.txt"));
    QCOMPARE(f.table()->horizontalHeader()->sortIndicatorSection(), int(Fixture::Chance));
    QCOMPARE(f.table()->horizontalHeader()->sortIndicatorOrder(), Qt::DescendingOrder);
    QVERIFY(f.table()->horizontalHeader()->isSortIndicatorShown());
}

void TestScanResultsTable::sortsByHeader_data()
{
    QTest::addColumn<int>("column");
    QTest::addColumn<QString>("first");
    QTest::addColumn<QString>("second");
    QTest::newRow("name") << int(Fixture::Name) << "a b c"
                          << "c b a";
    QTest::newRow("size, largest first") << int(Fixture::Size) << "b c a"
                                         << "a c b";
    // Without a time a file counts as the oldest.
    QTest::newRow("time, latest first") << int(Fixture::Time) << "c a b"
                                        << "b a c";
    QTest::newRow("path") << int(Fixture::Path) << "c a b"
                          << "b a c";
    QTest::newRow("source") << int(Fixture::Source) << "a b c"
                            << "c b a";
    // The rows stand by chance already, so the first click turns them round.
    QTest::newRow("chance") << int(Fixture::Chance) << "b a c"
                            << "c a b";
}

void TestScanResultsTable::sortsByHeader()
{
    QFETCH(int, column);
    Fixture f;
    f.startScan();
    const auto file = [](const char *id, const char *path, int score, const char *size,
                         const char *time, const char *source) {
        return Fixture::file(QLatin1String(id), QLatin1String(path), score,
                             {{QStringLiteral("name"), QLatin1String(id)},
                              {QStringLiteral("size"), QLatin1String(size)},
                              {QStringLiteral("deletionTime"), QLatin1String(time)},
                              {QStringLiteral("source"), QLatin1String(source)}});
    };
    f.page()->addFiles({file("a", "/m", 50, "900 KB", "2023-01-01 00:00:00", "s1"),
                        file("b", "/n", 10, "1,024 MB", "", "s2"),
                        file("c", "/l", 90, "2 MB", "2024-01-01 00:00:00", "s3")});
    f.clickHeader(column);
    QTEST(f.names().join(QLatin1Char(' ')), "first");
    f.clickHeader(column);
    QTEST(f.names().join(QLatin1Char(' ')), "second");
}

void TestScanResultsTable::ticksByMouseAndKeys()
{
    Fixture f;
    f.startScan();
    f.page()->addFiles(Fixture::manyFiles(4, 50));
    f.clickCell(1, Fixture::Check);
    QVERIFY(f.isTicked(1));
    QCOMPARE(f.label("CheckedCountLabel"), text("1 项 · 1.0 KB"));
    // Space ticks the current row, whichever column it is in.
    f.clickCell(2, Fixture::Path);
    QVERIFY(!f.isTicked(2));
    QTest::keyClick(f.table(), Qt::Key_Space);
    QTest::keyClick(f.table(), Qt::Key_Down);
    QTest::keyClick(f.table(), Qt::Key_Space);
    QVERIFY(f.isTicked(2) && f.isTicked(3));
    QCOMPARE(f.page()->checkedFileIds().join(QLatin1Char(' ')), QStringLiteral("f1 f2 f3"));
    QTest::keyClick(f.table(), Qt::Key_Space);
    QVERIFY(!f.isTicked(3));
    QCOMPARE(f.label("CheckedCountLabel"), text("2 项 · 2.0 KB"));
    QCOMPARE(f.page()->checkedBytes(), qint64(2048));
    QCOMPARE(f.page()->largestCheckedBytes(), qint64(1024));
    QCOMPARE(
        f.page()
            ->fileNamesForIds({QStringLiteral("f3"), QStringLiteral("f0"), QStringLiteral("none")})
            .join(QLatin1Char(' ')),
        QStringLiteral("f0.txt f3.txt"));
}

void TestScanResultsTable::selectAllKeepsToTheList()
{
    Fixture f;
    f.startScan();
    f.page()->addFiles({Fixture::file(QStringLiteral("p"), QStringLiteral("/a/p.png"), 3),
                        Fixture::file(QStringLiteral("q"), QStringLiteral("/a/q.png"), 2),
                        Fixture::file(QStringLiteral("t"), QStringLiteral("/a/t.txt"), 1)});
    f.chooseType(text("照片"));
    QCOMPARE(f.names().size(), 2);
    f.clickHeader(Fixture::Check);
    QCOMPARE(f.page()->checkedFileIds().join(QLatin1Char(' ')), QStringLiteral("p q"));
    f.chooseType(text("全部类型"));
    QVERIFY(!f.isTicked(2));
    // With some ticked the box ticks the rest first.
    f.clickHeader(Fixture::Check);
    QCOMPARE(f.page()->checkedFileIds().size(), 3);
    f.chooseType(text("照片"));
    f.clickHeader(Fixture::Check);
    QCOMPARE(f.page()->checkedFileIds().join(QLatin1Char(' ')), QStringLiteral("t"));
}

void TestScanResultsTable::filters_data()
{
    QTest::addColumn<QString>("search");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("left");
    const QString none;
    QTest::newRow("name in any case") << "REP" << none << none << "Report.pdf oldreport.xyz";
    QTest::newRow("documents") << none << text("文档") << none << "Report.pdf notes.txt";
    QTest::newRow("other") << none << text("其他") << none << "oldreport.xyz";
    QTest::newRow("source") << none << none << text("特征扫描") << "pic.jpg oldreport.xyz";
    QTest::newRow("all sources") << none << none << text("全部来源")
                                 << "Report.pdf pic.jpg notes.txt oldreport.xyz";
    QTest::newRow("all at once") << "rep" << text("文档") << text("元数据") << "Report.pdf";
    QTest::newRow("nothing left") << "rep" << text("视频") << none << "";
}

void TestScanResultsTable::filters()
{
    QFETCH(QString, search);
    QFETCH(QString, type);
    QFETCH(QString, source);
    QFETCH(QString, left);
    Fixture f;
    f.startScan();
    QCOMPARE(f.label("ListCountLabel"), text("列表显示了 0 个文件"));
    const QJsonObject carved = {{QStringLiteral("source"), QStringLiteral("carving")}};
    const QJsonObject hybrid = {{QStringLiteral("source"), QStringLiteral("hybrid")}};
    if (!search.isEmpty())
        f.typeName(search);
    if (!type.isEmpty())
        f.chooseType(type);
    if (!source.isEmpty()) {
        f.chooseSource(source);
        QCOMPARE(f.child<QPushButton>("SourceFilterButton")->text(), text("来源: ") + source);
    }
    // One batch after the other: what comes later is filtered as well.
    f.page()->addFiles(
        {Fixture::file(QStringLiteral("1"), QStringLiteral("/a/Report.pdf"), 90),
         Fixture::file(QStringLiteral("2"), QStringLiteral("/a/pic.jpg"), 80, carved)});
    f.page()->addFiles(
        {Fixture::file(QStringLiteral("3"), QStringLiteral("/b/notes.txt"), 50, hybrid),
         Fixture::file(QStringLiteral("4"), QStringLiteral("/b/oldreport.xyz"), 1, carved)});
    QCOMPARE(f.names().join(QLatin1Char(' ')), left);
    const int shown = f.names().size();
    QCOMPARE(f.label("ListCountLabel"), text("列表显示了 %1 个文件（共 4 个）").arg(shown));
    auto *hidden = f.child<QPushButton>("ClearFiltersButton");
    QCOMPARE(hidden->isVisible(), shown < 4);
    if (shown < 4)
        QCOMPARE(hidden->text(), text("已隐藏 %1 个 · 清除筛选").arg(4 - shown));
    QCOMPARE(f.child<QLabel>("EmptyStateTitle")->isVisible(), shown == 0);
    QCOMPARE(f.label("ScanFoundLabel"), text("已发现 4"));
}

void TestScanResultsTable::hiddenTicksAreTold()
{
    Fixture f;
    f.startScan();
    f.page()->addFiles(Fixture::manyFiles(3, 50));
    f.clickHeader(Fixture::Check);
    f.typeName(QStringLiteral("f1"));
    QCOMPARE(f.label("CheckedCountLabel"), text("3 项 · 3.0 KB"));
    QVERIFY(f.child<QLabel>("CheckedCountLabel")->toolTip().contains(text("2 项被筛选条件隐藏")));
    f.typeName(QString());
    QVERIFY(f.child<QLabel>("CheckedCountLabel")->toolTip().isEmpty());
    QVERIFY(f.isTicked(0) && f.isTicked(1) && f.isTicked(2));
}

void TestScanResultsTable::clearsFilters()
{
    Fixture f;
    f.startScan();
    f.page()->addFiles({Fixture::file(QStringLiteral("1"), QStringLiteral("/a/b/x.png")),
                        Fixture::file(QStringLiteral("2"), QStringLiteral("/c/y.txt"))});
    f.clickDirectory({QStringLiteral("a"), QStringLiteral("b")});
    f.chooseSource(text("日志恢复"));
    f.chooseType(text("视频"));
    f.typeName(QStringLiteral("zz"));
    QVERIFY(f.names().isEmpty());
    f.press("EmptyStateButton");
    QCOMPARE(f.names().size(), 2);
    QCOMPARE(f.child<QPushButton>("SourceFilterButton")->text(), text("来源筛选"));
    QVERIFY(f.child<QLineEdit>("ScanSearchEdit")->text().isEmpty());
    QCOMPARE(f.tree()->currentIndex().data().toString(), QStringLiteral("/ (Root)"));
}

void TestScanResultsTable::directories()
{
    Fixture f;
    f.startScan();
    f.page()->addFiles({Fixture::file(QStringLiteral("1"), QStringLiteral("/home/u/x.txt"), 5),
                        Fixture::file(QStringLiteral("2"), QStringLiteral("/home/y.txt"), 4),
                        Fixture::file(QStringLiteral("3"), QStringLiteral("/var/z.txt"), 3)});
    const QModelIndex root = f.tree()->model()->index(0, 0);
    QCOMPARE(root.data().toString(), QStringLiteral("/ (Root)"));
    QCOMPARE(root.sibling(0, 1).data().toString(), QStringLiteral("3"));
    QCOMPARE(f.tree()->model()->rowCount(root), 2);
    f.clickDirectory({QStringLiteral("home")});
    QCOMPARE(f.names().join(QLatin1Char(' ')), QStringLiteral("x.txt y.txt"));
    f.clickDirectory({QStringLiteral("home"), QStringLiteral("u")});
    QCOMPARE(f.names().join(QLatin1Char(' ')), QStringLiteral("x.txt"));
    // New directories take their places by name and files below the chosen one appear.
    f.page()->addFiles({Fixture::file(QStringLiteral("4"), QStringLiteral("/etc/w.txt"), 2),
                        Fixture::file(QStringLiteral("5"), QStringLiteral("/home/u/d/v.txt"), 1),
                        Fixture::file(QStringLiteral("6"), QStringLiteral("/home/u2/s.txt"), 1)});
    QCOMPARE(f.names().join(QLatin1Char(' ')), QStringLiteral("x.txt v.txt"));
    QStringList tops;
    for (int row = 0; row < f.tree()->model()->rowCount(root); ++row)
        tops.append(f.tree()->model()->index(row, 0, root).data().toString());
    QCOMPARE(tops.join(QLatin1Char(' ')), QStringLiteral("etc home var"));
    QCOMPARE(f.tree()->currentIndex().data().toString(), QStringLiteral("u"));
    f.clickDirectory({});
    QCOMPARE(f.names().size(), 6);
    f.clickDirectory({});
    QCOMPARE(f.names().size(), 6);
    // The keyboard chooses, too.
    QTest::keyClick(f.tree(), Qt::Key_Down);
    QCOMPARE(f.names().join(QLatin1Char(' ')), QStringLiteral("w.txt"));
}

void TestScanResultsTable::placeSurvives()
{
    Fixture f;
    f.startScan();
    f.page()->addFiles(Fixture::manyFiles(200, 500));
    QScrollBar *scroll = f.table()->verticalScrollBar();
    f.clickCell(100, Fixture::Path);
    QTest::keyClick(f.table(), Qt::Key_Space);
    scroll->setValue(100 * 40 - 85);
    const auto seen = [&f] {
        const QModelIndex top = f.table()->indexAt(QPoint(5, 0));
        return f.text(top.row(), Fixture::Name) + QLatin1Char(' ') +
               QString::number(f.table()->visualRect(top).top());
    };
    const QString place = seen();
    const auto current = [&f] {
        return f.text(f.table()->currentIndex().row(), Fixture::Name);
    };
    // A better batch goes above; what is looked at stays.
    f.page()->addFiles(Fixture::manyFiles(30, 900, QStringLiteral("n")));
    QCOMPARE(seen(), place);
    QCOMPARE(current(), QStringLiteral("f100.txt"));
    QCOMPARE(f.table()->currentIndex().row(), 130);
    QVERIFY(f.isTicked(130));
    // A filter that hides the row, and back.
    f.typeName(QStringLiteral("n1"));
    QVERIFY(!f.table()->currentIndex().isValid());
    f.typeName(QString());
    QCOMPARE(current(), QStringLiteral("f100.txt"));
    QCOMPARE(seen(), place);
    QVERIFY(f.table()->selectionModel()->isRowSelected(130, QModelIndex()));
    // Another order: the same row is current and ticked, the list stands where it stood.
    const int value = scroll->value();
    f.clickHeader(Fixture::Name);
    QCOMPARE(current(), QStringLiteral("f100.txt"));
    QVERIFY(f.isTicked(f.table()->currentIndex().row()));
    QCOMPARE(scroll->value(), value);
    // At the top one sees what is best now.
    scroll->setValue(0);
    f.page()->addFiles(Fixture::manyFiles(3, 2000, QStringLiteral("best")));
    QCOMPARE(scroll->value(), 0);
    QCOMPARE(f.text(0, Fixture::Name), QStringLiteral("best0.txt"));
}

void TestScanResultsTable::replaceKeepsWhatOneDid()
{
    Fixture f;
    f.startScan();
    f.page()->addFiles(Fixture::manyFiles(120, 500));
    f.page()->addFiles({Fixture::file(QStringLiteral("p"), QStringLiteral("/pics/a/p.png"), 1)});
    f.clickCell(60, Fixture::Path);
    QTest::keyClick(f.table(), Qt::Key_Space);
    f.clickCell(2, Fixture::Check);
    f.clickCell(60, Fixture::Name);
    f.typeName(QStringLiteral("f"));
    f.clickDirectory({QStringLiteral("many")});
    // The full list has rows that were dropped, and misses one.
    QJsonArray files = Fixture::manyFiles(150, 500);
    files.removeAt(2);
    f.page()->replaceFiles(files);
    QCOMPARE(f.child<QLineEdit>("ScanSearchEdit")->text(), QStringLiteral("f"));
    QCOMPARE(f.label("ListCountLabel"), text("列表显示了 149 个文件（共 149 个）"));
    QCOMPARE(f.label("ScanFoundLabel"), text("已发现 149"));
    QCOMPARE(f.page()->checkedFileIds().join(QLatin1Char(' ')), QStringLiteral("f60"));
    QCOMPARE(f.text(f.table()->currentIndex().row(), Fixture::Name), QStringLiteral("f60.txt"));
    QCOMPARE(f.tree()->currentIndex().data().toString(), QStringLiteral("many"));
    // A directory that the list no longer has gives way to the nearest one above.
    f.page()->replaceFiles({Fixture::file(QStringLiteral("x"), QStringLiteral("/else/f.txt"))});
    QCOMPARE(f.names().join(QLatin1Char(' ')), QStringLiteral("f.txt"));
    f.page()->replaceFiles(QJsonArray());
    QCOMPARE(f.label("ListCountLabel"), text("列表显示了 0 个文件（共 0 个）"));
    QCOMPARE(f.label("CheckedCountLabel"), text("0 项 · 0 B"));
}

QTEST_MAIN(TestScanResultsTable)
#include "tst_scanresultstable.moc"
