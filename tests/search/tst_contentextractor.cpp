#include "search/contentextractor.h"
#include "support/sampledocuments.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using samples::ZipEntries;
using samples::ZipMethod;

Q_DECLARE_METATYPE(ZipEntries)

#if defined(__SANITIZE_ADDRESS__)
/// Freed memory that is kept back for the sake of better reports would count as ours.
extern "C" const char *__asan_default_options()
{
    return "quarantine_size_mb=8";
}
#endif

namespace {

/// As the index builder sets it.
constexpr int maxBytes = 16384;

QByteArray textXml(const QString &text)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><doc><t>" + text.toUtf8() + "</t></doc>";
}

QByteArray repeated(const QByteArray &piece, int count)
{
    QByteArray all;
    all.reserve(piece.size() * count);
    for (int i = 0; i < count; ++i)
        all += piece;
    return all;
}

/// Highest resident memory of this process so far, in KiB.
qint64 peakMemory()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

/// Makes the present resident memory the peak.
bool resetPeakMemory()
{
    QFile references(QStringLiteral("/proc/self/clear_refs"));
    return references.open(QIODevice::WriteOnly | QIODevice::Unbuffered) &&
           references.write("5") == 1;
}

/// A zip of entries given as "name=text"; what does not count says "no".
void layoutRow(const char *name, const char *suffix, const QList<QByteArray> &texts,
               const QByteArray &expected)
{
    ZipEntries entries;
    for (const QByteArray &text : texts) {
        const QString entry = QString::fromUtf8(text);
        entries.append(
            {entry.section(QLatin1Char('='), 0, 0), textXml(entry.section(QLatin1Char('='), 1))});
    }
    QTest::newRow(name) << QString::fromLatin1(suffix) << entries << QString::fromUtf8(expected);
}

} // namespace

/// The whole way from a real file to its text, with the installed tools.
class TestContentExtractor : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void realDocuments_data();
    void realDocuments();
    void archiveLayouts_data();
    void archiveLayouts();
    void plainFiles_data();
    void plainFiles();
    void damagedFiles_data();
    void damagedFiles();
    void awkwardNames_data();
    void awkwardNames();
    void whatIsNoFileIsNotWaitedFor();
    void bombsDoNotFillTheMemory();

private:
    QString write(const QString &name, const QByteArray &data);

    QTemporaryDir m_dir;
    QTemporaryDir m_documentDir;
    QList<samples::Document> m_documents;
};

QString TestContentExtractor::write(const QString &name, const QByteArray &data)
{
    const QString path = m_dir.filePath(name);
    QString error;
    if (!QDir().mkpath(QFileInfo(path).path()) || !samples::writeFile(path, data, &error))
        qFatal("%s", qPrintable(error));
    return path;
}

void TestContentExtractor::initTestCase()
{
    QLoggingCategory::setFilterRules(QStringLiteral("default.info=false"));
    QVERIFY(m_dir.isValid() && m_documentDir.isValid());
    QVERIFY2(samples::officeAvailable(), "LibreOffice is missing: run scripts/deps.sh");
    QString error;
    QVERIFY2(samples::writeDocuments(m_documentDir.path(), true, &m_documents, &error),
             qPrintable(error));
}

void TestContentExtractor::realDocuments_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("expected");
    for (const samples::Document &document : m_documents)
        QTest::newRow(qPrintable(document.fileName)) << document.fileName << document.expectedText;
}

void TestContentExtractor::realDocuments()
{
    QFETCH(QString, name);
    QFETCH(QString, expected);
    const QString text =
        ContentExtractor::readContentSnippet(m_documentDir.filePath(name), maxBytes);
    QVERIFY2(text.contains(expected), qPrintable(text));
    // Nothing but the text: no header of a tool, no markup, no name space.
    QVERIFY2(!text.contains(QLatin1String("###")) && !text.contains(QLatin1String("xmlns")),
             qPrintable(text));
}

void TestContentExtractor::archiveLayouts_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<ZipEntries>("entries");
    QTest::addColumn<QString>("expected");

    layoutRow("slides by number, not by place", "pptx",
              {"ppt/slides/slide10.xml=十", "ppt/slides/slide2.xml=二", "ppt/slides/slide1.xml=一",
               "ppt/slides/slide200.xml=末", "ppt/slides/slide201.xml=no",
               "ppt/slides/slide0.xml=no"},
              "一\n二\n十\n末\n");
    layoutRow("entry names are case-sensitive", "pptx",
              {"ppt/slides/Slide1.xml=no", "ppt/slides/slide2.xml=二"}, "二\n");
    layoutRow("no slide at all", "pptx", {"ppt/presentation.xml=no"}, "");
    layoutRow("invoice of two pages", "ofd",
              {"OFD.xml=no", "Doc_0/Pages/Page_1/Content.xml=后",
               "Doc_0/Pages/Page_0/content.XML=前", "Doc_0/Pages/Page_0/Contents.xml=no"},
              "后\n前\n");
    layoutRow("invoice without pages", "ofd", {"OFD.xml=no"}, "");
    layoutRow(
        "page names are no patterns", "ofd",
        {"Doc[01]/Content.xml=真", "-d/Content.xml=横", "a*/Content.xml=星", "a\\?/Content.xml=问"},
        "真\n横\n星\n问\n");
    layoutRow("a pattern would match both", "ofd",
              {"Doc[01]/Content.xml=真", "Doc0/Content.xml=二"}, "真\n二\n");
    layoutRow("book in all places", "epub",
              {"OEBPS/chapter100.xhtml=末", "OEBPS/chapter0.xhtml=零",
               "OEBPS/Text/Section0100.xhtml=百", "OEBPS/Text/Section0000.xhtml=始",
               "OEBPS/text/content.xhtml=文", "OEBPS/content.xhtml=书",
               "OEBPS/Text/Section1.xhtml=no", "OEBPS/chapter101.xhtml=no"},
              "书\n文\n始\n零\n百\n末\n");
    layoutRow("writer: both layouts", "wps", {"content.xml=后", "word/document.xml=前"},
              "前\n后\n");
    layoutRow("writer: pages", "wps", {"Doc/Content.xml=页"}, "页\n");
    layoutRow("writer: pages only without the rest", "wps",
              {"content.xml=正文", "Doc/Content.xml=no"}, "正文\n");
    layoutRow("sheet: both layouts", "et", {"content.xml=后", "xl/sharedStrings.xml=前"},
              "前\n后\n");
    layoutRow("sheet: elsewhere", "et", {"x/CONTENT.xml=页", "y/sharedstrings.XML=串"}, "页\n串\n");
    layoutRow("slides and layouts", "dps",
              {"drs/slideLayouts/slideLayout1.xml=五", "drs/downrev.xml=四", "drs/shapexml.xml=三",
               "content.xml=二", "ppt/slides/slide3.xml=一"},
              "一\n二\n三\n四\n五\n");
    layoutRow("slides of another name", "dps",
              {"PPT/Slides/page.XML=页", "drs/deep/shapexml.xml=no"}, "页\n");
    layoutRow("drawings of another name", "dps", {"drs/deep/other.xml=形", "other/Content.xml=no"},
              "形\n");
    layoutRow("slides: pages", "dps", {"other/Content.xml=页", "other/x.xml=no"}, "页\n");
    layoutRow("names with blanks are not found", "ofd", {"Doc 0/Content.xml=no"}, "");
    layoutRow("white space alone", "docx", {"word/document.xml= \n\t "}, "");
    const QByteArray half(8192, 'a');
    const QByteArray cut = half + '\n' + half.mid(1);
    layoutRow("two halves with their line feeds are cut", "pptx",
              {"ppt/slides/slide1.xml=" + half, "ppt/slides/slide2.xml=" + half,
               "ppt/slides/slide3.xml=no"},
              cut);
    layoutRow("white space and entities", "docx",
              {"word/document.xml= a\n\n b</t> \n <t>&lt;c&gt;&#x4E2D;<![CDATA[<d>]]>"},
              "a b<c>中<d>\n");
}

void TestContentExtractor::archiveLayouts()
{
    QFETCH(QString, suffix);
    QFETCH(ZipEntries, entries);
    const QString path = write(QStringLiteral("layout.") + suffix, samples::zipArchive(entries));
    QTEST(ContentExtractor::readContentSnippet(path, maxBytes), "expected");
}

void TestContentExtractor::plainFiles_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<int>("limit");
    QTest::addColumn<QString>("expected");

    const QString text = QStringLiteral("中文 text");
    const QByteArray utf8 = text.toUtf8();
    const QByteArray window(1023, 'a');
    const auto row = [](const char *name, const QByteArray &data, int limit,
                        const QString &expected) {
        QTest::newRow(name) << QString::fromUtf8(name) << data << limit << expected;
    };
    row("plain.txt", utf8, maxBytes, text);
    row("UPPER.TXT", utf8, maxBytes, text);
    row("no suffix", utf8, maxBytes, text);
    row("mark.txt", "\xEF\xBB\xBF" + utf8, maxBytes, text);
    row("empty.txt", QByteArray(), maxBytes, QString());
    row("limit 0.txt", utf8, 0, QString());
    row("limit -1.txt", utf8, -1, QString());
    row("limit at a character.txt", utf8, 6, text.left(2));
    row("limit in a character.txt", utf8, 5, text.left(1));
    row("limit at the end.txt", utf8, utf8.size(), text);
    row("zero in the window.txt", window + '\0' + "more", maxBytes, QString());
    row("zero behind the window.txt", window + 'b' + '\0' + "more", 1026,
        QString::fromLatin1(window) + QLatin1Char('b') + QChar(0) + QLatin1Char('m'));
    row("utf16.txt", QByteArray("\xFF\xFE-N\x87\x65 \0", 8), maxBytes, QString());
    row("broken.txt", QByteArray("caf\xE9 au lait"), maxBytes, QStringLiteral("caf\uFFFD au lait"));
    for (const QString &suffix :
         QStringLiteral("zip tar gz bz2 xz 7z rar lz lzma lzo zst cab iso dmg img cpio ar deb rpm")
             .split(QLatin1Char(' '))) {
        QVERIFY(ContentExtractor::isArchiveExtension(suffix));
        row(qPrintable(QStringLiteral("a.tar.") + suffix.toUpper()), utf8, maxBytes, QString());
    }
    row("zipped", utf8, maxBytes, text);
    row("gz.txt", utf8, maxBytes, text);
}

void TestContentExtractor::plainFiles()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, data);
    QFETCH(int, limit);
    QTEST(ContentExtractor::readContentSnippet(write(name, data), limit), "expected");
}

void TestContentExtractor::damagedFiles_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QString>("expected");

    const auto row = [](const QString &name, const QByteArray &data, const QString &expected) {
        QTest::newRow(qPrintable(name)) << name << data << expected;
    };
    for (const char *suffix : {"pdf", "doc", "xls", "ppt", "rtf", "docx", "xlsx", "pptx", "odt",
                               "ods", "odp", "odg", "ofd", "epub", "wps", "et", "dps"}) {
        const QString name = QStringLiteral("empty.") + QLatin1String(suffix);
        row(name, QByteArray(), QString());
    }
    const auto docx = [](const QByteArray &xml) {
        return samples::zipArchive({{QStringLiteral("word/document.xml"), xml}});
    };
    const QByteArray good = docx(textXml(QStringLiteral("内容 content")));
    row(QStringLiteral("half.docx"), good.left(good.size() / 2), QString());
    row(QStringLiteral("half.pptx"), good.left(good.size() / 2), QString());
    row(QStringLiteral("half.dps"), good.left(good.size() / 2), QString());
    row(QStringLiteral("checksum.docx"), QByteArray(good).replace("内容", "内客"), QString());
    row(QStringLiteral("text.docx"), "just some text", QString());
    row(QStringLiteral("text.pdf"), "just some text", QString());
    row(QStringLiteral("error in the middle.docx"), docx("<a><t>前 before</t><b></a>后 behind"),
        QStringLiteral("前 before\n"));
    row(QStringLiteral("end in a text.docx"), docx("<a><t>前 before</t><t>后 beh"),
        QStringLiteral("前 before\n"));
    row(QStringLiteral("unknown entity.docx"), docx("<a><t>前</t><t>后&nbsp;behind</t></a>"),
        QStringLiteral("前后\n"));
    row(QStringLiteral("no xml.docx"), docx("nothing of the kind"), QString());
    row(QStringLiteral("magic alone.wps"), QByteArray::fromHex("D0CF11E0A1B11AE1"), QString());
    row(QStringLiteral("magic alone.doc"), QByteArray::fromHex("D0CF11E0A1B11AE1"), QString());
    // The text stands before the cut.
    row(QStringLiteral("half.ppt"), samples::olePresentation(QStringLiteral("演示")).left(1600),
        QStringLiteral("演示\n"));
}

void TestContentExtractor::damagedFiles()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, data);
    const QString text = ContentExtractor::readContentSnippet(write(name, data), maxBytes);
    QTEST(text, "expected");
}

void TestContentExtractor::awkwardNames_data()
{
    QTest::addColumn<QString>("name");
    for (const char *name : {"a b",
                             "it's \"quoted\"",
                             "line\nfeed",
                             "a[1]",
                             "what?",
                             "st*r",
                             "a?b*[c]",
                             "back\\slash",
                             "back\\[1]",
                             "back\\\\[1]",
                             "[\\",
                             "-dash",
                             "--",
                             "文 件 名",
                             "😀",
                             "%1 %2 %n",
                             "$(touch x)`y`;&|<>",
                             ".hidden",
                             "#1",
                             "@",
                             "dir[1]/plain",
                             "dir*/back\\slash",
                             "{a,b}"})
        QTest::newRow(QByteArray(name).replace('\n', ' ').constData()) << QString::fromUtf8(name);
}

void TestContentExtractor::awkwardNames()
{
    QFETCH(QString, name);
    const QString text = QStringLiteral("内容 content");
    // What a name taken for a pattern would find instead.
    const QByteArray decoy = samples::zipArchive(
        {{QStringLiteral("word/document.xml"), textXml(QStringLiteral("decoy"))}});
    for (const char *other : {"a1.docx", "whatx.docx", "staaar.docx", "axbyc.docx", "back1.docx"})
        write(QString::fromLatin1(other), decoy);

    const QVector<QPair<const char *, QByteArray>> kinds{
        {".docx", samples::zipArchive({{QStringLiteral("word/document.xml"), textXml(text)}})},
        {".pptx", samples::zipArchive({{QStringLiteral("ppt/slides/slide1.xml"), textXml(text)}})},
        {".pdf", samples::pdfDocument(text)},
        {".ppt", samples::olePresentation(text)},
        {".et", samples::oleDocument(text)},
        {".rtf", samples::richText(text)},
        {".txt", text.toUtf8()}};
    for (const auto &kind : kinds) {
        const QString path = write(name + QLatin1String(kind.first), kind.second);
        const QString found = ContentExtractor::readContentSnippet(path, maxBytes);
        QVERIFY2(found.contains(QLatin1String("content")), qPrintable(path + found));
    }
    // A relative path is not an option either.
    const QString earlier = QDir::currentPath();
    QVERIFY(QDir::setCurrent(m_dir.path()));
    const QString found =
        ContentExtractor::readContentSnippet(name + QStringLiteral(".docx"), maxBytes);
    QVERIFY(QDir::setCurrent(earlier));
    QCOMPARE(found, text + QLatin1Char('\n'));
}

void TestContentExtractor::whatIsNoFileIsNotWaitedFor()
{
    QElapsedTimer clock;
    clock.start();
    for (const char *suffix : {".txt", ".docx", ".pdf", ".wps"}) {
        const QString pipe = m_dir.filePath(QStringLiteral("pipe") + QLatin1String(suffix));
        QCOMPARE(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
        QCOMPARE(ContentExtractor::readContentSnippet(pipe, maxBytes), QString());
        const QString folder = m_dir.filePath(QStringLiteral("folder") + QLatin1String(suffix));
        QVERIFY(QDir().mkpath(folder));
        QCOMPARE(ContentExtractor::readContentSnippet(folder, maxBytes), QString());
        const QString missing = m_dir.filePath(QStringLiteral("none") + QLatin1String(suffix));
        QCOMPARE(ContentExtractor::readContentSnippet(missing, maxBytes), QString());
    }
    QVERIFY2(clock.elapsed() < 3000, qPrintable(QString::number(clock.elapsed())));
}

void TestContentExtractor::bombsDoNotFillTheMemory()
{
    constexpr int mebibyte = 1024 * 1024;
    const QString start = QStringLiteral("开头 beginning");
    // Entities within entities, the second kind of bomb.
    QByteArray entities = "<!DOCTYPE a [<!ENTITY e0 \"aaaaaaaaaaaaaaaa\">";
    for (int i = 1; i < 8; ++i) {
        const QByteArray inner = "&e" + QByteArray::number(i - 1) + ';';
        entities += "<!ENTITY e" + QByteArray::number(i) + " \"" + repeated(inner, 16) + "\">";
    }
    const QString swelling = write(
        QStringLiteral("entities.docx"),
        samples::zipArchive({{QStringLiteral("word/document.xml"),
                              entities + "]><a><t>" + start.toUtf8() + "</t><t>&e7;</t></a>"}}));
    const QString bomb = write(QStringLiteral("bomb.docx"),
                               samples::zipArchive({{QStringLiteral("word/document.xml"),
                                                     "<a><t>" + start.toUtf8() + "</t><t>" +
                                                         QByteArray(200 * mebibyte, 'x')}},
                                                   ZipMethod::Deflate));
    QVERIFY(QFileInfo(bomb).size() < mebibyte);

    QVERIFY(resetPeakMemory());
    const qint64 before = peakMemory();
    const QString text = ContentExtractor::readContentSnippet(bomb, maxBytes);
    const QString fromEntities = ContentExtractor::readContentSnippet(swelling, maxBytes);
    const qint64 risen = peakMemory() - before;
    QVERIFY2(before > 0 && risen < 64 * 1024, qPrintable(QStringLiteral("%1 KiB").arg(risen)));
    QCOMPARE(text, start + QLatin1Char('\n'));
    QVERIFY(fromEntities.startsWith(start));
}

QTEST_GUILESS_MAIN(TestContentExtractor)
#include "tst_contentextractor.moc"
