#pragma once

#include <QString>

namespace search::text {

/// True for Han characters of the basic plane and its compatibility block.
bool isHan(QChar c);
/// True for Han characters, kana and their punctuation, which are written without blanks.
bool isWide(QChar c);

/// Collects the text of one document up to a limit. White space inside a paragraph becomes one
/// blank; a line end between wide characters is dropped, because layout put it there and it must
/// not part a phrase. Control and zero-width characters are left out.
class TextSink
{
public:
    /// `maxChars` in UTF-16 units.
    explicit TextSink(int maxChars)
        : m_maxChars(maxChars)
    {}

    void append(const QString &text);
    void append(QChar c);
    /// Text in parts: a line feed ends a paragraph and a tab a cell.
    void appendParagraphs(const QString &text);
    /// A line end inside a paragraph.
    void softBreak() { m_softBreak = true; }
    /// Parts what follows from what stands before.
    void endParagraph() { endPart(QLatin1Char('\n')); }
    void endCell() { endPart(QLatin1Char('\t')); }

    bool isFull() const { return m_text.size() >= m_maxChars; }
    bool isEmpty() const { return m_text.isEmpty(); }
    int room() const { return m_maxChars - m_text.size(); }
    /// What was collected, never more than the limit and never half a surrogate pair.
    QString text() const;

private:
    void endPart(QChar separator);
    void writeGap(QChar next);

    QString m_text;
    const int m_maxChars;
    QChar m_separator; ///< Of parts, written when the next character comes.
    bool m_blank = false;
    bool m_softBreak = false;
};

} // namespace search::text
