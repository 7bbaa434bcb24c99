#include "recoveryd/ext/extlookup.h"

#include "recoveryd/ext/extdirectory.h"

#include <QStringList>

namespace services {
namespace recoveryd {

bool lookUp(const ExtVolume &ext, const QString &path, ExtInode *inode, QString *error)
{
    if (!ExtInode::read(ext, kRootInode, inode, error))
        return false;
    const QStringList parts = path.split(QLatin1Char('/'));
    for (const QString &part : parts) {
        if (part.isEmpty())
            continue;
        quint32 next = 0;
        if (!findInDirectory(ext, *inode, part.toUtf8(), &next, error))
            return false;
        if (next == 0) {
            if (error)
                *error = QStringLiteral("文件系统中没有 %1").arg(path);
            return false;
        }
        if (!ExtInode::read(ext, next, inode, error))
            return false;
    }
    return true;
}

} // namespace recoveryd
} // namespace services
