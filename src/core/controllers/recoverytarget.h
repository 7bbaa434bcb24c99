#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVector>

#include <functional>

namespace core {
namespace controllers {

/// One line of /proc/self/mountinfo, with its octal escapes undone.
struct MountEntry
{
    QString mountPoint;
    QString fileSystem; ///< As the kernel names it: "ext4", "vfat".
    QString source;     ///< Usually a device, "/dev/sda1".
};

/// Lines that are no mount are left out.
QVector<MountEntry> parseMountInfo(const QByteArray &text);

/// The mount that holds `path`, which is absolute and without links: of several on the same place
/// the last one, which hides the others. Empty if none holds it.
MountEntry mountOf(const QString &path, const QVector<MountEntry> &mounts);

/// True if writing to one of the devices can change the other: they are the same, or one is a
/// partition of the other. Two partitions of one disk do not touch each other.
bool devicesOverlap(const QString &a, const QString &b);

/// What is known of the place that recovered files are to be written to.
struct RecoveryTargetFacts
{
    QString outputDir;  ///< The new directory; does not exist yet.
    QString mountPoint; ///< Empty if unknown, as are the next two.
    QString fileSystem;
    QStringList devices;   ///< The mounted device, and those that it is made of.
    qint64 freeBytes = -1; ///< For this user; -1 if unknown.
};

/// A recovery that is about to start.
struct RecoveryDemand
{
    QString scannedDevice;
    qint64 totalBytes = 0;
    qint64 largestBytes = 0; ///< Of a single file.
};

/// What speaks against writing there, a sentence each; empty if nothing does. What is not known
/// does not speak against it.
QStringList recoveryTargetWarnings(const RecoveryDemand &demand, const RecoveryTargetFacts &facts);

/// A directory below `base` that does not exist yet, named after the time; `exists` tells which
/// paths do. So a recovery never writes into an earlier result.
QString buildRecoveryOutputDir(const QString &base, const QDateTime &now,
                               const std::function<bool(const QString &)> &exists);

/// True if something has this name already, a link that leads nowhere included. Asks the disk.
bool pathIsTaken(const QString &path);

/// Looks at the file system, so that it may block: for a thread other than that of the GUI. `base`
/// need not exist, in which case its nearest parent that does is looked at.
RecoveryTargetFacts probeRecoveryTarget(const QString &base);

} // namespace controllers
} // namespace core
