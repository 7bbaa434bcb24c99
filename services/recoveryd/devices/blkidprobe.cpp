#include "recoveryd/devices/blkidprobe.h"

#include <QFile>

#include <blkid/blkid.h>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace services::recoveryd {

namespace {

struct FreeProbe
{
    void operator()(blkid_probe probe) const { ::blkid_free_probe(probe); }
};
using Probe = std::unique_ptr<std::remove_pointer_t<blkid_probe>, FreeProbe>;

QString valueOf(const Probe &probe, const char *name)
{
    const char *value = nullptr;
    if (::blkid_probe_lookup_value(probe.get(), name, &value, nullptr) != 0)
        return QString();
    return QString::fromUtf8(value);
}

FileSystem probe(int fd, const Volume &volume)
{
    FileSystem found;
    const Probe probe(::blkid_new_probe());
    if (!probe || ::blkid_probe_set_device(probe.get(), fd, volume.start(), volume.size()) != 0)
        return found;
    ::blkid_probe_enable_superblocks(probe.get(), 1);
    ::blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_TYPE | BLKID_SUBLKS_LABEL |
                                                         BLKID_SUBLKS_UUID | BLKID_SUBLKS_USAGE);
    // 1: nothing; -2: several contradict each other, as after a format that left the old ones.
    if (::blkid_do_safeprobe(probe.get()) != 0)
        return found;
    found.type = valueOf(probe, "TYPE").toLower();
    found.label = valueOf(probe, "LABEL");
    found.uuid = valueOf(probe, "UUID");
    const QString usage = valueOf(probe, "USAGE");
    found.isContainer = usage == QLatin1String("raid") || usage == QLatin1String("crypto");
    return found;
}

} // namespace

FileSystem probeWithBlkid(const Volume &volume)
{
    // A descriptor of its own, since the library moves the position.
    const QByteArray name = "/proc/self/fd/" + QByteArray::number(volume.image()->descriptor());
    const int fd = ::open(name.constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return FileSystem();
    const FileSystem found = probe(fd, volume);
    ::close(fd);
    return found;
}

} // namespace services::recoveryd
