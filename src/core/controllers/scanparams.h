#pragma once

#include <QJsonObject>
#include <QString>

namespace core {
namespace controllers {

/// Adds the advanced settings to the parameters of `scan.start`: the whole object under
/// `advancedSettings`, and each of its keys once more at the top, where services that know no
/// nested settings read them. Empty settings add nothing.
void appendAdvancedScanSettings(const QJsonObject &settings, QJsonObject *params);

/// Parameters of `scan.start`. `scanMode` is "quick" or "deep"; an empty file system is left out.
QJsonObject buildScanParams(const QString &devicePath, const QString &fileSystem,
                            const QString &scanMode, const QJsonObject &advancedSettings);

} // namespace controllers
} // namespace core
