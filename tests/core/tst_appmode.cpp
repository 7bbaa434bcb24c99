#include "core/appmode.h"
#include "support/temptree.h"

#include <QtTest>

using core::AppMode;
using core::AppModeDetector;
using core::BootProbes;

Q_DECLARE_METATYPE(core::AppMode)

namespace {

const QByteArray kNoFile("-");

// Probes of a tree, where nothing is found unless the test puts it there. The build machine's own
// root may well be an overlay.
BootProbes probesOf(const TempTree &tree)
{
    BootProbes probes;
    probes.liveDirectory = tree.path(QStringLiteral("live"));
    probes.rootDirectory = tree.path(QStringLiteral("no root"));
    probes.kernelCommandLine = tree.path(QStringLiteral("cmdline"));
    return probes;
}

} // namespace

class TestAppMode : public QObject
{
    Q_OBJECT

private slots:
    void arguments_data()
    {
        QTest::addColumn<QString>("arguments"); // divided by '|', so that blanks can stand inside
        QTest::addColumn<AppMode>("installed");
        QTest::addColumn<AppMode>("liveMedium");

        const AppMode n = AppMode::normal;
        const AppMode l = AppMode::livecd;
        const auto row = [](const char *arguments, AppMode installed, AppMode liveMedium) {
            QTest::newRow(arguments) << QString::fromUtf8(arguments) << installed << liveMedium;
        };
        row("morvane", n, l);
        row("morvane|--mode=livecd", l, l);
        row("morvane|--mode=live", l, l);
        row("morvane|--mode=normal", n, n);
        row("morvane| --MODE=LIVECD ", l, l);
        row("morvane|--mode|livecd", l, l);
        row("morvane|--Mode| Live ", l, l);
        row("morvane|--mode|normal", n, n);
        row("morvane|--mode", n, l);
        row("morvane|--mode|banana", n, l);
        row("morvane|--mode=banana", n, l);
        row("morvane|--mode|banana|--mode=livecd", l, l);
        row("morvane|--mode|--mode=livecd", l, l);
        row("morvane|--mode|--mode|normal", n, n);
        row("morvane|--mode=normal|--mode=livecd", n, n);
        row("--mode=livecd", l, l);
        row("morvane|--mode= livecd", n, l);
        row("morvane|livecd", n, l);
    }

    void arguments()
    {
        QFETCH(QString, arguments);
        const QStringList list = arguments.split(QLatin1Char('|'));
        TempTree tree;
        QTEST(AppModeDetector::detect(list, probesOf(tree)), "installed");
        tree.dir(QStringLiteral("live"));
        QTEST(AppModeDetector::detect(list, probesOf(tree)), "liveMedium");
    }

    void kernelCommandLine_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<AppMode>("expected");

        const auto row = [](const QByteArray &line, AppMode expected) {
            QTest::newRow(line.constData()) << line << expected;
        };
        row("BOOT_IMAGE=/vmlinuz root=UUID=1 ro quiet\n", AppMode::normal);
        row("quiet boot=live splash\n", AppMode::livecd);
        row("boot=casper\n", AppMode::livecd);
        row("BOOT=casper\n", AppMode::livecd);
        row("Boot=LIVE\n", AppMode::livecd);
        row("boot=local live casper\n", AppMode::normal);
        row("", AppMode::normal);
        row(kNoFile, AppMode::normal);
    }

    void kernelCommandLine()
    {
        QFETCH(QByteArray, line);
        TempTree tree;
        tree.file(QStringLiteral("live")); // a plain file in its place says nothing
        if (line == kNoFile)
            tree.dir(QStringLiteral("cmdline")); // not to be opened, even by root
        else
            tree.file(QStringLiteral("cmdline"), line);
        QTEST(AppModeDetector::detect({}, probesOf(tree)), "expected");
    }

    void rootFileSystem()
    {
        const TempTree tree;
        BootProbes probes = probesOf(tree);
        probes.rootDirectory = QStringLiteral("/proc");
        QCOMPARE(AppModeDetector::detect({}, probes), AppMode::normal);
        // A tmpfs, or a devtmpfs, which reports itself as one.
        probes.rootDirectory = QStringLiteral("/dev");
        QCOMPARE(AppModeDetector::detect({}, probes), AppMode::livecd);
    }
};

QTEST_GUILESS_MAIN(TestAppMode)
#include "tst_appmode.moc"
