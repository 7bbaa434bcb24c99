#include "recoveryd/scan/carvingscanner.h"

#include <cstring>

namespace services {
namespace recoveryd {

namespace {

// A disk full of heads without ends must not cost the square of its size: beyond this many bytes
// looked through in vain, only their first
// few KiB are.
constexpr qint64 kFreeWaste = qint64(512) * 1024 * 1024;
constexpr qint64 kWasteFactor = 4;
constexpr qint64 kUnexaminedLength = 4096;

bool hasEnd(const CarvedFile &file)
{
    return file.evidence == Evidence::End || file.evidence == Evidence::Container;
}

} // namespace

CarvingScanner::CarvingScanner(const Plan &plan)
    : m_plan(plan)
{
    if (!m_plan.media)
        m_plan.media = std::make_shared<MediaReader>(plan.volume);
    for (const Carver *carver : carvers())
        m_isFirstByte[uchar(carver->magic().at(0))] = true;
}

qint64 CarvingScanner::alignedUp(qint64 offset) const
{
    return (offset + m_plan.alignment - 1) / m_plan.alignment * m_plan.alignment;
}

bool CarvingScanner::scan(ScanObserver &observer, QString *error)
{
    WindowReader reader(m_plan.media, [&observer] { return observer.mayGoOn(); });
    for (const Range &range : qAsConst(m_plan.ranges)) {
        if (!scanRange(reader, range, observer))
            break;
        m_done += range.length;
    }
    if (error)
        *error = reader.error();
    return reader.error().isEmpty();
}

/// The next multiple of the alignment from `at` on in the current window whose first byte may begin
/// a file; the window's end if there is none; -1 at the end of the range or of the work.
qint64 CarvingScanner::nextCandidate(WindowReader &reader, qint64 at) const
{
    const WindowReader::Span held = reader.span(at);
    if (held.length <= 0)
        return -1;
    qint64 i = 0;
    while (i < held.length && !m_isFirstByte[held.bytes[i]])
        i += m_plan.alignment;
    return at + i;
}

bool CarvingScanner::carveAt(WindowReader &reader, qint64 at, CarvedFile *file)
{
    for (const Carver *carver : carvers()) {
        const QByteArray magic = carver->magic();
        const uchar *const bytes = reader.at(at, magic.size());
        if (!bytes || std::memcmp(bytes, magic.constData(), size_t(magic.size())) != 0)
            continue;
        const qint64 end = reader.end();
        if (m_wastedBytes > kFreeWaste + kWasteFactor * at)
            reader.setEnd(qMin(end, at + kUnexaminedLength));
        const qint64 before = reader.bytesRead();
        const bool isCarved = carver->carve(reader, at, file) && file->length > 0;
        reader.setEnd(end);
        if (!isCarved || !hasEnd(*file))
            m_wastedBytes += qMax(file->examined, reader.bytesRead() - before);
        if (isCarved)
            return true;
    }
    return false;
}

bool CarvingScanner::report(const CarvedFile &file, qint64 start, ScanObserver &observer)
{
    if (!m_plan.request.wants(file.type))
        return true;
    Finding finding;
    finding.source = FindingSource::Carving;
    finding.type = file.type;
    finding.extension = file.extension;
    finding.evidence = file.evidence;
    finding.content.size = file.length;
    finding.content.append(0, start, file.length);
    return observer.found(std::move(finding));
}

bool CarvingScanner::scanRange(WindowReader &reader, const Range &range, ScanObserver &observer)
{
    reader.setEnd(range.end());
    CarvedFile open; // without an end: waits for where the next file begins
    qint64 openStart = -1;
    const auto closeOpen = [&](qint64 next) {
        if (openStart < 0)
            return true;
        open.length = qMin(open.length, next - openStart);
        const qint64 start = openStart;
        openStart = -1;
        return report(open, start, observer);
    };

    qint64 at = alignedUp(range.start);
    while (at < range.end()) {
        observer.advanced(m_done + (at - range.start));
        const qint64 candidate = nextCandidate(reader, at);
        if (candidate < 0)
            break;
        at = candidate;
        CarvedFile file;
        const uchar *const first = reader.at(at, 1);
        if (!first)
            break;
        if (!m_isFirstByte[*first])
            continue;
        if (!carveAt(reader, at, &file)) {
            at += m_plan.alignment;
            continue;
        }
        if (!closeOpen(at))
            return false;
        if (hasEnd(file)) {
            if (!report(file, at, observer))
                return false;
            at = alignedUp(at + file.length);
        } else {
            open = file;
            openStart = at;
            at += m_plan.alignment;
        }
    }
    const bool isTaken = closeOpen(range.end());
    observer.advanced(m_done + range.length);
    return isTaken && reader.error().isEmpty() && observer.mayGoOn();
}

} // namespace recoveryd
} // namespace services
