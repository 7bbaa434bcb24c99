#include "app/applog.h"
#include "app/buttoninteractionfilter.h"
#include "app/collapsiblesidebar.h"
#include "app/mainwindow.h"
#include "app/navigation.h"
#include "app/sidebarnavbutton.h"
#include "app/vaultstartupnotice.h"
#include "core/diagnostics/guidiagnosticsruntime.h"
#include "support/fakeservice.h"
#include "support/modaldriver.h"
#include "ui/common/theme.h"
#include "vault/vaultcontroller.h"

#include <QLabel>
#include <QLayout>
#include <QScreen>
#include <QSettings>
#include <QStackedWidget>
#include <QToolButton>
#include <QtTest>

using core::AppMode;
using testsupport::FakeService;
using ui::common::IconWidget;
using ui::common::ThemeColors;

Q_DECLARE_METATYPE(core::AppMode)

namespace {

// The desktop has a tray or not; no update server answers.
MainWindowOptions surroundings(bool hasTray)
{
    MainWindowOptions options;
    options.trayProbe = [hasTray] {
        return hasTray;
    };
    options.updateServer = QUrl(QStringLiteral("http://127.0.0.1:9"));
    return options;
}

class Window : public MainWindow
{
public:
    explicit Window(AppMode mode, bool hasTray = false)
        : MainWindow(mode, nullptr, surroundings(hasTray))
    {}

    QStackedWidget *stack() const
    {
        return findChild<QStackedWidget *>(QStringLiteral("MainPagesStack"));
    }
    CollapsibleSidebar *sidebar() const { return findChild<CollapsibleSidebar *>(); }
    SidebarNavButton *button(const char *moduleKey) const
    {
        return findChild<SidebarNavButton *>(QStringLiteral("Nav_") + QLatin1String(moduleKey));
    }
    int indexOf(const char *moduleKey) const
    {
        return pageIndexForModule(QString::fromLatin1(moduleKey));
    }
    void add(const char *moduleKey, QWidget *page, const PageFactory &factory = PageFactory())
    {
        addNavPage(QStringLiteral("受保护文件"), IconWidget::Shield, page,
                   QString::fromLatin1(moduleKey), factory);
    }
};

QJsonObject vaultStatus(const char *deployMode, bool enabled = true)
{
    return {{QStringLiteral("enabled"), enabled},
            {QStringLiteral("deployMode"), QString::fromLatin1(deployMode)}};
}

QString heartbeatPage()
{
    QFile file(core::diagnostics::GuiDiagnosticsRuntime::heartbeatFilePath());
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QJsonDocument::fromJson(file.readAll()).object().value(QLatin1String("page")).toString();
}

const QString kVaultName = QStringLiteral("morvane-vault-v1");
const QString kGetStatus = QStringLiteral("vault.getStatus");

} // namespace

class TestMainWindow : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QApplication::setQuitOnLastWindowClosed(false); }
    void init() { QFile::remove(morvaneConfigPath()); }

    void firstView_data()
    {
        QTest::addColumn<AppMode>("mode");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QStringList>("rows"); // section, label, module key, icon, built at once
        QTest::newRow("normal") << AppMode::normal << QStringLiteral("墨川归档 - 普通模式")
                                << QStringList{
                                       QStringLiteral("基础功能|文件搜索|file_search|8|1"),
                                       QStringLiteral("基础功能|空间分析|disk_analyzer|4|0"),
                                       QStringLiteral("专业功能|微信清理|wechat_clean|20|0"),
                                       QStringLiteral("专业功能|实时保护|realtime_protection|15|0"),
                                       QStringLiteral("专业功能|文件分享|file_share|19|0"),
                                       QStringLiteral("其他|帮助说明|help|16|0"),
                                       QStringLiteral("其他|关于|about|17|0"),
                                       QStringLiteral("其他|全局设置|global_settings|3|0")};
        QTest::newRow("livecd") << AppMode::livecd << QStringLiteral("墨川归档 - 恢复环境模式")
                                << QStringList{
                                       QStringLiteral("基础功能|文件恢复|recovery_scan|4|1"),
                                       QStringLiteral("基础功能|最近扫描|recent_scans|1|1"),
                                       QStringLiteral("基础功能|文件搜索|file_search|8|1"),
                                       QStringLiteral("专业功能|受保护文件|vault_browser|15|1"),
                                       QStringLiteral("专业功能|块取证|block_forensics|8|1"),
                                       QStringLiteral("其他|帮助说明|help|16|1"),
                                       QStringLiteral("其他|关于|about|17|1"),
                                       QStringLiteral("其他|全局设置|global_settings|3|1")};
    }

    void firstView()
    {
        QFETCH(AppMode, mode);
        QFETCH(QStringList, rows);
        Window window(mode);
        QTEST(window.windowTitle(), "title");
        QCOMPARE(window.minimumSize(), QSize(800, 600));
        QVERIFY(!window.windowIcon().isNull());
        const QRect available = QGuiApplication::primaryScreen()->availableGeometry();
        QCOMPARE(window.size(), QSize(qMax(800, available.width() * 3 / 4),
                                      qMax(600, available.height() * 3 / 4)));
        QCOMPARE(window.geometry().center(), available.center());

        // The entries as the window shows them, each section under one header.
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QStringList found;
        QStringList sections;
        int lastY = -1;
        for (const NavigationEntry &entry : navigationEntries(mode)) {
            const auto *button =
                window.findChild<SidebarNavButton *>(QStringLiteral("Nav_") + entry.moduleKey);
            const int index = window.pageIndexForModule(entry.moduleKey);
            QCOMPARE(index, found.size());
            QVERIFY(button->y() > lastY);
            lastY = button->y();
            const bool built =
                !window.stack()->widget(index)->property("deferredPlaceholder").toBool();
            found.append(QStringLiteral("%1|%2|%3|%4|%5")
                             .arg(entry.section, button->text(), entry.moduleKey)
                             .arg(int(button->iconType()))
                             .arg(int(built)));
            if (!sections.contains(entry.section))
                sections.append(entry.section);
        }
        QCOMPARE(found, rows);
        QCOMPARE(window.stack()->count(), rows.size());
        QStringList headers;
        for (const QLabel *label :
             window.findChildren<QLabel *>(QStringLiteral("SidebarSectionHeader")))
            headers.append(label->text());
        QCOMPARE(headers, sections);

        QCOMPARE(window.stack()->currentIndex(), 0);
        const QString firstKey = rows.first().section(QLatin1Char('|'), 2, 2);
        QVERIFY(window.button(firstKey.toLatin1().constData())->isActive());
        QCOMPARE(heartbeatPage(), firstKey);
    }

    void outline()
    {
        Window window(AppMode::normal);
        window.show();
        QCOMPARE(window.contentsMargins(), QMargins(1, 1, 1, 1));
        window.showMaximized();
        QTRY_COMPARE(window.contentsMargins(), QMargins());
        window.showNormal();
        QTRY_COMPARE(window.contentsMargins(), QMargins(1, 1, 1, 1));
    }

    void deferredPage()
    {
        Window window(AppMode::normal);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        int built = 0;
        QPointer<QWidget> page;
        window.add("first", nullptr, [&]() -> QWidget * {
            ++built;
            page = new QLabel(QStringLiteral("page")); // without a parent: the window takes it
            return page;
        });
        window.add("second", new QWidget);
        const int index = window.indexOf("first");
        const int count = window.stack()->count();
        QPointer<QWidget> placeholder = window.stack()->widget(index);
        QVERIFY(!placeholder->testAttribute(Qt::WA_StyledBackground));
        QCOMPARE(built, 0);

        QTest::mouseClick(window.button("first"), Qt::LeftButton);
        QCOMPARE(built, 1);
        QCOMPARE(window.stack()->count(), count);
        QCOMPARE(window.stack()->currentIndex(), index);
        QCOMPARE(window.stack()->widget(index), page.data());
        QVERIFY(page->isVisible());
        QTRY_VERIFY(!placeholder);
        QVERIFY(window.button("first")->isActive());
        QVERIFY(!window.button("file_search")->isActive());

        QTest::mouseClick(window.button("second"), Qt::LeftButton);
        QCOMPARE(window.stack()->currentIndex(), index + 1);
        QTest::mouseClick(window.button("first"), Qt::LeftButton);
        QTest::mouseClick(window.button("first"), Qt::LeftButton);
        QCOMPARE(built, 1);
        QCOMPARE(window.stack()->currentIndex(), index);
        QCOMPARE(heartbeatPage(), QStringLiteral("first"));
    }

    void pageThatCannotBeBuilt()
    {
        Window window(AppMode::normal);
        int asked = 0;
        window.add("first", nullptr,
                   [&]() -> QWidget * { return ++asked > 1 ? new QWidget : nullptr; });
        const int index = window.indexOf("first");
        const QWidget *placeholder = window.stack()->widget(index);
        window.switchToPage(index);
        QCOMPARE(window.stack()->currentWidget(), placeholder);
        QVERIFY(window.button("first")->isActive());
        window.switchToPage(index);
        window.switchToPage(index);
        QCOMPARE(asked, 2);
        QCOMPARE(window.stack()->currentIndex(), index);
        QVERIFY(window.stack()->currentWidget() != placeholder);
    }

    void badIndices()
    {
        Window window(AppMode::livecd);
        const int count = window.stack()->count();
        window.add("none", nullptr); // neither a page nor a way to build one
        QCOMPARE(window.stack()->count(), count);
        QCOMPARE(window.indexOf("none"), -1);
        window.stack()->addWidget(new QWidget); // in the stack without an entry
        for (const int index : {-1, count, count + 1}) {
            QVERIFY(!window.ensurePageCreated(index));
            window.showPageIndex(index);
            window.switchToPage(index);
            QCOMPARE(window.stack()->currentIndex(), 0);
        }
        // There is no share page: only the window comes up.
        QVERIFY(!window.isVisible());
        window.switchToSharePage();
        QVERIFY(window.isVisible());
        QCOMPARE(window.stack()->currentIndex(), 0);
    }

    void sidebarMode_data()
    {
        QTest::addColumn<QString>("setting");
        QTest::addColumn<int>("width");
        QTest::newRow("missing") << QString() << 60;
        QTest::newRow("collapsed") << QStringLiteral("collapsed") << 60;
        QTest::newRow("pinned") << QStringLiteral("pinned") << 175;
        QTest::newRow("another word") << QStringLiteral("Pinned!") << 60;
    }

    void sidebarMode()
    {
        QFETCH(QString, setting);
        QFETCH(int, width);
        if (!setting.isEmpty())
            QSettings(morvaneConfigPath(), QSettings::IniFormat)
                .setValue(QStringLiteral("ui/sidebarMode"), setting);
        Window window(AppMode::normal);
        window.show();
        const auto *card = window.findChild<QWidget *>(QStringLiteral("RightCard"));
        const auto check = [&](int expected) {
            QCOMPARE(window.sidebar()->width(), expected);
            QCOMPARE(window.sidebar()->pos(), QPoint(0, 0));
            QTRY_COMPARE(card->x(), expected);
        };
        check(width);
        window.applySidebarPinnedMode(true);
        check(175);
        window.applySidebarPinnedMode(false);
        check(60);
        window.sidebar()->expand(); // over the content, which stays
        QTRY_COMPARE(window.sidebar()->width(), 175);
        QCOMPARE(card->x(), 60);
    }

    void closingWithTray()
    {
        Window window(AppMode::normal, true);
        auto *tray = window.findChild<SystemTray *>();
        auto *icon = tray->findChild<QSystemTrayIcon *>();
        window.show();
        QVERIFY(!window.close());
        QVERIFY(!window.isVisible());
        emit icon->activated(QSystemTrayIcon::Trigger);
        QVERIFY(window.isVisible());
        window.showMinimized();
        emit icon->activated(QSystemTrayIcon::DoubleClick);
        QVERIFY(window.isVisible() && !window.isMinimized());
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
        QVERIFY(window.close());
    }

    void closingWithoutTray()
    {
        Window normal(AppMode::normal);
        Window livecd(AppMode::livecd, true); // a recovery medium uses none
        for (Window *window : {&normal, &livecd}) {
            window->show();
            QVERIFY(window->close());
            QVERIFY(!window->isVisible());
            window->bringToFront();
            QVERIFY(window->isVisible());
        }
    }

    void entriesFitTheLeastHeight()
    {
        // As many entries as the fullest navigation, at the largest font scale.
        ThemeColors::init(ui::common::ThemeType::light, 1.6);
        Window window(AppMode::normal);
        for (int i = window.stack()->count(); i < 8; ++i) {
            if (i == 2 || i == 5)
                window.sidebar()->addSectionHeader(QStringLiteral("专业功能"), true);
            window.add(QByteArray::number(i).constData(), new QWidget);
        }
        window.resize(window.minimumSize());
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        int lastBottom = 0;
        for (const SidebarNavButton *button : window.findChildren<SidebarNavButton *>()) {
            QVERIFY(button->y() >= lastBottom);
            QVERIFY(button->height() >= button->minimumSizeHint().height());
            lastBottom = button->y() + button->height();
        }
        QVERIFY2(lastBottom <= window.sidebar()->height(), qPrintable(QString::number(lastBottom)));
        ThemeColors::init(ui::common::ThemeType::light, 1.0);
    }

    void vaultNoticeTable_data()
    {
        QTest::addColumn<QJsonObject>("status");
        QTest::addColumn<QString>("title");
        const QString reboot = QStringLiteral("文件保护待重启生效");
        const QString degraded = QStringLiteral("文件保护状态异常");
        QTest::newRow("empty") << QJsonObject() << QString();
        QTest::newRow("healthy") << vaultStatus("global") << QString();
        QTest::newRow("reboot") << vaultStatus("pending_reboot") << reboot;
        QTest::newRow("reboot, off") << vaultStatus("pending_reboot", false) << QString();
        QTest::newRow("degraded") << vaultStatus("degraded") << degraded;
        QTest::newRow("degraded, off") << vaultStatus("degraded", false) << QString();
        QTest::newRow("not deployed") << vaultStatus("") << QString();
        QTest::newRow("unknown") << vaultStatus("Degraded") << QString();
    }

    void vaultNoticeTable()
    {
        QFETCH(QJsonObject, status);
        QTEST(vaultStartupNotice(status).value_or(StartupNotice()).title, "title");
    }

    void vaultLinkComesBack()
    {
        const Window window(AppMode::normal);
        auto *timer = window.findChild<QTimer *>(QStringLiteral("VaultReconnectTimer"));
        QTRY_VERIFY(timer->isActive()); // nobody is there yet
        QCOMPARE(timer->interval(), 5000);
        timer->setInterval(50);
        for (int life = 0; life < 2; ++life) {
            FakeService service;
            service.reply(kGetStatus, vaultStatus("global"));
            QVERIFY(service.listen(kVaultName));
            QVERIFY(service.waitForRequest(kGetStatus));
            QTRY_VERIFY(!timer->isActive());
            QCOMPARE(service.count(kGetStatus), 1);
            service.close();
            QTRY_VERIFY(timer->isActive());
        }
    }

    void vaultNoticeOnce()
    {
        FakeService service;
        service.reply(kGetStatus, vaultStatus("pending_reboot"));
        QVERIFY(service.listen(kVaultName));
        QString text;
        support::ModalDriver notice([&](QWidget *dialog) {
            text = dialog->findChild<QLabel *>(QStringLiteral("NoticeMessage"))->text();
            QTest::mouseClick(dialog->findChild<QWidget *>(QStringLiteral("NoticeOkBtn")),
                              Qt::LeftButton);
        });
        Window window(AppMode::normal);
        window.show();
        QTRY_VERIFY(notice.handled());
        QCOMPARE(text, QStringLiteral("文件保护配置已更新，重启电脑后会恢复正常生效。为避免误判，"
                                      "建议在重启完成前暂时不要依赖该功能。"));
        const auto noticeTimer = [](const MainWindow &owner) {
            return owner.findChild<QTimer *>(QStringLiteral("StartupNoticeTimer"));
        };
        QCOMPARE(noticeTimer(window)->interval(), 600);

        // Silent from now on, whatever comes; and never in the recovery environment, where the
        // window does not even connect.
        Window livecd(AppMode::livecd);
        window.maybeShowVaultStartupStatusNotice(vaultStatus("degraded"));
        // Nor once the user has switched protection, whose page tells what comes of it; also if the
        // status was faster than the answer to the switch.
        service.reply(kGetStatus, vaultStatus("global"));
        service.reply(QStringLiteral("vault.enable"), {});
        Window switched(AppMode::normal);
        auto *vault = switched.findChild<VaultController *>();
        QTRY_VERIFY(vault->isConnected());
        switched.maybeShowVaultStartupStatusNotice(vaultStatus("pending_reboot"));
        QVERIFY(noticeTimer(switched)->isActive());
        QSignalSpy enabled(vault, &VaultController::enableCompleted);
        vault->enableProtection();
        QVERIFY(enabled.wait());
        switched.maybeShowVaultStartupStatusNotice(vaultStatus("degraded"));
        livecd.maybeShowVaultStartupStatusNotice(vaultStatus("degraded"));
        for (const MainWindow *silent :
             {static_cast<MainWindow *>(&window), static_cast<MainWindow *>(&livecd),
              static_cast<MainWindow *>(&switched)})
            QVERIFY(!noticeTimer(*silent)->isActive());
        QCOMPARE(service.clientCount(), 2);
    }

    void buttonsLeaveTheFocusAlone()
    {
        ButtonInteractionFilter filter;
        qApp->installEventFilter(&filter);
        QWidget window;
        auto *push = new QPushButton(&window);
        auto *tool = new QToolButton(&window);
        auto *disabled = new QPushButton(&window);
        disabled->setEnabled(false);
        auto *edit = new QLineEdit(&window);
        window.show();
        for (const QWidget *button : {static_cast<QWidget *>(push), static_cast<QWidget *>(tool)}) {
            QCOMPARE(button->focusPolicy(), Qt::NoFocus);
            QCOMPARE(button->cursor().shape(), Qt::PointingHandCursor);
        }
        QCOMPARE(disabled->focusPolicy(), Qt::NoFocus);
        QCOMPARE(disabled->cursor().shape(), Qt::ArrowCursor);
        QVERIFY(edit->focusPolicy() != Qt::NoFocus);
        QCOMPARE(edit->cursor().shape(), Qt::IBeamCursor);
    }
};

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
