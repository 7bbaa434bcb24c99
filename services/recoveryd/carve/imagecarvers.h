#pragma once

#include "recoveryd/carve/carver.h"

namespace services {
namespace recoveryd {

/// Follows the chunks up to IEND.
class PngCarver : public Carver
{
public:
    QByteArray magic() const override;
    bool carve(WindowReader &reader, qint64 start, CarvedFile *file) const override;
};

/// Follows the segments, and the scan data between them, up to the end-of-image marker.
class JpegCarver : public Carver
{
public:
    QByteArray magic() const override;
    bool carve(WindowReader &reader, qint64 start, CarvedFile *file) const override;
};

/// Follows the blocks up to the trailer.
class GifCarver : public Carver
{
public:
    QByteArray magic() const override;
    bool carve(WindowReader &reader, qint64 start, CarvedFile *file) const override;
};

} // namespace recoveryd
} // namespace services
