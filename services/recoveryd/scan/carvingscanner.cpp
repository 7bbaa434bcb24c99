#include "recoveryd/scan/carvingscanner.h"

#include <QElapsedTimer>

#include <algorithm>
#include <cstring>

namespace services::recoveryd {

namespace {

// A disk full of heads without ends, or of files that unpack to much more than they are, must not
// cost the square of its size: beyond this only the first few KiB of a file are looked at.
constexpr qint64 kFreeWaste = qint64(512) * 1024 * 1024;
constexpr qint64 kWasteFactor = 4;
constexpr qint64 kFreeMs = 60000;
constexpr qint64 kBytesPerMs = 10000;
constexpr qint64 kUnexaminedLength = 4096;
// A text inside another file is one of its own from this length on.
constexpr qint64 kSureText = 600;

/// Whether nothing else begins before the file's end.
bool isBounded(const CarvedFile &file)
{
    return file.inside == Inside::Seen || file.inside == Inside::Files;
}

/// Cut to whole sectors, so that sectors of the run are sectors of the volume; but for the last.
QVector<Range> wholeSectors(const Ranges &ranges)
{
    constexpr qint64 kSector = MagicIndex::kSector;
    QVector<Range> whole;
    for (int i = 0; i < ranges.size(); ++i) {
        const Range &range = ranges.at(i);
        const qint64 start = (range.start + kSector - 1) / kSector * kSector;
        const qint64 end = i + 1 < ranges.size() ? range.end() / kSector * kSector : range.end();
        if (end > start)
            whole.append({start, end - start});
    }
    return whole;
}

} // namespace

CarvingScanner::CarvingScanner(const Plan &plan)
    : m_plan(plan)
    , m_index(carvers())
{
    if (!m_plan.media)
        m_plan.media = std::make_shared<MediaReader>(plan.volume);
}

qint64 CarvingScanner::alignedUp(qint64 offset) const
{
    return (offset + m_plan.alignment - 1) / m_plan.alignment * m_plan.alignment;
}

bool CarvingScanner::scan(ScanObserver &observer, QString *error)
{
    WindowReader reader(*m_plan.media, wholeSectors(m_plan.ranges),
                        [&observer] { return observer.mayGoOn(); });
    const bool isDone = sweep(reader, observer) && closeText(reader, observer) &&
                        closeOpen(reader, reader.size(), observer);
    if (isDone && reader.error().isEmpty() && observer.mayGoOn())
        observer.advanced(totalWork());
    if (error)
        *error = reader.error();
    return reader.error().isEmpty();
}

/// The next multiple of the alignment from `at` on, in the current window, where a file may begin;
/// the window's end if there is none; -1 at the end of the run or of the work.
qint64 CarvingScanner::nextCandidate(WindowReader &reader, qint64 at) const
{
    const WindowReader::Span held = reader.span(at);
    if (held.length <= 0)
        return -1;
    qint64 i = 0;
    while (i + MagicIndex::kSector <= held.length && !m_index.mayBegin(held.bytes + i) &&
           !TextRun::mayBegin(held.bytes + i))
        i += m_plan.alignment;
    return at + i;
}

const uchar *CarvingScanner::sectorAt(WindowReader &reader, qint64 at)
{
    const qint64 left = reader.end() - at;
    if (left >= MagicIndex::kSector)
        return reader.at(at, MagicIndex::kSector);
    const uchar *const bytes = left > 0 ? reader.at(at, left) : nullptr;
    if (!bytes)
        return nullptr;
    std::memset(m_lastSector, 0, sizeof(m_lastSector));
    std::memcpy(m_lastSector, bytes, size_t(left));
    return m_lastSector;
}

/// What was skipped reads as zeros for now, and may be read in the end.
bool CarvingScanner::isBesideBadSectors(const WindowReader &reader, qint64 start,
                                        qint64 length) const
{
    const QVector<Range> places = reader.placesOf(start, length);
    return m_plan.media->lostBytes() > 0 &&
           std::any_of(places.begin(), places.end(),
                       [this](const Range &place) { return m_plan.media->hasBadBytes(place); });
}

bool CarvingScanner::carveWithin(WindowReader &reader, const Carver &carver, qint64 start,
                                 CarvedFile *file)
{
    const qint64 end = reader.end();
    if (m_wastedBytes > kFreeWaste + kWasteFactor * start ||
        m_carvingMs > kFreeMs + start / kBytesPerMs)
        reader.setEnd(qMin(end, start + kUnexaminedLength));
    const qint64 before = reader.bytesRead();
    QElapsedTimer clock;
    clock.start();
    const WindowReader::Aside aside(reader, start);
    const bool isCarved = carver.carve(reader, start, file) && file->length > 0;
    m_carvingMs += clock.elapsed();
    reader.setEnd(end);
    if (isCarved && file->isDamaged && !isBesideBadSectors(reader, start, file->length))
        file->evidence = Evidence::Structure;
    if (!isCarved || !hasEnd(file->evidence)) {
        // A length that is only told has cost nothing.
        const qint64 followed = file->inside == Inside::Seen ? file->examined : 0;
        m_wastedBytes += qMax(followed, reader.bytesRead() - before);
    }
    return isCarved;
}

bool CarvingScanner::carveAt(WindowReader &reader, qint64 at, const uchar *sector, CarvedFile *file,
                             qint64 *start)
{
    // The carvers move the window.
    uchar copy[MagicIndex::kSector];
    if (!m_index.mayBegin(sector))
        return false;
    std::memcpy(copy, sector, sizeof(copy));
    return m_index.visit(copy, [&](const Carver &carver, qint64 distance) {
        *start = at - distance;
        *file = CarvedFile();
        return *start >= m_reportedTo && carveWithin(reader, carver, *start, file);
    });
}

bool CarvingScanner::report(WindowReader &reader, CarvedFile file, qint64 start,
                            ScanObserver &observer)
{
    if (!m_plan.request.wants(file.type))
        return true;
    Finding finding;
    qint64 logical = 0;
    for (const Range &place : reader.placesOf(start, file.length)) {
        finding.content.append(logical, place.start, place.length);
        logical += place.length;
    }
    finding.content.size = logical;
    finding.source = FindingSource::Carving;
    finding.type = file.type;
    finding.extension = file.extension;
    finding.evidence = file.evidence;
    finding.isSizeExact = hasEnd(file.evidence);
    // A length that is only told, and the belief that several pieces belong together, can only be
    // confirmed by the contents.
    const bool isGuess = file.inside != Inside::Seen || finding.content.extents.size() > 1;
    if (file.isDecoded)
        finding.contentCheck = Finding::Check::Passed;
    else if (isGuess && file.evidence == Evidence::End)
        finding.evidence = Evidence::Structure;
    return observer.found(std::move(finding));
}

bool CarvingScanner::closeOpen(WindowReader &reader, qint64 next, ScanObserver &observer)
{
    if (m_openStart < 0)
        return true;
    if (m_open.length > next - m_openStart) {
        m_open.length = next - m_openStart;
        m_open.isDecoded = false;
        if (hasEnd(m_open.evidence)) // which was told, but other files lie before it
            m_open.evidence = Evidence::Structure;
    }
    const qint64 start = m_openStart;
    m_openStart = -1;
    return report(reader, m_open, start, observer);
}

bool CarvingScanner::closeText(WindowReader &reader, ScanObserver &observer)
{
    const TextRun text = m_text;
    m_text.clear();
    CarvedFile file;
    if (!text.isOpen() || !text.describe(reader, &file))
        return true;
    const bool isSure = file.evidence == Evidence::End && file.length >= kSureText;
    if (isInToldFile(text.start()) && !isSure)
        return true;
    return closeOpen(reader, text.start(), observer) &&
           report(reader, file, text.start(), observer);
}

/// Gives the sector at m_at to the open text, or begins a new one, and steps behind it.
bool CarvingScanner::takeText(WindowReader &reader, const uchar *sector, ScanObserver &observer)
{
    const qint64 length = qMin(MagicIndex::kSector, reader.end() - m_at);
    const qint64 at = m_at;
    m_at += m_text.isOpen() ? MagicIndex::kSector : m_plan.alignment;
    const bool isInOpenFile =
        m_openStart >= 0 && m_open.holdsText && at < m_openStart + m_open.length;
    if (isInOpenFile || (!m_text.isOpen() && !TextRun::mayBegin(sector)))
        return true;
    const bool wasOpen = m_text.isOpen();
    TextRun::Step step = m_text.take(at, sector, length);
    if (wasOpen && step == TextRun::Step::NoText) {
        // Looked at again, as the beginning of something else.
        m_at = alignedUp(at);
        return closeText(reader, observer);
    }
    if (step == TextRun::Step::More)
        m_at = at + MagicIndex::kSector;
    return step != TextRun::Step::Last || closeText(reader, observer);
}

/// Whether `at` lies inside a file whose length only its header tells.
bool CarvingScanner::isInToldFile(qint64 at) const
{
    return m_openStart >= 0 && hasEnd(m_open.evidence) && at < m_openStart + m_open.length;
}

/// Whether such a file would not hold what was found inside it.
bool CarvingScanner::isIntruder(const CarvedFile &file) const
{
    if (!hasEnd(file.evidence))
        return false;
    const bool isFrame = file.extension == QLatin1String("jpg") ||
                         file.extension == QLatin1String("mp3") ||
                         file.extension == QLatin1String("aac");
    return m_open.inside == Inside::Noise || (!isFrame && isBounded(file));
}

bool CarvingScanner::takeCarved(WindowReader &reader, const CarvedFile &file, qint64 start,
                                ScanObserver &observer)
{
    if (isInToldFile(start) && !isIntruder(file)) {
        m_at = alignedUp(m_at + 1);
        return true;
    }
    if (!closeText(reader, observer) || !closeOpen(reader, start, observer))
        return false;
    if (hasEnd(file.evidence) && isBounded(file)) {
        m_reportedTo = start + file.length;
        m_at = alignedUp(m_reportedTo);
        return report(reader, file, start, observer);
    }
    m_open = file;
    m_openStart = start;
    m_at = alignedUp(m_at + 1);
    return true;
}

bool CarvingScanner::sweep(WindowReader &reader, ScanObserver &observer)
{
    constexpr qint64 kTellEvery = 1024 * 1024;
    qint64 toldAt = 0;
    while (m_at < reader.end()) {
        if (m_at - toldAt >= kTellEvery) {
            toldAt = m_at;
            observer.advanced(qMin(m_at, totalWork()));
        }
        if (!m_text.isOpen()) {
            m_at = nextCandidate(reader, m_at);
            if (m_at < 0)
                return false;
        }
        const uchar *sector = sectorAt(reader, m_at);
        if (!sector)
            return m_at >= reader.end();
        CarvedFile file;
        qint64 start = 0;
        if (m_at % m_plan.alignment == 0 && carveAt(reader, m_at, sector, &file, &start)) {
            if (!takeCarved(reader, file, start, observer))
                return false;
            continue;
        }
        sector = sectorAt(reader, m_at); // the window may have moved
        if (!sector || !takeText(reader, sector, observer))
            return false;
    }
    return true;
}

} // namespace services::recoveryd
