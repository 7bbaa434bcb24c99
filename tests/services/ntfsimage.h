#pragma once

#include <QByteArray>
#include <QMap>
#include <QProcess>
#include <QString>
#include <QStringList>

/// An NTFS image made by mkntfs and filled through ntfs-3g, which needs root and /dev/fuse.
class NtfsImage
{
public:
    /// Why no image can be made here; empty if one can. Gives the process mounts of its own.
    static QString obstacle();

    /// `mountPoint` is an existing folder.
    NtfsImage(const QString &path, const QString &mountPoint);
    ~NtfsImage();

    QString path() const { return m_path; }
    /// A new, empty image.
    [[nodiscard]] bool format(int sizeMiB, const QStringList &options);
    /// The same image once more, with what a quick format leaves.
    [[nodiscard]] bool formatAgain(const QStringList &options);
    [[nodiscard]] bool mount();
    /// Returns once the driver has written everything.
    [[nodiscard]] bool unmount();

    // While it is mounted, by a path below the root of the volume.
    [[nodiscard]] bool write(const QString &name, const QByteArray &bytes) const;
    /// Fills the volume but for `bytes`, which are left in gaps of `gap` bytes. The files that do
    /// this are named "spacer…".
    [[nodiscard]] bool leaveGaps(qint64 bytes, int gap) const;
    [[nodiscard]] bool makeFolder(const QString &name) const;
    /// New files in the folder are compressed.
    [[nodiscard]] bool compress(const QString &folder) const;
    [[nodiscard]] bool writeStream(const QString &name, const QByteArray &stream,
                                   const QByteArray &bytes) const;
    qint64 bytesFree() const;
    [[nodiscard]] bool remove(const QString &name) const;
    QString inside(const QString &name) const { return m_mountPoint + QLatin1Char('/') + name; }

private:
    QString m_path;
    QString m_mountPoint;
    QProcess m_driver;
};
