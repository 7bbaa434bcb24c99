#include "app/navigation.h"

#include "ui/pages/filesearchpage.h"

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
        {basicSection(), QStringLiteral("文件搜索"), QStringLiteral("file_search"),
         IconWidget::Search, true, createFileSearchPage},
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
