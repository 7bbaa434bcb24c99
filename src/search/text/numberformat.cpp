#include "search/text/numberformat.h"

#include "search/text/formatsection.h"
#include "search/text/shownnumber.h"

#include <QHash>
#include <QRegularExpression>

#include <cmath>

namespace search::text {

namespace {

bool fulfils(double value, const QString &condition)
{
    static const QRegularExpression pattern(QStringLiteral("^([<>=]{1,2})\\s*(.*)$"));
    const QRegularExpressionMatch match = pattern.match(condition);
    const QString sign = match.captured(1);
    const double limit = match.captured(2).toDouble();
    if (sign == QLatin1String("<>"))
        return value < limit || value > limit;
    return (sign.contains(QLatin1Char('<')) && value < limit) ||
           (sign.contains(QLatin1Char('>')) && value > limit) ||
           (sign.contains(QLatin1Char('=')) && !(value < limit) && !(value > limit));
}

/// The section for a number; `ownSign` tells that it stands for negative numbers only.
int sectionFor(double value, const QVector<FormatSection> &sections, bool *ownSign)
{
    *ownSign = false;
    bool conditional = false;
    const int count = qMin(3, sections.size());
    for (int i = 0; i < count; ++i) {
        const QString condition = sections.at(i).condition;
        conditional = conditional || !condition.isEmpty();
        if (!condition.isEmpty() && fulfils(value, condition)) {
            *ownSign = i > 0 && condition.startsWith(QLatin1Char('<'));
            return i;
        }
    }
    if (conditional)
        return count - 1;
    if (value < 0 && count > 1) {
        *ownSign = true;
        return 1;
    }
    const bool zero = !(value > 0) && !(value < 0);
    return zero && count > 2 ? 2 : 0;
}

} // namespace

QString builtinNumberFormat(int id)
{
    static const QHash<int, QString> codes{{1, QStringLiteral("0")},
                                           {2, QStringLiteral("0.00")},
                                           {3, QStringLiteral("#,##0")},
                                           {4, QStringLiteral("#,##0.00")},
                                           {5, QStringLiteral("$#,##0;-$#,##0")},
                                           {6, QStringLiteral("$#,##0;-$#,##0")},
                                           {7, QStringLiteral("$#,##0.00;-$#,##0.00")},
                                           {8, QStringLiteral("$#,##0.00;-$#,##0.00")},
                                           {9, QStringLiteral("0%")},
                                           {10, QStringLiteral("0.00%")},
                                           {11, QStringLiteral("0.00E+00")},
                                           {12, QStringLiteral("# ?/?")},
                                           {13, QStringLiteral("# ?"
                                                               "?/?"
                                                               "?")},
                                           {14, QStringLiteral("yyyy/m/d")},
                                           {15, QStringLiteral("d-mmm-yy")},
                                           {16, QStringLiteral("d-mmm")},
                                           {17, QStringLiteral("mmm-yy")},
                                           {18, QStringLiteral("h:mm AM/PM")},
                                           {19, QStringLiteral("h:mm:ss AM/PM")},
                                           {20, QStringLiteral("h:mm")},
                                           {21, QStringLiteral("h:mm:ss")},
                                           {22, QStringLiteral("yyyy/m/d h:mm")},
                                           {31, QStringLiteral("yyyy\"年\"m\"月\"d\"日\"")},
                                           {32, QStringLiteral("h\"时\"mm\"分\"")},
                                           {33, QStringLiteral("h\"时\"mm\"分\"ss\"秒\"")},
                                           {37, QStringLiteral("#,##0;-#,##0")},
                                           {38, QStringLiteral("#,##0;-#,##0")},
                                           {39, QStringLiteral("#,##0.00;-#,##0.00")},
                                           {40, QStringLiteral("#,##0.00;-#,##0.00")},
                                           {41, QStringLiteral("#,##0;-#,##0")},
                                           {42, QStringLiteral("$#,##0;-$#,##0")},
                                           {43, QStringLiteral("#,##0.00;-#,##0.00")},
                                           {44, QStringLiteral("$#,##0.00;-$#,##0.00")},
                                           {45, QStringLiteral("mm:ss")},
                                           {46, QStringLiteral("[h]:mm:ss")},
                                           {47, QStringLiteral("mm:ss.0")},
                                           {48, QStringLiteral("##0.0E+0")},
                                           {49, QStringLiteral("@")},
                                           {57, QStringLiteral("yyyy\"年\"m\"月\"")},
                                           {58, QStringLiteral("m\"月\"d\"日\"")}};
    return codes.value(id);
}

QString shownNumber(double value, const QString &code, bool from1904)
{
    if (!std::isfinite(value))
        return QString();
    if (code.isEmpty() || code.compare(QLatin1String("General"), Qt::CaseInsensitive) == 0)
        return plainNumber(value);
    const QVector<FormatSection> sections = parseFormat(code);
    bool ownSign = false;
    const FormatSection &section = sections.at(sectionFor(value, sections, &ownSign));
    if (section.isDate())
        return shownDate(value, section, from1904);
    const QString text = shownDigits(ownSign ? -value : value, section);
    return text.trimmed();
}

QString shownText(const QString &text, const QString &code)
{
    if (!code.contains(QLatin1Char('@')) || code.size() < 2)
        return text;
    const QVector<FormatSection> sections = parseFormat(code);
    const FormatSection &section = sections.size() > 3 ? sections.at(3) : sections.constLast();
    if (!section.has(FormatSection::Kind::Text))
        return text;
    QString shown;
    for (const FormatSection::Piece &piece : section.pieces)
        shown += piece.kind == FormatSection::Kind::Text ? text : piece.text;
    return shown.trimmed();
}

} // namespace search::text
