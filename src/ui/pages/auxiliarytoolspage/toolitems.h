#pragma once

#include <QList>
#include <QString>

/// A disk tool of the catalogue.
struct ToolItem
{
    QString category;
    QString name;
    QString summary;
    QString command; ///< An example, to be adapted to the device.
    QString tags;
    bool destroysData = false; ///< The command as it stands overwrites the device.
};

QList<ToolItem> auxiliaryTools();
