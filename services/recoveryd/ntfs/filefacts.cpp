#include "recoveryd/ntfs/filefacts.h"

#include "recoveryd/devices/bytes.h"

#include <QSet>

#include <algorithm>

namespace services::recoveryd::ntfs {

namespace {

constexpr qint64 kMaxAttributeList = 1024 * 1024;
constexpr int kMaxContinuations = 8192;
/// A list that leads to this many other files' records is no longer worth following.
constexpr int kMaxMisses = 64;
constexpr int kMaxStreams = 64;
constexpr qint64 kMaxStreamSize = qint64(1) << 56;
constexpr qint64 kMinCluster = 512;
constexpr qint64 kMaxCluster = 2 * 1024 * 1024;

void readStandardInformation(const Record &record, const Attribute &attribute, FileFacts *facts)
{
    const Fields fields(record.value(attribute));
    facts->createdTime = fields.le64(0x00);
    facts->modifiedTime = fields.le64(0x08);
    facts->changedTime = fields.le64(0x10);
    facts->dosAttributes = fields.le32(0x20);
}

void addName(const Record &record, const Attribute &attribute, FileFacts *facts)
{
    constexpr int kMaxNames = 1024;
    FileName name;
    if (attribute.isResident && facts->names.size() < kMaxNames &&
        parseFileName(record.bytes.constData() + attribute.valueAt, attribute.valueLength, false,
                      &name))
        facts->names.append(name);
}

Stream *streamFor(const QByteArray &name, FileFacts *facts)
{
    for (Stream &stream : facts->streams)
        if (stream.name == name)
            return &stream;
    if (facts->streams.size() >= kMaxStreams)
        return nullptr;
    Stream stream;
    stream.name = name;
    facts->streams.append(stream);
    return &facts->streams.last();
}

void addPiece(const Record &record, const Attribute &attribute, FileFacts *facts)
{
    Stream *stream = streamFor(attribute.name, facts);
    if (!stream)
        return;
    if (attribute.isResident) {
        stream->isResident = true;
        stream->flags = attribute.flags;
        stream->value = record.value(attribute);
        stream->size = attribute.valueLength;
        return;
    }
    if (attribute.lowestVcn == 0) {
        stream->flags = attribute.flags;
        stream->compressionUnit = attribute.compressionUnit;
        const bool isSizeValid = attribute.dataSize >= 0 && attribute.dataSize <= kMaxStreamSize;
        stream->size = isSizeValid ? attribute.dataSize : -1;
        stream->allocatedSize = attribute.allocatedSize;
        stream->initialisedSize = attribute.initialisedSize;
    }
    if (!decodeRuns(record, attribute, &stream->runs))
        stream->isMapComplete = false;
}

void addAttributes(const Record &record, FileFacts *facts)
{
    for (const Attribute &attribute : record.attributes) {
        if (attribute.type == kStandardInformation && attribute.isResident)
            readStandardInformation(record, attribute, facts);
        else if (attribute.type == kFileName)
            addName(record, attribute, facts);
        else if (attribute.type == kData)
            addPiece(record, attribute, facts);
        else if (attribute.type == kReparsePoint && attribute.isResident)
            facts->reparseTag = Fields(record.value(attribute)).le32(0);
    }
}

/// The bytes of a resident attribute or a small, plain non-resident one.
QByteArray attributeBytes(const Record &record, const Attribute &attribute,
                          const GatherSources &sources)
{
    if (attribute.isResident)
        return record.value(attribute);
    QVector<Run> runs;
    QByteArray bytes;
    if (attribute.dataSize <= 0 || attribute.dataSize > kMaxAttributeList ||
        !decodeRuns(record, attribute, &runs))
        return bytes;
    for (const Run &run : qAsConst(runs)) {
        const qint64 left = attribute.dataSize - bytes.size();
        if (left <= 0 || run.lcn == Run::kHole)
            break;
        bytes +=
            sources.media(run.lcn * sources.clusterSize,
                          run.count > left ? left : qMin(left, run.count * sources.clusterSize));
    }
    return bytes;
}

/// The records named by an attribute list, without the base itself.
QVector<quint64> listedRecords(const QByteArray &list, quint64 baseNumber)
{
    constexpr int kMinEntry = 0x1A;
    QVector<quint64> numbers;
    QSet<quint64> seen;
    const Fields fields(list);
    for (int at = 0; at + kMinEntry <= list.size() && numbers.size() < kMaxContinuations;) {
        const int length = fields.le16(at + 4);
        if (length < kMinEntry)
            break;
        const quint64 number = numberOf(fields.le64(at + 0x10));
        if (number != baseNumber && !seen.contains(number)) {
            seen.insert(number);
            numbers.append(number);
        }
        at += length;
    }
    return numbers;
}

/// A deletion adds one to the sequence of the base record, but not to the references to it.
bool continues(const Record &record, const Record &base)
{
    return record.base != 0 &&
           (base.number == kUnknownNumber || numberOf(record.base) == base.number) &&
           (sequenceOf(record.base) == base.sequence ||
            (!base.isInUse() && quint16(sequenceOf(record.base) + 1) == base.sequence));
}

void finishStreams(FileFacts *facts)
{
    for (Stream &stream : facts->streams) {
        std::sort(stream.runs.begin(), stream.runs.end(),
                  [](const Run &a, const Run &b) { return a.vcn < b.vcn; });
        qint64 vcn = 0;
        QVector<Run> kept;
        for (const Run &run : qAsConst(stream.runs)) {
            if (run.vcn < vcn) { // two pieces that overlap: one is stale
                stream.isMapComplete = false;
                continue;
            }
            if (run.vcn > vcn)
                stream.isMapComplete = false;
            kept.append(run);
            vcn = run.vcnEnd();
        }
        stream.runs = kept;
    }
}

} // namespace

const Stream *FileFacts::stream(const QByteArray &name) const
{
    for (const Stream &candidate : streams)
        if (candidate.name == name)
            return &candidate;
    return nullptr;
}

const FileName *FileFacts::bestName() const
{
    const FileName *best = nullptr;
    for (const FileName &name : names)
        if (!best || (best->nameSpace == FileName::Dos && name.nameSpace != FileName::Dos))
            best = &name;
    return best;
}

FileFacts gatherFile(const Record &base, const GatherSources &sources)
{
    FileFacts facts;
    addAttributes(base, &facts);
    QVector<quint64> numbers = sources.continuations;
    if (const Attribute *list = base.find(kAttributeList)) {
        const QVector<quint64> listed =
            listedRecords(attributeBytes(base, *list, sources), base.number);
        for (quint64 number : listed)
            if (!numbers.contains(number))
                numbers.append(number);
        facts.areAllRecordsFound = !listed.isEmpty();
    }
    int misses = 0;
    for (quint64 number : qAsConst(numbers)) {
        Record record;
        if (sources.record && sources.record(number, &record) && continues(record, base)) {
            addAttributes(record, &facts);
            continue;
        }
        facts.areAllRecordsFound = false;
        if (++misses > kMaxMisses)
            break;
    }
    finishStreams(&facts);
    return facts;
}

qint64 clusterSizeOf(const Record &record)
{
    for (const Attribute &attribute : record.attributes) {
        if (attribute.isResident || attribute.lowestVcn != 0 ||
            (attribute.flags & (kCompressionMask | kSparse)) != 0)
            continue;
        QVector<Run> runs;
        if (!decodeRuns(record, attribute, &runs) || runs.isEmpty())
            continue;
        const qint64 clusters = runs.last().vcnEnd();
        const qint64 size = attribute.allocatedSize / clusters;
        if (size >= kMinCluster && size <= kMaxCluster && isPowerOfTwo(quint32(size)) &&
            size * clusters == attribute.allocatedSize)
            return size;
    }
    return 0;
}

} // namespace services::recoveryd::ntfs
