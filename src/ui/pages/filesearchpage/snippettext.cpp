#include "ui/pages/filesearchpage/snippettext.h"

#include "ui/common/theme.h"

#include <QRegularExpression>
#include <QtMath>

namespace filesearch {

QString snippetToRichText(const QString &snippet, const ui::common::ThemeColors &colors)
{
    static const QString kOpen = QStringLiteral("<b>");
    static const QString kClose = QStringLiteral("</b>");
    const QString span =
        QStringLiteral("<span style=\"background-color:%1;color:%2;font-weight:600\">")
            .arg(colors.highlightBackground.name(), colors.highlightText.name());

    QString html;
    int position = 0;
    for (;;) {
        const int open = snippet.indexOf(kOpen, position);
        const int close = open < 0 ? -1 : snippet.indexOf(kClose, open + kOpen.size());
        if (close < 0)
            break;
        const int start = open + kOpen.size();
        html += snippet.mid(position, open - position).toHtmlEscaped() + span +
                snippet.mid(start, close - start).toHtmlEscaped() + QStringLiteral("</span>");
        position = close + kClose.size();
    }
    return html + snippet.mid(position).toHtmlEscaped();
}

QString scoreText(double score)
{
    if (qFuzzyIsNull(score))
        return QString();
    // In a small index scores are tiny; two decimals would show them as nothing.
    const QString number =
        qAbs(score) >= 0.005 ? QString::number(score, 'f', 2) : QString::number(score, 'g', 2);
    return QStringLiteral("BM25: %1").arg(number);
}

QString toolTipText(const QString &text)
{
    if (text.isEmpty())
        return QString();
    // Rich text wraps and plain text doesn't; a zero-width space is where a long path may break.
    static const QRegularExpression kBreaks(QStringLiteral("([/_.\\-])"));
    QString lines = text.toHtmlEscaped();
    lines.replace(kBreaks, QStringLiteral("\\1\u200B"));
    lines.replace(QLatin1Char('\n'), QStringLiteral("<br>"));
    return QStringLiteral("<qt>%1</qt>").arg(lines);
}

} // namespace filesearch
