#include "core/workerthread.h"
#include "search/searchindexdb.h"
#include "search/searchworker.h"
#include "support/temptree.h"

#include <QtTest>

namespace {

struct Answer
{
    QVariantList results;
    QString error;
};

struct Stats
{
    qint64 files;
    qint64 texts;
    qint64 updatedMs;
    bool ok;
};

QStringList names(const Answer &answer)
{
    QStringList found;
    for (const QVariant &result : answer.results)
        found.append(result.toMap().value(QStringLiteral("name")).toString());
    return found;
}

} // namespace

/// Calls the workers as the page does: by name, queued, each on a thread of its own.
class TestSearchWorker : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void answersFromTheIndex();
    void makesAMissingDatabase();
    void givesNothingForLimitZero();
    void tellsWhyItCannotOpen();
    void answersEveryRequestInOrder();

private:
    void startWorkers(const QString &dbPath);
    static void search(QObject *worker, const QString &keyword, int limit,
                       const QString &refine = QString());
    void fillIndex();

    // The threads are last, so that they end before what the workers report to goes.
    QScopedPointer<TempTree> m_tree;
    QString m_dbPath;
    QList<Answer> m_nameAnswers;
    QList<Answer> m_textAnswers;
    QList<Stats> m_stats;
    FileNameSearchWorker *m_nameWorker = nullptr;
    FullTextSearchWorker *m_textWorker = nullptr;
    QScopedPointer<core::WorkerThread> m_nameThread;
    QScopedPointer<core::WorkerThread> m_textThread;
};

void TestSearchWorker::init()
{
    m_nameThread.reset();
    m_textThread.reset();
    m_tree.reset(new TempTree);
    m_dbPath = m_tree->path(QStringLiteral("index.db"));
    m_nameAnswers.clear();
    m_textAnswers.clear();
    m_stats.clear();
}

void TestSearchWorker::startWorkers(const QString &dbPath)
{
    m_nameWorker = new FileNameSearchWorker(dbPath);
    m_textWorker = new FullTextSearchWorker(dbPath);
    connect(m_nameWorker, &FileNameSearchWorker::searchCompleted, this,
            [this](const QVariantList &results, const QString &error) {
                m_nameAnswers.append({results, error});
            });
    connect(m_textWorker, &FullTextSearchWorker::searchCompleted, this,
            [this](const QVariantList &results, const QString &error) {
                m_textAnswers.append({results, error});
            });
    connect(m_nameWorker, &FileNameSearchWorker::statsReady, this,
            [this](qint64 files, qint64 texts, qint64 updatedMs, bool ok) {
                m_stats.append({files, texts, updatedMs, ok});
            });
    m_nameThread.reset(new core::WorkerThread);
    m_textThread.reset(new core::WorkerThread);
    m_nameThread->start(m_nameWorker, QStringLiteral("names"));
    m_textThread->start(m_textWorker, QStringLiteral("texts"));
}

void TestSearchWorker::search(QObject *worker, const QString &keyword, int limit,
                              const QString &refine)
{
    QVERIFY(QMetaObject::invokeMethod(worker, "search", Qt::QueuedConnection,
                                      Q_ARG(QString, keyword), Q_ARG(int, limit),
                                      Q_ARG(QString, refine)));
}

void TestSearchWorker::fillIndex()
{
    SearchIndexDB db(m_dbPath);
    const QFileInfo report(m_tree->file(QStringLiteral("report-march.txt")));
    const QFileInfo notes(m_tree->file(QStringLiteral("report-notes.txt")));
    QVERIFY(db.upsertFile(report, QStringLiteral("the harvest was good")));
    QVERIFY(db.upsertFile(notes, QString()));
}

void TestSearchWorker::answersFromTheIndex()
{
    fillIndex();
    startWorkers(m_dbPath);
    search(m_nameWorker, QStringLiteral("report"), 200, QStringLiteral("march"));
    search(m_textWorker, QStringLiteral("harvest"), 100);
    QVERIFY(QMetaObject::invokeMethod(m_nameWorker, "queryStats", Qt::QueuedConnection));

    QTRY_COMPARE(m_nameAnswers.size(), 1);
    QCOMPARE(names(m_nameAnswers[0]), QStringList{QStringLiteral("report-march.txt")});
    QCOMPARE(m_nameAnswers[0].error, QString());
    QTRY_COMPARE(m_textAnswers.size(), 1);
    QCOMPARE(names(m_textAnswers[0]), QStringList{QStringLiteral("report-march.txt")});
    QCOMPARE(m_textAnswers[0].results[0].toMap().value(QStringLiteral("snippet")).toString(),
             QStringLiteral("the <b>harvest</b> was good"));
    QTRY_COMPARE(m_stats.size(), 1);
    QVERIFY(m_stats[0].ok);
    QCOMPARE(m_stats[0].files, 2);
    QCOMPARE(m_stats[0].texts, 1);
    QVERIFY(qAbs(m_stats[0].updatedMs - QDateTime::currentMSecsSinceEpoch()) < 60000);
}

void TestSearchWorker::makesAMissingDatabase()
{
    startWorkers(m_dbPath);
    search(m_nameWorker, QStringLiteral("a"), 10);
    QTRY_COMPARE(m_nameAnswers.size(), 1);
    search(m_textWorker, QStringLiteral("a"), 10);
    QTRY_COMPARE(m_textAnswers.size(), 1);
    for (const Answer &answer : {m_nameAnswers[0], m_textAnswers[0]}) {
        QVERIFY(answer.results.isEmpty());
        QCOMPARE(answer.error, QString());
    }
    QVERIFY(QFileInfo::exists(m_dbPath));
}

void TestSearchWorker::givesNothingForLimitZero()
{
    fillIndex();
    startWorkers(m_dbPath);
    search(m_nameWorker, QStringLiteral("report"), 0);
    search(m_textWorker, QStringLiteral("harvest"), 0);
    QTRY_COMPARE(m_nameAnswers.size(), 1);
    QTRY_COMPARE(m_textAnswers.size(), 1);
    QVERIFY(m_nameAnswers[0].results.isEmpty() && m_nameAnswers[0].error.isEmpty());
    QVERIFY(m_textAnswers[0].results.isEmpty() && m_textAnswers[0].error.isEmpty());
}

void TestSearchWorker::tellsWhyItCannotOpen()
{
    startWorkers(m_tree->path(QStringLiteral("no/such/dir/index.db")));
    search(m_nameWorker, QStringLiteral("a"), 10);
    search(m_textWorker, QStringLiteral("a"), 10);
    QVERIFY(QMetaObject::invokeMethod(m_nameWorker, "queryStats", Qt::QueuedConnection));
    QTRY_COMPARE(m_nameAnswers.size(), 1);
    QTRY_COMPARE(m_textAnswers.size(), 1);
    QVERIFY(!m_nameAnswers[0].error.isEmpty());
    QVERIFY(!m_textAnswers[0].error.isEmpty());
    QTRY_COMPARE(m_stats.size(), 1);
    QVERIFY(!m_stats[0].ok);
}

void TestSearchWorker::answersEveryRequestInOrder()
{
    fillIndex();
    startWorkers(m_dbPath);
    const QStringList keywords{QStringLiteral("march"), QStringLiteral("notes"),
                               QStringLiteral("nothing"), QStringLiteral("march")};
    for (const QString &keyword : keywords)
        search(m_nameWorker, keyword, 10);
    QTRY_COMPARE(m_nameAnswers.size(), 4);
    QCOMPARE(names(m_nameAnswers[0]), QStringList{QStringLiteral("report-march.txt")});
    QCOMPARE(names(m_nameAnswers[1]), QStringList{QStringLiteral("report-notes.txt")});
    QCOMPARE(names(m_nameAnswers[2]), QStringList());
    QCOMPARE(names(m_nameAnswers[3]), QStringList{QStringLiteral("report-march.txt")});
}

QTEST_GUILESS_MAIN(TestSearchWorker)
#include "tst_searchworker.moc"
