#include "search/text/formatsection.h"

namespace search::text {

namespace {

constexpr int maxCodeChars = 512;

/// Reads the code of one section.
class SectionParser
{
public:
    explicit SectionParser(const QString &code)
        : m_code(code)
    {}

    FormatSection parse()
    {
        while (m_at < m_code.size())
            readPiece();
        return m_section;
    }

private:
    using Kind = FormatSection::Kind;

    void add(Kind kind, const QString &text) { m_section.pieces.append({kind, text}); }

    void readPiece()
    {
        const QChar c = m_code.at(m_at);
        if (c == QLatin1Char('"')) {
            const int end = m_code.indexOf(c, m_at + 1);
            add(Kind::Literal, m_code.mid(m_at + 1, (end < 0 ? m_code.size() : end) - m_at - 1));
            m_at = end < 0 ? m_code.size() : end + 1;
        } else if (c == QLatin1Char('\\')) {
            add(Kind::Literal, m_code.mid(m_at + 1, 1));
            m_at += 2;
        } else if (c == QLatin1Char('_') || c == QLatin1Char('*')) {
            if (c == QLatin1Char('_'))
                add(Kind::Literal, QStringLiteral(" ")); // As wide as the next character.
            m_at += 2;
        } else if (c == QLatin1Char('[')) {
            readBracket();
        } else if (!readWord() && !readRun(c)) {
            readSign(c);
        }
    }

    bool readWord()
    {
        struct Word
        {
            QString text;
            Kind kind;
        };
        static const Word words[] = {{QStringLiteral("General"), Kind::General},
                                     {QStringLiteral("Standard"), Kind::General},
                                     {QStringLiteral("AM/PM"), Kind::HalfDay},
                                     {QStringLiteral("A/P"), Kind::HalfDay},
                                     {QStringLiteral("上午/下午"), Kind::HalfDay},
                                     {QStringLiteral("E+"), Kind::Exponent},
                                     {QStringLiteral("E-"), Kind::Exponent}};
        for (const Word &word : words) {
            if (m_code.midRef(m_at, word.text.size()).compare(word.text, Qt::CaseInsensitive) ==
                0) {
                add(word.kind, m_code.mid(m_at, word.text.size()));
                m_at += word.text.size();
                return true;
            }
        }
        return false;
    }

    bool readRun(QChar c)
    {
        const QChar letter = c.toLower();
        if (!QStringLiteral("ymdhsae").contains(letter))
            return false;
        const int start = m_at;
        while (m_at < m_code.size() && m_code.at(m_at).toLower() == letter)
            ++m_at;
        add(Kind::Date, m_code.mid(start, m_at - start).toLower());
        return true;
    }

    void readBracket()
    {
        int end = m_code.indexOf(QLatin1Char(']'), m_at);
        end = end < 0 ? m_code.size() : end;
        const QString inner = m_code.mid(m_at + 1, end - m_at - 1);
        m_at = end + 1;
        const QString lower = inner.toLower();
        if (inner.startsWith(QLatin1Char('$'))) {
            const int dash = inner.indexOf(QLatin1Char('-'));
            add(Kind::Literal, inner.mid(1, dash < 0 ? -1 : dash - 1));
            const QString locale = dash < 0 ? QString() : lower.mid(dash + 1);
            m_section.isChinese = m_section.isChinese || locale.endsWith(QLatin1String("804")) ||
                                  locale.startsWith(QLatin1String("zh"));
        } else if (lower.startsWith(QLatin1String("dbnum"))) {
            m_section.chineseDigits = lower.mid(5).toInt();
        } else if (!inner.isEmpty() && QStringLiteral("<>=").contains(inner.at(0))) {
            m_section.condition = inner;
        } else if (!lower.isEmpty() && lower.count(lower.at(0)) == lower.size() &&
                   QStringLiteral("hms").contains(lower.at(0))) {
            add(Kind::Elapsed, lower);
        } // Everything else is a colour.
    }

    void readSign(QChar c)
    {
        ++m_at;
        const bool behindDigit =
            !m_section.pieces.isEmpty() && m_section.pieces.constLast().kind == Kind::Digit;
        if (c == QLatin1Char('0') || c == QLatin1Char('#') || c == QLatin1Char('?'))
            add(Kind::Digit, c);
        else if (c == QLatin1Char('.'))
            add(Kind::Point, c);
        else if (c == QLatin1Char('@'))
            add(Kind::Text, c);
        else if (c == QLatin1Char('/') && behindDigit)
            add(Kind::Fraction, c);
        else if (c == QLatin1Char(',') && behindDigit)
            readComma();
        else
            addSign(c);
    }

    /// Between digits it groups, behind the last one it divides by 1000.
    void readComma()
    {
        int next = m_at;
        while (next < m_code.size() && m_code.at(next) == QLatin1Char(','))
            ++next;
        const bool digitFollows =
            next < m_code.size() && QStringLiteral("0#?").contains(m_code.at(next));
        if (digitFollows)
            m_section.isGrouped = true;
        else
            m_section.thousands += next - m_at + 1;
        m_at = next;
    }

    void addSign(QChar c)
    {
        m_section.percents += c == QLatin1Char('%') ? 1 : 0;
        add(Kind::Literal, c);
    }

    const QString m_code;
    FormatSection m_section;
    int m_at = 0;
};

} // namespace

bool FormatSection::has(Kind kind) const
{
    for (const Piece &piece : pieces) {
        if (piece.kind == kind)
            return true;
    }
    return false;
}

QVector<FormatSection> parseFormat(const QString &code)
{
    const QString all = code.left(maxCodeChars);
    QVector<FormatSection> sections;
    int start = 0;
    bool quoted = false;
    for (int i = 0; i <= all.size(); ++i) {
        const QChar c = i < all.size() ? all.at(i) : QLatin1Char(';');
        if (c == QLatin1Char('"'))
            quoted = !quoted;
        if (c == QLatin1Char('\\') && !quoted)
            ++i;
        else if (i >= all.size() || (c == QLatin1Char(';') && !quoted)) {
            sections.append(SectionParser(all.mid(start, i - start)).parse());
            start = i + 1;
        }
    }
    if (sections.isEmpty())
        sections.append(FormatSection());
    return sections;
}

} // namespace search::text
