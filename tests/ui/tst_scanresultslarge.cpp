#include "ui/pages/scanresultspage/scanresultsmodel.h"
#include "ui/scanresultsfixture.h"

#include <algorithm>
#include <random>

namespace {

using Fixture = ScanResultsFixture;
using scanresults::RowOrder;
using scanresults::ScanResultsModel;

constexpr int kMany = 6000; ///< More than is read and arranged at once.

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

} // namespace

/// Long lists: read, sorted and filtered on another thread while the page goes on.
class TestScanResultsLarge : public QObject
{
    Q_OBJECT

private slots:
    void arrivesWhileThePageGoesOn();
    void whatWasAskedLastWins();
    void batchesWait();
    void replacesInTheBackground();
    void startsAnewMeanwhile();
    void sharesTexts();
    void sortsLikePlainComparison_data();
    void sortsLikePlainComparison();
};

void TestScanResultsLarge::arrivesWhileThePageGoesOn()
{
    Fixture f;
    f.startScan();
    f.page()->addFiles(Fixture::manyFiles(kMany, 9000));
    QVERIFY(f.names().isEmpty());
    QVERIFY(f.label("ListCountLabel").startsWith(text("正在整理…")));
    QTRY_COMPARE(f.table()->model()->rowCount(), kMany);
    QCOMPARE(f.text(0, Fixture::Name), QStringLiteral("f0.txt"));
    QCOMPARE(f.text(kMany - 1, Fixture::Name), QStringLiteral("f5999.txt"));
    QCOMPARE(f.label("ScanFoundLabel"), text("已发现 ") + QLocale().toString(kMany));
    QCOMPARE(f.label("ListCountLabel"), text("列表显示了 6000 个文件（共 6000 个）"));
    f.clickDirectory({QStringLiteral("many")});
    QCOMPARE(f.tree()->currentIndex().sibling(0, 1).data().toString(), QLocale().toString(kMany));
}

void TestScanResultsLarge::whatWasAskedLastWins()
{
    Fixture f;
    f.startScan();
    f.page()->addFiles(Fixture::manyFiles(kMany, 9000));
    QTRY_COMPARE(f.table()->model()->rowCount(), kMany);
    f.clickCell(1, Fixture::Path);
    // The old list stands until the new one is there.
    f.clickHeader(Fixture::Path);
    f.typeName(QStringLiteral("f59"));
    f.clickHeader(Fixture::Name);
    f.clickHeader(Fixture::Name);
    QCOMPARE(f.table()->model()->rowCount(), kMany);
    QCOMPARE(f.text(0, Fixture::Name), QStringLiteral("f0.txt"));
    QTRY_COMPARE(f.table()->model()->rowCount(), 111);
    QCOMPARE(f.text(0, Fixture::Name), QStringLiteral("f5999.txt"));
    QCOMPARE(f.text(110, Fixture::Name), QStringLiteral("f59.txt"));
    f.typeName(QString());
    QTRY_COMPARE(f.table()->model()->rowCount(), kMany);
    QCOMPARE(f.text(0, Fixture::Name), QStringLiteral("f999.txt"));
    QCOMPARE(f.text(f.table()->currentIndex().row(), Fixture::Name), QStringLiteral("f1.txt"));
}

void TestScanResultsLarge::batchesWait()
{
    Fixture f;
    f.startScan();
    f.page()->addFiles(Fixture::manyFiles(kMany, 9000));
    f.page()->addFiles({Fixture::file(QStringLiteral("x"), QStringLiteral("/new/x.txt"), 10000)});
    f.page()->addFiles({Fixture::file(QStringLiteral("y"), QStringLiteral("/new/y.txt"), 10001)});
    QTRY_COMPARE(f.table()->model()->rowCount(), kMany + 2);
    QCOMPARE(f.names().mid(0, 3).join(QLatin1Char(' ')), QStringLiteral("y.txt x.txt f0.txt"));
    // A batch brings back the order by chance, whatever was asked for before.
    f.clickHeader(Fixture::Name);
    f.page()->addFiles({Fixture::file(QStringLiteral("z"), QStringLiteral("/new/z.txt"), -5)});
    QTRY_COMPARE(f.table()->model()->rowCount(), kMany + 3);
    QTRY_COMPARE(f.text(0, Fixture::Name), QStringLiteral("y.txt"));
    QCOMPARE(f.text(kMany + 2, Fixture::Name), QStringLiteral("z.txt"));
    QCOMPARE(f.table()->horizontalHeader()->sortIndicatorSection(), int(Fixture::Chance));
}

void TestScanResultsLarge::replacesInTheBackground()
{
    Fixture f;
    f.startScan();
    f.page()->addFiles(Fixture::manyFiles(20, 9000));
    f.clickCell(3, Fixture::Check);
    f.clickCell(4, Fixture::Check);
    f.clickDirectory({QStringLiteral("many")});
    QJsonArray files = Fixture::manyFiles(kMany, 9000);
    files.append(Fixture::file(QStringLiteral("o"), QStringLiteral("/else/o.txt"), 9999));
    f.page()->replaceFiles(files);
    // Ticks that change while the full list is on its way hold.
    f.clickCell(4, Fixture::Check);
    f.clickCell(5, Fixture::Check);
    QCOMPARE(f.table()->model()->rowCount(), 20);
    QTRY_COMPARE(f.table()->model()->rowCount(), kMany);
    QCOMPARE(f.page()->checkedFileIds().join(QLatin1Char(' ')), QStringLiteral("f3 f5"));
    QCOMPARE(f.label("CheckedCountLabel"), text("2 项 · 2.0 KB"));
    QCOMPARE(f.tree()->currentIndex().data().toString(), QStringLiteral("many"));
    f.clickDirectory({});
    QTRY_COMPARE(f.table()->model()->rowCount(), kMany + 1);
}

void TestScanResultsLarge::startsAnewMeanwhile()
{
    Fixture f;
    f.startScan();
    f.page()->addFiles(Fixture::manyFiles(kMany, 9000));
    f.page()->addFiles(Fixture::manyFiles(10, 9000, QStringLiteral("queued")));
    f.startScan();
    f.page()->addFiles({Fixture::file(QStringLiteral("n"), QStringLiteral("/n.txt"))});
    QCOMPARE(f.names().join(QLatin1Char(' ')), QStringLiteral("n.txt"));
    // What was on its way is dropped when it comes.
    QThreadPool::globalInstance()->waitForDone();
    QCoreApplication::processEvents();
    QCOMPARE(f.names().join(QLatin1Char(' ')), QStringLiteral("n.txt"));
}

void TestScanResultsLarge::sharesTexts()
{
    scanresults::RowReader reader;
    QJsonArray first = {Fixture::file(QStringLiteral("1"), QStringLiteral("/a/b/x.txt")),
                        Fixture::file(QStringLiteral("2"), QStringLiteral("/a/b/y.txt"))};
    QJsonArray second = {Fixture::file(QStringLiteral("3"), QStringLiteral("/a/b/z.txt")),
                         QJsonObject{{QStringLiteral("path"), QStringLiteral("/odd/path")},
                                     {QStringLiteral("name"), QStringLiteral("other")}}};
    const auto a = reader.read(&first);
    const auto b = reader.read(&second);
    QVERIFY(first.isEmpty() && second.isEmpty());
    QCOMPARE(a->rows[0].path(), QStringLiteral("/a/b/x.txt"));
    QCOMPARE(a->rows[1].fileId, QStringLiteral("2"));
    QCOMPARE(b->rows[1].path(), QStringLiteral("/odd/path"));
    QCOMPARE(a->directories, QVector<QString>{QStringLiteral("/a/b")});
    QCOMPARE(a->files, QVector<int>{2});
    QVERIFY(a->rows[0].folder.constData() == b->rows[0].folder.constData());
    QVERIFY(a->rows[0].type.constData() == b->rows[0].type.constData());
}

void TestScanResultsLarge::sortsLikePlainComparison_data()
{
    QTest::addColumn<int>("column");
    QTest::addColumn<bool>("falling");
    for (const int column : {Fixture::Name, Fixture::Size, Fixture::Type, Fixture::Time,
                             Fixture::Path, Fixture::Source, Fixture::Integrity, Fixture::Chance}) {
        QTest::addRow("%d rising", column) << column << false;
        QTest::addRow("%d falling", column) << column << true;
    }
}

void TestScanResultsLarge::sortsLikePlainComparison()
{
    QFETCH(int, column);
    QFETCH(bool, falling);
    std::mt19937 random(7);
    const QString letters = text("aAbBéÉ照Z9.");
    QJsonArray files;
    for (int i = 0; i < 300; ++i) {
        const auto letter = [&] {
            return letters.at(int(random() % unsigned(letters.size())));
        };
        files.append(Fixture::file(
            QString::number(i),
            QStringLiteral("/%1/%2%3.%1").arg(letter()).arg(letter()).arg(i % 7), int(random() % 5),
            {{QStringLiteral("size"), QStringLiteral("%1 KB").arg(random() % 9)},
             {QStringLiteral("source"), random() % 2 ? text("carving") : text("metadata")},
             {QStringLiteral("deletionTime"),
              random() % 4 ? QStringLiteral("2024-05-0%1 01:02:03").arg(random() % 9 + 1)
                           : QString()}}));
    }
    scanresults::RowReader reader;
    scanresults::RowSet rows;
    const auto chunk = reader.read(&files);
    rows.add(chunk, QVector<int>(chunk->directories.size(), 0));
    RowOrder order;
    for (int i = 0; i < rows.count(); ++i)
        order.push_back(i);
    RowOrder expected = order;
    const auto compare = [&rows, column](int left, int right) {
        const scanresults::FoundRow &a = rows.at(left);
        const scanresults::FoundRow &b = rows.at(right);
        const auto number = [](qint64 x, qint64 y) {
            return x < y ? -1 : (y < x ? 1 : 0);
        };
        switch (column) {
        case Fixture::Name:
            return QString::compare(a.name, b.name, Qt::CaseInsensitive);
        case Fixture::Size:
            return number(a.sizeKey.bytes, b.sizeKey.bytes);
        case Fixture::Type:
            return QString::compare(a.type, b.type, Qt::CaseInsensitive);
        case Fixture::Time:
            return number(a.timeKey.msSinceEpoch, b.timeKey.msSinceEpoch);
        case Fixture::Path:
            return QString::compare(a.path(), b.path(), Qt::CaseInsensitive);
        case Fixture::Source:
            return QString::compare(a.sourceWord, b.sourceWord);
        case Fixture::Integrity:
            return QString::compare(a.label, b.label);
        default:
            return number(a.chanceKey.score, b.chanceKey.score);
        }
    };
    std::stable_sort(expected.begin(), expected.end(),
                     [&](int a, int b) { return falling ? compare(a, b) > 0 : compare(a, b) < 0; });
    scanresults::sortRows(rows, column, falling ? Qt::DescendingOrder : Qt::AscendingOrder, &order);
    QVERIFY(order == expected);
}

QTEST_MAIN(TestScanResultsLarge)
#include "tst_scanresultslarge.moc"
