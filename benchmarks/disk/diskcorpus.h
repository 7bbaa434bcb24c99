#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

/// Makes `files` sparse files of varied sizes in `dirs` directories up to 12 deep below `root`. The
/// same numbers give the same tree.
void makeTree(const QString &root, int files, int dirs);

/// Files with content, for the search of duplicates.
struct DuplicateCorpus
{
    QHash<qint64, QStringList> sizeGroups;
    /// Those that no partial comparison tells apart, largest first.
    QStringList survivors;
    qint64 survivingBytes = 0;
    int files = 0;
};

/// About `total` bytes below `root` in sizes from a few KiB to an eighth of the whole: equal files,
/// and as many of the same size that differ.
DuplicateCorpus makeDuplicates(const QString &root, qint64 total);
