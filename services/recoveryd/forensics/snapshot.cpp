#include "recoveryd/forensics/snapshot.h"

#include "common/text.h"
#include "core/jsonnumber.h"

#include <QJsonArray>

namespace services {
namespace recoveryd {

namespace {

constexpr qint64 kMaxBlock = 1024 * 1024;
constexpr qint64 kMaxPlace = qint64(1) << 60;

QJsonArray extentsOf(const FileLayout &layout)
{
    QJsonArray extents;
    for (const BlockRun &run : layout.runs)
        extents.append(
            QJsonObject{{QStringLiteral("physicalOffset"), run.physical * layout.blockSize},
                        {QStringLiteral("logicalOffset"), run.logical * layout.blockSize},
                        {QStringLiteral("length"), run.count * layout.blockSize}});
    return extents;
}

bool readExtents(const QJsonArray &extents, FileLayout *layout)
{
    for (const QJsonValue &value : extents) {
        const QJsonObject extent = value.toObject();
        const auto blocks = [&extent, layout](const char *key) {
            const qint64 bytes = core::toInt64(extent.value(QLatin1String(key)));
            return bytes >= 0 && bytes < kMaxPlace ? bytes / layout->blockSize : qint64(-1);
        };
        const BlockRun run{blocks("logicalOffset"), blocks("physicalOffset"), blocks("length")};
        if (run.logical < 0 || run.physical < 0 || run.count <= 0)
            return false;
        layout->runs.append(run);
    }
    return true;
}

} // namespace

qint64 FileLayout::blockCount() const
{
    qint64 count = 0;
    for (const BlockRun &run : runs)
        count += run.count;
    return count;
}

QByteArray inodeMark(const QByteArray &rawInode)
{
    // Mode, size, deletion time, links, flags, block map, generation, upper half of the size.
    static const int fields[][2] = {{0, 2},  {4, 4},   {20, 4},  {26, 2},
                                    {32, 4}, {40, 60}, {100, 4}, {108, 4}};
    QByteArray mark;
    for (const auto &field : fields)
        mark.append(rawInode.mid(field[0], field[1]));
    return mark;
}

QJsonObject Snapshot::summary() const
{
    return {{QStringLiteral("snapshotId"), snapshotId},
            {QStringLiteral("filePath"), filePath},
            {QStringLiteral("totalBlocks"), layout.blockCount()},
            {QStringLiteral("inodeNumber"), qint64(layout.inodeNumber)}};
}

QJsonObject Snapshot::detail() const
{
    QJsonObject object = summary();
    object.insert(QStringLiteral("fileSize"), layout.fileSize);
    object.insert(QStringLiteral("devicePath"), layout.devicePath);
    object.insert(QStringLiteral("fileSha256"), fileSha256);
    object.insert(QStringLiteral("snapshotTime"), snapshotTime);
    object.insert(QStringLiteral("extents"), extentsOf(layout));
    return object;
}

QJsonObject Snapshot::toStored() const
{
    QJsonObject object = detail();
    object.insert(QStringLiteral("imagePath"), layout.imagePath);
    object.insert(QStringLiteral("volumeStart"), layout.volumeStart);
    object.insert(QStringLiteral("blockSize"), layout.blockSize);
    object.insert(QStringLiteral("inode"), QString::fromLatin1(layout.inode.toHex()));
    object.insert(QStringLiteral("blockSha256"), QJsonArray::fromStringList(blockSha256));
    return object;
}

bool Snapshot::fromStored(const QJsonObject &object, Snapshot *snapshot)
{
    const auto text = [&object](const char *key) {
        return object.value(QLatin1String(key)).toString();
    };
    const auto number = [&object](const char *key) {
        return core::toInt64(object.value(QLatin1String(key)));
    };
    *snapshot = Snapshot();
    snapshot->snapshotId = text("snapshotId");
    snapshot->filePath = text("filePath");
    snapshot->fileSha256 = text("fileSha256");
    snapshot->snapshotTime = text("snapshotTime");
    FileLayout &layout = snapshot->layout;
    layout.devicePath = text("devicePath");
    layout.imagePath = text("imagePath");
    layout.volumeStart = number("volumeStart");
    layout.blockSize = number("blockSize");
    layout.fileSize = number("fileSize");
    layout.inodeNumber = quint64(number("inodeNumber"));
    layout.inode = QByteArray::fromHex(text("inode").toLatin1());
    const QJsonArray hashes = object.value(QLatin1String("blockSha256")).toArray();
    for (const QJsonValue &hash : hashes)
        snapshot->blockSha256.append(hash.toString());
    return isId(snapshot->snapshotId) && layout.blockSize > 0 && layout.blockSize <= kMaxBlock &&
           layout.fileSize >= 0 && layout.volumeStart >= 0 &&
           readExtents(object.value(QLatin1String("extents")).toArray(), &layout) &&
           layout.blockCount() == snapshot->blockSha256.size();
}

} // namespace recoveryd
} // namespace services
