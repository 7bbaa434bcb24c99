#include "search/newestfirstquery.h"
#include "search/searchindexdb.h"
#include "search/searchkeywords.h"
#include "support/rawdatabase.h"

#include <QSqlQuery>
#include <QtTest>

#include <random>

using search::likePattern;
using search::NewestFirstQuery;
using search::RowFilter;
using search::WalkPolicy;

namespace {

const QStringList nameWords{QStringLiteral("report"),  QStringLiteral("合同"),
                            QStringLiteral("IMG"),     QStringLiteral("100%"),
                            QStringLiteral("a_b"),     QStringLiteral("会议纪要"),
                            QStringLiteral("Ünïcode"), QStringLiteral("draft")};
const QStringList textWords{QStringLiteral("harvest"), QStringLiteral("Contract"),
                            QStringLiteral("budget"),  QStringLiteral("发票"),
                            QStringLiteral("x_y"),     QStringLiteral("50%"),
                            QStringLiteral("winter"),  QStringLiteral("项目计划")};
// What occurs, what does not, wildcards, special characters, phrases.
const QStringList keywords =
    nameWords + textWords +
    QStringList{
        QStringLiteral("absent"), QStringLiteral("%"),         QStringLiteral("_"),
        QStringLiteral("r%t"),    QStringLiteral("()"),        QStringLiteral("缺席"),
        QStringLiteral("同"),     QStringLiteral("REPORT_0"),  QStringLiteral("harvest budget"),
        QStringLiteral("har"),    QStringLiteral("only-once"), QStringLiteral("票 项")};

// What the plain statements give, as "path|name|size|time|category" lines.
QString line(const QVariantList &row)
{
    QStringList fields;
    for (int i = 0; i < 5; ++i)
        fields.append(row.at(i).toString());
    return fields.join(QLatin1Char('|'));
}

QString line(const QVariantMap &result)
{
    return line(QVariantList{
        result.value(QStringLiteral("path")), result.value(QStringLiteral("name")),
        result.value(QStringLiteral("size")), result.value(QStringLiteral("modifiedMs")),
        result.value(QStringLiteral("category"))});
}

QStringList lines(const QVariantList &results)
{
    QStringList found;
    for (const QVariant &result : results)
        found.append(line(result.toMap()));
    return found;
}

QVariantList patterns(const QStringList &words, int times)
{
    QVariantList values;
    for (const QString &word : words) {
        for (int i = 0; i < times; ++i)
            values.append(likePattern(word));
    }
    return values;
}

QStringList plainNames(RawDatabase *raw, const QStringList &words, int limit)
{
    QString sql = QStringLiteral("SELECT path,file_name,size,modified_ms,category FROM file_index "
                                 "WHERE (file_name LIKE ? OR path LIKE ?)");
    sql += QStringLiteral(" AND (file_name LIKE ? OR path LIKE ?)").repeated(words.size() - 1);
    QStringList found;
    const QList<QVariantList> rows = raw->rows(
        sql + QStringLiteral(" ORDER BY modified_ms DESC LIMIT ?"), patterns(words, 2) << limit);
    for (const QVariantList &row : rows)
        found.append(line(row));
    return found;
}

// None where FTS5 refuses the phrase.
QList<QVariantList> plainFullText(RawDatabase *raw, const QString &keyword,
                                  const QStringList &refine, int limit)
{
    QSqlQuery query(raw->connection());
    query.prepare(
        QStringLiteral("SELECT fi.path,fi.file_name,fi.size,fi.modified_ms,fi.category,"
                       "bm25(content_fts) FROM content_fts JOIN file_index fi ON "
                       "fi.id = content_fts.rowid WHERE content_fts MATCH ? ") +
        QStringLiteral("AND (fi.file_name LIKE ? OR fi.path LIKE ? OR fi.content LIKE ?) ")
            .repeated(refine.size()) +
        QStringLiteral("ORDER BY bm25(content_fts) LIMIT ?"));
    const QVariantList values =
        QVariantList{search::buildFtsMatchExpr(keyword)} + patterns(refine, 3) << limit;
    for (const QVariant &value : values)
        query.addBindValue(value);
    QList<QVariantList> rows;
    query.exec();
    while (query.next()) {
        rows.append({query.value(0), query.value(1), query.value(2), query.value(3), query.value(4),
                     query.value(5)});
    }
    return rows;
}

QStringList plainContent(RawDatabase *raw, const QString &keyword, const QStringList &refine,
                         int limit)
{
    QStringList found;
    QSet<QString> delivered;
    const QList<QVariantList> ranked = plainFullText(raw, keyword, refine, limit);
    for (const QVariantList &row : ranked) {
        const double score = refine.isEmpty() ? row.at(5).toDouble() : 0.0;
        found.append(line(row) + QString::number(score, 'g', 17));
        delivered.insert(row.at(0).toString());
    }
    const QList<QVariantList> rest = raw->rows(
        QStringLiteral("SELECT path,file_name,size,modified_ms,category,content FROM file_index "
                       "WHERE content LIKE ? ") +
            QStringLiteral("AND (file_name LIKE ? OR path LIKE ? OR content LIKE ?) ")
                .repeated(refine.size()) +
            QStringLiteral("ORDER BY modified_ms DESC LIMIT ?"),
        QVariantList{likePattern(keyword)} + patterns(refine, 3) +
            QVariantList{limit - found.size() + delivered.size()});
    for (const QVariantList &row : rest) {
        if (found.size() < limit && !delivered.contains(row.at(0).toString()))
            found.append(line(row) + QLatin1Char('0'));
    }
    return found;
}

} // namespace

/// Compares the queries, which choose between ways through the table, with the plain statements.
class TestSearchQuery : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void windowsAndScansKeepTheOrder_data();
    void windowsAndScansKeepTheOrder();
    void namesMatchThePlainStatement_data();
    void namesMatchThePlainStatement();
    void contentsMatchThePlainStatements_data();
    void contentsMatchThePlainStatements();

private:
    QTemporaryDir m_dir;
    QScopedPointer<SearchIndexDB> m_index;
    QScopedPointer<RawDatabase> m_raw;
};

void TestSearchQuery::initTestCase()
{
    const QString path = m_dir.filePath(QStringLiteral("index.db"));
    m_index.reset(new SearchIndexDB(path));
    QVERIFY(m_index->open());
    m_raw.reset(new RawDatabase(path));

    // Few distinct times, so that most rows are ties, and times before the epoch among them.
    std::mt19937 random(20240601);
    const auto pick = [&random](const QStringList &words) {
        return words.at(int(random() % unsigned(words.size())));
    };
    QList<QVariantList> files;
    QList<QVariantList> texts;
    for (int i = 0; i < 12000; ++i) {
        const QString name = QStringLiteral("%1_%2.txt").arg(pick(nameWords)).arg(i % 397);
        const QString dir = i % 3 == 0 ? pick(nameWords) : QStringLiteral("plain");
        QVariant text;
        if (i % 12 == 0) {
            QStringList words;
            for (unsigned n = random() % 12; n > 0; --n)
                words.append(random() % 3 == 0 ? pick(textWords) : QStringLiteral("filler"));
            text = words.join(QLatin1Char(' '));
        }
        if (i == 7412)
            text = QStringLiteral("only-once");
        files.append({QStringLiteral("/%1/%2/%3").arg(dir).arg(i).arg(name), name,
                      i % 5 ? QStringLiteral("document") : QStringLiteral("other"), i,
                      qint64(random() % 60) * 1000 - 5000, text});
    }
    m_raw->writeAll(QStringLiteral("INSERT INTO file_index(path,file_name,category,size,"
                                   "modified_ms,content) VALUES(?,?,?,?,?,?)"),
                    files);
}

void TestSearchQuery::windowsAndScansKeepTheOrder_data()
{
    QTest::addColumn<int>("firstWindow");
    QTest::addColumn<int>("leastWalk");
    QTest::addColumn<int>("walkCost");
    QTest::newRow("scan at once") << 1 << 1 << 1000000;
    QTest::newRow("scan after ties were cut") << 777 << 778 << 50;
    QTest::newRow("scan late") << 40 << 9000 << 20;
    QTest::newRow("windows only") << 7 << 1000000 << 1;
    QTest::newRow("one window") << 1000000 << 1 << 1;
}

void TestSearchQuery::windowsAndScansKeepTheOrder()
{
    QFETCH(int, firstWindow);
    QFETCH(int, leastWalk);
    QFETCH(int, walkCost);
    WalkPolicy policy;
    policy.firstWindow = firstWindow;
    policy.leastWalk = leastWalk;
    policy.countAbove = 0;
    policy.walkCost = walkCost;
    for (const QString &keyword : keywords) {
        for (int limit : {1, 17, 500}) {
            const RowFilter filter{QStringLiteral("file_name LIKE ? OR path LIKE ?"),
                                   {likePattern(keyword), likePattern(keyword)}};
            NewestFirstQuery query(m_raw->connection(),
                                   QStringLiteral("path,file_name,size,modified_ms,category"),
                                   filter, policy);
            QStringList found;
            QString error;
            QVERIFY2(query.run(
                         limit,
                         [&found](const QSqlQuery &row) {
                             found.append(line({row.value(0), row.value(1), row.value(2),
                                                row.value(3), row.value(4)}));
                             return true;
                         },
                         &error),
                     qPrintable(error));
            QCOMPARE(found, plainNames(m_raw.data(), {keyword}, limit));
        }
    }
}

void TestSearchQuery::namesMatchThePlainStatement_data()
{
    QTest::addColumn<QString>("refine");
    QTest::newRow("alone") << QString();
    QTest::newRow("refined") << QStringLiteral("合同");
    QTest::newRow("refined twice") << QStringLiteral("r%t, 3; R%T");
}

void TestSearchQuery::namesMatchThePlainStatement()
{
    QFETCH(QString, refine);
    for (const QString &keyword : keywords) {
        for (int limit : {1, 200, 500}) {
            QString error;
            const QVariantList results = m_index->queryByName(
                QLatin1Char(' ') + keyword + QLatin1Char('\n'), limit, refine, &error);
            QCOMPARE(error, QString());
            QCOMPARE(lines(results),
                     plainNames(m_raw.data(), QStringList{keyword} + search::splitKeywords(refine),
                                limit));
        }
    }
}

void TestSearchQuery::contentsMatchThePlainStatements_data()
{
    QTest::addColumn<QString>("refine");
    QTest::newRow("alone") << QString();
    QTest::newRow("refined") << QStringLiteral("winter");
    QTest::newRow("refined twice") << QStringLiteral("50%\r\nIMG");
}

void TestSearchQuery::contentsMatchThePlainStatements()
{
    QFETCH(QString, refine);
    for (const QString &keyword : keywords) {
        for (int limit : {1, 100, 3000}) {
            QString error;
            QStringList found;
            const QVariantList results = m_index->queryByContent(keyword, limit, refine, &error);
            for (const QVariant &result : results) {
                const QVariantMap map = result.toMap();
                QCOMPARE(map.contains(QStringLiteral("refineSnippet")), !refine.isEmpty());
                found.append(
                    line(map) +
                    QString::number(map.value(QStringLiteral("score")).toDouble(), 'g', 17));
            }
            QCOMPARE(error, QString());
            QCOMPARE(found,
                     plainContent(m_raw.data(), keyword, search::splitKeywords(refine), limit));
        }
    }
}

QTEST_GUILESS_MAIN(TestSearchQuery)
#include "tst_searchquery.moc"
