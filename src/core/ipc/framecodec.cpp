#include "core/ipc/framecodec.h"

#include <QJsonDocument>
#include <QtEndian>

#include <cstring>

namespace core {
namespace ipc {

namespace {

constexpr char kMagic[] = {'K', 'V', 'S', 'F'};
constexpr int kMagicSize = static_cast<int>(sizeof kMagic);

// Kept free below the largest int for QByteArray's own header and terminator.
constexpr int kByteArrayOverhead = 64;

} // namespace

QByteArray encodeFrame(const QByteArray &body)
{
    if (body.size() > kMaxBodySize)
        return QByteArray();

    QByteArray frame;
    frame.reserve(kFrameHeaderSize + body.size());
    frame.append(kMagic, kMagicSize);
    char length[sizeof(quint32)];
    qToBigEndian(static_cast<quint32>(body.size()), length);
    frame.append(length, sizeof length);
    frame.append(body);
    return frame;
}

QByteArray encodeJsonFrame(const QJsonObject &object)
{
    return encodeFrame(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

void FrameDecoder::append(const QByteArray &bytes)
{
    // Moving the rest to the front only when it is no longer than what is dropped keeps the total
    // work linear, for a flood of small frames as well as for one frame in many pieces.
    const int capacity = m_maxBodySize + (kReadAheadSize - kByteArrayOverhead);
    const bool tooFull = bytes.size() > capacity - m_buffer.size();
    if (m_consumed > 0 && (tooFull || m_consumed >= bufferedBytes()))
        dropConsumed();

    if (m_overflow || bytes.size() > capacity - m_buffer.size()) {
        m_overflow = true;
        return;
    }
    m_buffer.append(bytes);
}

FrameDecoder::Result FrameDecoder::next(QByteArray *body)
{
    const Result incomplete = m_overflow ? Result::TooLarge : Result::NeedMore;
    if (bufferedBytes() < kFrameHeaderSize)
        return incomplete;

    const char *header = m_buffer.constData() + m_consumed;
    if (std::memcmp(header, kMagic, sizeof kMagic) != 0)
        return Result::BadMagic;

    const quint32 length = qFromBigEndian<quint32>(header + sizeof kMagic);
    if (length > static_cast<quint32>(m_maxBodySize))
        return Result::TooLarge;
    const int bodySize = static_cast<int>(length);
    if (bufferedBytes() - kFrameHeaderSize < bodySize)
        return incomplete;

    *body = m_buffer.mid(m_consumed + kFrameHeaderSize, bodySize);
    m_consumed += kFrameHeaderSize + bodySize;
    if (m_consumed == m_buffer.size())
        dropConsumed();
    return Result::Frame;
}

void FrameDecoder::clear()
{
    m_buffer.clear();
    m_consumed = 0;
    m_overflow = false;
}

void FrameDecoder::dropConsumed()
{
    m_buffer.remove(0, m_consumed); // Gives the memory back when nothing is left.
    m_consumed = 0;
}

} // namespace ipc
} // namespace core
