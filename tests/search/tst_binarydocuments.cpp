#include "search/text/doctext.h"
#include "search/text/documenttext.h"
#include "search/text/numberformat.h"
#include "search/text/olefile.h"
#include "search/text/ppttext.h"
#include "search/text/textsink.h"
#include "search/text/xlstext.h"
#include "support/samplecontainers.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QTextCodec>
#include <QtEndian>

#include <cstring>
#include <limits>

using namespace search::text;

namespace {

constexpr int maxChars = 16384;

template <typename Number>
QByteArray bytesOf(Number number)
{
    QByteArray bytes(int(sizeof(number)), '\0');
    qToLittleEndian(number, bytes.data());
    return bytes;
}

QByteArray word(int number)
{
    return bytesOf(static_cast<quint16>(number));
}

QByteArray dword(quint32 number)
{
    return bytesOf(number);
}

QByteArray real(double number)
{
    quint64 bits = 0;
    std::memcpy(&bits, &number, sizeof(bits));
    return bytesOf(bits);
}

QByteArray biff(int type, const QByteArray &content)
{
    return word(type) + word(content.size()) + content;
}

/// A cell's place and format before its content.
QByteArray cell(int row, int column, int format = 0)
{
    return word(row) + word(column) + word(format);
}

QByteArray wide(const QString &text)
{
    return word(text.size()) + '\1' + samples::utf16(text);
}

QByteArray gbk(const QString &text)
{
    return QTextCodec::codecForName("GBK")->fromUnicode(text);
}

QByteArray ppt(int type, const QByteArray &content, int instance = 0, bool container = false)
{
    return word(instance << 4 | (container ? 0xF : 0)) + word(type) + dword(content.size()) +
           content;
}

QByteArray pptText(const QString &text)
{
    return ppt(4000, samples::utf16(text));
}

QByteArray slide(const QString &text)
{
    return ppt(1006, pptText(text), 0, true);
}

QString xlsText(const QByteArray &stream)
{
    TextSink sink(maxChars);
    readXls(stream, &sink);
    return sink.text();
}

} // namespace

class TestBinaryDocuments : public QObject
{
    Q_OBJECT

private slots:
    void readsWorkbooks_data();
    void readsWorkbooks();
    void takesOnlyTheSlidesInForce();
    void readsAllSlidesOfADamagedPresentation();
    void readsWord_data();
    void readsWord();
    void survivesDamage_data();
    void survivesDamage();
    void showsNumbers_data();
    void showsNumbers();

private:
    QString readAs(const QString &name, const QByteArray &bytes);

    QTemporaryDir m_dir;
};

QString TestBinaryDocuments::readAs(const QString &name, const QByteArray &bytes)
{
    QFile file(m_dir.filePath(name));
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        return QStringLiteral("cannot write");
    file.close();
    return readDocument(file.fileName(), maxChars, maxChars).text;
}

void TestBinaryDocuments::readsWorkbooks_data()
{
    QTest::addColumn<QByteArray>("stream");
    QTest::addColumn<QString>("expected");
    const QByteArray newBook = biff(0x809, word(0x600) + word(5));
    const QByteArray oldBook = biff(0x809, word(0x500) + word(5)) + biff(0x42, word(936));
    const auto row = [](const char *title, const QByteArray &stream, const char *expected) {
        QTest::newRow(title) << stream << QString::fromUtf8(expected);
    };

    // A string that goes on in the next record tells its width anew; here it changes.
    const QByteArray strings =
        biff(0xFC, dword(2) + dword(2) + word(4) + '\1' + samples::utf16(QStringLiteral("合同"))) +
        biff(0x3C, QByteArray("\0no", 3) + word(3) + QByteArray("\0sum", 4));
    row("shared strings over two records",
        newBook + strings + biff(0xFD, cell(0, 0) + dword(0)) + biff(0xFD, cell(0, 1) + dword(1)),
        "合同no\tsum");
    // Formatting runs and reading aids lie between the strings.
    row("rich and Asian strings",
        newBook +
            biff(0xFC, dword(2) + dword(2) + word(1) + '\x0D' + word(1) + dword(6) +
                           samples::utf16(QStringLiteral("甲")) + QByteArray(10, 'x') + word(1) +
                           '\1' + samples::utf16(QStringLiteral("乙"))) +
            biff(0xFD, cell(0, 0) + dword(0)) + biff(0xFD, cell(1, 0) + dword(1)),
        "甲\n乙");
    const QByteArray styles = biff(0x41E, word(164) + wide(QStringLiteral("#,##0.00"))) +
                              biff(0xE0, word(0) + word(0)) + biff(0xE0, word(0) + word(164)) +
                              biff(0xE0, word(0) + word(9));
    row("numbers as shown",
        newBook + styles + biff(0x203, cell(0, 0, 1) + real(1234.5)) +
            biff(0x27E, cell(0, 1, 2) + dword(25 << 2 | 3)) +
            biff(0xBD, word(1) + word(0) + word(0) + dword(7 << 2 | 2) + word(1) +
                           dword(8 << 2 | 2) + word(1)),
        "1,234.50\t25%\n7\t8.00");
    row("results of formulas",
        newBook + biff(0x06, cell(0, 0) + real(2.5) + QByteArray(6, '\0')) +
            biff(0x06, cell(0, 1) + QByteArray(6, '\0') + "\xFF\xFF" + QByteArray(6, '\0')) +
            biff(0x207, wide(QStringLiteral("文本"))) +
            biff(0x06, cell(0, 2) + '\1' + QByteArray(1, '\0') + '\1' + QByteArray(3, '\0') +
                           "\xFF\xFF" + QByteArray(6, '\0')) +
            biff(0x06, cell(0, 3) + '\2' + QByteArray(1, '\0') + '\7' + QByteArray(3, '\0') +
                           "\xFF\xFF" + QByteArray(6, '\0')),
        "2.5\t文本\tTRUE\t#DIV/0!");
    row("sheet, header and comment",
        newBook +
            biff(0x85, dword(0) + word(1) + '\2' + '\1' + samples::utf16(QStringLiteral("隐藏"))) +
            biff(0x14, wide(QStringLiteral("&L&\"Arial,Bold\"左&C&12中&R&P"))) +
            biff(0x1B6, QByteArray(10, '\0') + word(2) + QByteArray(6, '\0')) +
            biff(0x3C, '\1' + samples::utf16(QStringLiteral("批注"))),
        "隐藏\n左\t中\n批注");
    row("code page of the old format",
        oldBook + biff(0x85, dword(0) + word(0) + '\4' + gbk(QStringLiteral("表一"))) +
            biff(0x204, cell(0, 0) + word(4) + gbk(QStringLiteral("金额"))) +
            biff(0x1C, word(0) + word(0) + word(4) + gbk(QStringLiteral("核对"))),
        "表一\n金额\n核对");
    row("encrypted", newBook + biff(0x2F, word(1)) + biff(0x204, cell(0, 0) + word(1) + "\0x"), "");
}

void TestBinaryDocuments::readsWorkbooks()
{
    QFETCH(QByteArray, stream);
    QTEST(xlsText(stream), "expected");
}

void TestBinaryDocuments::takesOnlyTheSlidesInForce()
{
    // An old and a new version of one slide, notes, and a master that no reader sees as text.
    const QByteArray old = slide(QStringLiteral("旧稿"));
    const QByteArray fresh =
        ppt(1006, pptText(QStringLiteral("第一行\r第二")) + ppt(4008, "plain"), 0, true);
    const QByteArray notes = ppt(1008, pptText(QStringLiteral("备注")), 0, true);
    const QByteArray master = ppt(1016, pptText(QStringLiteral("母版")), 0, true);
    QByteArray stream = old;
    const auto add = [&stream](const QByteArray &record) {
        const auto at = static_cast<quint32>(stream.size());
        stream += record;
        return at;
    };
    const quint32 notesAt = add(notes);
    const quint32 masterAt = add(master);
    const quint32 firstTable =
        add(ppt(6002, dword(3 << 20 | 1) + dword(masterAt) + dword(0) + dword(notesAt)));
    const quint32 firstEdit = add(ppt(4085, QByteArray(8, '\0') + dword(0) + dword(firstTable)));
    const quint32 freshAt = add(fresh);
    const quint32 secondTable = add(ppt(6002, dword(1 << 20 | 2) + dword(freshAt)));
    const quint32 edit =
        add(ppt(4085, QByteArray(8, '\0') + dword(firstEdit) + dword(secondTable)));
    TextSink sink(maxChars);
    readPpt(stream, QByteArray(16, '\0') + dword(edit), &sink);
    QCOMPARE(sink.text(), QStringLiteral("第一行\n第二\nplain\n备注"));
}

void TestBinaryDocuments::readsAllSlidesOfADamagedPresentation()
{
    TextSink sink(maxChars);
    readPpt(slide(QStringLiteral("甲")) + slide(QStringLiteral("乙")), QByteArray(), &sink);
    QCOMPARE(sink.text(), QStringLiteral("甲\n乙"));
}

void TestBinaryDocuments::readsWord_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("bodyBytes");
    QTest::addColumn<QString>("expected");
    const QByteArray body = gbk(QStringLiteral("合同")) + "\x13 PAGE \x14" + "12\x15" + "a\x0B" +
                            "b\r" + "l\x07" + "r\x07" + "\x1E\r";
    QTest::newRow("fields, cells, line breaks")
        << body << body.size() << QStringLiteral("合同12a b\nl\tr\t-");
    const QByteArray note = gbk(QStringLiteral("脚注")) + '\r';
    QTest::newRow("a note ends the paragraph before it")
        << "open" + note << 4 << QStringLiteral("open\n脚注");
}

/// The layout of Word 6: all in one stream, in the code page of its language.
void TestBinaryDocuments::readsWord()
{
    QFETCH(QByteArray, text);
    QFETCH(int, bodyBytes);
    const int textStart = 0x300;
    QByteArray stream(textStart, '\0');
    const auto put = [&stream](int at, const QByteArray &bytes) {
        stream.replace(at, bytes.size(), bytes);
    };
    put(0, word(0xA5DC));
    put(2, word(104));
    put(6, word(0x804));
    put(0x18, dword(textStart));
    put(0x34, dword(quint32(bodyBytes)));
    put(0x38, dword(quint32(text.size() - bodyBytes)));
    const QByteArray file = samples::oleFile(QStringLiteral("WordDocument"), stream + text);
    QTEST(readAs(QStringLiteral("a.wps"), file), "expected");
}

void TestBinaryDocuments::survivesDamage_data()
{
    QTest::addColumn<QByteArray>("bytes");
    const QByteArray book = biff(0x809, word(0x600) + word(5));
    QTest::newRow("chain of sectors in a ring")
        << samples::oleFile(QStringLiteral("Workbook"), book).replace(512 + 8, 4, dword(2));
    QTest::newRow("string longer than its record") << samples::oleFile(
        QStringLiteral("Workbook"),
        book + biff(0xFC, dword(0xFFFFFFFF) + dword(0xFFFFFFFF) + word(0xFFFF) + '\1' + "ab"));
    QTest::newRow("slides in slides")
        << samples::oleFile(QStringLiteral("PowerPoint Document"),
                            QByteArray("\x0F\x00\xEE\x03\xFF\xFF\xFF\x7F", 8).repeated(2000));
    QTest::newRow("document of zeros")
        << samples::oleFile(QStringLiteral("WordDocument"), QByteArray("\xEC\xA5\xC1\x00", 4));
}

/// No crash and no endless run; every eighth byte is also turned over, one at a time.
void TestBinaryDocuments::survivesDamage()
{
    QFETCH(QByteArray, bytes);
    QVERIFY(readAs(QStringLiteral("whole.doc"), bytes).size() <= maxChars);
    for (int at = 8; at < qMin(bytes.size(), 2600); at += 8) {
        QByteArray damaged = bytes;
        damaged[at] = char(~damaged.at(at));
        QVERIFY(readAs(QStringLiteral("damaged.doc"), damaged).size() <= maxChars);
    }
}

void TestBinaryDocuments::showsNumbers_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<QString>("code");
    QTest::addColumn<QString>("expected");
    const auto row = [](double value, const char *code, const char *expected) {
        QTest::newRow(qPrintable(QStringLiteral("%1 %2").arg(value).arg(QString::fromUtf8(code))))
            << value << QString::fromUtf8(code) << QString::fromUtf8(expected);
    };
    row(0.1 + 0.2, "General", "0.3");
    row(1234567.891, "#,##0.00", "1,234,567.89");
    row(1.005, "0.00", "1.01");
    row(0.5, "#.##", ".5");
    row(-5, "0;(0)", "(5)");
    row(-0.001, "0.00", "0.00");
    row(0, "0;-0;\"无\"", "无");
    row(150, "[>100]\"高\"0;\"低\"0", "高150");
    row(0.1234, "0.0%", "12.3%");
    row(12345678, "0.0,,\" 百万\"", "12.3 百万");
    row(13912345678., "000-0000-0000", "139-1234-5678");
    row(12345, "0.00E+00", "1.23E+04");
    row(2.25, "# ?/?", "2 1/4");
    row(98765.4, "[$￥-804]#,##0.00", "￥98,765.40");
    row(45356, "yyyy\"年\"m\"月\"d\"日\"", "2024年3月5日");
    row(45356.573, "yyyy-mm-dd hh:mm:ss", "2024-03-05 13:45:07");
    row(45356.75, "h:mm AM/PM", "6:00 PM");
    row(1.5, "[h]:mm", "36:00");
    row(45356, "[$-804]aaaa", "星期二");
    row(45356, "[DBNum1]yyyy\"年\"m\"月\"", "二〇二四年三月");
    row(12030, "[DBNum2]General", "壹万贰仟零叁拾");
    row(5, "General\"件\"", "5件");
    row(std::numeric_limits<double>::infinity(), "0", "");
    row(1e300, "yyyy", "1E+300");
}

void TestBinaryDocuments::showsNumbers()
{
    QFETCH(double, value);
    QFETCH(QString, code);
    QTEST(shownNumber(value, code), "expected");
}

QTEST_APPLESS_MAIN(TestBinaryDocuments)
#include "tst_binarydocuments.moc"
