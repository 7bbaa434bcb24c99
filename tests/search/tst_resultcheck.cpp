#include "core/workerthread.h"
#include "search/indexwatcher.h"
#include "search/resultcheck.h"
#include "search/searchindexdb.h"
#include "search/searchworker.h"
#include "support/indexsnapshot.h"
#include "support/privatemounts.h"
#include "support/temptree.h"

#include <QtTest>

using search::ResultCheck;

namespace {

bool privateMounts = false;

/// Names of the rows; a star behind those whose disk is not there.
QString shown(const QVariantList &rows)
{
    QStringList names;
    for (const QVariant &item : rows) {
        const QVariantMap row = item.toMap();
        names.append(row.value(QStringLiteral("name")).toString() +
                     QLatin1String(row.value(QStringLiteral("offline")).toBool() ? "*" : ""));
    }
    return names.join(QLatin1Char(' '));
}

} // namespace

/// What is offered of files that went, and of disks that went and came.
class TestResultCheck : public QObject
{
    Q_OBJECT

private slots:
    void offersWhatIsThere_data();
    void offersWhatIsThere();
    void fillsTheListUp();
    void followsMounts();
};

void TestResultCheck::offersWhatIsThere_data()
{
    QTest::addColumn<QString>("prefix");
    QTest::newRow("paths as they are") << QString();
    QTest::newRow("paths of a target system") << QStringLiteral("target");
}

void TestResultCheck::offersWhatIsThere()
{
    QFETCH(QString, prefix);
    TempTree tree;
    const QString top = prefix.isEmpty() ? tree.path() : tree.path(prefix);
    const QString stored = prefix.isEmpty() ? tree.path() : QString();
    const TreePath base = prefix.isEmpty() ? QString() : prefix + QLatin1Char('/');
    tree.file(base.relative + QLatin1String("home/there"));
    tree.link(base.relative + QLatin1String("home/broken"), QStringLiteral("/no/such"));
    tree.dir(base.relative + QLatin1String("stick"));
    QVariantList rows;
    for (const char *path : {"home/there", "home/gone", "home/broken", "home/there/below",
                             "stick/a", "missing/b", "elsewhere/c"}) {
        const QString name = QString::fromLatin1(path);
        rows.append(QVariantMap{{QStringLiteral("path"), QString(stored + QLatin1Char('/') + name)},
                                {QStringLiteral("name"), name}});
    }
    const QStringList roots{top + QLatin1String("/home"), top + QLatin1String("/stick"),
                            top + QLatin1String("/missing")};
    const ResultCheck check(roots, prefix.isEmpty() ? QString() : top);
    QCOMPARE(shown(check.checked(rows)),
             QStringLiteral("home/there home/broken stick/a* missing/b*"));
}

void TestResultCheck::fillsTheListUp()
{
    TempTree tree;
    {
        SearchIndexDB db(tree.path("index.db"));
        QList<QFileInfo> files;
        for (int i = 0; i < 40; ++i)
            files.append(QFileInfo(tree.file(QStringLiteral("r/report%1.txt").arg(i))));
        QVERIFY(db.upsertFileInfoBatch(files));
        for (int i = 0; i < 40; ++i)
            QVERIFY(db.updateFileContentBatch({{files.at(i).filePath(), QStringLiteral("合同")}}));
    }
    // The newest ones go, which would have been the whole answer.
    for (int i = 25; i < 40; ++i)
        tree.remove(QStringLiteral("r/report%1.txt").arg(i));
    FileNameSearchWorker names(tree.path("index.db"));
    FullTextSearchWorker texts(tree.path("index.db"));
    const ResultCheck check({tree.path("r")}, QString());
    names.setResultCheck(check);
    texts.setResultCheck(check);
    QList<int> sizes;
    const auto note = [&sizes](const QVariantList &results, const QString &error) {
        QCOMPARE(error, QString());
        for (const QVariant &row : results)
            QVERIFY(QFile::exists(row.toMap().value(QStringLiteral("path")).toString()));
        sizes.append(results.size());
    };
    connect(&names, &FileNameSearchWorker::searchCompleted, this, note);
    connect(&texts, &FullTextSearchWorker::searchCompleted, this, note);
    for (const int limit : {10, 100}) {
        sizes.clear();
        names.requestLine(QStringLiteral("report"), limit, QString());
        texts.requestLine(QStringLiteral("合同"), limit, QString());
        QTRY_VERIFY(sizes.size() >= 2); // A first line may be answered twice.
        for (const int size : qAsConst(sizes))
            QCOMPARE(size, qMin(limit, 25));
    }
}

void TestResultCheck::followsMounts()
{
    if (!privateMounts)
        QSKIP("needs mounts of its own");
    TempTree tree;
    tree.file("disk/a.txt", "on a disk");
    tree.dir("r/stick");
    IndexWatcher watcher(tree.path("index.db"));
    watcher.setRoots({tree.path("r")});
    watcher.setIndexOptions({}, {}, {QStringLiteral("txt")}, 16384, 0);
    int seen = 0;
    connect(&watcher, &IndexWatcher::indexIncrementalUpdated, this, [&seen] { ++seen; });
    watcher.start();
    const QString path = tree.path("r/stick/a.txt");
    // Watched from here on.
    QTRY_VERIFY_WITH_TIMEOUT((tree.file("r/probe.bin"), seen > 0), 60000);
    const auto content = [&] {
        return readIndex(tree.path("index.db")).value(path).content;
    };
    {
        const testsupport::PrivateMount mount(tree.path("disk"), tree.path("r/stick"));
        QVERIFY(mount.isMounted());
        QTRY_COMPARE_WITH_TIMEOUT(content(), QStringLiteral("on a disk"), 60000);
    }
    tree.file("r/second.bin");
    QTRY_VERIFY_WITH_TIMEOUT(readIndex(tree.path("index.db")).contains(tree.path("r/second.bin")),
                             60000);
    QCOMPARE(content(), QStringLiteral("on a disk"));
    watcher.stop();
}

int main(int argc, char *argv[])
{
    privateMounts = testsupport::enterPrivateMounts();
    QCoreApplication application(argc, argv);
    TestResultCheck test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_resultcheck.moc"
