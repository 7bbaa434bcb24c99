#pragma once

#include <QByteArray>

namespace services::recoveryd::ntfs {

/// The value of a $FILE_NAME attribute; directory indexes hold the same.
struct FileName
{
    enum NameSpace : quint8 { Posix = 0, Win32 = 1, Dos = 2, Win32AndDos = 3 };

    static constexpr quint32 kDirectory = 0x10000000U; ///< Among the attributes.

    quint64 parent = 0; ///< Reference to the directory.
    QByteArray name;    ///< UTF-8.
    quint8 nameSpace = Posix;
    quint32 attributes = 0;
    quint64 createdTime = 0;  ///< FILETIME.
    quint64 modifiedTime = 0; ///< FILETIME.
    quint64 changedTime = 0;  ///< FILETIME of the last change of the record.
    qint64 dataSize = 0;      ///< Often out of date in the record itself.

    bool isDirectory() const { return (attributes & kDirectory) != 0; }
};

/// Reads a value of at most `length` bytes. False if it is none; `isStrict` also refuses what no
/// driver would write, for bytes of which it is not known that a name begins there.
[[nodiscard]] bool parseFileName(const char *value, int length, bool isStrict, FileName *name);

} // namespace services::recoveryd::ntfs
