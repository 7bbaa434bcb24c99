#include "ui/common/styletemplate.h"

#include "ui/common/layoutmetrics.h"
#include "ui/common/theme.h"

#include <QHash>
#include <QRegularExpression>
#include <QtDebug>

namespace ui {
namespace common {

namespace {

constexpr int kBorders = 2;
constexpr int kDarkerPercent = 115;

QString px(int pixels)
{
    return QString::number(pixels) + QLatin1String("px");
}

QString quotedFamilies()
{
    QStringList quoted;
    for (const QString &family : baseFontFamilies())
        quoted.append(QLatin1Char('\'') + family + QLatin1Char('\''));
    return quoted.join(QLatin1String(", "));
}

QColor firstReadable(const QColor &wanted, const QColor &fallback, const QColor &ink)
{
    return ThemeColors::contrast(wanted, ink) >= ThemeColors::kMinTextContrast ? wanted : fallback;
}

QStringList semanticNames()
{
    return {QStringLiteral("success"), QStringLiteral("warning"), QStringLiteral("danger"),
            QStringLiteral("info")};
}

void addSemanticInks(const ThemeColors &colors, QHash<QString, QString> *values)
{
    for (const QString &name : semanticNames())
        values->insert(name + QLatin1String("Ink"),
                       semanticInk(colors, colors.byName(name + QLatin1String("Text"))).name());
}

QHash<QString, QString> derivedValues(const ThemeColors &colors)
{
    QHash<QString, QString> values;
    values.insert(QStringLiteral("accentFill"), colors.accentFill().name());
    values.insert(
        QStringLiteral("accentFillHover"),
        firstReadable(colors.accentHover, colors.accentPressed, colors.textOnAccent).name());
    values.insert(QStringLiteral("linkText"), colors.infoText.name());
    values.insert(
        QStringLiteral("groundMuted"),
        firstReadable(colors.textMuted, colors.titleBarText, colors.windowBackground).name());
    // Also on the window's own ground, which is darker than a card in the light theme.
    values.insert(QStringLiteral("dangerTone"),
                  firstReadable(colors.dangerText, colors.dangerText.darker(kDarkerPercent),
                                colors.windowBackground)
                      .name());
    addSemanticInks(colors, &values);
    QColor scrollHandle = colors.textMuted;
    scrollHandle.setAlphaF(0.5);
    values.insert(QStringLiteral("scrollHandle"), scrollHandle.name(QColor::HexArgb));
    const int control = metrics::controlHeight();
    values.insert(QStringLiteral("controlInner"), px(control - kBorders));
    values.insert(QStringLiteral("controlInnerFocus"), px(control - 2 * kBorders));
    values.insert(QStringLiteral("segmentInner"), px(control - 4 * kBorders));
    values.insert(QStringLiteral("pillRadius"), px((metrics::lineHeight(12) + 6) / 2));
    values.insert(QStringLiteral("groupTop"), px(metrics::lineHeight(13) + 4));
    values.insert(QStringLiteral("rowControlInner"), px(metrics::rowControlHeight() - kBorders));
    values.insert(QStringLiteral("headerInner"), px(metrics::headerHeight() - kBorders));
    values.insert(QStringLiteral("rowInner"), px(metrics::rowHeight() - kBorders));
    values.insert(QStringLiteral("fontFamilies"), quotedFamilies());
    return values;
}

QString valueOf(const QString &marker, const ThemeColors &colors,
                const QHash<QString, QString> &derived)
{
    if (marker.endsWith(QLatin1String("px"))) {
        bool isNumber = false;
        const int base = marker.chopped(2).toInt(&isNumber);
        if (isNumber)
            return px(colors.fontPx(base));
    }
    const QColor color = colors.byName(marker);
    return color.isValid() ? color.name() : derived.value(marker);
}

} // namespace

QString fillStyleTemplate(const QString &sheet, const ThemeColors &colors)
{
    static const QRegularExpression kMarker(QStringLiteral("@(\\w+)@"));
    const QHash<QString, QString> derived = derivedValues(colors);
    QString filled;
    filled.reserve(sheet.size());
    int copied = 0;
    QRegularExpressionMatchIterator markers = kMarker.globalMatch(sheet);
    while (markers.hasNext()) {
        const QRegularExpressionMatch match = markers.next();
        const QString value = valueOf(match.captured(1), colors, derived);
        if (value.isEmpty()) {
            qWarning("[StyleTemplate] Unknown marker: %s", qPrintable(match.captured()));
            continue;
        }
        filled += sheet.midRef(copied, match.capturedStart() - copied);
        filled += value;
        copied = match.capturedEnd();
    }
    filled += sheet.midRef(copied);
    return filled;
}

QString fillStyleTemplate(const QString &sheet)
{
    return fillStyleTemplate(sheet, ThemeColors::current());
}

QColor semanticInk(const ThemeColors &colors, const QColor &semanticText)
{
    for (const QString &name : semanticNames()) {
        const QColor text = colors.byName(name + QLatin1String("Text"));
        const QColor ground = colors.byName(name + QLatin1String("Background"));
        if (ThemeColors::contrast(text, ground) < ThemeColors::kMinTextContrast)
            return colors.textPrimary;
    }
    return semanticText;
}

} // namespace common
} // namespace ui
