#include "ui/pages/diskanalyzerpage/duplicatetab.h"

#include "ui/common/elidedlabel.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/widgetstyle.h"
#include "ui/pages/diskanalyzerpage/duplicatelistview.h"
#include "ui/pages/diskanalyzerpage/duplicatemodel.h"

#include <QHBoxLayout>
#include <QPushButton>
#include <QScrollBar>
#include <QStackedWidget>

using ui::common::ElidedLabel;
using ui::common::EmptyState;
using ui::common::IconWidget;
namespace metrics = ui::common::metrics;

namespace diskanalyzer {

DuplicateTab::DuplicateTab(QWidget *parent)
    : QWidget(parent)
    , m_model(new DuplicateModel(this))
    , m_views(new QStackedWidget(this))
    , m_empty(new EmptyState(IconWidget::List, m_views))
    , m_list(new DuplicateListView(m_model, m_views))
{
    m_list->setObjectName(QStringLiteral("DuplicateList"));
    m_list->setAccessibleName(tr("重复文件"));
    m_views->addWidget(m_empty);
    m_views->addWidget(m_list);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(metrics::kFieldGap, metrics::kFieldGap, metrics::kFieldGap,
                               metrics::kFieldGap);
    column->setSpacing(metrics::kFieldGap);
    column->addWidget(m_views, 1);
    column->addWidget(buildFooter());
    connect(m_model, &DuplicateModel::keepChanged, this, &DuplicateTab::showSummary);
    connect(m_list, &DuplicateListView::openDirRequested, this, &DuplicateTab::openDirRequested);
    connect(m_list, &DuplicateListView::deleteGroupRequested, this, [this](int group) {
        // A copy: the list may change while the user is asked.
        const DuplicateGroup chosen = m_model->result().groups.at(group);
        if (!m_deleting)
            emit cleanGroupRequested(chosen);
    });
    showSummary();
}

QWidget *DuplicateTab::buildFooter()
{
    m_footerBar = new QWidget(this);
    m_footer = new ElidedLabel(m_footerBar);
    m_footer->setObjectName(QStringLiteral("DuplicateFooter"));
    m_clean = new QPushButton(tr("一键清理"), m_footerBar);
    m_clean->setObjectName(QStringLiteral("DuplicateCleanButton"));
    ui::common::setButtonRole(m_clean, QStringLiteral("danger"));
    connect(m_clean, &QPushButton::clicked, this, [this] {
        const DuplicateResult result = m_model->result();
        emit cleanAllRequested(result);
    });
    auto *row = new QHBoxLayout(m_footerBar);
    row->setContentsMargins(metrics::kFieldGap, 0, 0, 0);
    row->setSpacing(metrics::kCardGap);
    row->addWidget(m_footer, 1);
    row->addWidget(m_clean);
    return m_footerBar;
}

void DuplicateTab::clear(EmptyState::Tone tone, const QString &title, const QString &hint)
{
    m_model->setResult(DuplicateResult());
    m_empty->setTone(tone);
    m_empty->setTexts(title, hint);
    m_views->setCurrentWidget(m_empty);
    m_footerBar->hide();
}

void DuplicateTab::setResult(const DuplicateResult &result, bool searched)
{
    if (result.groups.isEmpty()) {
        clear(EmptyState::Tone::Plain, tr("未扫描到重复文件"),
              searched ? tr("可以在扫描设置中调小最小文件大小后重新扫描。")
                       : tr("扫描设置中没有启用重复文件扫描。"));
        return;
    }
    m_model->setResult(result);
    m_list->scrollToTop();
    m_views->setCurrentWidget(m_list);
    m_footerBar->show();
}

void DuplicateTab::removePaths(const QSet<QString> &paths)
{
    const int before = groupCount();
    if (before == 0)
        return;
    const int position = m_list->verticalScrollBar()->value();
    m_model->removePaths(paths);
    m_list->verticalScrollBar()->setValue(position);
    if (groupCount() == 0)
        clear(EmptyState::Tone::Plain, tr("列出的重复文件都已清理"),
              tr("重新扫描可以查看其余文件。"));
}

int DuplicateTab::groupCount() const
{
    return m_model->result().groups.size();
}

void DuplicateTab::setDeleting(bool deleting)
{
    m_deleting = deleting;
    showSummary();
}

void DuplicateTab::showSummary()
{
    const int unkept = m_model->result().unkeptCount();
    QString obstacle;
    if (m_deleting)
        obstacle = tr("正在删除文件...");
    else if (unkept == 0)
        obstacle = tr("所有文件均已勾选保留");
    ui::common::setUsable(m_clean, obstacle);
    if (m_deleting) {
        m_footer->setText(obstacle);
        return;
    }
    QString text = duplicateFooterText(m_model->result());
    if (unkept > 0)
        text += tr("；已标记删除 %1 个文件").arg(unkept);
    m_footer->setText(text);
}

} // namespace diskanalyzer
