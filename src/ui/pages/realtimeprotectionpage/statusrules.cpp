#include "ui/pages/realtimeprotectionpage/statusrules.h"

#include "core/jsonnumber.h"
#include "ui/common/statuscolors.h"
#include "ui/common/utils/protectedfiles.h"

using ui::common::StatusColors;

namespace realtimeprotection {

namespace {

/// A stopped service reads as off, whatever is configured: broken is a running service whose hook
/// is not in place.
bool isOff(const ServiceStatus &status)
{
    return !status.isEnabled || !status.isRunning;
}

QString healthText(Health health)
{
    switch (health) {
    case Health::Good:
        return QStringLiteral("保护已启用");
    case Health::Waiting:
        return QStringLiteral("待重启生效");
    case Health::Broken:
        return QStringLiteral("保护异常");
    case Health::Off:
        break;
    }
    return QStringLiteral("保护未启用");
}

QString deployModeText(const QString &mode)
{
    if (mode == QLatin1String("global"))
        return QStringLiteral("全局模式");
    if (mode == QLatin1String("pending_reboot"))
        return QStringLiteral("待重启");
    if (mode == QLatin1String("degraded"))
        return QStringLiteral("异常");
    return QStringLiteral("未启用");
}

} // namespace

ServiceStatus ServiceStatus::fromJson(const QJsonObject &status)
{
    const auto flag = [&status](const char *key) {
        return status.value(QLatin1String(key)).toBool();
    };
    ServiceStatus result;
    result.isRunning = flag("running");
    result.isEnabled = flag("enabled");
    result.isHookActive = flag("preloadActive");
    result.isHookFilePresent = flag("soFileExists");
    result.needsReboot = flag("needReboot");
    result.fileCount = core::toInt64(status.value(QLatin1String("protectedFileCount")));
    result.usedBytes = core::toInt64(status.value(QLatin1String("usedSpaceBytes")));
    result.secondNetReason = status.value(QLatin1String("secondNetReason")).toString();
    result.deployMode = status.value(QLatin1String("deployMode")).toString();
    return result;
}

Health healthOf(const ServiceStatus &status)
{
    if (isOff(status))
        return Health::Off;
    if (!status.isHookActive || !status.isHookFilePresent)
        return Health::Broken;
    return status.needsReboot ? Health::Waiting : Health::Good;
}

StatusView viewOf(const ServiceStatus &status)
{
    StatusView view;
    view.health = healthOf(status);
    view.text = healthText(view.health);
    view.toggleText = isOff(status) ? QStringLiteral("启用保护") : QStringLiteral("关闭保护");
    view.service = status.isRunning ? QStringLiteral("● 运行中") : QStringLiteral("○ 未运行");
    view.fileCount = QString::number(status.fileCount);
    view.usedSpace = protectedfiles::byteText(status.usedBytes);
    view.deployMode = deployModeText(status.deployMode);
    return view;
}

bool isSpaceShort(qint64 usedBytes, qint64 maxBytes)
{
    return maxBytes > 0 && usedBytes >= maxBytes - maxBytes / 10;
}

QString spaceWarningText(qint64 usedBytes, qint64 maxBytes)
{
    return QStringLiteral(
               "保护区空间即将用满：已用 %1，上限 %2。达到上限后，最旧的受保护文件将被自动清理。")
        .arg(protectedfiles::byteText(usedBytes), protectedfiles::byteText(maxBytes));
}

QColor dotColor(Health health)
{
    switch (health) {
    case Health::Good:
        return StatusColors::good();
    case Health::Waiting:
        return StatusColors::waiting();
    case Health::Broken:
        return StatusColors::broken();
    case Health::Off:
        break;
    }
    return StatusColors::off();
}

QString BreakageWatch::warningFor(const ServiceStatus &status)
{
    if (healthOf(status) == Health::Broken) {
        if (m_isWarned)
            return QString();
        m_isWarned = true;
        return status.isHookFilePresent ? QStringLiteral("预加载未注册到系统，请重新启用保护。")
                                        : QStringLiteral("预加载库文件缺失，请重新启用保护。");
    }
    const bool isShortStop = status.isEnabled && !status.isRunning;
    m_isWarned = m_isWarned && isShortStop;
    return QString();
}

} // namespace realtimeprotection
