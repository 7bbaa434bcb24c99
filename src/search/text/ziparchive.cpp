#include "search/text/ziparchive.h"

#include "search/text/encoding.h"
#include "search/text/littleendian.h"

#include <zlib.h>

namespace search::text {

namespace {

constexpr int endRecordBytes = 22;
constexpr int maxCommentBytes = 65535;
constexpr int locatorBytes = 20; ///< Of the end record of archives beyond 4 GiB.
constexpr int largeEndRecordBytes = 56;
constexpr int centralHeaderBytes = 46;
constexpr int localHeaderBytes = 30;
constexpr qint64 maxDirectoryBytes = 16 * 1024 * 1024;
constexpr int maxMembers = 50000;
constexpr qint64 maxMemberBytes = 16 * 1024 * 1024;
constexpr qint64 maxTotalBytes = 64 * 1024 * 1024;
constexpr int chunkBytes = 65536;
constexpr quint16 storedMethod = 0;
constexpr quint16 deflatedMethod = 8;

/// The name in UTF-8 that some programs keep beside that of the system; empty if there is none.
QByteArray unicodeName(const QByteArray &extra)
{
    for (int at = 0; at + 4 <= extra.size(); at += 4 + wordAt(extra, at + 2)) {
        const int bytes = wordAt(extra, at + 2);
        if (wordAt(extra, at) == 0x7075 && bytes > 5)
            return extra.mid(at + 9, bytes - 5);
    }
    return QByteArray();
}

/// Ends the stream on every way out.
struct Inflater
{
    Inflater() { ok = inflateInit2(&stream, -MAX_WBITS) == Z_OK; }
    ~Inflater()
    {
        if (ok)
            inflateEnd(&stream);
    }
    Inflater(const Inflater &) = delete;
    Inflater &operator=(const Inflater &) = delete;

    z_stream stream{};
    bool ok = false;
};

} // namespace

bool ZipArchive::open()
{
    if (!m_file.open(QIODevice::ReadOnly))
        return false;
    const qint64 tailBytes =
        qMin<qint64>(m_file.size(), endRecordBytes + maxCommentBytes + locatorBytes);
    const qint64 tailStart = m_file.size() - tailBytes;
    m_file.seek(tailStart);
    const QByteArray tail = m_file.read(tailBytes);
    const int end = tail.lastIndexOf("PK\x05\x06");
    if (end < 0 || end + endRecordBytes > tail.size())
        return false;
    qint64 size = dwordAt(tail, end + 12);
    qint64 offset = dwordAt(tail, end + 16);
    const int locator = end - locatorBytes;
    if (locator >= 0 && tail.mid(locator, 4) == "PK\x06\x07" &&
        m_file.seek(qint64(dwordAt(tail, locator + 8)) |
                    qint64(dwordAt(tail, locator + 12) & 0x7FFFFFFF) << 32)) {
        const QByteArray large = m_file.read(largeEndRecordBytes);
        size = dwordAt(large, 40);
        offset = dwordAt(large, 48);
    }
    if (size > maxDirectoryBytes || offset + size > tailStart + end || !m_file.seek(offset))
        return false;
    return readDirectory(m_file.read(size));
}

bool ZipArchive::readDirectory(const QByteArray &directory)
{
    QVector<QByteArray> rawNames;
    QByteArray undeclared;
    int at = 0;
    while (at + centralHeaderBytes <= directory.size() && rawNames.size() < maxMembers &&
           dwordAt(directory, at) == 0x02014B50) {
        const int nameBytes = wordAt(directory, at + 28);
        const int extraBytes = wordAt(directory, at + 30);
        const int nameStart = at + centralHeaderBytes;
        const int next = nameStart + nameBytes + extraBytes + wordAt(directory, at + 32);
        if (next > directory.size())
            break;
        const quint16 flags = wordAt(directory, at + 8);
        QByteArray name = unicodeName(directory.mid(nameStart + nameBytes, extraBytes));
        const bool isUtf8 = (flags & 0x0800) != 0 || !name.isEmpty();
        if (name.isEmpty())
            name = directory.mid(nameStart, nameBytes);
        if (!isUtf8)
            undeclared += name + '\n';
        rawNames.append(name);
        m_members.append({dwordAt(directory, at + 42), dwordAt(directory, at + 20),
                          wordAt(directory, at + 10), (flags & 1) != 0, isUtf8});
        at = next;
    }
    takeNames(rawNames, detectEncoding(undeclared));
    return at == directory.size();
}

/// One program wrote all names: together they tell the encoding better than each by itself.
void ZipArchive::takeNames(const QVector<QByteArray> &rawNames, const QByteArray &encoding)
{
    for (int i = 0; i < rawNames.size(); ++i) {
        const QByteArray &raw = rawNames.at(i);
        const QString name =
            m_members.at(i).hasUtf8Name ? QString::fromUtf8(raw) : decodeDeclared(raw, encoding);
        if (m_index.contains(name))
            continue;
        m_index.insert(name, i);
        m_names.append(name);
    }
}

QByteArray ZipArchive::read(const QString &name)
{
    const auto found = m_index.constFind(name);
    if (found == m_index.constEnd())
        return QByteArray();
    const Member &member = m_members.at(*found);
    if (member.isEncrypted || !m_file.seek(member.offset))
        return QByteArray();
    const QByteArray header = m_file.read(localHeaderBytes);
    if (header.size() < localHeaderBytes || dwordAt(header, 0) != 0x04034B50 ||
        !m_file.seek(m_file.pos() + wordAt(header, 26) + wordAt(header, 28)))
        return QByteArray();
    const qint64 maxBytes = qMin(maxMemberBytes, maxTotalBytes - m_unpacked);
    QByteArray bytes;
    if (member.method == storedMethod)
        bytes = m_file.read(qMin<qint64>(member.packedSize, maxBytes));
    else if (member.method == deflatedMethod)
        bytes = inflateMember(member, maxBytes);
    m_unpacked += bytes.size();
    return bytes;
}

QByteArray ZipArchive::inflateMember(const Member &member, qint64 maxBytes)
{
    QByteArray result;
    Inflater inflater;
    qint64 left = member.packedSize;
    QByteArray input;
    QByteArray output(chunkBytes, Qt::Uninitialized);
    int state = inflater.ok ? Z_OK : Z_STREAM_ERROR;
    while (state == Z_OK && result.size() < maxBytes) {
        if (inflater.stream.avail_in == 0) {
            input = m_file.read(qMin<qint64>(left, chunkBytes));
            if (input.isEmpty())
                break;
            left -= input.size();
            inflater.stream.next_in = reinterpret_cast<Bytef *>(input.data());
            inflater.stream.avail_in = static_cast<uInt>(input.size());
        }
        inflater.stream.next_out = reinterpret_cast<Bytef *>(output.data());
        inflater.stream.avail_out = chunkBytes;
        state = inflate(&inflater.stream, Z_NO_FLUSH);
        result.append(output.constData(), chunkBytes - int(inflater.stream.avail_out));
    }
    return result.left(int(maxBytes));
}

} // namespace search::text
