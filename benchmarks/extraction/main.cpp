// A whole build of the index: what a second extraction thread brings, whether the event loop of the
// same process stays smooth meanwhile, and how much memory it takes at most.

#include "core/workerthread.h"
#include "extraction/documents.h"
#include "search/corpus.h"
#include "search/indexbuilder.h"
#include "search/report.h"
#include "search/searchindexdb.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QLoggingCategory>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextStream>
#include <QTimer>

namespace {

constexpr int maxContentBytes = 16384;
constexpr int timerMs = 2;

struct Options
{
    int files = 200000;
    int directories = 4000;
    int texts = 10000;    // of the large build
    int documents = 1200; // of the small one, read by real tools
    int rounds = 3;
};

// The types whose text is taken when nothing else is set.
QStringList ftsExtensions()
{
    return QStringLiteral("doc docx xls xlsx ppt pptx pdf rtf csv txt odt ods odp ofd epub wps et "
                          "dps md")
        .split(QLatin1Char(' '));
}

int fail(const QString &message)
{
    QTextStream(stderr) << message << '\n';
    return 1;
}

struct Build
{
    double ms = -1.0; // of the whole build; negative if it failed
    double extractionMs = 0.0;
    QVector<double> lagsMs;
};

// One build on a thread of its own, while a timer of this thread measures how late it fires.
Build build(const QString &tree, const QString &database, int threads)
{
    for (const char *suffix : {"", "-wal", "-shm"})
        QFile::remove(database + QLatin1String(suffix));
    auto *builder = new IndexBuilder(database);
    builder->setExtractionThreads(threads);
    core::WorkerThread thread;
    thread.start(builder, QStringLiteral("builder"));
    Build result;
    QEventLoop loop;
    QTimer timer;
    timer.setTimerType(Qt::PreciseTimer);
    QElapsedTimer clock;
    qint64 expectedNs = 0;
    QObject::connect(builder, &IndexBuilder::finished, &loop, [&](bool success, const QString &) {
        result.ms = success ? double(clock.nsecsElapsed()) / 1e6 : -1.0;
        loop.quit();
    });
    QObject::connect(&timer, &QTimer::timeout, &loop, [&] {
        const qint64 now = clock.nsecsElapsed();
        result.lagsMs.append(double(qMax<qint64>(0, now - expectedNs)) / 1e6);
        expectedNs = now + timerMs * 1000000;
    });
    QObject::connect(builder, &IndexBuilder::progressChanged, &loop, [&](int, const QString &text) {
        // From the first text about extraction to the one that follows the last.
        const double now = double(clock.nsecsElapsed()) / 1e6;
        if (text.contains(QStringLiteral("（0 / ")))
            result.extractionMs = -now;
        else if (text == QStringLiteral("正在优化数据库..."))
            result.extractionMs += now;
    });
    clock.start();
    expectedNs = timerMs * 1000000;
    timer.start(timerMs);
    QMetaObject::invokeMethod(builder, "startBuild", Qt::QueuedConnection,
                              Q_ARG(QStringList, {tree}), Q_ARG(QStringList, {}),
                              Q_ARG(QStringList, {}), Q_ARG(QStringList, ftsExtensions()),
                              Q_ARG(int, maxContentBytes));
    loop.exec();
    thread.stop();
    return result;
}

bool benchThroughput(const QString &workDir, const Options &options)
{
    const QString tree = workDir + QLatin1String("/documents");
    const QString database = workDir + QLatin1String("/documents.db");
    QString error;
    if (!writeDocuments(tree, options.documents, 500, &error))
        return fail(error) == 0;
    QVector<double> one;
    QVector<double> two;
    for (int round = 0; round < options.rounds; ++round) {
        const Build single = build(tree, database, 1);
        const Build pair = build(tree, database, 2);
        one.append(single.extractionMs);
        two.append(pair.extractionMs);
        if (single.ms < 0 || pair.ms < 0)
            return fail(QStringLiteral("a build failed")) == 0;
    }
    const int texts =
        SearchIndexDB(database).indexStats().value(QStringLiteral("ftsCount")).toInt();
    printReport(
        QStringLiteral("Text of %1 documents by the real tools, %2 with text (baseline: "
                       "one thread)")
            .arg(options.documents)
            .arg(texts),
        {{QStringLiteral("two threads"), milliseconds(median(two)), milliseconds(median(one)),
          median(one) / median(two), QStringLiteral("at least 1.8")}});
    return texts == options.documents;
}

bool writeLargeTree(const QString &tree, const Options &options, QString *error)
{
    Corpus corpus;
    if (!corpus.writeTree(tree, options.files - options.texts, options.directories, error))
        return false;
    for (int i = 0; i < options.texts; ++i) {
        const QString dir = QStringLiteral("%1/texts/t%2").arg(tree).arg(i / 100);
        QFile file(QStringLiteral("%1/n%2.txt").arg(dir).arg(i));
        if (!QDir().mkpath(dir) || !file.open(QIODevice::WriteOnly) ||
            file.write(corpus.text().toUtf8()) < 0) {
            *error = file.fileName() + QLatin1String(": ") + file.errorString();
            return false;
        }
    }
    return true;
}

double peakMiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1.0;
    const QByteArray text = status.readAll();
    const QByteArray line = text.mid(text.indexOf("VmHWM:") + 6);
    return line.left(line.indexOf("kB")).trimmed().toDouble() / 1024.0;
}

// The large build of a child process: how late the timer fired, and the memory.
int runLargeBuild(const QString &tree, const QString &database)
{
    const Build large = build(tree, database, 0);
    QTextStream(stdout) << large.ms << ' ' << percentile(large.lagsMs, 0.5) << ' '
                        << percentile(large.lagsMs, 0.99) << ' ' << percentile(large.lagsMs, 1.0)
                        << ' ' << peakMiB() << '\n';
    return large.ms < 0 ? 1 : 0;
}

bool benchLargeBuild(const QString &workDir, const Options &options)
{
    const QString tree = workDir + QLatin1String("/tree");
    QString error;
    if (!writeLargeTree(tree, options, &error))
        return fail(error) == 0;
    QProcess child;
    child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    child.start(QCoreApplication::applicationFilePath(),
                {QStringLiteral("--large-build"), tree, workDir + QLatin1String("/large.db")});
    child.waitForFinished(-1);
    const QList<QByteArray> words = child.readAllStandardOutput().trimmed().split(' ');
    if (child.exitCode() != 0 || words.size() != 5)
        return fail(QStringLiteral("the child process failed")) == 0;
    const auto lag = [&words](int at) {
        return milliseconds(words.at(at).toDouble());
    };
    printReport(
        QStringLiteral("One build of %1 files, %2 of them texts: lateness of a %3 ms timer "
                       "in the same process")
            .arg(options.files)
            .arg(options.texts)
            .arg(timerMs),
        {{QStringLiteral("duration"), lag(0), QString(), 0.0, QString()},
         {QStringLiteral("median"), lag(1), QString(), 0.0, QString()},
         {QStringLiteral("99 of 100"), lag(2), QString(), 0.0, QStringLiteral("below 50 ms")},
         {QStringLiteral("worst"), lag(3), QString(), 0.0, QStringLiteral("below 50 ms")},
         {QStringLiteral("peak of resident memory"),
          QString::number(words.at(4).toDouble(), 'f', 1) + QLatin1String(" MiB"), QString(), 0.0,
          QStringLiteral("below 150 MiB")}});
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false\ndefault.info=false"));
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() == 4 && arguments.at(1) == QLatin1String("--large-build"))
        return runLargeBuild(arguments.at(2), arguments.at(3));

    Options options;
    const struct
    {
        const char *name;
        int *value;
    } numbers[] = {{"files", &options.files},
                   {"dirs", &options.directories},
                   {"texts", &options.texts},
                   {"docs", &options.documents},
                   {"rounds", &options.rounds}};
    QCommandLineParser parser;
    parser.addHelpOption();
    for (const auto &number : numbers)
        parser.addOption(
            {QLatin1String(number.name), QStringLiteral("Size of the run."), QStringLiteral("N")});
    parser.process(application);
    for (const auto &number : numbers) {
        if (parser.isSet(QLatin1String(number.name)))
            *number.value = qMax(1, parser.value(QLatin1String(number.name)).toInt());
    }
    options.texts = qMin(options.texts, options.files);
    const QTemporaryDir work;
    return benchThroughput(work.path(), options) && benchLargeBuild(work.path(), options) ? 0 : 1;
}
