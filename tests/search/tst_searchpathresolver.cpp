#include "core/controllers/search/searchpathresolver.h"
#include "support/temptree.h"

#include <QtTest>

using core::AppMode;
using core::controllers::search::SearchPathResolver;
using core::controllers::search::SearchRuntimePaths;

Q_DECLARE_METATYPE(core::AppMode)

namespace {

const QString config = QStringLiteral("/.config/morvane/morvane.conf");
const QString database = QStringLiteral("/.config/morvane/search_index.db");
const char *const notMounted =
    "未检测到目标系统挂载目录 /live_target，如果确实要查找文件，请先运行Livecd工具挂载目标系统。"
    "注意，如果你要找回误删的文件，不要运行Livecd工具。";
const char *const noHomes =
    "未在目标系统中识别到用户目录，如果确实要查找文件，请先运行Livecd工具挂载目标系统后重试。"
    "注意，如果你要找回误删的文件，不要运行Livecd工具。";

QStringList words(const char *text)
{
    QStringList list = QString::fromUtf8(text).split(QLatin1Char(' '));
    list.removeAll(QString());
    return list;
}

} // namespace

class TestSearchPathResolver : public QObject
{
    Q_OBJECT

private slots:
    void resolvesTheOwnHome();
    void resolvesATarget_data();
    void resolvesATarget();
    void availabilityNeedsAll();
    void convertsPaths_data();
    void convertsPaths();
};

void TestSearchPathResolver::resolvesTheOwnHome()
{
    const SearchRuntimePaths paths = SearchPathResolver::resolve(AppMode::normal);
    QCOMPARE(paths.targetRoot, QStringLiteral("/live_target"));
    QVERIFY(paths.targetMounted && !paths.searchStateFound);
    QCOMPARE(paths.primaryHome, QDir::homePath());
    QCOMPARE(paths.userHomes, QStringList{QDir::homePath()});
    QCOMPARE(paths.defaultRoots, QStringList{QDir::homePath()});
    QCOMPARE(paths.configPath, QDir::homePath() + config);
    QCOMPARE(paths.databasePath, QDir::homePath() + database);
    QCOMPARE(paths.errorMessage, QString());
    QVERIFY(SearchPathResolver::isAvailable(paths));
}

void TestSearchPathResolver::resolvesATarget_data()
{
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QStringList>("dirs");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QStringList>("homes");
    QTest::addColumn<QString>("chosen");
    const auto refused = [](const char *name, const char *files, const char *dirs,
                            const char *message) {
        QTest::newRow(name) << words(files) << words(dirs) << QString::fromUtf8(message)
                            << QStringList() << QString();
    };
    refused("nothing", "", "", notMounted);
    refused("no os-release", "", "home/u", notMounted);
    refused("no home folder", "etc/os-release", "data", notMounted);
    refused("home is a file", "etc/os-release home", "", notMounted);
    refused("no user", "etc/os-release home/readme", "home", noHomes);
    refused("hidden folders are no users", "etc/os-release", "data/home/.Trash-0", noHomes);

    const auto found = [](const char *name, const QStringList &state, const char *dirs,
                          const char *homes, const char *chosen) {
        QTest::newRow(name) << QStringList{QStringLiteral("etc/os-release")} + state << words(dirs)
                            << QString() << words(homes) << QString::fromUtf8(chosen);
    };
    const QString a = QStringLiteral("home/a");
    const QString b = QStringLiteral("home/b");
    found("both places, first by path chosen", {}, "data/home/anna home/zoe home/bert",
          "home/bert home/zoe data/home/anna", "data/home/anna");
    found("settings beat nothing", {b + config}, "home/a", "home/a home/b", "home/b");
    found("database beats settings", {a + config, b + database}, "", "home/a home/b", "home/b");
    found("both beat the database", {a + database, b + config, b + database}, "", "home/a home/b",
          "home/b");
    found("equal: first by path", {b + database, a + database}, "", "home/a home/b", "home/a");
}

void TestSearchPathResolver::resolvesATarget()
{
    QFETCH(QStringList, files);
    QFETCH(QStringList, dirs);
    QFETCH(QString, message);
    QFETCH(QStringList, homes);
    QFETCH(QString, chosen);
    TempTree tree;
    for (const QString &file : qAsConst(files))
        tree.file(file);
    for (const QString &dir : qAsConst(dirs))
        tree.dir(dir);
    for (QString &home : homes)
        home = tree.path(home);

    const SearchRuntimePaths paths =
        SearchPathResolver::resolve(AppMode::livecd, QStringLiteral("/root"), tree.path());
    QCOMPARE(paths.errorMessage, message);
    QCOMPARE(paths.targetMounted, message != QString::fromUtf8(notMounted));
    QCOMPARE(paths.userHomes, homes);
    QCOMPARE(paths.defaultRoots, homes);
    const QString home = chosen.isEmpty() ? QString() : tree.path(chosen);
    QCOMPARE(paths.primaryHome, home);
    QCOMPARE(paths.configPath, home.isEmpty() ? QString() : home + config);
    QCOMPARE(paths.databasePath, home.isEmpty() ? QString() : home + database);
    QCOMPARE(paths.searchStateFound, !home.isEmpty() && files.size() > 1);
    QCOMPARE(SearchPathResolver::isAvailable(paths), message.isEmpty());
}

void TestSearchPathResolver::availabilityNeedsAll()
{
    SearchRuntimePaths whole;
    whole.mode = AppMode::livecd;
    whole.targetMounted = true;
    whole.configPath = whole.databasePath = whole.primaryHome = QStringLiteral("/x");
    whole.defaultRoots = QStringList{QStringLiteral("/x")};
    QVERIFY(SearchPathResolver::isAvailable(whole));
    const std::function<void(SearchRuntimePaths &)> losses[] = {
        [](SearchRuntimePaths &paths) { paths.configPath.clear(); },
        [](SearchRuntimePaths &paths) { paths.databasePath.clear(); },
        [](SearchRuntimePaths &paths) { paths.targetMounted = false; },
        [](SearchRuntimePaths &paths) { paths.primaryHome.clear(); },
        [](SearchRuntimePaths &paths) {
            paths.defaultRoots.clear();
        }};
    for (int i = 0; i < 5; ++i) {
        SearchRuntimePaths paths = whole;
        losses[i](paths);
        QVERIFY2(!SearchPathResolver::isAvailable(paths), qPrintable(QString::number(i)));
        paths.mode = AppMode::normal; // where the two files alone count
        QCOMPARE(SearchPathResolver::isAvailable(paths), i > 1);
    }
}

void TestSearchPathResolver::convertsPaths_data()
{
    QTest::addColumn<AppMode>("mode");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("runtime");
    QTest::addColumn<QString>("stored");
    const auto row = [](const char *name, AppMode mode, const char *path, const char *runtime,
                        const char *stored) {
        QTest::newRow(name) << mode << QString::fromUtf8(path) << QString::fromUtf8(runtime)
                            << QString::fromUtf8(stored);
    };
    row("normal only cleans", AppMode::normal, " /a//b/../c ", "/a/c", "/a/c");
    row("normal leaves the target root", AppMode::normal, "/live_target/a", "/live_target/a",
        "/live_target/a");
    row("empty", AppMode::livecd, "  ", "", "");
    row("target path", AppMode::livecd, "/home/u/x", "/live_target/home/u/x", "/home/u/x");
    row("runtime path", AppMode::livecd, "/live_target/home/u", "/live_target/home/u", "/home/u");
    row("target root", AppMode::livecd, "/live_target/", "/live_target", "/");
    row("beside the target root", AppMode::livecd, "/live_targetx/a", "/live_target/live_targetx/a",
        "/live_targetx/a");
    row("root of the target", AppMode::livecd, "/", "/live_target", "/");
    row("relative", AppMode::livecd, "a/./b", "a/b", "a/b");
}

void TestSearchPathResolver::convertsPaths()
{
    QFETCH(QString, path);
    QFETCH(AppMode, mode);
    SearchRuntimePaths paths;
    paths.mode = mode;
    const QString runtime = SearchPathResolver::toRuntimePath(paths, path);
    QTEST(runtime, "runtime");
    QTEST(SearchPathResolver::toStoredPath(paths, path), "stored");
    QCOMPARE(SearchPathResolver::toRuntimePath(paths, runtime), runtime);
    QCOMPARE(SearchPathResolver::pathBelowRoot(path, QString()), QDir::cleanPath(path.trimmed()));
}

QTEST_GUILESS_MAIN(TestSearchPathResolver)
#include "tst_searchpathresolver.moc"
