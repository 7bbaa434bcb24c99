#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

namespace core {

/// One line of /proc/self/mountinfo. Paths are bytes, with the kernel's octal escapes undone.
struct Mount
{
    quint32 major = 0;
    quint32 minor = 0;
    QByteArray root; ///< The part of the file system that is mounted: "/" for all of it.
    QByteArray mountPoint;
    QByteArray options; ///< Of this mount, separated by commas: "rw,relatime".
    QByteArray type;    ///< "ext4", "fuseblk" …
    QByteArray source;  ///< "/dev/sda1", "tmpfs" …
    QByteArray superOptions;

    bool isReadOnly() const;
    /// "8:1", as /sys/dev/block names it.
    QString deviceNumber() const;
};

/// In the order of the kernel: of two mounts at one place the later one is seen. Lines that do not
/// have the format are left out.
QVector<Mount> parseMountTable(const QByteArray &text);
/// Empty if the file cannot be read. Any thread.
QVector<Mount> readMountTable(const QByteArray &path = QByteArrayLiteral("/proc/self/mountinfo"));

/// The mount that an absolute, clean path is on; null if there is none. Textual: links are not
/// resolved.
const Mount *mountOf(const QVector<Mount> &mounts, const QByteArray &path);

/// "\040" becomes a blank, and so on; a backslash without three octal digits stays.
QByteArray unescapedMountField(const QByteArray &field);

} // namespace core
