#include "app/startup.h"

#include "app/applog.h"
#include "app/buttoninteractionfilter.h"
#include "app/mainwindow.h"
#include "app/singleinstance.h"
#include "core/appmode.h"
#include "core/diagnostics/guidiagnosticsruntime.h"
#include "ui/common/theme.h"

#include <QApplication>
#include <QDebug>
#include <QIcon>
#include <QLibraryInfo>
#include <QSettings>
#include <QTranslator>
#include <QtNumeric>

using core::AppMode;
using core::AppModeDetector;
using core::diagnostics::GuiDiagnosticsRuntime;
using ui::common::ThemeColors;
using ui::common::ThemeType;

namespace {

constexpr double defaultFontScale = 1.15;

// Lets go of the log file before the application object, its parent, deletes it.
struct LogCloser
{
    LogCloser() = default;
    ~LogCloser() { closeAppLog(); }
    LogCloser(const LogCloser &) = delete;
    LogCloser &operator=(const LogCloser &) = delete;
};

void setIdentity()
{
    if (QCoreApplication::applicationName().isEmpty())
        QCoreApplication::setApplicationName(QStringLiteral("Morvane"));
    QCoreApplication::setApplicationVersion(QStringLiteral(MORVANE_VERSION));
}

void recordEnvironment(AppMode mode)
{
    const QString modeWord = AppModeDetector::toString(mode);
    qInfo() << "Arguments:" << QCoreApplication::arguments();
    qInfo() << "App mode:" << modeWord;
    logDesktopEnvironmentSnapshot(QStringLiteral("Env"));
    GuiDiagnosticsRuntime::writeEnvironmentSnapshot(modeWord, QGuiApplication::platformName(),
                                                    QCoreApplication::applicationPid(),
                                                    QCoreApplication::applicationVersion());
}

// What the desktop says before the program's own palette is set.
bool isDesktopDark()
{
    if (qgetenv("GTK_THEME").toLower().contains("dark"))
        return true;
    const QPalette palette = QApplication::palette();
    return palette.color(QPalette::Window).lightness() < palette.color(QPalette::Text).lightness();
}

void applyTheme(AppMode mode)
{
    const QSettings settings(morvaneConfigPath(), QSettings::IniFormat);
    const ThemeType type =
        themeFor(settings.value(QStringLiteral("ui/theme")).toString(), mode, isDesktopDark());
    ThemeColors::init(type, loadFontScale(morvaneConfigPath()));
    QApplication::setFont(ui::common::applicationFont());
    QApplication::setPalette(ui::common::buildPalette(type));
    qApp->setStyleSheet(ui::common::buildAppStyleSheet(type));
}

// The words of the toolkit's own dialogs and menus; without its catalogue they stay English.
void loadToolkitTranslation(QApplication *application)
{
    auto *translator = new QTranslator(application);
    const QString folder = QLibraryInfo::location(QLibraryInfo::TranslationsPath);
    if (translator->load(QStringLiteral("qtbase_zh_CN"), folder) ||
        translator->load(QStringLiteral("qt_zh_CN"), folder))
        QCoreApplication::installTranslator(translator);
    else
        qWarning("No Chinese catalogue of the toolkit in %s", qPrintable(folder));
}

} // namespace

double loadFontScale(const QString &settingsPath)
{
    const QSettings settings(settingsPath, QSettings::IniFormat);
    bool isNumber = false;
    const double scale =
        settings.value(QStringLiteral("ui/fontScale"), defaultFontScale).toDouble(&isNumber);
    return isNumber && qIsFinite(scale) ? scale : defaultFontScale;
}

bool loadKeyboardNavigation(const QString &settingsPath)
{
    const QSettings settings(settingsPath, QSettings::IniFormat);
    return settings.value(QStringLiteral("ui/keyboardNavigation"), false).toBool();
}

ThemeType themeFor(const QString &setting, AppMode mode, bool isDesktopDark)
{
    const QString word = setting.trimmed().toLower();
    if (word == QLatin1String("light"))
        return ThemeType::light;
    if (word == QLatin1String("dark"))
        return ThemeType::dark;
    if (word == QLatin1String("desktop"))
        return isDesktopDark ? ThemeType::dark : ThemeType::light;
    return mode == AppMode::normal ? ThemeType::light : ThemeType::dark;
}

int runApplication(int &argc, char **argv)
{
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
    QApplication application(argc, argv);
    setIdentity();

    openAppLog(&application);
    const LogCloser logCloser;
    const AppMode mode = AppModeDetector::detect(QCoreApplication::arguments());
    recordEnvironment(mode);

    const QString name = QCoreApplication::applicationName();
    SingleInstance instance(buildLockFilePath(mode, name), buildServerName(mode, name));
    if (!instance.tryLock()) {
        instance.notifyRunningInstance();
        return 0;
    }

    ButtonInteractionFilter buttonFilter;
    buttonFilter.setKeyboardNavigation(loadKeyboardNavigation(morvaneConfigPath()));
    application.installEventFilter(&buttonFilter);
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/img/logo.png")));
    applyTheme(mode);
    loadToolkitTranslation(&application);
    // In normal mode the window hides to the tray.
    if (mode == AppMode::normal)
        QApplication::setQuitOnLastWindowClosed(false);
    // At log-out the toolkit would close all windows, and one that hides instead of closing would
    // be taken for a veto.
    QGuiApplication::setFallbackSessionManagementEnabled(false);

    instance.listen();
    MainWindow window(mode, nullptr);
    QObject::connect(&instance, &SingleInstance::showRequested, &window, [&window] {
        qInfo("[MainWindow] shown at the request of another start");
        window.bringToFront();
    });
    window.show();
    return QApplication::exec();
}
