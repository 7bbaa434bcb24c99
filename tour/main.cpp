// The guided tour: the real window, real documents, a real index. Walks through the pages that
// exist, prints what it found, saves a picture of each, and fails if something was not found.

#include "tour.h"
#include "ui/common/theme.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QTextStream>

namespace {

/// Reads the command line without an application object, since the home must be set before one.
bool parseOptions(const QStringList &arguments, TourOptions *options, QString *error)
{
    QCommandLineParser parser;
    const QCommandLineOption mode(QStringLiteral("mode"), QStringLiteral("normal or livecd"),
                                  QStringLiteral("mode"), QStringLiteral("normal"));
    const QCommandLineOption out(QStringLiteral("out"), QStringLiteral("folder for the pictures"),
                                 QStringLiteral("dir"), QStringLiteral("build/tour"));
    const QCommandLineOption size(QStringLiteral("size"), QStringLiteral("window size"),
                                  QStringLiteral("WxH"), QStringLiteral("1440x900"));
    const QCommandLineOption scale(QStringLiteral("font-scale"), QStringLiteral("text size"),
                                   QStringLiteral("factor"), QStringLiteral("1.15"));
    parser.addOptions({mode, out, size, scale});
    if (!parser.parse(arguments)) {
        *error = parser.errorText();
        return false;
    }
    if (parser.value(mode) == QLatin1String("livecd"))
        options->mode = core::AppMode::livecd;
    options->pictureDir = QDir::current().absoluteFilePath(parser.value(out));
    const QStringList sides = parser.value(size).split(QLatin1Char('x'));
    if (sides.size() != 2 || sides[0].toInt() < 800 || sides[1].toInt() < 600) {
        *error = QStringLiteral("--size wants something like 1440x900, from 800x600 on");
        return false;
    }
    options->windowSize = QSize(sides[0].toInt(), sides[1].toInt());
    options->fontScale = ui::common::ThemeColors::sanitizeFontScale(parser.value(scale).toDouble());
    return true;
}

bool walk(Tour &tour, const QList<TourStep> &steps)
{
    QTextStream out(stdout);
    out.setCodec("UTF-8");
    bool allGood = true;
    int number = 0;
    for (const TourStep &step : steps) {
        QString found;
        QString error;
        const bool good = step.run(tour, &found, &error);
        allGood = allGood && good;
        out << QStringLiteral("%1 %2. %3: %4\n")
                   .arg(good ? QStringLiteral("ok  ") : QStringLiteral("FAIL"))
                   .arg(++number)
                   .arg(QString::fromUtf8(step.title), good ? found : error);
        out.flush();
    }
    return allGood;
}

/// The program's own log goes to standard error; the report should stand alone.
void keepQuiet(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type == QtWarningMsg || type == QtCriticalMsg || type == QtFatalMsg)
        QTextStream(stderr) << message << '\n';
}

} // namespace

int main(int argc, char *argv[])
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    TourOptions options;
    QString error;
    if (!parseOptions(arguments, &options, &error)) {
        QTextStream(stderr) << error << '\n';
        return 2;
    }

    // The home must be the tour's own before anything asks for it, so that the user's settings
    // and index are neither read nor touched.
    Tour tour(options);
    qputenv("HOME", QFile::encodeName(tour.home()));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(tour.home() + QStringLiteral("/.config")));
    qputenv("XDG_DATA_HOME", QFile::encodeName(tour.home() + QStringLiteral("/.local/share")));

    qInstallMessageHandler(keepQuiet);
    QApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
    QApplication application(argc, argv);
    QCoreApplication::setApplicationVersion(QStringLiteral(MORVANE_VERSION));
    const bool livecd = tour.mode() == core::AppMode::livecd;
    const ui::common::ThemeType theme =
        livecd ? ui::common::ThemeType::dark : ui::common::ThemeType::light;
    ui::common::ThemeColors::init(theme, options.fontScale);
    QApplication::setPalette(ui::common::buildPalette(theme));
    application.setStyleSheet(ui::common::buildAppStyleSheet(theme));

    QTextStream(stdout) << QStringLiteral("Guided tour, %1 mode\n")
                               .arg(core::AppModeDetector::toString(tour.mode()));
    const bool good = walk(tour, livecd ? livecdModeSteps() : normalModeSteps());
    tour.closeWindow();
    tour.endService();
    QTextStream(stdout) << (good ? "Everything was found. Pictures: "
                                 : "Something was not found. Pictures: ")
                        << options.pictureDir << '\n';
    return good ? 0 : 1;
}
