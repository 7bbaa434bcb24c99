// What the deletion hook costs: each figure beside the same without the library, in turns, the best
// of several rounds. The vault is the tests' simplest one, a hard link and a note for each file.
#include "guardharness.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>

#include <algorithm>
#include <cstdio>
#include <limits>

using namespace guard_test;

namespace {

constexpr int kRounds = 9;
constexpr int kDeletions = 4000;
constexpr int kProtectedFiles = 5000;
constexpr int kStarts = 200;

struct Figures
{
    double without = std::numeric_limits<double>::max();
    double with = std::numeric_limits<double>::max();
};

/// Microseconds for one deletion, as the program measures them.
double measureDeletion(const GuardHarness &guard, bool isHooked, const QByteArray &dir,
                       const char *extension, const char *naming)
{
    QProcess process;
    QProcessEnvironment environment = guard.environment();
    if (!isHooked)
        environment.remove(QStringLiteral("LD_PRELOAD"));
    process.setProcessEnvironment(environment);
    process.start(
        QStringLiteral(GUARD_UNLINKER),
        {text(dir), QLatin1String(extension), QString::number(kDeletions), QLatin1String(naming)});
    process.waitForFinished(-1);
    return process.readAll().trimmed().toDouble() / 1000;
}

/// Milliseconds that the command takes, `times` times in a row.
double measureCommand(const GuardHarness &guard, bool isHooked, const QString &command, int times)
{
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < times; ++i) {
        QProcess process;
        QProcessEnvironment environment = guard.environment();
        if (!isHooked)
            environment.remove(QStringLiteral("LD_PRELOAD"));
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), command});
        process.waitForFinished(-1);
    }
    return double(timer.nsecsElapsed()) / 1000000;
}

template <typename Measure>
Figures compare(int rounds, const Measure &measure)
{
    Figures figures;
    for (int i = 0; i < rounds; ++i) {
        figures.without = std::min(figures.without, measure(false));
        figures.with = std::min(figures.with, measure(true));
    }
    return figures;
}

void report(const char *what, const Figures &figures, const char *unit, const char *bar)
{
    std::printf("%-46s %9.2f %9.2f  +%.2f %s%s\n", what, figures.without, figures.with,
                figures.with - figures.without, unit, bar);
    std::fflush(stdout);
}

void measureDeletions(const GuardHarness &guard)
{
    struct Row
    {
        const char *what;
        QByteArray dir;
        const char *extension;
        const char *naming;
        const char *bar;
    };
    for (const Row &row :
         {Row{"extension not protected, by path", guard.documents(), "bin", "path", " (bar 1)"},
          Row{"extension not protected, by name", guard.documents(), "bin", "name", " (bar 1)"},
          Row{"folder not protected, by path", guard.elsewhere(), "txt", "path", " (bar 4)"},
          Row{"folder not protected, by name", guard.elsewhere(), "txt", "name", " (bar 4)"},
          Row{"protected", guard.documents(), "txt", "path", ""}}) {
        report(row.what,
               compare(kRounds,
                       [&](bool isHooked) {
                           return measureDeletion(guard, isHooked, row.dir, row.extension,
                                                  row.naming);
                       }),
               "us", row.bar);
    }
}

void measureRemoval(const GuardHarness &guard)
{
    const QByteArray dir = guard.documents() + "/many";
    const auto remove = [&](bool isHooked) {
        for (int i = 0; i < kProtectedFiles; ++i) {
            if (!guard.write(dir + '/' + QByteArray::number(i) + ".txt", "content"))
                return -1.0;
        }
        return measureCommand(guard, isHooked, QStringLiteral("exec rm -rf '%1'").arg(text(dir)),
                              1);
    };
    report("rm -rf of 5,000 protected files", compare(3, remove), "ms", " (bar 1500)");
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    // In memory, where a disk's own time does not hide the difference.
    if (qEnvironmentVariableIsEmpty("TMPDIR") && QDir(QStringLiteral("/dev/shm")).exists())
        qputenv("TMPDIR", "/dev/shm");
    GuardHarness guard;
    QString error;
    if (!guard.start(&error)) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    std::printf("%-46s %9s %9s\n", "", "without", "with");
    measureDeletions(guard);
    measureRemoval(guard);
    Figures starts = compare(kRounds, [&guard](bool isHooked) {
        return measureCommand(guard, isHooked, QStringLiteral("exec true"), kStarts) / kStarts;
    });
    report("start of a program", starts, "ms", "");
    return 0;
}
