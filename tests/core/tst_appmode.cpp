#include "core/appmode.h"

#include <QTemporaryDir>
#include <QtTest>

using core::AppMode;
using core::AppModeDetector;
using core::BootProbes;

Q_DECLARE_METATYPE(core::AppMode)

class TestAppMode : public QObject
{
    Q_OBJECT

private slots:
    void arguments_data();
    void arguments();
    void probes_data();
    void probes();
    void rootFileSystem();
};

namespace {

void writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), qint64(content.size()));
}

// Probes that find nothing. The build machine's own root may well be an overlay, so the root is
// looked for at a path that does not exist.
BootProbes emptyProbes(const QString &directory)
{
    BootProbes probes;
    probes.liveDirectory = directory + QStringLiteral("/live");
    probes.rootDirectory = directory + QStringLiteral("/root");
    probes.kernelCommandLine = directory + QStringLiteral("/cmdline");
    return probes;
}

} // namespace

void TestAppMode::arguments_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("liveMedium");
    QTest::addColumn<AppMode>("expected");

    const auto row = [](const char *name, const char *arguments, bool live, AppMode expected) {
        // Parts are divided by '|', so that blanks can stand inside them.
        QTest::newRow(name) << QString::fromUtf8(arguments).split(QLatin1Char('|')) << live
                            << expected;
    };
    row("none", "morvane", false, AppMode::normal);
    row("none on a live medium", "morvane", true, AppMode::livecd);
    row("livecd", "morvane|--mode=livecd", false, AppMode::livecd);
    row("live", "morvane|--mode=live", false, AppMode::livecd);
    row("normal beats the probes", "morvane|--mode=normal", true, AppMode::normal);
    row("case and blanks", "morvane| --MODE=LIVECD ", false, AppMode::livecd);
    row("two words", "morvane|--mode|livecd", false, AppMode::livecd);
    row("two words, case and blanks", "morvane|--Mode| Live ", false, AppMode::livecd);
    row("two words, normal", "morvane|--mode|normal", true, AppMode::normal);
    row("no value", "morvane|--mode", false, AppMode::normal);
    row("no value on a live medium", "morvane|--mode", true, AppMode::livecd);
    row("bad value", "morvane|--mode|banana", false, AppMode::normal);
    row("bad value falls to the probes", "morvane|--mode=banana", true, AppMode::livecd);
    row("bad value, then a good one", "morvane|--mode|banana|--mode=livecd", false,
        AppMode::livecd);
    row("the value is an option itself", "morvane|--mode|--mode=livecd", false, AppMode::livecd);
    row("option twice, then the value", "morvane|--mode|--mode|normal", true, AppMode::normal);
    row("first wins", "morvane|--mode=normal|--mode=livecd", true, AppMode::normal);
    row("the program's name counts too", "--mode=livecd", false, AppMode::livecd);
    row("blank inside", "morvane|--mode= livecd", false, AppMode::normal);
    row("bare word", "morvane|livecd", false, AppMode::normal);
}

void TestAppMode::arguments()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, liveMedium);
    QTemporaryDir directory;
    const BootProbes probes = emptyProbes(directory.path());
    if (liveMedium)
        QVERIFY(QDir().mkdir(probes.liveDirectory));
    QTEST(AppModeDetector::detect(arguments, probes), "expected");
}

void TestAppMode::probes_data()
{
    QTest::addColumn<QByteArray>("commandLine");
    QTest::addColumn<AppMode>("expected");

    QTest::newRow("installed") << QByteArrayLiteral("BOOT_IMAGE=/vmlinuz root=UUID=1 ro quiet\n")
                               << AppMode::normal;
    QTest::newRow("boot=live") << QByteArrayLiteral("quiet boot=live splash\n") << AppMode::livecd;
    QTest::newRow("boot=casper") << QByteArrayLiteral("boot=casper\n") << AppMode::livecd;
    QTest::newRow("upper case") << QByteArrayLiteral("BOOT=casper\n") << AppMode::livecd;
    QTest::newRow("any case") << QByteArrayLiteral("Boot=LIVE\n") << AppMode::livecd;
    QTest::newRow("another value")
        << QByteArrayLiteral("boot=local live casper\n") << AppMode::normal;
    QTest::newRow("empty") << QByteArray() << AppMode::normal;
    QTest::newRow("not readable") << QByteArrayLiteral("-") << AppMode::normal;
}

void TestAppMode::probes()
{
    QFETCH(QByteArray, commandLine);
    QTemporaryDir directory;
    const BootProbes probes = emptyProbes(directory.path());
    if (commandLine != "-")
        writeFile(probes.kernelCommandLine, commandLine);
    else
        QVERIFY(QDir().mkdir(probes.kernelCommandLine)); // not openable, whoever runs the test
    QTEST(AppModeDetector::detect({QStringLiteral("morvane")}, probes), "expected");

    // A plain file in the place of the live directory says nothing.
    writeFile(probes.liveDirectory, QByteArray());
    QTEST(AppModeDetector::detect({QStringLiteral("morvane")}, probes), "expected");
}

void TestAppMode::rootFileSystem()
{
    QTemporaryDir directory;
    BootProbes probes = emptyProbes(directory.path());

    probes.rootDirectory = QStringLiteral("/proc");
    QCOMPARE(AppModeDetector::detect({}, probes), AppMode::normal);

    // /dev is a tmpfs or a devtmpfs, which reports itself as one, wherever tests run.
    probes.rootDirectory = QStringLiteral("/dev");
    QCOMPARE(AppModeDetector::detect({}, probes), AppMode::livecd);

    QCOMPARE(AppModeDetector::toString(AppMode::normal), QStringLiteral("normal"));
    QCOMPARE(AppModeDetector::toString(AppMode::livecd), QStringLiteral("livecd"));
    QCOMPARE(int(AppMode::normal), 0);
    QCOMPARE(int(AppMode::livecd), 1);
}

QTEST_GUILESS_MAIN(TestAppMode)
#include "tst_appmode.moc"
