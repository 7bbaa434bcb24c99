#include "app/applog.h"
#include "app/startup.h"

#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTextCodec>
#include <QtTest>

#include <thread>
#include <vector>

namespace {

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QList<QByteArray> logLines()
{
    QList<QByteArray> lines = readFile(appLogFilePath()).split('\n');
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

} // namespace

class TestAppLog : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void lineFormat_data();
    void lineFormat();
    void appendsAcrossRuns();
    void threadsDoNotMixLines();
    void fileNotOpenable();
    void closedLogIsLeftAlone();
    void environmentSnapshot();
    void fontScale_data();
    void fontScale();

private:
    // Each case has a home of its own; the paths follow it.
    std::unique_ptr<QTemporaryDir> m_home;
    QByteArray m_realHome;
};

void TestAppLog::init()
{
    m_realHome = qgetenv("HOME");
    m_home = std::make_unique<QTemporaryDir>();
    QVERIFY(m_home->isValid());
    qputenv("HOME", QFile::encodeName(m_home->path()));
    QCOMPARE(morvaneConfigPath(), m_home->path() + QStringLiteral("/.config/morvane/morvane.conf"));
}

void TestAppLog::cleanup()
{
    closeAppLog();
    qputenv("HOME", m_realHome);
}

void TestAppLog::lineFormat_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("word");

    QTest::newRow("debug") << int(QtDebugMsg) << QStringLiteral("a") << QStringLiteral("DEBUG");
    QTest::newRow("info") << int(QtInfoMsg) << QStringLiteral("中文") << QStringLiteral("INFO");
    QTest::newRow("warning") << int(QtWarningMsg) << QStringLiteral("50%1 %2 %3")
                             << QStringLiteral("WARN");
    QTest::newRow("critical") << int(QtCriticalMsg) << QString() << QStringLiteral("ERROR");
    QTest::newRow("fatal") << int(QtFatalMsg) << QStringLiteral("end") << QStringLiteral("FATAL");
    QTest::newRow("other") << 77 << QStringLiteral("b") << QStringLiteral("INFO");
}

void TestAppLog::lineFormat()
{
    QFETCH(int, type);
    QFETCH(QString, message);
    QFETCH(QString, word);
    QObject owner;
    QVERIFY(openAppLog(&owner));
    // The file is UTF-8 whatever the locale.
    QTextCodec *localeCodec = QTextCodec::codecForLocale();
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
    const QDateTime before = QDateTime::currentDateTime();
    appMessageHandler(static_cast<QtMsgType>(type), QMessageLogContext("file.cpp", 12, "f", "cat"),
                      message);
    const QDateTime after = QDateTime::currentDateTime();
    QTextCodec::setCodecForLocale(localeCodec);

    const QList<QByteArray> lines = logLines();
    QCOMPARE(lines.size(), 2); // the first one names the file
    const QString line = QString::fromUtf8(lines.last());
    QCOMPARE(line.mid(25), QStringLiteral(" [%1] ").arg(word) + message);
    QCOMPARE(line.left(1), QStringLiteral("["));
    QCOMPARE(line.mid(24, 1), QStringLiteral("]"));
    const QDateTime time =
        QDateTime::fromString(line.mid(1, 23), QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz"));
    QVERIFY2(time.isValid() && time >= before && time <= after, qPrintable(line));
    closeAppLog();
}

void TestAppLog::appendsAcrossRuns()
{
    for (int run = 1; run <= 2; ++run) {
        QObject owner;
        QVERIFY(openAppLog(&owner));
        qWarning("run %d", run);
        closeAppLog();
    }
    const QByteArray text = logLines().join('\n');
    QCOMPARE(text.count("[INFO] GUI log file:"), 2);
    QVERIFY(text.contains(QFile::encodeName(appLogFilePath())));
    QVERIFY(text.indexOf("[WARN] run 1") > 0);
    QVERIFY(text.indexOf("[WARN] run 1") < text.indexOf("[WARN] run 2"));
}

void TestAppLog::threadsDoNotMixLines()
{
    constexpr int threadCount = 4;
    constexpr int linesEach = 200;
    QObject owner;
    QVERIFY(openAppLog(&owner));
    std::vector<std::thread> threads;
    for (int id = 0; id < threadCount; ++id) {
        threads.emplace_back([id] {
            for (int i = 0; i < linesEach; ++i)
                qInfo("thread %d line %d end", id, i);
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    closeAppLog();

    const QRegularExpression form(
        QStringLiteral("^\\[[-\\d]{10} [:.\\d]{12}\\] \\[INFO\\] thread (\\d) line (\\d+) end$"));
    QList<QByteArray> lines = logLines();
    lines.removeFirst();
    QCOMPARE(lines.size(), threadCount * linesEach);
    QVector<int> next(threadCount, 0);
    for (const QByteArray &line : qAsConst(lines)) {
        const QRegularExpressionMatch match = form.match(QString::fromUtf8(line));
        QVERIFY2(match.hasMatch(), line.constData());
        QCOMPARE(match.captured(2).toInt(), next[match.captured(1).toInt()]++);
    }
}

void TestAppLog::fileNotOpenable()
{
    QVERIFY(QDir().mkpath(appLogFilePath())); // a directory in its place
    const QtMessageHandler before = qInstallMessageHandler(nullptr);
    qInstallMessageHandler(before);

    QObject owner;
    QVERIFY(!openAppLog(&owner));
    const QtMessageHandler after = qInstallMessageHandler(before);
    QVERIFY(after == before);
    QVERIFY(after != appMessageHandler);

    // Called all the same, by a thread that knows no better, it still reaches standard error.
    appMessageHandler(QtInfoMsg, QMessageLogContext(), QStringLiteral("no file"));
}

void TestAppLog::closedLogIsLeftAlone()
{
    {
        QObject owner;
        QVERIFY(openAppLog(&owner));
        closeAppLog();
    }
    // The owner and its file are gone.
    QVERIFY(!g_logFile);
    appMessageHandler(QtInfoMsg, QMessageLogContext(), QStringLiteral("late"));
    QCOMPARE(logLines().size(), 1);
}

void TestAppLog::environmentSnapshot()
{
    const QByteArray display = qgetenv("DISPLAY");
    const QByteArray gtkTheme = qgetenv("GTK_THEME");
    qputenv("DISPLAY", QByteArray());
    qputenv("GTK_THEME", QByteArrayLiteral("墨 \"x\""));
    QObject owner;
    QVERIFY(openAppLog(&owner));
    logDesktopEnvironmentSnapshot(QStringLiteral("Env"));
    closeAppLog();
    qputenv("DISPLAY", display);
    qputenv("GTK_THEME", gtkTheme);

    QStringList names;
    QStringList texts;
    QList<QByteArray> lines = logLines();
    lines.removeFirst();
    for (const QByteArray &line : qAsConst(lines)) {
        texts.append(QString::fromUtf8(line).mid(26));
        names.append(texts.last().section(QLatin1Char(' '), 2).section(QLatin1Char('='), 0, 0));
    }
    QCOMPARE(names.join(QLatin1Char(' ')),
             QStringLiteral("DISPLAY WAYLAND_DISPLAY XAUTHORITY XDG_RUNTIME_DIR "
                            "DBUS_SESSION_BUS_ADDRESS QT_QPA_PLATFORM QT_QPA_PLATFORMTHEME "
                            "QT_STYLE_OVERRIDE XDG_CURRENT_DESKTOP DESKTOP_SESSION GTK_THEME LANG "
                            "LC_ALL"));
    QCOMPARE(texts.first(), QStringLiteral("[INFO] Env DISPLAY=<empty>"));
    QVERIFY(texts.contains(QStringLiteral("[INFO] Env GTK_THEME=墨 \"x\"")));
}

void TestAppLog::fontScale_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<double>("expected");

    QTest::newRow("no file") << QByteArray() << 1.15;
    QTest::newRow("no key") << QByteArrayLiteral("[ui]\nsidebarMode=pinned\n") << 1.15;
    QTest::newRow("one") << QByteArrayLiteral("[ui]\nfontScale=1\n") << 1.0;
    QTest::newRow("1.4") << QByteArrayLiteral("[ui]\nfontScale=1.4\n") << 1.4;
    // The palette clamps it when it uses it.
    QTest::newRow("large") << QByteArrayLiteral("[ui]\nfontScale=3.0\n") << 3.0;
    QTest::newRow("a word") << QByteArrayLiteral("[ui]\nfontScale=big\n") << 1.15;
    QTest::newRow("not a number") << QByteArrayLiteral("[ui]\nfontScale=nan\n") << 1.15;
}

void TestAppLog::fontScale()
{
    QFETCH(QByteArray, content);
    const QString path = m_home->filePath(QStringLiteral("morvane.conf"));
    if (!content.isEmpty()) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(content), qint64(content.size()));
    }
    QTEST(loadFontScale(path), "expected");
}

QTEST_GUILESS_MAIN(TestAppLog)
#include "tst_applog.moc"
