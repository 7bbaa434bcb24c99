#include "search/extract/layouttext.h"

#include "search/contentextractor.h"
#include "search/extract/oletext.h"
#include "search/extract/toolrunner.h"
#include "search/text/textsink.h"

#include <QFileInfo>
#include <QXmlStreamReader>

namespace search {

namespace {

/// Each word comes with its place: what the output is longer than the text.
constexpr int layoutBytesPerChar = 40;
constexpr int maxLayoutBytes = 256 * 1024 * 1024;
constexpr int layoutMs = 30000;
/// Gaps in heights of a line: a wider one stands between columns, a narrower one between Han
/// characters is mere spacing.
constexpr double columnGap = 2.5;
constexpr double spacingGap = 0.6;
/// What a wide character needs at the end of a line, and what a blank does.
constexpr double wideNeeds = 1.6;
constexpr double blankNeeds = 0.5;

struct Box
{
    double left = 0;
    double right = 0;
    double height = 0;
};

Box boxOf(const QXmlStreamReader &xml)
{
    const QXmlStreamAttributes attributes = xml.attributes();
    const auto value = [&attributes](const char *name) {
        return attributes.value(QLatin1String(name)).toDouble();
    };
    return {value("xMin"), value("xMax"), value("yMax") - value("yMin")};
}

/// Follows the words of one page after another.
class LayoutReader
{
public:
    LayoutReader(const QByteArray &xml, int maxChars)
        : m_xml(xml)
        , m_sink(maxChars)
    {}

    QString read()
    {
        while (!m_xml.atEnd() && !m_sink.isFull()) {
            m_xml.readNext();
            if (!m_xml.isStartElement())
                continue;
            const QStringRef name = m_xml.name();
            if (name == QLatin1String("block"))
                startBlock();
            else if (name == QLatin1String("line"))
                startLine();
            else if (name == QLatin1String("word"))
                takeWord();
        }
        return m_sink.text();
    }

private:
    void startBlock()
    {
        m_block = boxOf(m_xml);
        m_line = Box();
        m_lastLine = Box();
        m_sink.endParagraph();
    }

    void startLine()
    {
        m_lastLine = m_line;
        m_line = boxOf(m_xml);
        m_wordEnd = -1;
    }

    /// A line goes on in the next one if that one's first word had no room any more.
    void breakLine(const Box &word, QChar first)
    {
        const double room = m_block.right - m_lastLine.right;
        const double needed = text::isWide(first)
                                  ? wideNeeds * m_lastLine.height
                                  : word.right - word.left + blankNeeds * m_lastLine.height;
        if (room > needed)
            m_sink.endParagraph();
        else
            m_sink.softBreak();
    }

    void takeWord()
    {
        const Box box = boxOf(m_xml);
        const QString word = m_xml.readElementText();
        if (word.isEmpty())
            return;
        if (m_wordEnd < 0 && m_lastLine.height > 0)
            breakLine(box, word.at(0));
        const double gap = box.left - m_wordEnd;
        if (m_wordEnd >= 0) {
            const bool wide = text::isWide(word.at(0)) && text::isWide(m_last);
            if (gap > columnGap * box.height)
                m_sink.endCell();
            else if (!wide || gap > spacingGap * box.height)
                m_sink.append(QLatin1Char(' '));
        }
        m_sink.append(word);
        m_last = word.at(word.size() - 1);
        m_wordEnd = box.right;
    }

    QXmlStreamReader m_xml;
    text::TextSink m_sink;
    Box m_block;
    Box m_line;
    Box m_lastLine;        ///< Without height at the beginning of a block.
    double m_wordEnd = -1; ///< Below 0 at the beginning of a line.
    QChar m_last;
};

} // namespace

QString textOfLayout(const QByteArray &xml, int maxChars)
{
    return LayoutReader(xml, maxChars).read();
}

IndexText readPdf(const QString &path, int maxBytes, const std::atomic_bool *cancel)
{
    const int maxChars = qMax(maxBytes, maxTextChars);
    const int room = int(qMin<qint64>(maxLayoutBytes, qint64(maxChars) * layoutBytesPerChar));
    const QStringList arguments{QStringLiteral("-bbox-layout"), QStringLiteral("-enc"),
                                QStringLiteral("UTF-8"), path, QStringLiteral("-")};
    const ToolOutput output =
        ToolRunner::shared().run(QStringLiteral("pdftotext"), arguments, {layoutMs, room}, cancel);
    if (output.ended && output.exitCode == 0) {
        // A tool in its place may print the text as it is.
        if (!output.bytes.contains("<doc>"))
            return {cutText(decodeToolText(output.bytes, output.cut)), output.cut};
        const QString text = textOfLayout(output.bytes, maxChars);
        return {text, output.cut || text.size() >= maxChars};
    }
    // One without places, or a document that is damaged behind some pages.
    const QString text = ContentExtractor::readContentSnippet(path, maxBytes, cancel);
    return {text, text.toUtf8().size() >= maxTextChars};
}

} // namespace search
