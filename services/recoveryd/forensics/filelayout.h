#pragma once

#include "recoveryd/devices/devicecatalog.h"
#include "recoveryd/forensics/snapshot.h"

namespace services {
namespace recoveryd {

/// The most blocks that a snapshot holds: 512 MiB at 4 KiB.
constexpr qint64 kMaxSnapshotBlocks = 131072;

/// Finds out where a regular file's data lie. `filePath` is the absolute path of a file of this
/// machine, or "<device>:/path" for one inside an image, with the device path, the image's path or
/// its file name before the colon.
///
/// For a file of this machine its block device has to be readable, since that is where the blocks
/// are looked at after the file is gone.
[[nodiscard]] bool findLayout(const DeviceCatalog &catalog, const QString &filePath,
                              FileLayout *layout, QString *error);

/// The volume of a layout, from the catalog or opened anew.
[[nodiscard]] bool openVolume(const DeviceCatalog &catalog, const FileLayout &layout,
                              Volume *volume, QString *error);

} // namespace recoveryd
} // namespace services
