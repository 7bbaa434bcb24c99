#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

/// A Btrfs image made by mkfs.btrfs and filled by the kernel, which needs root and loop devices.
class BtrfsImage
{
public:
    /// Why no image can be made here; empty if one can. Gives the process mounts of its own.
    static QString obstacle();

    /// `mountPoint` is an existing folder.
    BtrfsImage(const QString &path, const QString &mountPoint);
    ~BtrfsImage();

    QString path() const { return m_path; }
    /// A new, empty image.
    [[nodiscard]] bool format(int sizeMiB, const QStringList &options);
    /// The same image once more, with what a quick format leaves.
    [[nodiscard]] bool formatAgain(const QStringList &options);
    /// `options` as of mount, for instance "compress-force=lzo"; discard is always off.
    [[nodiscard]] bool mount(const QString &options = QString());
    [[nodiscard]] bool unmount();

    // While it is mounted, by a path below the root of the volume.
    [[nodiscard]] bool write(const QString &name, const QByteArray &bytes) const;
    /// Writes two files by turns, each piece to the medium at once.
    [[nodiscard]] bool writeInPieces(const QString &first, const QString &second,
                                     const QByteArray &bytes, int piece) const;
    [[nodiscard]] bool remove(const QString &name) const;
    /// Ends the transaction.
    [[nodiscard]] bool sync() const;
    /// "create NAME", "snapshot FROM NAME" or "delete NAME", the names below the root.
    [[nodiscard]] bool subvolume(const QStringList &command) const;
    QString inside(const QString &name) const { return m_mountPoint + QLatin1Char('/') + name; }

private:
    QString m_path;
    QString m_mountPoint;
    bool m_isMounted = false;
};
