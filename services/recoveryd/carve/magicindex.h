#pragma once

#include "recoveryd/carve/carver.h"

#include <array>
#include <cstring>

namespace services::recoveryd {

/// Tells for a sector which carvers have a magic there. A magic costs next to nothing: most sectors
/// are told by one bit for their first two bytes and by the few magics that stand elsewhere; for
/// the rest, four table look-ups for each such offset give the set of those that fit.
class MagicIndex
{
public:
    /// A sector must be given in full; a shorter end is filled up with zeros.
    static constexpr qint64 kSector = 512;

    explicit MagicIndex(const QVector<Carver> &carvers);

    /// Whether any magic may stand in the sector.
    bool mayBegin(const uchar *sector) const
    {
        const int pair = sector[0] << 8 | sector[1];
        if ((m_pairs[size_t(pair / 64)] >> pair % 64 & 1) != 0 && hasCandidates(sector))
            return true;
        for (const Word &word : m_words)
            if (std::memcmp(sector + word.offset, word.bytes, sizeof(word.bytes)) == 0)
                return true;
        return false;
    }
    /// Calls visit(carver, distance) for each magic in the sector until it returns true; the file
    /// would begin `distance` bytes before the sector.
    template <typename Visit>
    bool visit(const uchar *sector, Visit visitor) const
    {
        for (const Place &place : m_places)
            for (quint64 bits = place.candidates(sector); bits != 0; bits &= bits - 1) {
                const Carver &carver = *place.carvers[size_t(__builtin_ctzll(bits))];
                if (stands(carver.magic, sector) &&
                    visitor(carver, carver.magic.offset - carver.magic.offset % kSector))
                    return true;
            }
        return false;
    }

private:
    struct Place
    {
        int offset = 0; ///< Within a sector.
        std::array<std::array<quint64, 256>, 4> sets = {};
        std::vector<const Carver *> carvers; ///< By bit; at most 64.

        quint64 candidates(const uchar *sector) const
        {
            const uchar *const at = sector + offset;
            const quint64 bits = sets[0][at[0]] & sets[1][at[1]];
            return bits == 0 ? 0 : bits & sets[2][at[2]] & sets[3][at[3]];
        }
    };

    /// The beginning of a magic that does not stand at the start of a sector.
    struct Word
    {
        int offset = 0;
        char bytes[4] = {};
    };

    bool hasCandidates(const uchar *sector) const
    {
        for (const Place &place : m_places)
            if (place.offset == 0 && place.candidates(sector) != 0)
                return true;
        return false;
    }
    static bool stands(const Magic &magic, const uchar *sector);
    void add(const Carver &carver);
    void addToFilter(const Magic &magic, int offset);

    std::vector<Place> m_places;
    std::array<quint64, 1024> m_pairs = {}; ///< A bit for each first two bytes of a magic.
    std::vector<Word> m_words;
};

} // namespace services::recoveryd
