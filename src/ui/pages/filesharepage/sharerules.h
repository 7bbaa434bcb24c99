#pragma once

#include "share/sharerecords.h"
#include "ui/common/utils/sharetext.h"

#include <QList>
#include <QString>
#include <QStringList>

namespace fileshare {

/// The buttons of a record, in the order of sessionActions().
enum SessionAction { DetailAction, ToggleAction, DeleteAction, ActionCount };

/// What one record shows in the session table.
struct SessionRow
{
    QString id;
    QString state;   ///< As the record has it.
    QString content; ///< Names of the roots.
    QString path;    ///< Their paths on one line.
    QStringList paths;
    int port = 0;
    QString permission;
    QString status;
    QString time;
    int downloads = 0;
};

SessionRow sessionRow(const ShareSession &session, const QList<ShareRoot> &roots);

} // namespace fileshare
