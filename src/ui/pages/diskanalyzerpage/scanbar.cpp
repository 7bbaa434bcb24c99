#include "ui/pages/diskanalyzerpage/scanbar.h"

#include "ui/common/elidedlabel.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/widgetstyle.h"

#include <QHBoxLayout>
#include <QProgressBar>
#include <QPushButton>

using ui::common::ElidedLabel;
namespace metrics = ui::common::metrics;

namespace diskanalyzer {

ScanBar::ScanBar(QWidget *parent)
    : QWidget(parent)
    , m_status(new ElidedLabel(this))
    , m_progress(new QProgressBar(this))
    , m_start(new QPushButton(tr("开始扫描"), this))
    , m_stop(new QPushButton(tr("停止扫描"), this))
    , m_settings(new QPushButton(tr("扫描设置"), this))
{
    m_status->setObjectName(QStringLiteral("AnalyzerStatusLabel"));
    m_progress->setObjectName(QStringLiteral("AnalyzerProgressBar"));
    m_progress->setRange(0, 100);
    m_progress->setTextVisible(false);
    m_start->setObjectName(QStringLiteral("AnalyzerStartButton"));
    ui::common::setButtonRole(m_start, QStringLiteral("primary"));
    m_stop->setObjectName(QStringLiteral("AnalyzerStopButton"));
    m_settings->setObjectName(QStringLiteral("AnalyzerSettingsButton"));
    connect(m_start, &QPushButton::clicked, this, &ScanBar::startClicked);
    connect(m_stop, &QPushButton::clicked, this, &ScanBar::stopClicked);
    connect(m_settings, &QPushButton::clicked, this, &ScanBar::settingsClicked);

    auto *texts = new QVBoxLayout;
    texts->setSpacing(metrics::kFieldGap / 2);
    texts->addStretch(1);
    texts->addWidget(m_status);
    texts->addWidget(m_progress);
    texts->addStretch(1);
    auto *row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(metrics::kButtonGap);
    row->addLayout(texts, 1);
    row->addSpacing(metrics::kCardGap - metrics::kButtonGap);
    row->addWidget(m_settings);
    row->addWidget(m_stop);
    row->addWidget(m_start);
    setState(State::Idle);
}

void ScanBar::setState(State state)
{
    const bool idle = state == State::Idle;
    m_start->setVisible(idle);
    m_settings->setEnabled(idle);
    m_stop->setVisible(!idle);
    m_stop->setEnabled(state == State::Running);
    m_progress->setVisible(!idle);
}

void ScanBar::setStatus(const QString &text)
{
    m_status->setText(text);
}

void ScanBar::setPercent(int percent)
{
    m_progress->setValue(percent);
}

} // namespace diskanalyzer
