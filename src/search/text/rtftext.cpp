#include "search/text/rtftext.h"

#include "search/text/encoding.h"
#include "search/text/textsink.h"

#include <QHash>
#include <QSet>
#include <QTextCodec>
#include <QVector>

namespace search::text {

namespace {

constexpr int maxDepth = 512;
constexpr int defaultCodePage = 1252;

enum class Destination { Body, Aside, Fonts, Skipped };

struct GroupState
{
    Destination destination = Destination::Body;
    int font = -1;
    int unicodeSkip = 1; ///< Bytes behind a `\u` that stand for readers without Unicode.
};

int codePageOfCharset(int charset)
{
    static const QHash<int, int> pages{{128, 932},  {129, 949},  {134, 936},  {136, 950},
                                       {161, 1253}, {162, 1254}, {177, 1255}, {178, 1256},
                                       {186, 1257}, {204, 1251}, {222, 874},  {238, 1250}};
    return pages.value(charset, 0);
}

const QSet<QByteArray> &skippedWords()
{
    static const QSet<QByteArray> words{
        "colortbl", "stylesheet", "info",      "pict",     "objdata", "fldinst",    "sn",
        "sv",       "bkmkstart",  "bkmkend",   "listtext", "pntext",  "nonshppict", "xe",
        "tc",       "private",    "themedata", "filetbl",  "revtbl",  "upr"};
    return words;
}

const QSet<QByteArray> &asideWords()
{
    static const QSet<QByteArray> words{"footnote", "annotation", "shptxt",  "header",
                                        "headerl",  "headerr",    "headerf", "footer",
                                        "footerl",  "footerr",    "footerf"};
    return words;
}

QString symbolOf(const QByteArray &word)
{
    static const QHash<QByteArray, ushort> symbols{
        {"tab", '\t'},       {"emdash", 0x2014}, {"endash", 0x2013},    {"bullet", 0x2022},
        {"lquote", 0x2018},  {"rquote", 0x2019}, {"ldblquote", 0x201C}, {"rdblquote", 0x201D},
        {"emspace", 0x2003}, {"enspace", 0x2002}};
    return symbols.contains(word) ? QString(QChar(symbols.value(word))) : QString();
}

bool isLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

class RtfReader
{
public:
    RtfReader(const QByteArray &bytes, TextSink *sink)
        : m_bytes(bytes)
        , m_sink(*sink)
        , m_asides(sink->room())
    {}

    void read()
    {
        while (m_at < m_bytes.size() && !m_sink.isFull() && !m_ended)
            readToken();
        flush();
        m_sink.endParagraph();
        m_sink.appendParagraphs(m_asides.text());
    }

private:
    TextSink &target() { return m_state.destination == Destination::Aside ? m_asides : m_sink; }
    bool isText() const
    {
        return m_state.destination == Destination::Body ||
               m_state.destination == Destination::Aside;
    }

    void readToken()
    {
        const char c = m_bytes.at(m_at++);
        if (c == '{')
            openGroup();
        else if (c == '}')
            closeGroup();
        else if (c == '\\')
            readControl();
        else if (c != '\r' && c != '\n')
            addByte(c);
    }

    void openGroup()
    {
        flush();
        m_toSkip = 0;
        m_starred = false;
        if (m_stack.size() < maxDepth)
            m_stack.append(m_state);
        else
            m_ended = true;
    }

    void closeGroup()
    {
        flush();
        m_toSkip = 0;
        if (m_stack.isEmpty()) {
            m_ended = true;
            return;
        }
        if (m_state.destination == Destination::Aside &&
            m_stack.constLast().destination != Destination::Aside)
            m_asides.endParagraph();
        m_state = m_stack.takeLast();
    }

    void readControl()
    {
        if (m_at >= m_bytes.size())
            return;
        const char c = m_bytes.at(m_at);
        if (isLetter(c)) {
            readWord();
            return;
        }
        ++m_at;
        if (c == '\'') {
            addByte(char(m_bytes.mid(m_at, 2).toInt(nullptr, 16)));
            m_at += 2;
        } else if (c == '*') {
            m_starred = true;
        } else if (c == '\\' || c == '{' || c == '}') {
            addByte(c);
        } else if (c == '~' || c == '_') {
            addText(QString(QLatin1Char(c == '~' ? ' ' : '-')));
        } else if (c == '\n' || c == '\r') {
            endParagraph();
        }
    }

    void readWord()
    {
        const int start = m_at;
        while (m_at < m_bytes.size() && isLetter(m_bytes.at(m_at)))
            ++m_at;
        const QByteArray word = m_bytes.mid(start, m_at - start);
        const int numberStart = m_at;
        if (m_at < m_bytes.size() && m_bytes.at(m_at) == '-')
            ++m_at;
        while (m_at < m_bytes.size() && m_bytes.at(m_at) >= '0' && m_bytes.at(m_at) <= '9')
            ++m_at;
        const bool hasNumber = m_at > numberStart;
        const int number = m_bytes.mid(numberStart, m_at - numberStart).toInt();
        if (m_at < m_bytes.size() && m_bytes.at(m_at) == ' ')
            ++m_at;
        const bool starred = m_starred;
        m_starred = false;
        if (word == "u" && hasNumber)
            addUnicode(number);
        else if (word == "bin")
            m_at += qBound(0, number, m_bytes.size() - m_at);
        else if (!enterDestination(word, starred))
            format(word, number);
    }

    bool enterDestination(const QByteArray &word, bool starred)
    {
        Destination destination = Destination::Skipped;
        if (word == "fonttbl")
            destination = Destination::Fonts;
        else if (asideWords().contains(word))
            destination = Destination::Aside;
        else if (!skippedWords().contains(word) && (!starred || word == "shpinst"))
            return false;
        flush();
        if (m_state.destination != Destination::Skipped)
            m_state.destination = destination;
        return true;
    }

    void format(const QByteArray &word, int number)
    {
        if (word == "ansicpg") {
            m_codePage = number;
        } else if (word == "uc") {
            m_state.unicodeSkip = qBound(0, number, 8);
        } else if (word == "f") {
            flush();
            m_state.font = number;
        } else if (word == "plain") {
            flush();
            m_state.font = m_defaultFont;
        } else if (word == "deff") {
            m_defaultFont = m_state.font = number;
        } else if (word == "fcharset" && m_state.destination == Destination::Fonts) {
            m_fontPages.insert(m_state.font, codePageOfCharset(number));
        } else if (word == "par" || word == "sect" || word == "page" || word == "row") {
            endParagraph();
        } else if (word == "cell" || word == "nestcell") {
            flush();
            if (isText())
                target().endCell();
        } else if (word == "line") {
            flush();
            if (isText())
                target().softBreak();
        } else if (!symbolOf(word).isEmpty()) {
            addText(symbolOf(word));
        }
    }

    void endParagraph()
    {
        flush();
        if (isText())
            target().endParagraph();
    }

    void addByte(char c)
    {
        if (m_toSkip > 0)
            --m_toSkip;
        else if (isText())
            m_pending.append(c);
    }

    void addText(const QString &text)
    {
        flush();
        if (isText())
            target().append(text);
    }

    void addUnicode(int number)
    {
        addText(QString(QChar(static_cast<ushort>(number))));
        m_toSkip = m_state.unicodeSkip;
    }

    /// Bytes are decoded together: a character may stand in two escapes.
    void flush()
    {
        if (m_pending.isEmpty())
            return;
        const int fontPage = m_fontPages.value(m_state.font, 0);
        const int page = fontPage > 0 ? fontPage : m_codePage;
        const bool undeclared = page == defaultCodePage && m_pending.size() >= 4 && onlyHighBytes();
        // Programs of the east often declare a western page.
        if (undeclared)
            target().append(decodeText(m_pending));
        else
            target().append(decodeDeclared(m_pending, codePageName(page)));
        m_pending.clear();
    }

    bool onlyHighBytes() const
    {
        for (const char c : m_pending) {
            if (static_cast<uchar>(c) < 0x80)
                return false;
        }
        return m_pending.size() % 2 == 0;
    }

    const QByteArray &m_bytes;
    TextSink &m_sink;
    TextSink m_asides;
    QVector<GroupState> m_stack;
    GroupState m_state;
    QHash<int, int> m_fontPages; ///< Code pages by font, 0 for that of the document.
    QByteArray m_pending;
    int m_codePage = defaultCodePage;
    int m_defaultFont = -1;
    int m_at = 0;
    int m_toSkip = 0;
    bool m_starred = false;
    bool m_ended = false;
};

} // namespace

bool isRtf(const QByteArray &bytes)
{
    return bytes.startsWith("{\\rtf");
}

void readRtf(const QByteArray &bytes, TextSink *sink)
{
    RtfReader(bytes, sink).read();
}

} // namespace search::text
