#include "recoveryd/carve/magicindex.h"

#include <cstring>

namespace services::recoveryd {

namespace {

constexpr int kMaxBits = 64;

} // namespace

MagicIndex::MagicIndex(const QVector<Carver> &carvers)
{
    for (const Carver &carver : carvers)
        add(carver);
}

void MagicIndex::add(const Carver &carver)
{
    const int offset = int(carver.magic.offset % kSector);
    Place *place = nullptr;
    for (Place &known : m_places)
        if (known.offset == offset && int(known.carvers.size()) < kMaxBits)
            place = &known;
    if (!place) {
        m_places.emplace_back();
        place = &m_places.back();
        place->offset = offset;
    }
    const quint64 bit = quint64(1) << place->carvers.size();
    place->carvers.push_back(&carver);
    for (int i = 0; i < 4; ++i)
        for (int value = 0; value < 256; ++value)
            if (i >= carver.magic.length || uchar(carver.magic.bytes[i]) == value)
                place->sets[size_t(i)][size_t(value)] |= bit;
}

bool MagicIndex::stands(const Magic &magic, const uchar *sector)
{
    return std::memcmp(sector + magic.offset % kSector, magic.bytes, size_t(magic.length)) == 0;
}

} // namespace services::recoveryd
