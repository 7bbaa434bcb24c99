#include "core/controllers/search/searchpathresolver.h"
#include "support/temptree.h"

#include <QtTest>

using core::AppMode;
using core::controllers::search::SearchPathResolver;
using core::controllers::search::SearchRuntimePaths;

Q_DECLARE_METATYPE(SearchRuntimePaths)
Q_DECLARE_METATYPE(core::AppMode)

namespace {

const QString notMounted = QStringLiteral(
    "未检测到目标系统挂载目录 /live_target，如果确实要查找文件，请先运行Livecd工具挂载"
    "目标系统。注意，如果你要找回误删的文件，不要运行Livecd工具。");
const QString noHomes = QStringLiteral(
    "未在目标系统中识别到用户目录，如果确实要查找文件，请先运行Livecd工具挂载目标系统后"
    "重试。注意，如果你要找回误删的文件，不要运行Livecd工具。");

QString config(const QString &home)
{
    return home + QStringLiteral("/.config/morvane/morvane.conf");
}

QString database(const QString &home)
{
    return home + QStringLiteral("/.config/morvane/search_index.db");
}

} // namespace

class TestSearchPathResolver : public QObject
{
    Q_OBJECT

private slots:
    void resolvesTheOwnHome();
    void refusesWhatIsNotASystem_data();
    void refusesWhatIsNotASystem();
    void collectsHomes();
    void choosesTheHomeWithMostState_data();
    void choosesTheHomeWithMostState();
    void availability_data();
    void availability();
    void convertsPaths_data();
    void convertsPaths();

private:
    SearchRuntimePaths resolveTarget(const TempTree &tree)
    {
        return SearchPathResolver::resolve(AppMode::livecd, QStringLiteral("/root"), tree.path());
    }
};

void TestSearchPathResolver::resolvesTheOwnHome()
{
    const SearchRuntimePaths paths = SearchPathResolver::resolve(AppMode::normal);
    QCOMPARE(paths.mode, AppMode::normal);
    QCOMPARE(paths.targetRoot, QStringLiteral("/live_target"));
    QVERIFY(paths.targetMounted);
    QVERIFY(!paths.searchStateFound);
    QCOMPARE(paths.primaryHome, QDir::homePath());
    QCOMPARE(paths.userHomes, QStringList{QDir::homePath()});
    QCOMPARE(paths.defaultRoots, QStringList{QDir::homePath()});
    QCOMPARE(paths.configPath, config(QDir::homePath()));
    QCOMPARE(paths.databasePath, database(QDir::homePath()));
    QCOMPARE(paths.errorMessage, QString());
    QVERIFY(SearchPathResolver::isAvailable(paths));
}

void TestSearchPathResolver::refusesWhatIsNotASystem_data()
{
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QStringList>("dirs");
    QTest::addColumn<bool>("mounted");
    QTest::addColumn<QString>("message");

    const QString release = QStringLiteral("etc/os-release");
    const QString home = QStringLiteral("home");
    QTest::newRow("nothing") << QStringList() << QStringList() << false << notMounted;
    QTest::newRow("no os-release") << QStringList() << QStringList{home} << false << notMounted;
    QTest::newRow("no home folder") << QStringList{release} << QStringList() << false << notMounted;
    QTest::newRow("home is a file")
        << QStringList{release, home} << QStringList() << false << notMounted;
    QTest::newRow("no user") << QStringList{release, QStringLiteral("home/readme")}
                             << QStringList{home} << true << noHomes;
    QTest::newRow("hidden folders are no users")
        << QStringList{release} << QStringList{QStringLiteral("data/home/.Trash-0")} << true
        << noHomes;
}

void TestSearchPathResolver::refusesWhatIsNotASystem()
{
    QFETCH(QStringList, files);
    QFETCH(QStringList, dirs);
    TempTree tree;
    for (const QString &file : files)
        tree.file(file);
    for (const QString &dir : dirs)
        tree.dir(dir);

    const SearchRuntimePaths paths = resolveTarget(tree);
    QTEST(paths.targetMounted, "mounted");
    QTEST(paths.errorMessage, "message");
    QCOMPARE(paths.databasePath, QString());
    QCOMPARE(paths.defaultRoots, QStringList());
    QVERIFY(!SearchPathResolver::isAvailable(paths));

    const SearchRuntimePaths missing = SearchPathResolver::resolve(
        AppMode::livecd, QString(), tree.path(QStringLiteral("no/such/place")));
    QCOMPARE(missing.errorMessage, notMounted);
}

void TestSearchPathResolver::collectsHomes()
{
    TempTree tree;
    tree.file(QStringLiteral("etc/os-release"));
    tree.dir(QStringLiteral("data/home/anna"));
    tree.dir(QStringLiteral("home/zoe"));
    tree.dir(QStringLiteral("home/bert"));
    const SearchRuntimePaths paths = resolveTarget(tree);
    const QStringList homes{tree.path(QStringLiteral("home/bert")),
                            tree.path(QStringLiteral("home/zoe")),
                            tree.path(QStringLiteral("data/home/anna"))};
    QCOMPARE(paths.userHomes, homes);
    QCOMPARE(paths.defaultRoots, homes);
    // Without any state the path that sorts first is chosen: "data" before "home".
    QCOMPARE(paths.primaryHome, homes.last());
    QVERIFY(!paths.searchStateFound);
    QCOMPARE(paths.errorMessage, QString());
    QVERIFY(SearchPathResolver::isAvailable(paths));
}

void TestSearchPathResolver::choosesTheHomeWithMostState_data()
{
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QString>("chosen");

    const QString a = QStringLiteral("home/a");
    const QString b = QStringLiteral("home/b");
    QTest::newRow("settings beat nothing") << QStringList{config(b)} << b;
    QTest::newRow("database beats settings") << QStringList{config(a), database(b)} << b;
    QTest::newRow("both beat the database")
        << QStringList{database(a), config(b), database(b)} << b;
    QTest::newRow("equal: first by name") << QStringList{database(b), database(a)} << a;
}

void TestSearchPathResolver::choosesTheHomeWithMostState()
{
    QFETCH(QStringList, files);
    QFETCH(QString, chosen);
    TempTree tree;
    tree.file(QStringLiteral("etc/os-release"));
    tree.dir(QStringLiteral("home/a"));
    tree.dir(QStringLiteral("home/b"));
    for (const QString &file : files)
        tree.file(file);
    const SearchRuntimePaths paths = resolveTarget(tree);
    QCOMPARE(paths.primaryHome, tree.path(chosen));
    QCOMPARE(paths.configPath, config(tree.path(chosen)));
    QCOMPARE(paths.databasePath, database(tree.path(chosen)));
    QVERIFY(paths.searchStateFound);
}

void TestSearchPathResolver::availability_data()
{
    QTest::addColumn<SearchRuntimePaths>("paths");
    QTest::addColumn<bool>("available");

    SearchRuntimePaths whole;
    whole.mode = AppMode::livecd;
    whole.targetMounted = true;
    whole.configPath = whole.databasePath = whole.primaryHome = QStringLiteral("/x");
    whole.defaultRoots = QStringList{QStringLiteral("/x")};
    const auto row = [&](const char *name, bool available,
                         const std::function<void(SearchRuntimePaths &)> &change) {
        SearchRuntimePaths paths = whole;
        change(paths);
        QTest::newRow(name) << paths << available;
    };
    row("whole", true, [](SearchRuntimePaths &) {});
    row("not mounted", false, [](SearchRuntimePaths &paths) { paths.targetMounted = false; });
    row("no home", false, [](SearchRuntimePaths &paths) { paths.primaryHome.clear(); });
    row("no roots", false, [](SearchRuntimePaths &paths) { paths.defaultRoots.clear(); });
    row("no settings", false, [](SearchRuntimePaths &paths) { paths.configPath.clear(); });
    row("normal needs two paths only", true, [](SearchRuntimePaths &paths) {
        paths.mode = AppMode::normal;
        paths.targetMounted = false;
        paths.primaryHome.clear();
        paths.defaultRoots.clear();
    });
    row("normal without database", false, [](SearchRuntimePaths &paths) {
        paths.mode = AppMode::normal;
        paths.databasePath.clear();
    });
}

void TestSearchPathResolver::availability()
{
    QFETCH(SearchRuntimePaths, paths);
    QTEST(SearchPathResolver::isAvailable(paths), "available");
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
    QTEST(SearchPathResolver::toRuntimePath(paths, path), "runtime");
    QTEST(SearchPathResolver::toStoredPath(paths, path), "stored");
    const QString runtime = SearchPathResolver::toRuntimePath(paths, path);
    QCOMPARE(SearchPathResolver::toRuntimePath(paths, runtime), runtime);
}

QTEST_GUILESS_MAIN(TestSearchPathResolver)
#include "tst_searchpathresolver.moc"
