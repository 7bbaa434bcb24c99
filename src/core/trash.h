#pragma once

#include "core/fileidentity.h"

#include <QByteArray>

namespace core {

/// The user's trash as the desktops share it (freedesktop.org): the one in the home directory for
/// files of its file system, else "$topdir/.Trash/$uid" or "$topdir/.Trash-$uid" of the volume that
/// holds the file. What is missing of a trash is made on first use. Any thread; blocks.
///
/// A file moves by one rename, after the note of where it came from is on the disk: a crash leaves
/// the file under one of its two names, at worst with a note that belongs to nothing.
class Trash
{
public:
    /// `homeTrash` is an absolute path.
    explicit Trash(const QByteArray &homeTrash = defaultHomeTrash());
    /// "$XDG_DATA_HOME/Trash".
    static QByteArray defaultHomeTrash();

    /// Moves the entry `name` of the open directory `dirFd` into the trash, without replacing
    /// anything there. `path` is the absolute path to be shown and restored to. What arrives must
    /// be `expected`, else it goes back to where it was.
    ///
    /// 0, or an errno value with the file where it was: EXDEV if the file's volume has no trash and
    /// none can be made, EALREADY if the file is in the trash, ESTALE if it is not `expected`.
    int put(int dirFd, const QByteArray &name, const QByteArray &path,
            const FileIdentity &expected) const;

private:
    QByteArray m_homeTrash;
};

} // namespace core
