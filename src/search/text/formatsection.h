#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

namespace search::text {

/// One of the up to four alternatives of a number format code, in its smallest pieces.
struct FormatSection
{
    enum class Kind {
        Literal,
        Digit, ///< 0, # or ?
        Point,
        Fraction,
        Exponent,
        Date,    ///< A run of one letter, as "yyyy".
        Elapsed, ///< Hours, minutes or seconds beyond their usual end, as "[h]".
        HalfDay,
        Text,
        General
    };
    struct Piece
    {
        Kind kind;
        QString text;
    };

    QVector<Piece> pieces;
    QString condition; ///< As ">=100"; empty if the order of the sections decides.
    int percents = 0;
    int thousands = 0;     ///< Divisions by 1000.
    int chineseDigits = 0; ///< 1 for everyday ones, 2 for those of amounts.
    bool isGrouped = false;
    bool isChinese = false; ///< Names of months and days.

    bool has(Kind kind) const;
    bool isDate() const { return has(Kind::Date) || has(Kind::Elapsed) || has(Kind::HalfDay); }
};

QVector<FormatSection> parseFormat(const QString &code);

} // namespace search::text
