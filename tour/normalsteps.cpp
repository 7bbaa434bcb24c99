#include "app/mainwindow.h"
#include "protectionsteps.h"
#include "searchsteps.h"
#include "settingssteps.h"
#include "sharesteps.h"
#include "spacesteps.h"
#include "tour.h"
#include "wechatsteps.h"

#include <QDialog>
#include <QFile>
#include <QTest>

namespace {

using namespace searchsteps;

QString documentsDir(const Tour &tour)
{
    return tour.home() + QStringLiteral("/文档");
}

bool makeSampleDocuments(Tour &tour, QString *found, QString *error)
{
    return makeDocuments(tour, documentsDir(tour), found, error);
}

bool openMainWindow(Tour &tour, QString *found, QString *error)
{
    tour.showWindow(new MainWindow(core::AppMode::normal, nullptr));
    auto *card = tour.find<QWidget>("FirstUseCard", error);
    if (!card)
        return false;
    if (!tour.waitFor([card] { return card->isVisible(); }, 5000,
                      QStringLiteral("the first-use card"), error))
        return false;
    *found = tour.window()->windowTitle();
    return tour.picture(QStringLiteral("first-use"), error);
}

bool buildIndex(Tour &tour, QString *found, QString *error)
{
    return tour.click("FirstUseCreateButton", error) && waitForBuild(tour, found, error);
}

bool searchByName(Tour &tour, QString *found, QString *error)
{
    if (!showNameView(tour, error) ||
        !findFile(tour, "NameSearchEdit", "NameResultTable", QStringLiteral("样例"),
                  QStringLiteral("样例-docx.docx"), error) ||
        !findFile(tour, "NameSearchEdit", "NameResultTable", QStringLiteral("README"),
                  QStringLiteral("readme.md"), error) ||
        !findFile(tour, "NameSearchEdit", "NameResultTable", QStringLiteral("文档"),
                  QStringLiteral("会议纪要.txt"), error))
        return false;
    *found = QStringLiteral("%1 rows for 文档, 会议纪要.txt among them")
                 .arg(resultPaths(tour, "NameResultTable").size());
    return tour.picture(QStringLiteral("name-search"), error);
}

bool refineNames(Tour &tour, QString *found, QString *error)
{
    const int before = resultPaths(tour, "NameResultTable").size();
    if (!addRefineKeyword(tour, "NameSearchView", QStringLiteral("旧版"), error))
        return false;
    const auto allRefined = [&] {
        const QStringList paths = resultPaths(tour, "NameResultTable");
        return !paths.isEmpty() && paths.filter(QStringLiteral("旧版")).size() == paths.size();
    };
    if (!tour.waitFor(allRefined, 5000, QStringLiteral("the refined rows"), error))
        return false;
    *found = QStringLiteral("%1 of %2 rows left for the chip 旧版")
                 .arg(resultPaths(tour, "NameResultTable").size())
                 .arg(before);
    return tour.picture(QStringLiteral("name-refined"), error);
}

bool noHits(Tour &tour, QString *found, QString *error)
{
    if (!type(tour, "NameSearchEdit", QStringLiteral("没有这样的文件"), error) ||
        !tour.waitFor([&] { return resultPaths(tour, "NameResultTable").isEmpty(); }, 5000,
                      QStringLiteral("an empty list"), error))
        return false;
    *found = QStringLiteral("no rows, as it should be");
    return tour.picture(QStringLiteral("name-empty"), error);
}

bool searchByContent(Tour &tour, QString *found, QString *error)
{
    return findEveryText(tour, found, error);
}

bool refineContents(Tour &tour, QString *found, QString *error)
{
    if (!type(tour, "ContentSearchEdit", QStringLiteral("合同草案"), error) ||
        !addRefineKeyword(tour, "ContentSearchView", QStringLiteral("contract"), error))
        return false;
    const auto onlyContracts = [&] {
        const QStringList paths = resultPaths(tour, "ContentResultList");
        return paths.size() >= 2 && paths.filter(QStringLiteral("样例")).size() == paths.size();
    };
    if (!tour.waitFor(onlyContracts, 5000, QStringLiteral("the contracts alone"), error))
        return false;
    *found = QStringLiteral("%1 documents hold both words")
                 .arg(resultPaths(tour, "ContentResultList").size());
    return tour.picture(QStringLiteral("content-search"), error);
}

bool followChanges(Tour &tour, QString *found, QString *error)
{
    // Saved the way editors do: a temporary file that takes the final name.
    const QString name = QStringLiteral("新增备忘.txt");
    const QString temporary = documentsDir(tour) + QStringLiteral("/草稿.tmp");
    QFile file(temporary);
    const QByteArray text = QStringLiteral("刚刚写下的备忘 freshly written memo").toUtf8();
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size()) {
        *error = file.errorString();
        return false;
    }
    file.close();
    if (!file.rename(documentsDir(tour) + QLatin1Char('/') + name)) {
        *error = file.errorString();
        return false;
    }
    auto *status = tour.find<QWidget>("SearchStatus", error);
    if (!status ||
        !tour.waitFor([&] { return status->property("text").toString().contains(name); }, 10000,
                      QStringLiteral("the watcher to report the new file"), error) ||
        !showNameView(tour, error) || !clearRefine(tour, "NameSearchView", error) ||
        !findFile(tour, "NameSearchEdit", "NameResultTable", QStringLiteral("新增备忘"), name,
                  error))
        return false;
    *found = status->property("text").toString();
    return true;
}

bool openSettings(Tour &tour, QString *found, QString *error)
{
    const auto look = [&](QDialog *dialog, QString *why) {
        *found = dialog->windowTitle();
        if (!tour.picture(QStringLiteral("index-settings"), why))
            return false;
        QTest::keyClick(dialog, Qt::Key_Escape);
        return true;
    };
    QString clickError;
    const bool ok =
        tour.withDialog([&] { tour.click("IndexSettingsButton", &clickError); }, look, error);
    if (!clickError.isEmpty())
        *error = clickError;
    return ok && clickError.isEmpty();
}

bool openSidebar(Tour &tour, QString *found, QString *error)
{
    auto *sidebar = tour.find<QWidget>("CollapsibleSidebar", error);
    if (!sidebar)
        return false;
    QTest::mouseMove(sidebar, QPoint(20, 200));
    if (!tour.waitFor([sidebar] { return sidebar->property("currentWidth").toInt() == 175; }, 5000,
                      QStringLiteral("the sidebar to open under the mouse"), error))
        return false;
    *found = QStringLiteral("open over the content");
    if (!tour.picture(QStringLiteral("sidebar"), error))
        return false;
    QTest::mouseMove(tour.window(), QPoint(700, 60));
    return tour.waitFor([sidebar] { return sidebar->property("currentWidth").toInt() == 60; }, 5000,
                        QStringLiteral("the sidebar to close again"), error);
}

} // namespace

QList<TourStep> normalModeSteps()
{
    return QList<TourStep>{{"样例文档", makeSampleDocuments},
                           {"主窗口", openMainWindow},
                           {"构建索引", buildIndex},
                           {"文件名搜索", searchByName},
                           {"在结果中筛选", refineNames},
                           {"没有结果", noHits},
                           {"全文检索", searchByContent},
                           {"二次匹配", refineContents},
                           {"跟随变化", followChanges},
                           {"索引设置", openSettings},
                           {"侧边栏", openSidebar}} +
           spaceSteps() + wechatSteps() + protectionsteps::normalSteps() + shareSteps() +
           settingsSteps();
}
