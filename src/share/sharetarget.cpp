#include "share/sharetarget.h"

#include "share/sharepaths.h"
#include "share/sharerecords.h"

#include <QDir>
#include <QFileInfo>

namespace share {

namespace {

const QLatin1String kHere(".");

} // namespace

bool servesHiddenNames(const ShareRoot &root)
{
    return isHiddenName(QFileInfo(QDir::cleanPath(root.localPath)).fileName());
}

ShareTarget findTarget(const SharedEntry &entry, const ShareRoot &root, const QString &relativePath)
{
    ShareTarget target;
    if (!cleanRelativePath(relativePath, &target.path))
        return target;
    if (target.path == kHere)
        target.path.clear();
    target.isHidden = hasHiddenPart(target.path) && !servesHiddenNames(root);
    if (!target.isHidden)
        target.entry = entry.below(target.path);
    return target;
}

QString resolveSafePath(const QString &rootPath, const QString &relativePath)
{
    QString path;
    if (relativePath.isEmpty())
        return rootPath;
    if (!cleanRelativePath(relativePath, &path) ||
        !SharedEntry::root(rootPath).below(path).isOpen())
        return QString();
    return joinedPath(rootPath, path);
}

} // namespace share
