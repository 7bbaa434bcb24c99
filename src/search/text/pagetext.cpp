#include "search/text/pagetext.h"

namespace search::text {

QString headerFooterText(const QString &code)
{
    QString text;
    for (int i = 0; i < code.size(); ++i) {
        if (code.at(i) != QLatin1Char('&') || i + 1 >= code.size()) {
            text += code.at(i);
            continue;
        }
        const QChar field = code.at(++i);
        if (field == QLatin1Char('&')) {
            text += field;
        } else if (field == QLatin1Char('"')) {
            const int end = code.indexOf(field, i + 1);
            i = end < 0 ? code.size() : end;
        } else if (field.isDigit()) {
            while (i + 1 < code.size() && code.at(i + 1).isDigit())
                ++i;
        } else if (QStringLiteral("LCR").contains(field)) {
            text += QLatin1Char('\t');
        }
    }
    return text;
}

} // namespace search::text
