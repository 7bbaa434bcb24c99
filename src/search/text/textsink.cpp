#include "search/text/textsink.h"

namespace search::text {

namespace {

bool isInvisible(QChar c)
{
    const ushort unit = c.unicode();
    return unit < 0x20 || (unit >= 0x7F && unit < 0xA0) || unit == 0x00AD ||
           (unit >= 0x200B && unit <= 0x200F) || unit == 0x2060 || unit == 0xFEFF || unit >= 0xFFFE;
}

} // namespace

bool isWide(QChar c)
{
    const ushort unit = c.unicode();
    return isHan(c) || (unit >= 0x3001 && unit <= 0x30FF) || (unit >= 0xFF01 && unit <= 0xFF60);
}

bool isHan(QChar c)
{
    const ushort unit = c.unicode();
    return (unit >= 0x3400 && unit <= 0x9FFF) || (unit >= 0xF900 && unit <= 0xFAFF);
}

void TextSink::append(const QString &text)
{
    for (const QChar c : text) {
        if (isFull())
            return;
        append(c);
    }
}

void TextSink::appendParagraphs(const QString &text)
{
    for (const QChar c : text) {
        if (c == QLatin1Char('\n'))
            endParagraph();
        else if (c == QLatin1Char('\t'))
            endCell();
        else
            append(c);
    }
    endParagraph();
}

void TextSink::append(QChar c)
{
    if (isFull())
        return;
    if (c == QLatin1Char('\n') || c == QLatin1Char('\r') || c == QChar(0x2028)) {
        m_softBreak = true;
        return;
    }
    // The ideographic blank is typed on purpose in names, and parts columns.
    if (c.isSpace()) {
        m_blank = true;
        return;
    }
    if (isInvisible(c))
        return;
    writeGap(c);
    m_text.append(c);
}

void TextSink::writeGap(QChar next)
{
    if (!m_separator.isNull()) {
        if (!m_text.isEmpty())
            m_text.append(m_separator);
    } else if ((m_blank || m_softBreak) && !m_text.isEmpty()) {
        const bool betweenWide = isWide(next) && isWide(m_text.at(m_text.size() - 1));
        if (!m_softBreak || !betweenWide)
            m_text.append(QLatin1Char(' '));
    }
    m_separator = QChar();
    m_blank = false;
    m_softBreak = false;
}

/// A line feed is stronger than a tab.
void TextSink::endPart(QChar separator)
{
    if (m_separator != QLatin1Char('\n'))
        m_separator = separator;
}

QString TextSink::text() const
{
    QString result = m_text.left(m_maxChars);
    if (!result.isEmpty() && result.at(result.size() - 1).isHighSurrogate())
        result.chop(1);
    return result;
}

} // namespace search::text
