#include "recoveryd/fat/shortentries.h"

#include "recoveryd/fat/dostime.h"

#include <QTextCodec>
#include <QtEndian>

#include <algorithm>
#include <cstring>

namespace services::recoveryd::fat {

namespace {

constexpr char kDeleted = char(0xE5);
constexpr int kNameLength = 11;
constexpr quint8 kLabel = 0x08;
constexpr quint8 kDirectory = 0x10;
constexpr quint8 kLongName = 0x0F;
constexpr int kMaxParts = 20; ///< 255 UTF-16 units.
constexpr char kUnknownLetter = '_';

quint8 attributesOf(const char *slot)
{
    return quint8(slot[11]);
}

bool isLongNamePart(const char *slot)
{
    return (attributesOf(slot) & 0x3F) == kLongName;
}

quint16 u16(const char *slot, int at)
{
    return qFromLittleEndian<quint16>(slot + at);
}

quint32 firstClusterOf(const char *slot)
{
    return quint32(u16(slot, 20)) << 16 | u16(slot, 26);
}

quint8 checksumOf(const char *name)
{
    quint8 sum = 0;
    for (int i = 0; i < kNameLength; ++i)
        sum = quint8((sum >> 1 | sum << 7) + quint8(name[i]));
    return sum;
}

/// The first letter that gives the rest of the name this checksum; there is exactly one.
char firstLetterFor(const char *name, quint8 checksum)
{
    quint8 sum = checksum;
    for (int i = kNameLength - 1; i > 0; --i) {
        sum = quint8(sum - quint8(name[i]));
        sum = quint8(sum << 1 | sum >> 7);
    }
    return char(sum);
}

bool isDate(quint16 date)
{
    const int month = date >> 5 & 0xF;
    const int day = date & 0x1F;
    return month >= 1 && month <= 12 && day >= 1;
}

/// FAT notes local time without saying which; that of this machine is assumed.
qint64 msOf(quint16 date, quint16 time, quint8 hundredths)
{
    return msOfDosTime(date, time, hundredths, Qt::LocalTime);
}

/// Short names are in the code page of the computer that wrote them: mostly ASCII, else Chinese.
QString decoded(const QByteArray &bytes)
{
    const bool isAscii =
        std::all_of(bytes.begin(), bytes.end(), [](char c) { return quint8(c) < 0x80; });
    QTextCodec *const codec = isAscii ? nullptr : QTextCodec::codecForName("GB18030");
    if (!codec)
        return QString::fromLatin1(bytes);
    QTextCodec::ConverterState state;
    const QString text = codec->toUnicode(bytes.constData(), bytes.size(), &state);
    return state.invalidChars == 0 && state.remainingChars == 0 ? text : QString::fromLatin1(bytes);
}

bool isShortNameChar(char c)
{
    return quint8(c) >= 0x20 && quint8(c) != 0x7F && !(c >= 'a' && c <= 'z') &&
           !std::strchr("\"*+,./:;<=>?[\\]|", c);
}

/// The first letter is left out: it may be lost.
bool isShortName(const char *name)
{
    return std::all_of(name + 1, name + kNameLength, isShortNameChar);
}

/// Names that cameras and telephones give: what follows the first letter tells it.
char usualFirstLetter(const char *name)
{
    static const char *const kNames[] = {"IMG",  "DSC",  "MVI", "MOV", "PICT", "VID", "GOPR",
                                         "SAM_", "DJI_", "P10", "AUD", "REC",  "WP_", "PXL_"};
    for (const char *usual : kNames)
        if (std::strncmp(name + 1, usual + 1, std::strlen(usual) - 1) == 0)
            return usual[0];
    return kUnknownLetter;
}

QString shortName(const char *slot, char firstLetter)
{
    constexpr quint8 kLowerStem = 0x08;
    constexpr quint8 kLowerSuffix = 0x10;
    constexpr int kStem = 8;
    QByteArray name(slot, kNameLength);
    name[0] = firstLetter == 0x05 ? kDeleted : firstLetter;
    const quint8 cases = quint8(slot[12]);
    QString stem = decoded(name.left(kStem).trimmed());
    QString suffix = decoded(name.mid(kStem).trimmed());
    stem = cases & kLowerStem ? stem.toLower() : stem;
    suffix = cases & kLowerSuffix ? suffix.toLower() : suffix;
    return suffix.isEmpty() ? stem : stem + QLatin1Char('.') + suffix;
}

bool isZeroSlot(const char *slot)
{
    return std::all_of(slot, slot + kSlot, [](char c) { return c == 0; });
}

} // namespace

bool isPlausibleSlot(const char *slot, const ClusterGrid &grid)
{
    if (isLongNamePart(slot)) {
        const quint8 order = quint8(slot[0]) & 0xBF;
        return slot[12] == 0 && u16(slot, 26) == 0 &&
               (slot[0] == kDeleted || (order >= 1 && order <= kMaxParts));
    }
    const quint32 cluster = firstClusterOf(slot);
    const bool isLetter = slot[0] == kDeleted || slot[0] == 0x05 || isShortNameChar(slot[0]);
    return isLetter && slot[0] != ' ' && isShortName(slot) && (attributesOf(slot) & 0xC0) == 0 &&
           (cluster == 0 || grid.contains(cluster)) && isDate(u16(slot, 24)) &&
           (u16(slot, 16) == 0 || isDate(u16(slot, 16))) && (quint8(slot[12]) & 0xE7) == 0;
}

bool isDirectoryHead(const char *bytes, int length, quint32 *own, quint32 *parent)
{
    if (length < 2 * kSlot || std::memcmp(bytes, ".          ", kNameLength) != 0 ||
        std::memcmp(bytes + kSlot, "..         ", kNameLength) != 0 ||
        !(attributesOf(bytes) & kDirectory) || !(attributesOf(bytes + kSlot) & kDirectory))
        return false;
    *own = firstClusterOf(bytes);
    *parent = firstClusterOf(bytes + kSlot);
    return true;
}

bool looksLikeDirectory(const char *bytes, int length, const ClusterGrid &grid)
{
    constexpr int kLeastAlone = 4; // entries that need no long name to be believed
    int entries = 0;
    int withLongName = 0;
    ShortEntryReader reader;
    for (int at = 0; at + kSlot <= length; at += kSlot) {
        const char *const slot = bytes + at;
        if (slot[0] == 0) {
            // Behind the end there is nothing: new clusters of directories are cleared.
            for (int rest = at; rest + kSlot <= length; rest += kSlot)
                if (!isZeroSlot(bytes + rest))
                    return false;
            break;
        }
        if (!isPlausibleSlot(slot, grid))
            return false;
        const bool isAfterName = reader.isInsideName();
        if (!reader.feed(slot))
            continue;
        ++entries;
        withLongName += isAfterName && !reader.entry().isFirstLetterLost ? 1 : 0;
    }
    return withLongName > 0 || entries >= kLeastAlone;
}

QString ShortEntryReader::longName(const char *slot, char *firstLetter) const
{
    if (m_parts.isEmpty())
        return QString();
    const bool isDeleted = slot[0] == kDeleted;
    const quint8 checksum = m_parts.last().checksum;
    if (!isDeleted && checksum != checksumOf(slot))
        return QString();
    const char letter = isDeleted ? firstLetterFor(slot, checksum) : slot[0];
    if (!isShortNameChar(letter) && letter != 0x05)
        return QString();
    QVector<ushort> units;
    for (int i = m_parts.size() - 1; i >= 0 && m_parts.at(i).checksum == checksum; --i) {
        const QByteArray &part = m_parts.at(i).units;
        bool isLast = false;
        for (int k = 0; k + 1 < part.size() && !isLast; k += 2) {
            const ushort unit = qFromLittleEndian<quint16>(part.constData() + k);
            isLast = unit == 0;
            if (!isLast)
                units.append(unit);
        }
        if (isLast)
            break;
    }
    *firstLetter = letter;
    return QString::fromUtf16(units.constData(), units.size());
}

bool ShortEntryReader::feed(const char *slot)
{
    m_isAtEnd = slot[0] == 0;
    if (m_isAtEnd) {
        m_parts.clear();
        return false;
    }
    if (isLongNamePart(slot)) {
        Part part;
        part.order = quint8(slot[0]);
        part.checksum = quint8(slot[13]);
        part.units =
            QByteArray(slot + 1, 10) + QByteArray(slot + 14, 12) + QByteArray(slot + 28, 4);
        if (slot[0] != kDeleted && (part.order & 0x40) != 0)
            m_parts.clear();
        else if (m_parts.size() >= kMaxParts)
            m_parts.removeFirst();
        m_parts.append(part);
        return false;
    }
    const quint8 attributes = attributesOf(slot);
    if (slot[0] == '.' || (attributes & 0xC0) != 0 || (attributes & kLabel) != 0) {
        m_parts.clear();
        return false;
    }
    m_entry = DirectoryEntry();
    m_entry.isDeleted = slot[0] == kDeleted;
    char letter = m_entry.isDeleted ? '\0' : slot[0];
    QString name = longName(slot, &letter);
    m_entry.isFirstLetterLost = letter == '\0';
    if (name.isEmpty() && isShortName(slot))
        name = shortName(slot, letter == '\0' ? usualFirstLetter(slot) : letter);
    m_parts.clear();
    // No name of FAT has a slash, but a damaged one may.
    name.replace(QLatin1Char('/'), QLatin1Char('_'));
    m_entry.name = name.toUtf8();
    m_entry.isDirectory = (attributes & kDirectory) != 0;
    m_entry.firstCluster = firstClusterOf(slot);
    m_entry.size = qFromLittleEndian<quint32>(slot + 28);
    m_entry.written = m_entry.size;
    m_entry.createdMs = msOf(u16(slot, 16), u16(slot, 14), quint8(slot[13]));
    m_entry.modifiedMs = msOf(u16(slot, 24), u16(slot, 22), 0);
    m_isHighHalfZero = m_entry.isDeleted && m_entry.firstCluster < 0x10000;
    return !m_entry.name.isEmpty();
}

} // namespace services::recoveryd::fat
