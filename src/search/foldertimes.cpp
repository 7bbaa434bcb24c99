#include "search/foldertimes.h"

#include <QFile>

#include <cerrno>
#include <sys/stat.h>

namespace {

constexpr int foldersPerBreath = 256;
constexpr qint64 unknownTime = -1;
constexpr qint64 isGone = -2;

qint64 timeOf(const QString &dir)
{
    struct stat status;
    if (::stat(QFile::encodeName(dir).constData(), &status) != 0)
        return errno == ENOENT || errno == ENOTDIR ? isGone : unknownTime;
    return qint64(status.st_mtim.tv_sec) * 1000000000 + status.st_mtim.tv_nsec;
}

QString parentOf(const QString &dir)
{
    return dir.left(dir.lastIndexOf(QLatin1Char('/')));
}

} // namespace

void FolderTimes::add(const QString &dir)
{
    const qint64 time = timeOf(dir);
    if (time != isGone)
        m_times.insert(dir, time);
}

void FolderTimes::removeInside(const QString &dir)
{
    const QString below = dir + QLatin1Char('/');
    for (auto it = m_times.begin(); it != m_times.end();) {
        if (it.key() == dir || it.key().startsWith(below))
            it = m_times.erase(it);
        else
            ++it;
    }
}

FolderTimes::Changes FolderTimes::compare(const std::function<bool()> &breathe)
{
    Changes changes;
    int seen = 0;
    for (auto it = m_times.begin(); it != m_times.end(); ++it) {
        if (++seen % foldersPerBreath == 0 && !breathe())
            return changes;
        const qint64 time = timeOf(it.key());
        if (time == isGone)
            changes.gone.append(it.key());
        else if (time != unknownTime && time != it.value())
            changes.changed.append(it.key());
        else
            continue;
        it.value() = time;
    }
    for (const QString &dir : qAsConst(changes.gone))
        m_times.remove(dir);
    return changes;
}

QStringList FolderTimes::outermost() const
{
    QStringList dirs;
    for (auto it = m_times.cbegin(); it != m_times.cend(); ++it) {
        if (!m_times.contains(parentOf(it.key())))
            dirs.append(it.key());
    }
    dirs.sort();
    return dirs;
}
