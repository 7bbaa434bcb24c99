#include "recoveryd/scan/contentcheck.h"

#include "recoveryd/carve/text/textencoding.h"
#include "recoveryd/devices/bytes.h"
#include "recoveryd/scan/filetypes.h"
#include "recoveryd/scan/suffixsignatures.h"

#include <algorithm>
#include <cstring>

namespace services::recoveryd {

namespace {

constexpr qint64 kPiece = 4096;
constexpr qint64 kSector = 512;
// Texts of other encodings than those known here still have next to no control characters.
constexpr double kMaxControls = 0.02;
constexpr int kMaxBoxes = 64;
constexpr qint64 kIsoDescriptor = 32768;

/// The stretches of one file that the checks look at.
struct Sample
{
    ContentReader &content;
    qint64 size;
    QByteArray head;
    QByteArray tail; ///< Equal to `head` for files of one piece.

    QByteArray at(qint64 offset, qint64 length) const
    {
        if (offset < 0 || offset > size - length)
            return QByteArray();
        QByteArray bytes(int(length), Qt::Uninitialized);
        content.read(offset, bytes.data(), length);
        return bytes;
    }
};

bool isZero(const QByteArray &bytes)
{
    return std::all_of(bytes.begin(), bytes.end(), [](char c) { return c == 0; });
}

bool isTextLike(const QByteArray &bytes)
{
    const auto *const data = reinterpret_cast<const uchar *>(bytes.constData());
    return encodingOf(data, bytes.size()) != TextEncoding::None ||
           controlShare(data, bytes.size()) <= kMaxControls;
}

/// Every sector of the sample: a file that was overwritten in part changes at one.
bool isTextThroughout(const Sample &sample)
{
    // With a byte order mark it may be a script that encodingOf() does not count as usual.
    if (sample.head.startsWith("\xFF\xFE") || sample.head.startsWith("\xFE\xFF"))
        return !isZero(sample.tail) && !sample.head.startsWith(QByteArray("\xFF\xFE\0", 3));
    for (const QByteArray *piece : {&sample.head, &sample.tail})
        for (int at = 0; at < piece->size(); at += int(kSector))
            if (!isTextLike(piece->mid(at, int(kSector))))
                return false;
    return !hasForeignSignature(sample.head);
}

/// Whether a JPEG picture's end mark is near its end. Cameras put data behind it: little, but for
/// films and for the parts of one maker, which tell themselves.
bool canEndJpeg(const Sample &sample)
{
    if (sample.tail.contains("\xFF\xD9"))
        return true;
    return sample.head.contains("MotionPhoto") || sample.head.contains("MicroVideo") ||
           sample.tail.endsWith("SEFT");
}

bool isSoundImage(const Sample &sample)
{
    if (sample.head.startsWith("\xFF\xD8\xFF"))
        return canEndJpeg(sample);
    if (sample.head.startsWith("\x89PNG"))
        return sample.tail.contains("IEND");
    if (sample.head.startsWith("GIF8")) {
        int last = sample.tail.size() - 1;
        while (last > 0 && sample.tail.at(last) == 0)
            --last;
        return sample.tail.at(last) == 0x3B;
    }
    if (sample.head.startsWith("RIFF"))
        return qint64(Fields(sample.head).le32(4)) + 8 <= sample.size + 1;
    return true;
}

/// Files of boxes: each begins with its length and a word.
bool isSoundBoxes(const Sample &sample)
{
    if (sample.head.size() < 8 || std::memcmp(sample.head.constData() + 4, "ftyp", 4) != 0)
        return true;
    qint64 at = 0;
    bool hasIndex = false;
    for (int i = 0; i < kMaxBoxes && at < sample.size; ++i) {
        const Fields box(sample.at(at, qMin(qint64(16), sample.size - at)));
        if (box.le32(0) == 0 && box.le32(4) == 0)
            return hasIndex; // padding
        for (int k = 4; k < 8; ++k)
            if (box.u8(k) < 0x20 && box.u8(k) != 0)
                return false;
        hasIndex = hasIndex || box.isAt(4, "moov", 4) || box.isAt(4, "meta", 4);
        const qint64 length = box.be32(0) == 1 ? qint64(box.be64(8)) : qint64(box.be32(0));
        if (box.be32(0) == 0)
            return true; // up to the end
        if (length < 8 || length > sample.size - at)
            return false;
        at += length;
    }
    return true;
}

bool isSoundZip(const Sample &sample)
{
    if (!sample.head.startsWith("PK"))
        return true; // an encrypted document is an OLE2 file
    const int at = sample.tail.lastIndexOf("PK\x05\x06");
    if (at < 0)
        return false;
    const Fields record(sample.tail.mid(at, 22));
    if (record.le16(10) == 0 || record.le32(16) == 0xFFFFFFFF)
        return true;
    return sample.at(record.le32(16), 4) == "PK\x01\x02";
}

/// The root entry of the directory stands where the header says.
bool isSoundOle(const Sample &sample)
{
    if (!sample.head.startsWith("\xD0\xCF\x11\xE0"))
        return true;
    const Fields header(sample.head);
    const int shift = header.le16(30);
    if (shift != 9 && shift != 12)
        return false;
    const qint64 directory = (qint64(header.le32(48)) + 1) << shift;
    const Fields root(sample.at(directory, 128));
    return root.u8(0) == 'R' && (root.u8(66) == 5 || root.u8(66) == 1);
}

bool isSoundSevenZip(const Sample &sample)
{
    const Fields header(sample.head);
    const quint64 offset = header.le64(12);
    const quint64 length = header.le64(20);
    const quint64 size = quint64(sample.size);
    if (offset > size || length > size || offset + length + 32 > size)
        return false;
    const QByteArray kind = sample.at(qint64(offset) + 32, 1);
    return length == 0 || (kind.size() == 1 && (kind.at(0) == 0x01 || kind.at(0) == 0x17));
}

bool isSoundSqlite(const Sample &sample)
{
    const Fields header(sample.head);
    const qint64 page = quint16(header.u8(16) << 8 | header.u8(17));
    const bool isCounted = header.be32(24) == header.be32(92);
    const qint64 pageSize = page == 1 ? 65536 : page;
    return pageSize >= 512 && (!isCounted || pageSize * header.be32(28) <= sample.size);
}

bool isSoundStructure(Structure structure, const Sample &sample)
{
    switch (structure) {
    case Structure::Image:
        return isSoundImage(sample) && isSoundBoxes(sample);
    case Structure::Pdf:
        return sample.tail.contains("%%EOF") || sample.tail.contains("startxref");
    case Structure::Zip:
        return isSoundZip(sample) && isSoundOle(sample);
    case Structure::Ole:
        return isSoundOle(sample) && isSoundZip(sample);
    case Structure::Iso:
        return sample.at(kIsoDescriptor, 8).mid(1, 5) == "CD001" ||
               sample.at(kIsoDescriptor, 8).mid(1, 4) == "BEA0";
    case Structure::Film:
        return isSoundBoxes(sample);
    case Structure::SevenZip:
        return isSoundSevenZip(sample);
    case Structure::Sqlite:
        return isSoundSqlite(sample);
    case Structure::Text:
    case Structure::None:
        break;
    }
    return true;
}

bool isSound(const SuffixRule &rule, const Sample &sample)
{
    if (!rule.families.isEmpty() && hasSignature(rule.families, sample.head))
        return isSoundStructure(rule.structure, sample);
    if (rule.structure == Structure::Iso)
        return isSoundStructure(rule.structure, sample);
    return rule.mayBeText && isTextThroughout(sample);
}

} // namespace

bool isCheckable(const QString &suffix)
{
    return ruleOf(suffix).isKnown;
}

Finding::Check checkBySuffix(const QString &suffix, ContentReader &content, qint64 size)
{
    const SuffixRule rule = ruleOf(suffix);
    constexpr qint64 kLeast = 16;
    if (!rule.isKnown || size < kLeast)
        return Finding::Check::None;
    const qint64 lostBefore = content.lostBytes();
    Sample sample{content, size, QByteArray(), QByteArray()};
    sample.head = sample.at(0, qMin(size, kPiece));
    // What was trimmed, or never written, reads as zeros.
    bool isGood = rule.structure == Structure::Iso || !isZero(sample.head);
    if (isGood) {
        sample.tail = size <= kPiece ? sample.head : sample.at(size - kPiece, kPiece);
        isGood = isSound(rule, sample);
    }
    if (content.lostBytes() != lostBefore)
        return Finding::Check::None;
    return isGood ? Finding::Check::Passed : Finding::Check::Failed;
}

Finding::Check checkBySuffix(const MediaReader &media, const Finding &finding)
{
    ContentReader content(media, finding.content);
    return checkBySuffix(suffixOf(finding.name), content, finding.content.size);
}

} // namespace services::recoveryd
