#include "app/vaultstartupnotice.h"

std::optional<StartupNotice> vaultStartupNotice(const QJsonObject &status)
{
    if (!status.value(QLatin1String("enabled")).toBool())
        return std::nullopt;

    const QString deployMode = status.value(QLatin1String("deployMode")).toString();
    if (deployMode == QLatin1String("pending_reboot")) {
        return StartupNotice{QStringLiteral("文件保护待重启生效"),
                             QStringLiteral("文件保护配置已更新，重启电脑后会恢复正常生效。"
                                            "为避免误判，建议在重启完成前暂时不要依赖该功能。")};
    }
    if (deployMode == QLatin1String("degraded")) {
        return StartupNotice{QStringLiteral("文件保护状态异常"),
                             QStringLiteral("检测到文件保护当前处于异常状态，可能尚未正常生效。"
                                            "请先重启电脑；如果重启后仍未恢复，"
                                            "再进入“实时保护”页面关闭后重新开启。")};
    }
    return std::nullopt;
}
