#pragma once

#include <QByteArray>
#include <QString>

#include <memory>

namespace services {
namespace recoveryd {

/// A disk image or block device, open for reading only. Reads never move a shared position, so any
/// thread may read at any time.
class Image
{
public:
    virtual ~Image();
    Image(const Image &) = delete;
    Image &operator=(const Image &) = delete;

    /// Null on failure. Refuses what is neither a regular file nor a block device.
    [[nodiscard]] static std::shared_ptr<const Image> open(const QString &path, QString *error);

    /// Opens a block device so that nobody else can mount it or open it likewise while it is held.
    /// Null with the errno on failure: EBUSY if somebody has it already.
    [[nodiscard]] static std::shared_ptr<const Image> openClaimed(const QString &path, int *code);

    QString path() const { return m_path; }
    /// Bytes; fixed when the image is opened.
    qint64 size() const { return m_size; }
    /// For libraries that probe by descriptor; -1 for an image that is no file.
    int descriptor() const { return m_fd; }

    /// Fills `length` bytes from byte `offset` on. Fails outside the image, and where the file has
    /// become shorter than it was.
    [[nodiscard]] bool read(qint64 offset, char *to, qint64 length, QString *error) const;
    /// Whether the medium no longer answers at all, for instance because it was pulled. To be asked
    /// after a failed read.
    virtual bool isGone() const;
    /// Asks the system to forget what it has cached, so that the next read comes from the medium.
    void dropCache() const;

protected:
    /// `fd` is closed with the image; -1 for one whose bytes readSome() makes up.
    Image(const QString &path, int fd, qint64 size);

    /// As pread(2): bytes read, 0 at the end, or a negative errno.
    virtual qint64 readSome(qint64 offset, char *to, qint64 length) const;

private:
    QString m_path;
    int m_fd;
    qint64 m_size;
};

/// A stretch of an image, such as a partition; offsets are relative to its start. Cheap to copy.
class Volume
{
public:
    Volume() = default;
    /// The stretch is cut at the end of the image.
    Volume(std::shared_ptr<const Image> image, qint64 start, qint64 size);

    bool isValid() const { return m_image != nullptr; }
    const std::shared_ptr<const Image> &image() const { return m_image; }
    qint64 start() const { return m_start; }
    qint64 size() const { return m_size; }

    [[nodiscard]] bool read(qint64 offset, char *to, qint64 length, QString *error) const;
    /// Empty on failure.
    QByteArray read(qint64 offset, qint64 length, QString *error = nullptr) const;

private:
    std::shared_ptr<const Image> m_image;
    qint64 m_start = 0;
    qint64 m_size = 0;
};

} // namespace recoveryd
} // namespace services
