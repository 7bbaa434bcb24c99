#include "search/query/folding.h"

#include "search/query/hantables.h"

#include <QHash>
#include <QVector>

namespace search::query {
namespace {

/// The character that stands for each one of the table's range.
const QVector<ushort> &hanForms()
{
    static const QVector<ushort> forms = [] {
        QVector<ushort> made(lastHan - firstHan + 1);
        for (int i = 0; i < made.size(); ++i)
            made[i] = ushort(firstHan + i);
        for (int i = 0; i < hanVariantCount; ++i)
            made[hanVariants[i].from - firstHan] = hanVariants[i].to;
        return made;
    }();
    return forms;
}

bool isHan(ushort unit)
{
    return unit >= firstHan && unit <= lastHan;
}

ushort asciiLower(ushort unit)
{
    return unit >= 'A' && unit <= 'Z' ? ushort(unit + 32) : unit;
}

/// Decomposed, a Hangul or kana syllable would be found in others that begin alike.
bool staysWhole(ushort unit)
{
    return (unit >= 0x3040 && unit <= 0x30FF) || (unit >= 0xAC00 && unit <= 0xD7A3);
}

bool isAccent(QChar c)
{
    return c >= QChar(0x300) && c <= QChar(0x36F);
}

QString foldedSlowly(const QString &character)
{
    QString parts = character.normalized(QString::NormalizationForm_KD).toCaseFolded();
    QString kept;
    for (const QChar c : qAsConst(parts)) {
        if (!isAccent(c))
            kept += isHan(c.unicode()) ? QChar(hanForms().at(c.unicode() - firstHan)) : c;
    }
    return kept;
}

} // namespace

QString folded(const QString &text)
{
    const QVector<ushort> &forms = hanForms();
    QString result;
    result.reserve(text.size());
    for (int i = 0; i < text.size(); ++i) {
        const ushort unit = text.at(i).unicode();
        if (unit < 0x80) {
            result += QChar(asciiLower(unit));
        } else if (isHan(unit)) {
            result += QChar(forms.at(unit - firstHan));
        } else if (unit >= 0xFF01 && unit <= 0xFF5E) {
            result += QChar(asciiLower(ushort(unit - 0xFEE0)));
        } else if (staysWhole(unit)) {
            result += QChar(unit);
        } else if (text.at(i).isHighSurrogate() && i + 1 < text.size()) {
            result += foldedSlowly(text.mid(i, 2));
            ++i;
        } else {
            result += foldedSlowly(text.mid(i, 1));
        }
    }
    return result;
}

QString asciiLower(const QString &text)
{
    QString result = text;
    for (QChar &c : result)
        c = QChar(asciiLower(c.unicode()));
    return result;
}

QString hanSpellings(QChar character)
{
    static const QHash<QChar, QString> byForm = [] {
        QHash<QChar, QString> made;
        for (int i = 0; i < hanVariantCount; ++i)
            made[QChar(hanVariants[i].to)] += QChar(hanVariants[i].from);
        return made;
    }();
    if (!isHan(character.unicode()))
        return QString(character);
    const QChar form(hanForms().at(character.unicode() - firstHan));
    return form + byForm.value(form);
}

} // namespace search::query
