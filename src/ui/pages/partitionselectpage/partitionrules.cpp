#include "ui/pages/partitionselectpage/partitionrules.h"

#include "ui/common/theme.h"

#include <QStringList>

using ui::common::LegacyColors;

namespace partitionselect {

namespace {

bool holds(const QString &title, const char *word)
{
    return title.contains(QLatin1String(word), Qt::CaseInsensitive);
}

/// How far a card in another row is from the current one: rows first, then columns.
qint64 rowDistance(const QRect &from, const QRect &to)
{
    return qint64(qAbs(to.top() - from.top())) * 100000 + qAbs(to.left() - from.left());
}

} // namespace

void splitPathAndFs(const QString &text, QString *path, QString *fs)
{
    QStringList parts = text.split(QLatin1Char(' '));
    parts.removeAll(QString());
    if (parts.size() < 2) {
        *path = text;
        *fs = QStringLiteral("未知");
        return;
    }
    *fs = parts.takeLast();
    *path = parts.join(QLatin1Char(' '));
}

QColor progressChunkColor(int usage)
{
    if (usage < 30)
        return LegacyColors::usageLow();
    return usage < 81 ? LegacyColors::usageMedium() : LegacyColors::usageHigh();
}

QString diskTypeLabel(const QString &title)
{
    return holds(title, "SSD") || holds(title, "NVME") ? QStringLiteral("固态")
                                                       : QStringLiteral("机械");
}

QString diskSizeLabel(const QString &title)
{
    if (holds(title, "2TB") || holds(title, "2 TB"))
        return QStringLiteral("2 TB");
    if (holds(title, "512GB") || holds(title, "512 GB"))
        return QStringLiteral("512 GB");
    return QStringLiteral("1 TB");
}

int nextCard(const QVector<QRect> &cards, int current, Qt::Key key)
{
    if (current < 0 || current >= cards.size())
        return current;
    if (key == Qt::Key_Left || key == Qt::Key_Right)
        return qBound(0, current + (key == Qt::Key_Right ? 1 : -1), cards.size() - 1);
    if (key != Qt::Key_Up && key != Qt::Key_Down)
        return current;
    const QRect &from = cards.at(current);
    int best = current;
    for (int i = 0; i < cards.size(); ++i) {
        const QRect &to = cards.at(i);
        const bool isOnTheWay =
            key == Qt::Key_Down ? to.top() > from.bottom() : to.bottom() < from.top();
        if (!isOnTheWay)
            continue;
        if (best == current || rowDistance(from, to) < rowDistance(from, cards.at(best)))
            best = i;
    }
    return best;
}

} // namespace partitionselect
