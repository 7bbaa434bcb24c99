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

} // namespace

/// The rules by which snippets are cut, keywords are read and suffixes are sorted, as tables.
class TestSearchSnippet : public QObject
{
    Q_OBJECT

private slots:
    void lines_data();
    void lines();
    void around_data();
    void around();
    void aroundAny_data();
    void aroundAny();
    void primary_data();
    void primary();
    void substring_data();
    void substring();
    void randomTextsKeepTheRule();
    void keywords_data();
    void keywords();
    void matchExpressions_data();
    void matchExpressions();
    void categories_data();
    void categories();
};

void TestSearchSnippet::lines_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("simple");
    QTest::newRow("tabs and runs") << s("\ta\t\tb  c ") << s("a b c");
    QTest::newRow("control characters") << s("a\x01\x02\x0b\x1f"
                                             "b\x7f")
                                        << s("a b\x7f");
    QTest::newRow("null") << QString::fromLatin1("a\0b", 3) << s("a b");
    QTest::newRow("wide blanks") << s("　甲　乙 丙") << s("甲 乙 丙");
    QTest::newRow("nothing left") << s("\x03\t\n") << QString();
}

void TestSearchSnippet::lines()
{
    QFETCH(QString, line);
    QTEST(simplifySnippetLine(line), "simple");
}

void TestSearchSnippet::around_data()
{
    QTest::addColumn<QString>("content");
    QTest::addColumn<QString>("needle");
    QTest::addColumn<QString>("snippet");
    const QString b = s("<b>K</b>");
    const QString dots = s("...");
    QTest::newRow("no content") << QString() << s("k") << QString();
    QTest::newRow("no needle") << s("k") << QString() << QString();
    QTest::newRow("not found") << s("abc\ndef") << s("k") << QString();
    QTest::newRow("written as in the text")
        << s("a HarVest b") << s("hARVEST") << s("a <b>HarVest</b> b");
    QTest::newRow("Chinese") << s("第一行\r\n这份合同已经签署\n") << s("合同")
                             << s("这份<b>合同</b>已经签署");
    QTest::newRow("first line that holds it")
        << s("\n\r\nno\n  a\tk  b \nk") << s("k") << s("a <b>k</b> b");
    QTest::newRow("blank in the needle meets a tab")
        << s("x\nfoo \t\x01 bar") << s("foo bar") << s("<b>foo bar</b>");
    QTest::newRow("120 whole") << x(119) + s("K") << s("k") << x(119) + b;
    QTest::newRow("121, match at 60")
        << x(60) + s("K") + x(60) << s("k") << x(60) + b + x(59) + dots;
    QTest::newRow("121, match at 61")
        << x(61) + s("K") + x(59) << s("k") << dots + x(60) + b + x(59);
    QTest::newRow("cut on both sides")
        << x(100) + s("K") + x(100) << s("k") << dots + x(60) + b + x(59) + dots;
    QTest::newRow("match at the end") << x(200) + s("K") << s("k") << dots + x(60) + b;
    // 60 units from the match on are kept: a longer needle is lost and the whole text is searched.
    const QString needle = QString(61, QLatin1Char('N'));
    QTest::newRow("needle longer than the cut")
        << x(70) + needle + x(70) << needle
        << dots + x(50) + s("<b>") + needle + s("</b>") + x(50) + dots;
    QTest::newRow("across a line break")
        << s("one two\nthree four") << s("two\nthree") << s("one <b>two three</b> four");
    QTest::newRow("across a break, 50 before")
        << x(49) + s("\nA\nB") << s("a\nb") << x(49) + s(" <b>A B</b>");
    QTest::newRow("across a break, 51 before")
        << x(50) + s("\nA\nB") << s("a\nb") << dots + x(49) + s(" <b>A B</b>");
    QTest::newRow("across a break, 50 after")
        << s("A\nB") + x(50) << s("a\nb") << s("<b>A B</b>") + x(50);
    QTest::newRow("across a break, 51 after")
        << s("A\nB") + x(51) << s("a\nb") << s("<b>A B</b>") + x(50) + dots;
    QTest::newRow("the dots of the cut count as text")
        << x(100) + s(".") + x(100) << s(".") << s("<b>.</b>..") + x(60) + s(".") + x(59) + dots;
}

void TestSearchSnippet::around()
{
    QFETCH(QString, content);
    QFETCH(QString, needle);
    QTEST(makeSnippetAround(content, needle), "snippet");
}

void TestSearchSnippet::aroundAny_data()
{
    QTest::addColumn<QStringList>("needles");
    QTest::addColumn<QString>("snippet");
    QTest::newRow("none") << QStringList{} << QString();
    QTest::newRow("not found") << QStringList{s("zz")} << QString();
    QTest::newRow("earliest wins")
        << QStringList{s("gamma"), s("BETA"), s("zz")} << s("alpha <b>beta</b>");
    QTest::newRow("first listed on a tie")
        << QStringList{s("alp"), s("alpha")} << s("<b>alp</b>ha beta");
}

void TestSearchSnippet::aroundAny()
{
    QFETCH(QStringList, needles);
    QTEST(makeSnippetAroundAny(s("alpha beta\ngamma"), needles), "snippet");
}

void TestSearchSnippet::primary_data()
{
    QTest::addColumn<QString>("keyword");
    QTest::addColumn<QString>("snippet");
    QTest::newRow("whole keyword") << s("beta gamma") << s("alpha <b>beta gamma</b>");
    QTest::newRow("its words") << s("delta  beta") << s("alpha <b>beta</b> gamma");
    QTest::newRow("one word only") << s("omega") << QString();
    QTest::newRow("one word and a blank") << s(" beta ") << s("alpha<b> beta </b>gamma");
    QTest::newRow("one word with blanks around, not found") << s("  beta") << QString();
}

void TestSearchSnippet::primary()
{
    QFETCH(QString, keyword);
    QTEST(makePrimarySnippet(s("alpha beta gamma\ndelta"), keyword), "snippet");
}

void TestSearchSnippet::substring_data()
{
    QTest::addColumn<QString>("content");
    QTest::addColumn<QString>("snippet");
    const QString b = s("<b>Key</b>");
    QTest::newRow("not found") << s("abc") << QString();
    QTest::newRow("whole, line breaks kept") << s("a\n\tKey\nb") << s("a\n\t<b>Key</b>\nb");
    QTest::newRow("40 before and after") << x(40) + s("Key") + x(40) << x(40) + b + x(40);
    QTest::newRow("41 before and after")
        << x(41) + s("Key") + x(41) << s("...") + x(40) + b + x(40) + s("...");
}

void TestSearchSnippet::substring()
{
    QFETCH(QString, content);
    QTEST(makeSubstringSnippet(content, s("kEY")), "snippet");
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
    const QRegularExpression breaks(s("[\r\n]+"));
    for (int i = 0; i < 20000; ++i) {
        const QString content = draw(40);
        const QString needle = draw(4);
        QString expected;
        for (const QString &raw : content.split(breaks)) {
            const QString line = simplifySnippetLine(raw);
            const int at = line.indexOf(needle, 0, Qt::CaseInsensitive);
            if (expected.isEmpty() && !line.isEmpty() && !needle.isEmpty() && at >= 0)
                expected = line.left(at) + s("<b>") + line.mid(at, needle.size()) + s("</b>") +
                           line.mid(at + needle.size());
        }
        const int at = content.indexOf(needle, 0, Qt::CaseInsensitive);
        if (expected.isEmpty() && !needle.isEmpty() && at >= 0)
            expected =
                simplifySnippetLine(content.left(at) + s("<b>") + content.mid(at, needle.size()) +
                                    s("</b>") + content.mid(at + needle.size()));
        QCOMPARE(makeSnippetAround(content, needle), expected);
    }
}

void TestSearchSnippet::keywords_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("words");
    QTest::newRow("nothing") << s(" ,;\r\n ") << QStringList{};
    QTest::newRow("case") << s("a,b;A") << QStringList{s("a"), s("b")};
    QTest::newRow("separators, blanks inside")
        << s(" two words \r\n合同;;x,合同") << QStringList{s("two words"), s("合同"), s("x")};
}

void TestSearchSnippet::keywords()
{
    QFETCH(QString, text);
    QTEST(splitKeywords(text), "words");
}

void TestSearchSnippet::matchExpressions_data()
{
    QTest::addColumn<QString>("keyword");
    QTest::addColumn<QString>("expression");
    QTest::newRow("word") << s(" 合同 ") << s("\"合同\"*");
    QTest::newRow("only special") << s("{}+-^:'()\"") << QString();
    QTest::newRow("query syntax") << s("\"a\" OR b*") << s("\"a  OR b*\"*");
    QTest::newRow("blanks inside stay") << s("(foo:bar)") << s("\"foo bar\"*");
}

void TestSearchSnippet::matchExpressions()
{
    QFETCH(QString, keyword);
    QTEST(buildFtsMatchExpr(keyword), "expression");
}

void TestSearchSnippet::categories_data()
{
    QTest::addColumn<QString>("suffixes");
    QTest::newRow("document") << s("doc docx xls xlsx ppt pptx wps et dps pdf rtf odt ods odp ofd "
                                   "txt md csv");
    QTest::newRow("image") << s("jpg jpeg png gif bmp svg webp tiff ico");
    QTest::newRow("video") << s("mp4 avi mkv mov wmv flv webm");
    QTest::newRow("audio") << s("mp3 wav flac ogg aac wma m4a");
    QTest::newRow("archive") << s("zip tar gz bz2 xz 7z rar");
    QTest::newRow("code") << s(
        "py js ts jsx tsx cpp c h hpp java go rs rb php sh sql html xml json "
        "yaml yml");
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
