#include "search/indexfailure.h"
#include "search/searchindexdb.h"
#include "support/rawdatabase.h"

#include <QProcess>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QtTest>

#include <functional>
#include <thread>

namespace {

constexpr int batchFiles = 40;

QString s(const char *text)
{
    return QString::fromUtf8(text);
}

QList<QFileInfo> batch(const QString &dir)
{
    QList<QFileInfo> files;
    for (int i = 0; i < batchFiles; ++i)
        files.append(QFileInfo(s("%1/%2.txt").arg(dir).arg(i)));
    return files;
}

// Later rows have smaller paths, so that the full text index gets its rows in falling order and
// has to write in the middle of a transaction.
QMap<QString, QString> texts(const QString &dir, const QString &word)
{
    QMap<QString, QString> contentByPath;
    for (int i = 0; i < batchFiles; ++i) {
        QString text = word;
        for (int n = 0; n < 300; ++n)
            text += s(" %1x%2").arg(word).arg(i * 1000 + n);
        contentByPath.insert(s("%1/%2.txt").arg(dir).arg(i), text);
    }
    return contentByPath;
}

/// Everything that the index holds: rows, and which document has which token.
QStringList contents(RawDatabase *raw)
{
    raw->rows(s("CREATE VIRTUAL TABLE IF NOT EXISTS temp.tokens USING "
                "fts5vocab(main, content_fts, instance)"));
    return raw->column(s("SELECT id || path || file_name || size || ifnull(content, '-') FROM "
                         "file_index ORDER BY id")) +
           raw->column(s("SELECT term || ' ' || doc FROM temp.tokens ORDER BY term, doc"));
}

// Batches until it is killed: rows, then texts, then a line on standard output.
int writeForever(const QString &path)
{
    SearchIndexDB index(path);
    QTextStream out(stdout);
    for (int i = 0;; ++i) {
        const QString dir = s("/%1").arg(i, 5, 10, QLatin1Char('0'));
        if (!index.upsertFileInfoBatch(batch(dir)) ||
            !index.updateFileContentBatch(texts(dir, s("w%1").arg(i))) || !index.removeFile(dir))
            return 1;
        out << '.' << flush;
    }
}

} // namespace

/// What goes wrong is told and leaves the index as it was.
class TestSearchIndexDbFailures : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void unusableFilesAreTold_data();
    void unusableFilesAreTold();
    void failedWritesLeaveEverything_data();
    void failedWritesLeaveEverything();
    void brokenFullTextIndexCostsNoText();
    void threadsShareAFile();
    void killedWriterLeavesWholeBatches();

private:
    QScopedPointer<QTemporaryDir> m_dir;
    QString m_path;
};

void TestSearchIndexDbFailures::init()
{
    m_dir.reset(new QTemporaryDir);
    m_path = m_dir->filePath(s("index.db"));
}

void TestSearchIndexDbFailures::unusableFilesAreTold_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("message");
    QTest::newRow("no directory") << s("none/index.db") << s("unable to open database file");
    QTest::newRow("a directory") << s(".") << s("unable to open database file");
    QTest::newRow("no database") << s("garbage") << s("file is not a database");
}

void TestSearchIndexDbFailures::unusableFilesAreTold()
{
    QFETCH(QString, path);
    QFETCH(QString, message);
    QFile garbage(m_dir->filePath(s("garbage")));
    QVERIFY(garbage.open(QIODevice::ReadWrite));
    QVERIFY(garbage.write(QByteArray(5000, 'g')) == 5000 && garbage.flush());
    SearchIndexDB index(m_dir->filePath(path));
    const QList<std::function<bool(QString *)>> calls{
        [&](QString *e) { return index.open(e); },
        [&](QString *e) { return index.upsertFileInfoBatch(batch(s("/a")), e); },
        [&](QString *e) { return index.updateFileContentBatch(texts(s("/a"), s("b")), e); },
        [&](QString *e) { return index.upsertFile(QFileInfo(s("/a")), s("b"), e); },
        [&](QString *e) { return index.removeFile(s("/a"), e); },
        [&](QString *e) { return index.removeByPathPrefix(s("/a"), e); },
        [&](QString *e) { return index.vacuum(e); },
        [&](QString *e) { return index.indexStats(e).value(s("fileCount")).toInt() > 0; },
        [&](QString *e) { return !index.queryByName(s("a"), 9, QString(), e).isEmpty(); },
        [&](QString *e) {
            return !index.queryByContent(s("a"), 9, QString(), e).isEmpty();
        }};
    for (const auto &call : calls) {
        QString error;
        QVERIFY(!call(&error));
        QVERIFY2(error.contains(message), qPrintable(error));
    }
    QCOMPARE(QSqlDatabase::connectionNames(), QStringList());
    QVERIFY(garbage.seek(0));
    QCOMPARE(garbage.readAll(), QByteArray(5000, 'g'));
}

void TestSearchIndexDbFailures::failedWritesLeaveEverything_data()
{
    QTest::addColumn<QString>("obstacle"); // run on the connection of the index
    QTest::addColumn<QString>("message");
    const QString readOnly = s("PRAGMA query_only = ON");
    QTest::newRow("read only") << readOnly << s("readonly");
    QTest::newRow("no transaction") << s("BEGIN") << s("within a transaction");
    QTest::newRow("disk full") << s("PRAGMA max_page_count = 1") << s("full|commit failed");
    QTest::newRow("locked") << s("PRAGMA busy_timeout = 20") << s("locked");
    QTest::newRow("one bad row")
        << s("CREATE TEMP TRIGGER t BEFORE UPDATE ON file_index WHEN new.path LIKE '%/7.txt' BEGIN "
             "SELECT RAISE(ABORT, 'bad row'); END")
        << s("bad row");
}

void TestSearchIndexDbFailures::failedWritesLeaveEverything()
{
    QFETCH(QString, obstacle);
    QFETCH(QString, message);
    SearchIndexDB index(m_path);
    QList<QFileInfo> files = batch(s("/a"));
    std::reverse(files.begin(), files.end());
    QVERIFY(index.upsertFileInfoBatch(files));
    QVERIFY(index.updateFileContentBatch(texts(s("/a"), s("old"))));
    QVERIFY(index.vacuum());
    const QString own = QSqlDatabase::connectionNames().value(0);
    RawDatabase raw(m_path);
    const QStringList before = contents(&raw);
    QVERIFY(before.size() > 300 * batchFiles);

    QVERIFY(QSqlQuery(QSqlDatabase::database(own)).exec(obstacle));
    RawDatabase other(m_path);
    if (message == s("locked"))
        other.rows(s("BEGIN IMMEDIATE"));
    QList<QFileInfo> more = batch(s("/b"));
    for (int i = 0; i < 60; ++i)
        more += batch(s("/c%1").arg(i));
    const QList<std::function<bool(QString *)>> calls{
        [&](QString *e) { return index.upsertFileInfoBatch(more + files, e); },
        [&](QString *e) {
            return index.updateFileContentBatch(texts(s("/a"), s("newer")), e);
        }};
    for (const auto &call : calls) {
        QString error;
        QVERIFY(!call(&error));
        QVERIFY2(error.contains(QRegularExpression(message)), qPrintable(error));
        if (error == SearchIndexDB::commitFailed())
            error = index.commitError();
        if (message.startsWith(s("full")))
            QCOMPARE(search::indexFailure(error), search::IndexFailure::DiskFull);
        QCOMPARE(contents(&raw), before);
    }
    if (message == s("locked"))
        other.rows(s("ROLLBACK"));
    index.close();
    QVERIFY(index.updateFileContentBatch(texts(s("/a"), s("newer"))));
    QCOMPARE(index.queryByContent(s("newer"), 100, QString()).size(), batchFiles);
}

void TestSearchIndexDbFailures::brokenFullTextIndexCostsNoText()
{
    SearchIndexDB index(m_path);
    QVERIFY(index.upsertFile(QFileInfo(s("/a")), s("old")));
    RawDatabase(m_path).rows(s("DROP TABLE content_fts"));
    QString error;
    QVERIFY(index.updateFileContentBatch({{s("/a"), s("new text")}}, &error));
    QCOMPARE(index.queryByContent(s("text"), 9, QString(), &error).size(), 1);
    QCOMPARE(error, QString());
}

// Every batch is seen whole or not at all. A write that meets another one may fail at once; then it
// has done nothing and can be repeated.
void TestSearchIndexDbFailures::threadsShareAFile()
{
    constexpr int batches = 15;
    const auto write = [this](const QString &top) {
        SearchIndexDB index(m_path);
        QElapsedTimer clock;
        clock.start();
        for (int i = 0; i < batches && clock.elapsed() < 60000;) {
            const QString dir = s("/%1%2").arg(top).arg(i);
            if (index.upsertFileInfoBatch(batch(dir)) &&
                index.updateFileContentBatch(texts(dir, top)))
                ++i;
            else
                QThread::yieldCurrentThread();
        }
        return int(clock.elapsed());
    };
    const auto read = [this] {
        SearchIndexDB index(m_path);
        int halves = 0;
        for (int i = 0; i < 20; ++i) {
            QString error;
            halves += index.queryByName(s("txt"), 100000, QString(), &error).size() % batchFiles;
            halves +=
                index.queryByContent(s("left"), 100000, QString(), &error).size() % batchFiles;
            halves += error.isEmpty() ? 0 : 1;
        }
        return halves;
    };
    QVERIFY(SearchIndexDB(m_path).open());
    int leftMs = 0;
    int rightMs = 0;
    int halves = 0;
    std::thread left([&] { leftMs = write(s("left")); });
    std::thread right([&] { rightMs = write(s("right")); });
    std::thread reader([&] { halves = read(); });
    left.join();
    right.join();
    reader.join();
    QVERIFY(leftMs < 60000 && rightMs < 60000);
    QCOMPARE(halves, 0);
    RawDatabase(m_path).rows(s("INSERT INTO content_fts(content_fts) VALUES('integrity-check')"));
    QCOMPARE(SearchIndexDB(m_path).indexStats().value(s("ftsCount")).toInt(),
             2 * batches * batchFiles);
}

void TestSearchIndexDbFailures::killedWriterLeavesWholeBatches()
{
    for (int batches : {1, 3, 8}) {
        init();
        QProcess writer;
        writer.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        writer.start(QCoreApplication::applicationFilePath(), {s("--write"), m_path});
        QTRY_VERIFY(writer.bytesAvailable() >= batches);
        writer.kill();
        QVERIFY(writer.waitForFinished());
        QCOMPARE(writer.exitStatus(), QProcess::CrashExit);
        const int told = writer.readAllStandardOutput().size();

        SearchIndexDB index(m_path);
        QString error;
        QVERIFY2(index.open(&error), qPrintable(error));
        RawDatabase raw(m_path);
        QCOMPARE(raw.column(s("PRAGMA integrity_check")), QStringList{s("ok")});
        raw.rows(s("INSERT INTO content_fts(content_fts) VALUES('integrity-check')"));
        QVERIFY(index.indexStats().value(s("ftsCount")).toInt() >= told * batchFiles);
        QCOMPARE(raw.column(s("SELECT DISTINCT count(*) FROM file_index "
                              "GROUP BY substr(path, 1, 6)")),
                 QStringList{QString::number(batchFiles)});
        // Tokens and texts are of the same batches.
        const QStringList whole = raw.column(s("SELECT min(id) FROM file_index WHERE content NOT "
                                               "NULL GROUP BY substr(path, 1, 6)"));
        QCOMPARE(raw.column(s("SELECT count(*) FROM content_fts_docsize")),
                 QStringList{QString::number(whole.size() * batchFiles)});
        QVERIFY(index.upsertFile(QFileInfo(s("/after")), s("after")));
    }
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    if (argc == 3 && qstrcmp(argv[1], "--write") == 0)
        return writeForever(QString::fromLocal8Bit(argv[2]));
    TestSearchIndexDbFailures test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_searchindexdb_failures.moc"
