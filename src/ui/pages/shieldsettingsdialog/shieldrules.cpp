#include "ui/pages/shieldsettingsdialog/shieldrules.h"

#include "core/jsonnumber.h"

#include <QJsonArray>

namespace shieldsettings {

namespace {

constexpr int kDefaultRetentionDays = 30;
constexpr int kMaxHeight = 560;
constexpr double kShareOfScreen = 0.65;
constexpr qint64 kMegabyte = 1024 * 1024;
constexpr qint64 kGigabyte = 1024 * kMegabyte;

QString dirsKey()
{
    return QStringLiteral("protectedDirs");
}

QString extensionsKey()
{
    return QStringLiteral("protectedExtensions");
}

QString retentionKey()
{
    return QStringLiteral("retentionDays");
}

QString spaceKey()
{
    return QStringLiteral("maxSpaceBytes");
}

QString emergencyKey()
{
    return QStringLiteral("emergencyThresholdBytes");
}

QStringList stringsOf(const QJsonObject &config, const QString &key)
{
    QStringList strings;
    const QJsonArray values = config.value(key).toArray();
    for (const QJsonValue &value : values) {
        if (value.isString())
            strings.append(value.toString());
    }
    return strings;
}

} // namespace

Settings fromConfig(const QJsonObject &config)
{
    Settings settings;
    settings.protectedDirs = stringsOf(config, dirsKey());
    settings.protectedExtensions = stringsOf(config, extensionsKey());
    settings.retentionDays = config.value(retentionKey()).toInt(kDefaultRetentionDays);
    settings.maxSpaceBytes = core::toInt64(config.value(spaceKey()));
    settings.emergencyThresholdBytes = core::toInt64(config.value(emergencyKey()));
    return settings;
}

QJsonObject toConfig(const Settings &settings)
{
    return {{dirsKey(), QJsonArray::fromStringList(settings.protectedDirs)},
            {extensionsKey(), QJsonArray::fromStringList(settings.protectedExtensions)},
            {retentionKey(), settings.retentionDays},
            {spaceKey(), settings.maxSpaceBytes},
            {emergencyKey(), settings.emergencyThresholdBytes}};
}

const QVector<TypeGroup> &typeGroups()
{
    static const QVector<TypeGroup> kGroups = {
        {QStringLiteral("文档"), QStringLiteral("doc,docx,pdf,xls,xlsx,ppt,pptx,wps,et,dps,odt,"
                                                "ods,odp,txt,md,ofd,rtf")},
        {QStringLiteral("图片"), QStringLiteral("jpg,jpeg,png,gif,bmp,svg,webp,tiff,psd,raw")},
        {QStringLiteral("视频"), QStringLiteral("mp4,mkv,avi,mov,wmv,flv,webm")},
        {QStringLiteral("音频"), QStringLiteral("mp3,wav,flac,aac,ogg,wma")},
        {QStringLiteral("代码"), QStringLiteral("c,cpp,h,py,java,js,ts,go,rs,rb,php,html,css")},
        {QStringLiteral("压缩包"), QStringLiteral("zip,tar.gz,rar,7z,bz2,xz")},
    };
    return kGroups;
}

QStringList extensionsOf(const TypeGroup &group)
{
    return group.extensions.split(QLatin1Char(','));
}

QString extensionNote(const TypeGroup &group)
{
    return QLatin1Char('.') + extensionsOf(group).join(QLatin1String(", ."));
}

QString secondNetNote(const QString &reason)
{
    const QString note = QStringLiteral(
        "静态链接程序、沙箱等绕过保护钩子的删除由第二道防线保留。\n"
        "在 Btrfs 和 XFS 上使用克隆，自动启用；其他文件系统需要硬链接，\n"
        "文件的链接数会因此增加，默认关闭，可在服务配置中将 secondNet 设为 always。");
    return reason.isEmpty() ? note : note + QStringLiteral("\n当前未启用：%1").arg(reason);
}

QSet<QString> lowerCased(const QStringList &extensions)
{
    QSet<QString> result;
    for (const QString &extension : extensions)
        result.insert(extension.toLower());
    return result;
}

bool isProtected(const TypeGroup &group, const QSet<QString> &extensions)
{
    const QStringList members = extensionsOf(group);
    int found = 0;
    for (const QString &member : members)
        found += extensions.contains(member) ? 1 : 0;
    return found > members.size() / 2;
}

QStringList extensionsOfGroups(const QVector<int> &groups)
{
    QStringList extensions;
    for (int i = 0; i < typeGroups().size(); ++i) {
        if (groups.contains(i))
            extensions += extensionsOf(typeGroups().at(i));
    }
    extensions.removeDuplicates();
    return extensions;
}

LimitOption retentionOption()
{
    return {QStringLiteral("保留时间:"),
            QStringLiteral("保留时间"),
            QStringLiteral("受保护文件在保护区中保留的最长天数。\n"
                           "超过此期限的文件将被自动清理以释放空间。"),
            {{QStringLiteral("7 天"), 7},
             {QStringLiteral("14 天"), 14},
             {QStringLiteral("30 天"), 30},
             {QStringLiteral("60 天"), 60},
             {QStringLiteral("90 天"), 90}}};
}

LimitOption spaceOption()
{
    return {QStringLiteral("空间上限:"),
            QStringLiteral("空间上限"),
            QStringLiteral("保护区允许占用的最大磁盘空间。\n"
                           "达到上限后，最旧的受保护文件将被自动清理。"),
            {{QStringLiteral("1 GB"), kGigabyte},
             {QStringLiteral("5 GB"), 5 * kGigabyte},
             {QStringLiteral("10 GB"), 10 * kGigabyte},
             {QStringLiteral("20 GB"), 20 * kGigabyte},
             {QStringLiteral("50 GB"), 50 * kGigabyte}}};
}

LimitOption emergencyOption()
{
    return {QStringLiteral("紧急释放阈值:"),
            QStringLiteral("紧急释放阈值"),
            QStringLiteral("当系统剩余磁盘空间低于此值时，\n"
                           "将强制清理保护区中最旧的文件以防止磁盘写满。"),
            {{QStringLiteral("500 MB"), 500 * kMegabyte},
             {QStringLiteral("1 GB"), kGigabyte},
             {QStringLiteral("2 GB"), 2 * kGigabyte},
             {QStringLiteral("5 GB"), 5 * kGigabyte}}};
}

int dialogHeight(int availableHeight)
{
    if (availableHeight < 0)
        return kMaxHeight;
    return qMin(kMaxHeight, qRound(kShareOfScreen * availableHeight));
}

} // namespace shieldsettings
