#include "core/mounttable.h"

#include "core/posixfile.h"

namespace core {

namespace {

constexpr qint64 kMaxTable = 16 * 1024 * 1024;

// Fields of a line; after the optional ones, which "-" ends, three more follow.
enum Field { DeviceNumber = 2, Root, MountPoint, Options, FirstOptional };

bool isOctal(char c)
{
    return c >= '0' && c <= '7';
}

bool isBelow(const QByteArray &path, const QByteArray &dir)
{
    return path == dir || dir == "/" || (path.startsWith(dir) && path.at(dir.size()) == '/');
}

} // namespace

bool Mount::isReadOnly() const
{
    return options == "ro" || options.startsWith("ro,");
}

QString Mount::deviceNumber() const
{
    return QStringLiteral("%1:%2").arg(major).arg(minor);
}

QByteArray unescapedMountField(const QByteArray &field)
{
    QByteArray text;
    text.reserve(field.size());
    for (int i = 0; i < field.size(); ++i) {
        if (field.at(i) == '\\' && i + 3 < field.size() && isOctal(field.at(i + 1)) &&
            isOctal(field.at(i + 2)) && isOctal(field.at(i + 3))) {
            text += char(field.mid(i + 1, 3).toInt(nullptr, 8));
            i += 3;
        } else {
            text += field.at(i);
        }
    }
    return text;
}

QVector<Mount> parseMountTable(const QByteArray &text)
{
    QVector<Mount> mounts;
    const QList<QByteArray> lines = text.split('\n');
    for (const QByteArray &line : lines) {
        const QList<QByteArray> fields = line.split(' ');
        const int separator = fields.indexOf("-", FirstOptional);
        if (separator < 0 || fields.size() < separator + 3)
            continue;
        const QList<QByteArray> number = fields.at(DeviceNumber).split(':');
        if (number.size() != 2)
            continue;
        Mount mount;
        mount.major = number.at(0).toUInt();
        mount.minor = number.at(1).toUInt();
        mount.root = unescapedMountField(fields.at(Root));
        mount.mountPoint = unescapedMountField(fields.at(MountPoint));
        mount.options = fields.at(Options);
        mount.type = fields.at(separator + 1);
        mount.source = unescapedMountField(fields.at(separator + 2));
        mount.superOptions = fields.value(separator + 3);
        mounts.append(mount);
    }
    return mounts;
}

QVector<Mount> readMountTable(const QByteArray &path)
{
    QByteArray text;
    return readFile(path, kMaxTable, &text) == 0 ? parseMountTable(text) : QVector<Mount>();
}

const Mount *mountOf(const QVector<Mount> &mounts, const QByteArray &path)
{
    const Mount *found = nullptr;
    for (const Mount &mount : mounts)
        if (isBelow(path, mount.mountPoint) &&
            (!found || mount.mountPoint.size() >= found->mountPoint.size()))
            found = &mount;
    return found;
}

} // namespace core
