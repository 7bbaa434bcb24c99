#pragma once

#include "recoveryd/scan/finding.h"

namespace services::recoveryd::fat {

/// A file or directory as an entry of FAT or an entry set of exFAT describes it.
struct DirectoryEntry
{
    QByteArray name; ///< UTF-8.
    bool isDeleted = false;
    bool isDirectory = false;
    bool isContiguous = false; ///< exFAT says so: the table has no chain of it.
    /// FAT without a long name: the deletion took the first letter, and a guess stands for it.
    bool isFirstLetterLost = false;
    quint32 firstCluster = 0;
    qint64 size = 0;
    qint64 written = 0; ///< Bytes that were ever written; what follows reads as zeros.
    qint64 createdMs = Finding::kUnknownTime;
    qint64 modifiedMs = Finding::kUnknownTime;

    /// The latest time at which the entry says the file got blocks.
    qint64 allocatedMs() const { return qMax(createdMs, modifiedMs); }
};

} // namespace services::recoveryd::fat
