#pragma once

#include "recoveryd/ntfs/findingmaker.h"
#include "recoveryd/ntfs/namebook.h"
#include "recoveryd/ntfs/ntfsvolume.h"
#include "recoveryd/scan/scanner.h"

namespace services::recoveryd::ntfs {

/// Finds the files of the volume as it is formatted now: one sequential walk through the file table
/// reports what is clear at once; what lacks a name, a part of its path or of its map is kept by
/// number until the other sources are read.
class CurrentScan
{
public:
    CurrentScan(const NtfsVolume &volume, NameBook &names, bool listsExisting);

    qint64 totalWork() const { return m_volume.mft().size; }
    /// Deletion times and directory names out of the change journal. False if it was ended.
    [[nodiscard]] bool readJournal(ScanObserver &observer);
    [[nodiscard]] bool walkTable(ScanObserver &observer);
    /// Names out of the directories' index blocks, for what is still open.
    [[nodiscard]] bool readIndexes(ScanObserver &observer);
    /// Names, and files whose record belongs to another by now, out of the log.
    [[nodiscard]] bool readLog(ScanObserver &observer);
    [[nodiscard]] bool reportRest(ScanObserver &observer);

    /// When the volume was formatted, FILETIME; 0 if not known.
    quint64 formattedTime() const { return m_formattedTime; }

private:
    [[nodiscard]] bool visit(Record &record, ScanObserver &observer);
    void visitDirectory(const Record &record);
    void noteIndex(const Record &record);
    bool isRecycleInfo(const Record &record);
    [[nodiscard]] bool considerEmptied(const Record &record, ScanObserver &observer);
    [[nodiscard]] bool consider(const Record &record, bool isLast, ScanObserver &observer);
    qint64 journalRecord() const;
    void noteLogged(const Record &record);
    [[nodiscard]] bool report(const FileFacts &facts, const Place &place, FindingSource source,
                              bool exists, ScanObserver &observer);

    const NtfsVolume &m_volume;
    NameBook &m_names;
    bool m_listsExisting;
    quint64 m_formattedTime = 0;
    QVector<quint32> m_pending; ///< Numbers of records to be reported at the end.
    QHash<quint32, QVector<quint64>> m_continuations; ///< By the number of the base record.
    QHash<quint64, Record> m_logged;                  ///< Images of reused records, by reference.
    Ranges m_indexRanges;                             ///< Unsorted until they are read.
};

} // namespace services::recoveryd::ntfs
