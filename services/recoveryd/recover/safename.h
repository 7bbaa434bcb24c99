#pragma once

#include <QString>
#include <QStringList>

namespace services::recoveryd {

/// Which names the file system of a recovery's target can hold.
enum class NameRules {
    Unix,    ///< Anything but slashes and control characters; 255 bytes.
    Windows, ///< Of FAT, exFAT, NTFS and network shares: 255 UTF-16 units, reserved characters and
             ///< device names, no blank or dot at the end.
};

/// By the kind of file system around `dir`, which need not exist yet. Windows where it is not
/// known.
NameRules nameRulesAt(const QString &dir);

/// A name that the target can hold, as near to `name` as may be; the suffix is kept where a name is
/// cut. Never empty, "." or "..".
QString safeName(const QString &name, NameRules rules);
/// "name (2).ext": an alternative to a safe name that is taken, cut to the same limits. The name
/// itself for 0.
QString alternativeName(const QString &name, int number, NameRules rules);

/// The folders of a found path ("/home/li/a.txt" gives "home", "li"), each made safe. A path that
/// would be longer than the system allows keeps its last folder only.
QStringList safeFolders(const QString &path, NameRules rules);

} // namespace services::recoveryd
