// The results page with long lists: the longest halt of the event loop while files come, while the
// full list takes their place, and while a person sorts and filters; and the most memory that the
// process held. Each list has a process of its own. The page is shown, with the directory tree
// open, a row current and the list scrolled.

#include "search/report.h"
#include "ui/common/theme.h"
#include "ui/pages/scanresultspage.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QHeaderView>
#include <QJsonArray>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QProcess>
#include <QScrollBar>
#include <QTableView>
#include <QTextStream>
#include <QThread>

#include <functional>
#include <time.h>

namespace {

constexpr int batchSize = 500;
constexpr double allowedHaltMs = 50.0;
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

QJsonArray makeFiles(int first, int count)
{
    QJsonArray files;
    for (int number = first; number < first + count; ++number)
        files.append(makeFile(number));
    return files;
}

double peakMegabytes()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0.0;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).simplified().split(' ').first().toDouble() / 1024.0;
    }
    return 0.0;
}

/// A halt of the event loop; on a machine with other work the thread's own time tells more.
struct Halt
{
    double wallMs = 0.0;
    double cpuMs = 0.0;
};

double cpuMs()
{
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return double(time.tv_sec) * 1e3 + double(time.tv_nsec) / 1e6;
}

/// A page on screen, and how long its event loop halts.
class Bench
{
public:
    Bench()
    {
        m_page.resize(1280, 768);
        m_page.show();
        m_page.initForScan(QStringLiteral("/dev/sda1"), QStringLiteral("ext4"),
                           QStringLiteral("s"));
        m_table = m_page.findChild<QTableView *>(QStringLiteral("ScanResultsTable"));
        m_count = m_page.findChild<QLabel *>(QStringLiteral("ListCountLabel"));
        m_search = m_page.findChild<QLineEdit *>(QStringLiteral("ScanSearchEdit"));
        settle();
    }

    /// Longest halt from the call until the list is as asked for.
    Halt haltOf(const std::function<void()> &act)
    {
        m_worst = Halt();
        turn(act);
        settle();
        return m_worst;
    }
    /// Longest halt while the files come in batches.
    Halt haltOfStream(int files)
    {
        m_worst = Halt();
        for (int first = 0; first < files; first += batchSize) {
            const QJsonArray batch = makeFiles(first, batchSize);
            turn([this, &batch] { m_page.addFiles(batch); });
            if (!m_table->currentIndex().isValid()) {
                m_table->setCurrentIndex(m_table->model()->index(20, 1));
                m_table->verticalScrollBar()->setValue(600);
            }
        }
        return m_worst;
    }
    void sortBy(int column)
    {
        m_table->horizontalHeader()->setSortIndicator(column, Qt::AscendingOrder);
    }
    void type(const QString &text) { m_search->setText(text); }
    ScanResultsPage *page() { return &m_page; }

private:
    void turn(const std::function<void()> &act)
    {
        QElapsedTimer clock;
        clock.start();
        const double cpu = cpuMs();
        act();
        QCoreApplication::processEvents();
        m_worst.wallMs = qMax(m_worst.wallMs, double(clock.nsecsElapsed()) / 1e6);
        m_worst.cpuMs = qMax(m_worst.cpuMs, cpuMs() - cpu);
    }
    void settle()
    {
        do {
            turn([] {});
            QThread::msleep(1);
        } while (m_count->text().startsWith(QStringLiteral("正在整理")));
    }

    ScanResultsPage m_page;
    QTableView *m_table;
    QLabel *m_count;
    QLineEdit *m_search;
    Halt m_worst;
};

// The baseline is the thread's own time in its worst turn.
ReportRow haltRow(const QString &subject, const Halt &halt)
{
    return {subject, milliseconds(halt.wallMs), milliseconds(halt.cpuMs), halt.wallMs,
            QStringLiteral("at most %1 ms").arg(allowedHaltMs)};
}

ReportRow memoryRow(double allowed)
{
    const double peak = peakMegabytes();
    return {QStringLiteral("most memory"), QStringLiteral("%1 MB").arg(peak, 0, 'f', 0),
            QStringLiteral("-"), peak, QStringLiteral("at most %1 MB").arg(allowed)};
}

void benchStream(int files)
{
    Bench bench;
    QVector<ReportRow> rows;
    rows.append(haltRow(QStringLiteral("files in batches of %1").arg(batchSize),
                        bench.haltOfStream(files)));
    {
        QJsonArray all = makeFiles(0, files);
        rows.append(haltRow(QStringLiteral("full list"), bench.haltOf([&bench, &all] {
            bench.page()->replaceFiles(all);
            all = QJsonArray();
        })));
    }
    rows.append(
        haltRow(QStringLiteral("sort by path"), bench.haltOf([&bench] { bench.sortBy(6); })));
    rows.append(
        haltRow(QStringLiteral("sort by name"), bench.haltOf([&bench] { bench.sortBy(1); })));
    rows.append(haltRow(QStringLiteral("first letter of the filter"),
                        bench.haltOf([&bench] { bench.type(QStringLiteral("1")); })));
    rows.append(haltRow(QStringLiteral("filter cleared"),
                        bench.haltOf([&bench] { bench.type(QString()); })));
    rows.append(memoryRow(250.0));
    printReport(QStringLiteral("%1 found files").arg(files), rows);
}

void benchFrame(int files)
{
    Bench bench;
    QVector<ReportRow> rows;
    {
        QJsonArray all = makeFiles(0, files);
        rows.append(haltRow(QStringLiteral("one frame"), bench.haltOf([&bench, &all] {
            bench.page()->addFiles(all);
            all = QJsonArray();
        })));
    }
    rows.append(memoryRow(400.0));
    printReport(QStringLiteral("one frame of %1 found files").arg(files), rows);
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() < 2) {
        // The most memory that a process ever held cannot be reset.
        for (const char *list : {"stream", "frame"})
            QProcess::execute(QCoreApplication::applicationFilePath(), {QLatin1String(list)});
        return 0;
    }
    using ui::common::ThemeColors;
    using ui::common::ThemeType;
    ThemeColors::init(ThemeType::dark, 1.0);
    QApplication::setPalette(ui::common::buildPalette(ThemeType::dark));
    QApplication::setFont(ui::common::applicationFont());
    application.setStyleSheet(ui::common::buildAppStyleSheet(ThemeType::dark));
    if (arguments.at(1) == QLatin1String("stream"))
        benchStream(100000);
    else
        benchFrame(200000);
    return 0;
}
