#include "search/searchfilters.h"

#include <QTest>

namespace {

constexpr qint64 kMiB = 1024 * 1024;
constexpr qint64 kDayMs = 86400000;
constexpr qint64 kNow = 1700000000000;

} // namespace

class TestSearchFilters : public QObject
{
    Q_OBJECT

private slots:
    void decidesAboutOneRow_data();
    void decidesAboutOneRow();
    void keepsTheOrderOfWhatItKeeps();
};

void TestSearchFilters::decidesAboutOneRow_data()
{
    QTest::addColumn<QString>("wanted");
    QTest::addColumn<int>("sizeClass");
    QTest::addColumn<int>("days");
    QTest::addColumn<qint64>("size");
    QTest::addColumn<qint64>("modifiedMs");
    QTest::addColumn<bool>("accepted");

    const QString any;
    const QString document = QStringLiteral("document");
    QTest::newRow("no filter") << any << 0 << 0 << qint64(0) << qint64(0) << true;
    QTest::newRow("category equal") << document << 0 << 0 << qint64(5) << kNow << true;
    QTest::newRow("category other")
        << QStringLiteral("image") << 0 << 0 << qint64(5) << kNow << false;
    QTest::newRow("1: just below 1 MiB") << any << 1 << 0 << kMiB - 1 << kNow << true;
    QTest::newRow("1: 1 MiB") << any << 1 << 0 << kMiB << kNow << false;
    QTest::newRow("2: just below 1 MiB") << any << 2 << 0 << kMiB - 1 << kNow << false;
    QTest::newRow("2: 1 MiB") << any << 2 << 0 << kMiB << kNow << true;
    QTest::newRow("2: just below 100 MiB") << any << 2 << 0 << 100 * kMiB - 1 << kNow << true;
    QTest::newRow("2: 100 MiB") << any << 2 << 0 << 100 * kMiB << kNow << false;
    QTest::newRow("3: just below 100 MiB") << any << 3 << 0 << 100 * kMiB - 1 << kNow << false;
    QTest::newRow("3: 100 MiB") << any << 3 << 0 << 100 * kMiB << kNow << true;
    QTest::newRow("3: beyond 32 bits") << any << 3 << 0 << (qint64(5) << 30) << kNow << true;
    QTest::newRow("exactly a day old") << any << 0 << 1 << qint64(5) << kNow - kDayMs << true;
    QTest::newRow("older than a day") << any << 0 << 1 << qint64(5) << kNow - kDayMs - 1 << false;
    QTest::newRow("a year, beyond 32 bits")
        << any << 0 << 365 << qint64(5) << kNow - 365 * kDayMs << true;
    QTest::newRow("unknown time") << any << 0 << 365 << qint64(5) << qint64(0) << false;
    QTest::newRow("time ahead of the clock") << any << 0 << 1 << qint64(5) << kNow + 5000 << true;
    QTest::newRow("all must hold") << document << 1 << 7 << 2 * kMiB << kNow << false;
}

void TestSearchFilters::decidesAboutOneRow()
{
    QFETCH(QString, wanted);
    QFETCH(int, sizeClass);
    QFETCH(int, days);
    QFETCH(qint64, size);
    QFETCH(qint64, modifiedMs);
    searchfilters::RowFilter filter;
    filter.category = wanted;
    filter.sizeClass = sizeClass;
    filter.days = days;
    const QVariantMap row = {{QStringLiteral("category"), QStringLiteral("document")},
                             {QStringLiteral("size"), size},
                             {QStringLiteral("modifiedMs"), modifiedMs}};
    QTEST(searchfilters::accepts(filter, row, kNow), "accepted");
}

void TestSearchFilters::keepsTheOrderOfWhatItKeeps()
{
    QVariantList rows;
    for (const qint64 size : {3 * kMiB, qint64(1), 2 * kMiB, qint64(0), 9 * kMiB})
        rows.append(QVariantMap{{QStringLiteral("size"), size}});
    searchfilters::RowFilter filter;
    filter.sizeClass = searchfilters::OneToHundredMiB;
    const QVariantList kept = searchfilters::filtered(rows, filter, kNow);
    QCOMPARE(kept, QVariantList({rows.at(0), rows.at(2), rows.at(4)}));
}

QTEST_APPLESS_MAIN(TestSearchFilters)
#include "tst_searchfilters.moc"
