#include "search/extract/oletext.h"
#include "support/samplecontainers.h"

#include <QTemporaryFile>
#include <QTest>

namespace {

/// UTF-16, little-endian, with `shift` bytes in front.
QByteArray units(const QString &text, int shift = 0)
{
    return QByteArray(shift, '\0') + samples::utf16(text);
}

QString zeros(int count)
{
    return QString(count, QChar(0));
}

} // namespace

/// The rules of what counts as text in raw bytes.
class TestOleText : public QObject
{
    Q_OBJECT

private slots:
    void textRules_data();
    void textRules();
    void scan_data();
    void scan();
    void longTextsAreCut();
    void onlyTheFirstTwoMebibytesCount();
    void compoundDocuments_data();
    void compoundDocuments();
    void cutNeverSplitsAPair();
};

void TestOleText::textRules_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("extracted");
    QTest::addColumn<bool>("oleString");
    QTest::addColumn<bool>("slide");

    const auto row = [](const char *name, const char *text, bool extracted, bool ole, bool slide) {
        QTest::newRow(name) << QString::fromUtf8(text) << extracted << ole << slide;
    };
    row("empty", "", false, false, false);
    row("three characters", "中文字", false, true, false);
    row("two CJK, one of them last", "12中文", false, false, false);
    row("two CJK before the last", "12中文3", true, true, false);
    row("CJK limits", "\u4E00\u9FFF12", true, true, false);
    row("beyond the CJK limits", "\u4DFF\uA000\u3041\u3042\u3043", false, false, false);
    row("four letters", "abcd", false, false, false);
    row("five letters", "abcde", false, true, false);
    row("six letters", "abcdef", false, true, false);
    row("seven letters", "abcdefg", true, true, false);
    row("last one no letter", "abcdef.", true, true, false);
    row("digits are no letters", "1234567890123456", false, false, true);
    row("accents are no letters", "éééééééééééééééé", false, false, false);
    row("blanks count only once for the slide", "a b     c      d      e", false, true, false);
    row("fifteen characters of a slide", "中文中文中文中文中文中文中文中", true, true, false);
    row("sixteen with two CJK", "中文............", true, true, false);
    row("seventeen with two CJK", "中文...............", true, true, true);
    row("one CJK only", "中................", false, false, false);
    row("eleven letters", "abcdefghijk.....-", true, true, false);
    row("twelve letters", "abcdefghijkl....-", true, true, true);
    row("letters and digits", "abcd123456789012", false, true, true);
    row("letters and digits, one short", "abcd12345678901.", false, true, false);
}

void TestOleText::textRules()
{
    QFETCH(QString, text);
    QTEST(search::hasMeaningfulExtractedText(text), "extracted");
    QTEST(search::isMeaningfulOleString(text), "oleString");
    QTEST(search::hasMeaningfulSlideText(text), "slide");
}

void TestOleText::scan_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QString>("expected");

    // Neither swapped nor shifted by a byte do these characters give others of a run.
    const QString people = QStringLiteral("中国人上中国");
    const QString three = QStringLiteral("中国人");
    const QString four = QStringLiteral("中国人上");
    const QString gap = zeros(1);
    const auto row = [](const char *name, const QByteArray &data, const QString &expected) {
        QTest::newRow(name) << data << expected;
    };
    row("nothing", QByteArray(), QString());
    row("seven bytes", units(three) + 'x', QString());
    row("eight bytes", units(four), four);
    row("even offset", units(zeros(4) + people + zeros(4)), people);
    row("odd offset", units(zeros(4) + people + zeros(4), 1), people);
    row("run at the end of the data", units(zeros(4) + people), people);
    row("odd offset, run at the end", units(zeros(4) + people, 1), people);
    row("half a unit at the end", units(zeros(4) + people) + '\x4E', people);
    row("three characters are too short", units(three + zeros(4)), QString());
    row("three characters and blanks", units(QStringLiteral("  中国人 ") + zeros(2)), QString());
    row("white space is simplified", units(QStringLiteral("\r\n中国\t 人上  ")),
        QStringLiteral("中国 人上"));
    row("two runs, in order", units(people + gap + four), people + QLatin1Char('\n') + four);
    row("a repeated run counts once", units(four + gap + people + gap + four),
        four + QLatin1Char('\n') + people);
    row("the same run at both offsets counts once", units(four + zeros(2)) + units(four, 1), four);
    row("both offsets, the even one first",
        units(zeros(1) + four, 1) + QByteArray(3, '\0') + units(people),
        people + QLatin1Char('\n') + four);
    // Between the marks stands a character, since marks in a row make CJK ones at the other offset.
    QString marks;
    for (const char mark : QByteArray("!\"#%&'()+,-./:;?[\\]_{}"))
        marks += QLatin1Char(mark) + QStringLiteral("国");
    row("all marks of a run", units(marks), marks);
    for (const char mark : {'$', '*', '<', '=', '>', '@', '^', '`', '|', '~', '\x7F', '\x01'})
        row(qPrintable(QStringLiteral("mark %1 ends a run").arg(static_cast<int>(mark))),
            units(four + QLatin1Char(mark) + people), four + QLatin1Char('\n') + people);
    row("digits alone are no text", units(QStringLiteral("201$0102030$405060708")), QString());
}

void TestOleText::scan()
{
    QFETCH(QByteArray, data);
    QTEST(search::scanUtf16Text(data), "expected");
}

void TestOleText::longTextsAreCut()
{
    // 1639 lines of 10 characters with their line feeds are 16389 characters: the last one goes
    // over the limit, and what follows is not looked at.
    QString text;
    for (int i = 0; i < 2000; ++i)
        text += QStringLiteral("国人%1").arg(i, 6, 10, QLatin1Char('0')) + QStringLiteral("中国") +
                QChar(0);
    const QString found = search::scanUtf16Text(units(text));
    QCOMPARE(found.size(), search::maxTextChars);
    QVERIFY(found.startsWith(QStringLiteral("国人000000中国\n国人000001中国\n")));
    QVERIFY(found.contains(QStringLiteral("国人001488中国")));
    QVERIFY(!found.contains(QStringLiteral("国人001490")));
}

void TestOleText::onlyTheFirstTwoMebibytesCount()
{
    const QString inside = QStringLiteral("中国人上");
    const int room = 2097152 - 8;
    for (const int start : {room, room + 2}) {
        QTemporaryFile file;
        QVERIFY(file.open());
        const QByteArray data = QByteArray(start, '\0') + units(inside);
        QCOMPARE(file.write(data), qint64(data.size()));
        QVERIFY(file.flush());
        QCOMPARE(search::extractOleUtf16Text(file.fileName()), start == room ? inside : QString());
    }
    QCOMPARE(search::extractOleUtf16Text(QStringLiteral("/nonexistent")), QString());
}

void TestOleText::compoundDocuments_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<bool>("expected");
    const QByteArray magic = QByteArray::fromHex("D0CF11E0A1B11AE1");
    QTest::newRow("magic alone") << magic << true;
    QTest::newRow("magic and more") << magic + "more" << true;
    QTest::newRow("one byte short") << magic.left(7) << false;
    QTest::newRow("last byte differs") << magic.left(7) + '\0' << false;
    QTest::newRow("zip") << QByteArray("PK\3\4\0\0\0\0\0") << false;
    QTest::newRow("empty") << QByteArray() << false;
}

void TestOleText::compoundDocuments()
{
    QFETCH(QByteArray, data);
    QTemporaryFile file;
    QVERIFY(file.open());
    QCOMPARE(file.write(data), qint64(data.size()));
    QVERIFY(file.flush());
    QTEST(search::isOleCompoundDocument(file.fileName()), "expected");
}

void TestOleText::cutNeverSplitsAPair()
{
    const QString pair = QString::fromUtf8("😀");
    const QString filler(search::maxTextChars - 1, QLatin1Char('a'));
    QCOMPARE(search::cutText(filler + QLatin1Char('b')), filler + QLatin1Char('b'));
    QCOMPARE(search::cutText(filler + QStringLiteral("bc")), filler + QLatin1Char('b'));
    QCOMPARE(search::cutText(filler + pair), filler);
    QCOMPARE(search::cutText(filler.mid(1) + pair + pair), filler.mid(1) + pair);
}

QTEST_GUILESS_MAIN(TestOleText)
#include "tst_oletext.moc"
