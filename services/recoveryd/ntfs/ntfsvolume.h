#pragma once

#include "recoveryd/ntfs/filefacts.h"
#include "recoveryd/ntfs/geometry.h"

namespace services::recoveryd::ntfs {

/// Records with fixed numbers.
enum SystemRecord : quint64 {
    kMftRecord = 0,
    kMirrorRecord = 1,
    kLogFileRecord = 2,
    kVolumeRecord = 3,
    kRootRecord = 5,
    kBitmapRecord = 6,
    kExtendRecord = 11,
    kFirstUserRecord = 16,
};

/// A volume with a readable master file table. Reads only; one thread.
class NtfsVolume
{
public:
    explicit NtfsVolume(const MediaReader &media)
        : m_media(media)
    {}

    /// False if there is no boot sector, backup or file table to go by. The map of a fragmented
    /// table may be incomplete; see isMftComplete().
    [[nodiscard]] bool open();

    const MediaReader &media() const { return m_media; }
    const Geometry &geometry() const { return m_geometry; }
    /// The file table's bytes: its map and its size.
    const FileContent &mft() const { return m_mft; }
    bool isMftComplete() const { return m_isMftComplete; }
    qint64 recordCount() const { return m_mft.size / m_geometry.recordSize; }

    /// Byte of the medium where record `number` begins; -1 if it is outside the table.
    qint64 offsetOfRecord(quint64 number) const;
    [[nodiscard]] bool readRecord(quint64 number, Record *record) const;
    FileFacts gather(const Record &base, const QVector<quint64> &continuations = {}) const;
    /// The map of one stream of a record; false if there is none.
    [[nodiscard]] bool streamOf(quint64 number, const QByteArray &name, FileContent *content) const;

private:
    [[nodiscard]] bool readTableRecord(Record *record) const;
    void mapTable(const Record &table);

    const MediaReader &m_media;
    Geometry m_geometry;
    FileContent m_mft;
    bool m_isMftComplete = true;
};

/// The clusters that $Bitmap calls free, as byte ranges.
[[nodiscard]] bool ntfsFreeRanges(const NtfsVolume &volume, Ranges *ranges, QString *error);

} // namespace services::recoveryd::ntfs
