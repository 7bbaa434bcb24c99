#include "recoveryd/carve/documents/documentcarvers.h"
#include "recoveryd/carve/peek.h"

#include <QStringList>

#include <vector>

namespace services::recoveryd {

namespace {

constexpr quint32 kMaxSectors = 4 * 1024 * 1024;
constexpr int kMaxNames = 512;
constexpr quint32 kLastRegular = 0xFFFFFFFA;
constexpr quint32 kEndOfChain = 0xFFFFFFFE;
constexpr quint32 kFree = 0xFFFFFFFF;

/// Reads the allocation of one container ([MS-CFB]).
class OleWalk
{
public:
    explicit OleWalk(const Peek &file)
        : m_file(file)
        , m_shift(file.le16(30))
    {}

    bool isOle() const;
    /// False where the table of sectors is not there in full.
    bool readTable();
    /// False if a chain of the directory leads nowhere.
    bool readDirectory();
    qint64 end() const { return placeOf(m_used); }
    QStringList names() const { return m_names; }

private:
    qint64 placeOf(quint32 sector) const { return (qint64(sector) + 1) << m_shift; }
    bool takeTableSector(quint32 sector);
    bool isChain(quint32 first, qint64 length) const;
    void takeEntry(qint64 at);

    const Peek &m_file;
    int m_shift;
    std::vector<quint32> m_next; ///< By sector.
    quint32 m_used = 0;          ///< Behind the last sector in use.
    QStringList m_names;
    bool m_areChainsSound = true;
};

bool OleWalk::isOle() const
{
    return m_file.le16(28) == 0xFFFE && (m_shift == 9 || m_shift == 12) && m_file.le16(32) == 6 &&
           m_file.le32(44) > 0 && m_file.le32(44) <= kMaxSectors / 128;
}

bool OleWalk::takeTableSector(quint32 sector)
{
    const qint64 at = placeOf(sector);
    const qint64 size = qint64(1) << m_shift;
    const uchar *const bytes = m_file.bytes(at, size);
    if (!bytes || m_next.size() >= kMaxSectors)
        return false;
    for (qint64 i = 0; i < size; i += 4) {
        const quint32 next = qFromLittleEndian<quint32>(bytes + i);
        m_next.push_back(next);
        if (next != kFree)
            m_used = quint32(m_next.size());
    }
    return true;
}

bool OleWalk::readTable()
{
    const quint32 count = m_file.le32(44);
    constexpr quint32 kInHeader = 109;
    for (quint32 i = 0; i < qMin(count, kInHeader); ++i)
        if (!takeTableSector(m_file.le32(76 + 4 * i)))
            return false;
    // Further sectors of the table are named by a chain of their own.
    const quint32 perSector = (quint32(1) << m_shift) / 4 - 1;
    quint32 list = m_file.le32(68);
    for (quint32 i = kInHeader; i < count; ++i) {
        const quint32 k = (i - kInHeader) % perSector;
        if (i > kInHeader && k == 0)
            list = m_file.le32(placeOf(list) + 4 * perSector);
        if (list >= kLastRegular || !takeTableSector(m_file.le32(placeOf(list) + 4 * k)))
            return false;
    }
    return true;
}

/// Whether a stream of `length` bytes has as many sectors; without loops, by that bound.
bool OleWalk::isChain(quint32 first, qint64 length) const
{
    const qint64 sectors = (length + (qint64(1) << m_shift) - 1) >> m_shift;
    quint32 sector = first;
    for (qint64 i = 0; i < sectors; ++i) {
        if (sector >= m_next.size())
            return false;
        sector = m_next[sector];
    }
    return sector == kEndOfChain;
}

void OleWalk::takeEntry(qint64 at)
{
    const int type = m_file.u8(at + 66);
    const int units = qBound(0, m_file.le16(at + 64) / 2 - 1, 31);
    if (type != 1 && type != 2 && type != 5)
        return;
    QString name;
    for (int i = 0; i < units; ++i)
        name += QChar(m_file.le16(at + 2 * i));
    if (m_names.size() < kMaxNames)
        m_names.append(name);
    constexpr qint64 kMiniStream = 4096; // shorter ones lie inside the root's stream
    const qint64 length = m_file.le32(at + 120);
    if ((type == 2 && length >= kMiniStream) || (type == 5 && length > 0))
        m_areChainsSound = m_areChainsSound && isChain(m_file.le32(at + 116), length);
}

bool OleWalk::readDirectory()
{
    quint32 sector = m_file.le32(48);
    for (int i = 0; i < kMaxNames && sector < kLastRegular; ++i) {
        if (sector >= m_next.size())
            return false;
        for (qint64 at = placeOf(sector); at < placeOf(sector + 1); at += 128)
            takeEntry(at);
        sector = m_next[sector];
    }
    return !m_names.isEmpty() && m_areChainsSound;
}

const char *suffixOf(const QStringList &names)
{
    static const struct
    {
        const char *stream;
        const char *suffix;
    } kinds[] = {{"ETExtData", "et"},
                 {"DpsCustomData", "dps"},
                 {"WpsCustomData", "wps"},
                 {"WordDocument", "doc"},
                 {"Workbook", "xls"},
                 {"Book", "xls"},
                 {"PowerPoint Document", "ppt"},
                 {"VisioDocument", "vsd"},
                 {"__properties_version1.0", "msg"},
                 {"BodyText", "hwp"},
                 {"EncryptedPackage", "docx"},
                 {"Catalog", "db"}};
    for (const auto &kind : kinds)
        if (names.contains(QLatin1String(kind.stream)))
            return kind.suffix;
    return "ole2";
}

} // namespace

bool carveOle(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek ole(reader, start);
    OleWalk walk(ole);
    if (!walk.isOle())
        return false;
    const bool hasTable = walk.readTable();
    const bool isSound = hasTable && walk.readDirectory();
    file->setKind(suffixOf(walk.names()));
    file->inside = Inside::Files;
    file->holdsText = true;
    const qint64 end = qMin(walk.end(), ole.room());
    file->setEnd(end, isSound && ole.has(0, walk.end()) ? Evidence::End
                      : hasTable                        ? Evidence::Structure
                                                        : Evidence::Header);
    return true;
}

} // namespace services::recoveryd
