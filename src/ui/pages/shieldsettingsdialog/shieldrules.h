#pragma once

#include <QJsonObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVector>

/// What the settings of the protection offer, and how they fit the service's configuration.
namespace shieldsettings {

/// The part of the service's configuration that can be set.
struct Settings
{
    QStringList protectedDirs;
    QStringList protectedExtensions; ///< Lower case, without the dot.
    int retentionDays = 30;
    qint64 maxSpaceBytes = 0;
    qint64 emergencyThresholdBytes = 0; ///< Free space below which files are forced out.
};

/// Keys that are missing or of another type read as no directories, no extensions, 30 days and 0.
Settings fromConfig(const QJsonObject &config);
/// All keys of the configuration.
QJsonObject toConfig(const Settings &settings);

/// File types that are protected together or not at all.
struct TypeGroup
{
    QString name;
    QString extensions; ///< Separated by commas, without dots.
};

const QVector<TypeGroup> &typeGroups();
QStringList extensionsOf(const TypeGroup &group);
/// ".doc, .docx".
QString extensionNote(const TypeGroup &group);
/// What happens to files that are deleted without the hook being told.
/// What is said of deletions past the hook. `reason`: why they are not kept now, or empty.
QString secondNetNote(const QString &reason);
QSet<QString> lowerCased(const QStringList &extensions);
/// More than half of the group's extensions, rounded down, are there. `extensions` is lower case.
bool isProtected(const TypeGroup &group, const QSet<QString> &extensions);
/// The extensions of the groups at these places of typeGroups(), each once, in the table's order.
QStringList extensionsOfGroups(const QVector<int> &groups);

/// A row of values to choose from.
struct LimitOption
{
    QString label;
    QString hintTitle;
    QString hint;
    struct Choice
    {
        QString text;
        qint64 value;
    };
    QVector<Choice> choices;
};

LimitOption retentionOption(); ///< Days.
LimitOption spaceOption();     ///< Bytes.
LimitOption emergencyOption(); ///< Bytes.

/// Height of the dialog, from the height of the screen that is free; -1 without a screen. Logical
/// pixels.
int dialogHeight(int availableHeight);

} // namespace shieldsettings
