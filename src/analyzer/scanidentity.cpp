#include "analyzer/scanidentity.h"

namespace {

const QLatin1String kDeviceKey("device");
const QLatin1String kInodeKey("inode");
const QLatin1String kModifiedKey("modifiedNs");

} // namespace

void insertIdentity(const core::FileIdentity &identity, QVariantMap *file)
{
    if (!identity.isValid())
        return;
    file->insert(kDeviceKey, identity.device);
    file->insert(kInodeKey, identity.inode);
    file->insert(kModifiedKey, identity.modifiedNs);
}

core::FileIdentity identityFromMap(const QVariantMap &file, qint64 size)
{
    core::FileIdentity identity;
    identity.device = file.value(kDeviceKey).toULongLong();
    identity.inode = file.value(kInodeKey).toULongLong();
    identity.modifiedNs = file.value(kModifiedKey).toULongLong();
    identity.size = size;
    return identity;
}
