#include "search/text/shownnumber.h"

#include <QDate>
#include <QTime>

#include <cmath>

namespace search::text {

namespace {

using Kind = FormatSection::Kind;
using Piece = FormatSection::Piece;

/// Where the years of sheets end.
constexpr double maxDays = 2958466;
constexpr qint64 msPerDay = 86400000;

/// One moment with the section that it is written by.
class DateWriter
{
public:
    DateWriter(double days, const FormatSection &section, bool from1904)
        : m_section(section)
    {
        const QDate first = from1904 ? QDate(1904, 1, 1) : QDate(1899, 12, 30);
        m_ms = qint64(std::llround(days * double(msPerDay)));
        if (!showsParts()) // Times are rounded to what is shown, hours and minutes are cut.
            m_ms = (m_ms + 500) / 1000 * 1000;
        m_date = first.addDays(m_ms / msPerDay);
        m_time = QTime::fromMSecsSinceStartOfDay(int(m_ms % msPerDay));
    }

    QString write()
    {
        for (m_at = 0; m_at < m_section.pieces.size(); ++m_at) {
            const Piece &piece = m_section.pieces.at(m_at);
            if (piece.kind == Kind::Date)
                m_text += datePart(piece.text);
            else if (piece.kind == Kind::Elapsed)
                m_text += elapsed(piece.text);
            else if (piece.kind == Kind::HalfDay)
                m_text += halfDay(piece.text);
            else if (piece.kind == Kind::Digit)
                writeDigit();
            else
                m_text += piece.text;
        }
        return m_text.trimmed();
    }

private:
    bool showsParts() const { return m_section.has(Kind::Digit); }

    /// The piece of a date or time before or behind the current one.
    QString neighbour(int step) const
    {
        for (int i = m_at + step; i >= 0 && i < m_section.pieces.size(); i += step) {
            const Piece &piece = m_section.pieces.at(i);
            if (piece.kind == Kind::Date || piece.kind == Kind::Elapsed)
                return piece.text;
        }
        return QString();
    }

    QString padded(int number, const QString &letters, int digits = 2) const
    {
        if (m_section.chineseDigits == 1 || m_section.chineseDigits == 2)
            return chineseNumber(number, m_section.chineseDigits == 2);
        return letters.size() < 2
                   ? QString::number(number)
                   : QString::number(number).rightJustified(digits, QLatin1Char('0'));
    }

    QString datePart(const QString &letters) const
    {
        const QChar letter = letters.at(0);
        if (letter == QLatin1Char('y') || letter == QLatin1Char('e'))
            return year(letters);
        if (letter == QLatin1Char('d'))
            return letters.size() > 2 ? dayName(letters.size() > 3) : padded(m_date.day(), letters);
        if (letter == QLatin1Char('a'))
            return (letters.size() > 3 ? QStringLiteral("星期") : QStringLiteral("周")) +
                   QStringLiteral("一二三四五六日").at(m_date.dayOfWeek() - 1);
        if (letter == QLatin1Char('h')) {
            const int hour = m_time.hour();
            return padded(m_section.has(Kind::HalfDay) ? (hour + 11) % 12 + 1 : hour, letters);
        }
        if (letter == QLatin1Char('s'))
            return padded(m_time.second(), letters);
        const bool isMinute = letters.size() < 3 && (neighbour(-1).startsWith(QLatin1Char('h')) ||
                                                     neighbour(1).startsWith(QLatin1Char('s')));
        if (isMinute)
            return padded(m_time.minute(), letters);
        return letters.size() > 2 ? monthName(letters.size()) : padded(m_date.month(), letters);
    }

    QString year(const QString &letters) const
    {
        const QString digits = QString::number(m_date.year());
        if (m_section.chineseDigits == 1 || m_section.chineseDigits == 2) {
            QString shown;
            for (const QChar c : digits)
                shown += chineseNumber(c.digitValue(), m_section.chineseDigits == 2);
            return shown;
        }
        return letters.at(0) == QLatin1Char('y') && letters.size() < 3 ? digits.right(2) : digits;
    }

    QString dayName(bool isLong) const
    {
        static const QString names[] = {QStringLiteral("Monday"),    QStringLiteral("Tuesday"),
                                        QStringLiteral("Wednesday"), QStringLiteral("Thursday"),
                                        QStringLiteral("Friday"),    QStringLiteral("Saturday"),
                                        QStringLiteral("Sunday")};
        const int day = m_date.dayOfWeek() - 1;
        if (m_section.isChinese)
            return (isLong ? QStringLiteral("星期") : QStringLiteral("周")) +
                   QStringLiteral("一二三四五六日").at(day);
        return isLong ? names[day] : names[day].left(3);
    }

    QString monthName(int letters) const
    {
        static const QString names[] = {
            QStringLiteral("January"), QStringLiteral("February"), QStringLiteral("March"),
            QStringLiteral("April"),   QStringLiteral("May"),      QStringLiteral("June"),
            QStringLiteral("July"),    QStringLiteral("August"),   QStringLiteral("September"),
            QStringLiteral("October"), QStringLiteral("November"), QStringLiteral("December")};
        const int month = m_date.month();
        if (m_section.isChinese)
            return (letters > 3 ? chineseNumber(month, false) : QString::number(month)) +
                   QStringLiteral("月");
        const QString name = names[month - 1];
        return letters == 4 ? name : name.left(letters == 3 ? 3 : 1);
    }

    QString elapsed(const QString &letters) const
    {
        const qint64 unit = letters.at(0) == QLatin1Char('h')
                                ? 3600000
                                : (letters.at(0) == QLatin1Char('m') ? 60000 : 1000);
        return QString::number(m_ms / unit).rightJustified(letters.size(), QLatin1Char('0'));
    }

    QString halfDay(const QString &letters) const
    {
        const bool morning = m_time.hour() < 12;
        const int slash = letters.indexOf(QLatin1Char('/'));
        return morning ? letters.left(slash) : letters.mid(slash + 1);
    }

    /// Parts of a second behind the point.
    void writeDigit()
    {
        const QString parts = QString::number(m_time.msec()).rightJustified(3, QLatin1Char('0'));
        m_text += parts.mid(m_partDigits++, 1);
    }

    const FormatSection &m_section;
    QString m_text;
    QDate m_date;
    QTime m_time;
    qint64 m_ms = 0;
    int m_at = 0;
    int m_partDigits = 0;
};

} // namespace

QString shownDate(double days, const FormatSection &section, bool from1904)
{
    if (days < 0 || days >= maxDays)
        return plainNumber(days);
    return DateWriter(days, section, from1904).write();
}

} // namespace search::text
