#include "ui/pages/wechatcleanpage/pageheader.h"

#include "ui/common/elidedlabel.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/wraplabel.h"

#include <QHBoxLayout>
#include <QPushButton>

using ui::common::ElidedLabel;
using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace wechatclean {

PageHeader::PageHeader(QWidget *parent)
    : QWidget(parent)
    , m_status(new ElidedLabel(tr("尚未开始扫描"), Qt::ElideRight, this))
    , m_intro(new QWidget(this))
{
    auto *title = new QLabel(tr("微信清理"), this);
    title->setObjectName(QStringLiteral("PageTitle"));
    auto *settings = new QPushButton(tr("设置"), this);
    settings->setObjectName(QStringLiteral("WechatSettingsButton"));
    auto *history = new QPushButton(tr("清理记录"), this);
    history->setObjectName(QStringLiteral("WechatHistoryButton"));
    connect(settings, &QPushButton::clicked, this, &PageHeader::settingsRequested);
    connect(history, &QPushButton::clicked, this, &PageHeader::historyRequested);
    auto *heading = new QLabel(tr("清理微信里的重复文件"), m_intro);
    heading->setObjectName(QStringLiteral("SectionTitle"));
    auto *text = new WrapLabel(
        tr("通过扫描微信收发的相同文件，并进行处理以节省空间，不会影响微信的实际功能。"), m_intro);
    text->setObjectName(QStringLiteral("SubtleText"));
    m_status->setObjectName(QStringLiteral("WechatStatus"));
    m_status->setProperty("textRole", QStringLiteral("subtle"));

    auto *toolbar = new QHBoxLayout;
    toolbar->setSpacing(metrics::kButtonGap);
    toolbar->addWidget(title, 1);
    toolbar->addWidget(settings);
    toolbar->addWidget(history);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(metrics::kFieldGap / 2);
    column->addLayout(toolbar);
    column->addWidget(m_intro);
    column->addWidget(m_status);
    auto *intro = new QVBoxLayout(m_intro);
    intro->setContentsMargins(0, 0, 0, 0);
    intro->setSpacing(metrics::kFieldGap / 2);
    intro->addWidget(heading);
    intro->addWidget(text);
}

void PageHeader::setBrief(bool isBrief)
{
    m_intro->setVisible(!isBrief);
}

void PageHeader::setStatus(const QString &text)
{
    m_status->setText(text);
}

} // namespace wechatclean
