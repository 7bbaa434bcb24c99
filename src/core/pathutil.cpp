#include "core/pathutil.h"

#include <QDir>

namespace core {

bool isInside(const QString &path, const QString &dir)
{
    if (path.isEmpty() || dir.isEmpty())
        return false;
    const QString cleanPath = QDir::cleanPath(path);
    QString base = QDir::cleanPath(dir);
    if (cleanPath == base)
        return true;
    if (!base.endsWith(QLatin1Char('/')))
        base += QLatin1Char('/');
    return cleanPath.startsWith(base);
}

} // namespace core
