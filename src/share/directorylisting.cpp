#include "share/directorylisting.h"

#include "core/directorystream.h"
#include "core/filename.h"
#include "share/sharedentry.h"

#include <QFile>

#include <algorithm>
#include <sys/stat.h>

namespace share {

namespace {

constexpr char kHiddenMark = '.';
constexpr int kTimeTextSize = 32;

void fill(const struct stat &status, ListedEntry *entry)
{
    entry->exists = true;
    entry->isDirectory = S_ISDIR(status.st_mode);
    entry->size = status.st_size;
    entry->modified = status.st_mtime;
}

bool comesBefore(const ListedEntry &first, const ListedEntry &second)
{
    if (first.isDirectory != second.isDirectory)
        return first.isDirectory;
    return first.name < second.name;
}

} // namespace

ListedEntry entryAt(const QString &path)
{
    ListedEntry entry;
    struct stat status;
    if (::stat(QFile::encodeName(path).constData(), &status) == 0)
        fill(status, &entry);
    return entry;
}

bool listDirectory(const SharedEntry &directory, QVector<ListedEntry> *entries)
{
    core::Descriptor opened(directory.isDirectory() ? directory.openForReading() : -1);
    const core::DirectoryStream dir(opened.isOpen() ? ::fdopendir(opened.get()) : nullptr);
    if (!dir)
        return false;
    opened.release(); // it belongs to the stream now
    const int descriptor = ::dirfd(dir.get());
    while (const dirent *found = ::readdir(dir.get())) {
        const char *rawName = found->d_name;
        if (rawName[0] == kHiddenMark)
            continue;
        ListedEntry entry;
        entry.name = core::decodedFileName(rawName);
        if (entry.name.isEmpty())
            continue;
        struct stat status;
        if (::fstatat(descriptor, rawName, &status, 0) != 0 ||
            !(S_ISDIR(status.st_mode) || S_ISREG(status.st_mode)))
            continue;
        fill(status, &entry);
        entries->append(entry);
    }
    std::sort(entries->begin(), entries->end(), comesBefore);
    return true;
}

QByteArray minuteText(std::time_t time)
{
    std::tm local;
    if (!::localtime_r(&time, &local))
        return QByteArray();
    char text[kTimeTextSize];
    const size_t size = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &local);
    return QByteArray(text, static_cast<int>(size));
}

} // namespace share
