#include "core/controllers/search/searchpathresolver.h"
#include "protectionsteps.h"
#include "recoverysteps.h"
#include "searchsteps.h"
#include "tour.h"
#include "ui/pages/filesearchpage.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {

using namespace searchsteps;
using core::controllers::search::SearchPathResolver;

/// An installed system as the recovery medium would mount it: just what it is recognised by, and a
/// user with documents.
bool makeTargetSystem(Tour &tour, QString *found, QString *error)
{
    QDir().mkpath(tour.targetRoot() + QStringLiteral("/etc"));
    QFile release(tour.targetRoot() + QStringLiteral("/etc/os-release"));
    if (!release.open(QIODevice::WriteOnly)) {
        *error = release.errorString();
        return false;
    }
    release.write("NAME=\"Damaged machine\"\n");
    return makeDocuments(tour, tour.targetRoot() + QStringLiteral("/home/wang/文档"), found, error);
}

bool openSearchOverTarget(Tour &tour, QString *found, QString *error)
{
    const auto paths =
        SearchPathResolver::resolve(core::AppMode::livecd, tour.home(), tour.targetRoot());
    if (!SearchPathResolver::isAvailable(paths)) {
        *error = paths.errorMessage;
        return false;
    }
    tour.showWindow(new FileSearchPage(core::AppMode::livecd, paths));
    *found = paths.primaryHome;
    return true;
}

bool buildIndex(Tour &tour, QString *found, QString *error)
{
    return tour.click("BuildIndexButton", error) && waitForBuild(tour, found, error);
}

bool searchByName(Tour &tour, QString *found, QString *error)
{
    if (!showNameView(tour, error) ||
        !findFile(tour, "NameSearchEdit", "NameResultTable", QStringLiteral("样例"),
                  QStringLiteral("样例-docx.docx"), error))
        return false;
    for (const QString &path : resultPaths(tour, "NameResultTable")) {
        if (!QFileInfo::exists(path) || !path.startsWith(tour.targetRoot())) {
            *error = QStringLiteral("%1 cannot be opened from here").arg(path);
            return false;
        }
    }
    *found = QStringLiteral("%1 rows, each below the mounted system")
                 .arg(resultPaths(tour, "NameResultTable").size());
    return tour.picture(QStringLiteral("name-search"), error);
}

bool searchByContent(Tour &tour, QString *found, QString *error)
{
    return findEveryText(tour, found, error) &&
           tour.picture(QStringLiteral("content-search"), error);
}

} // namespace

QList<TourStep> livecdModeSteps()
{
    return recoverySteps() + protectionsteps::livecdSteps() +
           QList<TourStep>{{"已安装系统", makeTargetSystem},
                           {"目标系统搜索", openSearchOverTarget},
                           {"构建索引", buildIndex},
                           {"文件名搜索", searchByName},
                           {"全文检索", searchByContent}};
}
