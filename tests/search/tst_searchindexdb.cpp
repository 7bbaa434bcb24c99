#include "search/searchindexdb.h"
#include "support/rawdatabase.h"
#include "support/temptree.h"

#include <QSqlDatabase>
#include <QtTest>

#include <random>

namespace {

QString s(const char *text)
{
    return QString::fromUtf8(text);
}

// As SQLite keeps them, sorted by name.
const QStringList schema{
    s("CREATE TABLE file_index(id INTEGER PRIMARY KEY AUTOINCREMENT,path TEXT NOT NULL UNIQUE,"
      "file_name TEXT NOT NULL,ext TEXT,category TEXT DEFAULT 'other',size INTEGER NOT NULL "
      "DEFAULT 0,modified_ms INTEGER NOT NULL DEFAULT 0,indexed_at TEXT,content TEXT)"),
    s("CREATE TRIGGER fts_ad AFTER DELETE ON file_index WHEN old.content IS NOT NULL AND "
      "length(old.content) > 0 BEGIN INSERT INTO content_fts(content_fts, rowid, content) "
      "VALUES('delete', old.id, old.content); END"),
    s("CREATE TRIGGER fts_ai AFTER INSERT ON file_index WHEN new.content IS NOT NULL AND "
      "length(new.content) > 0 BEGIN INSERT INTO content_fts(rowid, content) VALUES(new.id, "
      "new.content); END"),
    s("CREATE INDEX idx_file_index_ext ON file_index(ext)"),
    s("CREATE INDEX idx_file_index_modified ON file_index(modified_ms)"),
    s("CREATE INDEX idx_file_index_name ON file_index(file_name COLLATE NOCASE)"),
    s("CREATE TABLE index_meta(key TEXT PRIMARY KEY, value TEXT)"),
};

QStringList paths(RawDatabase *raw)
{
    return raw->column(s("SELECT path FROM file_index ORDER BY path"));
}

QStringList found(const QVariantList &results, const char *key = "path")
{
    QStringList values;
    for (const QVariant &result : results)
        values.append(result.toMap().value(QLatin1String(key)).toString());
    return values;
}

QList<QFileInfo> infos(const QStringList &files)
{
    QList<QFileInfo> list;
    for (const QString &file : files)
        list.append(QFileInfo(file));
    return list;
}

} // namespace

/// The index on a file of its own; `m_raw` looks at that file past the class.
class TestSearchIndexDb : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void freshFileGetsTheSchema();
    void oldUpdateTriggersGo();
    void opensOnDemandAndCloses();
    void defaultFileIsBelowHome();
    void emptyCallsLeaveTheFileAlone();
    void storesWhatTheFileIs();
    void choosesThePathToStore_data();
    void choosesThePathToStore();
    void metadataNeverCostsTheText();
    void newTextReplacesOldTokens();
    void removesPrefixes_data();
    void removesPrefixes();
    void countsFilesAndTexts();
    void contentStages_data();
    void contentStages();
    void refinedResultsCarryASecondSnippet();
    void randomOperationsMatchAModel();

private:
    void give(const QMap<QString, QString> &contentByPath);

    QScopedPointer<TempTree> m_tree;
    QString m_path;
    QScopedPointer<SearchIndexDB> m_index;
    QScopedPointer<RawDatabase> m_raw;
};

void TestSearchIndexDb::init()
{
    m_tree.reset(new TempTree);
    m_path = m_tree->path(s("index.db"));
    m_index.reset(new SearchIndexDB(m_path));
    QVERIFY(m_index->open());
    m_raw.reset(new RawDatabase(m_path));
}

void TestSearchIndexDb::cleanup()
{
    m_raw.reset();
    m_index.reset();
    QCOMPARE(QSqlDatabase::connectionNames(), QStringList());
}

// Rows of files that need not exist, with their texts.
void TestSearchIndexDb::give(const QMap<QString, QString> &contentByPath)
{
    QString error;
    QVERIFY2(m_index->upsertFileInfoBatch(infos(contentByPath.keys()), &error), qPrintable(error));
    QVERIFY2(m_index->updateFileContentBatch(contentByPath, &error), qPrintable(error));
}

void TestSearchIndexDb::freshFileGetsTheSchema()
{
    // The gram index and the list of cut texts stand beside it.
    QCOMPARE(m_raw->column(s("SELECT sql FROM sqlite_master WHERE sql NOT NULL AND name NOT LIKE "
                             "'content_fts%' AND name NOT LIKE 'sqlite_%' AND name NOT LIKE "
                             "'%grams%' AND name NOT LIKE 'stale%' AND "
                             "name NOT IN ('idx_file_index_text', 'cut_texts') ORDER BY name")),
             schema);
    QCOMPARE(m_raw->column(s("SELECT sql FROM sqlite_master WHERE name = 'content_fts'")),
             QStringList{s("CREATE VIRTUAL TABLE content_fts USING fts5(content,"
                           "content='file_index',content_rowid='id',"
                           "tokenize='unicode61 remove_diacritics 2',detail=column)")});
    QCOMPARE(m_raw->column(s("PRAGMA journal_mode")), QStringList{s("wal")});
    QCOMPARE(m_raw->column(s("PRAGMA page_size")), QStringList{s("4096")});
    const QVariantMap stats = m_index->indexStats();
    QCOMPARE(stats.value(s("fileCount")).toLongLong(), 0);
    QCOMPARE(stats.value(s("ftsCount")).toLongLong(), 0);
}

void TestSearchIndexDb::oldUpdateTriggersGo()
{
    give({{s("/a.txt"), s("old words")}});
    m_index->close();
    for (const char *name : {"fts_au", "fts_au_del", "fts_au_ins"})
        m_raw->rows(s("CREATE TRIGGER %1 AFTER UPDATE ON file_index BEGIN INSERT INTO "
                      "content_fts(rowid, content) VALUES(new.id, new.content); END")
                        .arg(QLatin1String(name)));
    give({{s("/a.txt"), s("new words")}});
    QCOMPARE(m_raw->column(s("SELECT name FROM sqlite_master WHERE type='trigger' AND "
                             "name LIKE 'fts%' ORDER BY name")),
             (QStringList{s("fts_ad"), s("fts_ai")}));
    QCOMPARE(found(m_index->queryByContent(s("new"), 9, QString())), QStringList{s("/a.txt")});
}

void TestSearchIndexDb::opensOnDemandAndCloses()
{
    const int open = QSqlDatabase::connectionNames().size();
    QVERIFY(m_index->open());
    QCOMPARE(QSqlDatabase::connectionNames().size(), open);
    SearchIndexDB other(m_path);
    QCOMPARE(other.databasePath(), m_path);
    QVERIFY(other.open());
    QCOMPARE(QSqlDatabase::connectionNames().size(), open + 1);
    m_index->close();
    m_index->close();
    QCOMPARE(QSqlDatabase::connectionNames().size(), open);
    give({{s("/a.txt"), s("text")}});
    QCOMPARE(found(other.searchByName(s("A.TXT"), 9, QString())), QStringList{s("/a.txt")});
    QCOMPARE(found(other.searchByContent(s("text"), 9, QString())), QStringList{s("/a.txt")});
}

void TestSearchIndexDb::defaultFileIsBelowHome()
{
    const QString dir = QDir::homePath() + s("/.config/morvane");
    QDir(dir).removeRecursively();
    const SearchIndexDB index;
    QCOMPARE(index.databasePath(), dir + s("/search_index.db"));
    QVERIFY(QFileInfo(dir).isDir());
}

void TestSearchIndexDb::emptyCallsLeaveTheFileAlone()
{
    const QString path = m_tree->path(s("untouched.db"));
    SearchIndexDB index(path);
    QString error;
    QVERIFY(index.upsertFileInfoBatch({}, &error));
    QVERIFY(index.updateFileContentBatch({}, &error));
    QVERIFY(index.removeByPathPrefix(QString(), &error));
    QVERIFY(index.queryByName(s("a"), 0, QString(), &error).isEmpty());
    QVERIFY(index.queryByContent(s("a"), -1, QString(), &error).isEmpty());
    QVERIFY(index.queryByName(s(" \t"), 10, s("a"), &error).isEmpty());
    QVERIFY(index.queryByContent(s("\n"), 10, s("a"), &error).isEmpty());
    QCOMPARE(error, QString());
    QVERIFY(!QFileInfo::exists(path));
}

void TestSearchIndexDb::storesWhatTheFileIs()
{
    const QFileInfo plain(m_tree->file(s("dir/合同.TAR.GZ"), QByteArray(1234, 'x')));
    const QFileInfo bare(m_tree->file(s("dir/README"), QByteArray()));
    QVERIFY(m_index->upsertFileInfoBatch({plain, bare}));
    QCOMPARE(m_raw->rows(s("SELECT path,file_name,ifnull(ext,''),category,size,modified_ms,content "
                           "FROM file_index ORDER BY id")),
             (QList<QVariantList>{{plain.filePath(), s("合同.TAR.GZ"), s("gz"), s("archive"), 1234,
                                   plain.lastModified().toMSecsSinceEpoch(), QString()},
                                  {bare.filePath(), s("README"), QString(), s("other"), 0,
                                   bare.lastModified().toMSecsSinceEpoch(), QString()}}));
    QCOMPARE(m_raw->column(s("SELECT count(*) FROM file_index WHERE "
                             "abs(julianday('now') - julianday(indexed_at)) < 0.01")),
             QStringList{s("2")});
}

void TestSearchIndexDb::choosesThePathToStore_data()
{
    QTest::addColumn<QStringList>("stored");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("none") << QStringList{} << QStringList{s("/r/a"), s("/r/b")};
    QTest::newRow("too few") << QStringList{s("/s/a")} << QStringList{s("/r/b"), s("/s/a")};
    QTest::newRow("blank") << QStringList{s(" \t"), s("/s/b")} << QStringList{s("/r/a"), s("/s/b")};
    QTest::newRow("trimmed and cleaned")
        << QStringList{s(" /s//x/../a/ "), s("/s/./b")} << QStringList{s("/s/a"), s("/s/b")};
}

void TestSearchIndexDb::choosesThePathToStore()
{
    QFETCH(QStringList, stored);
    QVERIFY(
        m_index->upsertFileInfoBatch({QFileInfo(s("/r/a")), QFileInfo(), QFileInfo(s("/r/b"))},
                                     stored.mid(0, 1) + QStringList{QString()} + stored.mid(1)));
    QTEST(paths(m_raw.data()), "expected");
}

void TestSearchIndexDb::metadataNeverCostsTheText()
{
    const QFileInfo file(m_tree->file(s("a.txt"), QByteArrayLiteral("12345")));
    QVERIFY(m_index->upsertFile(file, s("harvest")));
    m_raw->rows(s("UPDATE file_index SET size = 1, file_name = 'old', category = 'old'"));
    QVERIFY(m_index->upsertFileInfoBatch({file}));
    QVERIFY(m_index->upsertFile(file, QString()));
    QCOMPARE(m_raw->rows(s("SELECT id,file_name,category,size,content FROM file_index")),
             (QList<QVariantList>{{1, s("a.txt"), s("document"), 5, s("harvest")}}));
    QCOMPARE(found(m_index->queryByContent(s("harv"), 9, QString())),
             QStringList{file.absoluteFilePath()});
}

void TestSearchIndexDb::newTextReplacesOldTokens()
{
    give({{s("/a"), s("oldword 旧文本")}, {s("/b"), s("other")}});
    give({{s("/a"), s("newword")}, {s("/b"), QString()}, {s("/missing"), s("oldword")}});
    const QString match = s("SELECT rowid FROM content_fts WHERE content_fts MATCH ?");
    QCOMPARE(m_raw->column(match, {s("newword")}), QStringList{s("1")});
    for (const char *gone : {"旧文本", "other"})
        QCOMPARE(m_raw->column(match, {s(gone)}), QStringList());
    QVERIFY(m_index->updateFileContentBatch({{s("/not there"), s("nobody")}}));
    QCOMPARE(m_raw->column(match, {s("nobody")}), QStringList());
    QVERIFY(m_index->removeFile(s("/a")));
    QCOMPARE(m_raw->column(match, {s("newword")}), QStringList());
    QVERIFY(m_index->vacuum());
    QCOMPARE(paths(m_raw.data()), (QStringList{s("/b"), s("/missing")}));
}

void TestSearchIndexDb::removesPrefixes_data()
{
    QTest::addColumn<QString>("prefix");
    QTest::addColumn<QStringList>("left");
    QTest::addColumn<QStringList>("leftExactly");
    const QStringList all{s("/a/b"),  s("/a/b/c"),   s("/a/b/c/d"),
                          s("/a/bc"), s("/a/x_z/f"), s("/a/xyz/f")};
    const auto row = [](const char *name, const char *prefix, const QStringList &left) {
        QTest::newRow(name) << s(prefix) << left << left;
    };
    row("directory", "/a/b", all.mid(3));
    row("cleaned", "/a//b/./", all.mid(3));
    row("file", "/a/bc", all.mid(0, 3) + all.mid(4));
    row("nothing there", "/a/q", all);
    QTest::newRow("a wildcard in the name widens")
        << s("/a/x_z") << QStringList(all.mid(0, 4)) << QStringList(all.mid(0, 4) + all.mid(5));
    QTest::newRow("so does the case") << s("/A/b") << QStringList({all.at(0)}) + all.mid(3) << all;
    QTest::newRow("everything") << s("/") << all << QStringList();
}

void TestSearchIndexDb::removesPrefixes()
{
    QFETCH(QString, prefix);
    for (const char *path : {"/a/b", "/a/b/c", "/a/b/c/d", "/a/bc", "/a/x_z/f", "/a/xyz/f"})
        give({{s(path), s("text")}});
    QVERIFY(m_index->removeByPathPrefix(prefix));
    QTEST(paths(m_raw.data()), "left");
    for (const char *path : {"/a/b", "/a/b/c", "/a/b/c/d", "/a/bc", "/a/x_z/f", "/a/xyz/f"})
        give({{s(path), s("text")}});
    QVERIFY(m_index->removeDirectory(prefix));
    QTEST(paths(m_raw.data()), "leftExactly");
}

void TestSearchIndexDb::countsFilesAndTexts()
{
    give({{s("/a"), s("text")}, {s("/b"), QString()}, {s("/c"), s("")}});
    QString error;
    const QVariantMap stats = m_index->indexStats(&error);
    QCOMPARE(stats.value(s("fileCount")).toLongLong(), 3);
    QCOMPARE(stats.value(s("ftsCount")).toLongLong(), 1);
    QCOMPARE(stats.value(s("lastUpdatedMs")).toLongLong(),
             QFileInfo(m_path).lastModified().toMSecsSinceEpoch());
    QCOMPARE(error, QString());
}

void TestSearchIndexDb::contentStages_data()
{
    QTest::addColumn<QString>("keyword");
    QTest::addColumn<int>("limit");
    QTest::addColumn<QStringList>("expected"); // path and kind of score
    const QString ranked = s(" ranked");
    const QString plain = s(" 0");
    QTest::newRow("ranked, then substring")
        << s("bar") << 3
        << QStringList{s("/best") + ranked, s("/worse") + ranked, s("/inside") + plain};
    QTest::newRow("substring fills up")
        << s("bar") << 2 << QStringList{s("/best") + ranked, s("/worse") + ranked};
    QTest::newRow("two words") << s("foo bar") << 9 << QStringList{s("/worse") + plain};
    QTest::newRow("special characters only") << s("()") << 9 << QStringList{s("/call") + plain};
    QTest::newRow("wildcard") << s("f_o b") << 9 << QStringList{s("/worse") + plain};
    QTest::newRow("no query syntax") << s("bar OR call") << 9 << QStringList{};
    QTest::newRow("diacritics") << s("cafe") << 9 << QStringList{s("/coffee") + ranked};
}

void TestSearchIndexDb::contentStages()
{
    QFETCH(QString, keyword);
    QFETCH(int, limit);
    give({{s("/worse"), s("foo bar and a good many more words that make it long")},
          {s("/best"), s("bar bar")},
          {s("/inside"), s("unbarred")},
          {s("/call"), s("call()")},
          {s("/coffee"), s("Café")}});
    QString error;
    QStringList lines;
    const QVariantList results = m_index->queryByContent(keyword, limit, QString(), &error);
    for (const QVariant &result : results) {
        const QVariantMap map = result.toMap();
        lines.append(map.value(s("path")).toString() +
                     (map.value(s("score")).toDouble() < 0 ? s(" ranked") : s(" 0")));
        QVERIFY(!map.contains(s("refineSnippet")));
    }
    QTEST(lines, "expected");
    QCOMPARE(error, QString());
}

void TestSearchIndexDb::refinedResultsCarryASecondSnippet()
{
    give({{s("/docs/a"), s("bar\nsecond line")},
          {s("/docs/b"), s("unbarred")},
          {s("/c"), s("bar")}});
    const QVariantList results = m_index->queryByContent(s("bar"), 9, s("DOCS;second"));
    QCOMPARE(found(results), QStringList{s("/docs/a")});
    QCOMPARE(
        results.first().toMap(),
        (QVariantMap{{s("path"), s("/docs/a")},
                     {s("name"), s("a")},
                     {s("size"), 0},
                     {s("modifiedMs"), QFileInfo(s("/docs/a")).lastModified().toMSecsSinceEpoch()},
                     {s("category"), s("other")},
                     {s("snippet"), s("<b>bar</b>")},
                     {s("score"), 0.0},
                     {s("refineSnippet"), s("<b>second</b> line")}}));
    const QVariantList byPath = m_index->queryByContent(s("bar"), 9, s("docs"));
    QCOMPARE(found(byPath), (QStringList{s("/docs/a"), s("/docs/b")}));
    QCOMPARE(found(byPath, "refineSnippet"), (QStringList{QString(), QString()}));
    QCOMPARE(found(byPath, "snippet"), (QStringList{s("<b>bar</b>"), s("un<b>bar</b>red")}));
}

// After any sequence of writes the rows and the tokens are those of a plain map.
void TestSearchIndexDb::randomOperationsMatchAModel()
{
    std::mt19937 random(4711);
    const auto below = [&random](int bound) {
        return int(random() % unsigned(bound));
    };
    const QStringList words{s("one"), s("two"), s("three"), s("四"), s("five")};
    const auto path = [&] {
        return s("/d%1/e%2/f%3").arg(below(3)).arg(below(3)).arg(below(4));
    };
    const auto text = [&] {
        QStringList picked;
        for (int n = below(4); n > 0; --n)
            picked.append(words.at(below(words.size())));
        return picked.join(QLatin1Char(' '));
    };
    m_raw->rows(s("CREATE VIRTUAL TABLE temp.tokens USING fts5vocab(main, content_fts, instance)"));
    QMap<QString, QString> model;
    for (int step = 0; step < 1500; ++step) {
        const int kind = below(12);
        if (kind < 4) {
            const QStringList files{path(), path(), path()};
            QVERIFY(m_index->upsertFileInfoBatch(infos(files)));
            for (const QString &file : files)
                model[file];
        } else if (kind < 8) {
            const QMap<QString, QString> texts{{path(), text()}, {path(), text()}};
            QVERIFY(m_index->updateFileContentBatch(texts));
            for (auto it = texts.cbegin(); it != texts.cend(); ++it) {
                if (model.contains(it.key()))
                    model[it.key()] = it.value();
            }
        } else if (kind < 10) {
            const QString file = path();
            const QString content = text();
            QVERIFY(m_index->upsertFile(QFileInfo(file), content));
            if (!content.isEmpty() || !model.contains(file))
                model[file] = content;
        } else if (kind < 11) {
            const QString file = path();
            QVERIFY(m_index->removeFile(file));
            model.remove(file);
        } else {
            const QString dir = s("/d%1/e%2").arg(below(3)).arg(below(3));
            QVERIFY(m_index->removeByPathPrefix(dir));
            for (const QString &file : model.keys()) {
                if (file.startsWith(dir + QLatin1Char('/')))
                    model.remove(file);
            }
            m_index->close();
        }
        if (step % 25 != 0)
            continue;
        QMap<QString, QString> rows;
        const QList<QVariantList> stored = m_raw->rows(s("SELECT path,content FROM file_index"));
        for (const QVariantList &row : stored)
            rows.insert(row.at(0).toString(), row.at(1).toString());
        QCOMPARE(rows, model);
        QStringList tokens;
        for (auto it = model.cbegin(); it != model.cend(); ++it) {
            for (const QString &word : it.value().split(QLatin1Char(' ')))
                tokens.append(it.key() + QLatin1Char(' ') + word);
        }
        tokens.removeDuplicates();
        tokens = tokens.filter(QRegularExpression(s(" .")));
        tokens.sort();
        QCOMPARE(m_raw->column(s("SELECT DISTINCT path || ' ' || term AS t FROM temp.tokens JOIN "
                                 "file_index ON id = doc ORDER BY t")),
                 tokens);
        QCOMPARE(m_raw->column(s("SELECT count(*) FROM temp.tokens WHERE doc NOT IN "
                                 "(SELECT id FROM file_index)")),
                 QStringList{s("0")});
        m_raw->rows(s("INSERT INTO content_fts(content_fts) VALUES('integrity-check')"));
    }
}

QTEST_GUILESS_MAIN(TestSearchIndexDb)
#include "tst_searchindexdb.moc"
