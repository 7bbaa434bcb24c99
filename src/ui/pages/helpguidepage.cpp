#include "ui/pages/helpguidepage.h"

#include "ui/common/itemviews.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/theme.h"
#include "ui/pages/auxiliarytoolspage.h"

#include <QCoreApplication>
#include <QFile>
#include <QFrame>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QStackedWidget>
#include <QTextBrowser>
#include <QTextDocument>
#include <QTreeWidget>
#include <QVBoxLayout>

using ui::common::ThemeColors;
namespace metrics = ui::common::metrics;

namespace {

constexpr int kContentsWidth = 240;
constexpr int kAnchorRole = Qt::UserRole;

helpguide::GuideColors guideColors()
{
    const ThemeColors &colors = ThemeColors::current();
    return {colors.textPrimary, colors.headerBackground, colors.border};
}

} // namespace

HelpGuidePage::HelpGuidePage(QWidget *parent, const QString &guidePath)
    : QWidget(parent)
    , m_guidePath(guidePath.isEmpty() ? QCoreApplication::applicationDirPath() +
                                            QStringLiteral("/../md/help_guide.md")
                                      : guidePath)
{
    setObjectName(QStringLiteral("HelpGuidePage"));
    m_stack = new QStackedWidget(this);
    m_guide = buildGuide();
    m_stack->addWidget(m_guide);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_stack);
}

void HelpGuidePage::showEvent(QShowEvent *event)
{
    // Not before: laying the guide out takes longer than all else of a page.
    if (!m_isLoaded)
        loadMarkdownFromDisk();
    QWidget::showEvent(event);
}

QWidget *HelpGuidePage::buildGuide()
{
    auto *guide = new QWidget(this);
    m_text = new QTextBrowser(guide);
    // Room between the lines of the lists, as in the paragraphs.
    m_text->document()->setDefaultStyleSheet(QStringLiteral("li { line-height: 150%; }"));
    m_text->setObjectName(QStringLiteral("HelpGuideText"));
    m_text->setAccessibleName(tr("使用说明"));
    m_text->setOpenExternalLinks(true);
    auto *layout = new QHBoxLayout(guide);
    layout->setContentsMargins(metrics::kPageMargin, metrics::kPageMargin, metrics::kPageMargin,
                               metrics::kPageMargin);
    layout->setSpacing(metrics::kCardGap);
    layout->addWidget(buildContents());
    layout->addWidget(m_text, 1);
    return guide;
}

void HelpGuidePage::showTools()
{
    if (!m_tools) {
        m_tools = new AuxiliaryToolsPage(m_stack);
        m_stack->addWidget(m_tools);
        connect(m_tools, &AuxiliaryToolsPage::backRequested, this,
                [this] { m_stack->setCurrentWidget(m_guide); });
    }
    m_stack->setCurrentWidget(m_tools);
}

QWidget *HelpGuidePage::buildContents()
{
    auto *frame = new QFrame(this);
    frame->setObjectName(QStringLiteral("SurfacePanel"));
    frame->setFixedWidth(kContentsWidth);
    auto *heading = new QLabel(tr("目录"), frame);
    heading->setProperty("textRole", QStringLiteral("section"));
    m_contents = new QTreeWidget(frame);
    m_contents->setObjectName(QStringLiteral("HelpGuideContents"));
    m_contents->setColumnCount(1);
    m_contents->setHeaderHidden(true);
    ui::common::setUpTree(m_contents);
    connect(m_contents, &QTreeWidget::itemClicked, this, &HelpGuidePage::scrollToItem);
    connect(m_contents, &QTreeWidget::itemActivated, this, &HelpGuidePage::scrollToItem);
    auto *tools = new QPushButton(tr("辅助工具"), frame);
    tools->setObjectName(QStringLiteral("AuxiliaryToolsButton"));
    tools->setToolTip(tr("常见 Linux 开源磁盘检查工具"));
    connect(tools, &QPushButton::clicked, this, &HelpGuidePage::showTools);
    auto *column = new QVBoxLayout(frame);
    column->setContentsMargins(metrics::kCardGap, metrics::kCardGap, metrics::kCardGap,
                               metrics::kCardGap);
    column->setSpacing(metrics::kFieldGap);
    column->addWidget(heading);
    column->addWidget(m_contents, 1);
    column->addWidget(tools);
    return frame;
}

void HelpGuidePage::loadMarkdownFromDisk()
{
    m_isLoaded = true;
    m_sections.clear();
    QFile file(m_guidePath);
    QString html;
    if (!file.exists())
        html = helpguide::problemPage(tr("未找到帮助文件"), tr("请在程序可执行文件同级目录放置"),
                                      m_guidePath, guideColors());
    else if (!file.open(QIODevice::ReadOnly))
        html =
            helpguide::problemPage(tr("无法打开帮助文件。"), QString(), QString(), guideColors());
    else
        html = markdownToHtml(QString::fromUtf8(file.readAll()));
    m_text->setHtml(html);
    showContents();
}

QString HelpGuidePage::markdownToHtml(const QString &markdown)
{
    m_sections.clear();
    return helpguide::markdownToHtml(markdown, guideColors(), &m_sections);
}

void HelpGuidePage::showContents()
{
    m_contents->clear();
    QTreeWidgetItem *above[4] = {m_contents->invisibleRootItem(), nullptr, nullptr, nullptr};
    for (const helpguide::GuideSection &section : m_sections) {
        int parentLevel = section.level - 1;
        while (!above[parentLevel])
            --parentLevel;
        auto *item = new QTreeWidgetItem(above[parentLevel], {section.title});
        item->setData(0, kAnchorRole, section.anchor);
        item->setToolTip(0, section.title);
        above[section.level] = item;
        for (int level = section.level + 1; level < 4; ++level)
            above[level] = nullptr;
    }
    m_contents->expandAll();
}

void HelpGuidePage::scrollToItem(const QTreeWidgetItem *item)
{
    m_text->scrollToAnchor(item->data(0, kAnchorRole).toString());
}
