#include "recoveryd/content/contentreader.h"

#include "recoveryd/content/codec.h"

#include <algorithm>
#include <cstring>

namespace services::recoveryd {

namespace {

constexpr qint64 kMaxWhole = 64 * 1024 * 1024;

/// The first stretch that ends behind `offset`.
template <typename T>
const T *firstBehind(const QVector<T> &extents, qint64 offset)
{
    return std::partition_point(extents.cbegin(), extents.cend(), [offset](const T &extent) {
        return extent.logical + extent.length <= offset;
    });
}

} // namespace

ContentReader::ContentReader(const MediaReader &media, const FileContent &content)
    : m_media(media)
    , m_content(content)
{}

void ContentReader::read(qint64 offset, char *to, qint64 length)
{
    std::memset(to, 0, size_t(length));
    const qint64 inlineLength = m_content.inlineBytes.size() - offset;
    if (inlineLength > 0)
        std::memcpy(to, m_content.inlineBytes.constData() + offset,
                    size_t(qMin(length, inlineLength)));
    readPlain(offset, to, length);
    const qint64 end = offset + length;
    for (const PackedExtent *extent = firstBehind(m_content.packed, offset);
         extent != m_content.packed.cend() && extent->logical < end; ++extent) {
        const qint64 from = qMax(offset, extent->logical);
        readPacked(*extent, from, qMin(end, extent->logical + extent->length),
                   to + (from - offset));
    }
}

void ContentReader::readPlain(qint64 offset, char *to, qint64 length)
{
    const qint64 end = offset + length;
    for (const Extent *extent = firstBehind(m_content.extents, offset);
         extent != m_content.extents.cend() && extent->logical < end; ++extent) {
        const qint64 from = qMax(offset, extent->logical);
        const qint64 part = qMin(end, extent->logicalEnd()) - from;
        m_lostBytes +=
            m_media.read(extent->physical + (from - extent->logical), to + (from - offset), part);
    }
}

bool ContentReader::unpack(const PackedExtent &extent)
{
    if (m_unpackedExtent == &extent)
        return m_isUnpackedGood;
    m_unpackedExtent = &extent;
    QByteArray stored = extent.inlineBytes;
    qint64 lost = 0;
    for (const Range &range : extent.stored) {
        if (range.length < 0 || range.length > kMaxWhole || stored.size() > kMaxWhole)
            return m_isUnpackedGood = false;
        const int at = stored.size();
        stored.resize(at + int(range.length));
        lost += m_media.read(range.start, stored.data() + at, range.length);
    }
    m_isUnpackedGood = lost == 0 && decompress(extent.codec, stored, extent.unpacked, &m_unpacked);
    return m_isUnpackedGood;
}

void ContentReader::readPacked(const PackedExtent &extent, qint64 from, qint64 to, char *target)
{
    const qint64 at = extent.skip + (from - extent.logical);
    const qint64 length = to - from;
    if (unpack(extent) && at >= 0 && at <= m_unpacked.size() - length)
        std::memcpy(target, m_unpacked.constData() + at, size_t(length));
    else
        m_lostBytes += length;
}

QByteArray ContentReader::readAll()
{
    if (m_content.size < 0 || m_content.size > kMaxWhole)
        return QByteArray();
    QByteArray bytes(int(m_content.size), Qt::Uninitialized);
    read(0, bytes.data(), bytes.size());
    return bytes;
}

} // namespace services::recoveryd
