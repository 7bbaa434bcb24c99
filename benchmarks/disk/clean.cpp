#include "search/report.h"
#include "wechat/cleanrun.h"

#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

/// A clean against the hashing of the same files by one thread, with everything in the cache, and
/// against that and the three file system calls which every merge needs at least. The arguments are
/// the number of groups and the KiB of a file.

namespace {

constexpr int kRounds = 5;
constexpr int kCopies = 2;
constexpr int kChunkBytes = 1024 * 1024;

double millisecondsSince(const QElapsedTimer &clock)
{
    return double(clock.nsecsElapsed()) / 1e6;
}

[[noreturn]] void fail(const char *what)
{
    std::fprintf(stderr, "%s\n", what);
    std::exit(1);
}

QString makeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        fail("cannot write the files");
    return path;
}

QList<wechat::CleanAction> makeGroups(const QString &directory, int groups, int bytes)
{
    QList<wechat::CleanAction> actions;
    for (int i = 0; i < groups; ++i) {
        QByteArray content(bytes, char('a' + i % 26));
        content.replace(0, 8, QByteArray::number(10000000 + i));
        const QString name = directory + QLatin1Char('/') + QString::number(i);
        wechat::CleanAction action;
        action.keepPath = makeFile(name, content);
        action.size = bytes;
        for (int copy = 0; copy < kCopies; ++copy) {
            action.replacePaths.append(
                makeFile(name + QLatin1Char('_') + QString::number(copy), content));
            action.groups.append({action.replacePaths.last()});
        }
        actions.append(action);
    }
    ::sync();
    return actions;
}

double hashAlone(const QList<wechat::CleanAction> &actions)
{
    QElapsedTimer clock;
    QByteArray buffer(kChunkBytes, Qt::Uninitialized);
    clock.start();
    for (const wechat::CleanAction &action : actions) {
        for (const QString &path : QStringList(action.keepPath) + action.replacePaths) {
            QFile file(path);
            if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
                fail("cannot read the files");
            QCryptographicHash hash(QCryptographicHash::Md5);
            for (qint64 got = 0; (got = file.read(buffer.data(), buffer.size())) > 0;)
                hash.addData(buffer.constData(), int(got));
            if (hash.result().isEmpty())
                fail("no hash");
        }
    }
    return millisecondsSince(clock);
}

double callsAlone(const QList<wechat::CleanAction> &actions)
{
    wechat::FileOperations operations;
    QElapsedTimer clock;
    clock.start();
    for (const wechat::CleanAction &action : actions) {
        const QByteArray keep = QFile::encodeName(action.keepPath);
        for (const QString &path : action.replacePaths) {
            const QByteArray name = QFile::encodeName(path);
            if (operations.rename(name, name + ".old") != 0 || operations.link(keep, name) != 0 ||
                operations.unlink(name + ".old") != 0)
                fail("cannot merge the files");
        }
    }
    return millisecondsSince(clock);
}

double clean(const QList<wechat::CleanAction> &actions, const QString &home)
{
    wechat::FileOperations operations;
    QElapsedTimer clock;
    clock.start();
    wechat::CleanRun run(
        operations, wechat::CleanFolders(home), [] { return false; }, [](int, int) {});
    const wechat::CleanOutcome outcome = run.run(actions);
    const double ms = millisecondsSince(clock);
    if (outcome.mergedCount != actions.size() * kCopies || !outcome.errors.isEmpty())
        fail("not everything was merged");
    return ms;
}

} // namespace

int main(int argc, char *argv[])
{
    const int groups = argc > 1 ? std::atoi(argv[1]) : 200;
    const int bytes = (argc > 2 ? std::atoi(argv[2]) : 1024) * 1024;
    if (groups < 1 || bytes < 1024)
        fail("usage: morvane_bench_clean [groups] [KiB a file]");
    QVector<double> hashing;
    QVector<double> calls;
    QVector<double> cleaning;
    // The first round warms up.
    for (int round = 0; round <= kRounds; ++round) {
        QTemporaryDir bare;
        QTemporaryDir files;
        QTemporaryDir home;
        const double callMs = callsAlone(makeGroups(bare.path(), groups, bytes));
        const QList<wechat::CleanAction> actions = makeGroups(files.path(), groups, bytes);
        const double hashMs = hashAlone(actions);
        const double cleanMs = clean(actions, home.path());
        if (round == 0)
            continue;
        hashing.append(hashMs);
        calls.append(callMs);
        cleaning.append(cleanMs);
    }
    const double ours = median(cleaning);
    const double hash = median(hashing);
    const double both = hash + median(calls);
    printReport(QStringLiteral("Clean of %1 groups of %2 files").arg(groups).arg(kCopies + 1),
                {{QStringLiteral("speed against hashing alone"), milliseconds(ours),
                  milliseconds(hash), hash / ours, QString()},
                 {QStringLiteral("speed against hashing and bare merges"), milliseconds(ours),
                  milliseconds(both), both / ours, QStringLiteral("at least 0.9")}});
    return 0;
}
