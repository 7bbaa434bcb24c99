#include "search/query/folding.h"
#include "search/query/hantables.h"
#include "search/query/pinyin.h"
#include "search/query/querylanguage.h"

#include <QDateTime>
#include <QtTest>

using namespace search::query;

namespace {

/// The parts of a query in one line, for comparing.
QString described(const Query &query)
{
    QStringList parts;
    const auto sign = [](bool negated) {
        return QLatin1String(negated ? "-" : "");
    };
    for (const Term &term : query.terms)
        parts.append(sign(term.negated) + (term.exact ? QLatin1Char('=') : QLatin1Char('~')) +
                     term.text);
    for (const Pattern &name : query.names)
        parts.append(sign(name.negated) + QLatin1String("name ") + name.text);
    for (const Pattern &folder : query.folders)
        parts.append(sign(folder.negated) + QLatin1String("in ") + folder.text);
    if (!query.size.isUnlimited())
        parts.append(QStringLiteral("size"));
    if (!query.modifiedMs.isUnlimited())
        parts.append(QStringLiteral("date"));
    return parts.join(QLatin1String("; "));
}

} // namespace

class TestSearchLanguage : public QObject
{
    Q_OBJECT

private slots:
    void lines_data();
    void lines();
    void sizes_data();
    void sizes();
    void dates_data();
    void dates();
    void patterns_data();
    void patterns();
    void folds_data();
    void folds();
    void pinyin_data();
    void pinyin();
};

void TestSearchLanguage::lines_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("meaning");
    QTest::addColumn<bool>("plain");
    const auto row = [](const char *name, const char *line, const char *meaning,
                        bool plain = false) {
        QTest::newRow(name) << QString::fromUtf8(line) << QString::fromUtf8(meaning) << plain;
    };
    row("nothing", "  ", "");
    row("a plain word", " 合同 ", "~合同", true);
    row("words", "甲方 乙方", "~甲方; ~乙方");
    row("an ideographic space parts words", "甲方　乙方", "~甲方; ~乙方");
    row("a phrase", "\"annual report\" x", "=annual report; ~x");
    row("curly quotes", "“年度 预算” x", "=年度 预算; ~x");
    row("an open quote ends with the line", "\"a b", "=a b");
    row("words stand close to a phrase", "\"a b\"c", "=a b; ~c");
    row("a quote inside a word is a letter", "5\"-disk", "~5\"-disk", true);
    row("empty quotes", "\"\" x", "~x", true);
    row("without", "合同 -草稿 -\"first draft\"", "~合同; -~草稿; -=first draft");
    row("a hyphen inside a word", "wi-fi", "~wi-fi", true);
    row("a lone hyphen", "a - b", "~a; ~-; ~b");
    row("name patterns", "*.pdf -*~ x", "~x; name *.pdf; -name *~");
    row("a folder", "path:work x -path:old", "~x; in work; -in old");
    row("a folder with a blank", "path:\"my work\" x", "~x; in my work");
    row("a full-width colon", "path：文档", "in 文档");
    row("keys in any case", "SIZE:>1m Date:2024", "size; date");
    row("unknown keys and values are words", "foo:bar size:big path: 12:30",
        "~foo:bar; ~size:big; ~path:; ~12:30");
    row("a quoted key is a phrase", "\"size:>1M\"", "=size:>1M");
    row("a path is a word", "work/report", "~work/report", true);
}

void TestSearchLanguage::lines()
{
    QFETCH(QString, line);
    const Query query = parse(line);
    QTEST(described(query), "meaning");
    QTEST(query.isPlainWord(), "plain");
    QCOMPARE(query.isEmpty(), described(query).isEmpty());
}

void TestSearchLanguage::sizes_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<qint64>("inside");
    QTest::addColumn<qint64>("outside");
    const auto row = [](const char *text, qint64 inside, qint64 outside) {
        QTest::newRow(text) << QString::fromUtf8(text) << inside << outside;
    };
    row(">1K", 1025, 1024);
    row(">=1KB", 1024, 1023);
    row("<1M", 1048575, 1048576);
    row("<=1.5m", 1572864, 1572865);
    row("1K..2K", 2048, 2049);
    row("1G..", 1073741824, 1073741823);
    row("..0", 0, 1);
    row("7", 7, 8);
    row("＞１Ｋ", 1025, 1024);
    for (const char *text : {"", "..", "big", "1X", ">", "1-2", "1..x", "99999999T"})
        row(text, -1, -1);
}

void TestSearchLanguage::sizes()
{
    QFETCH(QString, text);
    QFETCH(qint64, inside);
    QFETCH(qint64, outside);
    Range range = Range::unlimited();
    QCOMPARE(parseSizes(text, &range), inside >= 0);
    QVERIFY(inside < 0 || range.contains(inside));
    QVERIFY(outside < 0 || !range.contains(outside));
}

void TestSearchLanguage::dates_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("first"); // local times; empty for unlimited
    QTest::addColumn<QString>("next");
    const auto row = [](const char *text, const char *first, const char *next) {
        QTest::newRow(text) << QString::fromLatin1(text) << QString::fromLatin1(first)
                            << QString::fromLatin1(next);
    };
    row("2024", "2024-01-01", "2025-01-01");
    row("2024-02", "2024-02-01", "2024-03-01");
    row("2024-2-29", "2024-02-29", "2024-03-01");
    row("2024/12/31", "2024-12-31", "2025-01-01");
    row("2024-03..", "2024-03-01", "");
    row("..2024-03", "", "2024-04-01");
    row("2023..2024-06-15", "2023-01-01", "2024-06-16");
    row(">2024-03", "2024-04-01", "");
    row("<2024-03", "", "2024-03-01");
    for (const char *text : {"24", "2024-13", "2023-02-29", "soon", "..", "2024-03-"})
        row(text, "-", "-");
}

void TestSearchLanguage::dates()
{
    QFETCH(QString, text);
    QFETCH(QString, first);
    QFETCH(QString, next);
    Range range = Range::unlimited();
    QCOMPARE(parseDates(text, &range), first != QLatin1String("-"));
    const auto ms = [](const QString &day) {
        return QDateTime(QDate::fromString(day, Qt::ISODate), QTime(0, 0)).toMSecsSinceEpoch();
    };
    if (first.size() > 1)
        QCOMPARE(range.least, ms(first));
    if (next.size() > 1)
        QCOMPARE(range.most, ms(next) - 1);
}

void TestSearchLanguage::patterns_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("matches");
    const auto row = [](const char *pattern, const char *name, bool matches) {
        QTest::addRow("%s, %s", pattern, name)
            << QString::fromUtf8(pattern) << QString::fromUtf8(name) << matches;
    };
    row("*.pdf", "a.pdf", true);
    row("*.pdf", "a.pdf.txt", false);
    row("*.pdf", "pdf", false);
    row("*", "", true);
    row("a*b*c", "aXbYbc", true);
    row("a*b*c", "aXcYb", false);
    row("合?.doc*", "合同.docx", true);
}

void TestSearchLanguage::patterns()
{
    QFETCH(QString, pattern);
    QFETCH(QString, name);
    QTEST(matchesPattern(name, pattern), "matches");
}

void TestSearchLanguage::folds_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("folded");
    QTest::addColumn<bool>("needsTables");
    const auto row = [](const char *text, const char *result, bool needsTables = false) {
        QTest::newRow(text) << QString::fromUtf8(text) << QString::fromUtf8(result) << needsTables;
    };
    row("Report", "report");
    row("ＡＢＣ１２３：", "abc123:");
    row("Crème Ünal", "creme unal");
    row("Cre\xCC\x80me", "creme"); // the accent apart, as some systems store names
    row("ÀΩ", "aω");
    row("ｱが한", "アが한");
    row("😀x", "😀x");
    row("國際會議紀要", "国际会议纪要", true);
    row("頭髮發財", "头发发财", true);
    row("乾淨裡面", "干净里面", true);
    row("羣峯", "群峰", true);
    row("合同", "合同", true);
}

void TestSearchLanguage::folds()
{
    QFETCH(bool, needsTables);
    if (needsTables && hanVariantCount == 0)
        QSKIP("built without the Unihan tables");
    QFETCH(QString, text);
    QTEST(folded(text), "folded");
    for (const QChar c : qAsConst(text)) {
        if (c.unicode() >= firstHan && c.unicode() <= lastHan)
            QVERIFY(hanSpellings(c).contains(c));
    }
}

void TestSearchLanguage::pinyin_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("word");
    QTest::addColumn<bool>("reads");
    const auto row = [](const char *name, const char *word, bool reads) {
        QTest::addRow("%s, %s", name, word) << QString::fromUtf8(name) << QByteArray(word) << reads;
    };
    for (const char *word : {"hetong", "ht", "het", "heton", "htong", "he"})
        row("采购合同.docx", word, true);
    row("采购合同.docx", "cght", true);
    row("采购合同.docx", "hetongx", false);
    row("采购合同.docx", "et", false); // not from the middle of a syllable
    row("采 购", "cg", false);         // not across what stands between
    row("重庆银行", "chongqingyinhang", true);
    row("重庆银行", "zhongq", true);
    row("音乐", "yinyue", true);
    row("快乐", "kuaile", true);
    row("绿色", "lvse", true);
    row("绿色", "luse", true);
    row("长城", "chch", true);
    row("长城", "cc", true);
    row("说明书", "shms", true);
    row("report", "re", false);
}

void TestSearchLanguage::pinyin()
{
    if (hanReadingCount == 0)
        QSKIP("built without the Unihan tables");
    QFETCH(QString, name);
    QFETCH(QByteArray, word);
    QVERIFY(mayBePinyin(word));
    const QByteArray text = name.toUtf8();
    QTEST(readsAs(text.constData(), text.size(), word), "reads");
}

QTEST_GUILESS_MAIN(TestSearchLanguage)
#include "tst_searchlanguage.moc"
