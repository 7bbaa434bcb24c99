#include "core/controllers/search/searchpathresolver.h"

#include "core/pathutil.h"

#include <QDir>
#include <QFileInfo>

namespace core {
namespace controllers {
namespace search {

namespace {

const QLatin1String homeParents[] = {QLatin1String("/home"), QLatin1String("/data/home")};

QString configPathOf(const QString &home)
{
    return QDir::cleanPath(home + QStringLiteral("/.config/morvane/morvane.conf"));
}

QString databasePathOf(const QString &home)
{
    return QDir::cleanPath(home + QStringLiteral("/.config/morvane/search_index.db"));
}

QStringList homesBelow(const QString &targetRoot)
{
    QStringList homes;
    for (const QLatin1String parent : homeParents) {
        const QDir dir(targetRoot + parent);
        if (!dir.exists())
            continue;
        const QStringList names = dir.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
        for (const QString &name : names) {
            const QString home = QDir::cleanPath(dir.filePath(name));
            if (!homes.contains(home))
                homes.append(home);
        }
    }
    return homes;
}

/// A database tells more about who used the search than settings alone.
int stateScore(const QString &home)
{
    return (QFileInfo::exists(configPathOf(home)) ? 1 : 0) +
           (QFileInfo::exists(databasePathOf(home)) ? 2 : 0);
}

QString homeWithMostState(const QStringList &homes)
{
    QString best;
    int bestScore = -1;
    for (const QString &home : homes) {
        const int score = stateScore(home);
        if (score > bestScore || (score == bestScore && home < best)) {
            best = home;
            bestScore = score;
        }
    }
    return best;
}

void useHome(SearchRuntimePaths &paths, const QString &home)
{
    paths.primaryHome = home;
    if (home.isEmpty())
        return;
    paths.configPath = configPathOf(home);
    paths.databasePath = databasePathOf(home);
}

void resolveTarget(SearchRuntimePaths &paths)
{
    paths.targetMounted = core::holdsInstalledSystem(paths.targetRoot);
    if (!paths.targetMounted) {
        paths.errorMessage =
            QStringLiteral("未检测到目标系统挂载目录 "
                           "/live_target，如果确实要查找文件，请先运行Livecd工具挂载目标系统"
                           "。注意，如果你要找回误删的文件，不要运行Livecd工具。");
        return;
    }
    paths.userHomes = homesBelow(paths.targetRoot);
    paths.defaultRoots = paths.userHomes;
    if (paths.userHomes.isEmpty()) {
        paths.errorMessage = QStringLiteral("未在目标系统中识别到用户目录，如果确实要查找文件，请先"
                                            "运行Livecd工具挂载目标系统后重试。"
                                            "注意，如果你要找回误删的文件，不要运行Livecd工具。");
        return;
    }
    useHome(paths, homeWithMostState(paths.userHomes));
    paths.searchStateFound =
        QFileInfo::exists(paths.configPath) || QFileInfo::exists(paths.databasePath);
    if (paths.configPath.isEmpty() || paths.databasePath.isEmpty())
        paths.errorMessage = QStringLiteral("无法确定目标系统的 Morvane 配置目录。");
}

} // namespace

SearchRuntimePaths SearchPathResolver::resolve(core::AppMode mode)
{
    return resolve(mode, QDir::homePath(), SearchRuntimePaths().targetRoot);
}

SearchRuntimePaths SearchPathResolver::resolve(core::AppMode mode, const QString &home,
                                               const QString &targetRoot)
{
    SearchRuntimePaths paths;
    paths.mode = mode;
    paths.targetRoot = QDir::cleanPath(targetRoot);
    if (mode == core::AppMode::livecd) {
        resolveTarget(paths);
        return paths;
    }
    paths.targetMounted = true;
    paths.userHomes = QStringList{home};
    paths.defaultRoots = paths.userHomes;
    useHome(paths, home);
    return paths;
}

bool SearchPathResolver::isAvailable(const SearchRuntimePaths &paths)
{
    if (paths.configPath.isEmpty() || paths.databasePath.isEmpty())
        return false;
    if (paths.mode == core::AppMode::normal)
        return true;
    return paths.targetMounted && !paths.primaryHome.isEmpty() && !paths.defaultRoots.isEmpty();
}

QString SearchPathResolver::toRuntimePath(const SearchRuntimePaths &paths, const QString &path)
{
    const QString clean = cleanedPath(path);
    if (clean.isEmpty() || paths.mode == core::AppMode::normal ||
        core::isInside(clean, paths.targetRoot) || !clean.startsWith(QLatin1Char('/')))
        return clean;
    return QDir::cleanPath(paths.targetRoot + clean);
}

QString SearchPathResolver::toStoredPath(const SearchRuntimePaths &paths, const QString &path)
{
    return paths.mode == core::AppMode::normal ? cleanedPath(path)
                                               : pathBelowRoot(path, paths.targetRoot);
}

QString SearchPathResolver::pathBelowRoot(const QString &path, const QString &root)
{
    const QString clean = cleanedPath(path);
    if (!core::isInside(clean, root))
        return clean;
    if (clean == root)
        return QStringLiteral("/");
    // The file system's own root ends in the separator that starts the remainder.
    return root.endsWith(QLatin1Char('/')) ? clean : clean.mid(root.size());
}

} // namespace search
} // namespace controllers
} // namespace core
