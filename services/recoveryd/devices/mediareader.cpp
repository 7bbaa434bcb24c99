#include "recoveryd/devices/mediareader.h"

#include <algorithm>
#include <cstring>

namespace services::recoveryd {

namespace {

constexpr qint64 kMaxRead = 64 * 1024 * 1024;
constexpr qint64 kSector = 512;
constexpr qint64 kBlock = 4096;

} // namespace

MediaReader::MediaReader(const Volume &volume)
    : m_volume(volume)
{}

qint64 MediaReader::read(qint64 offset, char *to, qint64 length) const
{
    qint64 lost = 0;
    if (offset < 0) {
        const qint64 outside = qMin(length, -offset);
        std::memset(to, 0, size_t(outside));
        lost += outside;
        offset += outside;
        to += outside;
        length -= outside;
    }
    const qint64 inside = qBound(qint64(0), m_volume.size() - offset, length);
    if (inside < length) {
        std::memset(to + inside, 0, size_t(length - inside));
        lost += length - inside;
    }
    if (inside <= 0 || m_volume.read(offset, to, inside, nullptr))
        return lost;
    return lost + readPiecewise(offset, to, inside);
}

/// Block by block, a bad block sector by sector, so that one bad place costs no more than itself.
qint64 MediaReader::readPiecewise(qint64 offset, char *to, qint64 length) const
{
    qint64 lost = 0;
    for (qint64 at = 0; at < length;) {
        const qint64 step = qMin(length - at, kBlock - (offset + at) % kBlock);
        if (!m_volume.read(offset + at, to + at, step, nullptr)) {
            for (qint64 i = 0; i < step;) {
                const qint64 part = qMin(step - i, kSector - (offset + at + i) % kSector);
                if (!m_volume.read(offset + at + i, to + at + i, part, nullptr)) {
                    std::memset(to + at + i, 0, size_t(part));
                    addBad(offset + at + i, part);
                    lost += part;
                }
                i += part;
            }
        }
        at += step;
    }
    return lost;
}

QByteArray MediaReader::read(qint64 offset, qint64 length) const
{
    if (length <= 0 || length > kMaxRead)
        return QByteArray();
    QByteArray bytes(int(length), Qt::Uninitialized);
    read(offset, bytes.data(), length);
    return bytes;
}

void MediaReader::addBad(qint64 offset, qint64 length) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto at = std::partition_point(
        m_bad.begin(), m_bad.end(), [offset](const Range &range) { return range.end() < offset; });
    if (at != m_bad.end() && at->start <= offset) {
        at->length = qMax(at->end(), offset + length) - at->start;
        return;
    }
    m_bad.insert(at, {offset, length});
}

Ranges MediaReader::badRanges() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_bad;
}

bool MediaReader::hasBadBytes(const Range &range) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto at = std::partition_point(m_bad.cbegin(), m_bad.cend(), [&range](const Range &bad) {
        return bad.end() <= range.start;
    });
    return at != m_bad.cend() && at->start < range.end();
}

} // namespace services::recoveryd
