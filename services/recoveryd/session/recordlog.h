#pragma once

#include <QByteArray>
#include <QString>

#include <functional>

namespace services::recoveryd {

/// A file of records that only grows. Each record carries its length and a checksum, so whatever a
/// crash leaves at the end is told from what was written whole: reading ends there, and appending
/// cuts it off. One writer; readers may follow in other threads and processes. An instance belongs
/// to one thread.
class RecordLog
{
public:
    static constexpr qint64 kMaxRecord = 64 * 1024 * 1024;

    RecordLog() = default;
    ~RecordLog();
    RecordLog(const RecordLog &) = delete;
    RecordLog &operator=(const RecordLog &) = delete;

    /// Opens an existing log for reading. Fails if it is missing or no log.
    [[nodiscard]] bool openForReading(const QString &path, QString *error);
    /// Opens a log for appending, makes it if need be. A torn end is cut off by the first scan().
    [[nodiscard]] bool openForAppending(const QString &path, QString *error);
    bool isOpen() const { return m_fd >= 0; }

    /// Calls `taken` with the place and the bytes of each whole record behind the last call's, also
    /// of those appended since.
    [[nodiscard]] bool
    scan(const std::function<void(qint64 place, const QByteArray &record)> &taken, QString *error);
    /// The record at a place that scan() or append() told. Empty if it is not there.
    QByteArray read(qint64 place) const;

    /// Buffers a record; its place.
    qint64 append(const QByteArray &record);
    /// Hands what is buffered to the system, from where a killed process does not lose it; with
    /// `toMedium`, to the medium. Also reports what went wrong in append().
    [[nodiscard]] bool flush(bool toMedium, QString *error);

private:
    [[nodiscard]] bool open(const QString &path, int flags, QString *error);
    QByteArray bytesAt(qint64 place, qint64 length) const;

    QString m_path;
    int m_fd = -1;
    bool m_isAppending = false;
    qint64 m_end = 0;    ///< Behind the last whole record that is known.
    QByteArray m_buffer; ///< From m_end - m_buffer.size() on, not written yet.
    QString m_error;
    mutable qint64 m_windowStart = 0;
    mutable QByteArray m_window; ///< What was read last.
};

} // namespace services::recoveryd
