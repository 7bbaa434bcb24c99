#include "ui/pages/scanresultspage/quickfilters.h"

#include "ui/common/layoutmetrics.h"
#include "ui/common/segmentedtoggle.h"

#include <QActionGroup>
#include <QHBoxLayout>
#include <QMenu>
#include <QPushButton>

using ui::common::SegmentedToggle;

namespace scanresults {

namespace {

constexpr qint64 kDayMs = 24 * 60 * 60 * Q_INT64_C(1000);

} // namespace

QuickFilters::QuickFilters(QWidget *parent)
    : QWidget(parent)
    , m_kind(new SegmentedToggle({tr("全部"), tr("已选"), tr("可完整恢复")}, this))
    , m_time(new QPushButton(this))
    , m_times(new QActionGroup(this))
{
    setObjectName(QStringLiteral("QuickFilters"));
    m_time->setObjectName(QStringLiteral("TimeFilterButton"));
    makeTimeMenu();
    auto *row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(ui::common::metrics::kButtonGap);
    row->addWidget(m_kind);
    row->addWidget(m_time);
    connect(m_kind, &SegmentedToggle::currentIndexChanged, this, &QuickFilters::changed);
    showTime();
}

void QuickFilters::makeTimeMenu()
{
    auto *menu = new QMenu(m_time);
    menu->setObjectName(QStringLiteral("TimeFilterMenu"));
    const std::pair<QString, int> entries[] = {
        {tr("全部时间"), 0}, {tr("最近 7 天"), 7}, {tr("最近 30 天"), 30}, {tr("最近一年"), 365}};
    for (const auto &entry : entries) {
        QAction *action = m_times->addAction(menu->addAction(entry.first));
        action->setCheckable(true);
        action->setData(entry.second);
        action->setChecked(entry.second == 0);
    }
    connect(m_times, &QActionGroup::triggered, this, [this] {
        showTime();
        emit changed();
    });
    m_time->setMenu(menu);
}

void QuickFilters::showTime()
{
    const QAction *chosen = m_times->checkedAction();
    const bool isAll = chosen->data().toInt() == 0;
    m_time->setText(isAll ? tr("删除时间") : tr("删除时间: %1").arg(chosen->text()));
}

ResultFilter::Quick QuickFilters::kind() const
{
    return static_cast<ResultFilter::Quick>(m_kind->currentIndex());
}

qint64 QuickFilters::deletedSince(qint64 now) const
{
    const int days = m_times->checkedAction()->data().toInt();
    return days == 0 ? 0 : now - days * kDayMs;
}

void QuickFilters::reset()
{
    m_kind->setCurrentIndex(ResultFilter::All);
    m_times->actions().first()->setChecked(true);
    showTime();
}

} // namespace scanresults
