#include "search/names/filestamp.h"

#include <QDateTime>
#include <QFile>

#include <sys/stat.h>

namespace search::names {
namespace {

/// Times of files advance in steps of some milliseconds.
constexpr qint64 settledMs = 50;

} // namespace

bool FileStamp::Part::operator==(const Part &other) const
{
    return device == other.device && inode == other.inode && size == other.size &&
           timeNs == other.timeNs;
}

FileStamp::Part FileStamp::partOf(const QString &path)
{
    struct stat status;
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return Part();
    return {status.st_dev, status.st_ino, status.st_size,
            qint64(status.st_mtim.tv_sec) * 1000000000 + status.st_mtim.tv_nsec};
}

FileStamp FileStamp::of(const QString &dbPath)
{
    FileStamp stamp;
    const qint64 nowMs = QDateTime::currentMSecsSinceEpoch();
    stamp.m_file = partOf(dbPath);
    stamp.m_log = partOf(dbPath + QLatin1String("-wal"));
    // An empty log comes and goes with connections that only read.
    if (stamp.m_log.size == 0)
        stamp.m_log = Part();
    stamp.m_isSettled = qMax(stamp.m_file.timeNs, stamp.m_log.timeNs) / 1000000 + settledMs < nowMs;
    return stamp;
}

bool FileStamp::isSameFile(const FileStamp &other) const
{
    return m_file.device == other.m_file.device && m_file.inode == other.m_file.inode;
}

bool FileStamp::isCurrent(const FileStamp &now) const
{
    return m_isSettled && m_file == now.m_file && m_log == now.m_log;
}

} // namespace search::names
