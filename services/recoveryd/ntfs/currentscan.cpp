#include "recoveryd/ntfs/currentscan.h"

#include "recoveryd/content/contentreader.h"
#include "recoveryd/devices/bytes.h"
#include "recoveryd/ntfs/emptiedstream.h"
#include "recoveryd/ntfs/indexentries.h"
#include "recoveryd/ntfs/logfile.h"
#include "recoveryd/ntfs/recordsweep.h"
#include "recoveryd/ntfs/usnjournal.h"

#include <algorithm>

namespace services::recoveryd::ntfs {

namespace {

constexpr qint64 kChunk = 1024 * 1024;
constexpr qint64 kMaxIndexBytes = 512 * 1024 * 1024;
constexpr int kMaxContinuations = 1000 * 1000;
constexpr int kMaxIndexRanges = 2 * 1000 * 1000;

/// Sorted, and joined where it costs less to read on than to seek.
Ranges readingOrder(Ranges ranges)
{
    constexpr qint64 kGap = 64 * 1024;
    std::sort(ranges.begin(), ranges.end(),
              [](const Range &a, const Range &b) { return a.start < b.start; });
    Ranges joined;
    for (const Range &range : qAsConst(ranges)) {
        if (!joined.isEmpty() && range.start <= joined.last().end() + kGap)
            joined.last().length = qMax(joined.last().end(), range.end()) - joined.last().start;
        else
            joined.append(range);
    }
    return joined;
}

} // namespace

CurrentScan::CurrentScan(const NtfsVolume &volume, NameBook &names, bool listsExisting)
    : m_volume(volume)
    , m_names(names)
    , m_listsExisting(listsExisting)
{
    // mkntfs leaves the times of $MFT itself empty.
    Record record;
    if (m_volume.readRecord(kVolumeRecord, &record))
        if (const Attribute *times = record.find(kStandardInformation))
            m_formattedTime = Fields(record.value(*times)).le64(0);
    // Directories are mostly made before what is in them; the few others are read out of turn.
    m_names.folders().setLoader([this](quint64 number) {
        Record folder;
        if (m_volume.readRecord(number, &folder) && folder.base == 0 && folder.isDirectory())
            m_names.addDirectory(folder, m_volume.gather(folder));
    });
}

/// Number of $UsnJrnl's record, -1 if there is none. Its name stands in the index of $Extend,
/// also for a time after the journal was switched off.
qint64 CurrentScan::journalRecord() const
{
    Record extend;
    qint64 number = -1;
    if (!m_volume.readRecord(kExtendRecord, &extend))
        return number;
    forEachIndexEntry(extend.bytes.constData(), extend.bytes.size(),
                      [&number](quint64 reference, const FileName &name) {
                          if (name.name == "$UsnJrnl")
                              number = qint64(numberOf(reference));
                      });
    return number;
}

bool CurrentScan::readJournal(ScanObserver &observer)
{
    const qint64 number = journalRecord();
    FileContent journal;
    if (number < 0 || !m_volume.streamOf(quint64(number), "$J", &journal))
        return true;
    bool isEnded = false;
    int count = 0;
    forEachUsnRecord(m_volume.media(), journal, [&](const UsnRecord &change) {
        if (change.isDirectory() || m_names.isAskedForFiles()) {
            FileName name = change.name;
            if (change.isDirectory())
                name.attributes |= FileName::kDirectory;
            m_names.addRemains(change.file, name, change.time);
        }
        if ((change.reason & UsnRecord::FileDelete) != 0)
            m_names.addDeletion(change.file, msFromFileTime(change.time));
        isEnded = ++count % 65536 == 0 && !observer.mayGoOn();
        return !isEnded;
    });
    return !isEnded;
}

bool CurrentScan::walkTable(ScanObserver &observer)
{
    const qint64 recordSize = m_volume.geometry().recordSize;
    ContentReader reader(m_volume.media(), m_volume.mft());
    QByteArray chunk(int(kChunk), Qt::Uninitialized);
    const qint64 end = m_volume.recordCount() * recordSize;
    for (qint64 at = 0; at < end; at += kChunk) {
        if (!observer.mayGoOn())
            return false;
        const qint64 length = qMin(kChunk, end - at);
        reader.read(at, chunk.data(), length);
        for (qint64 i = 0; i < length; i += recordSize) {
            Record record;
            if (!parseRecord(chunk.constData() + i, int(recordSize), &record))
                continue;
            // The place in the table counts, not what the record says about itself.
            record.number = quint32((at + i) / recordSize);
            if (!visit(record, observer))
                return false;
        }
        observer.advanced(at + length);
    }
    return true;
}

bool CurrentScan::visit(Record &record, ScanObserver &observer)
{
    noteIndex(record);
    if (record.base != 0) {
        if (m_continuations.size() < kMaxContinuations)
            m_continuations[quint32(numberOf(record.base))].append(record.number);
        return true;
    }
    if (record.isDirectory()) {
        visitDirectory(record);
        return true;
    }
    if (record.number < kFirstUserRecord || record.attributes.isEmpty() || isRecycleInfo(record))
        return true;
    if (!considerEmptied(record, observer))
        return false;
    if (record.isInUse() && !m_listsExisting)
        return true;
    return consider(record, false, observer);
}

void CurrentScan::visitDirectory(const Record &record)
{
    m_names.addDirectory(record, m_volume.gather(record));
    // Small directories are kept in the record; its slack has entries of files deleted since.
    forEachIndexEntry(record.bytes.constData(), record.bytes.size(),
                      [this](quint64 reference, const FileName &name) {
                          m_names.addRemains(reference, name, name.changedTime);
                      });
}

void CurrentScan::noteIndex(const Record &record)
{
    for (const Attribute &attribute : record.attributes) {
        if (attribute.type != kIndexAllocation || attribute.isResident || attribute.name != "$I30")
            continue;
        QVector<Run> runs;
        if (!decodeRuns(record, attribute, &runs))
            continue;
        const qint64 clusterSize = m_volume.geometry().clusterSize;
        const qint64 clusters = m_volume.geometry().clusters();
        for (const Run &run : qAsConst(runs))
            if (run.lcn != Run::kHole && run.count <= clusters && run.lcn <= clusters - run.count &&
                m_indexRanges.size() < kMaxIndexRanges)
                m_indexRanges.append({run.lcn * clusterSize, run.count * clusterSize});
    }
}

/// Takes in a "$I" file of the recycle bin, which is no finding of its own.
bool CurrentScan::isRecycleInfo(const Record &record)
{
    const Attribute *nameAttribute = record.find(kFileName);
    const Attribute *data = record.find(kData);
    FileName name;
    if (!nameAttribute || !nameAttribute->isResident || !data || !data->isResident ||
        !parseFileName(record.bytes.constData() + nameAttribute->valueAt,
                       nameAttribute->valueLength, false, &name) ||
        !name.name.startsWith("$I"))
        return false;
    m_names.addRecycleInfo(name.parent, name.name, record.value(*data));
    return true;
}

/// A file that is empty now, or was when it was deleted: the version before.
bool CurrentScan::considerEmptied(const Record &record, ScanObserver &observer)
{
    Stream stream;
    if (!findEmptiedStream(m_volume, record, &stream))
        return true;
    FileFacts facts = m_volume.gather(record);
    facts.streams = {stream};
    facts.modifiedTime = 0; // that of the emptying
    facts.changedTime = facts.createdTime;
    const Place place = m_names.placeOf(record, facts);
    return place.isSystem || report(facts, place, FindingSource::Hybrid, false, observer);
}

bool CurrentScan::consider(const Record &record, bool isLast, ScanObserver &observer)
{
    const FileFacts facts =
        m_volume.gather(record, isLast ? m_continuations.value(record.number) : QVector<quint64>());
    if (facts.streams.isEmpty() && facts.areAllRecordsFound)
        return true;
    Place place = m_names.placeOf(record, facts);
    if (place.isSystem)
        return true;
    if (!isLast && (!place.isSettled || !facts.areAllRecordsFound)) {
        const FileName *name = facts.bestName();
        if (!name || isTemporaryName(name->name))
            m_names.askFor(record);
        m_pending.append(record.number);
        return true;
    }
    return report(facts, place, FindingSource::Metadata, record.isInUse(), observer);
}

bool CurrentScan::report(const FileFacts &facts, const Place &place, FindingSource source,
                         bool exists, ScanObserver &observer)
{
    const QVector<Finding> findings =
        makeFindings(facts, place.finding, exists ? Era::Existing : Era::Current,
                     {m_volume.geometry().clusterSize, m_volume.media().size()});
    for (Finding finding : findings) {
        finding.source = source;
        if (!observer.found(std::move(finding)))
            return false;
    }
    return true;
}

bool CurrentScan::readIndexes(ScanObserver &observer)
{
    if (m_pending.isEmpty())
        return true;
    RecordSweep::Handlers handlers;
    handlers.record = [](qint64, Record &) {
        return true;
    };
    handlers.indexBlock = [this](const QByteArray &block) {
        forEachIndexEntry(block.constData(), block.size(),
                          [this](quint64 reference, const FileName &name) {
                              m_names.addRemains(reference, name, name.changedTime);
                          });
    };
    RecordSweep sweep(m_volume.media(), handlers);
    sweep.setOverlap(0);
    Ranges ranges = readingOrder(m_indexRanges);
    while (totalLength(ranges) > kMaxIndexBytes)
        ranges.removeLast();
    return sweep.run(ranges, observer, totalWork());
}

bool CurrentScan::readLog(ScanObserver &observer)
{
    FileContent log;
    if (!m_volume.streamOf(kLogFileRecord, QByteArray(), &log))
        return true;
    LogHandlers handlers;
    handlers.mayGoOn = [&observer] {
        return observer.mayGoOn();
    };
    handlers.record = [this](const Record &record) {
        noteLogged(record);
    };
    handlers.indexEntry = [this](quint64 reference, const FileName &name) {
        m_names.addRemains(reference, name, name.changedTime);
    };
    return readLogFile(m_volume.media(), log, handlers);
}

/// Keeps the image of a record that lives on only in the log. What stands in the table is newer.
void CurrentScan::noteLogged(const Record &image)
{
    constexpr int kMaxLogged = 20000;
    if (image.number == kUnknownNumber || image.number < kFirstUserRecord || image.base != 0 ||
        m_logged.size() >= kMaxLogged)
        return;
    const FileFacts facts = gatherFile(image, GatherSources());
    if (image.isDirectory()) {
        m_names.addDirectory(image, facts);
        return;
    }
    Record now;
    const quint64 reference = makeReference(image.number, image.sequence);
    if (facts.names.isEmpty() || !m_volume.readRecord(image.number, &now) ||
        now.sequence == image.sequence ||
        (!now.isInUse() && referenceBeforeDeletion(image.number, now.sequence) == reference))
        return;
    const auto known = m_logged.constFind(reference);
    if (known == m_logged.constEnd() ||
        gatherFile(*known, GatherSources()).changedTime <= facts.changedTime)
        m_logged.insert(reference, image);
}

bool CurrentScan::reportRest(ScanObserver &observer)
{
    // Names of files are kept from now on.
    if (m_names.isAskedForFiles() && !readJournal(observer))
        return false;
    m_names.finishRecycleBin();
    for (int i = 0; i < m_pending.size(); ++i) {
        Record record;
        if (i % 1024 == 0 && !observer.mayGoOn())
            return false;
        if (!m_volume.readRecord(m_pending.at(i), &record))
            continue;
        record.number = m_pending.at(i);
        if (!consider(record, true, observer))
            return false;
    }
    m_pending.clear();
    for (const Record &image : qAsConst(m_logged)) {
        const FileFacts facts = gatherFile(image, GatherSources());
        if (!report(facts, m_names.placeOf(image, facts), FindingSource::Journal, false, observer))
            return false;
    }
    return true;
}

} // namespace services::recoveryd::ntfs
