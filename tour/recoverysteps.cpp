#include "recoverysteps.h"

#include "app/mainwindow.h"
#include "protectionsteps.h"
#include "support/diskimages.h"
#include "support/sampledocuments.h"
#include "ui/common/celldelegate.h"
#include "ui/pages/recoveryworkflowwindow.h"
#include "ui/pages/scanresultspage/scanresultsmodel.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QDir>
#include <QDirIterator>
#include <QLineEdit>
#include <QRegularExpression>
#include <QTest>

namespace {

constexpr int kImageKiB = 64 * 1024;
constexpr int kScanMs = 120000;
constexpr int kRecoverMs = 60000;
constexpr int kAnswerMs = 10000;

QString imagePath(const Tour &tour)
{
    return tour.root() + QStringLiteral("/disk.img");
}

QString socketPath(const Tour &tour)
{
    return tour.root() + QStringLiteral("/s");
}

QString outputRoot(const Tour &tour)
{
    return tour.root() + QStringLiteral("/恢复");
}

/// Where the files that are deleted were, below the root of the image.
QString doomedFolder()
{
    return QStringLiteral("资料/合同 2024");
}

QStringList doomedFiles()
{
    return {QStringLiteral("安装手册.pdf"), QStringLiteral("样例-docx.docx"),
            QStringLiteral("样例-xlsx.xlsx"), QStringLiteral("样例-pptx.pptx"),
            QStringLiteral("照片.png")};
}

template <typename T>
T *topLevel()
{
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (auto *found = qobject_cast<T *>(widget))
            return found;
    }
    return nullptr;
}

QWidget *topLevelNamed(const char *name)
{
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (widget->objectName() == QLatin1String(name) && widget->isVisible())
            return widget;
    }
    return nullptr;
}

/// A widget of the second window; null where there is none.
template <typename T>
T *inWorkflow(const char *name)
{
    auto *window = topLevel<RecoveryWorkflowWindow>();
    return window ? window->findChild<T *>(QLatin1String(name)) : nullptr;
}

QString shown(const char *label)
{
    auto *widget = inWorkflow<QWidget>(label);
    return widget ? widget->property("text").toString() : QString();
}

bool press(const char *button, QString *error)
{
    auto *widget = inWorkflow<QWidget>(button);
    if (!widget || !widget->isVisible() || !widget->isEnabled()) {
        *error = QStringLiteral("%1 cannot be clicked now").arg(QLatin1String(button));
        return false;
    }
    QTest::mouseClick(widget, Qt::LeftButton);
    return true;
}

bool makeImage(Tour &tour, QString *found, QString *error)
{
    const QString docs = tour.root() + QStringLiteral("/disk");
    QDir().mkpath(docs);
    QList<samples::Document> made;
    if (!samples::writeDocuments(docs, false, &made, error))
        return false;
    const QString photo = docs + QStringLiteral("/照片.png");
    if (!diskimages::write(photo, diskimages::png(300000))) {
        *error = QStringLiteral("cannot write %1").arg(photo);
        return false;
    }
    const QDir folder(docs + QLatin1Char('/') + doomedFolder());
    QDir().mkpath(folder.path());
    for (const QString &name : doomedFiles()) {
        const QString path = folder.filePath(name);
        if (!QFile::copy(QDir(docs).filePath(name), path)) {
            *error = QStringLiteral("no sample %1").arg(name);
            return false;
        }
        tour.deletedHashes.insert(name, sha256OfFile(path));
    }
    const QString user = docs + QStringLiteral("/home/tour");
    QDir().mkpath(user);
    if (!protectionsteps::fillVault(tour, user, error))
        return false;
    if (!diskimages::makeExt(imagePath(tour), docs, kImageKiB,
                             {QStringLiteral("-t"), QStringLiteral("ext4")}, error))
        return false;
    *found = QStringLiteral("ext4, %1 MiB, %2 files").arg(kImageKiB / 1024).arg(made.size() + 1);
    return true;
}

bool startService(Tour &tour, QString *found, QString *error)
{
    const QString program = QStringLiteral(MORVANE_RECOVERYD);
    if (!tour.startService(program,
                           {QStringLiteral("--image"), imagePath(tour), QStringLiteral("--state"),
                            tour.root() + QStringLiteral("/state"), QStringLiteral("--socket"),
                            socketPath(tour), QStringLiteral("--exit-with-parent")},
                           error))
        return false;
    *found = QFileInfo(program).fileName();
    return true;
}

bool openMainWindow(Tour &tour, QString *found, QString *error)
{
    MainWindowOptions options;
    options.recoveryService = socketPath(tour);
    tour.showWindow(new MainWindow(core::AppMode::livecd, nullptr, options));
    auto *device = tour.find<QWidget>("SelectedDeviceLabel", error);
    if (!device ||
        !tour.waitFor([device] { return device->property("text") == QLatin1String("/dev/image0"); },
                      kAnswerMs, QStringLiteral("the disks of the service"), error))
        return false;
    *found = device->property("text").toString();
    return tour.picture(QStringLiteral("partitions"), error);
}

bool registerSnapshot(Tour &tour, QString *found, QString *error)
{
    auto *path = tour.find<QLineEdit>("ForensicsPathEdit", error);
    auto *list = tour.find<QAbstractItemView>("SnapshotList", error);
    if (!path || !list || !tour.click("Nav_block_forensics", error))
        return false;
    path->setText(QStringLiteral("/dev/image0:/照片.png"));
    QString clickError;
    const auto look = [&](QDialog *dialog, QString *) {
        QTest::keyClick(dialog, Qt::Key_Escape);
        return true;
    };
    if (!tour.withDialog([&] { tour.click("RegisterSnapshotButton", &clickError); }, look, error))
        return false;
    *error = clickError;
    if (!clickError.isEmpty() ||
        !tour.waitFor([list] { return list->model()->rowCount() == 1; }, kAnswerMs,
                      QStringLiteral("the snapshot in the list"), error))
        return false;
    *found = path->text();
    return true;
}

bool deleteFiles(Tour &tour, QString *found, QString *error)
{
    for (const QString &name : doomedFiles()) {
        const QString path = QStringLiteral("\"/%1/%2\"").arg(doomedFolder(), name);
        if (!diskimages::debugfs(imagePath(tour), QStringLiteral("rm ") + path, error))
            return false;
    }
    *found = doomedFiles().join(QStringLiteral(", "));
    return true;
}

/// Each deleted file stands in the table with its name, its folder and the time of its deletion.
bool areNamed(const QAbstractItemModel &model, QString *error)
{
    using Model = scanresults::ScanResultsModel;
    const QRegularExpression date(QStringLiteral("^20\\d\\d-\\d\\d-\\d\\d"));
    for (const QString &name : doomedFiles()) {
        bool isShown = false;
        for (int row = 0; row < model.rowCount() && !isShown; ++row) {
            const auto text = [&](int column) {
                return model.index(row, column).data().toString();
            };
            isShown = text(Model::NameColumn) == name &&
                      text(Model::PathColumn).contains(doomedFolder()) &&
                      date.match(text(Model::TimeColumn)).hasMatch();
        }
        if (isShown)
            continue;
        *error = QStringLiteral("%1 is not shown with its folder and time").arg(name);
        return false;
    }
    return true;
}

bool scan(Tour &tour, QString *found, QString *error)
{
    if (!tour.click("Nav_recovery_scan", error) || !tour.click("PrimaryActionButton", error))
        return false;
    auto *window = topLevel<RecoveryWorkflowWindow>();
    if (!window || !tour.waitFor([window] { return window->isVisible(); }, kAnswerMs,
                                 QStringLiteral("the window of the scan"), error))
        return false;
    tour.fit(window);
    if (!tour.waitFor([] { return shown("ScanTitle").startsWith(QStringLiteral("扫描完成")); },
                      kScanMs, QStringLiteral("the scan to end"), error)) {
        *error += QStringLiteral("; the page says: ") + shown("ScanTitle");
        return false;
    }
    auto *table = inWorkflow<QAbstractItemView>("ScanResultsTable");
    if (!areNamed(*table->model(), error))
        return false;
    for (int row = 0; row < table->model()->rowCount(); ++row) {
        table->setCurrentIndex(table->model()->index(row, 1));
        QTest::keyClick(table, Qt::Key_Space);
    }
    *found = shown("ListCountLabel");
    return tour.pictureOf(window, QStringLiteral("scan-results"), error);
}

bool recover(Tour &tour, QString *found, QString *error)
{
    inWorkflow<QLineEdit>("OutputPathEdit")->setText(outputRoot(tour));
    if (!press("StartRecoveryButton", error) ||
        !tour.waitFor([] { return shown("RecoveryStateText") == QStringLiteral("恢复完成"); },
                      kRecoverMs, QStringLiteral("the recovery to end"), error))
        return false;
    *found = shown("RecoverySucceededCount").replace(QLatin1Char('\n'), QLatin1Char(' '));
    return tour.pictureOf(topLevel<RecoveryWorkflowWindow>(), QStringLiteral("recovery-progress"),
                          error);
}

bool compareHashes(Tour &tour, QString *found, QString *error)
{
    QMap<QByteArray, QString> recovered;
    QDirIterator files(outputRoot(tour), QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        const QString path = files.next();
        recovered.insert(sha256OfFile(path), QFileInfo(path).fileName());
    }
    QStringList lines;
    for (auto it = tour.deletedHashes.cbegin(); it != tour.deletedHashes.cend(); ++it) {
        if (!recovered.contains(it.value())) {
            *error = QStringLiteral("%1 has not come back as it was").arg(it.key());
            return false;
        }
        lines << QStringLiteral("\n        %1  %2 = %3")
                     .arg(QString::fromLatin1(it.value()), it.key(), recovered.value(it.value()));
    }
    *found = QStringLiteral("SHA-256 of each is the same") + lines.join(QString());
    topLevel<RecoveryWorkflowWindow>()->close();
    return true;
}

bool recentScans(Tour &tour, QString *found, QString *error)
{
    auto *table = tour.find<QAbstractItemView>("RecentScansTable", error);
    auto *refresh = tour.find<QWidget>("RecentScansRefresh", error);
    // The page lists the sessions as it shows.
    if (!table || !refresh || !tour.click("Nav_recent_scans", error) ||
        !tour.waitFor([refresh] { return refresh->isEnabled(); }, kAnswerMs,
                      QStringLiteral("the list of the sessions"), error) ||
        !tour.click("RecentScansRefresh", error) ||
        !tour.waitFor([table] { return table->model()->rowCount() == 1; }, kAnswerMs,
                      QStringLiteral("the session"), error))
        return false;
    *found = QStringLiteral("session ") + table->model()->index(0, 0).data().toString();
    return tour.picture(QStringLiteral("recent-scans"), error);
}

bool history(Tour &tour, QString *found, QString *error)
{
    auto *table = tour.find<QAbstractItemView>("RecentScansTable", error);
    if (!table)
        return false;
    const QModelIndex last = table->model()->index(0, table->model()->columnCount() - 1);
    auto *delegate = qobject_cast<ui::common::CellDelegate *>(table->itemDelegate());
    if (!delegate) {
        *error = QStringLiteral("no actions in the table");
        return false;
    }
    constexpr int historyAction = 1;
    QTest::mouseClick(table->viewport(), Qt::LeftButton, Qt::NoModifier,
                      delegate->actionRect(last, historyAction).center());
    if (!tour.waitFor([] { return topLevelNamed("RecoveryHistoryDialog") != nullptr; }, kAnswerMs,
                      QStringLiteral("the history"), error))
        return false;
    QWidget *dialog = topLevelNamed("RecoveryHistoryDialog");
    auto *files = dialog->findChild<QAbstractItemView *>(QStringLiteral("RecoveryResultTable"));
    if (!tour.waitFor([files] { return files->model()->rowCount() > 0; }, kAnswerMs,
                      QStringLiteral("the files of the task"), error))
        return false;
    *found = QStringLiteral("%1 files").arg(files->model()->rowCount());
    const bool isSaved = tour.pictureOf(dialog, QStringLiteral("recovery-history"), error);
    dialog->close();
    return isSaved;
}

bool verifySnapshot(Tour &tour, QString *found, QString *error)
{
    auto *list = tour.find<QAbstractItemView>("SnapshotList", error);
    if (!list || !tour.click("Nav_block_forensics", error) ||
        !tour.waitFor([list] { return list->model()->rowCount() == 1; }, kAnswerMs,
                      QStringLiteral("the snapshot"), error))
        return false;
    list->setCurrentIndex(list->model()->index(0, 0));
    auto *verify = tour.find<QWidget>("VerifyButton", error);
    auto *map = tour.find<QWidget>("BlockMap", error);
    if (!verify || !map ||
        !tour.waitFor([verify] { return verify->isVisible() && verify->isEnabled(); }, kAnswerMs,
                      QStringLiteral("the snapshot's details"), error))
        return false;
    QTest::mouseClick(verify, Qt::LeftButton);
    if (!tour.waitFor([map] { return map->isVisible(); }, kAnswerMs,
                      QStringLiteral("the block map"), error))
        return false;
    *found =
        list->model()->index(0, 0).data().toString().replace(QLatin1Char('\n'), QLatin1Char(' '));
    return tour.picture(QStringLiteral("block-forensics"), error);
}

} // namespace

QList<TourStep> recoverySteps()
{
    return {{"磁盘镜像", makeImage},
            {"恢复服务", startService},
            {"选择分区", openMainWindow},
            {"注册块快照", registerSnapshot},
            {"删除文件", deleteFiles},
            {"扫描", scan},
            {"恢复", recover},
            {"核对", compareHashes},
            {"最近扫描", recentScans},
            {"恢复记录", history},
            {"块取证", verifySnapshot}};
}
