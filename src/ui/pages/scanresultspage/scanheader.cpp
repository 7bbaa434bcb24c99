#include "ui/pages/scanresultspage/scanheader.h"

#include "ui/common/elidedlabel.h"
#include "ui/common/iconwidget.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/theme.h"
#include "ui/common/widgetstyle.h"
#include "ui/pages/scanresultspage/scanprogressbar.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

using ui::common::ElidedLabel;
using ui::common::IconWidget;
using ui::common::LegacyColors;
namespace metrics = ui::common::metrics;

namespace scanresults {

namespace {

constexpr int kButtonIcon = 14;

QLabel *makeFact(const char *name, QWidget *parent)
{
    auto *label = new QLabel(parent);
    label->setObjectName(QString::fromLatin1(name));
    label->setTextFormat(Qt::PlainText);
    return label;
}

} // namespace

ScanHeader::ScanHeader(QWidget *parent)
    : QFrame(parent)
{
    setObjectName(QStringLiteral("SurfacePanel"));
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(metrics::kCardPadding, metrics::kCardGap, metrics::kCardPadding,
                               metrics::kCardGap);
    column->setSpacing(metrics::kFieldGap);
    column->addLayout(makeTitleRow());
    column->addLayout(makeProgressRow());
    column->addLayout(makeFactsRow());
}

QHBoxLayout *ScanHeader::makeTitleRow()
{
    m_title = new ElidedLabel(QString(), Qt::ElideRight, this);
    m_title->setObjectName(QStringLiteral("ScanTitle"));
    m_title->setProperty("textRole", QStringLiteral("page-title"));
    m_badge = new QLabel(this);
    m_badge->setObjectName(QStringLiteral("TagLabel"));
    m_badge->setTextFormat(Qt::PlainText);
    m_pause = new QPushButton(this);
    m_pause->setObjectName(QStringLiteral("PauseButton"));
    m_stop = new QPushButton(this);
    m_stop->setObjectName(QStringLiteral("StopButton"));
    connect(m_pause, &QPushButton::clicked, this, &ScanHeader::pauseClicked);
    connect(m_stop, &QPushButton::clicked, this, &ScanHeader::stopClicked);
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kButtonGap);
    row->addWidget(m_title);
    row->addWidget(m_badge, 0, Qt::AlignVCenter);
    row->addStretch(1);
    row->addWidget(m_pause);
    row->addWidget(m_stop);
    return row;
}

QHBoxLayout *ScanHeader::makeProgressRow()
{
    m_bar = new ScanProgressBar(this);
    m_bar->setObjectName(QStringLiteral("ScanProgressBar"));
    m_percent = makeFact("ScanPercentLabel", this);
    m_percent->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_percent->setMinimumWidth(m_percent->fontMetrics().horizontalAdvance(QStringLiteral("100%")));
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kButtonGap + 4);
    row->addWidget(m_bar, 1, Qt::AlignVCenter);
    row->addWidget(m_percent);
    return row;
}

QHBoxLayout *ScanHeader::makeFactsRow()
{
    m_phase = new ElidedLabel(QString(), Qt::ElideMiddle, this);
    m_phase->setObjectName(QStringLiteral("ScanPhaseLabel"));
    m_found = makeFact("ScanFoundLabel", this);
    m_elapsed = makeFact("ScanElapsedLabel", this);
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kGroupGap);
    row->addWidget(m_phase, 1);
    row->addWidget(m_found);
    row->addWidget(m_elapsed);
    return row;
}

void ScanHeader::setTitle(const QString &title)
{
    m_title->setText(title);
}

void ScanHeader::setFileSystem(const QString &fileSystem)
{
    m_badge->setText(fileSystem.toUpper());
    m_badge->setVisible(!fileSystem.isEmpty());
}

void ScanHeader::setButtons(PauseButton pause, StopButton stop)
{
    const bool resumes = pause == PauseButton::Resume;
    m_pause->setText(resumes ? tr("继续") : tr("暂停"));
    m_pause->setIcon(QIcon(IconWidget::makePixmap(
        resumes ? IconWidget::Play : IconWidget::Pause,
        resumes ? LegacyColors::resumeIcon() : LegacyColors::pauseIcon(), kButtonIcon)));
    m_pause->setEnabled(pause != PauseButton::Disabled);
    const bool rescans = stop == StopButton::Rescan;
    m_stop->setText(rescans ? tr("重新扫描") : tr("停止"));
    ui::common::setButtonRole(m_stop,
                              rescans ? QStringLiteral("primary") : QStringLiteral("danger"));
    m_stop->setEnabled(stop != StopButton::Disabled);
}

void ScanHeader::setScanRunning(bool running)
{
    m_bar->setScanRunning(running);
}

void ScanHeader::setPercent(int percent)
{
    m_bar->setValue(percent);
    m_percent->setText(tr("%1%").arg(percent));
}

void ScanHeader::setPhase(const QString &text, bool isError)
{
    ui::common::setStyleProperty(m_phase, "tone",
                                 isError ? QVariant(QStringLiteral("error")) : QVariant());
    m_phase->setText(text);
}

void ScanHeader::setFound(const QString &text)
{
    m_found->setText(text);
}

void ScanHeader::setElapsed(const QString &text)
{
    m_elapsed->setText(text);
}

} // namespace scanresults
