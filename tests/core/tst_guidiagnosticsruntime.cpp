#include "core/diagnostics/guidiagnosticsruntime.h"

#include <QCoreApplication>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTest>

#include <sys/stat.h>
#include <thread>

using core::diagnostics::GuiDiagnosticsRuntime;

namespace {

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QJsonObject heartbeat()
{
    return QJsonDocument::fromJson(readAll(GuiDiagnosticsRuntime::heartbeatFilePath())).object();
}

QString value(const char *key)
{
    return heartbeat().value(QLatin1String(key)).toString();
}

/// True if a heartbeat has been written since the last call.
bool takeHeartbeat()
{
    return QFile::remove(GuiDiagnosticsRuntime::heartbeatFilePath());
}

struct EventCounter : public QObject
{
    int count = 0;
    bool event(QEvent *) override { return ++count > 0; }
};

} // namespace

class TestGuiDiagnosticsRuntime : public QObject
{
    Q_OBJECT

private slots:
    void init() { QDir(GuiDiagnosticsRuntime::runtimeDirPath()).removeRecursively(); }
    void writesHeartbeats();
    void writesOnlyWhenSomethingChanged();
    void namesEvents_data();
    void namesEvents();
    void skipsWhatCannotBeWritten();
    void writesEnvironmentSnapshot();
    void gradesSlowOperations_data();
    void gradesSlowOperations();
    void keepsLinesOfThreadsApart();
    void onlyTheOwnerReads();
};

void TestGuiDiagnosticsRuntime::writesHeartbeats()
{
    QCOMPARE(GuiDiagnosticsRuntime::heartbeatFilePath(),
             QDir::homePath() + QStringLiteral("/.config/morvane/runtime/gui_heartbeat.json"));
    QCoreApplication::setApplicationVersion(QStringLiteral("9.8.7"));
    GuiDiagnosticsRuntime runtime;
    QVERIFY(!takeHeartbeat());
    const QDateTime before = QDateTime::currentDateTimeUtc().addSecs(-1);
    runtime.start();
    runtime.setCurrentPage(QStringLiteral(" search\n"));
    runtime.noteAction(QStringLiteral("\tmain_window_initialized "));

    const QJsonObject written = heartbeat();
    QCOMPARE(readAll(GuiDiagnosticsRuntime::heartbeatFilePath()),
             QJsonDocument(written).toJson(QJsonDocument::Compact));
    QCOMPARE(written.keys().join(QLatin1Char(' ')),
             QStringLiteral("action actionAt appVersion page pid platform threadId updatedAt"));
    QCOMPARE(value("pid"), QString::number(QCoreApplication::applicationPid()));
    QCOMPARE(value("page"), QStringLiteral("search"));
    QCOMPARE(value("action"), QStringLiteral("main_window_initialized"));
    QCOMPARE(value("platform"), QStringLiteral("offscreen"));
    QCOMPARE(value("appVersion"), QStringLiteral("9.8.7"));
    QVERIFY(!value("threadId").isEmpty());
    for (const char *key : {"updatedAt", "actionAt"}) {
        QVERIFY(value(key).endsWith(QLatin1Char('Z')));
        const QDateTime time = QDateTime::fromString(value(key), Qt::ISODate);
        QVERIFY(time >= before && time <= QDateTime::currentDateTimeUtc());
    }

    QVERIFY(takeHeartbeat());
    QVERIFY(QTest::qWaitFor(takeHeartbeat, 3000)); // By the timer, twice.
    QVERIFY(QTest::qWaitFor(takeHeartbeat, 3000));
}

void TestGuiDiagnosticsRuntime::writesOnlyWhenSomethingChanged()
{
    GuiDiagnosticsRuntime runtime;
    runtime.setCurrentPage(QStringLiteral("share"));
    QVERIFY(takeHeartbeat());
    runtime.setCurrentPage(QStringLiteral(" share "));
    runtime.noteAction(QString());
    runtime.noteAction(QStringLiteral(" \t\n"));
    QVERIFY(!takeHeartbeat());
    runtime.setCurrentPage(QStringLiteral("vault"));
    QVERIFY(takeHeartbeat());
    runtime.noteAction(QStringLiteral("wheel"));
    QVERIFY(takeHeartbeat());
    // The same action is news once a second, however often it comes.
    const qint64 firstSecond = QDateTime::currentSecsSinceEpoch();
    for (int written = 0; written < 2;) {
        runtime.noteAction(QStringLiteral("wheel"));
        written += takeHeartbeat() ? 1 : 0;
    }
    QVERIFY(QDateTime::currentSecsSinceEpoch() > firstSecond);
}

void TestGuiDiagnosticsRuntime::namesEvents_data()
{
    QTest::addColumn<QEvent::Type>("type");
    QTest::addColumn<QString>("word");
    QTest::newRow("press") << QEvent::MouseButtonPress << "mouse_press";
    QTest::newRow("release") << QEvent::MouseButtonRelease << "mouse_release";
    QTest::newRow("double click") << QEvent::MouseButtonDblClick << "mouse_double_click";
    QTest::newRow("key press") << QEvent::KeyPress << "key_press";
    QTest::newRow("activate") << QEvent::WindowActivate << "window_activate";
    QTest::newRow("wheel") << QEvent::Wheel << "wheel";
    QTest::newRow("touch begin") << QEvent::TouchBegin << "touch_begin";
    QTest::newRow("touch end") << QEvent::TouchEnd << "touch_end";
    QTest::newRow("key release") << QEvent::KeyRelease << QString();
    QTest::newRow("mouse move") << QEvent::MouseMove << QString();
    QTest::newRow("touch update") << QEvent::TouchUpdate << QString();
    QTest::newRow("deactivate") << QEvent::WindowDeactivate << QString();
}

void TestGuiDiagnosticsRuntime::namesEvents()
{
    QFETCH(QEvent::Type, type);
    QFETCH(QString, word);

    GuiDiagnosticsRuntime runtime;
    runtime.start();
    QVERIFY(takeHeartbeat());
    EventCounter receiver;
    QEvent event(type);
    QCoreApplication::sendEvent(&receiver, &event);
    QCOMPARE(receiver.count, 1);
    QCOMPARE(value("action"), word);
    QCOMPARE(takeHeartbeat(), !word.isEmpty());
}

void TestGuiDiagnosticsRuntime::skipsWhatCannotBeWritten()
{
    // A file stands where the directory should be.
    const QString dir = GuiDiagnosticsRuntime::runtimeDirPath();
    QVERIFY(QDir().mkpath(QFileInfo(dir).path()));
    QFile obstacle(dir);
    QVERIFY(obstacle.open(QIODevice::WriteOnly));
    obstacle.close();

    GuiDiagnosticsRuntime runtime;
    runtime.start();
    GuiDiagnosticsRuntime::appendSlowOperation(QStringLiteral("op"), 5);
    GuiDiagnosticsRuntime::writeEnvironmentSnapshot(QString(), QString(), 1, QString());
    QCOMPARE(QFileInfo(dir).size(), 0);
    QVERIFY(obstacle.remove());
    QVERIFY(QTest::qWaitFor(takeHeartbeat, 3000)); // The timer has gone on.
}

void TestGuiDiagnosticsRuntime::writesEnvironmentSnapshot()
{
    qputenv("DESKTOP_SESSION", "deepin 桌面");
    qputenv("GTK_THEME", "");
    qunsetenv("XAUTHORITY");
    GuiDiagnosticsRuntime::writeEnvironmentSnapshot(QStringLiteral("livecd"), QStringLiteral("xcb"),
                                                    4711, QStringLiteral("1.0.1"));
    const QJsonObject snapshot =
        QJsonDocument::fromJson(readAll(GuiDiagnosticsRuntime::environmentSnapshotPath())).object();
    const auto text = [&](const char *key) {
        return snapshot.value(QLatin1String(key)).toString();
    };
    QCOMPARE(
        snapshot.keys().join(QLatin1Char(' ')),
        QStringLiteral("DBUS_SESSION_BUS_ADDRESS DESKTOP_SESSION DISPLAY GTK_THEME LANG LC_ALL "
                       "QT_QPA_PLATFORM QT_QPA_PLATFORMTHEME QT_STYLE_OVERRIDE WAYLAND_DISPLAY "
                       "XAUTHORITY XDG_CURRENT_DESKTOP XDG_RUNTIME_DIR appVersion capturedAt "
                       "mode pid platform"));
    QCOMPARE(text("mode"), QStringLiteral("livecd"));
    QCOMPARE(text("platform"), QStringLiteral("xcb"));
    QCOMPARE(text("pid"), QStringLiteral("4711"));
    QCOMPARE(text("appVersion"), QStringLiteral("1.0.1"));
    QCOMPARE(text("DESKTOP_SESSION"), QStringLiteral("deepin 桌面"));
    QCOMPARE(text("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    QVERIFY(snapshot.value(QLatin1String("GTK_THEME")).isString());
    QCOMPARE(text("GTK_THEME") + text("XAUTHORITY"), QString());
    QVERIFY(QDateTime::fromString(text("capturedAt"), Qt::ISODate).isValid());
}

void TestGuiDiagnosticsRuntime::gradesSlowOperations_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<qint64>("elapsedMs");
    QTest::addColumn<QString>("tail");
    QTest::newRow("just in time") << "scan" << qint64(1000)
                                  << "[WARN] SlowOp name=scan elapsedMs=1000";
    QTest::newRow("too late") << "scan" << qint64(1001)
                              << "[ERROR] SlowOp name=scan elapsedMs=1001";
    QTest::newRow("place marks in the name")
        << "%1 %4" << qint64(0) << "[WARN] SlowOp name=%1 %4 elapsedMs=0";
}

void TestGuiDiagnosticsRuntime::gradesSlowOperations()
{
    QFETCH(QString, name);
    QFETCH(qint64, elapsedMs);
    QFETCH(QString, tail);

    GuiDiagnosticsRuntime::appendSlowOperation(QStringLiteral("earlier"), 1);
    GuiDiagnosticsRuntime::appendSlowOperation(name, elapsedMs);
    const QStringList lines = QString::fromUtf8(readAll(GuiDiagnosticsRuntime::slowOpsLogPath()))
                                  .split(QLatin1Char('\n'));
    QCOMPARE(lines.size(), 3); // The last one is empty.
    QVERIFY(lines.at(0).contains(QLatin1String("name=earlier")));
    QVERIFY2(QRegularExpression(
                 QStringLiteral("^\\[\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}\\] ") +
                 QRegularExpression::escape(tail) + QLatin1Char('$'))
                 .match(lines.at(1))
                 .hasMatch(),
             qPrintable(lines.at(1)));
}

void TestGuiDiagnosticsRuntime::keepsLinesOfThreadsApart()
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([] {
            for (int n = 0; n < 100; ++n)
                GuiDiagnosticsRuntime::appendSlowOperation(QString(200, QLatin1Char('n')), n);
        });
    for (std::thread &thread : threads)
        thread.join();
    const QList<QByteArray> lines =
        readAll(GuiDiagnosticsRuntime::slowOpsLogPath()).trimmed().split('\n');
    QCOMPARE(lines.size(), 400);
    for (const QByteArray &line : lines)
        QVERIFY(line.startsWith('[') && line.count("SlowOp") == 1);
}

/// The environment of a session holds paths and addresses of its user.
void TestGuiDiagnosticsRuntime::onlyTheOwnerReads()
{
    const mode_t mask = ::umask(0);
    GuiDiagnosticsRuntime().start();
    GuiDiagnosticsRuntime::writeEnvironmentSnapshot(QStringLiteral("normal"), QString(), 1,
                                                    QString());
    GuiDiagnosticsRuntime::appendSlowOperation(QStringLiteral("scan"), 1);
    ::umask(mask);
    const auto modeOf = [](const QString &path) {
        struct stat info = {};
        ::stat(QFile::encodeName(path).constData(), &info);
        return int(info.st_mode & 07777);
    };
    QCOMPARE(modeOf(GuiDiagnosticsRuntime::runtimeDirPath()), 0700);
    for (const QString &path : {GuiDiagnosticsRuntime::heartbeatFilePath(),
                                GuiDiagnosticsRuntime::environmentSnapshotPath(),
                                GuiDiagnosticsRuntime::slowOpsLogPath()})
        QCOMPARE(modeOf(path), 0600);
}

QTEST_MAIN(TestGuiDiagnosticsRuntime)
#include "tst_guidiagnosticsruntime.moc"
