#pragma once

#include <QByteArray>

namespace share {

/// What an upload would replace.
struct UploadTarget
{
    enum class Kind { None, File, Directory, Special };

    bool isTaken() const { return kind != Kind::None; }

    Kind kind = Kind::None; ///< Behind a link: of what it leads to, none for a dead one.
    bool isLink = false;
    qint64 size = 0;       ///< Bytes.
    qint64 modifiedMs = 0; ///< Since the epoch.
    uint accessMode = 0;   ///< The nine bits of read, write and execute.
    bool isWritable = true;
};

/// Of a name in an open directory, for which a descriptor without access to its content will do.
UploadTarget uploadTargetAt(int directory, const QByteArray &name);

/// True if 64 MiB are left in the directory's file system beside `bytes`, or if nothing can be
/// said.
bool hasRoomFor(int directory, qint64 bytes);
/// The same for a file system with `available` bytes.
bool fitsInto(qint64 available, qint64 bytes);

} // namespace share
