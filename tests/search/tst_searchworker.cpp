#include "core/workerthread.h"
#include "search/searchindexdb.h"
#include "search/searchworker.h"
#include "support/temptree.h"

#include <QtTest>

/// Calls the workers as the page does: by name, queued, each on a thread of its own.
class TestSearchWorker : public QObject
{
    Q_OBJECT

private slots:
    void answers_data();
    void answers();
};

void TestSearchWorker::answers_data()
{
    QTest::addColumn<QString>("database");
    QTest::addColumn<QString>("keyword");
    QTest::addColumn<int>("limit");
    QTest::addColumn<QString>("refine");
    QTest::addColumn<int>("nameHits");
    QTest::addColumn<int>("textHits");
    QTest::addColumn<bool>("opens");
    const auto row = [](const char *name, const char *database, const char *keyword, int limit,
                        const char *refine, int nameHits, int textHits, bool opens = true) {
        QTest::newRow(name) << database << keyword << limit << refine << nameHits << textHits
                            << opens;
    };
    row("found", "index.db", "harvest", 200, "", 2, 1);
    row("refined", "index.db", "harvest", 200, "march", 1, 1);
    row("limited", "index.db", "harvest", 1, "", 1, 1);
    row("limit 0", "index.db", "harvest", 0, "", 0, 0);
    row("a missing database is made", "new.db", "harvest", 200, "", 0, 0);
    row("an unusable one is told", "no/such/dir/index.db", "harvest", 200, "", 0, 0, false);
}

void TestSearchWorker::answers()
{
    QFETCH(QString, database);
    QFETCH(QString, keyword);
    QFETCH(int, limit);
    QFETCH(QString, refine);
    QFETCH(int, nameHits);
    QFETCH(bool, opens);
    TempTree tree;
    {
        SearchIndexDB db(tree.path("index.db"));
        QVERIFY(db.upsertFile(QFileInfo(tree.file("harvest-march.txt")),
                              QStringLiteral("the harvest was good")));
        QVERIFY(db.upsertFile(QFileInfo(tree.file("harvest-notes.txt")), QString()));
    }
    const QString path = tree.path(database);
    auto *nameWorker = new FileNameSearchWorker(path);
    auto *textWorker = new FullTextSearchWorker(path);
    QList<QVariantList> names;
    QList<QVariantList> texts;
    QStringList errors;
    QVariantList stats;
    connect(nameWorker, &FileNameSearchWorker::searchCompleted, this,
            [&](const QVariantList &results, const QString &error) {
                names.append(results);
                errors.append(error);
            });
    connect(textWorker, &FullTextSearchWorker::searchCompleted, this,
            [&](const QVariantList &results, const QString &error) {
                texts.append(results);
                errors.append(error);
            });
    connect(nameWorker, &FileNameSearchWorker::statsReady, this,
            [&](qint64 files, qint64 withText, qint64, bool ok) {
                stats = QVariantList{files, withText, ok};
            });
    core::WorkerThread nameThread;
    core::WorkerThread textThread;
    nameThread.start(nameWorker, QStringLiteral("names"));
    textThread.start(textWorker, QStringLiteral("texts"));
    // The second name search is answered too, and after the first.
    for (QObject *worker : std::initializer_list<QObject *>{nameWorker, textWorker, nameWorker}) {
        QVERIFY(QMetaObject::invokeMethod(worker, "search", Qt::QueuedConnection,
                                          Q_ARG(QString, keyword), Q_ARG(int, limit),
                                          Q_ARG(QString, refine)));
    }
    QVERIFY(QMetaObject::invokeMethod(nameWorker, "queryStats", Qt::QueuedConnection));

    QTRY_COMPARE(stats.size(), 3);
    QTRY_COMPARE(texts.size(), 1);
    QCOMPARE(names.size(), 2);
    QCOMPARE(names.at(0).size(), nameHits);
    QCOMPARE(names.at(1), names.at(0));
    QTEST(texts.at(0).size(), "textHits");
    if (!texts.at(0).isEmpty())
        QCOMPARE(texts.at(0).at(0).toMap().value(QStringLiteral("snippet")).toString(),
                 QStringLiteral("the <b>harvest</b> was good"));
    for (const QString &error : qAsConst(errors))
        QCOMPARE(error.isEmpty(), opens);
    const int files = database == QLatin1String("index.db") ? 2 : 0;
    QCOMPARE(stats, (QVariantList{files, files / 2, opens}));
    QCOMPARE(QFileInfo::exists(path), opens);
}

QTEST_GUILESS_MAIN(TestSearchWorker)
#include "tst_searchworker.moc"
