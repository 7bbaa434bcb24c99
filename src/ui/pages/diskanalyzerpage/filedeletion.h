#pragma once

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVector>

#include <functional>

namespace diskanalyzer {

struct LargeFile;
struct DuplicateGroup;

/// A file as it was when it was scanned.
struct ScannedFile
{
    QString path;
    qint64 size = 0; ///< Bytes.
    QDateTime modified;
};

/// Files to be removed together.
struct DeletionGroup
{
    QVector<ScannedFile> remove;
    QVector<ScannedFile> keep; ///< Their copies that stay.
    /// The files go because of their content: one that has changed since the scan is not removed,
    /// nor is any while none of the copies that should stay is as it was.
    bool asDuplicates = false;
};

struct DeletionReport
{
    QVector<ScannedFile> removed;
    QStringList failed;   ///< The system refused.
    QStringList changed;  ///< No longer what was scanned.
    QStringList lastCopy; ///< Their copies that should have stayed are gone or have changed.

    bool isComplete() const { return failed.isEmpty() && changed.isEmpty() && lastCopy.isEmpty(); }
};

DeletionGroup deletionOf(const QVector<LargeFile> &files);
DeletionGroup deletionOf(const DuplicateGroup &group);

/// Removes the files for good, as far as the vault does not catch them. Blocks; `stopped` is asked
/// before each file. A file that has gone already counts as failed.
DeletionReport deleteFiles(const QVector<DeletionGroup> &groups,
                           const std::function<bool()> &stopped);

/// What the user is told at the end.
struct DeletionNotice
{
    enum Tone { Success, Warning, Error };
    Tone tone = Success;
    QString title;
    QString message;
};
DeletionNotice noticeOf(const DeletionReport &report, bool asDuplicates);

} // namespace diskanalyzer
