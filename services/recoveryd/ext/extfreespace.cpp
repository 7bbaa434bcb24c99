#include "recoveryd/ext/extfreespace.h"

#include "recoveryd/ext/undelete/freespace.h"

namespace services {
namespace recoveryd {

bool readFreeRanges(const ExtVolume &ext, Ranges *ranges, QString *error)
{
    const MediaReader media(ext.volume());
    ext::Layout layout(media);
    return layout.open(error) && readFreeSpace(ext::Blocks(layout, nullptr), ranges, error);
}

} // namespace recoveryd
} // namespace services
