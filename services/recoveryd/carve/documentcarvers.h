#pragma once

#include "recoveryd/carve/carver.h"

namespace services {
namespace recoveryd {

/// Ends at the last end-of-file mark that no further objects of an update follow.
class PdfCarver : public Carver
{
public:
    QByteArray magic() const override;
    bool carve(WindowReader &reader, qint64 start, CarvedFile *file) const override;
};

/// Ends with the record that points back exactly to a central directory of this archive. Office
/// documents are told by what they hold. Archives above 4 GiB are not recognised.
class ZipCarver : public Carver
{
public:
    QByteArray magic() const override;
    bool carve(WindowReader &reader, qint64 start, CarvedFile *file) const override;
};

} // namespace recoveryd
} // namespace services
