#include "analyzer/directorytree.h"
#include "analyzer/diskanalyzerworker.h"
#include "analyzer/duplicate_scanner.h"
#include "disk/diskcorpus.h"
#include "search/report.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDataStream>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTextStream>

#include <atomic>
#include <memory>
#include <sys/resource.h>
#include <thread>

/// The scan of a partition against "du" and against hashing alone, everything in the cache. The
/// arguments are the numbers of files and directories and the MiB of the duplicates.

namespace {

constexpr int kRounds = 5;
constexpr qint64 kLargeFiles = 500;
/// The argument by which this program measures the walk in a process of its own.
const QLatin1String kWalkArgument("--walk");

double millisecondsSince(const QElapsedTimer &clock)
{
    return double(clock.nsecsElapsed()) / 1e6;
}

/// Runs a scan up to its first look for duplicates: the tree, the lists and the buckets are known
/// then, and held as a page would. Prints the time, the peak of memory and a digest of the results.
int walkOnly(const QString &root)
{
    DiskAnalyzerWorker worker;
    QVariantMap tree;
    QVariantList files;
    int buckets = -1;
    double ms = 0;
    QElapsedTimer clock;
    QObject::connect(&worker, &DiskAnalyzerWorker::directoryTreeReady, &worker,
                     [&](const QVariantMap &map) { tree = map; });
    QObject::connect(&worker, &DiskAnalyzerWorker::largeFilesReady, &worker,
                     [&](const QVariantList &list) { files = list; });
    QObject::connect(&worker, &DiskAnalyzerWorker::progressChanged, &worker,
                     [&](int, const QString &text) {
                         if (buckets >= 0 || !text.contains(QLatin1String("0/")))
                             return;
                         ms = millisecondsSince(clock);
                         buckets = text.section(QLatin1Char('/'), 1).toInt();
                         worker.requestStop();
                     });
    clock.start();
    worker.startScan(root, 1, kLargeFiles, true, true, 1);
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    QCryptographicHash digest(QCryptographicHash::Md5);
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream << QVariant(tree) << QVariant(files) << buckets;
    digest.addData(bytes);
    QTextStream(stdout) << ms << ' ' << usage.ru_maxrss << ' ' << digest.result().toHex() << '\n';
    return 0;
}

/// Processor time of this process, or of its children that have ended.
double processorMs(int who)
{
    rusage usage;
    getrusage(who, &usage);
    const auto ms = [](const timeval &time) {
        return double(time.tv_sec) * 1e3 + double(time.tv_usec) / 1e3;
    };
    return ms(usage.ru_utime) + ms(usage.ru_stime);
}

/// Times of one measurement on the clock and on the processors. The latter hardly depend on what
/// else the machine does.
struct Times
{
    QVector<double> clock;
    QVector<double> processor;
};

QByteArray outputOf(const QString &program, const QStringList &arguments, Times *times)
{
    // Some programs write where they are started.
    const QTemporaryDir startDir;
    QProcess process;
    process.setWorkingDirectory(startDir.path());
    process.setProcessChannelMode(QProcess::SeparateChannels);
    const double before = processorMs(RUSAGE_CHILDREN);
    QElapsedTimer clock;
    clock.start();
    process.start(program, arguments);
    if (!process.waitForFinished(-1))
        qFatal("cannot run %s", qPrintable(program));
    times->clock.append(millisecondsSince(clock));
    times->processor.append(processorMs(RUSAGE_CHILDREN) - before);
    return process.readAllStandardOutput();
}

void addRows(const QString &subject, const Times &ours, const Times &baseline,
             const QString &target, QVector<ReportRow> *rows)
{
    const double clock = median(ours.clock);
    const double processor = median(ours.processor);
    rows->append({subject, milliseconds(clock), milliseconds(median(baseline.clock)),
                  clock / median(baseline.clock), target});
    rows->append({subject + QStringLiteral(", processors"), milliseconds(processor),
                  milliseconds(median(baseline.processor)), processor / median(baseline.processor),
                  QString()});
}

void measureWalk(const QString &root, int files, int dirs, QVector<ReportRow> *rows)
{
    Times ours;
    Times du;
    QVector<double> inside;
    QByteArray digest;
    double peakMiB = 0;
    for (int round = 0; round <= kRounds; ++round) {
        if (round == 1) { // the first one filled the cache
            ours = du = Times();
            inside.clear();
        }
        outputOf(QStringLiteral("du"), {QStringLiteral("-s"), root}, &du);
        const QList<QByteArray> fields =
            outputOf(QCoreApplication::applicationFilePath(), {kWalkArgument, root}, &ours)
                .trimmed()
                .split(' ');
        if (fields.size() != 3 || (!digest.isEmpty() && fields.at(2) != digest))
            qFatal("the figures differ between runs");
        digest = fields.at(2);
        inside.append(fields.at(0).toDouble());
        peakMiB = std::max(peakMiB, fields.at(1).toDouble() / 1024);
    }
    const QString subject = QStringLiteral("%1 files in %2 directories").arg(files).arg(dirs);
    rows->append({subject, milliseconds(median(inside)), milliseconds(median(du.clock)),
                  median(inside) / median(du.clock), QStringLiteral("at most 1.0 of du -s")});
    addRows(QStringLiteral("the same, whole process"), ours, du, QString(), rows);
    rows->append({QStringLiteral("memory of that process, MiB"), QString(), QString(), peakMiB,
                  QStringLiteral("below 100")});
}

void measureTreeMap(QVector<ReportRow> *rows)
{
    const int dirs = 200000;
    DirectoryTree tree(QStringLiteral("/r"));
    for (int i = 0; i + 10 < dirs; i += 10)
        for (int child = 0; child < 10; ++child)
            tree.addChild(tree.at(std::size_t(i / 10)), "a directory");
    for (std::size_t i = 0; i < tree.size(); ++i)
        DirectoryTree::accumulateToDir(tree.at(i), qint64(i));
    QElapsedTimer clock;
    clock.start();
    tree.sumUp();
    const QVariantMap map = tree.toVariant([] { return false; });
    rows->append({QStringLiteral("tree map of 200000 directories"),
                  milliseconds(millisecondsSince(clock)), QString(), 0, QString()});
}

/// Two threads hash these files whole, each taking the next one.
void hashPlainly(const QStringList &paths)
{
    std::atomic<int> next{0};
    const auto hashAll = [&] {
        QByteArray buffer(1024 * 1024, Qt::Uninitialized);
        for (int i = next++; i < paths.size(); i = next++) {
            QFile file(paths.at(i));
            QCryptographicHash hash(QCryptographicHash::Md5);
            if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
                qFatal("cannot read %s", qPrintable(paths.at(i)));
            for (qint64 got; (got = file.read(buffer.data(), buffer.size())) > 0;)
                hash.addData(buffer.constData(), int(got));
            hash.result();
        }
    };
    std::thread other(hashAll);
    hashAll();
    other.join();
}

/// Adds a run of `what` to the times.
void timed(Times *times, const std::function<void()> &what)
{
    const double before = processorMs(RUSAGE_SELF);
    QElapsedTimer clock;
    clock.start();
    what();
    times->clock.append(millisecondsSince(clock));
    times->processor.append(processorMs(RUSAGE_SELF) - before);
}

/// A program that finds duplicates, too.
struct Finder
{
    QString program;
    QStringList arguments;
    QString target;
    Times times;
};

QVector<Finder> installedFinders(const QString &root)
{
    QVector<Finder> finders{
        {QStringLiteral("rdfind"),
         {QStringLiteral("-dryrun"), QStringLiteral("true"), root},
         QStringLiteral("at most 1.0"),
         {}},
        {QStringLiteral("jdupes"), {QStringLiteral("-r"), QStringLiteral("-q"), root}, {}, {}},
        {QStringLiteral("hardlink"), {QStringLiteral("-n"), QStringLiteral("-c"), root}, {}, {}}};
    const auto isMissing = [](const Finder &finder) {
        return QStandardPaths::findExecutable(finder.program).isEmpty();
    };
    finders.erase(std::remove_if(finders.begin(), finders.end(), isMissing), finders.end());
    return finders;
}

void measureDuplicates(const QString &root, qint64 total, QVector<ReportRow> *rows)
{
    const DuplicateCorpus corpus = makeDuplicates(root, total);
    DuplicateScanner::ScanOptions options;
    options.threads = 2;
    Times ours;
    Times plain;
    QVector<Finder> finders = installedFinders(root);
    int groups = 0;
    hashPlainly(corpus.survivors); // fills the cache
    // In turns, so that what else the machine does meets them all.
    for (int round = 0; round < kRounds; ++round) {
        timed(&plain, [&] { hashPlainly(corpus.survivors); });
        timed(&ours, [&] {
            groups =
                DuplicateScanner::scan(corpus.sizeGroups, options, nullptr, nullptr).totalGroups;
        });
        for (Finder &finder : finders)
            outputOf(finder.program, finder.arguments, &finder.times);
    }
    QTextStream(stdout) << corpus.files << " files, " << (total >> 20) << " MiB, of which "
                        << (corpus.survivingBytes >> 20) << " survive in " << groups << " groups\n";
    addRows(QStringLiteral("duplicates against hashing"), ours, plain,
            QStringLiteral("at most 1.2"), rows);
    for (const Finder &finder : finders)
        addRows(QStringLiteral("duplicates against ") + finder.program, ours, finder.times,
                finder.target, rows);
}

/// How long after a stop at this progress text, or `delayMs` later, the scan has ended.
double stopTime(const QString &root, const QString &text, int delayMs)
{
    DiskAnalyzerWorker worker;
    QElapsedTimer clock;
    std::thread stopper;
    double ms = -1;
    const auto stopLater = [&] {
        if (stopper.joinable())
            return;
        stopper = std::thread([&worker, &clock, delayMs] {
            std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
            clock.start();
            worker.requestStop();
        });
    };
    QObject::connect(&worker, &DiskAnalyzerWorker::progressChanged, &worker,
                     [&](int, const QString &now) {
                         if (!text.isEmpty() && now.startsWith(text))
                             stopLater();
                     });
    QObject::connect(&worker, &DiskAnalyzerWorker::scanFinished, &worker, [&](bool whole) {
        if (!whole)
            ms = millisecondsSince(clock);
    });
    if (text.isEmpty())
        stopLater();
    worker.startScan(root, 1, 0, true, true, 1);
    stopper.join();
    return ms;
}

void measureStops(const QString &tree, const QString &duplicates, QVector<ReportRow> *rows)
{
    const struct
    {
        const char *subject;
        QString root;
        QString text;
        int delayMs;
    } moments[] = {{"walk", tree, QString(), 100},
                   {"lists", tree, QStringLiteral("正在分析数据"), 5},
                   {"tree", tree, QStringLiteral("正在构建目录树"), 5},
                   {"first comparison", tree, QStringLiteral("正在检测重复文件"), 30},
                   {"whole files", duplicates, QStringLiteral("正在检测重复文件"), 200}};
    for (const auto &moment : moments) {
        double worst = 0;
        for (int round = 0; round < kRounds; ++round)
            worst = std::max(worst, stopTime(moment.root, moment.text, moment.delayMs));
        rows->append({QStringLiteral("stop in: ") + QLatin1String(moment.subject),
                      milliseconds(worst), QString(), worst, QStringLiteral("at most 100 (ms)")});
    }
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments().mid(1);
    if (arguments.value(0) == kWalkArgument)
        return walkOnly(arguments.value(1));
    const auto number = [&arguments](int index, int otherwise) {
        const int given = arguments.value(index).toInt();
        return given > 0 ? given : otherwise;
    };
    const int files = number(0, 300000);
    const int dirs = number(1, 20000);
    const qint64 total = qint64(number(2, 2048)) << 20;
    QTemporaryDir treeDir;
    QTemporaryDir duplicatesDir;
    QVector<ReportRow> rows;
    makeTree(treeDir.path(), files, dirs);
    measureWalk(treeDir.path(), files, dirs, &rows);
    measureTreeMap(&rows);
    measureDuplicates(duplicatesDir.path(), total, &rows);
    measureStops(treeDir.path(), duplicatesDir.path(), &rows);
    printReport(QStringLiteral("Scan of a partition"), rows);
    return 0;
}
