#include "search/text/olefile.h"

#include "search/text/littleendian.h"

namespace search::text {

namespace {

constexpr quint32 endOfChain = 0xFFFFFFFE;
constexpr quint32 lastSector = 0xFFFFFFFA; ///< First number that is no sector.
constexpr int headerBytes = 512;
constexpr int firstTableEntries = 109;
constexpr int smallSectorBytes = 64;
constexpr int entryBytes = 128;
constexpr qint64 maxDirectoryBytes = 4 * 1024 * 1024;
constexpr qint64 maxSmallBytes = 64 * 1024 * 1024;
constexpr int maxDepth = 16;

enum EntryType { StorageEntry = 1, StreamEntry = 2, RootEntry = 5 };

QString entryName(const QByteArray &directory, qint64 at)
{
    const int bytes = qBound(2, int(wordAt(directory, at + 64)), 64);
    return utf16At(directory, at, bytes / 2 - 1);
}

} // namespace

bool OleFile::open()
{
    return m_file.open(QIODevice::ReadOnly) && readHeader();
}

bool OleFile::readHeader()
{
    const QByteArray header = m_file.read(headerBytes);
    if (header.size() < headerBytes || !header.startsWith("\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1"))
        return false;
    const int shift = wordAt(header, 30);
    if (shift != 9 && shift != 12)
        return false;
    m_sectorBytes = 1 << shift;
    m_smallLimit = dwordAt(header, 56);
    m_smallTableStart = dwordAt(header, 60);
    return readAllocation(header) && readDirectory(dwordAt(header, 48));
}

/// The table of sectors lies in sectors that the header and a chain behind it list.
bool OleFile::readAllocation(const QByteArray &header)
{
    const qint64 sectors = m_file.size() / m_sectorBytes + 1;
    QVector<quint32> tables;
    for (int i = 0; i < firstTableEntries; ++i)
        tables.append(dwordAt(header, 76 + 4 * i));
    quint32 more = dwordAt(header, 68);
    const int perSector = m_sectorBytes / 4;
    for (qint64 i = 0; more < lastSector && i < sectors && tables.size() < sectors; ++i) {
        const QByteArray list = readSector(more);
        for (int at = 0; at + 1 < perSector; ++at)
            tables.append(dwordAt(list, 4 * at));
        more = list.isEmpty() ? endOfChain : dwordAt(list, 4 * (perSector - 1));
    }
    for (const quint32 table : qAsConst(tables)) {
        if (table >= lastSector || m_next.size() >= sectors)
            continue;
        const QByteArray bytes = readSector(table);
        for (int at = 0; at + 4 <= bytes.size(); at += 4)
            m_next.append(dwordAt(bytes, at));
    }
    return !m_next.isEmpty();
}

bool OleFile::readDirectory(quint32 start)
{
    const QByteArray directory = readChain(start, maxDirectoryBytes);
    if (directory.size() < entryBytes || directory.at(66) != RootEntry)
        return false;
    m_smallSectors =
        readChain(dwordAt(directory, 116), qMin<qint64>(maxSmallBytes, dwordAt(directory, 120)));
    const QByteArray table = readChain(m_smallTableStart, m_smallSectors.size() / 16 + 4096);
    for (int at = 0; at + 4 <= table.size(); at += 4)
        m_nextSmall.append(dwordAt(table, at));
    takeEntries(directory);
    return true;
}

/// Walks the trees of names; each entry is taken once.
void OleFile::takeEntries(const QByteArray &directory)
{
    struct Step
    {
        quint32 entry;
        QString folder;
        int depth;
    };
    const quint32 count = quint32(directory.size() / entryBytes);
    QVector<bool> seen(int(count), false);
    QVector<Step> steps{{dwordAt(directory, 76), QString(), 0}};
    while (!steps.isEmpty()) {
        const Step step = steps.takeLast();
        if (step.entry >= count || seen.at(int(step.entry)) || step.depth > maxDepth)
            continue;
        seen[int(step.entry)] = true;
        const qint64 at = qint64(step.entry) * entryBytes;
        const QString path = step.folder + entryName(directory, at).toLower();
        const int type = directory.at(int(at) + 66);
        if (type == StreamEntry)
            m_streams.insert(path, {dwordAt(directory, at + 116), dwordAt(directory, at + 120)});
        else if (type == StorageEntry)
            steps.append({dwordAt(directory, at + 76), path + QLatin1Char('/'), step.depth + 1});
        steps.append({dwordAt(directory, at + 68), step.folder, step.depth});
        steps.append({dwordAt(directory, at + 72), step.folder, step.depth});
    }
}

QByteArray OleFile::readSector(quint32 sector)
{
    if (sector >= lastSector || !m_file.seek((qint64(sector) + 1) * m_sectorBytes))
        return QByteArray();
    return m_file.read(m_sectorBytes);
}

QByteArray OleFile::readChain(quint32 start, qint64 maxBytes)
{
    QByteArray bytes;
    quint32 sector = start;
    for (int i = 0; sector < quint32(m_next.size()) && i <= m_next.size(); ++i) {
        if (bytes.size() >= maxBytes)
            break;
        const QByteArray part = readSector(sector);
        bytes.append(part);
        if (part.size() < m_sectorBytes)
            break;
        sector = m_next.at(int(sector));
    }
    return bytes.left(int(maxBytes));
}

QByteArray OleFile::readSmallChain(quint32 start, qint64 maxBytes)
{
    QByteArray bytes;
    quint32 sector = start;
    for (int i = 0; sector < quint32(m_nextSmall.size()) && i <= m_nextSmall.size(); ++i) {
        if (bytes.size() >= maxBytes)
            break;
        bytes.append(m_smallSectors.mid(int(sector) * smallSectorBytes, smallSectorBytes));
        sector = m_nextSmall.at(int(sector));
    }
    return bytes.left(int(maxBytes));
}

QByteArray OleFile::read(const QString &name, qint64 maxBytes)
{
    const auto found = m_streams.constFind(name.toLower());
    if (found == m_streams.constEnd())
        return QByteArray();
    const qint64 bytes = qMin(found->size, maxBytes);
    return found->size < m_smallLimit ? readSmallChain(found->start, bytes)
                                      : readChain(found->start, bytes);
}

} // namespace search::text
