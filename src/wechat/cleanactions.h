#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariantList>

namespace wechat {

/// One duplicate group of a clean, as the page hands it over.
struct CleanAction
{
    QString keepPath;
    qint64 size = 0; ///< Bytes.
    QString hash;    ///< Hexadecimal in lower case, from the scan; may be empty.
    QStringList replacePaths;
    QList<QStringList> groups; ///< The paths of each physical file, cleaned.

    int pathCount() const { return replacePaths.size(); }
};

/// Absolute, sorted, without duplicates and empty entries.
QStringList cleanedPaths(const QStringList &paths);

/// Entries that are no maps come to nothing.
QList<CleanAction> parseActions(const QVariantList &actions);

/// The actions as the page hands them over, without the physical files that have one of these
/// paths. Actions with nothing left to merge are left out.
QVariantList actionsWithout(const QVariantList &actions, const QStringList &paths);

} // namespace wechat
