#pragma once

#include "recoveryd/carve/carver.h"

namespace services::recoveryd {

/// Ends with the record that points back exactly to a central directory of this archive; then the
/// entries are unpacked and their checksums compared. Documents and programs that are zip archives
/// are told by what they hold.
bool carveZip(WindowReader &reader, qint64 start, CarvedFile *file);
/// The header tells where the directory of the archive ends.
bool carveSevenZip(WindowReader &reader, qint64 start, CarvedFile *file);
/// Versions 4 and 5: block by block up to the end block.
bool carveRar(WindowReader &reader, qint64 start, CarvedFile *file);
/// Header by header, each with its checksum, up to the two blocks of zeros.
bool carveTar(WindowReader &reader, qint64 start, CarvedFile *file);
/// gz, bz2, xz, zst: by unpacking.
bool carveCompressed(WindowReader &reader, qint64 start, CarvedFile *file);
/// ar archives, so deb as well.
bool carveAr(WindowReader &reader, qint64 start, CarvedFile *file);
bool carveCab(WindowReader &reader, qint64 start, CarvedFile *file);
/// ISO 9660: the descriptor tells the size.
bool carveIso(WindowReader &reader, qint64 start, CarvedFile *file);

} // namespace services::recoveryd
