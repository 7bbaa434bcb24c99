#include "ui/pages/filesharepage/recordspanel.h"

#include "ui/common/emptystate.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/sharewidgets.h"
#include "ui/common/widgetstyle.h"
#include "ui/common/wraplabel.h"
#include "ui/pages/filesharepage/sessiontable.h"

#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

#include <algorithm>

using ui::common::EmptyState;
using ui::common::IconWidget;
namespace metrics = ui::common::metrics;

namespace fileshare {

RecordsPanel::RecordsPanel(QWidget *parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("ShareRecords"));
    m_networkHint = new ui::common::WrapLabel(
        tr("未检测到可用的局域网地址，其他设备暂时无法访问共享，请检查网络连接。"), this);
    m_networkHint->setObjectName(QStringLiteral("ShareNetworkHint"));
    m_networkHint->setProperty("tone", QStringLiteral("error"));
    m_networkHint->hide();
    buildViews();
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(metrics::kFieldGap);
    column->addLayout(buildTools());
    column->addWidget(m_networkHint);
    column->addWidget(m_views, 1);
    showSessions({});
}

QBoxLayout *RecordsPanel::buildTools()
{
    m_status = subtleLabel(QString(), this);
    m_status->setObjectName(QStringLiteral("ShareRecordsStatus"));
    m_stopAll = namedButton(tr("全部停止"), "ShareStopAllButton", this);
    m_startAll = namedButton(tr("全部开始"), "ShareStartAllButton", this);
    m_removeAll = namedButton(tr("全部删除"), "ShareRemoveAllButton", this);
    ui::common::setButtonRole(m_removeAll, QStringLiteral("danger"));
    connect(m_stopAll, &QPushButton::clicked, this, &RecordsPanel::stopAllRequested);
    connect(m_startAll, &QPushButton::clicked, this, &RecordsPanel::startAllRequested);
    connect(m_removeAll, &QPushButton::clicked, this, &RecordsPanel::removeAllRequested);
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kButtonGap);
    row->addWidget(sectionTitle(tr("共享记录"), this));
    row->addWidget(m_status, 1);
    for (QPushButton *button : {m_stopAll, m_startAll, m_removeAll})
        row->addWidget(button);
    return row;
}

void RecordsPanel::buildViews()
{
    m_table = new SessionTable(this);
    m_empty = new EmptyState(IconWidget::Share, this);
    m_empty->setObjectName(QStringLiteral("ShareRecordsEmpty"));
    m_empty->setTexts(tr("还没有共享记录"), tr("添加文件并开始共享后，会在这里留下记录。"));
    m_views = new QStackedWidget(this);
    m_views->addWidget(m_table);
    m_views->addWidget(m_empty);
}

void RecordsPanel::showSessions(const QVector<SessionRow> &rows)
{
    const auto isRowActive = [](const SessionRow &row) {
        return isActive(row.state);
    };
    const int active = int(std::count_if(rows.begin(), rows.end(), isRowActive));
    m_table->showSessions(rows);
    m_views->setCurrentIndex(rows.isEmpty() ? 1 : 0);
    m_status->setText(recordsText(rows.size(), active));
    m_stopAll->setEnabled(active > 0);
    m_startAll->setEnabled(active < rows.size());
    m_removeAll->setEnabled(!rows.isEmpty());
}

void RecordsPanel::showUnavailable()
{
    m_empty->setTone(EmptyState::Tone::Error);
    m_empty->setTexts(tr("文件分享不可用"), tr("请重新启动程序后再试。"));
}

void RecordsPanel::setReachable(bool reachable)
{
    m_networkHint->setVisible(!reachable);
}

} // namespace fileshare
