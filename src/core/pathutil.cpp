#include "core/pathutil.h"

#include <QDir>
#include <QFileInfo>

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

bool holdsInstalledSystem(const QString &dir)
{
    const auto isDirectory = [&dir](const char *below) {
        return QFileInfo(dir + QLatin1String(below)).isDir();
    };
    return isDirectory("") && QFileInfo::exists(dir + QStringLiteral("/etc/os-release")) &&
           (isDirectory("/home") || isDirectory("/data/home"));
}

QString cleanedPath(const QString &path)
{
    return QDir::cleanPath(path.startsWith(QLatin1Char('/')) ? path : path.trimmed());
}

} // namespace core
