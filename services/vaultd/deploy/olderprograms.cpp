#include "vaultd/deploy/olderprograms.h"

#include <QDir>
#include <QFile>

#include <ctime>
#include <unistd.h>

namespace services::vaultd {

namespace {

constexpr int kParentBehindName = 1; // Fields of stat, counted behind the program's name.
constexpr int kStartBehindName = 19;
constexpr int kKernelThreads = 2;

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

Moment Moment::now()
{
    struct timespec time;
    ::clock_gettime(CLOCK_BOOTTIME, &time);
    const quint64 perSecond = quint64(::sysconf(_SC_CLK_TCK));
    Moment moment;
    moment.boot = contentOf(QStringLiteral("/proc/sys/kernel/random/boot_id")).trimmed();
    moment.ticks =
        quint64(time.tv_sec) * perSecond + quint64(time.tv_nsec) * perSecond / 1000000000;
    return moment;
}

bool hasOlderPrograms(const Moment &moment, const QString &library)
{
    if (moment.boot != Moment::now().boot)
        return false;
    const QByteArray name = '/' + QFile::encodeName(library.section(QLatin1Char('/'), -1));
    const QStringList pids = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    for (const QString &pid : pids) {
        const QString folder = QStringLiteral("/proc/") + pid;
        if (!pid.at(0).isDigit() || pid.toLongLong() == ::getpid())
            continue;
        const QByteArray line = contentOf(folder + QStringLiteral("/stat"));
        const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
        const bool isKernels = fields.value(kParentBehindName).toInt() == kKernelThreads ||
                               pid.toLongLong() == kKernelThreads;
        const quint64 started = fields.value(kStartBehindName).toULongLong();
        if (fields.size() <= kStartBehindName || fields.at(0) == "Z" || isKernels ||
            started >= moment.ticks)
            continue;
        if (!contentOf(folder + QStringLiteral("/maps")).contains(name))
            return true;
    }
    return false;
}

} // namespace services::vaultd
