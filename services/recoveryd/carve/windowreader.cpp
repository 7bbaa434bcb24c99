#include "recoveryd/carve/windowreader.h"

#include <algorithm>
#include <cstring>

namespace services::recoveryd {

namespace {

constexpr qint64 kReadAlignment = 4096;
// Of the last window, so that a piece which reaches into the next one is in one place.
constexpr qint64 kRoom = WindowReader::kMaxPiece + kReadAlignment;

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

/// The window around `offset` becomes the one that stays.
void WindowReader::stay(qint64 offset)
{
    m_isAside = true;
    if (!m_main.holds(offset, offset + 1) && m_side.holds(offset, offset + 1))
        std::swap(m_main, m_side);
}

const WindowReader::Window *WindowReader::holding(qint64 from, qint64 to) const
{
    return m_main.holds(from, to) ? &m_main : m_side.holds(from, to) ? &m_side : nullptr;
}

const WindowReader::Window *WindowReader::fill(qint64 offset, qint64 least)
{
    if (!m_error.isEmpty() || !m_mayGoOn())
        return nullptr;
    const qint64 start = offset - offset % kReadAlignment;
    // Who has got to the end of a window reads on; who jumps ahead may need a few bytes only.
    const Window *const before = holding(start, start + 1) ? holding(start, start + 1)
                                 : start == m_side.end()   ? &m_side
                                 : start == m_main.end()   ? &m_main
                                                           : nullptr;
    qint64 wanted = before ? qMax(kPeep, 2 * before->length) : m_isAside ? kPeep : kWindow;
    wanted = qMax(wanted, least + kReadAlignment);
    const qint64 length = qMin(qMin(kWindow, wanted), m_size - start);
    if (offset + least > start + length)
        return nullptr;
    Window *const window = m_isAside ? &m_side : &m_main;
    if (!takeNext(start, window)) {
        window->buffer.resize(size_t(kRoom + length));
        window->bytes = window->buffer.data() + kRoom;
        window->start = start;
        window->length = length;
        readRun(start, window->buffer.data() + kRoom, length);
    }
    if (m_media.isGone()) {
        m_main.length = m_side.length = 0;
        m_error = QStringLiteral("设备已断开");
        return nullptr;
    }
    m_bytesRead += window->length;
    const qint64 next = window->end();
    if (before && window->length >= kWindow && next < m_size) {
        if (!m_ahead)
            m_ahead = std::make_unique<ReadAhead>(
                [this](qint64 from, uchar *to, qint64 count) { readRun(from, to, count); });
        m_ahead->begin(next, qMin(kWindow, m_size - next), kRoom, kRoom + kWindow);
        m_aheadAt = next;
    }
    return window;
}

/// Makes the piece that was read ahead the window, with the bytes from `start` on before it. False
/// if another place was wanted.
bool WindowReader::takeNext(qint64 start, Window *window)
{
    const qint64 kept = m_aheadAt - start;
    if (m_aheadAt < 0 || kept < 0 || kept > kRoom)
        return false;
    uchar end[kRoom];
    if (kept > 0) {
        const Window *const last = holding(start, m_aheadAt);
        if (!last)
            return false;
        std::memcpy(end, last->bytes + (start - last->start), size_t(kept));
    }
    const qint64 read = m_ahead->take(m_aheadAt, &window->buffer);
    m_aheadAt = -1;
    if (read == 0)
        return false;
    uchar *const bytes = window->buffer.data() + kRoom - kept;
    std::memcpy(bytes, end, size_t(kept));
    window->bytes = bytes;
    window->start = start;
    window->length = kept + read;
    return true;
}

void WindowReader::readRun(qint64 offset, uchar *to, qint64 length) const
{
    for (const Range &place : placesOf(offset, length)) {
        m_media.read(place.start, reinterpret_cast<char *>(to), place.length);
        to += place.length;
    }
}

const uchar *WindowReader::at(qint64 offset, qint64 length)
{
    if (offset < 0 || length < 0 || length > kMaxPiece || offset > m_end || length > m_end - offset)
        return nullptr;
    const Window *window = holding(offset, offset + length);
    if (!window)
        window = fill(offset, length);
    return window ? window->bytes + (offset - window->start) : nullptr;
}

WindowReader::Span WindowReader::span(qint64 offset, qint64 least)
{
    const uchar *const bytes = at(offset, least);
    const Window *const window = holding(offset, offset + least);
    return bytes && window ? Span{bytes, qMin(window->end(), m_end) - offset} : Span();
}

WindowReader::Search &WindowReader::searchFor(const QByteArray &token, qint64 from)
{
    constexpr size_t kMaxHits = 1000 * 1000;
    // Who steps over the hit, or over what hangs on it, goes on with the same search.
    constexpr qint64 kLongestStep = 64 * 1024;
    auto known = std::find_if(m_searches.begin(), m_searches.end(),
                              [&token](const Search &search) { return search.token == token; });
    if (known == m_searches.end())
        known = m_searches.insert(known, {token, from, from, from, {}});
    else if (from < known->from || from > known->to + kLongestStep ||
             known->hits.size() >= kMaxHits)
        *known = {token, from, from, qMax(known->seenTo, from), {}};
    return *known;
}

qint64 WindowReader::find(qint64 from, qint64 to, const char *token, qint64 tokenLength)
{
    if (from < 0)
        return -1;
    to = qMin(to, m_end);
    Search &known = searchFor(QByteArray(token, int(tokenLength)), from);
    const auto seen = std::lower_bound(known.hits.begin(), known.hits.end(), from);
    if (seen != known.hits.end())
        return *seen + tokenLength <= to ? *seen : -1;
    while (known.to + tokenLength <= to) {
        // A window that ends inside a possible hit is moved on before the search.
        const qint64 before = m_bytesRead;
        const Span held = span(known.to, tokenLength);
        if (held.length < tokenLength)
            return -1;
        if (known.to >= known.seenTo)
            m_bytesRead = before;
        const qint64 length = qMin(held.length, to - known.to);
        const qint64 hit = firstIn(held.bytes, length, token, tokenLength);
        const qint64 place = known.to + hit;
        known.to = hit >= 0 ? place + 1 : known.to + length - tokenLength + 1;
        known.seenTo = qMax(known.seenTo, known.to);
        if (hit < 0)
            continue;
        known.hits.push_back(place);
        if (place >= from)
            return place;
    }
    return -1;
}

} // namespace services::recoveryd
