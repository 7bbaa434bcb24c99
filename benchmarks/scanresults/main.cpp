// Found files on their way into the results page: the longest halt of the event loop while they
// come in batches, and the cost of the whole stream against one batch of the same files. The page
// is shown, with the directory tree open, a row current and the list scrolled.

#include "search/report.h"
#include "ui/common/theme.h"
#include "ui/pages/scanresultspage.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonObject>
#include <QScrollBar>
#include <QTableView>
#include <QTextStream>

namespace {

constexpr int batchSize = 500;
constexpr int rounds = 3;
constexpr int directories = 2000;

QJsonObject makeFile(int number)
{
    static const char *const types[] = {"PDF", "JPG", "MP4", "ZIP", "TXT", "BIN", "DOCX", "PNG"};
    static const char *const sources[] = {"metadata", "journal", "carving", "hybrid"};
    // Spread over all values without an order that would suit the sorting.
    const int mixed = static_cast<int>((static_cast<quint64>(number) * 2654435761u) % 1000003u);
    const QString name = QStringLiteral("照片 %1.%2")
                             .arg(mixed)
                             .arg(QString::fromLatin1(types[mixed % 8]).toLower());
    return {{QStringLiteral("fileId"), QStringLiteral("f%1").arg(number)},
            {QStringLiteral("name"), name},
            {QStringLiteral("size"), QStringLiteral("%1.5 KB").arg(mixed % 1000)},
            {QStringLiteral("sizeBytes"), (mixed % 1000) * 1024 + 512},
            {QStringLiteral("type"), QString::fromLatin1(types[mixed % 8])},
            {QStringLiteral("path"), QStringLiteral("/home/user/d%1/e%2/%3")
                                         .arg(mixed % 40)
                                         .arg(mixed % directories)
                                         .arg(name)},
            {QStringLiteral("probability"), QStringLiteral("良好")},
            {QStringLiteral("probabilityKey"), QStringLiteral("good")},
            {QStringLiteral("probScore"), mixed % 100},
            {QStringLiteral("deletionTime"), QStringLiteral("2024-%1-%2 10:20:30")
                                                 .arg(mixed % 12 + 1, 2, 10, QLatin1Char('0'))
                                                 .arg(mixed % 28 + 1, 2, 10, QLatin1Char('0'))},
            {QStringLiteral("blockStart"), mixed * 8},
            {QStringLiteral("contiguity"), (mixed % 101) / 100.0},
            {QStringLiteral("source"), QString::fromLatin1(sources[mixed % 4])},
            {QStringLiteral("boundaryVerified"), mixed % 3 == 0}};
}

QVector<QJsonArray> makeBatches(int files, int size)
{
    QVector<QJsonArray> batches;
    for (int first = 0; first < files; first += size) {
        QJsonArray batch;
        for (int number = first; number < qMin(files, first + size); ++number)
            batch.append(makeFile(number));
        batches.append(batch);
    }
    return batches;
}

struct Run
{
    double totalMs = 0.0;
    double worstMs = 0.0;
};

double msOf(const QElapsedTimer &clock)
{
    return double(clock.nsecsElapsed()) / 1e6;
}

// Feeds the batches to a fresh page; each turn of the event loop lays out and paints what came.
Run feed(const QVector<QJsonArray> &batches)
{
    ScanResultsPage page;
    page.resize(1280, 768);
    page.show();
    page.initForScan(QStringLiteral("/dev/sda1"), QStringLiteral("ext4"), QStringLiteral("s"));
    QCoreApplication::processEvents();
    auto *table = page.findChild<QTableView *>(QStringLiteral("ScanResultsTable"));
    Run run;
    for (const QJsonArray &batch : batches) {
        QElapsedTimer clock;
        clock.start();
        page.addFiles(batch);
        QCoreApplication::processEvents();
        const double ms = msOf(clock);
        run.totalMs += ms;
        run.worstMs = qMax(run.worstMs, ms);
        if (!table->currentIndex().isValid()) {
            table->setCurrentIndex(table->model()->index(20, 1));
            table->verticalScrollBar()->setValue(600);
        }
    }
    return run;
}

void bench(int files, double allowedStallMs)
{
    const QVector<QJsonArray> stream = makeBatches(files, batchSize);
    const QVector<QJsonArray> whole = makeBatches(files, files);
    QVector<double> streamMs;
    QVector<double> wholeMs;
    QVector<double> worstMs;
    for (int round = 0; round < rounds; ++round) {
        const Run streamed = feed(stream);
        streamMs.append(streamed.totalMs);
        worstMs.append(streamed.worstMs);
        wholeMs.append(feed(whole).totalMs);
    }
    // The worst of all rounds, since one halt is what a person feels.
    const double worst = percentile(worstMs, 1.0);
    printReport(QStringLiteral("%1 found files in batches of %2").arg(files).arg(batchSize),
                {{QStringLiteral("longest halt of a batch"), milliseconds(worst),
                  QStringLiteral("-"), worst, QStringLiteral("at most %1 ms").arg(allowedStallMs)},
                 {QStringLiteral("whole stream by one batch"), milliseconds(median(streamMs)),
                  milliseconds(median(wholeMs)), median(streamMs) / median(wholeMs),
                  QStringLiteral("at most 6")}});
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    using ui::common::ThemeColors;
    using ui::common::ThemeType;
    ThemeColors::init(ThemeType::dark, 1.0);
    QApplication::setPalette(ui::common::buildPalette(ThemeType::dark));
    QApplication::setFont(ui::common::applicationFont());
    application.setStyleSheet(ui::common::buildAppStyleSheet(ThemeType::dark));
    bench(50000, 100.0);
    bench(100000, 200.0);
    return 0;
}
