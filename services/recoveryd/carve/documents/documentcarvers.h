#pragma once

#include "recoveryd/carve/carver.h"

namespace services::recoveryd {

/// Ends at the last end-of-file mark that no further objects of an update follow.
bool carvePdf(WindowReader &reader, qint64 start, CarvedFile *file);
/// OLE2 containers: doc, xls, ppt, wps, et, dps, msg and others, told by their streams. Ends behind
/// the last sector in use; every chain of the directory is followed.
bool carveOle(WindowReader &reader, qint64 start, CarvedFile *file);
/// Ends where the first group closes.
bool carveRtf(WindowReader &reader, qint64 start, CarvedFile *file);
/// Databases tell the number of their pages.
bool carveSqlite(WindowReader &reader, qint64 start, CarvedFile *file);
/// Programs end behind the last section or segment.
bool carveElf(WindowReader &reader, qint64 start, CarvedFile *file);
bool carvePe(WindowReader &reader, qint64 start, CarvedFile *file);
/// Drawings have no end of their own.
bool carveDwg(WindowReader &reader, qint64 start, CarvedFile *file);
/// ttf, otf, ttc: ends behind the last table.
bool carveFont(WindowReader &reader, qint64 start, CarvedFile *file);
/// woff and woff2 tell their length.
bool carveWebFont(WindowReader &reader, qint64 start, CarvedFile *file);
/// pcap: packet by packet.
bool carveCapture(WindowReader &reader, qint64 start, CarvedFile *file);

} // namespace services::recoveryd
