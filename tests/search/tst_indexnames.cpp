#include "core/controllers/search/searchpathresolver.h"
#include "search/indexbuilder.h"
#include "search/indexwatcher.h"
#include "support/indexsnapshot.h"
#include "support/temptree.h"

#include <QtTest>

using core::controllers::search::SearchPathResolver;
using core::controllers::search::SearchRuntimePaths;

namespace {

constexpr int maxContentBytes = 16384;
const QStringList texts{QStringLiteral("txt")};

/// Names that trimming would change, among plain ones that they could be taken for.
const QStringList names{QStringLiteral("a.txt"),      QStringLiteral("a.txt "),
                        QStringLiteral("a.txt\n"),    QStringLiteral(" lead.txt"),
                        QStringLiteral("tab.txt\t"),  QStringLiteral("sub /in .txt"),
                        QStringLiteral("line\n.txt"), QStringLiteral("sub\n/last\n")};

} // namespace

/// Builder and watcher call a file the same, by its real name.
class TestIndexNames : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void oddNamesHaveOneRow_data();
    void oddNamesHaveOneRow();
    void targetPathsComeBack();

private:
    QStringList write(const QString &root, const QByteArray &content);
    void build(const QString &root, const QString &prefix = QString());
    QStringList rows() const { return readIndex(m_dbPath).keys(); }

    QScopedPointer<TempTree> m_tree;
    QString m_dbPath;
};

void TestIndexNames::init()
{
    m_tree.reset(new TempTree);
    m_dbPath = m_tree->path("index.db");
}

/// The paths, sorted.
QStringList TestIndexNames::write(const QString &root, const QByteArray &content)
{
    QStringList paths;
    for (const QString &name : names)
        paths.append(m_tree->file(root + QLatin1Char('/') + name, content));
    paths.sort();
    return paths;
}

void TestIndexNames::build(const QString &root, const QString &prefix)
{
    IndexBuilder builder(m_dbPath);
    builder.setStoredPathPrefix(prefix);
    QSignalSpy finished(&builder, &IndexBuilder::finished);
    builder.startBuild({root}, {}, {}, texts, maxContentBytes);
    QCOMPARE(finished.size(), 1);
    QCOMPARE(finished.first().at(1).toString(),
             QStringLiteral("索引构建完成，共 %1 个文件").arg(names.size()));
}

void TestIndexNames::oddNamesHaveOneRow_data()
{
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QString>("root"); ///< as the settings have it
    QTest::newRow("plain root") << "r"
                                << "r";
    QTest::newRow("root with a blank at its end") << "r "
                                                  << "r ";
    QTest::newRow("root with a blank too many") << "r"
                                                << "r ";
}

void TestIndexNames::oddNamesHaveOneRow()
{
    QFETCH(QString, folder);
    QFETCH(QString, root);
    const QStringList paths = write(folder, "before");
    build(m_tree->path(root));
    QCOMPARE(rows(), paths);
    const auto content = [this, &folder](const char *name) {
        return readIndex(m_dbPath)
            .value(m_tree->path(folder + QLatin1Char('/') + QLatin1String(name)))
            .content;
    };
    QCOMPARE(content("sub /in .txt"), QStringLiteral("before"));
    QCOMPARE(content("line\n.txt"), QStringLiteral("before"));

    IndexWatcher watcher(m_dbPath);
    watcher.setRoots({m_tree->path(root)});
    watcher.setIndexOptions({}, {}, texts, maxContentBytes, 0);
    watcher.start();
    // Written again and again, since the watcher needs a moment to start.
    const QString last = m_tree->path(folder + QStringLiteral("/probe.bin"));
    QTRY_VERIFY(m_tree->file(folder + QStringLiteral("/probe.bin")) == last &&
                rows().contains(last));
    write(folder, "after");
    QTRY_COMPARE(content("line\n.txt"), QStringLiteral("after"));
    QTRY_COMPARE(content("sub /in .txt"), QStringLiteral("after"));
    QTRY_COMPARE(rows().size(), names.size() + 1);
    for (const QString &path : paths)
        QVERIFY(QFile::remove(path));
    QTRY_COMPARE(rows(), QStringList{last});
}

void TestIndexNames::targetPathsComeBack()
{
    const QStringList paths = write(QStringLiteral("target/home/u"), "text");
    build(m_tree->path("target/home"), m_tree->path("target"));
    SearchRuntimePaths context;
    context.mode = core::AppMode::livecd;
    context.targetRoot = m_tree->path("target");
    QStringList runtime;
    for (const QString &stored : rows()) {
        QVERIFY(stored.startsWith(QLatin1String("/home/u/")));
        runtime.append(SearchPathResolver::toRuntimePath(context, stored));
        QCOMPARE(SearchPathResolver::toStoredPath(context, runtime.last()), stored);
    }
    QCOMPARE(runtime, paths);
}

QTEST_GUILESS_MAIN(TestIndexNames)
#include "tst_indexnames.moc"
