#include "core/controllers/upgrade/devicestrings.h"

#include <QCryptographicHash>
#include <QFile>
#include <QList>
#include <QSysInfo>

namespace core {
namespace controllers {
namespace upgrade {

namespace {

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

QString fingerprintOf(const QByteArray &machineId)
{
    const QByteArray id = machineId.trimmed();
    if (id.isEmpty())
        return QString();
    return QString::fromLatin1(
        QCryptographicHash::hash("morvane-update:" + id, QCryptographicHash::Sha256).toHex());
}

QString cpuModelFrom(const QByteArray &cpuInfo)
{
    QByteArray board;
    const QList<QByteArray> lines = cpuInfo.split('\n');
    for (const QByteArray &line : lines) {
        const int colon = line.indexOf(':');
        if (colon < 0)
            continue;
        const QByteArray key = line.left(colon).trimmed();
        const QByteArray value = line.mid(colon + 1).trimmed();
        if (key == "model name")
            return QString::fromUtf8(value);
        if (key == "Hardware")
            board = value;
    }
    return QString::fromUtf8(board);
}

DeviceStrings readDeviceStrings()
{
    return {fingerprintOf(contentOf(QStringLiteral("/etc/machine-id"))),
            QSysInfo::prettyProductName(),
            cpuModelFrom(contentOf(QStringLiteral("/proc/cpuinfo")))};
}

} // namespace upgrade
} // namespace controllers
} // namespace core
