#pragma once

#include "recoveryd/carve/carver.h"

namespace services::recoveryd {

/// Follows the chunks up to IEND, each with its checksum.
bool carvePng(WindowReader &reader, qint64 start, CarvedFile *file);
/// Follows the segments, and the scan data between them, up to the end-of-image marker, then
/// decodes the picture. Further pictures and films that cameras append belong to the file.
bool carveJpeg(WindowReader &reader, qint64 start, CarvedFile *file);
/// Follows the blocks up to the trailer.
bool carveGif(WindowReader &reader, qint64 start, CarvedFile *file);
/// Bitmaps tell their size in the header.
bool carveBmp(WindowReader &reader, qint64 start, CarvedFile *file);
/// Follows all directories to the last byte that any of them names. Tells the raw photo formats
/// that are kinds of TIFF.
bool carveTiff(WindowReader &reader, qint64 start, CarvedFile *file);
/// Follows the four sections and the row lengths of the picture.
bool carvePsd(WindowReader &reader, qint64 start, CarvedFile *file);
/// Ends behind the last picture of the directory.
bool carveIcon(WindowReader &reader, qint64 start, CarvedFile *file);

} // namespace services::recoveryd
