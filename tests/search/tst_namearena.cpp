#include "search/names/namesearch.h"
#include "search/query/hantables.h"
#include "search/searchindexdb.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

#include <random>

using search::names::NameIndex;
using search::names::searchNames;

namespace {

bool never()
{
    return false;
}

QStringList namesOf(const QVariantList &results)
{
    QStringList names;
    for (const QVariant &result : results)
        names.append(result.toMap().value(QStringLiteral("name")).toString());
    return names;
}

} // namespace

/// Name searches over an arena, against the same searches by the database.
class TestNameArena : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void randomWords();
    void frequentWordsBelowFoldedFolders();
    void lines_data();
    void lines();
    void withoutArena();
    void changes();
    void replacedFile();
    void cancelled();

private:
    void add(const QString &path, qint64 modifiedMs, qint64 size = 0);
    void addSamples();
    void waitForArena();
    QVariantList found(const QString &line, int limit = 200, const QString &refine = QString());

    QScopedPointer<QTemporaryDir> m_folder;
    QScopedPointer<SearchIndexDB> m_db;
    QScopedPointer<NameIndex> m_index;
};

void TestNameArena::init()
{
    m_folder.reset(new QTemporaryDir);
    const QString path = m_folder->filePath(QStringLiteral("index.db"));
    m_db.reset(new SearchIndexDB(path));
    QVERIFY(m_db->open());
    m_index.reset(new NameIndex(path, [] {}));
}

void TestNameArena::cleanup()
{
    m_index.reset();
    m_db.reset();
}

void TestNameArena::add(const QString &path, qint64 modifiedMs, qint64 size)
{
    QSqlQuery query(m_db->connection());
    query.prepare(QStringLiteral("INSERT INTO file_index(path,file_name,size,modified_ms) "
                                 "VALUES(?,?,?,?) ON CONFLICT(path) DO UPDATE SET "
                                 "modified_ms=excluded.modified_ms"));
    query.addBindValue(path);
    query.addBindValue(path.mid(path.lastIndexOf(QLatin1Char('/')) + 1));
    query.addBindValue(size);
    query.addBindValue(modifiedMs);
    QVERIFY2(query.exec(), qPrintable(query.lastError().text()));
}

void TestNameArena::waitForArena()
{
    QTRY_VERIFY(m_index->view(m_db->connection()).rows);
}

QVariantList TestNameArena::found(const QString &line, int limit, const QString &refine)
{
    QString error;
    const QVariantList results =
        searchNames(m_db->connection(), m_index.data(), line, limit, refine, never, &error);
    if (!error.isEmpty())
        qWarning().noquote() << error;
    return results;
}

// What LIKE finds must come first and as LIKE lists it, whatever the arena adds behind.
void TestNameArena::randomWords()
{
    std::mt19937 random(7);
    const auto below = [&random](int bound) {
        return int(random() % unsigned(bound));
    };
    const QStringList pieces =
        QStringLiteral("a B ab Re report _ . - 合 合同 約 约 é e ＡＢ ﬁ ß 한 だ ı İ 重庆 x1 % 😀")
            .split(QLatin1Char(' '));
    const auto text = [&](int most) {
        QString made;
        for (int n = 1 + below(most); n > 0; --n)
            made += pieces.at(below(pieces.size()));
        return made;
    };
    QVERIFY(m_db->connection().transaction());
    for (int i = 0; i < 4000; ++i) {
        add(QStringLiteral("/%1/%2/%3%4").arg(text(2), text(2), text(4)).arg(below(500)),
            below(1000));
    }
    QVERIFY(m_db->connection().commit());
    waitForArena();
    for (int i = 0; i < 600; ++i) {
        QString word = text(3);
        if (below(4) == 0)
            word += QLatin1Char('/') + text(1);
        if (word.contains(QLatin1Char('-')) && word.startsWith(QLatin1Char('-')))
            continue;
        const int limit = below(3) == 0 ? 1 + below(20) : 200;
        const QString refine = below(5) == 0 ? text(1) : QString();
        const QVariantList direct = m_db->queryByName(word, limit, refine);
        const QVariantList all = found(word, limit, refine);
        QVERIFY(all.size() <= limit);
        QVERIFY2(all.mid(0, direct.size()) == direct, qPrintable(word + QLatin1Char('|') + refine));
        if (direct.size() == limit || all.size() == direct.size())
            continue;
        const QStringList more = namesOf(m_db->queryByName(word, 5000, refine));
        QCOMPARE(more.size(), direct.size());
    }
}

// Every row below such a folder needs a look into the database, and there are more than are looked
// at.
void TestNameArena::frequentWordsBelowFoldedFolders()
{
    QVERIFY(m_db->connection().transaction());
    for (int i = 0; i < 24000; ++i)
        add(QStringLiteral("/%1/note %2.txt")
                .arg(i % 3 == 0 ? QStringLiteral("plain") : QStringLiteral("données"))
                .arg(i),
            (i * 7919) % 1000);
    QVERIFY(m_db->connection().commit());
    waitForArena();
    for (const QString &word : {QStringLiteral("note"), QStringLiteral("9.txt"),
                                QStringLiteral("plain"), QStringLiteral("données")}) {
        for (const int limit : {1, 200, 9000})
            QCOMPARE(found(word, limit), m_db->queryByName(word, limit, QString()));
    }
    QCOMPARE(found(QStringLiteral("donnees")).size(), 200);
}

void TestNameArena::addSamples()
{
    const qint64 march = QDateTime(QDate(2024, 3, 10), QTime(9, 0)).toMSecsSinceEpoch();
    const qint64 may = QDateTime(QDate(2024, 5, 31), QTime(23, 59)).toMSecsSinceEpoch();
    add(QStringLiteral("/home/desk/采购合同.docx"), march, 3000000);
    add(QStringLiteral("/home/desk/採購合約.pdf"), march + 1, 2000);
    add(QStringLiteral("/home/old/合同 草稿.docx"), march + 2, 100);
    add(QStringLiteral("/home/desk/Annual Report 2024.pdf"), may, 5000);
    add(QStringLiteral("/home/desk/report annual.txt"), may + 1, 5000);
    add(QStringLiteral("/home/desk/Résumé.pdf"), may + 2, 5000);
    add(QStringLiteral("/home/desk/ht-notes.txt"), 1, 0);
}

void TestNameArena::lines_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<bool>("needsTables");
    const auto row = [](const char *line, const char *names, bool needsTables = false) {
        QTest::newRow(line) << QString::fromUtf8(line)
                            << (*names ? QString::fromUtf8(names).split(QLatin1Char('|'))
                                       : QStringList())
                            << needsTables;
    };
    row("annual report", "report annual.txt|Annual Report 2024.pdf");
    row("\"annual report\"", "Annual Report 2024.pdf");
    row("report desk", "report annual.txt|Annual Report 2024.pdf");
    row("report -txt", "Annual Report 2024.pdf");
    row("old/合", "合同 草稿.docx");
    row("合同 path:old", "合同 草稿.docx");
    row("合同 -path:old", "采购合同.docx");
    row("*.docx", "合同 草稿.docx|采购合同.docx");
    row("-*.docx -*.pdf", "report annual.txt|ht-notes.txt");
    row("size:>1M", "采购合同.docx");
    row("size:1K..2K date:2024-03", "採購合約.pdf");
    row("date:2024-05..2024-05 report", "report annual.txt|Annual Report 2024.pdf");
    row("resume", "Résumé.pdf");
    row("ＲＥＰＯＲＴ　annual", "report annual.txt|Annual Report 2024.pdf");
    row("\"resume\"", "");
    row("採購", "採購合約.pdf|采购合同.docx", true);
    row("采购", "采购合同.docx|採購合約.pdf", true);
    row("ht", "ht-notes.txt|合同 草稿.docx|采购合同.docx", true);
    row("cgheton", "采购合同.docx", true);
    row("hetong docx", "合同 草稿.docx|采购合同.docx", true);
    row("\"ht\"", "ht-notes.txt");
    row("nothing", "");
}

void TestNameArena::lines()
{
    QFETCH(bool, needsTables);
    if (needsTables && search::query::hanReadingCount == 0)
        QSKIP("built without the Unihan tables");
    QFETCH(QString, line);
    addSamples();
    waitForArena();
    const QVariantList results = found(line);
    QTEST(namesOf(results), "names");
    for (const QVariant &result : results) {
        const QVariantMap row = result.toMap();
        const bool byPinyin =
            line.startsWith(QLatin1Char('h')) || line.startsWith(QLatin1Char('c'));
        const bool direct =
            row.value(QStringLiteral("name")).toString() == QLatin1String("ht-notes.txt");
        QCOMPARE(row.value(QStringLiteral("match")).toString(),
                 byPinyin && !direct ? QStringLiteral("pinyin") : QString());
    }
}

// The first search comes before the arena: the same line, answered by the database.
void TestNameArena::withoutArena()
{
    addSamples();
    QCOMPARE(namesOf(found(QStringLiteral("report -txt *.pdf path:desk size:<1M date:2024"))),
             QStringList(QStringLiteral("Annual Report 2024.pdf")));
}

void TestNameArena::changes()
{
    add(QStringLiteral("/a/one.txt"), 1000);
    add(QStringLiteral("/a/two.txt"), 2000);
    waitForArena();
    const QString txt = QStringLiteral("txt");
    add(QStringLiteral("/b/old.txt"), 500); // new to the index, but older than the others
    QCOMPARE(namesOf(found(txt)), (QStringList{QStringLiteral("two.txt"), QStringLiteral("one.txt"),
                                               QStringLiteral("old.txt")}));
    add(QStringLiteral("/a/one.txt"), 3000);
    QVERIFY(m_db->removeFile(QStringLiteral("/a/two.txt")));
    QCOMPARE(namesOf(found(txt)),
             (QStringList{QStringLiteral("one.txt"), QStringLiteral("old.txt")}));
}

void TestNameArena::replacedFile()
{
    add(QStringLiteral("/a/before.txt"), 1000);
    waitForArena();
    const QString path = m_db->databasePath();
    const QString kept = m_folder->filePath(QStringLiteral("kept.db"));
    m_db->close();
    QVERIFY(QFile::rename(path, kept)); // so that its inode is not used again
    QVERIFY(m_db->open());
    add(QStringLiteral("/a/after.txt"), 1000);
    QCOMPARE(namesOf(found(QStringLiteral("txt"))), QStringList(QStringLiteral("after.txt")));
    waitForArena();
    QCOMPARE(namesOf(found(QStringLiteral("txt"))), QStringList(QStringLiteral("after.txt")));
}

void TestNameArena::cancelled()
{
    addSamples();
    waitForArena();
    QString error;
    QVERIFY(searchNames(
                m_db->connection(), m_index.data(), QStringLiteral("report"), 200, QString(),
                [] { return true; }, &error)
                .isEmpty());
    QCOMPARE(error, QString());
}

QTEST_GUILESS_MAIN(TestNameArena)
#include "tst_namearena.moc"
