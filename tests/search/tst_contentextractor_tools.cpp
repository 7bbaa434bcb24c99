#include "search/extract/documentreader.h"
#include "search/extract/toolrunner.h"
#include "support/faketools.h"
#include "support/samplecontainers.h"

#include <QElapsedTimer>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTextCodec>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

using search::DocumentReader;
using search::RunLimits;
using search::ToolLimits;
using search::ToolRunner;

using Scripts = QVector<QPair<QString, QByteArray>>;
Q_DECLARE_METATYPE(Scripts)

namespace {

constexpr int runMs = 400;

/// The real caps with times that a test can wait for.
ToolLimits shortLimits()
{
    ToolLimits limits;
    limits.document.runMs = runMs;
    limits.unzip.runMs = runMs;
    return limits;
}

/// The real caps with times that a busy machine does not run into.
ToolLimits longLimits()
{
    ToolLimits limits;
    limits.document.runMs = 60000;
    limits.unzip.runMs = 60000;
    return limits;
}

/// Children of this process, zombies among them.
int childCount()
{
    int count = 0;
    const QDir tasks(QStringLiteral("/proc/self/task"));
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile children(tasks.filePath(task + QStringLiteral("/children")));
        if (children.open(QIODevice::ReadOnly))
            count += children.readAll().count(' '); // one behind each
    }
    return count;
}

/// What the message handler of a test has caught.
QStringList &logLines()
{
    static QStringList lines;
    return lines;
}

} // namespace

/// How tools are found and run, with shell scripts in their place.
class TestExtractionTools : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void runs_data();
    void runs();
    void chains_data();
    void chains();
    void slidesCostOneListing();
    void manyPartsAreBounded_data();
    void manyPartsAreBounded();
    void manySlowPartsAreBounded();
    void hangingToolsDie_data();
    void hangingToolsDie();
    void cancelStopsTheChain();
    void toolFolderComesFirst();
    void libraryFolder();
    void missingToolsAreRemembered();
    void logsWhatWasTried();
    void threadsShareOneRunner();

private:
    void addTool(const QString &tool, const QByteArray &script);
    QString write(const QString &name, const QByteArray &data = "content");
    ToolRunner runner(const ToolLimits &limits = longLimits()) const;
    QString transcript(const QString &path) const;
    QByteArray notedStates() const;

    std::unique_ptr<FakeTools> m_tools;
    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestExtractionTools::init()
{
    m_tools = std::make_unique<FakeTools>();
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    // Every tool is a fake one, so that no case depends on what is installed.
    for (const char *tool :
         {"pdftotext", "catdoc", "antiword", "xls2csv", "catppt", "unrtf", "unzip"})
        addTool(QString::fromLatin1(tool), "exit 1");
}

void TestExtractionTools::addTool(const QString &tool, const QByteArray &script)
{
    QString error;
    if (!m_tools->add(tool, script, &error))
        qFatal("%s", qPrintable(error));
}

QString TestExtractionTools::write(const QString &name, const QByteArray &data)
{
    QFile file(m_dir->filePath(name));
    if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size())
        qFatal("%s", qPrintable(file.errorString()));
    return file.fileName();
}

ToolRunner TestExtractionTools::runner(const ToolLimits &limits) const
{
    return ToolRunner(m_tools->dir(), QString(), limits);
}

/// The calls so far, one a line, with PATH in place of the path.
QString TestExtractionTools::transcript(const QString &path) const
{
    QStringList lines;
    for (const QStringList &call : m_tools->calls())
        lines += call.join(QLatin1Char(' ')).replace(path, QStringLiteral("PATH"));
    return lines.join(QLatin1Char('\n'));
}

/// The state letters of the processes whose ids a script has written, '-' for those that are gone.
QByteArray TestExtractionTools::notedStates() const
{
    QByteArray states;
    QFile file(QDir(m_tools->dir()).filePath(QStringLiteral("pids")));
    if (!file.open(QIODevice::ReadOnly))
        return states;
    for (const QByteArray &pid : file.readAll().simplified().split(' ')) {
        QFile stat(QStringLiteral("/proc/%1/stat").arg(QString::fromLatin1(pid)));
        const QByteArray line = stat.open(QIODevice::ReadOnly) ? stat.readAll() : ") -";
        states += line.at(line.lastIndexOf(')') + 2);
    }
    return states;
}

void TestExtractionTools::runs_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<QByteArray>("locale");

    const auto row = [](const char *name, const QByteArray &script, const QString &expected,
                        const char *locale = "UTF-8") {
        QTest::newRow(name) << script << expected << QByteArray(locale);
    };
    const auto prints = [](const QByteArray &bytes) {
        return FakeTools::prints(bytes);
    };
    const QString text = QStringLiteral("text");
    row("success", prints("text"), text);
    row("nothing printed", "exit 0", QString());
    row("text and exit 1", FakeTools::prints("text", 1), QString());
    row("text and a crash", "printf text\nkill -SEGV $$", QString());
    row("garbage", prints("\x01\xFF\xFE%s\\n%%"), QStringLiteral("\x01\uFFFD\uFFFD%s\\n%%"));
    row("zero bytes", prints(QByteArray("a\0b", 3)), QStringLiteral("a\0b"));
    row("a flood of errors",
        "i=0; while [ $i -lt 2000 ]; do printf '%01000d' 0 >&2; i=$((i+1)); done\nprintf text",
        text);
    row("asks for input", "cat\nread line || printf text", text);
    row("cannot ask on our terminal: it leads a session",
        "read -r pid name state parent group session rest </proc/$$/stat\n"
        "[ \"$session\" = $$ ] && printf text",
        text);
    row("output closed early, success", "printf text\nexec >&-\nsleep 0.2", text);
    row("output closed early, failure", "printf text\nexec >&-\nsleep 0.2\nexit 3", QString());
    row("in pieces", "printf te\nsleep 0.15\nprintf xt", text);
    row("cannot be started", "", QString());

    row("Latin-1", prints("caf\xE9"), QStringLiteral("café"), "ISO-8859-1");
    row("GB18030", prints("\xD6\xD0\xCE\xC4 a"), QStringLiteral("中文 a"), "GB18030");
    row("UTF-8 in a GB18030 locale", prints("中文"), QStringLiteral("中文"), "GB18030");
    row("invalid in both", prints("中\xFF"), QStringLiteral("中\uFFFD"), "GB18030");

    // Three bytes a character, 16384 are kept. Half a character at the end must not make Latin-1,
    // in which everything is valid, seem right for the whole text.
    const QByteArray flood = "printf '%010000d' 0 | sed 's/0/中/g'";
    const QString kept(5460, QChar(0x4E2D));
    row("cut at a character", "printf a\n" + flood, QLatin1Char('a') + kept + kept.left(1),
        "ISO-8859-1");
    row("cut after one byte", flood, kept + kept.left(1), "ISO-8859-1");
    row("cut after two bytes", "printf aa\n" + flood, QStringLiteral("aa") + kept, "ISO-8859-1");
    row("a failure after the cap", flood + "\nexit 1", QString());
}

void TestExtractionTools::runs()
{
    QFETCH(QByteArray, script);
    QFETCH(QByteArray, locale);
    addTool(QStringLiteral("catppt"), script);
    if (script.isEmpty()) {
        QFile broken(QDir(m_tools->dir()).filePath(QStringLiteral("catppt")));
        QVERIFY(broken.open(QIODevice::WriteOnly) && broken.write("#!/nonexistent\n") > 0);
    }
    QTextCodec *const earlier = QTextCodec::codecForLocale();
    QTextCodec::setCodecForLocale(QTextCodec::codecForName(locale));
    ToolRunner tools = runner();
    const QString text = DocumentReader(tools, write(QStringLiteral("a.ppt")), nullptr).read(1);
    QTextCodec::setCodecForLocale(earlier);
    QTEST(text, "expected");
    QCOMPARE(childCount(), 0);
}

void TestExtractionTools::chains_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<Scripts>("scripts");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<QString>("calls"); ///< "tool argument …" a line; PATH is the document

    const auto row = [](const char *name, const char *file, const Scripts &scripts,
                        const char *expected, const char *calls) {
        QTest::newRow(name) << QString::fromLatin1(file) << scripts << QString::fromUtf8(expected)
                            << QString::fromLatin1(calls);
    };
    const auto prints = [](const char *tool, const char *text) {
        return qMakePair(QString::fromLatin1(tool), FakeTools::prints(text));
    };
    row("pdf", "a.pdf", {prints("pdftotext", "x")}, "x", "pdftotext -layout -enc UTF-8 PATH -");
    row("suffix in capitals", "a.PDF", {prints("pdftotext", "x")}, "x",
        "pdftotext -layout -enc UTF-8 PATH -");
    row("doc, any text counts", "a.doc", {prints("catdoc", "\n"), prints("antiword", "no")}, "\n",
        "catdoc -w PATH");
    row("doc, second tool", "a.doc", {prints("catdoc", ""), prints("antiword", "x")}, "x",
        "catdoc -w PATH\nantiword -t utf-8 PATH");
    row("doc, both fail", "a.doc", {}, "", "catdoc -w PATH\nantiword -t utf-8 PATH");
    row("xls", "a.xls", {prints("xls2csv", "1,2")}, "1,2", "xls2csv PATH");
    row("ppt", "a.ppt", {prints("catppt", "x")}, "x", "catppt PATH");
    row("rtf header", "a.rtf",
        {prints("unrtf", "### a\n---------\n###b\n-----------\nx\n----------\ny")},
        "x\n----------\ny", "unrtf --text PATH");
    row("rtf, header alone", "a.rtf", {prints("unrtf", "###\n----------\n")}, "",
        "unrtf --text PATH");
    row("rtf without a header", "a.rtf", {prints("unrtf", "x\n---------\n")}, "x\n---------\n",
        "unrtf --text PATH");
    row("wps, good text", "ole.wps", {prints("catdoc", "中文字了")}, "中文字了", "catdoc -w PATH");
    row("wps, poor text", "ole.wps", {prints("catdoc", "中文字"), prints("antiword", "abcdefg")},
        "abcdefg", "catdoc -w PATH\nantiword -t utf-8 PATH");
    row("wps, raw text", "ole.wps", {prints("catdoc", "abc"), prints("antiword", "abcdef")},
        "中国人上", "catdoc -w PATH\nantiword -t utf-8 PATH");
    row("et, good text", "ole.et", {prints("xls2csv", "abcdefg")}, "abcdefg", "xls2csv PATH");
    row("et, numbers alone", "ole.et", {prints("xls2csv", "1234567")}, "中国人上", "xls2csv PATH");
    row("dps, good text", "ole.dps", {prints("catppt", "abcdefghijklmnop")}, "abcdefghijklmnop",
        "catppt PATH");
    row("dps, poor text", "ole.dps", {prints("catppt", "abcdefghijklmno")}, "中国人上",
        "catppt PATH");
    row("wps, empty OLE", "hollow.wps", {}, "",
        "catdoc -w PATH\nantiword -t utf-8 PATH\nunzip -p PATH word/document.xml\n"
        "unzip -p PATH content.xml\nunzip -l PATH");
    row("wps, a zip", "zip.wps", {prints("unzip", "<a>x</a>")}, "x\nx\n",
        "unzip -p PATH word/document.xml\nunzip -p PATH content.xml");
    row("slides beyond the limit are not read", "a.pptx",
        {{QStringLiteral("unzip"), "printf '<a>%020000d' 0 | sed 's:$:</a>:'; [ $1 = -p ]"}},
        QByteArray(16384, '0').constData(), "unzip -l PATH\nunzip -p PATH ppt/slides/slide1.xml");
    row("zip fails", "a.docx", {}, "", "unzip -p PATH word/document.xml");
}

void TestExtractionTools::chains()
{
    QFETCH(QString, name);
    QFETCH(Scripts, scripts);
    QFETCH(QString, calls);
    for (const auto &script : scripts)
        addTool(script.first, script.second);
    QByteArray data = "content";
    if (name.startsWith(QLatin1String("ole")))
        data = QByteArray::fromHex("D0CF11E0A1B11AE1") + samples::utf16(QStringLiteral("中国人上"));
    else if (name.startsWith(QLatin1String("hollow")))
        data = QByteArray::fromHex("D0CF11E0A1B11AE1");
    const QString path = write(name, data);

    ToolRunner tools = runner();
    QTEST(DocumentReader(tools, path, nullptr).read(100), "expected");
    QCOMPARE(transcript(path), calls);
}

void TestExtractionTools::slidesCostOneListing()
{
    const QString unzip = QStandardPaths::findExecutable(QStringLiteral("unzip"));
    QVERIFY(!unzip.isEmpty());
    const QByteArray real = "exec '" + QFile::encodeName(unzip) + "' \"$@\"";
    samples::ZipEntries entries;
    for (const int slide : {1, 2, 77})
        entries.append({QStringLiteral("ppt/slides/slide%1.xml").arg(slide),
                        "<a>" + QByteArray::number(slide) + "</a>"});
    const QString slides = write(QStringLiteral("a.pptx"), samples::zipArchive(entries));
    const QString noZip = write(QStringLiteral("no zip.pptx"));
    const QString text = QStringLiteral("1\n2\n77\n");

    const auto reads = [this](const QString &path, const ToolLimits &limits, int expectedCalls) {
        const int before = m_tools->calls().size();
        ToolRunner tools = runner(limits);
        const QString found = DocumentReader(tools, path, nullptr).read(1);
        const int calls = m_tools->calls().size() - before;
        return calls == expectedCalls ? found : QStringLiteral("%1 calls").arg(calls);
    };
    addTool(QStringLiteral("unzip"), real);
    QCOMPARE(reads(slides, longLimits(), 1 + 3), text);
    QCOMPARE(reads(noZip, longLimits(), 1), QString());
    // Where the listing is of no use each slide is asked for, with the same result.
    addTool(QStringLiteral("unzip"), "[ \"$1\" = -l ] && exit 3\n" + real);
    QCOMPARE(reads(slides, longLimits(), 1 + 200), text);
    ToolLimits tight = longLimits();
    tight.unzip.maxBytes = 100;
    addTool(QStringLiteral("unzip"), real);
    QCOMPARE(reads(slides, tight, 1 + 200), text);
}

void TestExtractionTools::manyPartsAreBounded_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<int>("maxCalls");
    const QByteArray noText = "<a> </a>";
    const QByteArray word = "<a>word</a>";
    const QString pages = QStringLiteral("Doc_0/Pages/Page_%1/Content.xml");
    const QString slides = QStringLiteral("ppt/slides/slide%1.xml");
    QTest::newRow("ofd, empty parts cost nothing")
        << "a.ofd" << pages << QByteArray() << QString() << 1;
    QTest::newRow("dps, empty parts cost nothing")
        << "a.dps" << slides << QByteArray() << QString() << 6;
    QTest::newRow("ofd, parts without text") << "a.ofd" << pages << noText << QString() << 40;
    QTest::newRow("dps, parts without text") << "a.dps" << slides << noText << QString() << 40;
    QTest::newRow("ofd, what was read in time stays")
        << "a.ofd" << pages << word << QStringLiteral("word\n").repeated(39) << 40;
}

/// Thousands of parts, as a hostile or broken document has them.
void TestExtractionTools::manyPartsAreBounded()
{
    QFETCH(QString, name);
    QFETCH(QString, pattern);
    QFETCH(QByteArray, content);
    QFETCH(int, maxCalls);
    samples::ZipEntries entries;
    for (int i = 1; i <= 3000; ++i)
        entries.append({pattern.arg(i), content});
    const QString path = write(name, samples::zipArchive(entries));
    const QString unzip = QStandardPaths::findExecutable(QStringLiteral("unzip"));
    addTool(QStringLiteral("unzip"), "exec '" + QFile::encodeName(unzip) + "' \"$@\"");
    ToolLimits limits = longLimits();
    limits.zipRuns = 40;
    ToolRunner tools = runner(limits);
    QTEST(DocumentReader(tools, path, nullptr).read(1), "expected");
    QVERIFY2(m_tools->calls().size() <= maxCalls,
             qPrintable(QString::number(m_tools->calls().size())));
}

/// Each part is in time by itself.
void TestExtractionTools::manySlowPartsAreBounded()
{
    addTool(QStringLiteral("unzip"), "[ \"$1\" = -l ] && exit 3\nsleep 0.1");
    ToolLimits limits = longLimits();
    limits.zipMs = runMs;
    ToolRunner tools = runner(limits);
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(DocumentReader(tools, write(QStringLiteral("slow.dps")), nullptr).read(1), QString());
    QVERIFY2(clock.elapsed() < runMs + 5000, qPrintable(QString::number(clock.elapsed())));
}

void TestExtractionTools::hangingToolsDie_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::newRow("sleeps") << QByteArray("exec sleep 300");
    QTest::newRow("prints, then sleeps") << QByteArray("printf text\nexec sleep 300");
    QTest::newRow("ignores requests")
        << QByteArray("trap '' TERM INT HUP\nwhile :; do sleep 1; done");
    QTest::newRow("closes its output") << QByteArray("exec >&-\nexec sleep 300");
    QTest::newRow("has children") << QByteArray(
        "sleep 300 & echo $! >>\"${0%/*}/pids\"\nsleep 300 | cat");
    QTest::newRow("prints without end") << QByteArray("exec yes");
    QTest::newRow("is busy") << QByteArray("while :; do :; done");
}

void TestExtractionTools::hangingToolsDie()
{
    QFETCH(QByteArray, script);
    addTool(QStringLiteral("catppt"), "echo $$ >>\"${0%/*}/pids\"\n" + script);
    ToolRunner tools = runner(shortLimits());
    const QString path = write(QStringLiteral("a.ppt"));
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(DocumentReader(tools, path, nullptr).read(1), QString());
    const qint64 took = clock.elapsed();
    QVERIFY2(took >= runMs && took < runMs + 5000, qPrintable(QString::number(took)));
    // Our child is gone for good; its children have another parent now, which may be slow to bury
    // them, or never do.
    QCOMPARE(childCount(), 0);
    QCOMPARE(notedStates().at(0), '-');
    QTRY_COMPARE(notedStates().replace('Z', "").replace('-', ""), QByteArray());
}

void TestExtractionTools::cancelStopsTheChain()
{
    addTool(QStringLiteral("catdoc"), "exec sleep 300");
    ToolRunner tools = runner();
    const QString path = write(QStringLiteral("a.doc"));
    const QString pathOfCalls = m_tools->dir() + QStringLiteral("/calls");
    std::atomic_bool cancel{false};
    QElapsedTimer sinceCancel;
    std::thread canceller([&] {
        // Should the tool never be called, the reader is cancelled all the same.
        (void)QTest::qWaitFor([&] { return QFile::exists(pathOfCalls); },
                              longLimits().document.runMs);
        sinceCancel.start();
        cancel = true;
    });
    const QString text = DocumentReader(tools, path, &cancel).read(1);
    canceller.join();
    const qint64 took = sinceCancel.elapsed();
    // Far less than the tool may take.
    QVERIFY2(took < 10000, qPrintable(QString::number(took)));
    QCOMPARE(text, QString());
    QCOMPARE(transcript(path), QStringLiteral("catdoc -w PATH"));
    QCOMPARE(childCount(), 0);

    for (const char *name : {"b.doc", "b.txt", "b.pptx", "b.wps", "b.rtf", "b.ofd"})
        QCOMPARE(DocumentReader(tools, write(QString::fromLatin1(name)), &cancel).read(100),
                 QString());
    QCOMPARE(m_tools->calls().size(), 1);
}

void TestExtractionTools::toolFolderComesFirst()
{
    QString error;
    FakeTools onPath;
    for (const char *tool : {"catppt", "unrtf", "other"})
        QVERIFY2(onPath.add(QString::fromLatin1(tool), "exit 0", &error), qPrintable(error));
    QFile plain(QDir(m_tools->dir()).filePath(QStringLiteral("unrtf")));
    QVERIFY(plain.setPermissions(QFile::ReadOwner));

    const QByteArray earlier = onPath.prependToPath();
    ToolRunner tools(m_tools->dir() + QStringLiteral("/../") +
                         QFileInfo(m_tools->dir()).fileName() + QStringLiteral("//"),
                     QString());
    const QStringList found{tools.resolveToolExecutable(QStringLiteral("catppt")),
                            tools.resolveToolExecutable(QStringLiteral("unrtf")),
                            tools.resolveToolExecutable(QStringLiteral("other"))};
    qputenv("PATH", earlier);
    QCOMPARE(found, (QStringList{m_tools->dir() + QStringLiteral("/catppt"),
                                 onPath.dir() + QStringLiteral("/unrtf"),
                                 onPath.dir() + QStringLiteral("/other")}));
}

void TestExtractionTools::libraryFolder()
{
    addTool(QStringLiteral("catppt"), "printf '%s' \"${LD_LIBRARY_PATH-unset}\"");
    const QString path = write(QStringLiteral("a.ppt"));
    const QString libraries = m_dir->filePath(QStringLiteral("lib/tools"));
    const auto seenByTool = [&] {
        ToolRunner tools(m_tools->dir(), m_dir->path() + QStringLiteral("/bin/../lib/tools"));
        return DocumentReader(tools, path, nullptr).read(1);
    };
    const QByteArray earlier = qgetenv("LD_LIBRARY_PATH");
    qunsetenv("LD_LIBRARY_PATH");
    QCOMPARE(seenByTool(), QStringLiteral("unset"));
    QVERIFY(QDir().mkpath(libraries));
    QCOMPARE(seenByTool(), libraries);
    qputenv("LD_LIBRARY_PATH", "/old:/older");
    QCOMPARE(seenByTool(), libraries + QStringLiteral(":/old:/older"));
    if (earlier.isEmpty())
        qunsetenv("LD_LIBRARY_PATH");
    else
        qputenv("LD_LIBRARY_PATH", earlier);
}

void TestExtractionTools::missingToolsAreRemembered()
{
    FakeTools tools;
    const QByteArray earlier = qgetenv("PATH");
    qputenv("PATH", QFile::encodeName(m_dir->path()));
    ToolRunner before(tools.dir(), QString());
    QStringList texts;
    for (const char *suffix : {"pdf", "doc", "xls", "ppt", "rtf", "docx", "xlsx", "pptx", "odt",
                               "ods", "odp", "odg", "ofd", "epub", "wps", "et", "dps"})
        texts +=
            DocumentReader(before, write(QStringLiteral("a.") + QLatin1String(suffix)), nullptr)
                .read(1);
    QString error;
    const bool added = tools.add(QStringLiteral("catppt"), FakeTools::prints("text"), &error);
    const QString path = write(QStringLiteral("a.ppt"));
    texts += DocumentReader(before, path, nullptr).read(1);
    ToolRunner after(tools.dir(), QString());
    const QString found = DocumentReader(after, path, nullptr).read(1);
    qputenv("PATH", earlier);

    QVERIFY2(added, qPrintable(error));
    QCOMPARE(texts.join(QString()), QString());
    QCOMPARE(before.resolveToolExecutable(QStringLiteral("catppt")), QString());
    QCOMPARE(found, QStringLiteral("text"));
}

void TestExtractionTools::logsWhatWasTried()
{
    addTool(QStringLiteral("catdoc"), FakeTools::prints("中"));
    const QString path =
        write(QStringLiteral("公文 %1\n2.wps"), QByteArray::fromHex("D0CF11E0A1B11AE1"));
    ToolRunner tools = runner();
    logLines().clear();
    const QtMessageHandler earlier = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext &, const QString &line) { logLines() += line; });
    DocumentReader(tools, path, nullptr).read(1);
    DocumentReader(tools, write(QStringLiteral("a.doc")), nullptr).read(1);
    qInstallMessageHandler(earlier);
    const QString start = QStringLiteral("[ContentExtractor] extract wps 公文 %1?2.wps ");
    QCOMPARE(logLines(), (QStringList{start + QStringLiteral("ole=true"),
                                      start + QStringLiteral("tool=catdoc chars=1"),
                                      start + QStringLiteral("tool=antiword chars=0"),
                                      start + QStringLiteral("tool=ole-utf16-fallback chars=0")}));
}

void TestExtractionTools::threadsShareOneRunner()
{
    // Each tool prints its own path's last part and takes some time, so that calls overlap.
    for (const char *tool : {"catdoc", "xls2csv", "catppt", "unrtf"})
        addTool(QString::fromLatin1(tool),
                "sleep 0.02\nfor last; do :; done\nprintf '%s' \"${last##*/}\"");
    const QStringList suffixes{QStringLiteral("doc"), QStringLiteral("xls"), QStringLiteral("ppt"),
                               QStringLiteral("rtf")};
    constexpr int rounds = 10;
    QStringList names;
    for (int i = 0; i < 6 * rounds; ++i) {
        names += QStringLiteral("%1.%2").arg(i).arg(suffixes.at(i % suffixes.size()));
        write(names.last());
    }
    ToolRunner tools = runner();
    std::vector<QString> texts(static_cast<size_t>(names.size()));
    std::vector<std::thread> threads;
    for (int first = 0; first < names.size(); first += rounds) {
        threads.emplace_back([&, first] {
            for (int i = first; i < first + rounds; ++i)
                texts[static_cast<size_t>(i)] =
                    DocumentReader(tools, m_dir->filePath(names.at(i)), nullptr).read(1);
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    for (int i = 0; i < names.size(); ++i)
        QCOMPARE(texts[static_cast<size_t>(i)], names.at(i));
    QCOMPARE(childCount(), 0);
}

QTEST_GUILESS_MAIN(TestExtractionTools)
#include "tst_contentextractor_tools.moc"
