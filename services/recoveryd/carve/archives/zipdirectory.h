#pragma once

#include "recoveryd/carve/carver.h"
#include "recoveryd/carve/check/decoding.h"

#include <QByteArrayList>

namespace services::recoveryd {

/// What an archive says it holds.
struct ZipDirectory
{
    bool isWhole = false;         ///< As many entries as announced, within the size announced.
    bool allEntriesThere = false; ///< Each one's own header stands where the directory says.
    /// What unpacking every entry says, if all are there.
    Decoded contents = Decoded::Unknown;
    QByteArrayList names; ///< At most the first few hundred.
    QByteArray mimeType;  ///< Content of a first entry "mimetype", if it is stored as it is.
    qint64 end = 0;       ///< Where the walk along local headers came to.
};

/// Reads the central directory at `at`; `start` is the archive's start.
ZipDirectory readZipDirectory(WindowReader &reader, qint64 start, qint64 at, qint64 size,
                              int count);
/// Walks from header to header as far as they tell their sizes; for archives without a directory.
ZipDirectory readLocalEntries(WindowReader &reader, qint64 start, qint64 limit);

/// Tells documents and programs by what the archive holds; else plain ZIP.
void setZipType(const QByteArrayList &names, const QByteArray &mimeType, CarvedFile *file);

} // namespace services::recoveryd
