#pragma once

#include "recoveryd/carve/carver.h"

namespace services::recoveryd {

class Peek;

/// Files of boxes (ISO/IEC 14496-12): mp4, mov, m4a, 3gp, heic, avif, cr3, jp2; told by their
/// brand.
bool carveBoxes(WindowReader &reader, qint64 start, CarvedFile *file);
/// RIFF: avi with its further parts, wav, webp.
bool carveRiff(WindowReader &reader, qint64 start, CarvedFile *file);
/// IFF: aiff.
bool carveForm(WindowReader &reader, qint64 start, CarvedFile *file);
/// Matroska and WebM: the elements of the segment.
bool carveMatroska(WindowReader &reader, qint64 start, CarvedFile *file);
/// Follows the tags, each with the length of the one before.
bool carveFlv(WindowReader &reader, qint64 start, CarvedFile *file);
/// wmv and wma: the size that the header tells.
bool carveAsf(WindowReader &reader, qint64 start, CarvedFile *file);
/// mpg: packets up to the end code.
bool carveProgramStream(WindowReader &reader, qint64 start, CarvedFile *file);
/// ts: packets of 188 bytes.
bool carveTransportStream(WindowReader &reader, qint64 start, CarvedFile *file);
/// Tags and frames.
bool carveMp3(WindowReader &reader, qint64 start, CarvedFile *file);
bool carveAac(WindowReader &reader, qint64 start, CarvedFile *file);
/// Frames with their checksums, until all samples are there.
bool carveFlac(WindowReader &reader, qint64 start, CarvedFile *file);
/// ogg, oga, opus: pages with their checksums up to the last of each stream.
bool carveOgg(WindowReader &reader, qint64 start, CarvedFile *file);
bool carveAmr(WindowReader &reader, qint64 start, CarvedFile *file);
/// Voice messages of WeChat.
bool carveSilk(WindowReader &reader, qint64 start, CarvedFile *file);
bool carveMidi(WindowReader &reader, qint64 start, CarvedFile *file);

/// Whether nothing but zeros follows up to the end of the sector, as behind the end of a file. For
/// formats that say nothing about their end.
bool isPaddedFrom(const Peek &file, qint64 end);
/// Sets the end of such a file.
void setPaddedEnd(const Peek &file, qint64 end, CarvedFile *carved);

} // namespace services::recoveryd
