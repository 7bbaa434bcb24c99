// Time from the start of the process to a painted window: the program against an application with
// an empty main window. Both run as processes of their own, in turn, each time in a fresh home.

#include "firstpaint.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextStream>
#include <QVector>

#include <algorithm>

namespace {

constexpr int rounds = 15;
constexpr double allowedRatio = 2.5;

int runEmptyWindow(int argc, char *argv[])
{
    QApplication application(argc, argv);
    application.installEventFilter(new FirstPaint(&application));
    QMainWindow window;
    window.resize(1024, 768);
    window.show();
    return QApplication::exec();
}

// Milliseconds until the process reports its window; negative if it does not.
double timeToWindow(const QString &program, const QStringList &arguments)
{
    const QTemporaryDir home;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), home.path());
    environment.insert(QStringLiteral("TMPDIR"), home.path());
    if (!environment.contains(QStringLiteral("QT_QPA_PLATFORM")))
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setStandardErrorFile(QProcess::nullDevice());

    QElapsedTimer clock;
    clock.start();
    process.start(program, arguments);
    const bool shown = process.waitForReadyRead(20000) &&
                       process.readAllStandardOutput().startsWith(FirstPaint::line());
    const double elapsed = double(clock.nsecsElapsed()) / 1e6;
    if (!process.waitForFinished(20000)) {
        process.kill();
        process.waitForFinished();
        return -1.0;
    }
    return shown ? elapsed : -1.0;
}

double median(QVector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc > 1 && qstrcmp(argv[1], "--empty") == 0)
        return runEmptyWindow(argc, argv);

    QCoreApplication application(argc, argv);
    QTextStream out(stdout);
    const QString self = QCoreApplication::applicationFilePath();
    const QString program =
        QCoreApplication::applicationDirPath() + QStringLiteral("/morvane_start_program");
    for (const char *mode : {"normal", "livecd"}) {
        QVector<double> empty;
        QVector<double> full;
        for (int round = 0; round <= rounds; ++round) {
            const double base = timeToWindow(self, {QStringLiteral("--empty")});
            const double ours =
                timeToWindow(program, {QStringLiteral("--mode=%1").arg(QString::fromLatin1(mode))});
            if (base < 0 || ours < 0) {
                out << "start: a window did not show\n";
                return 1;
            }
            if (round > 0) { // the first one warms the file cache
                empty.append(base);
                full.append(ours);
            }
        }
        out << QStringLiteral("start %1: %2 ms, empty window %3 ms, ratio %4 (at most %5)\n")
                   .arg(QString::fromLatin1(mode))
                   .arg(median(full), 0, 'f', 1)
                   .arg(median(empty), 0, 'f', 1)
                   .arg(median(full) / median(empty), 0, 'f', 2)
                   .arg(allowedRatio);
        out.flush();
    }
    return 0;
}
