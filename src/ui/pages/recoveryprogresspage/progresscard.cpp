#include "ui/pages/recoveryprogresspage/progresscard.h"

#include "ui/common/layoutmetrics.h"
#include "ui/common/statwidgets.h"
#include "ui/common/widgetstyle.h"
#include "ui/common/wraplabel.h"
#include "ui/pages/recoveryprogresspage/pathlink.h"

#include <QHBoxLayout>
#include <QProgressBar>
#include <QVBoxLayout>

using ui::common::StatBlock;
using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace recoveryprogress {

namespace {
const QString kNothingYet = QStringLiteral("--");
} // namespace

ProgressCard::ProgressCard(QWidget *parent)
    : QFrame(parent)
    , m_state(new QLabel(this))
    , m_percent(new QLabel(this))
    , m_bar(new QProgressBar(this))
    , m_hint(new WrapLabel(this))
{
    setProperty("card", true);
    auto *section = new QLabel(tr("恢复进度"), this);
    section->setObjectName(QStringLiteral("SectionTitle"));
    m_state->setObjectName(QStringLiteral("RecoveryStateText"));
    m_percent->setObjectName(QStringLiteral("RecoveryPercentText"));
    m_bar->setObjectName(QStringLiteral("RecoveryProgressBar"));
    m_bar->setTextVisible(false);
    m_hint->setObjectName(QStringLiteral("RecoveryStateHint"));
    m_hint->setProperty("textRole", QStringLiteral("subtle"));
    m_hint->hide();

    auto *heading = new QHBoxLayout;
    heading->setSpacing(metrics::kCardGap);
    heading->addWidget(section);
    heading->addWidget(m_state, 1);
    heading->addWidget(m_percent);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(metrics::kCardPadding, metrics::kCardGap, metrics::kCardPadding,
                               metrics::kCardGap);
    column->setSpacing(metrics::kFieldGap);
    column->addLayout(heading);
    column->addWidget(m_bar);
    column->addWidget(m_hint);
    column->addSpacing(metrics::kFieldGap);
    column->addWidget(buildFigures());
}

QWidget *ProgressCard::buildFigures()
{
    auto *figures = new QWidget(this);
    m_count = new StatBlock(tr("选择文件数"), kNothingYet, figures);
    m_count->setObjectName(QStringLiteral("RecoveryCountStat"));
    m_processed = new StatBlock(tr("已处理"), kNothingYet, figures);
    m_processed->setObjectName(QStringLiteral("RecoveryProcessedStat"));
    m_volume = new StatBlock(tr("数据量"), kNothingYet, figures);
    m_volume->setObjectName(QStringLiteral("RecoveryVolumeStat"));

    // A path is far longer than a figure, so it is set smaller and may be shortened.
    auto *target = new QWidget(figures);
    auto *caption = new QLabel(tr("目标路径"), target);
    caption->setObjectName(QStringLiteral("StatTitle"));
    m_target = new PathLink(kNothingYet, target);
    connect(m_target, &PathLink::activated, this, &ProgressCard::targetActivated);
    m_target->setObjectName(QStringLiteral("RecoveryTargetPath"));
    m_target->setProperty("textRole", QStringLiteral("section"));
    auto *column = new QVBoxLayout(target);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(4);
    column->addWidget(caption);
    column->addWidget(m_target, 1);

    auto *row = new QHBoxLayout(figures);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(metrics::kGroupGap);
    row->addWidget(m_count, 2);
    row->addWidget(m_processed, 3);
    row->addWidget(m_volume, 2);
    row->addWidget(target, 6);
    return figures;
}

void ProgressCard::setState(const QString &text, const QString &tone)
{
    m_state->setText(text);
    ui::common::setStyleProperty(m_state, "tone", tone);
    const QString barTone = tone == QLatin1String("error") ? QStringLiteral("danger") : tone;
    ui::common::setStyleProperty(m_bar, "tone", barTone);
}

void ProgressCard::setHint(const QString &hint)
{
    m_hint->setText(hint);
    m_hint->setVisible(!hint.isEmpty());
}

void ProgressCard::setPercent(int percent)
{
    m_bar->setValue(percent);
    m_percent->setText(tr("%1%").arg(percent));
}

void ProgressCard::setFileCount(int count)
{
    m_count->setValue(QString::number(count));
}

void ProgressCard::setProcessed(const QString &text)
{
    m_processed->setValue(text);
}

void ProgressCard::setVolume(const QString &text)
{
    m_volume->setValue(text.isEmpty() ? kNothingYet : text);
}

void ProgressCard::setTarget(const QString &path)
{
    m_target->setPath(path, kNothingYet);
}

} // namespace recoveryprogress
