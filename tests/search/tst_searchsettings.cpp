#include "search/searchsettings.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <limits>

Q_DECLARE_METATYPE(core::AppMode)

using core::AppMode;
using searchsettings::Paths;

namespace {

QStringList list(const char *text)
{
    return QString::fromUtf8(text).split(QLatin1Char(' '));
}

const char kDefaultExcludes[] = ".git node_modules .cache __pycache__ .venv .tox .morvane_vault";
const char kDocumentBlock[] =
    "doc docx xls xlsx ppt pptx wps et dps pdf ofd txt md rtf csv odt ods odp epub";

} // namespace

class TestSearchSettings : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void givesTheDefaultsOfTheMode();
    void loadsWhatItSaved_data();
    void loadsWhatItSaved();
    void readsListsAsOtherProgramsWriteThem();
    void fallsBackToTheBaseFile();
    void reportsAFileThatCannotBeWritten();
    void addsTheDocumentBlock_data();
    void addsTheDocumentBlock();
    void findsTheFilesOfTheMode();
    void neverIndexesItsOwnFiles();
    void decidesWhatFollowsChanges_data();
    void decidesWhatFollowsChanges();

private:
    Paths paths(AppMode mode) const;

    QScopedPointer<QTemporaryDir> m_dir;
};

void TestSearchSettings::init()
{
    m_dir.reset(new QTemporaryDir);
    QVERIFY(m_dir->isValid());
    QVERIFY(QDir(m_dir->path()).mkpath(QStringLiteral("home/u/.config/morvane")));
}

/// In livecd mode the temporary folder is the target system.
Paths TestSearchSettings::paths(AppMode mode) const
{
    Paths result;
    result.mode = mode;
    result.targetRoot = m_dir->path();
    result.targetMounted = true;
    result.primaryHome = m_dir->filePath(QStringLiteral("home/u"));
    result.userHomes = QStringList(result.primaryHome);
    result.defaultRoots = result.userHomes;
    result.configPath = result.primaryHome + QStringLiteral("/.config/morvane/morvane.conf");
    result.databasePath = result.primaryHome + QStringLiteral("/.config/morvane/search_index.db");
    return result;
}

void TestSearchSettings::givesTheDefaultsOfTheMode()
{
    const SearchSettings normal = searchsettings::load(paths(AppMode::normal));
    QCOMPARE(normal.roots, QStringList(m_dir->filePath(QStringLiteral("home/u"))));
    QCOMPARE(normal.excludeDirs, list(kDefaultExcludes));
    QCOMPARE(QStringList(normal.ftsExtensions.mid(0, 13)),
             list("doc docx xls xlsx ppt pptx wps et dps pdf ofd txt md"));
    QCOMPARE(normal.autoRebuild, true);
    QCOMPARE(normal.inotifyMaxDepth, 5);
    QCOMPARE(normal.incrementalIntervalHours, 24);

    const SearchSettings livecd = searchsettings::load(paths(AppMode::livecd));
    QCOMPARE(livecd.roots, list("/home/u"));
    QCOMPARE(livecd.excludeDirs, normal.excludeDirs);
    QCOMPARE(livecd.autoRebuild, false);
    QCOMPARE(livecd.inotifyMaxDepth, -1);
    QCOMPARE(livecd.incrementalIntervalHours, 0);
}

void TestSearchSettings::loadsWhatItSaved_data()
{
    QTest::addColumn<QStringList>("excludes");
    QTest::addColumn<QStringList>("extensions");
    QTest::addColumn<QStringList>("loadedExcludes");
    QTest::newRow("several") << list("a /b,c;d") << list("log ini") << list("a /b,c;d");
    QTest::newRow("one of each, Chinese") << list("缓存") << list("log") << list("缓存");
    QTest::newRow("none") << QStringList() << QStringList() << list(kDefaultExcludes);
}

void TestSearchSettings::loadsWhatItSaved()
{
    QFETCH(QStringList, excludes);
    QFETCH(QStringList, extensions);
    QFETCH(QStringList, loadedExcludes);
    SearchSettings settings;
    settings.roots = list("/数据/资料 /srv");
    settings.excludeDirs = excludes;
    settings.ftsExtensions = extensions;
    settings.autoRebuild = false;
    settings.inotifyMaxDepth = 0;
    settings.incrementalIntervalHours = 6;
    settings.moreTextTypes = false;
    settings.indexedTextBytes = 262144;
    QString error;
    QVERIFY2(searchsettings::save(paths(AppMode::normal), settings, &error), qPrintable(error));

    const SearchSettings loaded = searchsettings::load(paths(AppMode::normal));
    QCOMPARE(loaded.roots, settings.roots);
    QCOMPARE(loaded.excludeDirs, loadedExcludes);
    QCOMPARE(loaded.ftsExtensions, extensions);
    QCOMPARE(loaded.autoRebuild, false);
    QCOMPARE(loaded.inotifyMaxDepth, 0);
    QCOMPARE(loaded.incrementalIntervalHours, 6);
    QCOMPARE(loaded.indexedTextBytes, 262144);
    QCOMPARE(searchsettings::contentExtensions(loaded), extensions);
}

void TestSearchSettings::readsListsAsOtherProgramsWriteThem()
{
    QFile file(paths(AppMode::normal).configPath);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("[search]\nindexRoots=/a, /b\nexcludeDirs=@Invalid()\nftsExtensions=\" TXT \"\n"
               "inotifyMaxDepth=deep\nautoRebuild=false\nindexedTextBytes=77\n");
    file.close();
    const SearchSettings loaded = searchsettings::load(paths(AppMode::normal));
    QCOMPARE(loaded.roots, list("/a /b"));
    QCOMPARE(loaded.excludeDirs, list(kDefaultExcludes));
    QCOMPARE(loaded.ftsExtensions.size(), 18);
    QCOMPARE(loaded.indexedTextBytes, 16384);
    // Mail, pages and the like are a set of their own, on unless it was switched off.
    QVERIFY(searchsettings::contentExtensions(loaded).contains(QStringLiteral("eml")));
    QCOMPARE(loaded.autoRebuild, false);
    QCOMPARE(loaded.inotifyMaxDepth, 5);
}

void TestSearchSettings::fallsBackToTheBaseFile()
{
    const Paths livecd = paths(AppMode::livecd);
    QSettings base(livecd.configPath, QSettings::IniFormat);
    base.setValue(QStringLiteral("search/indexRoots"), list("/home/u/Documents"));
    base.setValue(QStringLiteral("search/excludeDirs"), list("tmp"));
    base.setValue(QStringLiteral("search/ftsExtensions"), list("log"));
    base.setValue(QStringLiteral("search/inotifyMaxDepth"), 8);
    base.setValue(QStringLiteral("search/autoRebuild"), true);
    base.sync();

    SearchSettings loaded = searchsettings::load(livecd);
    QCOMPARE(loaded.roots, list("/home/u/Documents"));
    QCOMPARE(loaded.excludeDirs, list("tmp"));
    QCOMPARE(loaded.ftsExtensions, list("log"));
    QCOMPARE(loaded.inotifyMaxDepth, -1);
    QCOMPARE(loaded.autoRebuild, false);

    // The mode's own file wins, list by list, and altogether once it has roots.
    QSettings own(searchsettings::activeConfigPath(livecd), QSettings::IniFormat);
    own.setValue(QStringLiteral("search/ftsExtensions"), list("ini"));
    own.sync();
    loaded = searchsettings::load(livecd);
    QCOMPARE(loaded.ftsExtensions, list("ini"));
    QCOMPARE(loaded.excludeDirs, list("tmp"));
    own.setValue(QStringLiteral("search/indexRoots"), list("/home/u/Desktop"));
    own.sync();
    loaded = searchsettings::load(livecd);
    QCOMPARE(loaded.roots, list("/home/u/Desktop"));
    QCOMPARE(loaded.excludeDirs, list(kDefaultExcludes));
}

void TestSearchSettings::reportsAFileThatCannotBeWritten()
{
    Paths blocked = paths(AppMode::normal);
    QFile obstacle(m_dir->filePath(QStringLiteral("file")));
    QVERIFY(obstacle.open(QIODevice::WriteOnly));
    blocked.configPath = obstacle.fileName() + QStringLiteral("/morvane.conf");
    QString error;
    QVERIFY(!searchsettings::save(blocked, SearchSettings(), &error));
    QVERIFY(error.contains(blocked.configPath));
    blocked.configPath.clear();
    QVERIFY(!searchsettings::save(blocked, SearchSettings(), &error));
}

void TestSearchSettings::addsTheDocumentBlock_data()
{
    QTest::addColumn<QStringList>("given");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("defaults get the rest")
        << list("doc docx xls xlsx ppt pptx wps et dps pdf ofd txt md") << list(kDocumentBlock);
    QTest::newRow("one is enough")
        << QStringList({QStringLiteral(" PDF "), QStringLiteral("py")})
        << list("pdf py doc docx xls xlsx ppt pptx rtf csv txt odt ods odp ofd epub wps et dps");
    QTest::newRow("md alone is no document") << list("md py") << list("md py");
    QTest::newRow("none") << QStringList() << QStringList();
}

void TestSearchSettings::addsTheDocumentBlock()
{
    QFETCH(QStringList, given);
    QTEST(searchsettings::withDocumentBlock(given), "expected");
}

void TestSearchSettings::findsTheFilesOfTheMode()
{
    const Paths normal = paths(AppMode::normal);
    Paths livecd = paths(AppMode::livecd);
    QCOMPARE(searchsettings::activeConfigPath(normal), normal.configPath);
    QCOMPARE(searchsettings::activeConfigPath(livecd),
             livecd.primaryHome + QStringLiteral("/.config/morvane/morvane_livecd.conf"));
    QCOMPARE(searchsettings::baseConfigPath(livecd), livecd.configPath);
    QCOMPARE(searchsettings::activeDbPath(livecd), livecd.databasePath);

    livecd.primaryHome.clear();
    livecd.databasePath.clear();
    QCOMPARE(searchsettings::activeConfigPath(livecd), livecd.configPath);
    QCOMPARE(searchsettings::activeDbPath(livecd),
             QDir::tempPath() + QStringLiteral("/morvane_search_disabled.db"));
}

void TestSearchSettings::neverIndexesItsOwnFiles()
{
    Paths normal = paths(AppMode::normal);
    const QString stateDir = QFileInfo(normal.configPath).absolutePath();
    SearchSettings settings;
    settings.excludeDirs = list(".git /opt/");
    QCOMPARE(searchsettings::effectiveExcludeDirs(normal, settings),
             QStringList({QStringLiteral(".git"), QStringLiteral("/opt"), stateDir}));
    settings.excludeDirs.append(stateDir + QStringLiteral("/./"));
    QCOMPARE(searchsettings::effectiveExcludeDirs(normal, settings).count(stateDir), 1);

    normal.databasePath = QStringLiteral("/var/index/search_index.db");
    QVERIFY(searchsettings::effectiveExcludeDirs(normal, settings)
                .contains(QStringLiteral("/var/index")));

    settings.excludeDirs = list("tmp /home/u/tmp");
    QCOMPARE(searchsettings::effectiveExcludeDirs(paths(AppMode::livecd), settings).mid(0, 2),
             QStringList({QStringLiteral("tmp"), m_dir->filePath(QStringLiteral("home/u/tmp"))}));
}

void TestSearchSettings::decidesWhatFollowsChanges_data()
{
    QTest::addColumn<AppMode>("mode");
    QTest::addColumn<int>("depth");
    QTest::addColumn<int>("hours");
    QTest::addColumn<bool>("watches");
    QTest::addColumn<int>("intervalMs");
    QTest::newRow("normal") << AppMode::normal << 5 << 24 << true << 86400000;
    QTest::newRow("no limit, by hand") << AppMode::normal << 0 << 0 << true << 0;
    QTest::newRow("off") << AppMode::normal << -1 << -3 << false << 0;
    QTest::newRow("longer than a timer can wait")
        << AppMode::normal << 3 << 1000000 << true << std::numeric_limits<int>::max();
    QTest::newRow("a livecd file that asks for it")
        << AppMode::livecd << 5 << 6 << false << 21600000;
}

void TestSearchSettings::decidesWhatFollowsChanges()
{
    QFETCH(AppMode, mode);
    SearchSettings settings;
    QFETCH(int, depth);
    QFETCH(int, hours);
    settings.inotifyMaxDepth = depth;
    settings.incrementalIntervalHours = hours;
    QTEST(searchsettings::watchesChanges(paths(mode), settings), "watches");
    QTEST(searchsettings::incrementalIntervalMs(settings), "intervalMs");
}

QTEST_APPLESS_MAIN(TestSearchSettings)
#include "tst_searchsettings.moc"
