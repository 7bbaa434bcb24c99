#include "recoveryd/carve/windowreader.h"

#include <algorithm>
#include <cstring>

namespace services::recoveryd {

namespace {

constexpr qint64 kReadAlignment = 4096;

/// Several times faster here than memmem(), since the first byte of a token is seldom in the data.
qint64 firstIn(const uchar *bytes, qint64 length, const char *token, qint64 tokenLength)
{
    const qint64 end = length - tokenLength + 1;
    for (qint64 i = 0; i < end; ++i) {
        const void *const hit = std::memchr(bytes + i, token[0], size_t(end - i));
        if (!hit)
            break;
        i = static_cast<const uchar *>(hit) - bytes;
        if (std::memcmp(bytes + i, token, size_t(tokenLength)) == 0)
            return i;
    }
    return -1;
}

} // namespace

WindowReader::WindowReader(const MediaReader &media, const QVector<Range> &pieces,
                           std::function<bool()> mayGoOn)
    : m_media(media)
    , m_mayGoOn(std::move(mayGoOn))
{
    for (const Range &piece : pieces) {
        if (piece.length <= 0)
            continue;
        m_pieces.push_back({m_size, piece});
        m_size += piece.length;
    }
    m_end = m_size;
    m_window.resize(size_t(qMin(kWindow, m_size)));
}

const WindowReader::Piece *WindowReader::pieceAt(qint64 offset) const
{
    const auto behind =
        std::partition_point(m_pieces.begin(), m_pieces.end(),
                             [offset](const Piece &piece) { return piece.offset <= offset; });
    return behind == m_pieces.begin() ? nullptr : &*(behind - 1);
}

QVector<Range> WindowReader::placesOf(qint64 offset, qint64 length) const
{
    QVector<Range> places;
    length = qMin(length, m_size - offset);
    const Piece *const end = m_pieces.data() + m_pieces.size();
    for (const Piece *piece = pieceAt(offset); piece && piece != end && length > 0; ++piece) {
        const qint64 into = offset - piece->offset;
        const qint64 part = qMin(length, piece->place.length - into);
        places.append({piece->place.start + into, part});
        offset += part;
        length -= part;
    }
    return places;
}

bool WindowReader::fill(qint64 offset, qint64 least)
{
    if (!m_error.isEmpty() || !m_mayGoOn())
        return false;
    const qint64 start = offset - offset % kReadAlignment;
    const qint64 length = qMin(kWindow, m_size - start);
    if (offset + least > start + length)
        return false;
    qint64 at = 0;
    for (const Range &place : placesOf(start, length)) {
        m_media.read(place.start, reinterpret_cast<char *>(m_window.data()) + at, place.length);
        at += place.length;
    }
    if (m_media.isGone()) {
        m_length = 0;
        m_error = QStringLiteral("设备已断开");
        return false;
    }
    m_start = start;
    m_length = length;
    m_bytesRead += length;
    return true;
}

const uchar *WindowReader::at(qint64 offset, qint64 length)
{
    if (offset < 0 || length < 0 || length > kMaxPiece || offset > m_end || length > m_end - offset)
        return nullptr;
    const bool isHeld = offset >= m_start && offset + length <= m_start + m_length;
    if (!isHeld && !fill(offset, length))
        return nullptr;
    return m_window.data() + (offset - m_start);
}

WindowReader::Span WindowReader::span(qint64 offset)
{
    const uchar *const bytes = at(offset, 1);
    if (!bytes)
        return Span();
    return {bytes, qMin(m_start + m_length, m_end) - offset};
}

qint64 WindowReader::find(qint64 from, qint64 to, const char *token, qint64 tokenLength)
{
    to = qMin(to, m_end);
    while (from >= 0 && from + tokenLength <= to) {
        // A window that ends inside a possible hit is moved on before the search.
        if (!at(from, tokenLength))
            return -1;
        const Span held = span(from);
        const qint64 length = qMin(held.length, to - from);
        const qint64 hit = firstIn(held.bytes, length, token, tokenLength);
        if (hit >= 0)
            return from + hit;
        from += length - tokenLength + 1;
    }
    return -1;
}

} // namespace services::recoveryd
