#include "recoveryd/session/recordlog.h"

#include <QFile>
#include <QtEndian>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

namespace services::recoveryd {

namespace {

// Eight bytes at the start of the file, then records of u32 length, u32 CRC-32 and the bytes.
// Little-endian.
constexpr char kMagic[] = {'M', 'V', 'R', 'L', 'O', 'G', '0', '1'};
constexpr qint64 kMagicSize = sizeof(kMagic);
constexpr qint64 kHeaderSize = 8;
constexpr int kBufferSize = 256 * 1024;
constexpr qint64 kWindow = 128 * 1024;

quint32 checksumOf(const char *bytes, qint64 length)
{
    return quint32(::crc32(0, reinterpret_cast<const Bytef *>(bytes), uInt(length)));
}

bool writeAll(int fd, const char *bytes, qint64 length, qint64 offset)
{
    while (length > 0) {
        const ssize_t written = ::pwrite(fd, bytes, size_t(length), off_t(offset));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        bytes += written;
        length -= written;
        offset += written;
    }
    return true;
}

QString systemError(const QString &what, const QString &path)
{
    return QStringLiteral("%1 %2：%3")
        .arg(what, path, QString::fromLocal8Bit(std::strerror(errno)));
}

} // namespace

RecordLog::~RecordLog()
{
    if (m_fd < 0)
        return;
    if (m_isAppending && !flush(false, nullptr))
        qWarning() << "[RecordLog]" << m_error;
    ::close(m_fd);
}

bool RecordLog::open(const QString &path, int flags, QString *error)
{
    m_path = path;
    m_fd = ::open(QFile::encodeName(path).constData(), flags | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (m_fd >= 0)
        return true;
    if (error)
        *error = systemError(QStringLiteral("无法打开"), path);
    return false;
}

bool RecordLog::openForReading(const QString &path, QString *error)
{
    if (!open(path, O_RDONLY, error))
        return false;
    m_end = kMagicSize;
    if (bytesAt(0, kMagicSize) == QByteArray(kMagic, kMagicSize))
        return true;
    if (error)
        *error = QStringLiteral("%1 不是扫描结果文件").arg(path);
    ::close(m_fd);
    m_fd = -1;
    return false;
}

bool RecordLog::openForAppending(const QString &path, QString *error)
{
    if (!open(path, O_RDWR | O_CREAT, error))
        return false;
    m_isAppending = true;
    m_end = kMagicSize;
    if (bytesAt(0, kMagicSize) == QByteArray(kMagic, kMagicSize))
        return true;
    if (::ftruncate(m_fd, 0) == 0 && writeAll(m_fd, kMagic, kMagicSize, 0))
        return true;
    if (error)
        *error = systemError(QStringLiteral("无法写入"), path);
    return false;
}

QByteArray RecordLog::bytesAt(qint64 place, qint64 length) const
{
    const bool isHeld = place >= m_windowStart && place + length <= m_windowStart + m_window.size();
    if (!isHeld) {
        m_window.resize(int(qMax(length, kWindow)));
        const ssize_t got = ::pread(m_fd, m_window.data(), size_t(m_window.size()), off_t(place));
        m_window.resize(int(qMax(ssize_t(0), got)));
        m_windowStart = place;
    }
    return m_window.mid(int(place - m_windowStart), int(length));
}

bool RecordLog::scan(const std::function<void(qint64, const QByteArray &)> &taken, QString *error)
{
    m_window.clear();
    while (true) {
        const QByteArray record = read(m_end);
        if (record.isNull())
            break;
        taken(m_end, record);
        m_end += kHeaderSize + record.size();
    }
    m_window.clear();
    if (!m_isAppending || ::ftruncate(m_fd, off_t(m_end)) == 0)
        return true;
    if (error)
        *error = systemError(QStringLiteral("无法写入"), m_path);
    return false;
}

QByteArray RecordLog::read(qint64 place) const
{
    const qint64 buffered = place - (m_end - m_buffer.size());
    QByteArray header;
    if (m_isAppending && buffered >= 0 && buffered < m_buffer.size())
        header = m_buffer.mid(int(buffered), kHeaderSize);
    else
        header = bytesAt(place, kHeaderSize);
    if (header.size() < kHeaderSize)
        return QByteArray();
    const qint64 length = qFromLittleEndian<quint32>(header.constData());
    const quint32 checksum = qFromLittleEndian<quint32>(header.constData() + 4);
    if (length == 0 || length > kMaxRecord)
        return QByteArray();
    const QByteArray record = buffered >= 0 && buffered < m_buffer.size()
                                  ? m_buffer.mid(int(buffered + kHeaderSize), int(length))
                                  : bytesAt(place + kHeaderSize, length);
    const bool isWhole =
        record.size() == length && checksumOf(record.constData(), length) == checksum;
    return isWhole ? record : QByteArray();
}

qint64 RecordLog::append(const QByteArray &record)
{
    char header[kHeaderSize];
    qToLittleEndian<quint32>(quint32(record.size()), header);
    qToLittleEndian<quint32>(checksumOf(record.constData(), record.size()), header + 4);
    const qint64 place = m_end;
    m_buffer.append(header, int(kHeaderSize));
    m_buffer.append(record);
    m_end += kHeaderSize + record.size();
    if (m_buffer.size() >= kBufferSize && m_error.isEmpty() && !flush(false, nullptr))
        qWarning() << "[RecordLog]" << m_error;
    return place;
}

bool RecordLog::flush(bool toMedium, QString *error)
{
    if (m_error.isEmpty() && !m_buffer.isEmpty()) {
        const qint64 start = m_end - m_buffer.size();
        if (writeAll(m_fd, m_buffer.constData(), m_buffer.size(), start))
            m_buffer.resize(0);
        else
            m_error = systemError(QStringLiteral("无法写入"), m_path);
    }
    if (m_error.isEmpty() && toMedium && ::fdatasync(m_fd) != 0)
        m_error = systemError(QStringLiteral("无法写入"), m_path);
    if (error)
        *error = m_error;
    return m_error.isEmpty();
}

} // namespace services::recoveryd
