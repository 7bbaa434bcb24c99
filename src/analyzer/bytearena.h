#pragma once

#include <cstring>
#include <memory>
#include <vector>

/// Keeps many short byte strings for little more than their length; all go together.
class ByteArena
{
public:
    /// A copy of a string that ends with a NUL; valid as long as the arena.
    const char *store(const char *bytes)
    {
        const std::size_t length = std::strlen(bytes) + 1;
        if (m_blocks.empty() || m_free < length) {
            const std::size_t size = length > kBlockSize ? length : kBlockSize;
            m_blocks.emplace_back(new char[size]);
            m_next = m_blocks.back().get();
            m_free = size;
        }
        char *copy = m_next;
        std::memcpy(copy, bytes, length);
        m_next += length;
        m_free -= length;
        return copy;
    }

private:
    static constexpr std::size_t kBlockSize = 64 * 1024;

    std::vector<std::unique_ptr<char[]>> m_blocks;
    char *m_next = nullptr;
    std::size_t m_free = 0;
};
