#include "search/names/bytefinder.h"

#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace search::names {

ByteFinder::ByteFinder(const QByteArray &needle, const ByteCounts &counts)
    : m_needle(needle)
{
    const auto count = [&](int i) {
        return counts[static_cast<unsigned char>(needle.at(i))];
    };
    for (int i = 1; i < needle.size(); ++i) {
        if (count(i) < count(m_rarest))
            m_rarest = i;
    }
    m_second = m_rarest == 0 ? needle.size() - 1 : 0;
    for (int i = 0; i < needle.size(); ++i) {
        if (i != m_rarest && count(i) < count(m_second))
            m_second = i;
    }
}

const char *ByteFinder::find(const char *from, const char *end) const
{
    const size_t size = size_t(m_needle.size());
    if (size == 0)
        return from;
    if (size_t(end - from) < size)
        return end;
#ifdef __SSE2__
    const __m128i rarest = _mm_set1_epi8(m_needle.at(m_rarest));
    const __m128i second = _mm_set1_epi8(m_needle.at(m_second));
    const auto load = [](const char *at) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i *>(at));
    };
    // Sixteen places, each with room for the whole needle.
    for (; size_t(end - from) >= size + 15; from += 16) {
        const __m128i both = _mm_and_si128(_mm_cmpeq_epi8(load(from + m_rarest), rarest),
                                           _mm_cmpeq_epi8(load(from + m_second), second));
        for (int mask = _mm_movemask_epi8(both); mask != 0; mask &= mask - 1) {
            const char *place = from + __builtin_ctz(unsigned(mask));
            if (std::memcmp(place, m_needle.constData(), size) == 0)
                return place;
        }
    }
#endif
    const void *place = ::memmem(from, size_t(end - from), m_needle.constData(), size);
    return place ? static_cast<const char *>(place) : end;
}

bool ByteFinder::isIn(const char *from, const char *end) const
{
    return m_needle.isEmpty() || find(from, end) != end;
}

} // namespace search::names
