#include "ui/common/theme.h"
#include "ui/scanresultsfixture.h"

using ui::common::ThemeColors;
using ui::common::ThemeType;

namespace {

using Fixture = ScanResultsFixture;

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

QJsonObject timed(const char *time)
{
    return {{QStringLiteral("deletionTime"), QLatin1String(time)}};
}

} // namespace

/// Where the columns stand, which of them show, and the filters that are one click away.
class TestScanResultsLayout : public QObject
{
    Q_OBJECT

private slots:
    void decidingColumnsAreOnScreen_data();
    void decidingColumnsAreOnScreen();
    void emptyColumnsHide();
    void unknownChanceIsGrey();
    void quickFilters();
};

void TestScanResultsLayout::decidingColumnsAreOnScreen_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<double>("scale");
    QTest::newRow("narrow, large font") << 1024 << 1.4;
    QTest::newRow("narrow") << 1024 << 1.0;
    QTest::newRow("wide, large font") << 1440 << 1.4;
}

void TestScanResultsLayout::decidingColumnsAreOnScreen()
{
    QFETCH(int, width);
    QFETCH(double, scale);
    ThemeColors::init(ThemeType::light, scale);
    QApplication::setFont(ui::common::applicationFont());
    Fixture f;
    f.page()->resize(width, 700);
    f.startScan();
    f.page()->addFiles(Fixture::manyFiles(30, 50));
    QHeaderView *header = f.table()->horizontalHeader();
    int edge = 0;
    for (const int column : {Fixture::Check, Fixture::Name, Fixture::Chance, Fixture::Size,
                             Fixture::Integrity, Fixture::Detail}) {
        QCOMPARE(header->sectionViewportPosition(column), edge);
        edge += header->sectionSize(column);
    }
    QVERIFY2(edge <= f.table()->viewport()->width(), qPrintable(QString::number(edge)));
    ThemeColors::init(ThemeType::light, 1.0);
    QApplication::setFont(ui::common::applicationFont());
}

void TestScanResultsLayout::emptyColumnsHide()
{
    Fixture f;
    f.startScan();
    f.page()->addFiles({Fixture::file(QStringLiteral("1"), QStringLiteral("/a/x.txt"))});
    QHeaderView *header = f.table()->horizontalHeader();
    QVERIFY(!header->isSectionHidden(Fixture::Time));
    f.page()->onScanCompleted(QJsonObject());
    QVERIFY(header->isSectionHidden(Fixture::Time));
    QVERIFY(!header->isSectionHidden(Fixture::Type));
    QVERIFY(!header->isSectionHidden(Fixture::Source));
    // The menu of the header brings it back; the defaults take it away again.
    const auto choose = [&f, header](const QString &entry) {
        emit header->customContextMenuRequested(QPoint(5, 5));
        f.chooseEntry("ColumnMenu", entry);
    };
    choose(text("删除时间"));
    QVERIFY(!header->isSectionHidden(Fixture::Time));
    choose(text("恢复默认列"));
    QVERIFY(header->isSectionHidden(Fixture::Time));
    // The full list tells a time, so the column shows.
    f.page()->replaceFiles({Fixture::file(QStringLiteral("1"), QStringLiteral("/a/x.txt"), 1,
                                          timed("2024-05-06 01:02:03"))});
    QVERIFY(!header->isSectionHidden(Fixture::Time));
    // A choice of the user's holds over a new scan.
    choose(text("路径"));
    f.startScan();
    QVERIFY(header->isSectionHidden(Fixture::Path));
}

void TestScanResultsLayout::unknownChanceIsGrey()
{
    Fixture f;
    f.startScan();
    const auto chance = [](const QString &words) {
        return QJsonObject{{QStringLiteral("probability"), words}};
    };
    f.page()->addFiles(
        {Fixture::file(QStringLiteral("1"), QStringLiteral("/a"), 3, chance(text("良好"))),
         Fixture::file(QStringLiteral("2"), QStringLiteral("/b"), 2, chance(QString())),
         Fixture::file(QStringLiteral("3"), QStringLiteral("/c"), 1, chance(text("未知")))});
    constexpr int pill = Qt::UserRole + 100;
    constexpr int ink = pill + 1;
    const auto cell = [&f](int row) {
        return f.table()->model()->index(row, Fixture::Chance);
    };
    QVERIFY(cell(0).data(pill).isValid());
    for (const int row : {1, 2}) {
        QVERIFY(!cell(row).data(pill).isValid());
        QCOMPARE(cell(row).data(ink).value<QColor>(), ThemeColors::current().textMuted);
    }
}

void TestScanResultsLayout::quickFilters()
{
    Fixture f;
    f.startScan();
    const QDateTime now = QDateTime::currentDateTime();
    const auto deleted = [&now](int days, double contiguity) {
        return QJsonObject{{QStringLiteral("deletionTime"),
                            now.addDays(-days).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"))},
                           {QStringLiteral("contiguity"), contiguity}};
    };
    f.page()->addFiles(
        {Fixture::file(QStringLiteral("1"), QStringLiteral("/a.txt"), 9, deleted(1, 1.0)),
         Fixture::file(QStringLiteral("2"), QStringLiteral("/b.png"), 8, deleted(20, 0.5)),
         Fixture::file(QStringLiteral("3"), QStringLiteral("/c.png"), 7, deleted(100, 1.0)),
         Fixture::file(QStringLiteral("4"), QStringLiteral("/d.png"), 6)});
    const auto shown = [&f] {
        return f.names().join(QLatin1Char(' '));
    };
    QCOMPARE(shown(), QStringLiteral("a.txt c.png d.png b.png"));
    f.clickCell(3, Fixture::Check);
    f.chooseQuick(text("已选"));
    QCOMPARE(shown(), QStringLiteral("b.png"));
    f.chooseQuick(text("可完整恢复"));
    QCOMPARE(shown(), QStringLiteral("a.txt c.png d.png"));
    // An unknown time is in no span.
    f.chooseTime(text("最近 30 天"));
    QCOMPARE(shown(), QStringLiteral("a.txt"));
    QCOMPARE(f.child<QPushButton>("TimeFilterButton")->text(), text("删除时间: 最近 30 天"));
    f.chooseQuick(text("全部"));
    QCOMPARE(shown(), QStringLiteral("a.txt b.png"));
    // What comes later is filtered as well, and counted in the menu of types.
    f.page()->addFiles(
        {Fixture::file(QStringLiteral("5"), QStringLiteral("/e.png"), 1, deleted(2, 1.0))});
    QCOMPARE(shown(), QStringLiteral("a.txt e.png b.png"));
    f.chooseType(text("照片"));
    QStringList entries;
    for (const QAction *action : f.child<QMenu>("TypeFilterMenu")->actions())
        entries.append(action->text());
    QVERIFY(entries.contains(text("全部类型\t5")));
    QVERIFY(entries.contains(text("照片\t4")));
    QVERIFY(entries.contains(text("视频\t0")));
    QCOMPARE(shown(), QStringLiteral("e.png b.png"));
    f.press("ClearFiltersButton");
    QCOMPARE(f.names().size(), 5);
    QCOMPARE(f.child<QPushButton>("TimeFilterButton")->text(), text("删除时间"));
}

QTEST_MAIN(TestScanResultsLayout)
#include "tst_scanresultslayout.moc"
