#include "search/extractiontask.h"
#include "search/indexbuilder.h"
#include "search/searchindexdb.h"
#include "support/indexsnapshot.h"
#include "support/temptree.h"

#include <QtTest>

#include <thread>

namespace {

const int maxContentBytes = 16384;

struct Progress
{
    int files;
    QString text;
};

/// Runs builds on the calling thread and keeps what the builder reported.
class BuildRun
{
public:
    explicit BuildRun(const QString &dbPath)
        : builder(new IndexBuilder(dbPath))
    {
        QObject::connect(builder.data(), &IndexBuilder::progressChanged, builder.data(),
                         [this](int files, const QString &text) {
                             progress.append({files, text});
                             if (onProgress)
                                 onProgress(files, text);
                         });
        QObject::connect(builder.data(), &IndexBuilder::toolsMissing, builder.data(),
                         [this](const QStringList &lines) { toolLines.append(lines); });
        QObject::connect(builder.data(), &IndexBuilder::indexDamaged, builder.data(),
                         [this] { ++damages; });
        QObject::connect(builder.data(), &IndexBuilder::finished, builder.data(),
                         [this](bool ok, const QString &text) {
                             ++ends;
                             success = ok;
                             message = text;
                         });
    }

    void build(const QStringList &roots, const QStringList &excludeDirs = {},
               const QStringList &ftsExtensions = {})
    {
        progress.clear();
        damages = 0;
        ends = 0;
        builder->startBuild(roots, excludeDirs, {}, ftsExtensions, maxBytes);
    }

    QStringList texts() const
    {
        QStringList all;
        for (const Progress &step : progress)
            all.append(step.text);
        return all;
    }

    const QScopedPointer<IndexBuilder> builder;
    int maxBytes = maxContentBytes;
    std::function<void(int, const QString &)> onProgress;
    QList<Progress> progress;
    QStringList toolLines;
    int damages = 0;
    int ends = 0;
    bool success = false;
    QString message;
};

QString completed(int files)
{
    return QStringLiteral("索引构建完成，共 %1 个文件").arg(files);
}

const QString cancelled = QStringLiteral("索引构建已取消");

} // namespace

class TestIndexBuilder : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void walksEachRootOnce_data();
    void walksEachRootOnce();
    void leavesOutWhatIsExcluded();
    void fillsRowsAndTexts();
    void storesTargetPaths();
    void reportsProgressInBatches();
    void refreshFollowsTheFiles();
    void refreshKeepsRowsOfRootsThatAreNotThere();
    void refreshOfUnchangedFilesWritesNothing();
    void refreshReadsAnewWhatIsReadInAnotherWay();
    void rebuildStartsAfresh();
    void stopDuringTheWalkKeepsRows();
    void stopEndsAHangingTool();
    void endsWithItsThread();
    void reportsFailures_data();
    void reportsFailures();
    void reportsAnUnusableDatabase();
    void tellsDamageFromOtherFailures_data();
    void tellsDamageFromOtherFailures();
    void extractionWaitsForTheWriter();

private:
    QString at(const TreePath &relative) const { return m_tree->path(relative); }
    IndexSnapshot rows() const { return readIndex(m_dbPath); }

    TempTree m_tools;
    QScopedPointer<TempTree> m_tree;
    QString m_dbPath;
};

/// Tools are looked for once a run, so the fake one must be there before the first build.
void TestIndexBuilder::initTestCase()
{
    m_tools.script("pdftotext", "case \"$4\" in\n"
                                "*hang*) : >\"$(dirname \"$0\")/hanging\"; exec sleep 600 ;;\n"
                                "*bad*) exit 1 ;;\n"
                                "esac\n"
                                "echo \"pages of $(basename \"$4\")\"\n");
    qputenv("PATH", QFile::encodeName(m_tools.path()) + ':' + qgetenv("PATH"));
}

void TestIndexBuilder::init()
{
    m_tree.reset(new TempTree);
    m_dbPath = at("state/index.db");
    m_tree->dir("state");
}

void TestIndexBuilder::walksEachRootOnce_data()
{
    QTest::addColumn<QStringList>("roots");
    QTest::addColumn<QStringList>("files");

    const auto words = [](const char *text) {
        QStringList list = QString::fromUtf8(text).split(QLatin1Char(' '));
        list.removeAll(QString());
        return list;
    };
    const auto row = [&words](const char *name, const char *roots, const char *files) {
        QTest::newRow(name) << words(roots) << words(files);
    };
    row("one", "a", "a/1 a/b/2 a/b/3");
    row("inner after outer", "a a/b", "a/1 a/b/2 a/b/3");
    row("inner before outer", "a/b a", "a/1 a/b/2 a/b/3");
    row("same twice, not clean", "a a/ a/b/..", "a/1 a/b/2 a/b/3");
    row("name that only begins alike", "a ab", "a/1 a/b/2 a/b/3 ab/4");
    row("missing is dropped", "no/where ab", "ab/4");
    row("a file is no root", "a/1 ab", "ab/4");
    row("none", "no/where", "");
}

void TestIndexBuilder::walksEachRootOnce()
{
    QFETCH(QStringList, roots);
    QFETCH(QStringList, files);
    for (const char *file : {"a/1", "a/b/2", "a/b/3", "ab/4"})
        m_tree->file(file);
    QStringList paths{QString(), QStringLiteral("  ")};
    for (const QString &root : qAsConst(roots))
        paths.append(QLatin1Char(' ') + m_tree->path(root));
    QStringList expected;
    for (const QString &file : qAsConst(files))
        expected.append(m_tree->path(file));

    BuildRun run(m_dbPath);
    run.build(paths);
    QCOMPARE(run.ends, 1);
    QVERIFY2(run.success, qPrintable(run.message));
    QCOMPARE(run.message, completed(files.size()));
    QCOMPARE(QStringList(rows().keys()), expected);
}

void TestIndexBuilder::leavesOutWhatIsExcluded()
{
    const QStringList kept{QStringLiteral("r/keep.txt"), QStringLiteral("r/sub/keep.txt"),
                           QStringLiteral("r/subway/keep.txt"), QStringLiteral("r/Skip/keep.txt")};
    for (const QString &file : kept)
        m_tree->file(file);
    for (const char *file : {"r/skip/a", "r/sub/skip/deep/b", "r/sub/out/c", "r/sub/alone.txt",
                             "r/name.tmp", "r/.~lock.doc", "r/.hidden/d"})
        m_tree->file(file);
    m_tree->fifo("r/pipe.txt");
    BuildRun run(m_dbPath);
    run.build({at("r")},
              {QStringLiteral(" skip/ "), at("r/sub/out"), at("r/sub/alone.txt"), QString(),
               QStringLiteral("name.tmp")},
              {QStringLiteral("txt")});
    QCOMPARE(run.message, completed(kept.size()));
    QStringList expected;
    for (const QString &file : kept)
        expected.append(m_tree->path(file));
    expected.sort();
    QCOMPARE(QStringList(rows().keys()), expected);

    // A root that lies in an excluded place, or is one.
    const QString other = at("state/other.db");
    BuildRun nothing(other);
    nothing.build({at("r/sub"), at("r/skip")}, {QStringLiteral("skip"), at("r/sub")});
    QCOMPARE(nothing.message, completed(0));
}

/// The whole database against the whole tree.
void TestIndexBuilder::fillsRowsAndTexts()
{
    IndexSnapshot expected;
    const auto add = [&](const char *relative, const QByteArray &content, const char *category,
                         const QString &text) {
        const QString path = m_tree->file(relative, content);
        expected.insert(path, expectedRow(path, QString::fromLatin1(category), text));
    };
    add("r/notes.TXT", "first line", "document", QStringLiteral("first line"));
    add("r/空白.md", QByteArrayLiteral("墨川"), "document", QStringLiteral("墨川"));
    add("r/d/paper.pdf", "%PDF", "document", QStringLiteral("pages of paper.pdf\n"));
    add("r/bad.pdf", "%PDF", "document", QString());
    add("r/empty.txt", "", "document", QString());
    add("r/main.cpp", "int main;", "code", QString());
    add("r/photo.jpeg", "x", "image", QString());
    add("r/none", "x", "other", QString());
    const QString linked = m_tree->link("r/linked.txt", at("r/notes.TXT"));
    expected.insert(linked,
                    expectedRow(linked, QStringLiteral("document"), QStringLiteral("first line")));

    BuildRun run(m_dbPath);
    run.build({at("r")}, {},
              {QStringLiteral(" .Txt"), QStringLiteral("md"), QStringLiteral("PDF")});
    QVERIFY2(run.success, qPrintable(run.message));
    const IndexSnapshot found = rows();
    QCOMPARE(found.keys(), expected.keys());
    for (auto it = expected.cbegin(); it != expected.cend(); ++it)
        QVERIFY2(found.value(it.key()) == it.value(), qPrintable(it.key()));
    QCOMPARE(run.texts().filter(QStringLiteral("（6 / 6）")).size(), 1);
}

void TestIndexBuilder::storesTargetPaths()
{
    m_tree->file("target/home/u/x.txt", "found");
    BuildRun run(m_dbPath);
    run.builder->setStoredPathPrefix(at("target"));
    run.build({at("target/home")}, {}, {QStringLiteral("txt")});
    const IndexSnapshot found = rows();
    QCOMPARE(QStringList(found.keys()), QStringList{QStringLiteral("/home/u/x.txt")});
    QCOMPARE(found.first().content, QStringLiteral("found"));
}

void TestIndexBuilder::reportsProgressInBatches()
{
    for (int i = 0; i < 1203; ++i)
        m_tree->file(QStringLiteral("r/d%1/f%2.txt").arg(i % 7).arg(i), "word");
    BuildRun run(m_dbPath);
    run.build({at("r")}, {}, {QStringLiteral("txt")});
    QCOMPARE(run.message, completed(1203));

    QList<int> counts;
    for (const Progress &step : qAsConst(run.progress)) {
        if (step.text.startsWith(at("r/")))
            counts.append(step.files);
    }
    QCOMPARE(counts, (QList<int>{500, 1000, 1203}));
    QCOMPARE(run.progress.first().files, 0);
    QCOMPARE(run.progress.first().text, QStringLiteral("正在扫描文件系统..."));
    QCOMPARE(run.progress.at(4).text, QStringLiteral("正在提取文件内容（0 / 1203）..."));
    QCOMPARE(run.progress.at(run.progress.size() - 2).text,
             QStringLiteral("正在提取文件内容（1203 / 1203）..."));
    QCOMPARE(run.progress.last().text, QStringLiteral("正在优化数据库..."));
    QCOMPARE(run.progress.last().files, 1203);
}

void TestIndexBuilder::refreshFollowsTheFiles()
{
    const QString kept = m_tree->file("r/kept.txt", "old");
    const QString gone = m_tree->file("r/gone.txt", "was here");
    const QString hidden = m_tree->file("r/private/diary.txt", "mine");
    BuildRun run(m_dbPath);
    run.build({at("r")}, {}, {QStringLiteral("txt")});
    QCOMPARE(rows().size(), 3);
    m_tree->remove("r/gone.txt");
    m_tree->file("r/kept.txt", "renewed");
    run.build({at("r")}, {QStringLiteral("private")});
    QCOMPARE(run.message, completed(1));
    QVERIFY(run.texts().filter(QStringLiteral("提取")).isEmpty()); // no types, no texts
    QCOMPARE(rows().value(kept).content, QStringLiteral("old"));
    QCOMPARE(rows().value(kept).size, 7);
    QVERIFY(!rows().contains(gone));
    QVERIFY(!rows().contains(hidden));
    run.build({at("r")}, {}, {QStringLiteral("txt")});
    QCOMPARE(rows().value(kept).content, QStringLiteral("renewed"));
    m_tree->file("r/kept.txt", QByteArray());
    run.build({at("r")}, {}, {QStringLiteral("txt")});
    QCOMPARE(rows().value(kept).content, QString());
}

void TestIndexBuilder::refreshKeepsRowsOfRootsThatAreNotThere()
{
    const QStringList roots{at("r"), at("emptied"), at("missing")};
    m_tree->file("r/a");
    m_tree->file("r/b");
    const QString emptied = m_tree->file("emptied/a");
    const QString missing = m_tree->file("missing/a");
    BuildRun run(m_dbPath);
    run.build(roots);
    m_tree->remove("r/b");
    m_tree->remove("emptied/a");
    m_tree->move("missing", "elsewhere");
    run.build(roots);
    QCOMPARE(QStringList(rows().keys()), (QStringList{emptied, missing, at("r/a")}));
}

void TestIndexBuilder::refreshOfUnchangedFilesWritesNothing()
{
    for (int i = 0; i < 300; ++i) {
        m_tree->file(QStringLiteral("r/d%1/f%2.txt").arg(i % 7).arg(i),
                     QByteArray("一些文字 and words ").repeated(40) + QByteArray::number(i));
        m_tree->file(QStringLiteral("r/d%1/f%2.bin").arg(i % 7).arg(i));
    }
    const auto written = [] {
        QFile io(QStringLiteral("/proc/self/io"));
        const QByteArray text = io.open(QIODevice::ReadOnly) ? io.readAll() : QByteArray();
        return text.mid(text.indexOf("wchar: ") + 7).split('\n').first().toLongLong();
    };
    BuildRun run(m_dbPath);
    run.build({at("r")}, {}, {QStringLiteral("txt")});
    const IndexSnapshot before = rows();
    const qint64 start = written();
    run.build({at("r")}, {}, {QStringLiteral("txt")});
    const qint64 bytes = written() - start;
    QCOMPARE(run.message, completed(600));
    QVERIFY(rows() == before);
    QVERIFY(run.texts().filter(QStringLiteral("提取")).isEmpty());
    QVERIFY2(bytes < QFileInfo(m_dbPath).size() / 100, qPrintable(QString::number(bytes)));
}

void TestIndexBuilder::refreshReadsAnewWhatIsReadInAnotherWay()
{
    const QString file = m_tree->file("r/a.txt", "long text of a file");
    BuildRun run(m_dbPath);
    run.maxBytes = 4;
    run.build({at("r")}, {}, {QStringLiteral("txt")});
    QCOMPARE(rows().value(file).content, QStringLiteral("long"));
    run.maxBytes = 16384;
    run.build({at("r")}, {}, {QStringLiteral("txt")});
    QCOMPARE(rows().value(file).content, QStringLiteral("long text of a file"));
}

void TestIndexBuilder::rebuildStartsAfresh()
{
    const QString file = m_tree->file("r/a.txt");
    BuildRun run(m_dbPath);
    run.build({at("r")});
    m_tree->move("r/a.txt", "r/b.txt");
    m_tree->file("state/index.db-wal", "stale");
    m_tree->file("state/index.db-shm", "stale");
    run.builder->removeDatabase();
    QVERIFY(QDir(at("state")).isEmpty());
    run.builder->removeDatabase(); // nothing there is no fault
    run.build({at("r")});
    QCOMPARE(QStringList(rows().keys()), QStringList{at("r/b.txt")});
    QVERIFY(!QFileInfo::exists(file));
}

void TestIndexBuilder::stopDuringTheWalkKeepsRows()
{
    for (int i = 0; i < 1100; ++i)
        m_tree->file(QStringLiteral("r/f%1").arg(i));
    BuildRun run(m_dbPath);
    run.builder->requestStop(); // of an earlier time: the build clears it
    run.onProgress = [&run](int files, const QString &) {
        if (files == 500)
            run.builder->requestStop();
    };
    run.build({at("r")});
    QCOMPARE(run.ends, 1);
    QVERIFY(!run.success);
    QCOMPARE(run.message, cancelled);
    QCOMPARE(rows().size(), 500);

    run.onProgress = nullptr;
    run.build({at("r")});
    QCOMPARE(run.message, completed(1100));
}

/// Told to stop from another thread while a tool hangs and others wait in the queue.
void TestIndexBuilder::stopEndsAHangingTool()
{
    for (int i = 0; i < 40; ++i)
        m_tree->file(QStringLiteral("r/hang%1.pdf").arg(i));
    BuildRun run(m_dbPath);
    std::thread stopper;
    bool hangs = false;
    QElapsedTimer sinceStop;
    run.onProgress = [&](int, const QString &text) {
        if (text == QStringLiteral("正在提取文件内容（0 / 40）...")) {
            stopper = std::thread([&] {
                hangs = QTest::qWaitFor([this] { return QFile::exists(m_tools.path("hanging")); });
                sinceStop.start();
                run.builder->requestStop();
            });
        }
    };
    run.build({at("r")}, {}, {QStringLiteral("pdf")});
    stopper.join();
    QVERIFY(hangs);
    // Without the stop a tool is waited for 15 s.
    QVERIFY2(sinceStop.elapsed() < 10000, qPrintable(QString::number(sinceStop.elapsed())));
    QCOMPARE(run.message, cancelled);
    QVERIFY(!run.success);
    QCOMPARE(rows().size(), 40);
}

/// Calls that still wait in the queue when the thread is told to end are given up.
void TestIndexBuilder::endsWithItsThread()
{
    m_tree->file("r/a.txt");
    BuildRun(m_dbPath).build({at("r")});
    auto *builder = new IndexBuilder(m_dbPath);
    QStringList messages;
    connect(builder, &IndexBuilder::finished, this,
            [&messages](bool, const QString &message) { messages.append(message); });
    QThread thread;
    builder->moveToThread(&thread);
    connect(&thread, &QThread::finished, builder, &QObject::deleteLater);
    QSemaphore entered;
    QSemaphore leave;
    const auto block = [&] {
        entered.release();
        leave.acquire();
    };
    QMetaObject::invokeMethod(builder, block, Qt::QueuedConnection);
    QMetaObject::invokeMethod(builder, "removeDatabase", Qt::QueuedConnection);
    QMetaObject::invokeMethod(builder, "startBuild", Qt::QueuedConnection,
                              Q_ARG(QStringList, {at("r")}), Q_ARG(QStringList, {}),
                              Q_ARG(QStringList, {}), Q_ARG(QStringList, {}), Q_ARG(int, 1));
    thread.start();
    entered.acquire();
    thread.requestInterruption();
    builder->requestStop();
    thread.quit();
    leave.release();
    QVERIFY(thread.wait(30000));
    QTRY_COMPARE(messages, QStringList{cancelled});
    QCOMPARE(rows().size(), 1);
}

void TestIndexBuilder::reportsFailures_data()
{
    QTest::addColumn<QString>("trigger");
    QTest::addColumn<QString>("message");
    QTest::addColumn<int>("rowCount");

    QTest::newRow("rows") << "BEFORE INSERT"
                          << "写入索引失败：" << 0;
    QTest::newRow("texts") << "BEFORE UPDATE OF content"
                           << "写入全文索引失败：" << 12;
}

/// A trigger stands for whatever makes a write fail, such as a full disk.
void TestIndexBuilder::reportsFailures()
{
    QFETCH(QString, trigger);
    QFETCH(QString, message);
    m_tree->file("r/a.txt", "text");
    for (int i = 0; i < 11; ++i)
        m_tree->file(QStringLiteral("r/hang%1.pdf").arg(i));
    QVERIFY(SearchIndexDB(m_dbPath).open());
    executeOn(m_dbPath, {QStringLiteral("CREATE TRIGGER full %1 ON file_index BEGIN SELECT "
                                        "RAISE(ABORT, 'disk is full'); END")
                             .arg(trigger)});
    QElapsedTimer timer;
    timer.start();
    BuildRun run(m_dbPath);
    // So many that the text is not kept waiting behind hanging tools.
    run.builder->setExtractionThreads(12);
    run.build({at("r")}, {}, {QStringLiteral("txt"), QStringLiteral("pdf")});
    QCOMPARE(run.ends, 1);
    QVERIFY(!run.success);
    QVERIFY2(run.message.startsWith(message) &&
                 run.message.contains(QStringLiteral("disk is full")),
             qPrintable(run.message));
    QTEST(rows().size(), "rowCount");
    QVERIFY2(timer.elapsed() < 5000, "hanging tools are not waited for");
}

void TestIndexBuilder::reportsAnUnusableDatabase()
{
    BuildRun run(at("no/such/dir/index.db"));
    run.build({m_tree->path()});
    QVERIFY(!run.success);
    QVERIFY2(run.message.startsWith(QStringLiteral("打开索引数据库失败：")) &&
                 run.message.size() > 12,
             qPrintable(run.message));
    QVERIFY(run.progress.isEmpty());

    m_tree->file("state/index.db", QByteArray(5000, 'x'));
    BuildRun damaged(m_dbPath);
    damaged.build({m_tree->path()});
    QVERIFY(damaged.message.startsWith(QStringLiteral("打开索引数据库失败：")));
}

void TestIndexBuilder::tellsDamageFromOtherFailures_data()
{
    QTest::addColumn<QString>("statement");
    QTest::addColumn<QString>("message");
    QTest::addColumn<int>("damages");
    const auto trigger = [](const char *text) {
        return QStringLiteral("CREATE TRIGGER t BEFORE UPDATE ON file_index BEGIN SELECT "
                              "RAISE(ABORT, '%1'); END")
            .arg(QLatin1String(text));
    };
    // Its parts are read and merged only when the changes are committed.
    QTest::newRow("damaged full text index")
        << "UPDATE content_fts_data SET block = x'00' WHERE id > 1"
        << "写入全文索引失败：更改无法保存" << 1;
    QTest::newRow("full text index without its parts") << "DROP TABLE content_fts_idx"
                                                       << "写入全文索引失败：" << 1;
    QTest::newRow("damaged table")
        << trigger("database disk image is malformed") << "写入索引失败：索引文件已损坏" << 1;
    QTest::newRow("full disk") << trigger("database or disk is full")
                               << "写入索引失败：磁盘空间不足" << 0;
    QTest::newRow("another program")
        << trigger("database is locked") << "写入索引失败：索引文件正被其他程序使用" << 0;
    QTest::newRow("another failure") << trigger("constraint") << "写入索引失败：constraint" << 0;
}

void TestIndexBuilder::tellsDamageFromOtherFailures()
{
    QFETCH(QString, statement);
    QFETCH(QString, message);
    m_tree->file("r/a.txt", "first text");
    BuildRun run(m_dbPath);
    run.build({at("r")}, {}, {QStringLiteral("txt")});
    QVERIFY(run.success);
    QCOMPARE(run.damages, 0);
    executeOn(m_dbPath, {statement});
    m_tree->file("r/a.txt", "second text");
    run.build({at("r")}, {}, {QStringLiteral("txt")});
    QVERIFY(!run.success);
    QVERIFY2(run.message.startsWith(message) && !run.message.contains(QLatin1String("commit")),
             qPrintable(run.message));
    QTEST(run.damages, "damages");
}

void TestIndexBuilder::extractionWaitsForTheWriter()
{
    std::atomic_bool stop{false};
    Extraction results(16384, stop);
    std::atomic_int appended{0};
    std::thread pool([&] {
        for (int i = 0; i < 40; ++i) {
            results.append({QString::number(i), QString(1024 * 1024, QLatin1Char('x'))});
            ++appended;
        }
    });
    // Held back at 8 Mi characters, and let go again each time they are taken.
    QTRY_COMPARE(int(appended), 8);
    QList<ExtractResult> all = results.takeResults();
    QCOMPARE(all.size(), 8);
    QTRY_COMPARE(int(appended), 16);
    stop = true;
    pool.join();
    all += results.takeResults();
    QCOMPARE(all.size(), 16); // what came after the stop is dropped
    for (int i = 0; i < all.size(); ++i)
        QCOMPARE(all[i].runtimePath, QString::number(i));
}

QTEST_GUILESS_MAIN(TestIndexBuilder)
#include "tst_indexbuilder.moc"
