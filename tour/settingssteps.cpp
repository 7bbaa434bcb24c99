#include "settingssteps.h"

#include "app/mainwindow.h"
#include "support/fakeservice.h"
#include "support/updateserver.h"
#include "ui/pages/forcedupdatedialog.h"

#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QTest>
#include <QTextBrowser>
#include <QTreeWidget>

namespace {

using testsupport::FakeService;
using testsupport::UpdateServer;

constexpr int kAnswerMs = 10000;

QByteArray packageBytes()
{
    return QByteArray(3000000, 'p');
}

QString packagePath()
{
    return QStringLiteral("/morvane.deb");
}

QString textOf(const QWidget *parent, const char *name)
{
    const auto *label = parent->findChild<QLabel *>(QLatin1String(name));
    return label ? label->text() : QString();
}

/// What the server says of version 9.0, and what it sends as its package.
void offer(UpdateServer *server, bool mandatory, const UpdateServer::Answer &package)
{
    server->offerUpdate(packagePath(), packageBytes(),
                        {{QStringLiteral("forceUpdate"), mandatory},
                         {QStringLiteral("publishedAt"), QStringLiteral("2026-03-04T12:00:00Z")}});
    server->answer(packagePath(), package);
}

bool startServer(UpdateServer *server, QString *error)
{
    if (server->start())
        return true;
    *error = server->errorString();
    return false;
}

/// A window whose update server, and installer if any, are those; they go with it. It checks as it
/// starts, since the checks of earlier windows are forgotten.
void showWindow(Tour &tour, UpdateServer *server, FakeService *installer)
{
    tour.closeWindow();
    QFile::remove(tour.home() + QStringLiteral("/.config/morvane/upgrade/update_state.json"));
    MainWindowOptions options;
    options.updateServer = server->url();
    options.vaultService = installer ? installer->name() : QStringLiteral("tour-no-vault");
    auto *window = new MainWindow(core::AppMode::normal, nullptr, options);
    server->setParent(window);
    if (installer)
        installer->setParent(window);
    tour.showWindow(window);
}

bool openWindow(Tour &tour, QString *found, QString *error)
{
    auto *server = new UpdateServer;
    if (!startServer(server, error))
        return false;
    offer(server, false, UpdateServer::Answer());
    showWindow(tour, server, nullptr);
    *found = server->url().toString();
    return true;
}

bool readHelp(Tour &tour, QString *found, QString *error)
{
    if (!tour.click("Nav_help", error))
        return false;
    auto *contents = tour.find<QTreeWidget>("HelpGuideContents", error);
    auto *text = tour.find<QTextBrowser>("HelpGuideText", error);
    if (!contents || !text || !tour.picture(QStringLiteral("help"), error))
        return false;
    const QList<QTreeWidgetItem *> items =
        contents->findItems(QStringLiteral("文件分享"), Qt::MatchExactly | Qt::MatchRecursive);
    if (items.isEmpty()) {
        *error = QStringLiteral("no chapter 文件分享");
        return false;
    }
    contents->scrollToItem(items.first());
    QTest::mouseClick(contents->viewport(), Qt::LeftButton, Qt::NoModifier,
                      contents->visualItemRect(items.first()).center());
    if (!tour.waitFor([text] { return text->verticalScrollBar()->value() > 0; }, kAnswerMs,
                      QStringLiteral("the guide to scroll"), error))
        return false;
    *found = QStringLiteral("%1 parts, scrolled to %2")
                 .arg(contents->topLevelItemCount())
                 .arg(items.first()->text(0));
    return tour.picture(QStringLiteral("help-chapter"), error);
}

bool copyToolCommand(Tour &tour, QString *found, QString *error)
{
    if (!tour.click("AuxiliaryToolsButton", error) || !tour.picture(QStringLiteral("tools"), error))
        return false;
    auto *card = tour.find<QWidget>("AuxToolCard", error);
    auto *run = card ? card->findChild<QPushButton *>() : nullptr;
    if (!run)
        return false;
    const auto look = [&](QDialog *dialog, QString *why) {
        *found = QGuiApplication::clipboard()->text();
        if (*found != card->property("command").toString()) {
            *why = QStringLiteral("the clipboard holds: ") + *found;
            return false;
        }
        return tour.pictureOf(tour.window(), QStringLiteral("tools-copied"), why) &&
               dialog->isVisible();
    };
    return tour.withDialog([run] { QTest::mouseClick(run, Qt::LeftButton); }, look, error) &&
           tour.click("BackToHelpButton", error);
}

bool readAbout(Tour &tour, QString *found, QString *error)
{
    if (!tour.click("Nav_about", error))
        return false;
    auto *text = tour.find<QPlainTextEdit>("AboutProtocolText", error);
    if (!text)
        return false;
    *found = textOf(tour.window(), "AboutVersion");
    if (!text->toPlainText().startsWith(QStringLiteral("墨川归档使用协议"))) {
        *error = text->toPlainText().left(60);
        return false;
    }
    return tour.picture(QStringLiteral("about"), error);
}

bool chooseScale(Tour &tour, Qt::Key step, const QString &picture, QString *error)
{
    auto *scale = tour.find<QComboBox>("FontScaleCombo", error);
    if (!scale)
        return false;
    QTest::keyClick(scale, step);
    QString clickError;
    const auto look = [&](QDialog *, QString *why) {
        return picture.isEmpty() || tour.picture(picture, why);
    };
    const bool ok =
        tour.withDialog([&] { tour.click("SaveSettingsButton", &clickError); }, look, error);
    if (!clickError.isEmpty())
        *error = clickError;
    return ok && clickError.isEmpty();
}

bool changeFontScale(Tour &tour, QString *found, QString *error)
{
    if (!tour.click("Nav_global_settings", error) ||
        !chooseScale(tour, Qt::Key_Down, QStringLiteral("settings-font"), error))
        return false;
    *found = tour.find<QComboBox>("FontScaleCombo", error)->currentText();
    return chooseScale(tour, Qt::Key_Up, QString(), error);
}

bool setSidebar(Tour &tour, Qt::Key step, int width, QString *error)
{
    auto *mode = tour.find<QComboBox>("SidebarModeCombo", error);
    auto *sidebar = tour.find<QWidget>("CollapsibleSidebar", error);
    if (!mode || !sidebar)
        return false;
    QTest::keyClick(mode, step);
    return tour.click("SaveSettingsButton", error) &&
           tour.waitFor([&] { return sidebar->property("currentWidth").toInt() == width; },
                        kAnswerMs, QStringLiteral("the sidebar to be %1 wide").arg(width), error);
}

bool pinSidebar(Tour &tour, QString *found, QString *error)
{
    if (!setSidebar(tour, Qt::Key_Down, 175, error) ||
        !tour.picture(QStringLiteral("settings-pinned"), error))
        return false;
    *found = QStringLiteral("pinned without a restart");
    return setSidebar(tour, Qt::Key_Up, 60, error);
}

bool findUpdate(Tour &tour, QString *found, QString *error)
{
    const QString expected = QStringLiteral("发现新版本 9.0");
    // The window checks by itself a second after it came up.
    if (!tour.waitFor([&] { return textOf(tour.window(), "UpgradeStatusLabel") == expected; },
                      kAnswerMs, QStringLiteral("the check at start"), error))
        return false;
    const auto look = [&](QDialog *dialog, QString *why) {
        *found =
            textOf(dialog, "NoticeTitle") + QStringLiteral(": ") + textOf(dialog, "NoticeMessage");
        if (!found->contains(expected)) {
            *why = *found;
            return false;
        }
        return tour.picture(QStringLiteral("update-found"), why);
    };
    QString clickError;
    return tour.withDialog([&] { tour.click("CheckUpdateButton", &clickError); }, look, error);
}

bool forceUpdate(Tour &tour, QString *found, QString *error)
{
    auto *server = new UpdateServer;
    auto *installer = new FakeService;
    if (!startServer(server, error) || !installer->start())
        return false;
    installer->reply(QStringLiteral("vault.installPackage"), {});
    UpdateServer::Answer damaged;
    damaged.body = QByteArray(3000000, 'x');
    // In pieces, since the network reports progress ten times a second at most.
    damaged.pieces = 200;
    damaged.holdAfter = damaged.body.size() / 2;
    offer(server, true, damaged);
    showWindow(tour, server, installer);

    const auto dialog = [&tour] {
        return tour.window()->findChild<ForcedUpdateDialog *>();
    };
    const auto stageIs = [&](const QString &text) {
        return dialog() && textOf(dialog(), "ForcedUpdateStage") == text;
    };
    const auto measured = [&] {
        return dialog() && textOf(dialog(), "ForcedUpdatePercent").contains(QLatin1Char('%'));
    };
    if (!tour.waitFor(measured, kAnswerMs, QStringLiteral("the forced download"), error) ||
        !tour.picture(QStringLiteral("forced-download"), error))
        return false;
    server->release(packagePath());
    if (!tour.waitFor([&] { return stageIs(QStringLiteral("更新包校验失败，请稍后重试。")); },
                      kAnswerMs, QStringLiteral("the damaged package to be refused"), error) ||
        !tour.picture(QStringLiteral("forced-failed"), error))
        return false;
    if (installer->count(QStringLiteral("vault.installPackage")) != 0) {
        *error = QStringLiteral("a damaged package was handed over");
        return false;
    }

    UpdateServer::Answer good;
    good.body = packageBytes();
    server->answer(packagePath(), good);
    if (!tour.click("ForcedUpdateRetry", error) ||
        !tour.waitFor([&] { return stageIs(QStringLiteral("更新程序已启动，应用即将退出。")); },
                      kAnswerMs, QStringLiteral("the package to be handed over"), error) ||
        !tour.picture(QStringLiteral("forced-handed-over"), error))
        return false;
    *found = QStringLiteral("a damaged package refused, the good one handed over");
    // Before the program ends itself.
    tour.closeWindow();
    return true;
}

} // namespace

QList<TourStep> settingsSteps()
{
    return {{"设置与更新", openWindow},    {"帮助", readHelp},
            {"辅助工具", copyToolCommand}, {"关于", readAbout},
            {"字体大小", changeFontScale}, {"固定导航栏", pinSidebar},
            {"检查更新", findUpdate},      {"强制更新", forceUpdate}};
}
