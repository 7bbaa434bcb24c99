#pragma once

#include <QtGlobal>

#include <vector>

namespace services::recoveryd {

/// A map from 64-bit hashes to numbers above 0 that takes 12 bytes a slot. Several numbers may have
/// one hash. Nothing is ever removed.
class HashIndex
{
public:
    HashIndex() { resize(1024); }

    void insert(quint64 hash, int number)
    {
        if (m_count * 10 >= m_numbers.size() * 7)
            resize(m_numbers.size() * 2);
        put(hash, number);
        ++m_count;
    }

    /// Calls `visit` with each number of the hash, until it returns true.
    template <typename Visit>
    void find(quint64 hash, Visit visit) const
    {
        for (std::size_t i = slotOf(hash); m_numbers[i] != 0; i = (i + 1) & (m_numbers.size() - 1))
            if (m_hashes[i] == hash && visit(m_numbers[i]))
                return;
    }

private:
    std::size_t slotOf(quint64 hash) const
    {
        return std::size_t((hash * 0x9E3779B97F4A7C15u) >> 20) & (m_numbers.size() - 1);
    }
    void put(quint64 hash, int number)
    {
        std::size_t i = slotOf(hash);
        while (m_numbers[i] != 0)
            i = (i + 1) & (m_numbers.size() - 1);
        m_hashes[i] = hash;
        m_numbers[i] = number;
    }
    void resize(std::size_t size)
    {
        std::vector<quint64> hashes(size);
        std::vector<int> numbers(size);
        hashes.swap(m_hashes);
        numbers.swap(m_numbers);
        for (std::size_t i = 0; i < numbers.size(); ++i)
            if (numbers[i] != 0)
                put(hashes[i], numbers[i]);
    }

    std::vector<quint64> m_hashes;
    std::vector<int> m_numbers; ///< 0: an empty slot.
    std::size_t m_count = 0;
};

} // namespace services::recoveryd
