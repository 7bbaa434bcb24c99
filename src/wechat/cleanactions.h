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

} // namespace wechat
