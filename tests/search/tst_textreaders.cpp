#include "search/text/documenttext.h"
#include "support/samplecontainers.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QTextCodec>

using search::text::readDocument;

namespace {

constexpr int maxChars = 16384;

QByteArray gbk(const char *text)
{
    return QTextCodec::codecForName("GBK")->fromUnicode(QString::fromUtf8(text));
}

/// Bytes of GBK as rich text writes them.
QByteArray rtfBytes(const char *text)
{
    QByteArray escapes;
    for (const char c : gbk(text))
        escapes += "\\'" + QByteArray(1, c).toHex();
    return escapes;
}

} // namespace

class TestTextReaders : public QObject
{
    Q_OBJECT

private slots:
    void readsWhatAReaderSees_data();
    void readsWhatAReaderSees();
    void survivesDamage_data();
    void survivesDamage();

private:
    QString read(const QString &name, const QByteArray &bytes);
    void rtfRows();
    void mailRows();
    void plainRows();
    void zipRows();

    QTemporaryDir m_dir;
};

QString TestTextReaders::read(const QString &name, const QByteArray &bytes)
{
    QFile file(m_dir.filePath(name));
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        return QStringLiteral("cannot write");
    file.close();
    return readDocument(file.fileName(), maxChars, maxChars).text;
}

void TestTextReaders::rtfRows()
{
    const auto row = [](const char *title, const QByteArray &body, const char *expected) {
        QTest::newRow(title) << QStringLiteral("a.rtf") << "{\\rtf1" + body + "}"
                             << QString::fromUtf8(expected);
    };
    row("rtf: code page", "\\ansi\\ansicpg936 " + rtfBytes("合同") + "\\par " + rtfBytes("金额"),
        "合同\n金额");
    row("rtf: unicode with replacement", "\\uc1 \\u21512?\\u21516 ?\\par", "合同");
    row("rtf: font's charset",
        "\\ansicpg1252\\deff0{\\fonttbl{\\f0\\fcharset0 Arial;}{\\f1\\fcharset134 SimSun;}}"
        "caf\\'e9 {\\f1 " +
            rtfBytes("中") + "}",
        "café 中");
    row("rtf: undeclared code page", rtfBytes("会议纪要"), "会议纪要");
    row("rtf: hidden destinations",
        "{\\stylesheet{\\s1 Normal;}}{\\info{\\title no}}{\\*\\generator no;}a{\\pict 00ff}b",
        "ab");
    row("rtf: table and notes",
        "left\\cell right\\row body{\\footnote note} text\\par{\\header top\\par}",
        "left\tright\nbody text\nnote\ntop");
    row("rtf: formatting inside a phrase", "{\\b con}{\\i tract}\r\ned", "contracted");
    QTest::newRow("rtf under doc")
        << QStringLiteral("a.doc") << QByteArray("{\\rtf1 text}") << QStringLiteral("text");
}

void TestTextReaders::mailRows()
{
    const auto row = [](const char *title, const QByteArray &bytes, const char *expected) {
        QTest::newRow(title) << QStringLiteral("a.eml") << bytes << QString::fromUtf8(expected);
    };
    row("mail: encoded words in pieces",
        "Subject: =?utf-8?B?5ZCI?=\r\n =?UTF-8?Q?=E5=90=8C?= v2\r\nFrom: a@b\r\n\r\nhello\r\n",
        "合同 v2\na@b\nhello");
    row("mail: quoted-printable in GBK",
        "Content-Type: text/plain; charset=gb2312\r\n"
        "Content-Transfer-Encoding: quoted-printable\r\n\r\n=BA=CF=\r\n=CD=AC\r\n",
        "合同");
    row("mail: raw GBK without a declaration", "Subject: " + gbk("会议通知") + "\n\n" + gbk("今天"),
        "会议通知\n今天");
    row("mail: attachment names",
        "Content-Type: multipart/mixed; boundary=\"x\"\n\n--x\n\nbody\n--x\n"
        "Content-Type: application/pdf; name=\"=?utf-8?B?5ZCI5ZCM?=.pdf\"\n"
        "Content-Transfer-Encoding: base64\n\nAAAA\n--x\n"
        "Content-Disposition: attachment; filename*=utf-8''%E9%87%91%E9%A2%9D.xls\n\n\n--x--\n",
        "body\n合同.pdf\n金额.xls");
    row("mail: the fuller alternative",
        "Content-Type: multipart/alternative; boundary=y\n\n--y\nContent-Type: text/plain\n\n"
        "see\n--y\nContent-Type: text/html\n\n<p>the whole text</p>\n--y--\n",
        "the whole text");
    QTest::newRow("mailbox") << QStringLiteral("a.mbox")
                             << QByteArray(
                                    "From a\nSubject: one\n\nx\n\nFrom b\nSubject: two\n\ny\n")
                             << QStringLiteral("one\nx\ntwo\ny");
}

void TestTextReaders::plainRows()
{
    const auto row = [](const char *name, const QByteArray &bytes, const char *expected) {
        QTest::newRow(name) << QString::fromLatin1(name) << bytes << QString::fromUtf8(expected);
    };
    row("a.csv", gbk("编号,姓名\n1,张三\n"), "编号,姓名\n1,张三\n");
    row("a.log", gbk("错误: 无法连接服务器"), "错误: 无法连接服务器");
    row("a.srt",
        "1\n00:00:01,000 --> 00:00:02,000\n<i>Hello</i>\nthere\n\n2\n00:00:03,000 --> "
        "00:00:04,000\n1984\n",
        "Hello there\n1984");
    row("a.html",
        "<html><head><meta charset=gbk><title>" + gbk("标题") +
            "</title><style>p{}</style></head><body><!-- no --><p>" + gbk("甲<b>方</b>\n乙方") +
            "&amp;&#20013;&nbsp;a &lt; "
            "b</p><script>if(a<b){}</script><table><tr><td>1<td>2</table>",
        "标题\n甲方乙方&中 a < b\n1\t2");
    row("page.doc", "<html><body>text<br>more</body></html>", "text more");
    row("a.htm", "a < b & c <unclosed", "a < b & c");
}

void TestTextReaders::zipRows()
{
    const auto row = [](const char *title, const char *name, const samples::ZipEntries &entries,
                        const char *expected) {
        QTest::newRow(title) << QString::fromLatin1(name)
                             << samples::zipArchive(entries, samples::ZipMethod::Deflate)
                             << QString::fromUtf8(expected);
    };
    const auto member = [](const char *name, const char *bytes) {
        return qMakePair(QString::fromLatin1(name), QByteArray(bytes));
    };
    row("docx: runs, text box, header", "a.docx",
        {member("word/header1.xml", "<w:hdr xmlns:w='w'><w:p><w:t>top</w:t></w:p></w:hdr>"),
         member("word/document.xml",
                "<d xmlns:w='w'><w:p><w:t>con</w:t><w:txbxContent><w:p><w:t>box</w:t></w:p>"
                "</w:txbxContent><w:r><w:instrText>PAGE</w:instrText><w:t>tract</w:t></w:r></w:p>"
                "<w:p><w:t>next</w:t></w:p></d>")},
        "contract\nnext\nbox\ntop");
    row("xlsx under et: shared, inline, number, formula", "a.et",
        {member("xl/workbook.xml", "<w><sheet name='Sums' state='hidden'/></w>"),
         member("xl/sharedStrings.xml",
                "<s><si><r><t>am</t></r><r><t>ount</t></r><rPh><t>x</t></rPh></si></s>"),
         member("xl/worksheets/sheet1.xml",
                "<w><row><c t='s'><v>0</v></c><c><v>0.30000000000000004</v></c></row><row>"
                "<c t='inlineStr'><is><t>in</t></is></c><c t='str'><f>A1</f><v>res</v></c></row>"
                "</w>")},
        "Sums\namount\t0.3\nin\tres");
    row("pptx: order and notes", "a.pptx",
        {member("ppt/presentation.xml", "<p/>"),
         member("ppt/slides/slide10.xml", "<s xmlns:a='a'><a:p><a:t>ten</a:t></a:p></s>"),
         member("ppt/slides/slide2.xml", "<s xmlns:a='a'><a:p><a:t>t</a:t><a:t>wo</a:t></a:p></s>"),
         member("ppt/notesSlides/notesSlide1.xml", "<s xmlns:a='a'><a:p><a:t>say</a:t></a:p></s>")},
        "two\nten\nsay");
    row("odt: note, blanks, footer", "a.odt",
        {member("content.xml",
                "<o xmlns:t='t'><t:p>a<t:s/>b<t:note><t:note-citation>1</t:note-citation>"
                "<t:note-body><t:p>note</t:p></t:note-body></t:note>c</t:p></o>"),
         member("styles.xml", "<o xmlns:t='t'><t:p>foot</t:p></o>")},
        "a bc\nnote\nfoot");
    row("ofd: a line of several objects", "a.ofd",
        {member("OFD.xml", "<o/>"),
         member("Doc_0/Pages/Page_0/Content.xml",
                "<Page><TextObject><TextCode>\xE5\x8F\x91</TextCode></TextObject>\n"
                "<TextObject><TextCode>\xE7\xA5\xA8</TextCode></TextObject></Page>")},
        "发票");
    row("epub: by its spine", "a.epub",
        {member("META-INF/container.xml", "<c><rootfile full-path='O/b.opf'/></c>"),
         member("O/b.opf", "<p><title>Book</title><item id='x' href='t/b%20b.xhtml'/>"
                           "<item id='y' href='a.xhtml'/><itemref idref='x'/>"
                           "<itemref idref='y'/></p>"),
         member("O/a.xhtml", "<html><p>last</p></html>"),
         member("O/t/b b.xhtml", "<html><p>first</p></html>")},
        "Book\nfirst\nlast");
    row("zip: names", "a.zip", {member("dir/plan.txt", "x"), member("b.doc", "")},
        "dir/plan.txt\nb.doc");
}

void TestTextReaders::readsWhatAReaderSees_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("expected");
    rtfRows();
    mailRows();
    plainRows();
    zipRows();
}

void TestTextReaders::readsWhatAReaderSees()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, bytes);
    QTEST(read(name, bytes), "expected");
}

void TestTextReaders::survivesDamage_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("bytes");
    const auto row = [](const char *name, const QByteArray &bytes) {
        QTest::newRow(name) << QString::fromLatin1(name) << bytes;
    };
    row("deep.rtf", "{\\rtf1" + QByteArray(100000, '{') + "x");
    row("open.rtf", "{\\rtf1 text\\'");
    row("bin.rtf", "{\\rtf1 text\\bin2147483647 x");
    row("nested.eml",
        QByteArray("Content-Type: multipart/mixed; boundary=b\n\n--b\n").repeated(500));
    row("header.eml", "Subject: =?utf-8?B?");
    const QByteArray zip = samples::zipArchive(
        {{QStringLiteral("word/document.xml"), "<w><p><t>" + QByteArray(500, 'x') + "</t>"}},
        samples::ZipMethod::Deflate);
    row("whole.docx", zip);
    // Sizes and offsets that lie beyond the file.
    row("directory.docx", QByteArray(zip).replace(zip.size() - 10, 4, "\xFF\xFF\xFF\x7F"));
    row("deep.docx", samples::zipArchive({{QStringLiteral("word/document.xml"),
                                           QByteArray("<p>").repeated(50000)}}));
    row("entity.html", "<html>&#x110000;&#xD800;&#99999999999;&;<a");
}

/// No crash and no endless run; the bytes are also cut at every eighth of their length.
void TestTextReaders::survivesDamage()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, bytes);
    for (int i = 1; i <= 8; ++i)
        QVERIFY(read(name, bytes.left(bytes.size() * i / 8)).size() <= maxChars);
}

QTEST_APPLESS_MAIN(TestTextReaders)
#include "tst_textreaders.moc"
