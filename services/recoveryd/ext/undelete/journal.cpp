#include "recoveryd/ext/undelete/journal.h"

#include "recoveryd/devices/bytes.h"
#include "recoveryd/devices/crc32c.h"

#include <algorithm>
#include <cstring>

namespace services::recoveryd::ext {

namespace {

constexpr quint32 kMagic = 0xC03B3998; // big endian, as everything in a journal
constexpr int kHeaderSize = 12;
enum BlockType : quint32 {
    Descriptor = 1,
    Commit = 2,
    SuperblockV1 = 3,
    SuperblockV2 = 4,
    Revoke = 5
};

constexpr quint32 k64Bit = 0x2; // incompatible features
constexpr quint32 kChecksumV2 = 0x8;
constexpr quint32 kChecksumV3 = 0x10;
constexpr quint32 kFastCommits = 0x20;
constexpr qint64 kUsualFastCommitBlocks = 256;

constexpr quint32 kEscaped = 1; // tag flags
constexpr quint32 kSameUuid = 2;
constexpr quint32 kLastTag = 8;

constexpr qint64 kWindow = 1 << 20;
constexpr qint64 kMaxJournalBytes = qint64(64) << 30;

bool isHeader(const QByteArray &bytes)
{
    return Fields(bytes).be32(0) == kMagic;
}

} // namespace

bool Journal::open(const std::vector<std::pair<qint64, qint64>> &runs)
{
    for (const auto &run : runs) {
        if (run.first <= 0 || run.second <= 0 || run.first > m_layout.super().blockCount ||
            (m_blockCount + run.second) * m_layout.blockSize() > kMaxJournalBytes)
            break;
        m_runs.push_back(run);
        m_runStarts.push_back(quint32(m_blockCount));
        m_blockCount += run.second;
    }
    return m_blockCount > 2 && parseSuperblock(read(0));
}

bool Journal::parseSuperblock(const QByteArray &bytes)
{
    const Fields at(bytes);
    const quint32 type = at.be32(4);
    if (!isHeader(bytes) || (type != SuperblockV1 && type != SuperblockV2) ||
        at.be32(12) != m_layout.blockSize())
        return false;
    m_blockCount = qMin(m_blockCount, qint64(at.be32(16)));
    m_first = qBound(quint32(1), at.be32(20), quint32(qMax(qint64(1), m_blockCount - 1)));
    m_sequence = at.be32(24);
    m_start = at.be32(28);
    if (type == SuperblockV2)
        m_features = at.be32(40);
    m_seed = crc32c(~quint32(0), bytes.constData() + 48, 16);
    qint64 fastBlocks = 0;
    if (hasFeature(kFastCommits))
        fastBlocks = at.be32(84) > 0 ? at.be32(84) : kUsualFastCommitBlocks;
    m_end = quint32(qMax(qint64(m_first), m_blockCount - fastBlocks));
    return m_blockCount > 2;
}

qint64 Journal::placeOf(quint32 at) const
{
    if (at >= m_blockCount)
        return 0;
    const auto behind = std::upper_bound(m_runStarts.begin(), m_runStarts.end(), at);
    const size_t run = size_t(behind - m_runStarts.begin()) - 1;
    return m_runs[run].first + (at - m_runStarts[run]);
}

QByteArray Journal::read(quint32 at) const
{
    // Windows of a MiB that stand in one piece: the sweep reads each once, and so do most look-ups.
    const qint64 size = m_layout.blockSize();
    const qint64 block = placeOf(at);
    if (block == 0)
        return QByteArray(int(size), '\0');
    const qint64 offset = block * size;
    if (m_windowAt < 0 || offset < m_windowAt || offset + size > m_windowAt + m_window.size()) {
        const size_t run = size_t(std::upper_bound(m_runStarts.begin(), m_runStarts.end(), at) -
                                  m_runStarts.begin()) -
                           1;
        const qint64 left = m_runs[run].second - (at - m_runStarts[run]);
        m_window = m_layout.media().read(offset, qMin(qMax(kWindow, size), left * size));
        m_windowAt = offset;
    }
    return m_window.mid(int(offset - m_windowAt), int(size));
}

QByteArray Journal::read(const Version &version) const
{
    QByteArray bytes = read(version.at);
    if (version.isEscaped)
        qToBigEndian(kMagic, bytes.data());
    return bytes;
}

bool Journal::sweep(const Placed &placed, const GoesOn &goesOn)
{
    const quint32 step = quint32(qMax(qint64(1), kWindow / m_layout.blockSize()));
    for (quint32 at = m_first; at < m_end; ++at) {
        if (at % step == 0 && !goesOn(qint64(at) * m_layout.blockSize()))
            return false;
        const QByteArray bytes = read(at);
        if (isHeader(bytes))
            readHeader(at, bytes);
        else
            place(at, bytes, placed);
    }
    for (quint32 at : m_unsettled)
        m_strays.push_back({at, kAnyTime});
    m_unsettled.clear();
    placeWrapped(placed);
    m_history.finish();
    findPending();
    return true;
}

void Journal::readHeader(quint32 at, const QByteArray &bytes)
{
    const quint32 type = Fields(bytes).be32(4);
    const quint32 sequence = Fields(bytes).be32(8);
    const Order order = orderOf(sequence);
    if (!m_hasHeader) {
        m_hasHeader = true;
        m_firstHeader = at;
    }
    // Data of a descriptor never look like a header: what it claims beyond is gone.
    m_claims = Claims();
    // What stands before a header without one of its own belongs to the header's transaction, or,
    // as revokes begin one, to an earlier one.
    settleStrays(type == Revoke ? order - 1 : order);
    if (type == Descriptor && hasRightTail(bytes))
        readDescriptor(bytes, sequence);
    else if (type == Revoke && hasRightTail(bytes))
        readRevokes(bytes, order);
    else if (type == Commit)
        m_commits[order] = qint64(Fields(bytes).be64(48));
}

void Journal::settleStrays(Order order)
{
    for (quint32 at : m_unsettled)
        m_strays.push_back({at, order});
    m_unsettled.clear();
}

void Journal::readDescriptor(const QByteArray &bytes, quint32 sequence)
{
    const Fields at(bytes);
    const bool isV3 = hasFeature(kChecksumV3);
    const bool isV2 = hasFeature(kChecksumV2);
    const int tagSize = isV3 ? 16 : (hasFeature(k64Bit) ? 12 : 8) + (isV2 ? 2 : 0);
    const int end = bytes.size() - (isV2 || isV3 ? 4 : 0);
    m_claims.sequence = sequence;
    for (int tag = kHeaderSize; tag + tagSize <= end;) {
        Tag read;
        read.flags =
            isV3 ? at.be32(tag + 4) : quint32(qFromBigEndian<quint16>(bytes.constData() + tag + 6));
        const quint32 high = hasFeature(k64Bit) ? at.be32(tag + 8) : 0;
        read.block = qint64((quint64(high) << 32) | at.be32(tag));
        read.checksum = isV3 ? at.be32(tag + 12)
                             : quint32(qFromBigEndian<quint16>(bytes.constData() + tag + 4));
        if (read.block < 0 || read.block >= m_layout.super().blockCount)
            return;
        m_claims.tags.push_back(read);
        if (read.flags & kLastTag)
            return;
        tag += tagSize + ((read.flags & kSameUuid) ? 0 : 16);
    }
}

void Journal::readRevokes(const QByteArray &bytes, Order order)
{
    const Fields at(bytes);
    const int size = hasFeature(k64Bit) ? 8 : 4;
    const int end = int(qMin(qint64(at.be32(12)), qint64(bytes.size())));
    for (int record = 16; record + size <= end; record += size)
        m_history.addRevoke(size == 8 ? qint64(at.be64(record)) : qint64(at.be32(record)), order);
}

bool Journal::hasRightTail(const QByteArray &bytes) const
{
    if (!hasFeature(kChecksumV2 | kChecksumV3))
        return true;
    const char zeros[4] = {};
    const int tail = bytes.size() - 4;
    return crc32c(crc32c(m_seed, bytes.constData(), tail), zeros, 4) == Fields(bytes).be32(tail);
}

bool Journal::hasRightChecksum(const Tag &tag, quint32 sequence, const QByteArray &bytes) const
{
    if (!hasFeature(kChecksumV2 | kChecksumV3))
        return true;
    char number[4];
    qToBigEndian(sequence, number);
    const quint32 crc = crc32c(crc32c(m_seed, number, 4), bytes.constData(), bytes.size());
    return hasFeature(kChecksumV3) ? crc == tag.checksum : quint16(crc) == quint16(tag.checksum);
}

void Journal::place(quint32 at, const QByteArray &bytes, const Placed &placed)
{
    if (m_claims.next >= m_claims.tags.size()) {
        m_unsettled.push_back(at);
        return;
    }
    const Tag &tag = m_claims.tags[m_claims.next++];
    if (!hasRightChecksum(tag, m_claims.sequence, bytes)) {
        m_strays.push_back({at, orderOf(m_claims.sequence)});
        return;
    }
    const Version version = {tag.block, orderOf(m_claims.sequence), at,
                             (tag.flags & kEscaped) != 0};
    m_history.add(version);
    if (!version.isEscaped) {
        placed(version, bytes);
        return;
    }
    QByteArray original = bytes;
    qToBigEndian(kMagic, original.data());
    placed(version, original);
}

/// The last descriptor of the journal may go on at its beginning, up to the first header there.
void Journal::placeWrapped(const Placed &placed)
{
    const quint32 limit = m_hasHeader ? m_firstHeader : m_first;
    std::vector<Stray> strays;
    strays.swap(m_strays);
    for (const Stray &stray : strays) {
        const bool isContinued = stray.at < limit && m_claims.next < m_claims.tags.size();
        if (isContinued)
            place(stray.at, read(stray.at), placed);
        else
            m_strays.push_back(stray);
    }
    m_claims = Claims();
}

void Journal::findPending()
{
    for (const auto &commit : m_commits) {
        // A clock that was set back must not make an order of its own.
        const qint64 before = m_commitTimes.empty() ? 0 : m_commitTimes.back().first;
        m_commitTimes.emplace_back(qMax(before, commit.second), commit.first);
    }
    if (m_start == 0)
        return;
    for (auto commit = m_commits.find(kSequenceBase);
         commit != m_commits.end() && commit->first == m_pendingEnd; ++commit)
        ++m_pendingEnd;
}

const Version *Journal::pending(qint64 block) const
{
    if (!hasPending())
        return nullptr;
    const Version *version = m_history.newest(block, m_pendingEnd - 1);
    if (!version || version->order < kSequenceBase ||
        m_history.isRevoked(block, version->order, m_pendingEnd - 1))
        return nullptr;
    return version;
}

qint64 Journal::commitTime(Order order) const
{
    const auto commit = m_commits.find(order);
    return commit == m_commits.end() ? 0 : commit->second;
}

Order Journal::orderAt(qint64 seconds) const
{
    const auto commit = std::lower_bound(m_commitTimes.begin(), m_commitTimes.end(),
                                         std::make_pair(seconds, kAnyTime));
    return commit == m_commitTimes.end() ? kNow : commit->second;
}

} // namespace services::recoveryd::ext
