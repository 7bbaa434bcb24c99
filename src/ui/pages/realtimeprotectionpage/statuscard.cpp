#include "ui/pages/realtimeprotectionpage/statuscard.h"

#include "ui/common/layoutmetrics.h"
#include "ui/common/statwidgets.h"
#include "ui/common/widgetstyle.h"
#include "ui/common/wraplabel.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

using ui::common::StatBlock;
namespace metrics = ui::common::metrics;

namespace realtimeprotection {

namespace {

constexpr int kDotSize = 12;
constexpr int kStatPadding = 12;

} // namespace

StatusCard::StatusCard(QWidget *parent)
    : QFrame(parent)
{
    setObjectName(QStringLiteral("statusFrame"));
    setProperty("card", true);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(metrics::kCardPadding, metrics::kCardGap, metrics::kCardPadding,
                               metrics::kCardPadding);
    column->setSpacing(metrics::kCardGap);
    column->addLayout(buildStatusRow());
    column->addWidget(buildSpaceWarning());
    column->addLayout(buildStats());
}

QBoxLayout *StatusCard::buildStatusRow()
{
    m_dot = new QLabel(this);
    m_dot->setObjectName(QStringLiteral("StatusDot"));
    m_dot->setFixedSize(kDotSize, kDotSize);
    m_text = new QLabel(tr("保护未启用"), this);
    m_text->setObjectName(QStringLiteral("StatusText"));
    m_text->setProperty("textRole", QStringLiteral("section"));
    m_toggle = new QPushButton(tr("启用保护"), this);
    m_toggle->setObjectName(QStringLiteral("ProtectionToggle"));
    m_toggle->setFixedHeight(metrics::controlHeight());
    ui::common::setButtonRole(m_toggle, QStringLiteral("primary"));
    m_settings = new QPushButton(tr("保护设置"), this);
    m_settings->setObjectName(QStringLiteral("ShieldSettingsButton"));
    m_settings->setFixedHeight(metrics::controlHeight());
    connect(m_toggle, &QPushButton::clicked, this, &StatusCard::toggleRequested);
    connect(m_settings, &QPushButton::clicked, this, &StatusCard::settingsRequested);
    showHealth(Health::Off, m_text->text());

    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kButtonGap);
    row->addWidget(m_dot);
    row->addWidget(m_text);
    row->addStretch(1);
    row->addWidget(m_settings);
    row->addWidget(m_toggle);
    return row;
}

QWidget *StatusCard::buildSpaceWarning()
{
    m_spaceWarning = new QFrame(this);
    m_spaceWarning->setObjectName(QStringLiteral("SpaceWarning"));
    m_spaceText = new ui::common::WrapLabel(QString(), m_spaceWarning);
    m_spaceText->setObjectName(QStringLiteral("SpaceWarningText"));
    auto *settings = new QPushButton(tr("调整设置"), m_spaceWarning);
    settings->setObjectName(QStringLiteral("SpaceSettingsButton"));
    connect(settings, &QPushButton::clicked, this, &StatusCard::settingsRequested);
    auto *row = new QHBoxLayout(m_spaceWarning);
    row->setContentsMargins(kStatPadding, kStatPadding / 2, kStatPadding, kStatPadding / 2);
    row->addWidget(m_spaceText, 1);
    row->addWidget(settings);
    m_spaceWarning->hide();
    return m_spaceWarning;
}

QBoxLayout *StatusCard::buildStats()
{
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kCardGap);
    const auto add = [this, row](const QString &title, const char *name) {
        auto *card = new QFrame(this);
        card->setObjectName(QStringLiteral("StatCard"));
        auto *block = new StatBlock(title, QStringLiteral("-"), card);
        block->setObjectName(QLatin1String(name));
        auto *column = new QVBoxLayout(card);
        column->setContentsMargins(kStatPadding, kStatPadding, kStatPadding, kStatPadding);
        column->addWidget(block);
        row->addWidget(card, 1);
        return block;
    };
    m_service = add(tr("服务运行状态"), "ServiceStat");
    m_files = add(tr("受保护文件"), "FileCountStat");
    m_space = add(tr("已用空间"), "UsedSpaceStat");
    m_deployMode = add(tr("部署模式"), "DeployModeStat");
    return row;
}

void StatusCard::showHealth(Health health, const QString &text)
{
    m_dot->setStyleSheet(QStringLiteral("background: %1;").arg(dotColor(health).name()));
    m_text->setText(text);
}

void StatusCard::showStatus(const StatusView &view)
{
    showHealth(view.health, view.text);
    m_toggle->setText(view.toggleText);
    // What switches protection off is not the first thing to do here.
    ui::common::setButtonRole(m_toggle,
                              view.health == Health::Off ? QStringLiteral("primary") : QString());
    m_service->setValue(view.service);
    m_files->setValue(view.fileCount);
    m_space->setValue(view.usedSpace);
    m_deployMode->setValue(view.deployMode);
}

void StatusCard::showSpaceWarning(qint64 usedBytes, qint64 maxBytes)
{
    m_usedBytes = usedBytes;
    m_maxBytes = maxBytes;
    m_spaceText->setText(spaceWarningText(usedBytes, maxBytes));
    m_spaceWarning->show();
}

void StatusCard::updateSpaceWarning(qint64 usedBytes)
{
    if (m_spaceWarning->isHidden())
        return;
    if (isSpaceShort(usedBytes, m_maxBytes))
        showSpaceWarning(usedBytes, m_maxBytes);
    else
        m_spaceWarning->hide();
}

void StatusCard::updateSpaceLimit(qint64 maxBytes)
{
    m_maxBytes = maxBytes;
    updateSpaceWarning(m_usedBytes);
}

void StatusCard::showDisconnected(bool isRefused)
{
    showHealth(Health::Broken,
               isRefused ? tr("守护进程不可信任，已拒绝连接") : tr("守护进程未连接"));
    m_service->setValue(tr("○ 未知"));
}

void StatusCard::setControlsEnabled(bool enabled)
{
    m_settings->setEnabled(enabled);
    setToggleEnabled(enabled);
}

void StatusCard::setToggleEnabled(bool enabled)
{
    m_toggle->setEnabled(enabled);
}

} // namespace realtimeprotection
