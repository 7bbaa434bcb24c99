#include "core/controllers/diskinfoprovider.h"

#include "core/ipc/ipcclient.h"

using ui::common::models::DiskGroup;
using ui::common::models::PartitionEntry;

namespace core {
namespace controllers {

namespace {

PartitionEntry parseEntry(const QJsonObject &object)
{
    PartitionEntry entry;
    entry.title = object.value(QLatin1String("title")).toString();
    entry.pathAndFs = object.value(QLatin1String("pathAndFs")).toString();
    entry.used = object.value(QLatin1String("used")).toString();
    entry.total = object.value(QLatin1String("total")).toString();
    entry.mountPoint = object.value(QLatin1String("mountPoint")).toString();
    entry.usage = object.value(QLatin1String("usage")).toInt();
    entry.selected = object.value(QLatin1String("selected")).toBool();
    entry.dashed = object.value(QLatin1String("dashed")).toBool();
    return entry;
}

} // namespace

DiskInfoProvider::DiskInfoProvider(ipc::IpcClient *client, QObject *parent)
    : ServiceController(client, parent)
{}

void DiskInfoProvider::refresh()
{
    const bool sent = request(
        QStringLiteral("disk.enumerate"), QJsonObject(),
        [this](bool success, const QJsonObject &data, const QString &message) {
            if (success)
                emit diskGroupsReady(parseGroups(data.value(QLatin1String("groups")).toArray()));
            else
                emit loadFailed(orElse(message, QStringLiteral("获取分区数据失败")));
        });
    if (!sent)
        emit loadFailed(noClientMessage());
}

QVector<DiskGroup> DiskInfoProvider::parseGroups(const QJsonArray &groups)
{
    QVector<DiskGroup> result;
    result.reserve(groups.size());
    for (const QJsonValue &value : groups) {
        const QJsonObject object = value.toObject();
        DiskGroup group;
        group.diskTitle = object.value(QLatin1String("diskTitle")).toString();
        group.diskSize = object.value(QLatin1String("diskSize")).toString();
        const QJsonArray partitions = object.value(QLatin1String("partitions")).toArray();
        for (const QJsonValue &partition : partitions)
            group.partitions.append(parseEntry(partition.toObject()));
        result.append(group);
    }
    return result;
}

} // namespace controllers
} // namespace core
