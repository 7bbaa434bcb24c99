#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>

/// An ext2/3/4 image that the kernel itself fills through a loop mount, which needs root.
class ExtImage
{
public:
    /// Why no image can be mounted here; empty if one can. Gives the process mounts of its own.
    static QString obstacle();

    /// `mountPoint` is an existing folder.
    ExtImage(const QString &path, const QString &mountPoint);
    ~ExtImage();

    QString path() const { return m_path; }
    /// A new, empty image.
    [[nodiscard]] bool format(int sizeMiB, const QStringList &options);
    /// The same image once more: what was there is not wiped.
    [[nodiscard]] bool formatAgain(const QStringList &options);
    [[nodiscard]] bool mount(const QString &options = QString());
    [[nodiscard]] bool unmount();
    [[nodiscard]] bool remount(const QString &options = QString());
    /// The image as it would be found after a power cut now.
    [[nodiscard]] bool copyTo(const QString &path) const;

    // While it is mounted, by a path below the root of the volume.
    [[nodiscard]] bool write(const QString &name, const QByteArray &bytes) const;
    /// Writes both files a piece at a time in turn, so that neither is in one piece.
    [[nodiscard]] bool writeInTurn(const QString &first, const QString &second,
                                   const QByteArray &bytes, int piece) const;
    [[nodiscard]] bool makeFolder(const QString &name) const;
    /// Files and, with all they hold, folders.
    [[nodiscard]] bool remove(const QString &name) const;
    void sync() const;
    QString inside(const QString &name) const { return m_mountPoint + QLatin1Char('/') + name; }

private:
    QString m_path;
    QString m_mountPoint;
    bool m_isMounted = false;
};
