#pragma once

#include <QByteArray>
#include <QVector>

#include <limits>

namespace services::recoveryd::ntfs {

constexpr quint64 kNumberMask = 0xFFFFFFFFFFFFULL;
constexpr quint32 kUnknownNumber = 0xFFFFFFFFU;

/// A reference to a record: 48 bits of number, 16 bits of sequence.
inline quint64 numberOf(quint64 reference)
{
    return reference & kNumberMask;
}
inline quint16 sequenceOf(quint64 reference)
{
    return quint16(reference >> 48);
}
inline quint64 makeReference(quint64 number, quint16 sequence)
{
    return (quint64(sequence) << 48) | (number & kNumberMask);
}

enum AttributeType : quint32 {
    kStandardInformation = 0x10,
    kAttributeList = 0x20,
    kFileName = 0x30,
    kVolumeName = 0x60,
    kData = 0x80,
    kIndexRoot = 0x90,
    kIndexAllocation = 0xA0,
    kReparsePoint = 0xC0,
};

enum AttributeFlag : quint16 {
    kCompressionMask = 0x00FF,
    kEncrypted = 0x4000,
    kSparse = 0x8000,
};

/// One attribute's header. Positions are offsets in Record::bytes, checked to lie within.
struct Attribute
{
    quint32 type = 0;
    quint16 flags = 0;
    QByteArray name; ///< UTF-8.
    bool isResident = true;
    int at = 0; ///< Of the header itself.

    int valueAt = 0; ///< Of a resident value.
    int valueLength = 0;

    // Non-resident ones; sizes in bytes, they stand in the piece with lowestVcn 0 only.
    int runsAt = 0;
    int runsEnd = 0;
    qint64 lowestVcn = 0;
    qint64 highestVcn = -1;
    int compressionUnit = 0; ///< Binary logarithm of its clusters; 0: not compressed.
    qint64 allocatedSize = 0;
    qint64 dataSize = 0;
    qint64 initialisedSize = 0;
};

/// A FILE record with its fixups undone.
struct Record
{
    QByteArray bytes;
    quint32 number = kUnknownNumber; ///< As it says itself; unknown before NTFS 3.1.
    quint16 sequence = 0;
    quint16 linkCount = 0;
    quint16 flags = 0;
    quint64 base = 0; ///< Reference to the record that this one continues; 0: none.
    quint64 lsn = 0;
    bool isTorn = false; ///< The later sectors are of another write; their attributes are left out.
    QVector<Attribute> attributes;

    bool isInUse() const { return (flags & 1) != 0; }
    bool isDirectory() const { return (flags & 2) != 0; }
    const Attribute *find(quint32 type, const char *name = "") const;
    QByteArray value(const Attribute &attribute) const
    {
        return bytes.mid(attribute.valueAt, attribute.valueLength);
    }
};

/// Undoes the fixups of a FILE record or INDX block in place. Returns how many bytes from the start
/// are whole: less than `size` if a sector was not written together with the first, 0 if the fixup
/// array is invalid.
int undoFixups(char *block, int size);

/// Whether a FILE record may begin here; cheap.
bool looksLikeRecord(const char *bytes, int size);

/// Reads a record of at most `size` bytes; the medium's bytes are copied. False if it is none.
[[nodiscard]] bool parseRecord(const char *bytes, int size, Record *record);

/// Reads the used part of a record as it was in memory, without fixups: an image in the log.
[[nodiscard]] bool parseRecordImage(const char *bytes, int size, Record *record);

/// UTF-16LE as UTF-8. What is no character becomes U+FFFD, separators and NUL become "_".
QByteArray nameFromUtf16(const char *units, int count);

/// Milliseconds since the Unix epoch, or Finding::kUnknownTime for what is no plausible time.
qint64 msFromFileTime(quint64 fileTime);

} // namespace services::recoveryd::ntfs
