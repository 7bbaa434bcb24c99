#include "recoveryd/carve/carver.h"

#include "recoveryd/carve/documentcarvers.h"
#include "recoveryd/carve/imagecarvers.h"

namespace services {
namespace recoveryd {

const QVector<const Carver *> &carvers()
{
    static const PdfCarver pdf;
    static const PngCarver png;
    static const JpegCarver jpeg;
    static const GifCarver gif;
    static const ZipCarver zip;
    static const QVector<const Carver *> all = {&pdf, &png, &jpeg, &gif, &zip};
    return all;
}

} // namespace recoveryd
} // namespace services
