#include "ui/pages/diskanalyzerpage/vaultcoverage.h"

#include "ui/pages/diskanalyzerpage/mountinfo.h"

#include <QJsonArray>

#include <algorithm>

namespace diskanalyzer {

namespace {

QStringList textsOf(const QJsonValue &value)
{
    QStringList texts;
    const QJsonArray values = value.toArray();
    for (const QJsonValue &each : values)
        texts.append(each.toString());
    return texts;
}

bool hasExtension(const QString &path, const QStringList &extensions)
{
    const QString name = path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
    return std::any_of(extensions.begin(), extensions.end(), [&name](const QString &extension) {
        // ".pdf" is a hidden file without an extension.
        return !extension.isEmpty() && name.size() > extension.size() + 1 &&
               name.endsWith(QLatin1Char('.') + extension, Qt::CaseInsensitive);
    });
}

} // namespace

bool VaultCoverage::covers(const QString &path, qint64 size) const
{
    return isActive && (maxBytes <= 0 || size <= maxBytes) && hasExtension(path, extensions) &&
           isProtectedPath(path, dirs);
}

bool isProtectionActive(const QJsonObject &status)
{
    const auto flag = [&status](const char *key) {
        return status.value(QLatin1String(key)).toBool();
    };
    return flag("running") && flag("enabled") && flag("preloadActive") && flag("soFileExists") &&
           !flag("needReboot");
}

void applyConfig(const QJsonObject &config, VaultCoverage *coverage)
{
    coverage->dirs = textsOf(config.value(QLatin1String("protectedDirs")));
    coverage->extensions = textsOf(config.value(QLatin1String("protectedExtensions")));
    coverage->maxBytes = qint64(config.value(QLatin1String("maxSpaceBytes")).toDouble());
}

} // namespace diskanalyzer
