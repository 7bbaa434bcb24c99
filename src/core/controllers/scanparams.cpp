#include "core/controllers/scanparams.h"

namespace core {
namespace controllers {

void appendAdvancedScanSettings(const QJsonObject &settings, QJsonObject *params)
{
    if (settings.isEmpty())
        return;
    params->insert(QStringLiteral("advancedSettings"), settings);
    for (auto it = settings.begin(); it != settings.end(); ++it)
        params->insert(it.key(), it.value());
}

QJsonObject buildScanParams(const QString &devicePath, const QString &fileSystem,
                            const QString &scanMode, const QJsonObject &advancedSettings)
{
    QJsonObject params{{QStringLiteral("devicePath"), devicePath},
                       {QStringLiteral("scanMode"), scanMode}};
    if (!fileSystem.isEmpty())
        params.insert(QStringLiteral("fileSystem"), fileSystem);
    appendAdvancedScanSettings(advancedSettings, &params);
    return params;
}

} // namespace controllers
} // namespace core
