#pragma once

#include "core/fileidentity.h"

#include <QDateTime>
#include <QSet>
#include <QString>
#include <QVariantList>
#include <QVector>

namespace diskanalyzer {

struct DuplicateFile
{
    QString path;
    QDateTime modified; ///< As scanned.
    int aliasCount = 0; ///< Other hard links to the same data; while they exist nothing is freed.
    bool keep = true;
    core::FileIdentity identity; ///< As scanned; not valid if the scan reported none.
};

/// Files with the same content, or with the same name and size.
struct DuplicateGroup
{
    qint64 size = 0; ///< Bytes of each file.
    QString hash;    ///< Empty if contents were not compared.
    QVector<DuplicateFile> files;

    int unkeptCount() const;
    /// Bytes that the removal of the files not kept would free.
    qint64 unkeptBytes() const;
    /// What the group adds to the reclaimable space, whatever is ticked.
    qint64 reclaimable() const { return qMax(0, files.size() - 1) * size; }
};

struct DuplicateResult
{
    QVector<DuplicateGroup> groups;
    int totalGroups = 0;         ///< Those not shown too.
    qint64 totalReclaimable = 0; ///< Bytes.

    int unkeptCount() const;
    /// Takes files out; a group that is left with one file goes.
    void removePaths(const QSet<QString> &paths);
};

/// From the list that the worker sends. In each group whose contents are the same all files but the
/// first are up for removal; where only names were compared, everything is kept until somebody says
/// otherwise. Any thread.
DuplicateResult duplicateResultFromList(const QVariantList &list);

/// "共 3 组重复文件，可释放 1.5 GB", and how many of them are shown if not all.
QString duplicateFooterText(const DuplicateResult &result);
/// "3 个相同文件 · 每个 1.0 MB"
QString duplicateGroupTitle(const DuplicateGroup &group);
QString duplicateGroupHint(const DuplicateGroup &group);

/// Questions before files are removed: of one group, or of all of them. Groups of which nothing
/// would be left are told.
QString cleanGroupText(const DuplicateGroup &group);
QString cleanAllText(const DuplicateResult &result);

} // namespace diskanalyzer
