#pragma once

#include <QDateTime>
#include <QList>
#include <QString>

/// What the settings page shows for its values. No widgets.
namespace globalsettings {

constexpr double kDefaultFontScale = 1.15;

struct FontScaleChoice
{
    QString text;
    double scale;
};

QList<FontScaleChoice> fontScaleChoices();
/// Index of the choice that is nearest to a stored scale; of the default for one that is no
/// sensible number.
int fontScaleIndex(double scale);

/// The version with its date, if known.
QString latestVersionText(const QString &version, const QDateTime &publishedAt);
/// How far a download has come; empty before its first byte. Bytes; a total below 1 is unknown.
QString downloadText(qint64 received, qint64 total);

} // namespace globalsettings
