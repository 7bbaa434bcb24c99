#include "search/searchcategory.h"
#include "search/searchkeywords.h"
#include "search/searchsnippet.h"

#include <QRegularExpression>
#include <QtTest>

#include <random>

using namespace search;

namespace {

QString x(int count)
{
    return QString(count, QLatin1Char('x'));
}

QString s(const char *text)
{
    return QString::fromUtf8(text);
}

// The rules under test as functions of a text and an argument. Lists are joined by bars.
using Rule = QString (*)(const QString &, const QString &);

QString line(const QString &text, const QString &)
{
    return simplifySnippetLine(text);
}

QString any(const QString &text, const QString &needles)
{
    return makeSnippetAroundAny(text, needles.split(QLatin1Char('|')));
}

QString words(const QString &text, const QString &)
{
    return splitKeywords(text).join(QLatin1Char('|'));
}

QString expression(const QString &keyword, const QString &)
{
    return buildFtsMatchExpr(keyword);
}

} // namespace

Q_DECLARE_METATYPE(Rule)

/// How snippets are cut, keywords are read and suffixes are sorted.
class TestSearchSnippet : public QObject
{
    Q_OBJECT

private slots:
    void rules_data();
    void rules();
    void randomTextsKeepTheRule();
    void categories_data();
    void categories();
};

void TestSearchSnippet::rules_data()
{
    QTest::addColumn<Rule>("rule");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("argument");
    QTest::addColumn<QString>("result");
    const auto row = [](const char *name, Rule rule, const QString &text, const QString &argument,
                        const QString &result) {
        QTest::newRow(name) << rule << text << argument << result;
    };
    const QString none;
    const QString b = s("<b>K</b>");
    const QString dots = s("...");

    row("line: tabs and runs", line, s("\ta\t\tb  c "), none, s("a b c"));
    row("line: control characters", line,
        s("a\x01\x02\x0b\x1f"
          "b\x7f"),
        none, s("a b\x7f"));
    row("line: null", line, QString::fromLatin1("a\0b", 3), none, s("a b"));
    row("line: wide blanks", line, s("　甲　乙 丙"), none, s("甲 乙 丙"));

    const Rule around = makeSnippetAround;
    row("no content", around, none, s("k"), none);
    row("no needle", around, s("k"), none, none);
    row("not found", around, s("abc\ndef"), s("k"), none);
    row("case", around, s("a HarVest b"), s("hARVEST"), s("a <b>HarVest</b> b"));
    row("Chinese", around, s("第一行\r\n这份合同已经签署\n"), s("合同"),
        s("这份<b>合同</b>已经签署"));
    row("first line that holds it", around, s("\n\r\nno\n  a\tk  b \nk"), s("k"),
        s("a <b>k</b> b"));
    row("a blank meets a tab", around, s("x\nfoo \t\x01 bar"), s("foo bar"), s("<b>foo bar</b>"));
    row("120 whole", around, x(119) + s("K"), s("k"), x(119) + b);
    row("121, at 60", around, x(60) + s("K") + x(60), s("k"), x(60) + b + x(59) + dots);
    row("121, at 61", around, x(61) + s("K") + x(59), s("k"), dots + x(60) + b + x(59));
    row("cut twice", around, x(99) + s("K") + x(99), s("k"), dots + x(60) + b + x(59) + dots);
    row("at the end", around, x(200) + s("K"), s("k"), dots + x(60) + b);
    // 60 units from the match on are kept: a longer needle is lost and the whole text is searched.
    const QString needle(61, QLatin1Char('N'));
    row("needle longer than the cut", around, x(70) + needle + x(70), needle,
        dots + x(50) + s("<b>") + needle + s("</b>") + x(50) + dots);
    row("the dots of the cut count as text", around, x(100) + s(".") + x(100), s("."),
        s("<b>.</b>..") + x(60) + s(".") + x(59) + dots);
    row("across lines", around, s("one two\nthree"), s("two\nthree"), s("one <b>two three</b>"));
    row("50 before", around, x(49) + s("\nA\nB"), s("a\nb"), x(49) + s(" <b>A B</b>"));
    row("51 before", around, x(50) + s("\nA\nB"), s("a\nb"), dots + x(49) + s(" <b>A B</b>"));
    row("50 after", around, s("A\nB") + x(50), s("a\nb"), s("<b>A B</b>") + x(50));
    row("51 after", around, s("A\nB") + x(51), s("a\nb"), s("<b>A B</b>") + x(50) + dots);

    const QString greek = s("alpha beta gamma\ndelta");
    row("any: not found", any, greek, s("zz"), none);
    row("any: earliest wins", any, greek, s("delta|BETA|zz"), s("alpha <b>beta</b> gamma"));
    row("any: first listed on a tie", any, greek, s("alp|alpha"), s("<b>alp</b>ha beta gamma"));
    const Rule primary = makePrimarySnippet;
    row("primary: whole", primary, greek, s("beta gamma"), s("alpha <b>beta gamma</b>"));
    row("primary: its words", primary, greek, s("delta  beta"), s("alpha <b>beta</b> gamma"));
    row("primary: one word only", primary, greek, s("  beta"), none);

    const Rule substring = makeSubstringSnippet;
    row("substring: not found", substring, s("abc"), s("k"), none);
    row("substring: as it is", substring, s("a\n\tK\nb"), s("k"), s("a\n\t<b>K</b>\nb"));
    row("substring: 40", substring, x(40) + s("K") + x(40), s("k"), x(40) + b + x(40));
    row("substring: 41", substring, x(41) + s("K") + x(41), s("k"),
        dots + x(40) + b + x(40) + dots);

    row("words: none", words, s(" ,;\r\n "), none, none);
    row("words: case", words, s("a,b;A"), none, s("a|b"));
    row("words: blanks", words, s(" two words \r\n合同;;x,合同"), none, s("two words|合同|x"));
    row("match: word", expression, s(" 合同 "), none, s("\"合同\"*"));
    row("match: only special", expression, s("{}+-^:'()\""), none, none);
    row("match: syntax", expression, s("\"a\" OR (b:c)*"), none, s("\"a  OR  b c *\"*"));
}

void TestSearchSnippet::rules()
{
    QFETCH(Rule, rule);
    QFETCH(QString, text);
    QFETCH(QString, argument);
    QTEST(rule(text, argument), "result");
}

// The line is looked up without simplifying those before it; this is the rule without that.
void TestSearchSnippet::randomTextsKeepTheRule()
{
    std::mt19937 random(7);
    const QString alphabet = s("abAB \t\n\r\x01　中");
    const auto draw = [&](int atMost) {
        QString text;
        for (unsigned n = random() % unsigned(atMost); n > 0; --n)
            text += alphabet.at(int(random() % unsigned(alphabet.size())));
        return text;
    };
    const auto marked = [](const QString &text, int at, int size) {
        return text.left(at) + s("<b>") + text.mid(at, size) + s("</b>") + text.mid(at + size);
    };
    const QRegularExpression breaks(s("[\r\n]+"));
    for (int i = 0; i < 20000; ++i) {
        const QString content = draw(40);
        const QString needle = draw(4);
        QString expected;
        const QStringList raws = content.split(breaks);
        for (const QString &raw : raws) {
            const QString simple = simplifySnippetLine(raw);
            const int at = simple.indexOf(needle, 0, Qt::CaseInsensitive);
            if (expected.isEmpty() && !simple.isEmpty() && !needle.isEmpty() && at >= 0)
                expected = marked(simple, at, needle.size());
        }
        const int at = content.indexOf(needle, 0, Qt::CaseInsensitive);
        if (expected.isEmpty() && !needle.isEmpty() && at >= 0)
            expected = simplifySnippetLine(marked(content, at, needle.size()));
        QCOMPARE(makeSnippetAround(content, needle), expected);
    }
}

void TestSearchSnippet::categories_data()
{
    QTest::addColumn<QString>("suffixes");
    QTest::newRow("document") << s("doc wps et dps ofd txt md csv");
    QTest::newRow("image") << s("jpg svg ico");
    QTest::newRow("video") << s("mp4 webm");
    QTest::newRow("audio") << s("mp3 m4a");
    QTest::newRow("archive") << s("zip 7z rar");
    QTest::newRow("code") << s("py h html json yml");
    QTest::newRow("other") << s("exe docm DOC ");
}

void TestSearchSnippet::categories()
{
    QFETCH(QString, suffixes);
    const QStringList list = suffixes.split(QLatin1Char(' '));
    for (const QString &suffix : list)
        QCOMPARE(categoryForSuffix(suffix), QLatin1String(QTest::currentDataTag()));
}

QTEST_APPLESS_MAIN(TestSearchSnippet)
#include "tst_searchsnippet.moc"
