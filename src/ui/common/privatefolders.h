#pragma once

#include <QString>
#include <QStringList>

namespace fileshare {

/// Private data that sharing a path would bring near to others.
struct PrivateContent
{
    bool isEmpty() const { return folders.isEmpty(); }

    QString path;          ///< What is to be shared.
    QStringList folders;   ///< ".ssh", ".config/morvane" …
    bool isInside = false; ///< The path lies in them, rather than holding them.
};

/// Keys, password stores and the program's own state in or around a file or folder: directly in it,
/// anywhere between it and the private folders of `home`, or around it. Links are followed. Asks
/// the disk; any thread.
PrivateContent privateContentOf(const QString &path, const QString &home);

/// What the user is asked before such paths are added to a share.
QString privateContentText(const QList<PrivateContent> &contents);

} // namespace fileshare
