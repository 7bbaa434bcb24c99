#include "recoveryd/session/findingcodec.h"

#include <algorithm>

namespace services::recoveryd {

namespace {

constexpr int kLongestNumber = 10; // bytes of a 64-bit number

enum Flag : quint8 {
    IsDeleted = 1,
    IsSizeExact = 2,
    IsMapComplete = 4,
    HasModified = 8,
    HasDeleted = 16,
    IsFragmented = 32, ///< Has packed extents or inline bytes.
    IsMapGuessed = 64,
};

quint8 flagsOf(const Finding &finding)
{
    quint8 flags = 0;
    const auto set = [&flags](bool is, Flag flag) {
        if (is)
            flags = quint8(flags | flag);
    };
    set(finding.isDeleted, IsDeleted);
    set(finding.isSizeExact, IsSizeExact);
    set(finding.isMapComplete, IsMapComplete);
    set(finding.isMapGuessed, IsMapGuessed);
    set(finding.modifiedMs != Finding::kUnknownTime, HasModified);
    set(finding.deletedMs != Finding::kUnknownTime, HasDeleted);
    set(!finding.content.packed.isEmpty() || !finding.content.inlineBytes.isEmpty(), IsFragmented);
    return flags;
}

quint8 kindsOf(const Finding &finding)
{
    return quint8(int(finding.source) | int(finding.folderKnowledge) << 2 |
                  int(finding.contentCheck) << 4 | int(finding.evidence) << 6);
}

// No medium is larger; sums of two such values still fit.
constexpr qint64 kFarthest = qint64(1) << 61;

bool isPlace(qint64 value)
{
    return value >= 0 && value <= kFarthest;
}

/// `from` moved by a distance that may be anything.
qint64 moved(qint64 from, qint64 by)
{
    return qint64(quint64(from) + quint64(by));
}

void encodeExtents(const QVector<Extent> &extents, PackedWriter *to)
{
    to->number(quint64(extents.size()));
    Extent last;
    for (const Extent &extent : extents) {
        to->signedNumber(extent.logical - last.logicalEnd());
        to->signedNumber(extent.physical - last.physicalEnd());
        to->number(quint64(extent.length));
        last = extent;
    }
}

void decodeExtents(PackedReader &from, QVector<Extent> *extents)
{
    const int count = from.count();
    Extent last;
    for (int i = 0; i < count && from.isGood(); ++i) {
        Extent extent;
        extent.logical = moved(last.logicalEnd(), from.signedNumber());
        extent.physical = moved(last.physicalEnd(), from.signedNumber());
        extent.length = qint64(from.number());
        if (!isPlace(extent.logical) || extent.physical < -kFarthest ||
            extent.physical > kFarthest || !isPlace(extent.length)) {
            from.fail();
            return;
        }
        extents->append(extent);
        last = extent;
    }
}

void encodePacked(const QVector<PackedExtent> &extents, PackedWriter *to)
{
    to->number(quint64(extents.size()));
    for (const PackedExtent &extent : extents) {
        to->signedNumber(extent.logical);
        to->number(quint64(extent.length));
        to->number(quint64(extent.skip));
        to->number(quint64(extent.unpacked));
        to->byte(quint8(extent.codec));
        to->number(quint64(extent.stored.size()));
        for (const Range &range : extent.stored) {
            to->signedNumber(range.start);
            to->number(quint64(range.length));
        }
        to->text(extent.inlineBytes);
    }
}

void decodePacked(PackedReader &from, QVector<PackedExtent> *extents)
{
    const int count = from.count();
    for (int i = 0; i < count && from.isGood(); ++i) {
        PackedExtent extent;
        extent.logical = from.signedNumber();
        extent.length = qint64(from.number());
        extent.skip = qint64(from.number());
        extent.unpacked = qint64(from.number());
        extent.codec = Codec(from.byte());
        const int ranges = from.count();
        for (int k = 0; k < ranges && from.isGood(); ++k) {
            const qint64 start = from.signedNumber();
            extent.stored.append({start, qint64(from.number())});
        }
        extent.inlineBytes = from.text();
        const bool isSane =
            isPlace(extent.logical) && isPlace(extent.length) && isPlace(extent.skip) &&
            isPlace(extent.unpacked) && quint8(extent.codec) <= quint8(Codec::Lznt1) &&
            std::all_of(extent.stored.cbegin(), extent.stored.cend(), [](const Range &range) {
                return isPlace(range.start) && isPlace(range.length);
            });
        if (!isSane) {
            from.fail();
            return;
        }
        extents->append(extent);
    }
}

} // namespace

void PackedWriter::number(quint64 value)
{
    while (value >= 0x80) {
        m_bytes.append(char(value | 0x80));
        value >>= 7;
    }
    m_bytes.append(char(value));
}

void PackedWriter::signedNumber(qint64 value)
{
    number((quint64(value) << 1) ^ (value < 0 ? ~quint64(0) : 0));
}

void PackedWriter::text(const QByteArray &value)
{
    number(quint64(value.size()));
    m_bytes.append(value);
}

quint8 PackedReader::byte()
{
    if (m_at >= m_bytes.size()) {
        m_isGood = false;
        return 0;
    }
    return quint8(m_bytes.at(m_at++));
}

quint64 PackedReader::number()
{
    quint64 value = 0;
    for (int i = 0; i < kLongestNumber; ++i) {
        const quint8 next = byte();
        value |= quint64(next & 0x7F) << (7 * i);
        if (next < 0x80)
            return m_isGood ? value : 0;
    }
    m_isGood = false;
    return 0;
}

qint64 PackedReader::signedNumber()
{
    const quint64 value = number();
    return qint64(value >> 1) ^ ((value & 1) != 0 ? qint64(-1) : qint64(0));
}

QByteArray PackedReader::text()
{
    const int length = count();
    const QByteArray value = m_bytes.mid(m_at, length);
    m_at += length;
    return value;
}

int PackedReader::count()
{
    const quint64 value = number();
    if (value > quint64(m_bytes.size() - m_at)) {
        m_isGood = false;
        return 0;
    }
    return int(value);
}

void encode(const Finding &finding, PackedWriter *to)
{
    const quint8 flags = flagsOf(finding);
    to->byte(kindsOf(finding));
    to->byte(flags);
    to->text(finding.name);
    to->signedNumber(finding.content.size);
    to->number(finding.recency);
    to->signedNumber(finding.takenBytes);
    if (flags & HasModified)
        to->signedNumber(finding.modifiedMs);
    if (flags & HasDeleted)
        to->signedNumber(finding.deletedMs);
    encodeExtents(finding.content.extents, to);
    if (flags & IsFragmented) {
        encodePacked(finding.content.packed, to);
        to->text(finding.content.inlineBytes);
    }
    to->text(finding.type.toUtf8());
    to->text(finding.extension.toUtf8());
}

bool decode(PackedReader &from, Finding *finding)
{
    const quint8 kinds = from.byte();
    const quint8 flags = from.byte();
    finding->source = FindingSource(kinds & 3);
    finding->folderKnowledge = Finding::Folder((kinds >> 2) & 3);
    finding->contentCheck = Finding::Check((kinds >> 4) & 3);
    finding->evidence = Evidence((kinds >> 6) & 3);
    finding->isDeleted = flags & IsDeleted;
    finding->isSizeExact = flags & IsSizeExact;
    finding->isMapComplete = flags & IsMapComplete;
    finding->isMapGuessed = flags & IsMapGuessed;
    finding->name = from.text();
    finding->content.size = from.signedNumber();
    if (!isPlace(finding->content.size))
        from.fail();
    finding->recency = from.number();
    finding->takenBytes = from.signedNumber();
    if (flags & HasModified)
        finding->modifiedMs = from.signedNumber();
    if (flags & HasDeleted)
        finding->deletedMs = from.signedNumber();
    decodeExtents(from, &finding->content.extents);
    if (flags & IsFragmented) {
        decodePacked(from, &finding->content.packed);
        finding->content.inlineBytes = from.text();
    }
    finding->type = QString::fromUtf8(from.text());
    finding->extension = QString::fromUtf8(from.text());
    return from.isGood();
}

void encode(const Damage &damage, PackedWriter *to)
{
    to->signedNumber(damage.inUse);
    to->signedNumber(damage.overwritten);
    to->signedNumber(damage.unreadable);
}

bool decode(PackedReader &from, Damage *damage)
{
    damage->inUse = from.signedNumber();
    damage->overwritten = from.signedNumber();
    damage->unreadable = from.signedNumber();
    return from.isGood();
}

} // namespace services::recoveryd
