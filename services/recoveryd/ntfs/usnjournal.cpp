#include "recoveryd/ntfs/usnjournal.h"

#include "recoveryd/content/contentreader.h"
#include "recoveryd/devices/bytes.h"
#include "recoveryd/ntfs/record.h"

namespace services::recoveryd::ntfs {

namespace {

constexpr qint64 kMaxBytes = 512 * 1024 * 1024;
constexpr qint64 kChunk = 1024 * 1024; ///< Whole pages; no record crosses one.
constexpr int kPage = 4096;
constexpr int kMinRecord = 0x40;

/// Length of the record at `at`, 0 if there is none.
int recordAt(const QByteArray &bytes, const Fields &fields, int at, UsnRecord *record)
{
    const quint32 length = fields.le32(at);
    const int version = fields.le16(at + 4);
    if (length < kMinRecord || length > kPage || length % 8 != 0 ||
        int(length) > bytes.size() - at || (version != 2 && version != 3))
        return 0;
    const int wide = version == 3 ? 8 : 0; // how much longer each reference is
    const int rest = at + 0x18 + 2 * wide;
    const int nameLength = fields.le16(rest + 0x20);
    const int nameAt = fields.le16(rest + 0x22);
    if (nameLength < 2 || nameLength > 510 || nameAt < 0x3C + 2 * wide ||
        nameAt + nameLength > int(length))
        return 0;
    record->file = fields.le64(at + 8);
    record->name.parent = fields.le64(at + 0x10 + wide);
    record->time = fields.le64(rest + 8);
    record->reason = fields.le32(rest + 0x10);
    record->name.attributes = fields.le32(rest + 0x1C);
    record->name.nameSpace = FileName::Win32;
    record->name.name = nameFromUtf16(bytes.constData() + at + nameAt, nameLength / 2);
    return int(length);
}

bool readPages(const QByteArray &bytes, const std::function<bool(const UsnRecord &)> &handle)
{
    const Fields fields(bytes);
    for (int at = 0; at + kMinRecord <= bytes.size();) {
        UsnRecord record;
        const int length = recordAt(bytes, fields, at, &record);
        if (length > 0) {
            if (!handle(record))
                return false;
            at += length;
        } else {
            at = fields.le32(at) == 0 ? (at / kPage + 1) * kPage : at + 8;
        }
    }
    return true;
}

} // namespace

void forEachUsnRecord(const MediaReader &media, const FileContent &journal,
                      const std::function<bool(const UsnRecord &)> &handle)
{
    ContentReader reader(media, journal);
    qint64 skip = -kMaxBytes;
    for (const Extent &extent : journal.extents)
        skip += extent.length;
    for (const Extent &extent : journal.extents) {
        const qint64 skipped = qBound(qint64(0), skip, extent.length) / kPage * kPage;
        skip -= extent.length;
        for (qint64 at = skipped; at < extent.length; at += kChunk) {
            QByteArray bytes(int(qMin(kChunk, extent.length - at)), Qt::Uninitialized);
            reader.read(extent.logical + at, bytes.data(), bytes.size());
            if (!readPages(bytes, handle))
                return;
        }
    }
}

} // namespace services::recoveryd::ntfs
