#pragma once

#include "recoveryd/carve/carver.h"

#include <array>

namespace services::recoveryd {

/// Tells for a sector which carvers have a magic there. A magic costs nothing: for each of the few
/// offsets at which any stand, four table look-ups give the set of those that fit.
class MagicIndex
{
public:
    /// A sector must be given in full; a shorter end is filled up with zeros.
    static constexpr qint64 kSector = 512;

    explicit MagicIndex(const QVector<Carver> &carvers);

    /// Whether any magic may stand in the sector.
    bool mayBegin(const uchar *sector) const
    {
        for (const Place &place : m_places)
            if (place.candidates(sector) != 0)
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

    static bool stands(const Magic &magic, const uchar *sector);
    void add(const Carver &carver);

    std::vector<Place> m_places;
};

} // namespace services::recoveryd
