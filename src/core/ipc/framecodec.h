#pragma once

#include <QByteArray>
#include <QJsonObject>

#include <limits>

namespace core {
namespace ipc {

/// One frame: the four bytes "KVSF", the body length as an unsigned 32-bit big-endian number, then
/// the body, one compact JSON object in UTF-8. The codec knows no socket and serves both sides.
constexpr int kFrameHeaderSize = 8;

/// The longest body that can be held, in bytes. The protocol itself allows 4 GiB - 1, but
/// QByteArray ends just under 2 GiB; 16 MiB below that leave room for what is read along with a
/// frame's end.
constexpr int kReadAheadSize = 16 * 1024 * 1024;
constexpr int kMaxBodySize = std::numeric_limits<int>::max() - kReadAheadSize;

/// Puts a header before the body. A body above kMaxBodySize gives an empty result.
QByteArray encodeFrame(const QByteArray &body);

/// encodeFrame() of the compact JSON text.
QByteArray encodeJsonFrame(const QJsonObject &object);

/// Incremental decoder. Bytes go in as they come; next() takes one complete body out at a time.
/// Memory follows the bytes that have arrived, never the length that a header announces, and the
/// cost of a stream is linear in its bytes however they are cut.
class FrameDecoder
{
public:
    enum class Result {
        NeedMore, ///< No complete frame yet. Fewer than 8 bytes are never judged.
        Frame,    ///< `body` holds the next frame's body, which may be empty.
        BadMagic, ///< The stream is lost; there is no way to find the next frame.
        TooLarge, ///< The next frame cannot be held in memory; told as soon as its header is there.
    };

    /// Bodies above `maxBodySize` bytes are refused.
    explicit FrameDecoder(int maxBodySize = kMaxBodySize)
        : m_maxBodySize(maxBodySize)
    {}

    /// Take out all complete frames after each call: more than one unfinished frame and
    /// kReadAheadSize bytes besides are not kept, and next() then ends in TooLarge.
    void append(const QByteArray &bytes);
    /// BadMagic and TooLarge repeat until clear().
    Result next(QByteArray *body);
    void clear();
    /// Bytes received and not yet taken out.
    int bufferedBytes() const { return m_buffer.size() - m_consumed; }

private:
    void dropConsumed();

    int m_maxBodySize;
    QByteArray m_buffer;
    int m_consumed = 0;      ///< Bytes at the front that earlier frames used up; dropped in bulk.
    bool m_overflow = false; ///< Bytes were not kept; what follows those held is lost.
};

} // namespace ipc
} // namespace core
