#pragma once

#include <QList>
#include <QString>
#include <QStringList>

class QMimeData;

/// What a person does with a found file besides opening and moving it. No widgets.
namespace fileactions {

struct Command
{
    QString program;
    QStringList arguments;
};

/// The desktop tools that can put `path` into the user's trash, in the order of trial.
QList<Command> trashCommands(const QString &path);

/// Runs trashCommands() one after another until one exits with 0. Blocks until then: any thread
/// but the GUI's.
[[nodiscard]] bool putIntoTrash(const QString &path);

/// What the clipboard holds after "copy": the URL, the path as text, and the form in which file
/// managers take a copy. The caller owns it.
QMimeData *clipboardData(const QString &path);

} // namespace fileactions
