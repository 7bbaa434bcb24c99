#pragma once

#include "recoveryd/carve/carver.h"
#include "recoveryd/content/filecontent.h"

#include <QByteArray>

#include <limits>

namespace services::recoveryd {

/// Where the knowledge about a file comes from.
enum class FindingSource : quint8 {
    Metadata, ///< What the file system's structures say now.
    Journal,  ///< The log, or the journal's history.
    Hybrid,   ///< The map from metadata, the end or a part of it from the contents.
    Carving,  ///< Contents alone.
};

/// A file as one scanner has found it: facts only. Grades and texts for the user are made of them
/// in one place for all scanners, and so are conflicts between files that claim the same blocks.
struct Finding
{
    static constexpr qint64 kUnknownTime = std::numeric_limits<qint64>::min();

    enum class Folder : quint8 {
        Unknown, ///< `folder` is empty.
        Partial, ///< `folder` is the known tail of the path.
        Full,    ///< `folder` begins at the root of the volume; empty for the root itself.
    };
    enum class Check : quint8 {
        None,
        Passed,
        Failed,
        Unusable, ///< The file's own bytes, but encrypted, or packed in a way not supported here.
    };

    QByteArray name;   ///< Last component, UTF-8 or the bytes as they are; empty if it is lost.
    QByteArray folder; ///< Without a slash at either end.
    Folder folderKnowledge = Folder::Unknown;
    FindingSource source = FindingSource::Metadata;

    FileContent content;
    qint64 modifiedMs = kUnknownTime; ///< UTC, since the epoch.
    qint64 deletedMs = kUnknownTime;

    bool isDeleted = true;     ///< False: it still exists, on a volume that cannot be mounted.
    bool isSizeExact = true;   ///< False: the size was estimated, for instance from the blocks.
    bool isMapComplete = true; ///< False: some of the blocks are not known.
    /// Blocks behind the first one were worked out from what was free then. A rule that mostly
    /// holds, but that only the contents can confirm.
    bool isMapGuessed = false;
    /// Which of two files last had a block: the greater value. A transaction, log sequence number
    /// or generation; comparable within one scanner only.
    quint64 recency = 0;
    /// Bytes that the scanner itself knows to belong to another file by now.
    qint64 takenBytes = 0;
    /// What the file system's own checksums of the contents say, or a check of the structure.
    Check contentCheck = Check::None;

    // Of carved files only.
    QString type;      ///< "PDF"; of others it is made of the name's suffix.
    QString extension; ///< "pdf"
    Evidence evidence = Evidence::Header;
};

} // namespace services::recoveryd
