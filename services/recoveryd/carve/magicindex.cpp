#include "recoveryd/carve/magicindex.h"

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
    addToFilter(carver.magic, offset);
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

void MagicIndex::addToFilter(const Magic &magic, int offset)
{
    if (offset == 0) {
        const int pair = uchar(magic.bytes[0]) << 8 | uchar(magic.bytes[1]);
        m_pairs[size_t(pair / 64)] |= quint64(1) << pair % 64;
        return;
    }
    Word word;
    word.offset = offset;
    Q_ASSERT(magic.length >= int(sizeof(word.bytes)));
    std::memcpy(word.bytes, magic.bytes, sizeof(word.bytes));
    m_words.push_back(word);
}

bool MagicIndex::stands(const Magic &magic, const uchar *sector)
{
    return std::memcmp(sector + magic.offset % kSector, magic.bytes, size_t(magic.length)) == 0;
}

} // namespace services::recoveryd
