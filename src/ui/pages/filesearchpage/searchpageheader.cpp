#include "ui/pages/filesearchpage/searchpageheader.h"

#include "ui/common/elidedlabel.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/utils/formatutils.h"
#include "ui/common/widgetstyle.h"
#include "ui/common/wraplabel.h"

#include <QPushButton>
#include <QVBoxLayout>

using ui::common::ElidedLabel;
using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace filesearch {

namespace {

/// How long the outcome of what the user did stays, before news of the watcher may replace it.
constexpr int kOutcomeHoldMs = 5000;
constexpr int kListedFolders = 15; ///< In a tip.

} // namespace

SearchPageHeader::SearchPageHeader(QWidget *parent)
    : QWidget(parent)
    , m_status(new WrapLabel(tr("索引状态：不可用"), this))
    , m_statistics(new ElidedLabel(tr("索引状态：不可用"), Qt::ElideRight, this))
    , m_build(new QPushButton(tr("构建索引"), this))
{
    auto *title = new QLabel(tr("文件搜索"), this);
    title->setObjectName(QStringLiteral("PageTitle"));
    m_status->setObjectName(QStringLiteral("SearchStatus"));
    m_statistics->setObjectName(QStringLiteral("SearchStats"));
    auto *texts = new QVBoxLayout;
    texts->setSpacing(metrics::kFieldGap / 2);
    texts->addWidget(title);
    texts->addWidget(m_status);
    texts->addWidget(m_statistics);

    auto *settings = new QPushButton(tr("索引设置"), this);
    settings->setObjectName(QStringLiteral("IndexSettingsButton"));
    m_build->setObjectName(QStringLiteral("BuildIndexButton"));
    setBuildIsMain(true);
    connect(settings, &QPushButton::clicked, this, &SearchPageHeader::settingsRequested);
    connect(m_build, &QPushButton::clicked, this, &SearchPageHeader::buildRequested);

    auto *row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(metrics::kButtonGap);
    row->addLayout(texts, 1);
    row->addSpacing(metrics::kCardGap);
    row->addWidget(settings, 0, Qt::AlignTop);
    row->addWidget(m_build, 0, Qt::AlignTop);
}

void SearchPageHeader::setStatus(const QString &text, bool isError)
{
    m_status->setText(text);
    ui::common::setStyleProperty(m_status, "tone", isError ? QStringLiteral("error") : QString());
}

void SearchPageHeader::setOutcome(const QString &text, bool isError)
{
    setStatus(text, isError);
    m_sinceOutcome.start();
}

void SearchPageHeader::setNews(const QString &text)
{
    if (!m_sinceOutcome.isValid() || m_sinceOutcome.hasExpired(kOutcomeHoldMs))
        setStatus(text);
}

void SearchPageHeader::setStatistics(const QString &text)
{
    m_statisticsText = text;
    showStatistics();
}

void SearchPageHeader::setUnfollowed(const QStringList &folders)
{
    m_unfollowed = folders;
    showStatistics();
}

void SearchPageHeader::showStatistics()
{
    if (m_unfollowed.isEmpty()) {
        m_statistics->setText(m_statisticsText);
        m_statistics->setToolTip(QString());
        return;
    }
    m_statistics->setText(m_statisticsText +
                          tr(" | %1 个文件夹未实时跟踪").arg(m_unfollowed.size()));
    QStringList lines = m_unfollowed.mid(0, kListedFolders);
    if (m_unfollowed.size() > kListedFolders)
        lines.append(tr("等 %1 个文件夹").arg(m_unfollowed.size()));
    m_statistics->setToolTip(
        ui::common::utils::plainTip(tr("系统允许的监控数量已用完，以下文件夹每 10 分钟检查一次：") +
                                    QLatin1Char('\n') + lines.join(QLatin1Char('\n'))));
}

void SearchPageHeader::setBuildIsMain(bool isMain)
{
    ui::common::setButtonRole(m_build, isMain ? QStringLiteral("primary") : QString());
}

} // namespace filesearch
