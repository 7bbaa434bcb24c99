#include "search/extract/documentreader.h"

#include "search/extract/oletext.h"
#include "search/extract/toolrunner.h"

#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QRegularExpression>
#include <QVector>

namespace search {

/// One tool with its arguments before and after the path.
struct ToolCall
{
    QString tool;
    QStringList before;
    QStringList after;
};

/// One attempt on a zip: fixed entries, or where those are empty the entries that match.
struct ZipAttempt
{
    QStringList entries;
    QStringList prefixes;
    QStringList suffixes;
};

/// A WPS Office format: an OLE document of its Microsoft relative, or a zip of several layouts.
struct WpsFormat
{
    QString label;
    QVector<ToolCall> oleTools;
    bool (*accepts)(const QString &text);
    QVector<ZipAttempt> zipAttempts;
};

namespace {

constexpr int binaryWindowBytes = 1024;
constexpr int maxSlides = 200;
constexpr int maxChapters = 100;

QStringList slideEntries()
{
    QStringList entries;
    for (int i = 1; i <= maxSlides; ++i)
        entries.append(QStringLiteral("ppt/slides/slide%1.xml").arg(i));
    return entries;
}

QStringList epubEntries()
{
    QStringList entries{QStringLiteral("OEBPS/content.xhtml"),
                        QStringLiteral("OEBPS/text/content.xhtml")};
    for (int i = 0; i <= maxChapters; ++i) {
        entries.append(
            QStringLiteral("OEBPS/Text/Section%1.xhtml").arg(i, 4, 10, QLatin1Char('0')));
        entries.append(QStringLiteral("OEBPS/chapter%1.xhtml").arg(i));
    }
    return entries;
}

const ToolCall &unrtfCall()
{
    static const ToolCall call{QStringLiteral("unrtf"), {QStringLiteral("--text")}, {}};
    return call;
}

ToolCall catdocCall()
{
    return {QStringLiteral("catdoc"), {QStringLiteral("-w")}, {}};
}

ToolCall antiwordCall()
{
    return {QStringLiteral("antiword"), {QStringLiteral("-t"), QStringLiteral("utf-8")}, {}};
}

ToolCall plainCall(const QString &tool)
{
    return {tool, {}, {}};
}

/// Tools by suffix; the first one that prints something wins.
const QHash<QString, QVector<ToolCall>> &toolChains()
{
    static const QHash<QString, QVector<ToolCall>> chains{
        {QStringLiteral("pdf"),
         {{QStringLiteral("pdftotext"),
           {QStringLiteral("-layout"), QStringLiteral("-enc"), QStringLiteral("UTF-8")},
           {QStringLiteral("-")}}}},
        {QStringLiteral("doc"), {catdocCall(), antiwordCall()}},
        {QStringLiteral("xls"), {plainCall(QStringLiteral("xls2csv"))}},
        {QStringLiteral("ppt"), {plainCall(QStringLiteral("catppt"))}},
    };
    return chains;
}

/// XML entries by suffix, read in this order.
const QHash<QString, QStringList> &zipEntries()
{
    static const QStringList openDocument{QStringLiteral("content.xml")};
    static const QHash<QString, QStringList> entries{
        {QStringLiteral("docx"), {QStringLiteral("word/document.xml")}},
        {QStringLiteral("xlsx"), {QStringLiteral("xl/sharedStrings.xml")}},
        {QStringLiteral("pptx"), slideEntries()},
        {QStringLiteral("odt"), openDocument},
        {QStringLiteral("ods"), openDocument},
        {QStringLiteral("odp"), openDocument},
        {QStringLiteral("odg"), openDocument},
        {QStringLiteral("epub"), epubEntries()},
    };
    return entries;
}

WpsFormat writerFormat()
{
    return {QStringLiteral("wps"),
            {catdocCall(), antiwordCall()},
            hasMeaningfulExtractedText,
            {{{QStringLiteral("word/document.xml"), QStringLiteral("content.xml")}, {}, {}},
             {{}, {}, {QStringLiteral("Content.xml")}}}};
}

WpsFormat spreadsheetFormat()
{
    return {QStringLiteral("et"),
            {plainCall(QStringLiteral("xls2csv"))},
            hasMeaningfulExtractedText,
            {{{QStringLiteral("xl/sharedStrings.xml"), QStringLiteral("content.xml")}, {}, {}},
             {{}, {}, {QStringLiteral("sharedStrings.xml"), QStringLiteral("Content.xml")}}}};
}

WpsFormat presentationFormat()
{
    const QStringList layouts{QStringLiteral("content.xml"), QStringLiteral("drs/shapexml.xml"),
                              QStringLiteral("drs/downrev.xml"),
                              QStringLiteral("drs/slideLayouts/slideLayout1.xml")};
    return {
        QStringLiteral("dps"),
        {plainCall(QStringLiteral("catppt"))},
        hasMeaningfulSlideText,
        {{slideEntries() + layouts, {}, {}},
         {{}, {QStringLiteral("ppt/slides/")}, {QStringLiteral(".xml")}},
         {{},
          {QStringLiteral("drs/")},
          {QStringLiteral("shapexml.xml"), QStringLiteral("downrev.xml"), QStringLiteral(".xml")}},
         {{}, {}, {QStringLiteral("Content.xml")}}}};
}

const QHash<QString, WpsFormat> &wpsFormats()
{
    static const QHash<QString, WpsFormat> formats{
        {QStringLiteral("wps"), writerFormat()},
        {QStringLiteral("et"), spreadsheetFormat()},
        {QStringLiteral("dps"), presentationFormat()},
    };
    return formats;
}

/// A file name for one log line: it may hold line feeds.
QString loggedName(const QString &path)
{
    QString name = QFileInfo(path).fileName();
    for (QChar &c : name) {
        if (c.category() == QChar::Other_Control)
            c = QLatin1Char('?');
    }
    return name;
}

} // namespace

DocumentReader::DocumentReader(ToolRunner &tools, const QString &path,
                               const std::atomic_bool *cancel)
    : m_tools(tools)
    // A relative path must not look like an option to the tools.
    , m_path(path.startsWith(QLatin1Char('-')) ? QStringLiteral("./") + path : path)
    , m_cancel(cancel)
    , m_zip(tools, m_path, cancel)
{}

QString DocumentReader::read(int maxBytes)
{
    // Pipes and devices would block, a vanished file needs no tool to be found missing, and from an
    // empty one catdoc prints whatever its buffer held.
    const QFileInfo info(m_path);
    if (isCancelled(m_cancel) || !info.isFile() || info.size() == 0)
        return QString();
    const QString suffix = info.suffix().toLower();
    QString text;
    if (toolChains().contains(suffix)) {
        for (const ToolCall &call : toolChains().value(suffix)) {
            if (text.isEmpty())
                text = extractViaTool(call);
        }
    } else if (zipEntries().contains(suffix)) {
        text = m_zip.extractZipXml(zipEntries().value(suffix));
    } else if (wpsFormats().contains(suffix)) {
        text = readWps(*wpsFormats().constFind(suffix));
    } else if (suffix == QLatin1String("rtf")) {
        text = readRtf();
    } else if (suffix == QLatin1String("ofd")) {
        text = readOfd();
    } else {
        text = readPlain(maxBytes);
    }
    return isCancelled(m_cancel) ? QString() : text;
}

QString DocumentReader::readPlain(int maxBytes) const
{
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    const QByteArray data = file.read(qMax(0, maxBytes));
    if (data.isEmpty() || data.left(binaryWindowBytes).contains('\0'))
        return QString();
    return decodePlainText(data, data.size() >= maxBytes);
}

QString DocumentReader::readRtf()
{
    static const QRegularExpression header(QStringLiteral("^.*?-{10,}\n"),
                                           QRegularExpression::DotMatchesEverythingOption);
    QString text = extractViaTool(unrtfCall());
    text.replace(header, QString());
    return text;
}

QString DocumentReader::readOfd()
{
    return m_zip.extractZipXml(m_zip.unzipEntriesByPatterns({}, {QStringLiteral("Content.xml")}));
}

QString DocumentReader::readWps(const WpsFormat &format)
{
    const bool ole = isOleCompoundDocument(m_path);
    qInfo().noquote() << QStringLiteral("[ContentExtractor] extract %1 %2 ole=%3")
                             .arg(format.label, loggedName(m_path),
                                  ole ? QStringLiteral("true") : QStringLiteral("false"));
    QString text = ole ? readWpsOle(format) : QString();
    for (const ZipAttempt &attempt : format.zipAttempts) {
        if (!text.isEmpty())
            break;
        text = m_zip.extractZipXml(
            attempt.entries.isEmpty()
                ? m_zip.unzipEntriesByPatterns(attempt.prefixes, attempt.suffixes)
                : attempt.entries);
    }
    return text;
}

QString DocumentReader::readWpsOle(const WpsFormat &format)
{
    for (const ToolCall &call : format.oleTools) {
        const QString text = extractViaToolLogged(call, format.label);
        if (format.accepts(text))
            return text;
    }
    if (isCancelled(m_cancel))
        return QString();
    const QString text = extractOleUtf16Text(m_path);
    logExtraction(format.label, QStringLiteral("ole-utf16-fallback"), text);
    return text;
}

QString DocumentReader::extractViaTool(const ToolCall &call)
{
    return m_tools.extractViaTool(call.tool, call.before + QStringList{m_path} + call.after,
                                  m_tools.limits().document, m_cancel);
}

QString DocumentReader::extractViaToolLogged(const ToolCall &call, const QString &label)
{
    const QString text = extractViaTool(call);
    if (!isCancelled(m_cancel))
        logExtraction(label, call.tool, text);
    return text;
}

void DocumentReader::logExtraction(const QString &label, const QString &tool,
                                   const QString &text) const
{
    qInfo().noquote() << QStringLiteral("[ContentExtractor] extract %1 %2 tool=%3 chars=%4")
                             .arg(label, loggedName(m_path), tool, QString::number(text.size()));
}

} // namespace search
