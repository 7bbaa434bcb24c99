#include "search/grams/gramindex.h"
#include "search/grams/textgrams.h"
#include "search/query/contentsearch.h"
#include "search/searchindexdb.h"
#include "search/sqlinterrupter.h"
#include "support/temptree.h"

#include <QDateTime>
#include <QSqlQuery>
#include <QtTest>

#include <random>
#include <thread>

using search::query::searchContents;

namespace {

QString u(const char *text)
{
    return QString::fromUtf8(text);
}

bool never()
{
    return false;
}

/// An index whose rows have no files.
class Index
{
public:
    Index()
        : m_db(m_tree.path(QStringLiteral("index.db")))
    {
        if (!m_db.open())
            qFatal("no index");
    }

    void add(const QString &path, const QString &text, qint64 size = 100,
             const QString &date = QStringLiteral("2024-05-05"))
    {
        exec(QStringLiteral("INSERT INTO file_index(path,file_name,size,modified_ms) "
                            "VALUES(?,?,?,?)"),
             {path, path.mid(path.lastIndexOf(QLatin1Char('/')) + 1), size,
              QDateTime::fromString(date, Qt::ISODate).toMSecsSinceEpoch()});
        setText(path, text);
    }

    void setText(const QString &path, const QString &text)
    {
        QString error;
        if (!m_db.updateFileContentBatch({{path, text}}, &error))
            qFatal("%s", qPrintable(error));
    }

    QVariantList exec(const QString &sql, const QVariantList &values = QVariantList())
    {
        QSqlQuery query(m_db.connection());
        bool ok = query.prepare(sql);
        for (const QVariant &value : values)
            query.addBindValue(value);
        ok = ok && query.exec();
        if (!ok)
            qFatal("%s", qPrintable(sql));
        QVariantList column;
        while (query.next())
            column.append(query.value(0));
        return column;
    }

    QVariantList rows(const QString &line, int limit = 1000, const QString &refine = QString())
    {
        QString error;
        const QVariantList found =
            searchContents(m_db.connection(), line, limit, refine, never, &error);
        if (!error.isEmpty())
            qFatal("%s", qPrintable(error));
        return found;
    }

    QStringList paths(const QString &line, int limit = 1000)
    {
        QStringList found;
        const QVariantList list = rows(line, limit);
        for (const QVariant &row : list)
            found.append(row.toMap().value(QStringLiteral("path")).toString());
        return found;
    }

    SearchIndexDB &db() { return m_db; }

private:
    TempTree m_tree;
    SearchIndexDB m_db;
};

/// Texts of few characters, so that random words occur in some and not in others.
class Texts
{
public:
    QString text(int length)
    {
        static const QString letters = u("合同年度预算甲乙方书書Ａab0é  ,_。ABñ𠮷\n");
        QString made;
        for (const uint c : letters.toUcs4())
            m_letters.append(c);
        for (int i = 0; i < length; ++i) {
            const uint c = m_letters.at(int(m_random() % uint(m_letters.size())));
            made += QString::fromUcs4(&c, 1);
        }
        return made;
    }

    QString word(const QStringList &texts)
    {
        for (;;) {
            const QString text = texts.at(int(m_random() % uint(texts.size())));
            const QString part =
                text.mid(int(m_random() % uint(text.size())), 1 + int(m_random() % 5)).trimmed();
            // What the language of lines gives a meaning of its own is tested apart.
            if (!part.isEmpty() && !part.contains(QLatin1Char(' ')) &&
                !part.contains(QLatin1Char('\n')) && part.at(0).isLetterOrNumber() &&
                !part.at(part.size() - 1).isHighSurrogate())
                return part;
        }
    }

private:
    std::mt19937 m_random{7};
    QVector<uint> m_letters;
};

} // namespace

/// Lines over the contents, with and without the gram index.
class TestContentSearch : public QObject
{
    Q_OBJECT

private slots:
    void findsWhatLikeFinds_data();
    void findsWhatLikeFinds();
    void answersLines_data();
    void answersLines();
    void ranksOnlyTheLatest();
    void marksTheHitAsItIsWritten();
    void gramsHoldTheGramsOfParts();
    void interruptsAStatement();
    void endsWhenCancelled();
};

void TestContentSearch::findsWhatLikeFinds_data()
{
    QTest::addColumn<QString>("change");
    QTest::newRow("written by this program") << QString();
    QTest::newRow("another program changed texts")
        << QStringLiteral("UPDATE file_index SET content = content || 'Bab合' WHERE id % 3 = 0");
    QTest::newRow("rows have gone") << QStringLiteral("DELETE FROM file_index WHERE id % 3 = 0");
    QTest::newRow("without the gram tables") << QStringLiteral("DROP TABLE text_without_grams");
}

void TestContentSearch::findsWhatLikeFinds()
{
    QFETCH(QString, change);
    Index index;
    Texts texts;
    QStringList written;
    for (int i = 0; i < 60; ++i) {
        written.append(texts.text(20 + i));
        index.add(QStringLiteral("/d/%1.txt").arg(i), written.last());
    }
    // Texts are replaced and go, so that grams have to go as well.
    for (int i = 0; i < 60; i += 4)
        index.setText(QStringLiteral("/d/%1.txt").arg(i),
                      i % 8 == 0 ? QString() : written.at(i / 2));
    QVERIFY(index.db().removeFiles({QStringLiteral("/d/1.txt"), QStringLiteral("/d/2.txt")}));
    if (!change.isEmpty()) {
        if (change.startsWith(QLatin1String("DROP"))) {
            index.exec(QStringLiteral("DROP TRIGGER grams_ai"));
            index.exec(QStringLiteral("DROP TRIGGER grams_au"));
        }
        index.exec(change);
    }
    for (int n = 0; n < 200; ++n) {
        if (n == 100 && !change.startsWith(QLatin1String("DROP"))) {
            bool left = true;
            while (left)
                QVERIFY(index.db().addMissingGrams(7, &left));
            QCOMPARE(index.exec(QStringLiteral("SELECT id FROM text_without_grams")),
                     QVariantList());
        }
        const QString word = texts.word(written);
        const QStringList found = index.paths(word);
        const QVariantList like =
            index.exec(QStringLiteral("SELECT path FROM file_index WHERE content LIKE ?"),
                       {QString(QLatin1Char('%') + word + QLatin1Char('%'))});
        QStringList distinct = found;
        QCOMPARE(distinct.removeDuplicates(), 0);
        for (const QVariant &path : like)
            QVERIFY2(found.contains(path.toString()), qPrintable(word));
        // The plain search's own answer comes first, unchanged.
        const QVariantList plain = index.db().queryByContent(word, 1000, QString());
        QCOMPARE(index.rows(word).mid(0, plain.size()), plain);
        for (int i = plain.size(); i < found.size(); ++i) {
            const QString text =
                index
                    .exec(QStringLiteral("SELECT content FROM file_index WHERE path = ?"),
                          {found.at(i)})
                    .first()
                    .toString();
            QVERIFY2(search::grams::comparable(text).contains(search::grams::comparable(word)),
                     qPrintable(word));
        }
    }
}

void TestContentSearch::answersLines_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("names"); // in order
    const auto row = [](const char *name, const char *line, const char *names) {
        QTest::newRow(name) << u(line) << u(names);
    };
    row("both words, near each other first", "甲方 乙方", "near far");
    row("words of two scripts", "report 合同", "mixed");
    row("a phrase as it is written", "\"annual report\"", "mixed");
    row("a phrase in another order", "\"report annual\"", "");
    row("without a word", "甲方 -很远", "near");
    row("full width", "ｒｅｐｏｒｔ", "mixed");
    row("half width", "invoice", "wide");
    row("traditional for simplified", "发票编号", "trad");
    row("simplified for traditional", "發票編號", "trad");
    row("an accent", "resume", "accent");
    row("a blank between Han and Latin", "合同2024", "border");
    row("none where there is one", "\"第3章\"", "border");
    row("a large file", "size:>1M", "big");
    row("a filter and a word", "size:<1M 大文件", "");
    row("a folder", "path:工作 甲方", "near");
    row("a time", "date:2023", "old");
    row("a name", "*.pdf", "old");
    row("a name and a word", "*.txt 往年", "");
    row("a percent sign between words", "100% 合格", "percent");
}

void TestContentSearch::answersLines()
{
    Index index;
    index.add(u("/d/far.txt"),
              u("甲方在这里，") + QString(200, QLatin1Char('x')) + u("很远的乙方"));
    index.add(u("/d/工作/near.txt"), u("甲方和乙方签订"));
    index.add(u("/d/mixed.txt"), u("the annual report 之合同"));
    index.add(u("/d/wide.txt"), u("编号 ＩＮＶＯＩＣＥ"));
    index.add(u("/d/trad.txt"), u("這是發票編號"));
    index.add(u("/d/accent.txt"), u("my résumé"));
    index.add(u("/d/border.txt"), u("签了合同 2024 版，第 3 章"));
    index.add(u("/d/big.iso"), u("大文件"), 5 << 20);
    index.add(u("/d/old.pdf"), u("往年"), 100, QStringLiteral("2023-07-01"));
    index.add(u("/d/percent.txt"), u("100% 合格"));
    index.add(u("/d/100.txt"), u("1000 合格"));
    QFETCH(QString, line);
    QStringList names;
    const QStringList paths = index.paths(line);
    for (const QString &path : paths)
        names.append(QFileInfo(path).completeBaseName());
    QTEST(names.join(QLatin1Char(' ')), "names");
}

void TestContentSearch::ranksOnlyTheLatest()
{
    Index index;
    for (int i = 0; i < 600; ++i)
        index.add(QStringLiteral("/d/%1.txt").arg(i),
                  QStringLiteral("common ").repeated(1 + i % 7) + QStringLiteral("filler"));
    const QVariantList found = index.rows(QStringLiteral("common"), 100);
    QCOMPARE(found.size(), 100);
    double last = -1000;
    for (const QVariant &row : found) {
        const double score = row.toMap().value(QStringLiteral("score")).toDouble();
        QVERIFY(score < 0 && score >= last);
        last = score;
    }
    // No more than the limit is wanted, but all can be had.
    QCOMPARE(index.paths(QStringLiteral("common")).size(), 600);
}

void TestContentSearch::marksTheHitAsItIsWritten()
{
    Index index;
    index.add(u("/d/a.txt"), u("這是發票編號"));
    index.add(u("/d/b.txt"), u("签了合同 2024 版"));
    const auto snippet = [&](const char *line) {
        return index.rows(u(line)).value(0).toMap().value(QStringLiteral("snippet")).toString();
    };
    QCOMPARE(snippet("发票"), u("這是<b>發票</b>編號"));
    QCOMPARE(snippet("合同2024"), u("签了<b>合同 2024</b> 版"));
}

void TestContentSearch::gramsHoldTheGramsOfParts()
{
    // A part at the end of a row of letters needs the beginning of a gram only.
    QCOMPARE(search::grams::gramExpression({u("ab")}), u("\"ab\"*"));
    QCOMPARE(search::grams::gramExpression({u("a"), u("，")}), QString());
    QCOMPARE(search::grams::gramExpression({u("合 A同")}),
             u("\"合\" AND \"合a\" AND \"a同\" AND \"同\""));
    QCOMPARE(search::grams::gramsOf(u("xＹz z")), u("xyz yz "));
}

void TestContentSearch::interruptsAStatement()
{
    Index index;
    search::SqlInterrupter interrupter;
    std::atomic_bool ended{false};
    std::thread other;
    bool ok = true;
    {
        const search::SqlInterrupter::Hold hold(&interrupter, index.db().connection());
        other = std::thread([&] {
            while (!ended)
                interrupter.interrupt();
        });
        QSqlQuery endless(index.db().connection());
        ok = endless.exec(QStringLiteral("WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x+1 "
                                         "FROM c) SELECT count(*) FROM c")) &&
             endless.next();
        ended = true;
    }
    other.join();
    QVERIFY(!ok);
    interrupter.interrupt(); // Nobody is there any more.
    QCOMPARE(index.exec(QStringLiteral("SELECT 1")), QVariantList{1});
}

void TestContentSearch::endsWhenCancelled()
{
    Index index;
    for (int i = 0; i < 300; ++i)
        index.add(QStringLiteral("/d/%1.txt").arg(i), u("合同"));
    int asked = 0;
    const QVariantList found = searchContents(
        index.db().connection(), u("同"), 200, QString(), [&asked] { return ++asked > 20; },
        nullptr);
    QVERIFY(found.size() < 30);
}

QTEST_GUILESS_MAIN(TestContentSearch)
#include "tst_contentsearch.moc"
