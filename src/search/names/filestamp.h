#pragma once

#include <QString>

namespace search::names {

/// Tells whether an index file may have been written between two looks: identity, size and time of
/// the file and of its log. Costs two calls of the system, and sees other programs' writes too.
class FileStamp
{
public:
    FileStamp() = default;
    static FileStamp of(const QString &dbPath);

    bool isSameFile(const FileStamp &other) const;
    /// Both were taken of the same state. False also where the last write was so near the look that
    /// the clock of the file system could hide another one.
    bool isCurrent(const FileStamp &now) const;

private:
    struct Part
    {
        quint64 device = 0;
        quint64 inode = 0;
        qint64 size = 0;
        qint64 timeNs = 0;

        bool operator==(const Part &other) const;
    };
    static Part partOf(const QString &path);

    Part m_file;
    Part m_log;
    bool m_isSettled = false;
};

} // namespace search::names
