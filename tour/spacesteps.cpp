#include "spacesteps.h"

#include "ui/common/celldelegate.h"
#include "ui/pages/diskanalyzerpage.h"
#include "ui/pages/diskanalyzerpage/duplicatelistview.h"
#include "ui/pages/diskanalyzerpage/largefilemodel.h"
#include "ui/pages/diskanalyzerpage/treemapwidget.h"

#include <QComboBox>
#include <QDialog>
#include <QDir>
#include <QFile>
#include <QFrame>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>
#include <QTabWidget>
#include <QTableView>
#include <QTest>
#include <QTreeView>

namespace {

constexpr int kMiB = 1024 * 1024;
constexpr int kAnswerMs = 10000;
constexpr int kScanMs = 60000;

enum Tab { LargeFilesTab, DirectoriesTab, DuplicatesTab };

/// Files of one letter are copies of each other.
const struct
{
    const char *path;
    int size;
    char content;
} kFiles[] = {{"备份/系统镜像.iso", 48 * kMiB, 'i'},
              {"视频/旅行/海边.mp4", 30 * kMiB, 's'},
              {"视频/纪录片.mkv", 20 * kMiB, 'd'},
              {"备份/2024/资料.zip", 8 * kMiB, 'z'},
              {"下载/资料 (1).zip", 8 * kMiB, 'z'},
              {"下载/安装包.deb", 6 * kMiB, 'p'},
              {"照片/2024/春/合影.jpg", 3 * kMiB, 'g'},
              {"照片/合影.jpg", 3 * kMiB, 'g'},
              {"桌面/合影 副本.jpg", 3 * kMiB, 'g'},
              {"照片/2024/夏/雨.png", 2 * kMiB, 'r'},
              {"桌面/说明.txt", 2000, 't'}};

QString diskRoot(const Tour &tour)
{
    return tour.root() + QStringLiteral("/数据");
}

QString pathOf(const Tour &tour, int file)
{
    return diskRoot(tour) + QLatin1Char('/') + QString::fromUtf8(kFiles[file].path);
}

QString shownText(const Tour &tour, const char *label)
{
    QString error;
    auto *widget = tour.find<QWidget>(label, &error);
    return widget ? widget->property("text").toString() : error;
}

bool expect(bool isSo, const QString &what, QString *error)
{
    if (!isSo)
        *error = QStringLiteral("not so: ") + what;
    return isSo;
}

bool expectText(const QString &got, const QString &wanted, QString *error)
{
    return expect(got == wanted, QStringLiteral("“%1” shows where “%2” should").arg(got, wanted),
                  error);
}

bool openTab(Tour &tour, Tab tab, QString *error)
{
    auto *tabs = tour.find<QTabWidget>("AnalyzerTabs", error);
    if (tabs)
        tabs->setCurrentIndex(tab);
    return tabs;
}

bool makeTree(Tour &tour, QString *found, QString *error)
{
    qint64 bytes = 0;
    int number = 0;
    for (const auto &each : kFiles) {
        const QString path = pathOf(tour, number++);
        QDir().mkpath(QFileInfo(path).path());
        QFile file(path);
        const QByteArray content(each.size, each.content);
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size()) {
            *error = path + QStringLiteral(": ") + file.errorString();
            return false;
        }
        bytes += each.size;
    }
    *found = QStringLiteral("%1 files, %2 MiB").arg(number).arg(bytes / kMiB);
    return true;
}

bool openPage(Tour &tour, QString *found, QString *error)
{
    if (!tour.click("Nav_disk_analyzer", error))
        return false;
    auto *page = tour.window()->findChild<DiskAnalyzerPage *>();
    if (!expect(page, QStringLiteral("the page for space stands"), error))
        return false;
    diskanalyzer::PartitionInfo volume;
    volume.mountPath = diskRoot(tour);
    volume.device = QStringLiteral("/dev/sdb1");
    volume.fsType = QStringLiteral("ext4");
    volume.totalBytes = qint64(512) * kMiB;
    volume.usedBytes = qint64(131) * kMiB;
    page->setPartitionProvider([volume] { return QVector<diskanalyzer::PartitionInfo>{volume}; });
    const auto cards = [page] {
        return page->findChildren<QFrame *>(QStringLiteral("PartitionCard"));
    };
    const auto isOurs = [&] {
        return cards().size() == 1 &&
               cards().first()->property("mountPath").toString() == volume.mountPath;
    };
    if (!tour.waitFor(isOurs, kAnswerMs, QStringLiteral("the card of the partition"), error) ||
        !tour.picture(QStringLiteral("space-empty"), error))
        return false;
    QTest::mouseClick(cards().first(), Qt::LeftButton);
    *found = shownText(tour, "AnalyzerStatusLabel");
    return expect(cards().first()->property("selected").toBool(),
                  QStringLiteral("the card is chosen"), error);
}

bool scan(Tour &tour, QString *found, QString *error)
{
    const auto setUp = [&](QDialog *dialog, QString *why) {
        auto *number = dialog->findChild<QSpinBox *>(QStringLiteral("ThresholdNumber"));
        auto *unit = dialog->findChild<QComboBox *>(QStringLiteral("ThresholdUnit"));
        auto *start = dialog->findChild<QPushButton *>(QStringLiteral("AnalyzerSettingsStart"));
        if (!expect(number && unit && start, QStringLiteral("the settings stand"), why))
            return false;
        number->setValue(2);
        unit->setCurrentText(QStringLiteral("MB"));
        if (!tour.picture(QStringLiteral("space-settings"), why))
            return false;
        QTest::mouseClick(start, Qt::LeftButton);
        return true;
    };
    QString clickError;
    if (!tour.withDialog([&] { tour.click("AnalyzerSettingsButton", &clickError); }, setUp, error))
        return false;
    const auto isDone = [&] {
        return shownText(tour, "AnalyzerStatusLabel").startsWith(QStringLiteral("扫描完成"));
    };
    if (!tour.waitFor(isDone, kScanMs, QStringLiteral("the scan to end"), error))
        return false;
    *found = shownText(tour, "AnalyzerStatusLabel");
    return expectText(*found, QStringLiteral("扫描完成，共扫描到 10 个大文件、2 组重复文件"),
                      error);
}

bool largestFiles(Tour &tour, QString *found, QString *error)
{
    auto *table = tour.find<QAbstractItemView>("LargeFileTable", error);
    if (!table || !openTab(tour, LargeFilesTab, error) ||
        !tour.waitFor([table] { return table->model()->rowCount() == 10; }, kAnswerMs,
                      QStringLiteral("the largest files"), error))
        return false;
    const QModelIndex first = table->model()->index(0, diskanalyzer::LargeFileModel::NameColumn);
    const QString size =
        first.sibling(0, diskanalyzer::LargeFileModel::SizeColumn).data().toString();
    *found = first.data().toString() + QLatin1Char(' ') + size;
    return expectText(*found, QStringLiteral("系统镜像.iso 48.0 MB"), error) &&
           tour.picture(QStringLiteral("space-large-files"), error);
}

bool directories(Tour &tour, QString *found, QString *error)
{
    auto *tree = tour.find<QTreeView>("DirTree", error);
    auto *picture = tour.find<TreemapWidget>("DirTreemap", error);
    auto *files = tour.find<QAbstractItemView>("DirFileTable", error);
    if (!tree || !picture || !files || !openTab(tour, DirectoriesTab, error))
        return false;
    // The picture gets its size with the first show.
    if (!tour.waitFor(
            [picture] { return picture->items().size() == 5 && !picture->rectOf(0).isEmpty(); },
            kAnswerMs, QStringLiteral("five directories in the picture"), error))
        return false;
    const QModelIndex root = tree->model()->index(0, 0);
    const QModelIndex largest = tree->model()->index(0, 0, root);
    if (!expectText(root.sibling(0, 1).data().toString(), QStringLiteral("131.0 MB"), error) ||
        !expectText(largest.data().toString(), QStringLiteral("备份"), error) ||
        !expectText(picture->items().first().name, largest.data().toString(), error) ||
        !tour.picture(QStringLiteral("space-directories"), error))
        return false;
    // Down through the picture, on through the tree, up again by the button.
    QTest::mouseClick(picture, Qt::LeftButton, Qt::NoModifier,
                      picture->rectOf(0).center().toPoint());
    if (!expect(tree->currentIndex() == largest, QStringLiteral("the tree follows the picture"),
                error) ||
        !tour.waitFor([files] { return files->model()->rowCount() == 1; }, kAnswerMs,
                      QStringLiteral("the files of the directory"), error) ||
        !tour.picture(QStringLiteral("space-directory"), error))
        return false;
    tree->setCurrentIndex(tree->model()->index(1, 0, root));
    if (!expectText(picture->items().first().name, QStringLiteral("旅行"), error) ||
        !expectText(shownText(tour, "DirPathLabel"), diskRoot(tour) + QStringLiteral("/视频"),
                    error) ||
        !tour.click("DirUpButton", error))
        return false;
    *found = QStringLiteral("%1 in %2, tree and picture in step")
                 .arg(root.sibling(0, 1).data().toString(), root.data().toString());
    return expect(tree->currentIndex() == root, QStringLiteral("the button leads up"), error);
}

bool duplicates(Tour &tour, QString *found, QString *error)
{
    auto *list = tour.find<diskanalyzer::DuplicateListView>("DuplicateList", error);
    if (!list || !openTab(tour, DuplicatesTab, error))
        return false;
    *found = shownText(tour, "DuplicateFooter");
    return expect(list->model()->rowCount() == 7, QStringLiteral("two groups of two and three"),
                  error) &&
           expect(found->contains(QStringLiteral("可释放 14.0 MB")), *found, error) &&
           tour.picture(QStringLiteral("space-duplicates"), error);
}

bool deleteLargest(Tour &tour, QString *found, QString *error)
{
    auto *table = tour.find<QTableView>("LargeFileTable", error);
    auto *tree = tour.find<QTreeView>("DirTree", error);
    if (!table || !tree || !openTab(tour, LargeFilesTab, error))
        return false;
    auto *delegate = qobject_cast<ui::common::CellDelegate *>(table->itemDelegate());
    if (!expect(delegate, QStringLiteral("the table has actions"), error))
        return false;
    const QRect remove =
        delegate->actionRect(table->model()->index(0, diskanalyzer::LargeFileModel::ActionColumn),
                             diskanalyzer::LargeFileModel::DeleteAction);
    QString question;
    QString notice;
    const auto click = [&] {
        QTest::mouseClick(table->viewport(), Qt::LeftButton, Qt::NoModifier, remove.center());
    };
    if (!tour.answerNotice(click, QStringLiteral("确认删除"), QStringLiteral("space-delete"),
                           &question, error) ||
        !tour.answerNotice([] {}, QStringLiteral("删除完成"), QString(), &notice, error))
        return false;
    *found = notice;
    return expect(
               question.startsWith(QStringLiteral("确定要删除文件 %1 吗？").arg(pathOf(tour, 0))),
               question, error) &&
           expect(notice.startsWith(QStringLiteral("成功删除 1 个文件，已移到回收站")), notice,
                  error) &&
           expect(!QFile::exists(pathOf(tour, 0)), QStringLiteral("the file is gone"), error) &&
           expect(QFile::exists(pathOf(tour, 1)), QStringLiteral("the next one is not"), error) &&
           expectText(table->model()->index(0, 0).data().toString(), QStringLiteral("海边.mp4"),
                      error) &&
           expectText(tree->model()->index(0, 1).data().toString(), QStringLiteral("83.0 MB"),
                      error);
}

bool cleanDuplicates(Tour &tour, QString *found, QString *error)
{
    auto *list = tour.find<diskanalyzer::DuplicateListView>("DuplicateList", error);
    if (!list || !openTab(tour, DuplicatesTab, error))
        return false;
    QString question;
    QString notice;
    QString clickError;
    if (!tour.answerNotice([&] { tour.click("DuplicateCleanButton", &clickError); },
                           QStringLiteral("确认删除"), QString(), &question, error) ||
        !tour.answerNotice([] {}, QStringLiteral("清理完成"), QStringLiteral("space-cleaned"),
                           &notice, error))
        return false;
    int left = 0;
    for (int file = 0; file < int(sizeof kFiles / sizeof *kFiles); ++file)
        left += QFile::exists(pathOf(tour, file));
    *found = notice;
    return expectText(question,
                      QStringLiteral("将删除所有重复文件组中未勾选的 3 个文件，确定继续？\n\n"
                                     "文件将被永久删除，无法恢复。"),
                      error) &&
           expectText(notice, QStringLiteral("成功删除 3 个文件"), error) &&
           expect(left == 7, QStringLiteral("one of each group is left"), error) &&
           expect(list->model()->rowCount() == 0, QStringLiteral("no group is left"), error);
}

} // namespace

QList<TourStep> spaceSteps()
{
    return {{"有大文件的目录", makeTree},  {"空间分析", openPage},        {"扫描空间", scan},
            {"大文件排行", largestFiles},  {"目录空间占用", directories}, {"重复文件", duplicates},
            {"删除大文件", deleteLargest}, {"一键清理", cleanDuplicates}};
}
