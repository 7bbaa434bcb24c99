#include "search/text/htmltext.h"

#include "search/text/encoding.h"
#include "search/text/entities.h"
#include "search/text/textsink.h"

#include <QRegularExpression>
#include <QSet>

namespace search::text {

namespace {

/// Where a page declares its encoding.
constexpr int headBytes = 4096;
constexpr int maxEntityChars = 12;
constexpr int maxTagChars = 65536;

const QSet<QString> &blockTags()
{
    static const QSet<QString> tags = [] {
        const QStringList names =
            QStringLiteral("p div h1 h2 h3 h4 h5 h6 li ul ol dl dt dd tr table thead tbody tfoot "
                           "title head body html section article header footer nav aside main pre "
                           "blockquote form fieldset option select textarea hr address figure "
                           "figcaption caption center v:textbox w:p")
                .split(QLatin1Char(' '));
        QSet<QString> set;
        for (const QString &name : names)
            set.insert(name);
        return set;
    }();
    return tags;
}

/// Elements whose content no reader sees, up to their end tag.
bool isHiddenTag(const QString &tag)
{
    return tag == QLatin1String("script") || tag == QLatin1String("style") ||
           tag == QLatin1String("template") || tag == QLatin1String("xml");
}

/// One pass over a page.
class HtmlReader
{
public:
    HtmlReader(const QString &html, TextSink *sink)
        : m_html(html)
        , m_sink(*sink)
    {}

    void read()
    {
        while (m_at < m_html.size() && !m_sink.isFull()) {
            const QChar c = m_html.at(m_at);
            if (c == QLatin1Char('<'))
                readTag();
            else if (c == QLatin1Char('&'))
                readEntity();
            else {
                m_sink.append(c);
                ++m_at;
            }
        }
        m_sink.endParagraph();
    }

private:
    void readEntity()
    {
        const int end = m_html.indexOf(QLatin1Char(';'), m_at);
        const bool isShort = end > 0 && end - m_at <= maxEntityChars;
        const QString text = isShort ? entityText(m_html.mid(m_at + 1, end - m_at - 1)) : QString();
        m_sink.append(text.isEmpty() ? QStringLiteral("&") : text);
        m_at = text.isEmpty() ? m_at + 1 : end + 1;
    }

    void readTag()
    {
        if (m_html.midRef(m_at, 4) == QLatin1String("<!--")) {
            skipBehind(QStringLiteral("-->"));
            return;
        }
        const QChar next = m_at + 1 < m_html.size() ? m_html.at(m_at + 1) : QChar();
        const bool closing = next == QLatin1Char('/');
        if (!closing && !next.isLetter() && next != QLatin1Char('!') && next != QLatin1Char('?')) {
            m_sink.append(QLatin1Char('<')); // A plain sign in careless markup.
            ++m_at;
            return;
        }
        int end = m_at + (closing ? 2 : 1);
        const int start = end;
        while (end < m_html.size() && !m_html.at(end).isSpace() &&
               m_html.at(end) != QLatin1Char('>') && m_html.at(end) != QLatin1Char('/'))
            ++end;
        const QString tag = m_html.mid(start, end - start).toLower();
        skipTag(end);
        if (tag == QLatin1String("td") || tag == QLatin1String("th"))
            m_sink.endCell();
        else if (tag == QLatin1String("br"))
            m_sink.softBreak();
        else if (blockTags().contains(tag))
            m_sink.endParagraph();
        else if (!closing && isHiddenTag(tag)) {
            skipBehind(QStringLiteral("</") + tag);
            skipBehind(QStringLiteral(">"));
        }
    }

    /// To behind the tag whose attributes begin at `at`; quoted ones may hold its end sign.
    void skipTag(int at)
    {
        QChar quote;
        const int limit = qMin(m_html.size(), at + maxTagChars);
        for (m_at = at; m_at < limit; ++m_at) {
            const QChar c = m_html.at(m_at);
            const bool opens = m_html.at(m_at - 1) == QLatin1Char('=') &&
                               (c == QLatin1Char('"') || c == QLatin1Char('\''));
            if (quote.isNull() && c == QLatin1Char('>')) {
                ++m_at;
                return;
            }
            if (quote.isNull() && opens)
                quote = c;
            else if (c == quote)
                quote = QChar();
        }
        m_at = at; // A quotation mark without its pair.
        skipBehind(QStringLiteral(">"));
    }

    /// To the end of the page if the mark is missing.
    void skipBehind(const QString &mark)
    {
        const int found = m_html.indexOf(mark, m_at, Qt::CaseInsensitive);
        m_at = found < 0 ? m_html.size() : found + mark.size();
    }

    const QString &m_html;
    TextSink &m_sink;
    int m_at = 0;
};

QByteArray declaredEncoding(const QByteArray &bytes)
{
    static const QRegularExpression declaration(
        QStringLiteral("(?:charset|<\\?xml[^>]*encoding)\\s*=\\s*[\"']?\\s*([A-Za-z0-9_:.-]+)"),
        QRegularExpression::CaseInsensitiveOption);
    const QString head = QString::fromLatin1(bytes.left(headBytes));
    return declaration.match(head).captured(1).toLatin1();
}

} // namespace

void readHtml(const QByteArray &bytes, const QByteArray &encoding, TextSink *sink)
{
    const QByteArray own = declaredEncoding(bytes);
    const QString html = decodeDeclared(bytes, own.isEmpty() ? encoding : own);
    HtmlReader(html, sink).read();
}

} // namespace search::text
