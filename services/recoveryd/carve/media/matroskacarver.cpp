#include "recoveryd/carve/media/mediacarvers.h"
#include "recoveryd/carve/peek.h"

namespace services::recoveryd {

namespace {

constexpr int kMaxElements = 1000000;
constexpr qint64 kUnknownLength = -1;

struct Element
{
    quint32 id = 0; ///< With its length bits; 0 if there is none.
    qint64 data = 0;
    qint64 length = 0;
};

/// The element at `at` (RFC 8794).
Element elementAt(const Peek &file, qint64 at)
{
    Element element;
    const quint8 first = file.u8(at);
    int idLength = 1;
    while (idLength <= 4 && !(first & (0x80 >> (idLength - 1))))
        ++idLength;
    if (first == 0 || idLength > 4)
        return element;
    for (int i = 0; i < idLength; ++i)
        element.id = element.id << 8 | file.u8(at + i);
    const quint8 lead = file.u8(at + idLength);
    int size = 1;
    while (size <= 8 && !(lead & (0x80 >> (size - 1))))
        ++size;
    if (lead == 0) {
        element.id = 0;
        return element;
    }
    quint64 value = lead & (0xFF >> size);
    bool isUnknown = value == quint64(0xFF >> size);
    for (int i = 1; i < size; ++i) {
        value = value << 8 | file.u8(at + idLength + i);
        isUnknown = isUnknown && file.u8(at + idLength + i) == 0xFF;
    }
    element.data = at + idLength + size;
    element.length = isUnknown ? kUnknownLength : qint64(value);
    return element;
}

bool isTopLevel(quint32 id)
{
    switch (id) {
    case 0x114D9B74: // SeekHead
    case 0x1549A966: // Info
    case 0x1654AE6B: // Tracks
    case 0x1043A770: // Chapters
    case 0x1941A469: // Attachments
    case 0x1254C367: // Tags
    case 0x1C53BB6B: // Cues
    case 0x1F43B675: // Cluster
    case 0xEC:       // Void
    case 0xBF:       // CRC-32
        return true;
    default:
        return false;
    }
}

bool isInCluster(quint32 id)
{
    return id == 0xE7 || id == 0xA3 || id == 0xA0 || id == 0xAB || id == 0xA7 || id == 0x5854 ||
           id == 0xA1;
}

} // namespace

bool carveMatroska(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek media(reader, start);
    const Element header = elementAt(media, 0);
    if (header.length < 0 || header.length > 4096)
        return false;
    file->setKind(media.find(0, header.data + header.length, "webm", 4) >= 0 ? "webm" : "mkv");
    file->inside = Inside::Frames;
    const Element segment = elementAt(media, header.data + header.length);
    if (segment.id != 0x18538067) {
        file->setEnd(header.data + header.length, Evidence::Header);
        return true;
    }
    const bool isSized = segment.length != kUnknownLength;
    const qint64 told = isSized ? segment.data + segment.length : media.room();
    const qint64 limit = qMin(told, media.room());
    qint64 at = segment.data;
    int elements = 0;
    for (; elements < kMaxElements && at < limit; ++elements) {
        const Element element = elementAt(media, at);
        if (!isTopLevel(element.id) && (isSized || !isInCluster(element.id)))
            break;
        if (element.length == kUnknownLength)
            at = element.data; // a live recording: its children are walked in its place
        else if (element.length > limit - element.data)
            break;
        else
            at = element.data + element.length;
    }
    const bool isWhole = isSized && at == told && told <= media.room();
    if (!isSized && elements > 2)
        setPaddedEnd(media, at, file);
    else
        file->setEnd(isWhole ? at : limit, isWhole        ? Evidence::End
                                           : elements > 1 ? Evidence::Structure
                                                          : Evidence::Header);
    return true;
}

} // namespace services::recoveryd
