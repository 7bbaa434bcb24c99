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

/// Where the columns stand and which of them show.
class TestScanResultsLayout : public QObject
{
    Q_OBJECT

private slots:
    void decidingColumnsAreOnScreen_data();
    void decidingColumnsAreOnScreen();
    void emptyColumnsHide();
    void unknownChanceIsGrey();
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

QTEST_MAIN(TestScanResultsLayout)
#include "tst_scanresultslayout.moc"
