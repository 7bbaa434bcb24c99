#include "search/text/shownnumber.h"

#include <cmath>

namespace search::text {

namespace {

using Kind = FormatSection::Kind;
using Piece = FormatSection::Piece;

constexpr int maxDecimals = 30;
constexpr int shownDigitCount = 15;
/// Beyond, doubles are no whole numbers any more.
constexpr double maxWhole = 1e15;

QString literals(const FormatSection &section, double value)
{
    QString shown;
    for (const Piece &piece : section.pieces) {
        if (piece.kind == Kind::General || piece.kind == Kind::Text)
            shown += plainNumber(value);
        else
            shown += piece.text;
    }
    return shown;
}

/// Where the digit places of a section stand.
struct Places
{
    QVector<int> whole;
    QVector<int> decimals;
    QVector<int> exponent;
    int fraction = -1;
};

Places placesOf(const FormatSection &section)
{
    Places places;
    bool behindPoint = false;
    bool behindExponent = false;
    for (int i = 0; i < section.pieces.size(); ++i) {
        const Kind kind = section.pieces.at(i).kind;
        behindPoint = behindPoint || kind == Kind::Point;
        behindExponent = behindExponent || kind == Kind::Exponent;
        if (kind == Kind::Fraction)
            places.fraction = i;
        if (kind != Kind::Digit)
            continue;
        if (behindExponent)
            places.exponent.append(i);
        else if (behindPoint)
            places.decimals.append(i);
        else
            places.whole.append(i);
    }
    return places;
}

QString emptyPlace(const QString &place)
{
    if (place == QLatin1String("0"))
        return place;
    return place == QLatin1String("?") ? QStringLiteral(" ") : QString();
}

/// Writes digits into places from the right; the first place takes what is left over.
void fillFromRight(const QString &digits, bool grouped, const QVector<int> &places,
                   QVector<QString> *texts, const FormatSection &section)
{
    int left = digits.size();
    for (int i = places.size() - 1; i >= 0; --i) {
        const int fromRight = places.size() - 1 - i;
        QString text;
        if (left > 0)
            text = digits.mid(--left, 1);
        else
            text = emptyPlace(section.pieces.at(places.at(i)).text);
        if (grouped && fromRight > 0 && fromRight % 3 == 0 && !text.trimmed().isEmpty())
            text += QLatin1Char(',');
        if (i == 0) {
            for (int position = fromRight + 1; left > 0; ++position) {
                const QString comma =
                    grouped && position % 3 == 0 ? QStringLiteral(",") : QString();
                text.prepend(digits.mid(--left, 1) + comma);
            }
        }
        (*texts)[places.at(i)] = text;
    }
}

void fillDecimals(QString digits, const QVector<int> &places, QVector<QString> *texts,
                  const FormatSection &section)
{
    for (int i = places.size() - 1; i >= 0; --i) {
        const QString place = section.pieces.at(places.at(i)).text;
        const bool drops = place != QLatin1String("0") && digits.size() == i + 1 &&
                           digits.endsWith(QLatin1Char('0'));
        (*texts)[places.at(i)] = drops ? emptyPlace(place) : digits.mid(i, 1);
        if (drops)
            digits.chop(1);
    }
}

QString joined(const FormatSection &section, const QVector<QString> &texts)
{
    QString shown;
    for (int i = 0; i < section.pieces.size(); ++i) {
        const Kind kind = section.pieces.at(i).kind;
        shown += kind == Kind::Digit || kind == Kind::Exponent || kind == Kind::Fraction
                     ? texts.at(i)
                     : section.pieces.at(i).text;
    }
    return shown;
}

/// "# ?/?": the nearest fraction whose denominator has as many digits as places.
QString shownFraction(double value, const FormatSection &section, const Places &places)
{
    int limit = 1;
    for (const int place : places.whole)
        limit *= place > places.fraction && limit < 1000 ? 10 : 1;
    const double whole = std::floor(value);
    double best = 2;
    int numerator = 0;
    int denominator = 1;
    for (int i = 1; i < limit; ++i) {
        const double n = std::round((value - whole) * i);
        const double error = std::fabs(value - whole - n / i);
        if (error < best - 1e-12) {
            best = error;
            numerator = int(n);
            denominator = i;
        }
    }
    const QString part = QStringLiteral("%1/%2").arg(numerator).arg(denominator);
    Q_UNUSED(section)
    const QString wholeText = QString::number(whole, 'f', 0);
    if (numerator == 0)
        return wholeText;
    return whole > 0 ? wholeText + QLatin1Char(' ') + part : part;
}

QString scientific(double value, const FormatSection &section, const Places &places)
{
    QVector<QString> texts(section.pieces.size());
    const int step = qMax(1, places.whole.size());
    int exponent = value > 0 ? int(std::floor(std::log10(value))) : 0;
    exponent = int(std::floor(double(exponent) / step)) * step;
    const double mantissa = value / std::pow(10.0, exponent);
    const QString number =
        QString::number(mantissa, 'f', qMin(maxDecimals, places.decimals.size()));
    fillFromRight(number.section(QLatin1Char('.'), 0, 0), false, places.whole, &texts, section);
    fillDecimals(number.section(QLatin1Char('.'), 1), places.decimals, &texts, section);
    fillFromRight(QString::number(qAbs(exponent)), false, places.exponent, &texts, section);
    for (int i = 0; i < section.pieces.size(); ++i) {
        if (section.pieces.at(i).kind == Kind::Exponent) {
            const bool plus = section.pieces.at(i).text.endsWith(QLatin1Char('+'));
            texts[i] = exponent < 0 ? QStringLiteral("E-")
                                    : (plus ? QStringLiteral("E+") : QStringLiteral("E"));
        }
    }
    return joined(section, texts);
}

} // namespace

QString plainNumber(double value)
{
    return QString::number(value, 'g', shownDigitCount).replace(QLatin1Char('e'), QLatin1Char('E'));
}

QString shownDigits(double value, const FormatSection &section)
{
    double number = std::fabs(value);
    const QString sign = value < 0 ? QStringLiteral("-") : QString();
    if (section.chineseDigits == 1 || section.chineseDigits == 2) {
        if (number < maxWhole && !(std::floor(number) < number))
            return sign + chineseNumber(qint64(number), section.chineseDigits == 2);
    }
    if (!section.has(Kind::Digit))
        return section.has(Kind::General) ? sign + literals(section, number)
                                          : literals(section, number);
    for (int i = 0; i < qMin(section.percents, 4); ++i)
        number *= 100;
    for (int i = 0; i < qMin(section.thousands, 6); ++i)
        number /= 1000;
    const Places places = placesOf(section);
    if (places.fraction >= 0)
        return sign + shownFraction(number, section, places);
    if (section.has(Kind::Exponent))
        return sign + scientific(number, section, places);
    const int decimals = qMin(maxDecimals, places.decimals.size());
    // The digits that a reader sees are rounded as decimal numbers, not as their binary form.
    const QString exact = QString::number(number, 'g', shownDigitCount);
    const double nudge = number > 0 ? std::pow(10.0, std::floor(std::log10(number)) - 15) : 0;
    const QString text = QString::number(exact.toDouble() + nudge / 2, 'f', decimals);
    QString whole = text.section(QLatin1Char('.'), 0, 0);
    if (whole == QLatin1String("0"))
        whole.clear();
    QVector<QString> texts(section.pieces.size());
    fillFromRight(whole, section.isGrouped, places.whole, &texts, section);
    fillDecimals(text.section(QLatin1Char('.'), 1), places.decimals, &texts, section);
    const bool zero = text.toDouble() <= 0;
    return (zero ? QString() : sign) + joined(section, texts);
}

QString chineseNumber(qint64 number, bool ofAmounts)
{
    const QString digits =
        ofAmounts ? QStringLiteral("零壹贰叁肆伍陆柒捌玖") : QStringLiteral("〇一二三四五六七八九");
    const QString units = ofAmounts ? QStringLiteral("拾佰仟") : QStringLiteral("十百千");
    const QString groups = QStringLiteral("万亿万");
    if (number == 0)
        return digits.left(1);
    const QString decimal = QString::number(number);
    QString shown;
    bool gap = false;
    bool groupHas = false;
    for (int i = 0; i < decimal.size(); ++i) {
        const int place = decimal.size() - 1 - i;
        const int digit = decimal.at(i).digitValue();
        if (digit == 0) {
            gap = true;
        } else {
            if (gap && !shown.isEmpty())
                shown += digits.at(0);
            gap = false;
            groupHas = true;
            shown += digits.at(digit);
            if (place % 4 > 0)
                shown += units.at(place % 4 - 1);
        }
        if (place > 0 && place % 4 == 0 && place / 4 <= groups.size()) {
            if (groupHas)
                shown += groups.at(place / 4 - 1);
            groupHas = false;
        }
    }
    const QString ten = QStringLiteral("一十");
    return !ofAmounts && shown.startsWith(ten) ? shown.mid(1) : shown;
}

} // namespace search::text
