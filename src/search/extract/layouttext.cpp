#include "search/extract/layouttext.h"

#include "search/contentextractor.h"
#include "search/extract/oletext.h"
#include "search/extract/toolrunner.h"
#include "search/text/textsink.h"

#include <QFileInfo>
#include <QVector>
#include <QXmlStreamReader>

namespace search {

namespace {

/// Each word comes with its place: what the output is longer than the text.
constexpr int layoutBytesPerChar = 40;
constexpr int maxLayoutBytes = 256 * 1024 * 1024;
constexpr int layoutMs = 30000;
constexpr int maxBlocks = 20000; ///< Of one page.
/// Gaps in heights of a line: a wider one stands between columns, a narrower one between wide
/// characters is mere spacing.
constexpr double columnGap = 2.5;
constexpr double spacingGap = 0.6;
/// What a wide character needs at the end of a line, and what a blank does.
constexpr double wideNeeds = 1.6;
constexpr double blankNeeds = 0.5;
/// Blocks whose left edges differ by less stand in one column.
constexpr double sameEdge = 4;
/// A line of running text is at least so long, in heights; cells of tables are shorter.
constexpr double runningLine = 12;
/// What stands this near the upper or lower edge of a page is a header or a footer.
constexpr double marginPart = 0.08;

struct Box
{
    double left = 0;
    double right = 0;
    double top = 0;
    double bottom = 0;

    double height() const { return bottom - top; }
};

struct Word
{
    Box box;
    QString text;
};

struct Line
{
    Box box;
    QVector<Word> words;
};

struct Block
{
    Box box;
    QVector<Line> lines;
};

Box boxOf(const QXmlStreamReader &xml)
{
    const QXmlStreamAttributes attributes = xml.attributes();
    const auto value = [&attributes](const char *name) {
        return attributes.value(QLatin1String(name)).toDouble();
    };
    return {value("xMin"), value("xMax"), value("yMin"), value("yMax")};
}

/// The right edge of the column that a block stands in: that of the widest block below its edge.
double columnEdge(const Block &block, const QVector<Block> &page)
{
    double edge = block.box.right;
    const double near = sameEdge * block.lines.constFirst().box.height();
    for (const Block &other : page) {
        if (qAbs(other.box.left - block.box.left) < near)
            edge = qMax(edge, other.box.right);
    }
    return edge;
}

bool endsSentence(const QString &text)
{
    return QStringLiteral("。！？：；.!?:;").contains(text.at(text.size() - 1));
}

/// Writes the words of one page after another.
class LayoutReader
{
public:
    LayoutReader(const QByteArray &xml, int maxChars)
        : m_xml(xml)
        , m_sink(maxChars)
        , m_margins(maxChars)
    {}

    QString read()
    {
        while (!m_xml.atEnd() && !m_sink.isFull()) {
            m_xml.readNext();
            if (m_xml.isStartElement() && m_xml.name() == QLatin1String("page"))
                readPage();
        }
        m_sink.endParagraph();
        m_sink.appendParagraphs(m_margins.text());
        return m_sink.text();
    }

private:
    void readPage()
    {
        const double height = m_xml.attributes().value(QLatin1String("height")).toDouble();
        QVector<Block> blocks;
        while (!m_xml.atEnd() && blocks.size() < maxBlocks) {
            m_xml.readNext();
            const QStringRef name = m_xml.name();
            if (m_xml.isEndElement() && name == QLatin1String("page"))
                break;
            if (m_xml.isStartElement())
                takeElement(name, &blocks);
        }
        for (const Block &block : qAsConst(blocks)) {
            if (block.lines.isEmpty() || block.lines.constFirst().words.isEmpty())
                continue;
            const bool inMargin = block.lines.size() == 1 && height > 0 &&
                                  (block.box.bottom < marginPart * height ||
                                   block.box.top > (1 - marginPart) * height);
            if (inMargin)
                writeMargin(block);
            else
                writeBlock(block, columnEdge(block, blocks));
        }
    }

    void takeElement(const QStringRef &name, QVector<Block> *blocks)
    {
        const bool isBlock = name == QLatin1String("block");
        if (isBlock)
            blocks->append({boxOf(m_xml), {}});
        else if (blocks->isEmpty())
            return;
        else if (name == QLatin1String("line"))
            blocks->last().lines.append({boxOf(m_xml), {}});
        else if (name == QLatin1String("word") && !blocks->last().lines.isEmpty()) {
            const Box box = boxOf(m_xml);
            const QString text = m_xml.readElementText();
            if (!text.isEmpty())
                blocks->last().lines.last().words.append({box, text});
        }
    }

    /// Headers and footers come behind all pages, so that they part nothing.
    void writeMargin(const Block &block)
    {
        writeLine(block.lines.constFirst(), &m_margins);
        m_margins.endParagraph();
    }

    void writeBlock(const Block &block, double edge)
    {
        for (int i = 0; i < block.lines.size(); ++i) {
            const Line &line = block.lines.at(i);
            if (line.words.isEmpty())
                continue;
            if (goesOn(line, i == 0))
                m_sink.softBreak();
            else
                m_sink.endParagraph();
            writeLine(line, &m_sink);
            m_last = line;
            m_edge = edge;
        }
    }

    /// True if the last line's sentence goes on in this one: its first word had no room any more.
    /// Into another block only running text goes on, in the same size.
    bool goesOn(const Line &line, bool isOther) const
    {
        if (m_last.words.isEmpty())
            return false;
        const double height = m_last.box.height();
        const Word &first = line.words.constFirst();
        const double needed = text::isWide(first.text.at(0))
                                  ? wideNeeds * height
                                  : first.box.right - first.box.left + blankNeeds * height;
        if (m_edge - m_last.box.right > needed)
            return false;
        return !isOther || (m_last.box.right - m_last.box.left > runningLine * height &&
                            line.box.right - line.box.left > height &&
                            qAbs(line.box.height() - height) < 0.1 * height &&
                            !endsSentence(m_last.words.constLast().text));
    }

    static void writeLine(const Line &line, text::TextSink *sink)
    {
        double end = -1;
        QChar last;
        for (const Word &word : line.words) {
            const double gap = word.box.left - end;
            const double height = word.box.height();
            if (end >= 0) {
                const bool wide = text::isWide(word.text.at(0)) && text::isWide(last);
                if (gap > columnGap * height)
                    sink->endCell();
                else if (!wide || gap > spacingGap * height)
                    sink->append(QLatin1Char(' '));
            }
            sink->append(word.text);
            last = word.text.at(word.text.size() - 1);
            end = word.box.right;
        }
    }

    QXmlStreamReader m_xml;
    text::TextSink m_sink;
    text::TextSink m_margins;
    Line m_last; ///< What was written last of the running text.
    double m_edge = 0;
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
