#include "recoveryd/ntfs/recyclebin.h"

#include "recoveryd/devices/bytes.h"
#include "recoveryd/ntfs/record.h"

namespace services::recoveryd::ntfs {

namespace {

constexpr int kMaxPath = 32768; ///< UTF-16 units.

/// "C:\Users\li\a.txt" as "Users/li/a.txt"; empty if it is no path on a drive.
QByteArray pathFromWindows(const QByteArray &windowsPath)
{
    if (windowsPath.size() < 4 || windowsPath.at(1) != ':' || windowsPath.at(2) != '\\')
        return QByteArray();
    QByteArray path = windowsPath.mid(3);
    path.replace('\\', '/');
    return path.endsWith('/') || path.contains("//") ? QByteArray() : path;
}

} // namespace

bool RecycleBin::isInside(const QByteArray &folder)
{
    return qstrnicmp(folder.constData(), "$recycle.bin/", 13) == 0;
}

void RecycleBin::addInfo(const QByteArray &folder, const QByteArray &name,
                         const QByteArray &contents)
{
    const Fields fields(contents);
    const quint64 version = fields.le64(0);
    if (!name.startsWith("$I") || name.size() < 3 || (version != 1 && version != 2))
        return;
    const int at = version == 1 ? 24 : 28;
    const quint32 declared = version == 1 ? 260 : fields.le32(24);
    int count = qMin(int(qMin(declared, quint32(kMaxPath))), (contents.size() - at) / 2);
    for (int i = 0; i < count; ++i)
        if (fields.le16(at + 2 * i) == 0)
            count = i;
    if (count <= 0)
        return;
    // nameFromUtf16 is meant for single names: a slash cannot stand in a Windows path.
    Origin origin;
    origin.path = pathFromWindows(nameFromUtf16(contents.constData() + at, count));
    origin.deletedMs = msFromFileTime(fields.le64(16));
    if (!origin.path.isEmpty())
        m_origins.insert(folder + "/$R" + name.mid(2), origin);
}

bool RecycleBin::restore(QByteArray *folder, QByteArray *name, qint64 *deletedMs) const
{
    if (m_origins.isEmpty() || !isInside(*folder))
        return false;
    const QByteArray path = *folder + '/' + *name;
    // The bin, the user's folder in it, then the deleted file or folder.
    const int user = path.indexOf('/') + 1;
    const int entry = path.indexOf('/', user) + 1;
    if (entry == 0)
        return false;
    const int below = path.indexOf('/', entry);
    const auto origin = m_origins.constFind(path.left(below < 0 ? path.size() : below));
    if (origin == m_origins.constEnd())
        return false;
    const QByteArray restored = origin->path + (below < 0 ? QByteArray() : path.mid(below));
    const int slash = restored.lastIndexOf('/');
    *folder = slash < 0 ? QByteArray() : restored.left(slash);
    *name = restored.mid(slash + 1);
    *deletedMs = origin->deletedMs;
    return true;
}

} // namespace services::recoveryd::ntfs
