#include "wechatsteps.h"

#include "support/faketools.h"

#include <QAbstractScrollArea>
#include <QComboBox>
#include <QDialog>
#include <QDir>
#include <QFile>
#include <QMap>
#include <QPushButton>
#include <QRadioButton>
#include <QScrollBar>
#include <QSpinBox>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kMiB = 1024 * 1024;
constexpr int kAnswerMs = 10000;
constexpr int kSmallGroups = 520;

/// Files of one letter are copies of each other; one with another file's name is a hard link to it.
const struct
{
    const char *path;
    int size;
    char content;
    const char *linkTo;
} kFiles[] = {{"2026-01/年会合影.jpg", 3 * kMiB, 'g', nullptr},
              {"2026-02/年会合影(1).jpg", 3 * kMiB, 'g', nullptr},
              {"2026-03/年会合影(2).jpg", 3 * kMiB, 'g', nullptr},
              {"2026-03/转发/年会合影.jpg", 3 * kMiB, 'g', "2026-03/年会合影(2).jpg"},
              {"2026-02/项目演示.mp4", 12 * kMiB, 'v', nullptr},
              {"2026-03/项目演示(1).mp4", 12 * kMiB, 'v', nullptr},
              {"2026-03/合同终稿.pdf", 2 * kMiB, 'c', nullptr},
              {"2026-03/说明.txt", 2000, 't', nullptr}};

QString filesDir(const Tour &tour)
{
    return tour.home() + QStringLiteral("/.local/share/WeChat/wxid_moyun2026/msg/file/");
}

QString pathOf(const Tour &tour, const char *name)
{
    return filesDir(tour) + QString::fromUtf8(name);
}

/// Every name still stands for its content, and for a file with as many names as `links` says; one
/// for those that it does not list.
bool checkDisk(const Tour &tour, const QMap<QString, int> &links, QString *found, QString *error)
{
    QStringList counts;
    QMap<char, quint64> inodes;
    for (const auto &each : kFiles) {
        const QString path = pathOf(tour, each.path);
        const QString name = QString::fromUtf8(each.path);
        QFile file(path);
        struct stat info = {};
        if (!file.open(QIODevice::ReadOnly) || ::fstat(file.handle(), &info) != 0 ||
            sha256(file.readAll()) != sha256(QByteArray(each.size, each.content))) {
            *error = QStringLiteral("%1 does not hold what it held").arg(name);
            return false;
        }
        const int wanted = links.value(name, 1);
        if (int(info.st_nlink) != wanted) {
            *error = QStringLiteral("%1 has %2 links and not %3")
                         .arg(name)
                         .arg(info.st_nlink)
                         .arg(wanted);
            return false;
        }
        counts.append(QString::number(info.st_nlink));
    }
    *found = QStringLiteral("SHA-256 of all %1 files as before, links %2")
                 .arg(counts.size())
                 .arg(counts.join(QLatin1Char(' ')));
    return true;
}

QString shownText(const Tour &tour, const char *label)
{
    QString error;
    auto *widget = tour.find<QWidget>(label, &error);
    return widget ? widget->property("text").toString() : error;
}

bool isShown(const Tour &tour, const char *name)
{
    QString error;
    auto *widget = tour.find<QWidget>(name, &error);
    return widget && widget->isVisible();
}

/// The page asks ps for the client. The tour must neither start one nor stumble over a command of
/// that name, so it gives the answer itself.
bool setProcesses(const QByteArray &lines, QString *error)
{
    static FakeTools tools;
    static const QByteArray originalPath = tools.prependToPath();
    Q_UNUSED(originalPath)
    return tools.add(QStringLiteral("ps"), FakeTools::prints(lines), error);
}

bool openPage(Tour &tour, QString *found, QString *error)
{
    if (!tour.click("Nav_wechat_clean", error) ||
        !tour.waitFor([&] { return isShown(tour, "WechatEmptyCard"); }, kAnswerMs,
                      QStringLiteral("the page without an account"), error))
        return false;
    *found = shownText(tour, "WechatStatus");
    return tour.picture(QStringLiteral("wechat-empty"), error);
}

bool makeAccount(Tour &tour, QString *found, QString *error)
{
    qint64 bytes = 0;
    for (const auto &each : kFiles) {
        const QString path = pathOf(tour, each.path);
        QDir().mkpath(QFileInfo(path).path());
        if (each.linkTo) {
            if (::link(QFile::encodeName(pathOf(tour, each.linkTo)).constData(),
                       QFile::encodeName(path).constData()) != 0) {
                *error = path + QStringLiteral(": ") + qt_error_string();
                return false;
            }
            continue;
        }
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) ||
            file.write(QByteArray(each.size, each.content)) != each.size) {
            *error = path + QStringLiteral(": ") + file.errorString();
            return false;
        }
        bytes += each.size;
    }
    *found = QStringLiteral("%1 MiB in %2").arg(bytes / kMiB).arg(filesDir(tour));
    if (!tour.click("WechatRedetectButton", error) ||
        !tour.waitFor([&] { return isShown(tour, "WechatProfileCard"); }, kAnswerMs,
                      QStringLiteral("the card of the account"), error))
        return false;
    return tour.picture(QStringLiteral("wechat-directories"), error);
}

bool settings(Tour &tour, QString *found, QString *error)
{
    const auto lower = [&](QDialog *dialog, QString *why) {
        auto *value = dialog->findChild<QSpinBox *>(QStringLiteral("WechatMinSizeSpin"));
        auto *unit = dialog->findChild<QComboBox *>(QStringLiteral("WechatMinSizeUnit"));
        auto *save = dialog->findChild<QPushButton *>(QStringLiteral("WechatSettingsSave"));
        if (!value || !unit || !save) {
            *why = QStringLiteral("another dialog: ") + dialog->windowTitle();
            return false;
        }
        *found = QStringLiteral("%1 %2 before").arg(value->value()).arg(unit->currentText());
        value->setValue(1);
        unit->setCurrentText(QStringLiteral("KB"));
        const bool isSaved = tour.picture(QStringLiteral("wechat-settings"), why);
        QTest::mouseClick(save, Qt::LeftButton);
        return isSaved;
    };
    QString clickError;
    const bool ok =
        tour.withDialog([&] { tour.click("WechatSettingsButton", &clickError); }, lower, error);
    if (!clickError.isEmpty())
        *error = clickError;
    return ok && clickError.isEmpty();
}

bool scan(Tour &tour, QString *found, QString *error)
{
    QString clickError;
    if (!tour.answerNotice([&] { tour.click("WechatStartScanButton", &clickError); },
                           QStringLiteral("扫描完成"), QString(), found, error)) {
        *error += clickError;
        return false;
    }
    *found = shownText(tour, "WechatSummaryLine");
    if (*found != QStringLiteral("共发现 2 组重复文件，预计可释放 18.0 MB")) {
        *error = QStringLiteral("the page says: ") + *found;
        return false;
    }
    return tour.picture(QStringLiteral("wechat-results"), error);
}

/// Which of the copies comes first depends on the file system.
bool chooseKept(Tour &tour, QString *found, QString *error)
{
    const QString kept = pathOf(tour, kFiles[0].path);
    for (auto *radio :
         tour.window()->findChildren<QRadioButton *>(QStringLiteral("WechatFileRadio"))) {
        if (radio->property("filePath") != kept)
            continue;
        radio->click();
        *found = kept;
        return tour.picture(QStringLiteral("wechat-chosen"), error);
    }
    *error = QStringLiteral("no row for ") + kept;
    return false;
}

bool refuseWhileRunning(Tour &tour, QString *found, QString *error)
{
    QString clickError;
    QString links;
    return setProcesses("COMMAND COMMAND\nwechat /opt/apps/wechat/wechat --type=main\n", error) &&
           tour.answerNotice([&] { tour.click("WechatCleanAllButton", &clickError); },
                             QStringLiteral("无法执行清理"), QStringLiteral("wechat-running"),
                             found, error) &&
           checkDisk(tour,
                     {{QStringLiteral("2026-03/年会合影(2).jpg"), 2},
                      {QStringLiteral("2026-03/转发/年会合影.jpg"), 2}},
                     &links, error);
}

bool merge(Tour &tour, QString *found, QString *error)
{
    QString question;
    QString notice;
    QString clickError;
    if (!setProcesses("COMMAND COMMAND\nbash bash\n", error) ||
        !tour.answerNotice([&] { tour.click("WechatCleanAllButton", &clickError); },
                           QStringLiteral("确认清理"), QStringLiteral("wechat-confirm"), &question,
                           error) ||
        !tour.answerNotice([] {}, QStringLiteral("清理完成"), QStringLiteral("wechat-done"),
                           &notice, error))
        return false;
    if (!notice.startsWith(QStringLiteral("成功处理 4 个副本，释放 18.0 MB。"))) {
        *error = QStringLiteral("the page says: ") + notice;
        return false;
    }
    QMap<QString, int> links;
    for (const auto &each : kFiles) {
        if (each.content == 'g' || each.content == 'v')
            links.insert(QString::fromUtf8(each.path), each.content == 'g' ? 4 : 2);
    }
    return checkDisk(tour, links, found, error) &&
           tour.picture(QStringLiteral("wechat-merged"), error);
}

bool undo(Tour &tour, QString *found, QString *error)
{
    QString question;
    QString notice;
    QString clickError;
    if (!tour.click("WechatHistoryButton", error) ||
        !tour.waitFor([&] { return isShown(tour, "WechatRecordUndoButton"); }, kAnswerMs,
                      QStringLiteral("the record of the clean"), error) ||
        !tour.click("WechatRecordDetailButton", error) ||
        !tour.picture(QStringLiteral("wechat-history"), error) ||
        !tour.answerNotice([&] { tour.click("WechatRecordUndoButton", &clickError); },
                           QStringLiteral("确认撤销"), QStringLiteral("wechat-undo"), &question,
                           error) ||
        !tour.answerNotice([] {}, QStringLiteral("撤销完成"), QString(), &notice, error))
        return false;
    if (notice != QStringLiteral("成功恢复 4 个独立副本。")) {
        *error = QStringLiteral("the page says: ") + notice;
        return false;
    }
    if (!tour.waitFor([&] { return !isShown(tour, "WechatRecordUndoButton"); }, kAnswerMs,
                      QStringLiteral("the record to be undone"), error))
        return false;
    const bool isSaved = tour.picture(QStringLiteral("wechat-undone"), error);
    // Now each of the four is a file of its own, the two that were one among them.
    return tour.click("WechatHistoryClose", error) && isSaved &&
           tour.picture(QStringLiteral("wechat-scan-again"), error) &&
           checkDisk(tour, {}, found, error);
}

QString smallPath(const Tour &tour, int group, int copy)
{
    return filesDir(tour) + QStringLiteral("2026-04/表情_%1(%2).gif").arg(group).arg(copy);
}

bool mergeMany(Tour &tour, QString *found, QString *error)
{
    QDir().mkpath(filesDir(tour) + QStringLiteral("2026-04"));
    for (int i = 0; i < kSmallGroups * 2; ++i) {
        const int group = i / 2;
        QFile file(smallPath(tour, group, i % 2));
        const QByteArray content(2000 + 31 * group, 'e');
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size()) {
            *error = file.errorString();
            return false;
        }
    }
    auto *list = tour.find<QAbstractScrollArea>("WechatResultList", error);
    QString notice;
    QString clickError;
    if (!list || !tour.click("WechatAdjustDirsButton", error) ||
        !tour.answerNotice([&] { tour.click("WechatStartScanButton", &clickError); },
                           QStringLiteral("扫描完成"), QString(), &notice, error) ||
        !tour.picture(QStringLiteral("wechat-many"), error))
        return false;
    *found = shownText(tour, "WechatSummaryLine");
    list->verticalScrollBar()->setValue(list->verticalScrollBar()->maximum());
    if (!tour.picture(QStringLiteral("wechat-many-end"), error) ||
        !tour.answerNotice([&] { tour.click("WechatCleanAllButton", &clickError); },
                           QStringLiteral("确认清理"), QString(), &notice, error) ||
        !tour.answerNotice([] {}, QStringLiteral("清理完成"), QString(), &notice, error))
        return false;
    for (int group = 0; group < kSmallGroups; ++group) {
        struct stat info = {};
        QFile file(smallPath(tour, group, 1));
        if (!file.open(QIODevice::ReadOnly) || ::fstat(file.handle(), &info) != 0 ||
            info.st_nlink != 2 || file.readAll() != QByteArray(2000 + 31 * group, 'e')) {
            *error = QStringLiteral("%1 is not merged as it should be").arg(file.fileName());
            return false;
        }
    }
    *found += QStringLiteral("; ") + notice.section(QLatin1Char('\n'), 0, 0);
    return true;
}

} // namespace

QList<TourStep> wechatSteps()
{
    return {{"微信清理", openPage},
            {"微信账号目录", makeAccount},
            {"扫描微信文件", scan},
            {"选择保留文件", chooseKept},
            {"微信运行中", refuseWhileRunning},
            {"合并重复文件", merge},
            {"撤销清理", undo},
            {"微信清理设置", settings},
            {"大量重复文件", mergeMany}};
}
