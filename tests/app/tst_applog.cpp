#include "app/applog.h"
#include "app/startup.h"
#include "support/temptree.h"
#include "ui/common/theme.h"

#include <QRegularExpression>
#include <QTextCodec>
#include <QtTest>

#include <sys/stat.h>
#include <thread>

namespace {

// The lines of the log after the first, which names the file.
QStringList logLines()
{
    QFile file(appLogFilePath());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
    lines.removeLast();
    return lines.mid(1);
}

} // namespace

class TestAppLog : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        // A home of its own for each case; the paths follow it.
        m_home = std::make_unique<TempTree>();
        qputenv("HOME", QFile::encodeName(m_home->path()));
        QCOMPARE(morvaneConfigPath(), m_home->path(QStringLiteral(".config/morvane/morvane.conf")));
    }

    void cleanup() { closeAppLog(); }

    void lineFormat_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("word");
        QTest::newRow("debug") << int(QtDebugMsg) << QStringLiteral("DEBUG");
        QTest::newRow("info") << int(QtInfoMsg) << QStringLiteral("INFO");
        QTest::newRow("warning") << int(QtWarningMsg) << QStringLiteral("WARN");
        QTest::newRow("critical") << int(QtCriticalMsg) << QStringLiteral("ERROR");
        QTest::newRow("fatal") << int(QtFatalMsg) << QStringLiteral("FATAL");
        QTest::newRow("other") << 77 << QStringLiteral("INFO");
    }

    void lineFormat()
    {
        QFETCH(int, type);
        QFETCH(QString, word);
        QObject owner;
        QVERIFY(openAppLog(&owner));
        // The file is UTF-8 whatever the locale.
        QTextCodec *localeCodec = QTextCodec::codecForLocale();
        QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
        const QDateTime before = QDateTime::currentDateTime();
        appMessageHandler(static_cast<QtMsgType>(type), QMessageLogContext("a.cpp", 1, "f", "cat"),
                          QStringLiteral("中文 %1 %2"));
        QTextCodec::setCodecForLocale(localeCodec);

        QCOMPARE(logLines().size(), 1);
        const QString line = logLines().first();
        QCOMPARE(line.mid(24), QStringLiteral("] [%1] 中文 %1 %2").replace(3, 2, word));
        const QDateTime time =
            QDateTime::fromString(line.mid(1, 23), QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz"));
        QVERIFY2(time >= before && time <= QDateTime::currentDateTime(), qPrintable(line));
    }

    void appendsAndCloses()
    {
        for (int run = 1; run <= 2; ++run) {
            {
                QObject owner;
                QVERIFY(openAppLog(&owner));
                qWarning("run %d", run);
                closeAppLog();
            }
            // The file has gone with its owner.
            appMessageHandler(QtInfoMsg, QMessageLogContext(), QStringLiteral("late"));
        }
        const QStringList lines = logLines();
        QCOMPARE(lines.size(), 3);
        QVERIFY(lines.at(0).endsWith(QStringLiteral("[WARN] run 1")));
        QVERIFY(lines.at(1).endsWith(
            QStringLiteral("[INFO] GUI log file: \"%1\"").arg(appLogFilePath())));
        QVERIFY(lines.at(2).endsWith(QStringLiteral("[WARN] run 2")));
    }

    // What is opened and searched for stands in the log.
    void onlyTheOwnerReads()
    {
        const auto modes = [this] {
            QStringList found;
            for (const char *below : {"", "/logs", "/logs/morvane_gui.log"}) {
                struct stat info = {};
                const QString path =
                    m_home->path(QStringLiteral(".config/morvane") + QString::fromLatin1(below));
                ::stat(QFile::encodeName(path).constData(), &info);
                found.append(QString::number(info.st_mode & 07777, 8));
            }
            return found.join(QLatin1Char(' '));
        };
        const mode_t mask = ::umask(0);
        QObject owner;
        const bool opened = openAppLog(&owner);
        ::umask(mask);
        QVERIFY(opened);
        QCOMPARE(modes(), QStringLiteral("700 700 600"));

        // Those of an earlier version.
        closeAppLog();
        for (const char *below : {"", "/logs", "/logs/morvane_gui.log"}) {
            const QString path =
                m_home->path(QStringLiteral(".config/morvane") + QString::fromLatin1(below));
            QCOMPARE(::chmod(QFile::encodeName(path).constData(), 0755), 0);
        }
        QVERIFY(openAppLog(&owner));
        QCOMPARE(modes(), QStringLiteral("700 700 600"));
    }

    void threadsDoNotMixLines()
    {
        constexpr int linesEach = 200;
        QObject owner;
        QVERIFY(openAppLog(&owner));
        std::vector<std::thread> threads;
        for (int id = 0; id < 4; ++id) {
            threads.emplace_back([id] {
                for (int i = 0; i < linesEach; ++i)
                    qInfo("thread %d line %d end", id, i);
            });
        }
        for (std::thread &thread : threads)
            thread.join();

        const QRegularExpression form(QStringLiteral(
            "^\\[[-\\d]{10} [:.\\d]{12}\\] \\[INFO\\] thread (\\d) line (\\d+) end$"));
        const QStringList lines = logLines();
        QCOMPARE(lines.size(), 4 * linesEach);
        QVector<int> next(4, 0);
        for (const QString &line : lines) {
            const QRegularExpressionMatch match = form.match(line);
            QVERIFY2(match.hasMatch(), qPrintable(line));
            QCOMPARE(match.captured(2).toInt(), next[match.captured(1).toInt()]++);
        }
    }

    void fileNotOpenable()
    {
        QVERIFY(QDir().mkpath(appLogFilePath())); // a directory in its place
        QObject owner;
        QVERIFY(!openAppLog(&owner));
        const QtMessageHandler installed = qInstallMessageHandler(nullptr);
        QVERIFY(installed != appMessageHandler);
        appMessageHandler(QtInfoMsg, QMessageLogContext(), QStringLiteral("to standard error"));
    }

    void environmentSnapshot()
    {
        qputenv("DISPLAY", QByteArray());
        qputenv("GTK_THEME", QByteArrayLiteral("墨 \"x\""));
        QObject owner;
        QVERIFY(openAppLog(&owner));
        logDesktopEnvironmentSnapshot(QStringLiteral("Env"));

        QStringList texts;
        QStringList names;
        for (const QString &line : logLines()) {
            texts.append(line.mid(26));
            names.append(line.section(QLatin1Char(' '), 4).section(QLatin1Char('='), 0, 0));
        }
        QCOMPARE(names.join(QLatin1Char(' ')),
                 QStringLiteral("DISPLAY WAYLAND_DISPLAY XAUTHORITY XDG_RUNTIME_DIR "
                                "DBUS_SESSION_BUS_ADDRESS QT_QPA_PLATFORM QT_QPA_PLATFORMTHEME "
                                "QT_STYLE_OVERRIDE XDG_CURRENT_DESKTOP DESKTOP_SESSION GTK_THEME "
                                "LANG LC_ALL"));
        QCOMPARE(texts.first(), QStringLiteral("[INFO] Env DISPLAY=<empty>"));
        QVERIFY(texts.contains(QStringLiteral("[INFO] Env GTK_THEME=墨 \"x\"")));
    }

    void fontScale_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<double>("expected");
        QTest::newRow("no key") << QByteArrayLiteral("[ui]\nsidebarMode=pinned\n") << 1.15;
        QTest::newRow("1") << QByteArrayLiteral("[ui]\nfontScale=1\n") << 1.0;
        QTest::newRow("clamped where it is used")
            << QByteArrayLiteral("[ui]\nfontScale=3\n") << 3.0;
        QTest::newRow("a word") << QByteArrayLiteral("[ui]\nfontScale=big\n") << 1.15;
        QTest::newRow("not a number") << QByteArrayLiteral("[ui]\nfontScale=nan\n") << 1.15;
    }

    void fontScale()
    {
        QFETCH(QByteArray, content);
        QCOMPARE(loadFontScale(morvaneConfigPath()), 1.15); // no file
        QTEST(loadFontScale(m_home->file(QStringLiteral("a.conf"), content)), "expected");
    }

    void theme_data()
    {
        QTest::addColumn<QString>("setting");
        QTest::addColumn<bool>("isDesktopDark");
        QTest::addColumn<bool>("darkInNormal");
        QTest::addColumn<bool>("darkInRecovery");
        QTest::newRow("none") << QString() << true << false << true;
        QTest::newRow("mode") << QStringLiteral("mode") << true << false << true;
        QTest::newRow("light") << QStringLiteral(" Light ") << true << false << false;
        QTest::newRow("dark") << QStringLiteral("dark") << false << true << true;
        QTest::newRow("dark desktop") << QStringLiteral("desktop") << true << true << true;
        QTest::newRow("light desktop") << QStringLiteral("desktop") << false << false << false;
        QTest::newRow("unknown word") << QStringLiteral("blue") << true << false << true;
    }

    void theme()
    {
        QFETCH(QString, setting);
        QFETCH(bool, isDesktopDark);
        const auto isDark = [&](core::AppMode mode) {
            return themeFor(setting, mode, isDesktopDark) == ui::common::ThemeType::dark;
        };
        QTEST(isDark(core::AppMode::normal), "darkInNormal");
        QTEST(isDark(core::AppMode::livecd), "darkInRecovery");
    }

private:
    std::unique_ptr<TempTree> m_home;
};

QTEST_GUILESS_MAIN(TestAppLog)
#include "tst_applog.moc"
