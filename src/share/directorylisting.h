#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

#include <ctime>

namespace share {

class SharedEntry;

/// What a page shows of one file or directory.
struct ListedEntry
{
    QString name;
    bool exists = false;
    bool isDirectory = false;
    qint64 size = 0;          ///< Bytes.
    std::time_t modified = 0; ///< Seconds since the epoch.
};

/// Follows links. Whatever is no directory counts as a file, also what does not exist.
ListedEntry entryAt(const QString &path);

/// The directories, then the regular files in `directory`, each by the code units of their names,
/// links under what they lead to. Neither hidden ones nor pipes, devices and dead links, nor names
/// that are no UTF-8, which no link could carry. One look at the disk an entry. False if the
/// directory cannot be read.
[[nodiscard]] bool listDirectory(const SharedEntry &directory, QVector<ListedEntry> *entries);

/// "yyyy-MM-dd HH:mm" in local time.
QByteArray minuteText(std::time_t time);

} // namespace share
