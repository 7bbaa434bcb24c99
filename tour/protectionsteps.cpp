#include "protectionsteps.h"

#include "app/mainwindow.h"
#include "support/diskimages.h"
#include "ui/common/protectedfiletree.h"
#include "ui/pages/realtimeprotectionpage.h"
#include "ui/pages/vaultbrowserpage.h"

#include <QComboBox>
#include <QDialog>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QTest>
#include <QTimer>

namespace protectionsteps {

namespace {

using ui::common::ProtectedFileTree;

constexpr int kAnswerMs = 10000;
constexpr int kProgramMs = 20000;
constexpr int kEnableMs = 60000; ///< Two proofs, each by a program.

QString program()
{
    return QStringLiteral(MORVANE_VAULTD);
}

QString socketPath(const Tour &tour)
{
    return tour.root() + QStringLiteral("/v");
}

QString passwordFile(const Tour &tour)
{
    return tour.root() + QStringLiteral("/password");
}

QString protectedHome(const Tour &tour)
{
    return tour.root() + QStringLiteral("/protected");
}

QString restoredDir(const Tour &tour)
{
    return tour.root() + QStringLiteral("/restored");
}

/// In the private system that scripts/tour.sh makes; empty without one.
QString hookLibrary()
{
    return qEnvironmentVariable("MORVANE_TOUR_HOOK");
}

QString password()
{
    return QStringLiteral("桥上的灯 7");
}

QStringList doomedFiles()
{
    return {QStringLiteral("文档/合同终稿.txt"), QStringLiteral("文档/预算.csv"),
            QStringLiteral("图片/合影.png")};
}

QByteArray contentOf(const QString &name)
{
    return name.endsWith(QLatin1String(".png")) ? diskimages::png(200000)
                                                : (name + QLatin1Char('\n')).repeated(400).toUtf8();
}

bool runVaultProgram(const QStringList &arguments, const QByteArray &input, QString *error)
{
    QProcess process;
    process.start(program(), arguments);
    process.write(input);
    process.closeWriteChannel();
    if (process.waitForFinished(kProgramMs) && process.exitStatus() == QProcess::NormalExit &&
        process.exitCode() == 0)
        return true;
    *error = QStringLiteral("%1: %2").arg(
        arguments.join(QLatin1Char(' ')),
        QString::fromLocal8Bit(process.readAllStandardError() + process.errorString().toUtf8()));
    return false;
}

bool protect(Tour &tour, const QString &home, const QStringList &names, QString *error)
{
    QStringList arguments{QStringLiteral("--vault-parent"), home, QStringLiteral("--protect")};
    for (const QString &name : names) {
        const QString path = QDir(home).filePath(name);
        QDir().mkpath(QFileInfo(path).path());
        if (!diskimages::write(path, contentOf(name))) {
            *error = QStringLiteral("cannot write %1").arg(path);
            return false;
        }
        tour.protectedHashes.insert(QFileInfo(path).fileName(), sha256OfFile(path));
        arguments << path;
    }
    return runVaultProgram(arguments, QByteArray(), error);
}

QTreeWidgetItem *itemNamed(const ProtectedFileTree *tree, const QString &name)
{
    const QList<QTreeWidgetItem *> items =
        tree->findItems(name, Qt::MatchExactly | Qt::MatchRecursive, ProtectedFileTree::NameColumn);
    return items.isEmpty() ? nullptr : items.first();
}

/// Ticks a file as a person would: makes it the current row and presses Space.
bool tick(ProtectedFileTree *tree, const QString &name, QString *error)
{
    QTreeWidgetItem *item = itemNamed(tree, name);
    if (!item) {
        *error = QStringLiteral("%1 is not in the list").arg(name);
        return false;
    }
    tree->setCurrentItem(item);
    QTest::keyClick(tree, Qt::Key_Space);
    return true;
}

bool hasSameContent(const Tour &tour, const QString &name, QString *error)
{
    const QString path = QDir(restoredDir(tour)).filePath(name);
    if (sha256OfFile(path) == tour.protectedHashes.value(name) && QFileInfo::exists(path))
        return true;
    *error = QStringLiteral("%1 has not come back as it was").arg(name);
    return false;
}

QString textOf(const QWidget *parent, const char *name)
{
    const auto *label = parent->findChild<QLabel *>(QLatin1String(name));
    return label ? label->text() : QString();
}

bool startService(Tour &tour, QString *found, QString *error)
{
    qputenv("USER", "tour");
    QDir().mkpath(protectedHome(tour));
    QDir().mkpath(restoredDir(tour));
    QStringList arguments{
        QStringLiteral("--vault-parent"),    protectedHome(tour),
        QStringLiteral("--state"),           tour.root() + QStringLiteral("/vault-state"),
        QStringLiteral("--password-file"),   passwordFile(tour),
        QStringLiteral("--socket"),          socketPath(tour),
        QStringLiteral("--exit-with-parent")};
    // Elsewhere the preload list would be the machine's.
    if (!hookLibrary().isEmpty())
        arguments << QStringLiteral("--hook-library") << hookLibrary();
    if (!runVaultProgram({QStringLiteral("--password-file"), passwordFile(tour),
                          QStringLiteral("--set-password"), QStringLiteral("tour")},
                         password().toUtf8() + '\n', error) ||
        !tour.startService(program(), arguments, error) ||
        !fillVault(tour, protectedHome(tour), error))
        return false;
    *found = QStringLiteral("%1, with %2")
                 .arg(QFileInfo(program()).fileName(), doomedFiles().join(QStringLiteral(", ")));
    return true;
}

bool openLockedPage(Tour &tour, QString *found, QString *error)
{
    MainWindowOptions options;
    options.vaultService = socketPath(tour);
    // The service that the tour has started is of its own user.
    options.vaultPolicy.mayHearSecrets = options.vaultPolicy.isTrusted;
    tour.showWindow(new MainWindow(core::AppMode::normal, nullptr, options));
    if (!tour.click("Nav_realtime_protection", error))
        return false;
    auto *page = tour.find<RealtimeProtectionPage>("RealtimeProtectionPage", error);
    auto *tree = tour.find<ProtectedFileTree>("ProtectedFileTree", error);
    if (!page || !tree)
        return false;
    const QString directory = restoredDir(tour);
    page->setDirectoryChooser([directory](QWidget *, const QString &) { return directory; });
    const auto isFilled = [&] {
        return textOf(page, "FileListHeading").contains(QString::number(doomedFiles().size()));
    };
    if (!tour.waitFor(isFilled, kAnswerMs, QStringLiteral("the answer of the service"), error))
        return false;
    if (tree->isVisible() || page->isFileListUnlocked()) {
        *error = QStringLiteral("the list can be seen without the password");
        return false;
    }
    *found = textOf(page, "FileListHeading") + QStringLiteral(", locked");
    return tour.picture(QStringLiteral("protection-locked"), error);
}

bool unlock(Tour &tour, QString *found, QString *error)
{
    auto *page = tour.find<RealtimeProtectionPage>("RealtimeProtectionPage", error);
    if (!page)
        return false;
    const auto answer = [&](QDialog *dialog, QString *why) {
        auto *field = dialog->findChild<QLineEdit *>(QStringLiteral("AuthPassword"));
        auto *confirm = dialog->findChild<QPushButton *>(QStringLiteral("AuthConfirm"));
        QTest::keyClicks(field, QStringLiteral("wrong"));
        QTest::mouseClick(confirm, Qt::LeftButton);
        if (!tour.waitFor([&] { return textOf(dialog, "AuthError") == QStringLiteral("密码错误"); },
                          kAnswerMs, QStringLiteral("the refusal of a wrong password"), why) ||
            !tour.picture(QStringLiteral("protection-password"), why))
            return false;
        field->setText(password());
        QTest::keyClick(field, Qt::Key_Return);
        return true;
    };
    QString clickError;
    if (!tour.withDialog([&] { tour.click("UnlockButton", &clickError); }, answer, error) ||
        !tour.waitFor([page] { return page->isFileListUnlocked(); }, kAnswerMs,
                      QStringLiteral("the list to open"), error)) {
        *error += clickError;
        return false;
    }
    *found = QStringLiteral("a wrong password refused, the right one taken");
    return tour.picture(QStringLiteral("protection-list"), error);
}

/// Without a hook for the deletions of other programs, both the page and the window say so.
bool enableWithoutHook(Tour &tour, const RealtimeProtectionPage *page, QString *found,
                       QString *error)
{
    QString warning;
    QString clickError;
    if (!tour.answerNotice([&] { tour.click("ProtectionToggle", &clickError); },
                           QStringLiteral("保护状态异常"), QStringLiteral("protection-degraded"),
                           &warning, error)) {
        *error += clickError;
        return false;
    }
    // The notice of the start would give other advice.
    if (tour.window()->findChild<QTimer *>(QStringLiteral("StartupNoticeTimer"))->isActive()) {
        *error = QStringLiteral("a second notice is due");
        return false;
    }
    *found = textOf(page, "StatusText") + QStringLiteral(": ") + warning;
    return textOf(page, "StatusText") == QStringLiteral("保护异常");
}

/// The light turns green by what the service has proved.
bool enable(Tour &tour, QString *found, QString *error)
{
    auto *page = tour.find<RealtimeProtectionPage>("RealtimeProtectionPage", error);
    if (page && hookLibrary().isEmpty())
        return enableWithoutHook(tour, page, found, error);
    if (!page || !tour.click("ProtectionToggle", error) ||
        !tour.waitFor([page] { return textOf(page, "StatusText") == QStringLiteral("保护已启用"); },
                      kEnableMs, QStringLiteral("the protection to be enabled"), error)) {
        *error += page ? QStringLiteral(", it says ") + textOf(page, "StatusText") : QString();
        return false;
    }
    *found = textOf(page, "StatusText");
    return tour.picture(QStringLiteral("protection-enabled"), error);
}

/// The library comes from the preload list alone.
bool runInProtected(const Tour &tour, const QString &name, const QStringList &arguments,
                    QString *error)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QStringLiteral("LD_PRELOAD"));
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(protectedHome(tour));
    process.start(name, arguments);
    if (process.waitForFinished(kProgramMs) && process.exitStatus() == QProcess::NormalExit &&
        process.exitCode() == 0)
        return true;
    *error = name + QStringLiteral(": ") + QString::fromLocal8Bit(process.readAllStandardError());
    return false;
}

/// Other programs delete, the files appear in the list, and come back where they were.
bool deleteAndRestore(Tour &tour, QString *found, QString *error)
{
    const QStringList names{QStringLiteral("用 rm 删除.txt"), QStringLiteral("用 Python 删除.txt")};
    auto *page = tour.find<RealtimeProtectionPage>("RealtimeProtectionPage", error);
    auto *tree = tour.find<ProtectedFileTree>("ProtectedFileTree", error);
    if (!page || !tree)
        return false;
    for (const QString &name : names) {
        const QString path = QDir(protectedHome(tour)).filePath(name);
        if (!diskimages::write(path, contentOf(name))) {
            *error = QStringLiteral("cannot write %1").arg(path);
            return false;
        }
        tour.protectedHashes.insert(name, sha256OfFile(path));
    }
    const auto isListed = [tree](const QString &name) {
        return itemNamed(tree, name) != nullptr;
    };
    if (!runInProtected(tour, QStringLiteral("rm"), {names.at(0)}, error) ||
        !runInProtected(tour, QStringLiteral("python3"),
                        {QStringLiteral("-c"),
                         QStringLiteral("import os, sys; os.remove(sys.argv[1])"), names.at(1)},
                        error) ||
        !tour.waitFor([&] { return isListed(names.at(0)) && isListed(names.at(1)); }, kAnswerMs,
                      QStringLiteral("the deleted files"), error) ||
        !tour.picture(QStringLiteral("protection-deleted"), error))
        return false;
    for (const QString &name : names) {
        if (!tick(tree, name, error))
            return false;
    }
    if (!tour.click("RestoreSelectedButton", error) ||
        !tour.waitFor([&] { return !isListed(names.at(0)) && !isListed(names.at(1)); }, kAnswerMs,
                      QStringLiteral("the files to leave the list"), error) ||
        !hasSameContent(tour, names.at(0), error) || !hasSameContent(tour, names.at(1), error))
        return false;
    *found = names.join(QStringLiteral(", ")) + QStringLiteral(": SHA-256 of each is the same");
    return true;
}

bool announce(Tour &tour, QString *found, QString *error)
{
    auto *tree = tour.find<ProtectedFileTree>("ProtectedFileTree", error);
    if (!tree || !protect(tour, protectedHome(tour), {QStringLiteral("文档/刚删除.md")}, error) ||
        !tour.waitFor([&] { return itemNamed(tree, QStringLiteral("刚删除.md")) != nullptr; },
                      kAnswerMs, QStringLiteral("the file that came under protection"), error))
        return false;
    *found = QStringLiteral("刚删除.md appeared by itself");
    return true;
}

bool restore(Tour &tour, QString *found, QString *error)
{
    const QString name = QStringLiteral("合影.png");
    auto *tree = tour.find<ProtectedFileTree>("ProtectedFileTree", error);
    if (!tree || !tick(tree, name, error) || !tour.click("RestoreSelectedButton", error) ||
        !tour.waitFor([&] { return !itemNamed(tree, name); }, kAnswerMs,
                      QStringLiteral("the file to leave the list"), error) ||
        !hasSameContent(tour, name, error))
        return false;
    *found = QStringLiteral("SHA-256 of %1 is the same").arg(name);
    return true;
}

bool remove(Tour &tour, QString *found, QString *error)
{
    const QString name = QStringLiteral("预算.csv");
    auto *tree = tour.find<ProtectedFileTree>("ProtectedFileTree", error);
    QString question;
    QString clickError;
    if (!tree || !tick(tree, name, error) ||
        !tour.answerNotice([&] { tour.click("DeleteSelectedButton", &clickError); },
                           QStringLiteral("确认删除"), QStringLiteral("protection-delete"),
                           &question, error) ||
        !tour.waitFor([&] { return !itemNamed(tree, name); }, kAnswerMs,
                      QStringLiteral("the file to leave the list"), error)) {
        *error += clickError;
        return false;
    }
    *found = question;
    return true;
}

bool settings(Tour &tour, QString *found, QString *error)
{
    auto *page = tour.find<RealtimeProtectionPage>("RealtimeProtectionPage", error);
    if (!page)
        return false;
    QString shown;
    const auto change = [&](QDialog *dialog, QString *why) {
        auto *days = dialog->findChild<QComboBox *>(QStringLiteral("RetentionCombo"));
        if (!days) {
            *why = QStringLiteral("no choice of days");
            return false;
        }
        shown = days->currentText();
        days->setCurrentText(QStringLiteral("60 天"));
        if (!tour.picture(QStringLiteral("protection-settings"), why))
            return false;
        QTest::mouseClick(dialog->findChild<QPushButton *>(QStringLiteral("ShieldSave")),
                          Qt::LeftButton);
        return true;
    };
    const auto look = [&](QDialog *dialog, QString *) {
        shown = dialog->findChild<QComboBox *>(QStringLiteral("RetentionCombo"))->currentText();
        dialog->reject();
        return true;
    };
    QString clickError;
    const auto open = [&] {
        tour.click("ShieldSettingsButton", &clickError);
    };
    if (!tour.withDialog(open, change, error))
        return false;
    *found = shown + QStringLiteral(" before");
    // What the service now holds comes back by itself.
    const auto isKept = [&] {
        return tour.withDialog(open, look, error) && shown == QStringLiteral("60 天");
    };
    if (!tour.waitFor(isKept, kAnswerMs, QStringLiteral("the days that were chosen"), error))
        return false;
    *found += QStringLiteral(", %1 now").arg(shown);
    return true;
}

bool browse(Tour &tour, QString *found, QString *error)
{
    auto *page = tour.find<VaultBrowserPage>("VaultBrowserPage", error);
    if (!page || !tour.click("Nav_vault_browser", error))
        return false;
    QDir().mkpath(restoredDir(tour));
    const QString directory = restoredDir(tour);
    page->setDirectoryChooser([directory](QWidget *, const QString &) { return directory; });
    auto *tree = page->findChild<ProtectedFileTree *>();
    const auto isThere = [&] {
        return itemNamed(tree, QStringLiteral("合同终稿.txt")) != nullptr;
    };
    if (!tree || !tour.click("VaultRefreshButton", error) ||
        !tour.waitFor(isThere, kAnswerMs, QStringLiteral("the files of the vault"), error))
        return false;
    const auto *choice = page->findChild<QComboBox *>(QStringLiteral("VaultPartitionCombo"));
    *found = choice ? choice->currentText() : QString();
    return tour.picture(QStringLiteral("vault-browser"), error);
}

bool restoreAll(Tour &tour, QString *found, QString *error)
{
    QString message;
    QString clickError;
    if (!tour.answerNotice([&] { tour.click("VaultRestoreAllButton", &clickError); },
                           QStringLiteral("恢复完成"), QStringLiteral("vault-restored"), &message,
                           error)) {
        *error += clickError;
        return false;
    }
    for (const QString &path : doomedFiles()) {
        if (!hasSameContent(tour, QFileInfo(path).fileName(), error))
            return false;
    }
    *found = message + QStringLiteral(" SHA-256 of each is the same.");
    return true;
}

} // namespace

bool fillVault(Tour &tour, const QString &home, QString *error)
{
    return protect(tour, home, doomedFiles(), error);
}

QList<TourStep> normalSteps()
{
    QList<TourStep> steps{{"保护服务", startService},
                          {"实时保护", openLockedPage},
                          {"验证身份", unlock},
                          {"启用保护", enable}};
    if (!hookLibrary().isEmpty())
        steps.append({"其他程序删除的文件", deleteAndRestore});
    return steps << QList<TourStep>{{"新受保护的文件", announce},
                                    {"恢复受保护文件", restore},
                                    {"删除受保护文件", remove},
                                    {"保护设置", settings}};
}

QList<TourStep> livecdSteps()
{
    return {{"受保护文件", browse}, {"恢复受保护文件", restoreAll}};
}

} // namespace protectionsteps
