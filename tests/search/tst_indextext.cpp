#include "search/extract/indextext.h"
#include "search/extract/layouttext.h"
#include "search/extract/readerpool.h"
#include "support/faketools.h"
#include "support/sampledocuments.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QTextCodec>

#include <thread>
#include <vector>

using namespace search;

namespace {

constexpr int maxBytes = 16384;
const ReaderLimits limits{maxBytes, maxBytes};

QString helperPath()
{
    return QStringLiteral(MORVANE_EXTRACT);
}

} // namespace

class TestIndexText : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void readsEveryFormat();
    void readsWithoutTheHelperAsTheToolsDo();
    void tellsWhatIsCut_data();
    void tellsWhatIsCut();
    void readsFromSeveralThreads();
    void survivesAHelperThatFails_data();
    void survivesAHelperThatFails();
    void endsAHelperThatIsNoLongerWanted();
    void choosesTheBetterText_data();
    void choosesTheBetterText();
    void joinsLinesOfAParagraph_data();
    void joinsLinesOfAParagraph();

private:
    QString write(const QString &name, const QByteArray &bytes);

    QTemporaryDir m_dir;
};

void TestIndexText::initTestCase()
{
    QVERIFY(m_dir.isValid());
    QVERIFY2(QFile::exists(helperPath()), qPrintable(helperPath()));
}

QString TestIndexText::write(const QString &name, const QByteArray &bytes)
{
    QString error;
    const QString path = m_dir.filePath(name);
    if (!samples::writeFile(path, bytes, &error))
        qWarning().noquote() << error;
    return path;
}

/// Of LibreOffice's documents too, where it is installed.
void TestIndexText::readsEveryFormat()
{
    const QTemporaryDir documents;
    QList<samples::Document> made;
    QString error;
    QVERIFY2(samples::writeDocuments(documents.path(), samples::officeAvailable(), &made, &error),
             qPrintable(error));
    ReaderPool readers(helperPath());
    for (const samples::Document &document : qAsConst(made)) {
        const IndexText text =
            readForIndex(readers, documents.filePath(document.fileName), maxBytes, nullptr);
        QVERIFY2(text.text.contains(document.expectedText),
                 qPrintable(document.fileName + QStringLiteral(": ") + text.text.left(300)));
        QVERIFY2(!text.isCut, qPrintable(document.fileName));
    }
}

void TestIndexText::readsWithoutTheHelperAsTheToolsDo()
{
    ReaderPool none{QString()};
    const QByteArray gbk = QTextCodec::codecForName("GBK")->fromUnicode(QStringLiteral("会议纪要"));
    const QString text = write(QStringLiteral("plain.txt"), "plain words");
    const QString page = write(QStringLiteral("a.zip"), "PK\x03\x04");
    QCOMPARE(readForIndex(none, text, maxBytes, nullptr).text, QStringLiteral("plain words"));
    QCOMPARE(readForIndex(none, page, maxBytes, nullptr).text, QString());
    QVERIFY(!readForIndex(none, write(QStringLiteral("gbk.txt"), gbk), maxBytes, nullptr)
                 .text.isEmpty());
}

void TestIndexText::tellsWhatIsCut_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("chars");
    QTest::addColumn<bool>("isCut");
    const QByteArray rich = "{\\rtf1 " + QByteArray(40000, 'x') + '}';
    QTest::newRow("rtf") << QStringLiteral("a.rtf") << rich << 16384 << true;
    QTest::newRow("short rtf") << QStringLiteral("b.rtf") << QByteArray("{\\rtf1 x}") << 1 << false;
    QTest::newRow("plain") << QStringLiteral("a.txt") << QByteArray(16385, 'x') << 16384 << true;
    QTest::newRow("plain that just fits")
        << QStringLiteral("b.txt") << QByteArray(16384, 'x') << 16384 << false;
}

void TestIndexText::tellsWhatIsCut()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, bytes);
    ReaderPool readers(helperPath());
    const QString path = write(name, bytes);
    const IndexText text = readForIndex(readers, path, maxBytes, nullptr);
    QTEST(text.text.size(), "chars");
    QTEST(text.isCut, "isCut");
    // A longer limit takes what the shorter one left.
    const IndexText all = readForIndex(readers, path, 256 * 1024, nullptr);
    QVERIFY(!all.isCut);
    QVERIFY(!text.isCut || all.text.size() > text.text.size());
}

void TestIndexText::readsFromSeveralThreads()
{
    ReaderPool readers(helperPath());
    QStringList paths;
    for (int i = 0; i < 40; ++i)
        paths.append(
            write(QStringLiteral("t%1.rtf").arg(i), "{\\rtf1 text " + QByteArray::number(i) + "}"));
    std::atomic_int right{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = t; i < paths.size(); i += 4) {
                const ReaderAnswer answer = readers.read(paths.at(i), limits, nullptr);
                right += answer.text == QStringLiteral("text %1").arg(i) ? 1 : 0;
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    QCOMPARE(right.load(), paths.size());
}

void TestIndexText::survivesAHelperThatFails_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::newRow("ends at once") << QByteArray("exit 0");
    QTest::newRow("is killed") << QByteArray("kill -9 $$");
    QTest::newRow("claims an endless text")
        << QByteArray("head -c 12 >/dev/null; printf '\\377\\377\\377\\377\\0\\0\\0\\0'; sleep 60");
    QTest::newRow("ends inside its answer")
        << QByteArray("head -c 12 >/dev/null; printf '\\010\\0\\0\\0\\0\\0\\0\\0abc'");
}

void TestIndexText::survivesAHelperThatFails()
{
    QFETCH(QByteArray, script);
    FakeTools tools;
    QString error;
    QVERIFY2(tools.add(QStringLiteral("helper"), script, &error), qPrintable(error));
    ReaderPool readers(QDir(tools.dir()).filePath(QStringLiteral("helper")));
    const QString path = write(QStringLiteral("kept.txt"), "kept words");
    QVERIFY(!readers.read(path, limits, nullptr).answered);
    QCOMPARE(readForIndex(readers, path, maxBytes, nullptr).text, QStringLiteral("kept words"));
}

void TestIndexText::endsAHelperThatIsNoLongerWanted()
{
    FakeTools tools;
    QString error;
    QVERIFY2(tools.add(QStringLiteral("helper"), "exec sleep 60", &error), qPrintable(error));
    ReaderPool readers(QDir(tools.dir()).filePath(QStringLiteral("helper")));
    const QString path = write(QStringLiteral("slow.rtf"), "{\\rtf1 x}");
    std::atomic_bool cancel{false};
    ReaderAnswer answer;
    std::thread reading([&] { answer = readers.read(path, limits, &cancel); });
    QTRY_COMPARE(tools.calls().size(), 1);
    cancel = true;
    reading.join(); // Would take the 25 s of a document otherwise.
    QVERIFY(!answer.answered);
}

void TestIndexText::choosesTheBetterText_data()
{
    QTest::addColumn<QString>("fromTools");
    QTest::addColumn<QString>("fromReaders");
    QTest::addColumn<bool>("takesReaders");
    const auto row = [](const char *title, const char *tools, const char *readers, bool takes) {
        QTest::newRow(title) << QString::fromUtf8(tools) << QString::fromUtf8(readers) << takes;
    };
    row("tools give nothing", "", "合同", true);
    row("readers give nothing", "contract text", "", false);
    row("question marks", "???? contract of the year 2024 ????", "合同 contract", true);
    row("lost characters", "contract \xEF\xBF\xBD\xEF\xBF\xBD of the year", "合同 of", true);
    row("no Han", "Sheet1 Arial Calibri", "合同", true);
    row("readers give a part only", "the whole contract text of the year", "the whole", false);
    row("the same in parts", "contracttext", "contract\ntext", true);
}

void TestIndexText::choosesTheBetterText()
{
    QFETCH(QString, fromTools);
    QFETCH(QString, fromReaders);
    QFETCH(bool, takesReaders);
    QCOMPARE(betterText(fromTools, fromReaders), takesReaders ? fromReaders : fromTools);
}

void TestIndexText::joinsLinesOfAParagraph_data()
{
    QTest::addColumn<QByteArray>("lines");
    QTest::addColumn<QString>("expected");
    // Each line from its left edge to its right one, 10 high, in a block from 0 to 100.
    const auto line = [](int left, int right, const QByteArray &words) {
        return "<line xMin=\"" + QByteArray::number(left) + "\" yMin=\"0\" xMax=\"" +
               QByteArray::number(right) + "\" yMax=\"10\">" + words + "</line>";
    };
    const auto word = [](int left, int right, const char *text) {
        return "<word xMin=\"" + QByteArray::number(left) + "\" yMin=\"0\" xMax=\"" +
               QByteArray::number(right) + "\" yMax=\"10\">" + text + "</word>";
    };
    QTest::newRow("Han over two lines")
        << line(0, 100, word(0, 100, "甲方应当支")) + line(0, 60, word(0, 60, "付货款"))
        << QStringLiteral("甲方应当支付货款");
    QTest::newRow("words over two lines")
        << line(0, 100, word(0, 48, "the") + word(52, 100, "whole")) +
               line(0, 60, word(0, 60, "text"))
        << QStringLiteral("the whole text");
    QTest::newRow("a short line ends a paragraph")
        << line(0, 50, word(0, 50, "标题")) + line(0, 100, word(0, 100, "正文"))
        << QStringLiteral("标题\n正文");
    QTest::newRow("a long word found no room")
        << line(0, 70, word(0, 70, "the")) + line(0, 60, word(0, 60, "committee"))
        << QStringLiteral("the committee");
    // Running text over a page with a footer and a header between.
    const QByteArray first = line(0, 200, word(0, 200, "应当于三十日内支"));
    const QByteArray margin = "<block xMin=\"0\" yMin=\"990\" xMax=\"200\" yMax=\"998\">" +
                              line(0, 200, word(0, 200, "第一页")) + "</block>";
    QTest::newRow("over two pages")
        << first + "</block>" + margin +
               "</flow></page><page height=\"1000\"><flow><block xMin=\"0\" yMin=\"100\" "
               "xMax=\"200\" yMax=\"110\">" +
               line(0, 90, word(0, 90, "付全部货款"))
        << QStringLiteral("应当于三十日内支付全部货款\n第一页");
    QTest::newRow("columns, and spaced characters")
        << line(0, 100, word(0, 20, "甲") + word(22, 40, "乙") + word(80, 100, "丙"))
        << QStringLiteral("甲乙\t丙");
}

void TestIndexText::joinsLinesOfAParagraph()
{
    QFETCH(QByteArray, lines);
    const QByteArray xml =
        "<doc><page height=\"1000\"><flow><block xMin=\"0\" yMin=\"100\" xMax=\"100\" "
        "yMax=\"200\">" +
        lines + "</block></flow></page></doc>";
    QTEST(textOfLayout(xml, maxBytes), "expected");
}

QTEST_GUILESS_MAIN(TestIndexText)
#include "tst_indextext.moc"
