#include "ui/pages/globalsettingspage/settingsrules.h"

#include "ui/common/utils/formatutils.h"

#include <QtNumeric>

#include <cmath>

namespace globalsettings {

QList<FontScaleChoice> fontScaleChoices()
{
    return {{QStringLiteral("100%"), 1.0},
            {QStringLiteral("110%"), 1.1},
            {QStringLiteral("115%（默认）"), kDefaultFontScale},
            {QStringLiteral("125%"), 1.25},
            {QStringLiteral("130%"), 1.3},
            {QStringLiteral("140%"), 1.4}};
}

int fontScaleIndex(double scale)
{
    const double wanted = qIsFinite(scale) && scale > 0 ? scale : kDefaultFontScale;
    const QList<FontScaleChoice> choices = fontScaleChoices();
    int best = 0;
    for (int i = 1; i < choices.size(); ++i) {
        if (std::fabs(choices.at(i).scale - wanted) < std::fabs(choices.at(best).scale - wanted))
            best = i;
    }
    return best;
}

QString latestVersionText(const QString &version, const QDateTime &publishedAt)
{
    if (version.isEmpty())
        return QStringLiteral("暂无");
    if (!publishedAt.isValid())
        return version;
    return QStringLiteral("%1 (%2)").arg(
        version, publishedAt.toLocalTime().toString(QStringLiteral("yyyy-MM-dd")));
}

QString downloadText(qint64 received, qint64 total)
{
    if (received < 1)
        return QString();
    const QString got = ui::common::utils::formatByteSize(received);
    if (total < 1)
        return QStringLiteral("正在下载更新包...（%1）").arg(got);
    return QStringLiteral("正在下载更新包...（%1 / %2）")
        .arg(got, ui::common::utils::formatByteSize(total));
}

} // namespace globalsettings
