#include "app/navigation.h"

#include "ui/pages/blockforensicspage.h"
#include "ui/pages/filesearchpage.h"
#include "ui/pages/partitionselectpage.h"
#include "ui/pages/recentscanspage.h"

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

QWidget *createBlockForensicsPage(const PageContext &context)
{
    return new BlockForensicsPage(context.forensicsController, context.parent);
}

QVector<NavigationEntry> normalEntries()
{
    return {
        {basicSection(), QStringLiteral("文件搜索"), QStringLiteral("file_search"),
         IconWidget::Search, true, createFileSearchPage},
    };
}

QVector<NavigationEntry> liveCdEntries()
{
    return {
        {basicSection(), QStringLiteral("文件恢复"), QStringLiteral("recovery_scan"),
         IconWidget::Drive, true, createPartitionSelectPage},
        {basicSection(), QStringLiteral("最近扫描"), QStringLiteral("recent_scans"),
         IconWidget::History, true, createRecentScansPage},
        {basicSection(), QStringLiteral("文件搜索"), QStringLiteral("file_search"),
         IconWidget::Search, true, createFileSearchPage},
        {professionalSection(), QStringLiteral("块取证"), QStringLiteral("block_forensics"),
         IconWidget::Search, true, createBlockForensicsPage},
    };
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
