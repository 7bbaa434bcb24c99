#pragma once

#include "ui/pages/diskanalyzerpage/scannedfile.h"

#include <QString>
#include <QVector>

#include <functional>

namespace diskanalyzer {

struct LargeFile;
struct DuplicateGroup;

/// Files to be removed together.
struct DeletionGroup
{
    QString root; ///< The scanned directory, below which no link is followed.
    QVector<ScannedFile> remove;
    QVector<ScannedFile> keep; ///< Their copies that stay.
    /// None of the files goes unless one of the copies that should stay is as it was.
    bool asDuplicates = false;
};

struct DeletionOptions
{
    bool toTrash = false; ///< Else for good, as far as the vault does not catch the files.
    /// True for a file that the vault takes over when it is deleted by its path; may be null.
    std::function<bool(const ScannedFile &)> reachesVault;
};

/// Why a file was left where it is.
enum class Refusal {
    None,
    System,     ///< The system refused, or the file is gone.
    LinkInPath, ///< A folder on the way is a link now.
    Changed,    ///< No longer the file that was scanned.
    SameAsKept, ///< The name now leads to a copy that should stay.
    LastCopy,   ///< The copies that should stay are gone or have changed.
};

struct RefusedFile
{
    QString path;
    Refusal reason = Refusal::None;
    int code = 0; ///< errno value of Refusal::System.
};

struct DeletionReport
{
    QVector<ScannedFile> removed;
    QVector<RefusedFile> refused;
    bool toTrash = false;

    bool isComplete() const { return refused.isEmpty(); }
};

DeletionGroup deletionOf(const QVector<LargeFile> &files);
DeletionGroup deletionOf(const DuplicateGroup &group);

/// Removes the files that still are what was scanned. Blocks; `stopped` is asked before each file.
DeletionReport deleteFiles(const QVector<DeletionGroup> &groups, const DeletionOptions &options,
                           const std::function<bool()> &stopped);

} // namespace diskanalyzer
