#include "recoveryd/btrfs/nodesweep.h"

namespace services::recoveryd::btrfs {

namespace {

constexpr qint64 kPiece = 4 * 1024 * 1024;
constexpr int kMaxFormats = 64;

} // namespace

bool NodeSweep::run(const Ranges &ranges, ScanObserver &observer)
{
    const Ranges device = {{0, m_media.size()}};
    const Ranges wanted = subtracted(intersected(device, joinedRanges(ranges)), m_swept);
    for (const Range &range : wanted)
        if (!sweepRange(range, observer))
            return false;
    m_swept = joinedRanges(m_swept + wanted);
    return true;
}

bool NodeSweep::sweepRange(const Range &range, ScanObserver &observer)
{
    QByteArray buffer(int(qMin(range.length, kPiece) + kMaxNodeSize), Qt::Uninitialized);
    // A node that reaches into the next piece is not looked at again there.
    qint64 next = (range.start + kNodeAlignment - 1) / kNodeAlignment * kNodeAlignment;
    for (qint64 at = range.start; at < range.end(); at += kPiece) {
        if (!observer.mayGoOn() || m_media.isGone())
            return false;
        const qint64 length = qMin(kPiece, range.end() - at);
        const qint64 read = qMin(length + kMaxNodeSize, m_media.size() - at);
        m_media.read(at, buffer.data(), read);
        while (next < at + length) {
            const char *const bytes = buffer.constData() + (next - at);
            const int format = formatOf(bytes, at + read - next);
            if (format >= 0)
                m_visit(format, next, NodeView(bytes, m_formats.at(format).nodeSize));
            next += format >= 0 ? m_formats.at(format).nodeSize : kNodeAlignment;
        }
        m_done += length;
        observer.advanced(m_done);
    }
    return true;
}

int NodeSweep::formatOf(const char *bytes, qint64 left)
{
    if (left < kMinNodeSize || !looksLikeNode(bytes))
        return -1;
    bool isKnown = false;
    for (int i = 0; i < m_formats.size(); ++i) {
        const NodeFormat &format = m_formats.at(i);
        if (std::memcmp(bytes + 32, format.id.data(), format.id.size()) != 0)
            continue;
        isKnown = true;
        if (left >= format.nodeSize && isNode(bytes, format))
            return i;
    }
    NodeFormat format;
    if (isKnown || m_formats.size() >= kMaxFormats || !deriveFormat(bytes, left, &format))
        return -1;
    m_formats.append(format);
    return m_formats.size() - 1;
}

} // namespace services::recoveryd::btrfs
