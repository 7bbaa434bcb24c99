#include "app/applog.h"
#include "app/collapsiblesidebar.h"
#include "app/mainwindow.h"
#include "app/navigation.h"
#include "app/sidebarnavbutton.h"
#include "app/vaultstartupnotice.h"
#include "core/diagnostics/guidiagnosticsruntime.h"
#include "support/fakeservice.h"
#include "ui/common/theme.h"

#include <QDialog>
#include <QLabel>
#include <QLayout>
#include <QScreen>
#include <QSettings>
#include <QStackedWidget>
#include <QtTest>

using core::AppMode;
using core::diagnostics::GuiDiagnosticsRuntime;
using testsupport::FakeService;
using ui::common::IconWidget;

Q_DECLARE_METATYPE(core::AppMode)

namespace {

QJsonObject vaultStatus(const QString &deployMode, bool enabled = true)
{
    return {{QStringLiteral("enabled"), enabled}, {QStringLiteral("deployMode"), deployMode}};
}

QStackedWidget *stackOf(const MainWindow &window)
{
    return window.findChild<QStackedWidget *>(QStringLiteral("MainPagesStack"));
}

SidebarNavButton *navButton(const MainWindow &window, const QString &moduleKey)
{
    return window.findChild<SidebarNavButton *>(QStringLiteral("Nav_") + moduleKey);
}

QString heartbeatPage()
{
    QFile file(GuiDiagnosticsRuntime::heartbeatFilePath());
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QJsonDocument::fromJson(file.readAll()).object().value(QLatin1String("page")).toString();
}

void writeSidebarMode(const QString &mode)
{
    QSettings settings(morvaneConfigPath(), QSettings::IniFormat);
    settings.setValue(QStringLiteral("ui/sidebarMode"), mode);
}

// Reads and confirms every modal dialog that comes up; needed, since they run their own loop.
class DialogReader : public QObject
{
public:
    DialogReader() { startTimer(10); }
    QStringList shown;

protected:
    void timerEvent(QTimerEvent *) override
    {
        auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
        if (!dialog || !dialog->isVisible())
            return;
        shown.append(dialog->findChild<QLabel *>(QStringLiteral("NoticeTitle"))->text() +
                     QLatin1Char('|') +
                     dialog->findChild<QLabel *>(QStringLiteral("NoticeMessage"))->text());
        QTest::mouseClick(dialog->findChild<QPushButton *>(QStringLiteral("NoticeOkBtn")),
                          Qt::LeftButton);
    }
};

} // namespace

class TestMainWindow : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void navigation_data();
    void navigation();
    void firstView_data();
    void firstView();
    void deferredPage();
    void pageThatCannotBeBuilt();
    void badIndices();
    void sharePageIsMissing();
    void sidebarMode_data();
    void sidebarMode();
    void closingWithTray();
    void closingWithoutTray();
    void entriesFitTheLeastHeight();
    void vaultNoticeTable_data();
    void vaultNoticeTable();
    void vaultLinkComesBack();
    void vaultNoticeOnce();
    void vaultIsLeftAloneOnRecoveryMedium();
};

void TestMainWindow::initTestCase()
{
    // Closing windows is what several cases do.
    QApplication::setQuitOnLastWindowClosed(false);
}

void TestMainWindow::init()
{
    QFile::remove(morvaneConfigPath());
}

void TestMainWindow::navigation_data()
{
    QTest::addColumn<AppMode>("mode");
    QTest::addColumn<QStringList>("rows");

    // Section, label, module key, icon number, built at once.
    QTest::newRow("normal") << AppMode::normal
                            << QStringList{QStringLiteral("基础功能|文件搜索|file_search|8|1")};
    QTest::newRow("livecd") << AppMode::livecd
                            << QStringList{QStringLiteral("基础功能|文件搜索|file_search|8|1")};
}

void TestMainWindow::navigation()
{
    QFETCH(AppMode, mode);
    QFETCH(QStringList, rows);
    const QVector<NavigationEntry> entries = navigationEntries(mode);
    QStringList found;
    for (const NavigationEntry &entry : entries)
        found.append(QStringLiteral("%1|%2|%3|%4|%5")
                         .arg(entry.section, entry.label, entry.moduleKey)
                         .arg(int(entry.icon))
                         .arg(int(entry.eager)));
    QCOMPARE(found, rows);
    QVERIFY(isEmphasizedSection(QStringLiteral("专业功能")));
    QVERIFY(!isEmphasizedSection(QStringLiteral("基础功能")));
    QVERIFY(!isEmphasizedSection(QStringLiteral("其他")));

    // The window shows just these, in this order, each section under one header.
    MainWindow window(mode, nullptr, [] { return false; });
    QCOMPARE(stackOf(window)->count(), entries.size());
    QStringList sections;
    int lastY = -1;
    for (int i = 0; i < entries.size(); ++i) {
        const NavigationEntry &entry = entries.at(i);
        QCOMPARE(window.pageIndexForModule(entry.moduleKey), i);
        const SidebarNavButton *button = navButton(window, entry.moduleKey);
        QCOMPARE(button->text(), entry.label);
        QCOMPARE(button->iconType(), entry.icon);
        window.findChild<CollapsibleSidebar *>()->layout()->activate();
        QVERIFY(button->y() > lastY);
        lastY = button->y();
        QCOMPARE(stackOf(window)->widget(i)->property("deferredPlaceholder").toBool(),
                 !entry.eager);
        if (!sections.contains(entry.section))
            sections.append(entry.section);
    }
    QStringList headers;
    const auto labels = window.findChildren<QLabel *>(QStringLiteral("SidebarSectionHeader"));
    for (const QLabel *label : labels)
        headers.append(label->text());
    QCOMPARE(headers, sections);
}

void TestMainWindow::firstView_data()
{
    QTest::addColumn<AppMode>("mode");
    QTest::addColumn<QString>("title");
    QTest::newRow("normal") << AppMode::normal << QStringLiteral("墨川归档 - 普通模式");
    QTest::newRow("livecd") << AppMode::livecd << QStringLiteral("墨川归档 - 恢复环境模式");
}

void TestMainWindow::firstView()
{
    QFETCH(AppMode, mode);
    QFETCH(QString, title);
    MainWindow window(mode, nullptr, [] { return false; });
    QCOMPARE(window.windowTitle(), title);
    QCOMPARE(window.minimumSize(), QSize(800, 600));
    QVERIFY(!window.windowIcon().isNull());
    const QRect available = QGuiApplication::primaryScreen()->availableGeometry();
    QCOMPARE(window.size(),
             QSize(qMax(800, available.width() * 3 / 4), qMax(600, available.height() * 3 / 4)));
    QCOMPARE(window.geometry().center(), available.center());

    QCOMPARE(stackOf(window)->currentIndex(), 0);
    const QString firstKey = navigationEntries(mode).first().moduleKey;
    QVERIFY(navButton(window, firstKey)->isActive());
    QCOMPARE(heartbeatPage(), firstKey);

    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    auto *sidebar = window.findChild<CollapsibleSidebar *>();
    QCOMPARE(sidebar->pos(), QPoint(0, 0));
    QCOMPARE(sidebar->height(), sidebar->parentWidget()->height());

    // The window draws its own outline, but not against the edges of the screen.
    QCOMPARE(window.contentsMargins(), QMargins(1, 1, 1, 1));
    window.showMaximized();
    QTRY_COMPARE(window.contentsMargins(), QMargins());
    window.showNormal();
    QTRY_COMPARE(window.contentsMargins(), QMargins(1, 1, 1, 1));
}

void TestMainWindow::deferredPage()
{
    MainWindow window(AppMode::normal, nullptr, [] { return false; });
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QStackedWidget *stack = stackOf(window);

    int built = 0;
    QPointer<QWidget> page;
    const auto factory = [&]() -> QWidget * {
        ++built;
        page = new QLabel(QStringLiteral("page")); // without a parent: the window takes it
        return page;
    };
    window.addNavPage(QStringLiteral("甲"), IconWidget::Gear, nullptr, QStringLiteral("first"),
                      factory);
    window.addNavPage(QStringLiteral("乙"), IconWidget::Gear, new QWidget,
                      QStringLiteral("second"));
    const int index = window.pageIndexForModule(QStringLiteral("first"));
    QCOMPARE(window.pageIndexForModule(QStringLiteral("second")), index + 1);
    const int count = stack->count();
    QPointer<QWidget> placeholder = stack->widget(index);
    QVERIFY(placeholder->property("deferredPlaceholder").toBool());
    QVERIFY(!placeholder->testAttribute(Qt::WA_StyledBackground));
    QCOMPARE(built, 0);

    SidebarNavButton *button = navButton(window, QStringLiteral("first"));
    QTest::mouseClick(button, Qt::LeftButton);
    QCOMPARE(built, 1);
    QCOMPARE(stack->count(), count);
    QCOMPARE(stack->currentIndex(), index);
    QCOMPARE(stack->widget(index), page.data());
    QVERIFY(page->isVisible());
    QTRY_VERIFY(!placeholder);
    QVERIFY(button->isActive());
    QVERIFY(!navButton(window, QStringLiteral("file_search"))->isActive());
    QCOMPARE(heartbeatPage(), QStringLiteral("first"));

    QTest::mouseClick(navButton(window, QStringLiteral("second")), Qt::LeftButton);
    QCOMPARE(stack->currentIndex(), index + 1);
    QTest::mouseClick(button, Qt::LeftButton);
    QTest::mouseClick(button, Qt::LeftButton);
    QCOMPARE(built, 1);
    QCOMPARE(stack->currentIndex(), index);
    QCOMPARE(heartbeatPage(), QStringLiteral("first"));
}

void TestMainWindow::pageThatCannotBeBuilt()
{
    MainWindow window(AppMode::normal, nullptr, [] { return false; });
    QStackedWidget *stack = stackOf(window);
    int asked = 0;
    bool works = false;
    window.addNavPage(QStringLiteral("甲"), IconWidget::Gear, nullptr, QStringLiteral("first"),
                      [&]() -> QWidget * {
                          ++asked;
                          return works ? new QWidget : nullptr;
                      });
    const int index = window.pageIndexForModule(QStringLiteral("first"));
    const QWidget *placeholder = stack->widget(index);
    window.switchToPage(index);
    QCOMPARE(asked, 1);
    QCOMPARE(stack->currentWidget(), placeholder);
    QVERIFY(navButton(window, QStringLiteral("first"))->isActive());

    works = true;
    window.switchToPage(index);
    window.switchToPage(index);
    QCOMPARE(asked, 2);
    QVERIFY(stack->currentWidget() != placeholder);
    QCOMPARE(stack->currentIndex(), index);

    // Neither a page nor a way to build one: no entry.
    const int count = stack->count();
    window.addNavPage(QStringLiteral("乙"), IconWidget::Gear, nullptr, QStringLiteral("none"));
    QCOMPARE(stack->count(), count);
    QCOMPARE(window.pageIndexForModule(QStringLiteral("none")), -1);
    QVERIFY(!navButton(window, QStringLiteral("none")));
}

void TestMainWindow::badIndices()
{
    MainWindow window(AppMode::normal, nullptr, [] { return false; });
    QStackedWidget *stack = stackOf(window);
    QVERIFY(window.ensurePageCreated(0));
    for (const int index : {-1, stack->count(), stack->count() + 5}) {
        QVERIFY(!window.ensurePageCreated(index));
        window.showPageIndex(index);
        window.switchToPage(index);
        QCOMPARE(stack->currentIndex(), 0);
    }
    // A widget that is in the stack without an entry is no page.
    stack->addWidget(new QWidget);
    QVERIFY(!window.ensurePageCreated(stack->count() - 1));
    window.switchToPage(stack->count() - 1);
    QCOMPARE(stack->currentIndex(), 0);
    QCOMPARE(window.pageIndexForModule(QStringLiteral("no_such_page")), -1);
}

void TestMainWindow::sharePageIsMissing()
{
    MainWindow window(AppMode::livecd, nullptr, [] { return false; });
    window.addNavPage(QStringLiteral("甲"), IconWidget::Gear, new QWidget, QStringLiteral("a"));
    window.switchToPage(1);
    QVERIFY(!window.isVisible());
    window.switchToSharePage();
    QVERIFY(window.isVisible());
    QCOMPARE(stackOf(window)->currentIndex(), 1);
}

void TestMainWindow::sidebarMode_data()
{
    QTest::addColumn<QString>("setting");
    QTest::addColumn<int>("width");
    QTest::newRow("missing") << QString() << 60;
    QTest::newRow("collapsed") << QStringLiteral("collapsed") << 60;
    QTest::newRow("pinned") << QStringLiteral("pinned") << 175;
    QTest::newRow("another word") << QStringLiteral("Pinned!") << 60;
}

void TestMainWindow::sidebarMode()
{
    QFETCH(QString, setting);
    QFETCH(int, width);
    if (!setting.isEmpty())
        writeSidebarMode(setting);
    MainWindow window(AppMode::normal, nullptr, [] { return false; });
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    auto *sidebar = window.findChild<CollapsibleSidebar *>();
    auto *host = window.findChild<QWidget *>(QStringLiteral("SidebarHost"));
    auto *card = window.findChild<QWidget *>(QStringLiteral("RightCard"));
    const auto check = [&](int expected) {
        QCOMPARE(sidebar->width(), expected);
        QCOMPARE(host->width(), expected);
        QCOMPARE(sidebar->isPinned(), expected == 175);
        QTRY_COMPARE(card->x(), expected);
    };
    QCOMPARE(window.loadSidebarPinnedSetting(), width == 175);
    check(width);
    window.applySidebarPinnedMode(true);
    check(175);
    window.applySidebarPinnedMode(false);
    check(60);

    // Open over the content: the content stays.
    sidebar->expand();
    QTRY_COMPARE(sidebar->width(), 175);
    QCOMPARE(card->x(), 60);
}

void TestMainWindow::closingWithTray()
{
    MainWindow window(AppMode::normal, nullptr, [] { return true; });
    auto *tray = window.findChild<SystemTray *>(QStringLiteral("SystemTray"));
    QVERIFY(tray->isVisible());
    window.show();
    QVERIFY(!window.close());
    QVERIFY(!window.isVisible());

    // A click on the icon brings it back and hides it again; a minimised one is brought back.
    auto *icon = tray->findChild<QSystemTrayIcon *>();
    emit icon->activated(QSystemTrayIcon::Trigger);
    QVERIFY(window.isVisible());
    window.showMinimized();
    emit icon->activated(QSystemTrayIcon::DoubleClick);
    QVERIFY(window.isVisible() && !window.isMinimized());
    emit icon->activated(QSystemTrayIcon::MiddleClick);
    QVERIFY(window.isVisible());
    emit icon->activated(QSystemTrayIcon::Trigger);
    QVERIFY(!window.isVisible());
    emit tray->showRequested();
    QVERIFY(window.isVisible());

    // Quitting from the menu takes the icon away, so that the window closes for good.
    QTimer::singleShot(0, tray, &SystemTray::quitRequested);
    QTimer watchdog;
    connect(&watchdog, &QTimer::timeout, qApp, [] { QCoreApplication::exit(1); });
    watchdog.start(5000);
    QCOMPARE(QCoreApplication::exec(), 0);
    QVERIFY(!tray->isVisible());
    QVERIFY(window.close());
}

void TestMainWindow::closingWithoutTray()
{
    for (const AppMode mode : {AppMode::normal, AppMode::livecd}) {
        bool asked = false;
        MainWindow window(mode, nullptr, [&asked] {
            asked = true;
            return false;
        });
        QCOMPARE(asked, mode == AppMode::normal); // no tray on a recovery medium
        window.show();
        QVERIFY(window.close());
        QVERIFY(!window.isVisible());
        window.bringToFront();
        QVERIFY(window.isVisible());
    }
}

void TestMainWindow::entriesFitTheLeastHeight()
{
    // As many entries as the fullest navigation, at the largest font scale and the least size.
    ui::common::ThemeColors::init(ui::common::ThemeType::light, 1.6);
    MainWindow window(AppMode::normal, nullptr, [] { return false; });
    auto *sidebar = window.findChild<CollapsibleSidebar *>();
    const int missing = 8 - stackOf(window)->count();
    for (int i = 0; i < missing; ++i) {
        if (i == 1 || i == 4)
            sidebar->addSectionHeader(QStringLiteral("专业功能"), true);
        window.addNavPage(QStringLiteral("受保护文件"), IconWidget::Shield, new QWidget,
                          QString::number(i));
    }
    window.resize(window.minimumSize());
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    const QList<SidebarNavButton *> buttons = window.findChildren<SidebarNavButton *>();
    QCOMPARE(buttons.size(), 8);
    int lastBottom = 0;
    for (const SidebarNavButton *button : buttons) {
        QVERIFY(button->y() >= lastBottom);
        QVERIFY(button->height() >= button->minimumSizeHint().height());
        lastBottom = button->y() + button->height();
    }
    QVERIFY2(lastBottom <= sidebar->height(), qPrintable(QString::number(lastBottom)));
    ui::common::ThemeColors::init(ui::common::ThemeType::light, 1.0);
}

void TestMainWindow::vaultNoticeTable_data()
{
    QTest::addColumn<QJsonObject>("status");
    QTest::addColumn<QString>("title");

    const QString reboot = QStringLiteral("文件保护待重启生效");
    const QString degraded = QStringLiteral("文件保护状态异常");
    QTest::newRow("empty") << QJsonObject() << QString();
    QTest::newRow("healthy") << vaultStatus(QStringLiteral("global")) << QString();
    QTest::newRow("reboot") << vaultStatus(QStringLiteral("pending_reboot")) << reboot;
    QTest::newRow("reboot, off") << vaultStatus(QStringLiteral("pending_reboot"), false)
                                 << QString();
    QTest::newRow("degraded") << vaultStatus(QStringLiteral("degraded")) << degraded;
    QTest::newRow("degraded, off") << vaultStatus(QStringLiteral("degraded"), false) << QString();
    QTest::newRow("not deployed") << vaultStatus(QString()) << QString();
    QTest::newRow("unknown") << vaultStatus(QStringLiteral("Degraded")) << QString();
    QTest::newRow("mode alone") << QJsonObject{{QStringLiteral("deployMode"),
                                                QStringLiteral("degraded")}}
                                << QString();
    QTest::newRow("enabled is no boolean")
        << QJsonObject{{QStringLiteral("enabled"), 1},
                       {QStringLiteral("deployMode"), QStringLiteral("degraded")}}
        << QString();
}

void TestMainWindow::vaultNoticeTable()
{
    QFETCH(QJsonObject, status);
    QFETCH(QString, title);
    const std::optional<StartupNotice> notice = vaultStartupNotice(status);
    QCOMPARE(notice.has_value(), !title.isEmpty());
    if (notice)
        QCOMPARE(notice->title, title);
}

void TestMainWindow::vaultLinkComesBack()
{
    MainWindow window(AppMode::normal, nullptr, [] { return false; });
    auto *timer = window.findChild<QTimer *>(QStringLiteral("VaultReconnectTimer"));
    QTRY_VERIFY(timer->isActive()); // nobody is there yet
    QCOMPARE(timer->interval(), 5000);
    timer->setInterval(50);

    const QString getStatus = QStringLiteral("vault.getStatus");
    for (int life = 0; life < 2; ++life) {
        FakeService service;
        service.reply(getStatus, vaultStatus(QStringLiteral("global")));
        QString error;
        QVERIFY2(service.listen(QStringLiteral("morvane-vault-v1"), &error), qPrintable(error));
        QVERIFY(service.waitForRequest(getStatus));
        QTRY_VERIFY(!timer->isActive());
        QCOMPARE(service.count(getStatus), 1);
        QCOMPARE(service.clientCount(), 1);
        service.close();
        QTRY_VERIFY(timer->isActive());
    }
}

void TestMainWindow::vaultNoticeOnce()
{
    FakeService service;
    const QString getStatus = QStringLiteral("vault.getStatus");
    service.reply(getStatus, vaultStatus(QStringLiteral("pending_reboot")));
    QVERIFY(service.listen(QStringLiteral("morvane-vault-v1")));
    DialogReader dialogs;
    QElapsedTimer clock;
    clock.start();
    MainWindow window(AppMode::normal, nullptr, [] { return false; });
    window.show();
    QTRY_COMPARE(dialogs.shown,
                 QStringList(QStringLiteral(
                     "文件保护待重启生效|文件保护配置已更新，重启电脑后会恢复正常生效。"
                     "为避免误判，建议在重启完成前暂时不要依赖该功能。")));
    QVERIFY(clock.elapsed() >= 600);

    window.maybeShowVaultStartupStatusNotice(vaultStatus(QStringLiteral("degraded")));
    QTest::qWait(700); // longer than the 600 ms after which a second one would come
    QCOMPARE(dialogs.shown.size(), 1);
}

void TestMainWindow::vaultIsLeftAloneOnRecoveryMedium()
{
    FakeService service;
    QVERIFY(service.listen(QStringLiteral("morvane-vault-v1")));
    DialogReader dialogs;
    MainWindow window(AppMode::livecd, nullptr, [] { return false; });
    window.maybeShowVaultStartupStatusNotice(vaultStatus(QStringLiteral("degraded")));
    QTest::qWait(700); // time for a notice, and for a connection that should not come
    QCOMPARE(dialogs.shown, QStringList());
    QCOMPARE(service.clientCount(), 0);
}

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
