#pragma once

#include <QByteArray>
#include <QJsonObject>

namespace core {
namespace ipc {

/// One frame: the four bytes "KVSF", the body length as an unsigned 32-bit big-endian number, then
/// the body, one compact JSON object in UTF-8. The codec knows no socket and serves both sides.
constexpr int kFrameHeaderSize = 8;

/// Puts a header before the body. Bodies are limited by QByteArray to 2 GiB.
QByteArray encodeFrame(const QByteArray &body);

/// encodeFrame() of the compact JSON text.
QByteArray encodeJsonFrame(const QJsonObject &object);

/// Incremental decoder. Bytes go in as they come; next() takes one complete body out at a time.
class FrameDecoder
{
public:
    enum class Result {
        NeedMore, ///< No complete frame yet. Fewer than 8 bytes are never judged.
        Frame,    ///< `body` holds the next frame's body, which may be empty.
        BadMagic, ///< The stream is lost; there is no way to find the next frame.
    };

    void append(const QByteArray &bytes);
    Result next(QByteArray *body);
    void clear();
    /// Bytes received and not yet taken out.
    int bufferedBytes() const { return m_buffer.size() - m_consumed; }

private:
    QByteArray m_buffer;
    int m_consumed = 0; ///< Bytes at the front that earlier frames used up; dropped in bulk.
};

} // namespace ipc
} // namespace core
