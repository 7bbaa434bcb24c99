#include "app/navigation.h"

#include "ui/pages/aboutpage.h"
#include "ui/pages/blockforensicspage.h"
#include "ui/pages/diskanalyzerpage.h"
#include "ui/pages/filesearchpage.h"
#include "ui/pages/filesharepage.h"
#include "ui/pages/globalsettingspage.h"
#include "ui/pages/helpguidepage.h"
#include "ui/pages/partitionselectpage.h"
#include "ui/pages/realtimeprotectionpage.h"
#include "ui/pages/recentscanspage.h"
#include "ui/pages/vaultbrowserpage.h"
#include "ui/pages/wechatcleanpage.h"

using ui::common::IconWidget;

namespace {

QString basicSection()
{
    return QStringLiteral("基础功能");
}

QString professionalSection()
{
    return QStringLiteral("专业功能");
}

QString otherSection()
{
    return QStringLiteral("其他");
}

QWidget *createFileSearchPage(const PageContext &context)
{
    return new FileSearchPage(context.mode, context.parent);
}

QWidget *createPartitionSelectPage(const PageContext &context)
{
    return new PartitionSelectPage(context.parent);
}

QWidget *createRecentScansPage(const PageContext &context)
{
    return new RecentScansPage(context.recoveryController, context.workflowWindow, context.parent);
}

QWidget *createVaultBrowserPage(const PageContext &context)
{
    return new VaultBrowserPage(context.mode, context.recoveryController, context.parent);
}

QWidget *createBlockForensicsPage(const PageContext &context)
{
    return new BlockForensicsPage(context.forensicsController, context.parent);
}

QWidget *createDiskAnalyzerPage(const PageContext &context)
{
    return new DiskAnalyzerPage(context.vaultController, context.parent);
}

QWidget *createWechatCleanPage(const PageContext &context)
{
    return new WechatCleanPage(context.parent);
}

QWidget *createRealtimeProtectionPage(const PageContext &context)
{
    return new RealtimeProtectionPage(context.vaultController, context.mode, context.parent);
}

QWidget *createFileSharePage(const PageContext &context)
{
    return new FileSharePage(context.shareController, context.parent);
}

QWidget *createHelpGuidePage(const PageContext &context)
{
    return new HelpGuidePage(context.parent);
}

QWidget *createAboutPage(const PageContext &context)
{
    return new AboutPage(context.parent);
}

QWidget *createGlobalSettingsPage(const PageContext &context)
{
    return new GlobalSettingsPage(context.upgradeController, context.mode, context.parent);
}

// The last section is the same in both modes, apart from when its pages are built.
QVector<NavigationEntry> otherEntries(bool eager)
{
    return {
        {otherSection(), QStringLiteral("帮助说明"), QStringLiteral("help"), IconWidget::Question,
         eager, createHelpGuidePage},
        {otherSection(), QStringLiteral("关于"), QStringLiteral("about"), IconWidget::Seal, eager,
         createAboutPage},
        {otherSection(), QStringLiteral("全局设置"), QStringLiteral("global_settings"),
         IconWidget::Gear, eager, createGlobalSettingsPage},
    };
}

QVector<NavigationEntry> normalEntries()
{
    return QVector<NavigationEntry>{
               {basicSection(), QStringLiteral("文件搜索"), QStringLiteral("file_search"),
                IconWidget::Search, true, createFileSearchPage},
               {basicSection(), QStringLiteral("空间分析"), QStringLiteral("disk_analyzer"),
                IconWidget::Drive, false, createDiskAnalyzerPage},
               {professionalSection(), QStringLiteral("微信清理"), QStringLiteral("wechat_clean"),
                IconWidget::Filter, false, createWechatCleanPage},
               {professionalSection(), QStringLiteral("实时保护"),
                QStringLiteral("realtime_protection"), IconWidget::Shield, false,
                createRealtimeProtectionPage},
               {professionalSection(), QStringLiteral("文件分享"), QStringLiteral("file_share"),
                IconWidget::Share, false, createFileSharePage},
           } +
           otherEntries(false);
}

QVector<NavigationEntry> liveCdEntries()
{
    return QVector<NavigationEntry>{
               {basicSection(), QStringLiteral("文件恢复"), QStringLiteral("recovery_scan"),
                IconWidget::Drive, true, createPartitionSelectPage},
               {basicSection(), QStringLiteral("最近扫描"), QStringLiteral("recent_scans"),
                IconWidget::History, true, createRecentScansPage},
               {basicSection(), QStringLiteral("文件搜索"), QStringLiteral("file_search"),
                IconWidget::Search, true, createFileSearchPage},
               {professionalSection(), QStringLiteral("受保护文件"),
                QStringLiteral("vault_browser"), IconWidget::Shield, true, createVaultBrowserPage},
               {professionalSection(), QStringLiteral("块取证"), QStringLiteral("block_forensics"),
                IconWidget::Search, true, createBlockForensicsPage},
           } +
           otherEntries(true);
}

} // namespace

QVector<NavigationEntry> navigationEntries(core::AppMode mode)
{
    return mode == core::AppMode::livecd ? liveCdEntries() : normalEntries();
}

bool isEmphasizedSection(const QString &section)
{
    return section == professionalSection();
}
