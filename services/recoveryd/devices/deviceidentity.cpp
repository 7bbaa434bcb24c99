#include "recoveryd/devices/deviceidentity.h"

#include "core/jsonnumber.h"
#include "recoveryd/devices/bytes.h"
#include "recoveryd/devices/devicecatalog.h"

#include <QCryptographicHash>

namespace services {
namespace recoveryd {

namespace {

constexpr qint64 kHashedHead = 64 * 1024;

/// The GUID of a GPT or the signature of an MBR; empty if there is none.
QString tableIdOf(const Image &image)
{
    QByteArray head(1024, '\0');
    if (!image.read(0, head.data(), qMin(image.size(), qint64(head.size())), nullptr))
        return QString();
    const Fields fields(head);
    if (fields.isAt(512, "EFI PART", 8))
        return QString::fromLatin1(head.mid(512 + 56, 16).toHex());
    const quint32 signature = fields.le32(440);
    return fields.le16(510) == 0xAA55 && signature != 0 ? QString::number(signature, 16)
                                                        : QString();
}

QString headHashOf(const Volume &volume)
{
    const QByteArray head = volume.read(0, qMin(volume.size(), kHashedHead));
    return QString::fromLatin1(QCryptographicHash::hash(head, QCryptographicHash::Sha256).toHex());
}

} // namespace

QJsonObject identityOf(const Device &device)
{
    const Image &image = *device.volume.image();
    QJsonObject identity{{QStringLiteral("diskSize"), image.size()},
                         {QStringLiteral("start"), device.volume.start()},
                         {QStringLiteral("size"), device.volume.size()},
                         {QStringLiteral("serial"), device.serial},
                         {QStringLiteral("tableId"), tableIdOf(image)}};
    const QString volumeId = device.fileSystem.uuid;
    if (volumeId.isEmpty())
        identity.insert(QStringLiteral("headHash"), headHashOf(device.volume));
    else
        identity.insert(QStringLiteral("volumeId"), volumeId);
    return identity;
}

bool isSameDevice(const DeviceMark &mark, const Device &device, QString *reason)
{
    const auto refuse = [reason](const QString &text) {
        *reason = text;
        return false;
    };
    if (mark.identity.isEmpty()) // of a session before identities
        return (device.volume.image()->path() == mark.imagePath &&
                device.volume.start() == mark.volumeStart) ||
               refuse(QStringLiteral("扫描时的设备 %1 已不可用").arg(mark.devicePath));
    const QJsonObject now = identityOf(device);
    for (const char *key : {"diskSize", "start", "size"})
        if (core::toInt64(now.value(QLatin1String(key))) !=
            core::toInt64(mark.identity.value(QLatin1String(key))))
            return refuse(QStringLiteral("设备 %1 的大小或分区已改变").arg(device.path));
    const auto differs = [&](const char *key) {
        return now.value(QLatin1String(key)) != mark.identity.value(QLatin1String(key));
    };
    if (differs("serial"))
        return refuse(QStringLiteral("设备 %1 不是扫描时的磁盘").arg(device.path));
    if (differs("tableId") || differs("volumeId") || differs("headHash"))
        return refuse(
            QStringLiteral("设备 %1 的内容在扫描之后已改变，原有的结果不再有效").arg(device.path));
    return true;
}

} // namespace recoveryd
} // namespace services
