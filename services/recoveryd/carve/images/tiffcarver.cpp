#include "recoveryd/carve/images/imagecarvers.h"
#include "recoveryd/carve/peek.h"

#include <QByteArray>

namespace services::recoveryd {

namespace {

constexpr int kMaxDirectories = 64;
constexpr int kMaxEntries = 1024;
constexpr qint64 kMaxValues = 1000000; // over all directories

enum Tag : quint16 {
    Make = 271,
    StripOffsets = 273,
    StripLengths = 279,
    TileOffsets = 324,
    TileLengths = 325,
    SubDirectories = 330,
    ThumbnailOffset = 513,
    ThumbnailLength = 514,
    ExifDirectory = 34665,
    GpsDirectory = 34853,
    DngVersion = 50706,
};

int sizeOfType(int type)
{
    static const int sizes[] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4};
    return type >= 0 && type < 14 ? sizes[type] : 0;
}

/// Walks all directories of one file (TIFF 6.0).
class TiffWalk
{
public:
    explicit TiffWalk(const Peek &file)
        : m_file(file)
        , m_isLittle(file.u8(0) == 'I')
    {}

    /// False if there is not even a first directory.
    bool walk();
    qint64 end() const { return m_end; }
    bool isWhole() const { return m_isWhole; }
    const char *suffix() const;

private:
    struct Entry
    {
        int tag = 0;
        int type = 0;
        qint64 count = 0;
        qint64 at = 0; ///< Where its values are.
    };

    quint16 u16(qint64 at) const { return m_isLittle ? m_file.le16(at) : m_file.be16(at); }
    quint32 u32(qint64 at) const { return m_isLittle ? m_file.le32(at) : m_file.be32(at); }
    qint64 value(const Entry &entry, qint64 index) const;
    bool readDirectory(qint64 at);
    bool readEntry(qint64 at, Entry *entry);
    void take(const Entry &entry);
    void takePieces(const Entry &offsets, const Entry &lengths);
    void use(qint64 from, qint64 length);

    const Peek &m_file;
    bool m_isLittle;
    qint64 m_end = 8;
    qint64 m_values = 0;
    bool m_isWhole = true;
    bool m_isDng = false;
    bool m_hasSubDirectories = false;
    QByteArray m_make;
    QVector<qint64> m_directories; ///< Found so far; each is read once.
    Entry m_strips, m_stripLengths, m_tiles, m_tileLengths, m_thumbnail, m_thumbnailLength;
};

qint64 TiffWalk::value(const Entry &entry, qint64 index) const
{
    return entry.type == 3 ? qint64(u16(entry.at + 2 * index)) : qint64(u32(entry.at + 4 * index));
}

void TiffWalk::use(qint64 from, qint64 length)
{
    if (length == 0)
        return;
    if (!m_file.has(from, length))
        m_isWhole = false;
    else
        m_end = qMax(m_end, from + length);
}

bool TiffWalk::readEntry(qint64 at, Entry *entry)
{
    entry->tag = u16(at);
    entry->type = u16(at + 2);
    entry->count = u32(at + 4);
    const int size = sizeOfType(entry->type);
    if (size == 0)
        return false;
    const qint64 length = size * entry->count;
    entry->at = length <= 4 ? at + 8 : qint64(u32(at + 8));
    if (length > 4)
        use(entry->at, length);
    return true;
}

void TiffWalk::takePieces(const Entry &offsets, const Entry &lengths)
{
    const qint64 count = qMin(offsets.count, lengths.count);
    m_values += count;
    for (qint64 i = 0; i < count && m_values < kMaxValues; ++i)
        use(value(offsets, i), value(lengths, i));
}

void TiffWalk::take(const Entry &entry)
{
    switch (entry.tag) {
    case Make: {
        const qint64 length = qMin(entry.count, qint64(16));
        if (const uchar *const text = m_file.bytes(entry.at, length))
            m_make = QByteArray(reinterpret_cast<const char *>(text), int(length)).toUpper();
        break;
    }
    case StripOffsets:
        m_strips = entry;
        break;
    case StripLengths:
        m_stripLengths = entry;
        break;
    case TileOffsets:
        m_tiles = entry;
        break;
    case TileLengths:
        m_tileLengths = entry;
        break;
    case ThumbnailOffset:
        m_thumbnail = entry;
        break;
    case ThumbnailLength:
        m_thumbnailLength = entry;
        break;
    case SubDirectories:
        m_hasSubDirectories = true;
        Q_FALLTHROUGH();
    case ExifDirectory:
    case GpsDirectory:
        for (qint64 i = 0; i < qMin(entry.count, qint64(16)); ++i)
            m_directories.append(u32(entry.at + 4 * i));
        break;
    case DngVersion:
        m_isDng = true;
        break;
    default:
        break;
    }
}

bool TiffWalk::readDirectory(qint64 at)
{
    const int count = u16(at);
    if (at < 8 || count < 1 || count > kMaxEntries || !m_file.has(at, 2 + 12 * count))
        return false;
    m_strips = m_stripLengths = m_tiles = m_tileLengths = m_thumbnail = m_thumbnailLength = Entry();
    for (int i = 0; i < count; ++i) {
        Entry entry;
        if (readEntry(at + 2 + 12 * i, &entry))
            take(entry);
        else if (i == 0)
            return false;
    }
    use(at, qMin<qint64>(6 + 12 * count, m_file.room() - at));
    takePieces(m_strips, m_stripLengths);
    takePieces(m_tiles, m_tileLengths);
    takePieces(m_thumbnail, m_thumbnailLength);
    if (const qint64 next = u32(at + 2 + 12 * count))
        m_directories.append(next);
    return true;
}

bool TiffWalk::walk()
{
    m_directories = {qint64(u32(4))};
    for (int i = 0; i < m_directories.size() && i < kMaxDirectories; ++i) {
        const qint64 at = m_directories.at(i);
        if (m_directories.indexOf(at) < i)
            continue;
        if (!readDirectory(at)) {
            if (i == 0)
                return false;
            m_isWhole = false;
        }
    }
    return true;
}

const char *TiffWalk::suffix() const
{
    if (m_file.is(8, "CR"))
        return "cr2";
    if (m_isDng)
        return "dng";
    if (!m_hasSubDirectories)
        return "tif";
    return m_make.startsWith("NIKON")     ? "nef"
           : m_make.startsWith("SONY")    ? "arw"
           : m_make.startsWith("PENTAX")  ? "pef"
           : m_make.startsWith("SAMSUNG") ? "srw"
                                          : "tif";
}

} // namespace

bool carveTiff(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek tiff(reader, start);
    TiffWalk walk(tiff);
    if (!walk.walk())
        return false;
    file->setKind(walk.suffix());
    const bool isPlain = file->extension == QLatin1String("tif");
    file->inside = isPlain ? Inside::Noise : Inside::Frames;
    file->setEnd(walk.end(), walk.isWhole() ? Evidence::End : Evidence::Structure);
    return true;
}

} // namespace services::recoveryd
