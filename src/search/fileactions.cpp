#include "search/fileactions.h"

#include <QMimeData>
#include <QProcess>
#include <QUrl>

namespace fileactions {

QList<Command> trashCommands(const QString &path)
{
    const QStringList kioArguments = {QStringLiteral("move"), path, QStringLiteral("trash:/")};
    return {{QStringLiteral("gio"), {QStringLiteral("trash"), path}},
            {QStringLiteral("trash-put"), {path}},
            {QStringLiteral("kioclient5"), kioArguments},
            {QStringLiteral("kioclient"), kioArguments}};
}

bool putIntoTrash(const QString &path)
{
    const QList<Command> commands = trashCommands(path);
    for (const Command &command : commands) {
        // A tool that is missing or crashes gives a negative code and counts as failed.
        if (QProcess::execute(command.program, command.arguments) == 0)
            return true;
    }
    return false;
}

QMimeData *clipboardData(const QString &path)
{
    const QUrl url = QUrl::fromLocalFile(path);
    auto *data = new QMimeData;
    data->setUrls({url});
    data->setText(path);
    data->setData(QStringLiteral("x-special/gnome-copied-files"), "copy\n" + url.toEncoded());
    return data;
}

} // namespace fileactions
