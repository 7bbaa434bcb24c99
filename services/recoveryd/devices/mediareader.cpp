#include "recoveryd/devices/mediareader.h"

#include <algorithm>
#include <cstring>

namespace services::recoveryd {

namespace {

constexpr qint64 kMaxRead = 64 * 1024 * 1024;
constexpr qint64 kSector = 512;
constexpr qint64 kBlock = 4096;
// From here on a read is one of a sweep, which may come back later.
constexpr qint64 kLargeRead = 256 * 1024;
constexpr qint64 kFirstSkip = 64 * 1024;
constexpr qint64 kLongestSkip = 16 * 1024 * 1024;
// So many failures in a row, of sectors and their blocks, are a dead area.
constexpr int kHopeless = 512;
constexpr qint64 kLongestRetrySkip = 64 * 1024 * 1024;

} // namespace

MediaReader::MediaReader(const Volume &volume, Policy policy)
    : m_volume(volume)
    , m_policy(policy)
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
    if (inside <= 0)
        return lost;
    const bool isLarge = inside >= kLargeRead;
    if (m_lostBytes == 0)
        return lost + readInside(offset, to, inside, isLarge);

    // What is known to be bad is not tried again.
    Ranges known;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const Ranges &bad = m_unreadable;
        known = intersected({{offset, inside}}, isLarge ? joinedRanges(bad + m_skipped) : bad);
    }
    for (const Range &range : qAsConst(known)) {
        std::memset(to + (range.start - offset), 0, size_t(range.length));
        lost += range.length;
    }
    const Ranges rest = subtracted({{offset, inside}}, known);
    for (const Range &range : rest)
        lost += readInside(range.start, to + (range.start - offset), range.length, isLarge);
    return lost;
}

qint64 MediaReader::readInside(qint64 offset, char *to, qint64 length, bool isLarge) const
{
    if (!m_isGone && readExactly(offset, to, length)) {
        if (m_skippedBytes > 0)
            forgetSkipped({offset, length});
        return 0;
    }
    Losses losses;
    readPiecewise(offset, to, length, isLarge, &losses);
    remember(losses);
    return totalLength(losses.unreadable) + totalLength(losses.skipped);
}

bool MediaReader::readExactly(qint64 offset, char *to, qint64 length) const
{
    if (m_volume.read(offset, to, length, nullptr)) {
        m_skip = 0;
        m_failedInARow = 0;
        return true;
    }
    ++m_failedInARow;
    if (m_volume.image()->isGone())
        m_isGone = true;
    return false;
}

/// Block by block, a bad block sector by sector, so that one bad place costs no more than itself.
/// With `maySkip` a bad block is not looked at more closely, and what follows it is left out.
void MediaReader::readPiecewise(qint64 offset, char *to, qint64 length, bool maySkip,
                                Losses *losses) const
{
    for (qint64 at = 0; at < length;) {
        qint64 step = qMin(length - at, kBlock - (offset + at) % kBlock);
        if (m_isGone) {
            step = length - at;
            std::memset(to + at, 0, size_t(step));
            losses->unreadable.append({offset + at, step});
        } else if (readExactly(offset + at, to + at, step)) {
            // on to the next one
        } else if (maySkip && (m_policy == Policy::Sweep || m_failedInARow > kHopeless)) {
            const qint64 skip = qMax(kFirstSkip, qint64(m_skip));
            m_skip = qMin(2 * skip, kLongestSkip);
            step = qMin(length - at, skip);
            std::memset(to + at, 0, size_t(step));
            losses->skipped.append({offset + at, step});
        } else {
            readSectors(offset + at, to + at, step, losses);
        }
        at += step;
    }
}

void MediaReader::readSectors(qint64 offset, char *to, qint64 length, Losses *losses) const
{
    for (qint64 at = 0; at < length;) {
        const qint64 step = qMin(length - at, kSector - (offset + at) % kSector);
        if (m_isGone || !readExactly(offset + at, to + at, step)) {
            std::memset(to + at, 0, size_t(step));
            losses->unreadable.append({offset + at, step});
        }
        at += step;
    }
}

QByteArray MediaReader::read(qint64 offset, qint64 length) const
{
    if (length <= 0 || length > kMaxRead)
        return QByteArray();
    QByteArray bytes(int(length), Qt::Uninitialized);
    read(offset, bytes.data(), length);
    return bytes;
}

/// From the front and, for what is left, from the back; steps grow within a dead area, so that one
/// of gigabytes costs a few dozen attempts.
void MediaReader::retryRange(const Range &range, bool isForward,
                             const std::function<bool()> &mayGoOn, Ranges *tried,
                             Losses *losses) const
{
    QByteArray piece(int(kBlock), Qt::Uninitialized);
    qint64 jump = 0;
    for (qint64 done = 0; done < range.length && !m_isGone && mayGoOn();) {
        const qint64 step = qMin(kBlock, range.length - done);
        const qint64 at = isForward ? range.start + done : range.end() - done - step;
        const int before = losses->unreadable.size();
        readPiecewise(at, piece.data(), step, false, losses);
        tried->append({at, step});
        const bool isGood = losses->unreadable.size() == before;
        jump = isGood ? 0 : qBound(kBlock, 2 * jump, kLongestRetrySkip);
        // The block after a bad one is read: most bad places are small.
        done += step + (jump > kBlock ? jump : 0);
    }
}

Ranges MediaReader::retrySkipped(const std::function<bool()> &mayGoOn) const
{
    Ranges readable;
    for (const bool isForward : {true, false}) {
        Ranges skipped;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            skipped = m_skipped;
        }
        Ranges tried;
        Losses losses;
        for (const Range &range : qAsConst(skipped))
            retryRange(range, isForward, mayGoOn, &tried, &losses);
        tried = joinedRanges(tried);
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_skipped = subtracted(m_skipped, tried);
        }
        remember(losses);
        readable += subtracted(tried, joinedRanges(losses.unreadable));
    }
    return joinedRanges(readable);
}

void MediaReader::remember(const Losses &losses) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!losses.unreadable.isEmpty()) {
        m_unreadable = joinedRanges(m_unreadable + losses.unreadable);
        m_skipped = subtracted(m_skipped, m_unreadable);
    }
    if (!losses.skipped.isEmpty())
        m_skipped = subtracted(joinedRanges(m_skipped + losses.skipped), m_unreadable);
    countLosses();
}

/// A small read has got what a large one skipped.
void MediaReader::forgetSkipped(const Range &read) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_skipped = subtracted(m_skipped, {read});
    countLosses();
}

/// With m_mutex held.
void MediaReader::countLosses() const
{
    m_skippedBytes = totalLength(m_skipped);
    m_lostBytes = m_skippedBytes + totalLength(m_unreadable);
}

Ranges MediaReader::badRanges() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return joinedRanges(m_unreadable + m_skipped);
}

bool MediaReader::hasBadBytes(const Range &range) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return overlapOf({range}, m_unreadable) > 0 || overlapOf({range}, m_skipped) > 0;
}

} // namespace services::recoveryd
